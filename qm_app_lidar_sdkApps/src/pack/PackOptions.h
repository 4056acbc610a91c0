// The options of vxpack about the coding of a file.
#pragma once

#include <vxunpack/EncodeOptions.h>
#include <vxunpack/PointInfo.h>

namespace Quillmoran {

class QMCmdLine;

namespace PackOptions {

void add(QMCmdLine& cmdLine);
// Throws General for malformed text, InvalidArgument for a value out of its range.
EncodeOptions get(const QMCmdLine& cmdLine);
// Replaces the channel names that the user gave with those of the layout. Throws InvalidArgument for an
// unknown channel.
void resolveChannels(EncodeOptions& options, const PointInfo& layout);

} // namespace PackOptions

} // namespace Quillmoran

// The options of vxpack about the coding of a file.
#pragma once

#include <vxunpack/EncodeOptions.h>
#include <vxunpack/PointInfo.h>

namespace Quillmoran {

class QMCmdLine;

namespace PackOptions {

void add(QMCmdLine& cmdLine);
// -1 for text in another format, InvalidArgument for a value out of its range.
EncodeOptions get(const QMCmdLine& cmdLine);
// Replaces names of channels that the user gave with those of the layout; InvalidArgument for an unknown
// channel.
void resolveChannels(EncodeOptions& options, const PointInfo& layout);

} // namespace PackOptions

} // namespace Quillmoran

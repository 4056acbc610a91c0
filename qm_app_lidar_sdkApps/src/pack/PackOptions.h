// The options of vxpack that say how a file is coded.
#pragma once

#include <vxunpack/EncodeOptions.h>
#include <vxunpack/PointInfo.h>

namespace Quillmoran {

class QMCmdLine;

namespace PackOptions {

void add(QMCmdLine& cmdLine);
// -1 for a text that is not of an option's format, InvalidArgument for a value out of its range.
EncodeOptions get(const QMCmdLine& cmdLine);
// Replaces the names of channels that the user gave by those of the layout; InvalidArgument for an unknown channel.
void resolveChannels(EncodeOptions& options, const PointInfo& layout);

} // namespace PackOptions

} // namespace Quillmoran

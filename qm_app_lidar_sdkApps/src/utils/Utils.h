// What the programs share: common options, the version text, how text files are read.
#pragma once

#include "utils/CreatePointSource.h"

namespace Quillmoran {

class QMCmdLine;

namespace Utils {

// "V"/"verbose" and "j"/"numThreads", the options that every program has.
void addCommonOptions(QMCmdLine& cmdLine);
// "p"/"parse" and "skip"/"skipHeader", for programs that read text: what setTextOptions() looks up.
void addTXTPointReaderOptions(QMCmdLine& cmdLine);
void setVersion(QMCmdLine& cmdLine);

PointSourceType getPointSourceType(const char* name);
const char* getPointSourceTypeName(PointSourceType type);

// Takes "parse" and "skipHeader" into the manager; nothing without "parse".
void setTextOptions(FilePointSourceManager& manager, bool scanNow, const QMCmdLine& cmdLine);

} // namespace Utils

} // namespace Quillmoran

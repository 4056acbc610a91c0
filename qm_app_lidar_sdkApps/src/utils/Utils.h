// What the programs share: common options, the version text, how text files are read, points chosen by value,
// whole directories of files.
#pragma once

#include "filters/PointCloudUnion.h"
#include <vxunpack/FilePointSourceManager.h>

#include <optional>
#include <vector>

namespace Quillmoran {

class LASPointWriter;
class PersistentPointSourceWriter;
class QMCmdLine;

namespace Utils {

// "V"/"verbose" and "j"/"numThreads", the options that every program has.
void addCommonOptions(QMCmdLine& cmdLine);
void setVersion(QMCmdLine& cmdLine);
// A line of help for each field letter that names a channel.
extern const char fieldLetters[];

PointSourceType getPointSourceType(const char* name);
const char* getPointSourceTypeName(PointSourceType type);

// "p"/"parse", "skip"/"skipHeader" and "lenient": how text input is read.
void addTXTPointReaderOptions(QMCmdLine& cmdLine);
// Takes them into a manager or an opener of files. The delegate may be null; it is asked whether to stop
// while a text file is scanned, and must outlive the sources opened with these options. InvalidArgument for a bad
// "parse".
void setTextOptions(FilePointSourceManager& manager, bool scanNow, const QMCmdLine& cmdLine,
                    ProgressDelegate* cancellation = nullptr);
void setTextOptions(SimpleFileOpener& opener, bool scanNow, const QMCmdLine& cmdLine,
                    ProgressDelegate* cancellation = nullptr);

// "dropWaveforms": LAS files with waveforms are read without them, with a warning for each.
void addWaveformOption(QMCmdLine& cmdLine);
bool dropsWaveforms(const QMCmdLine& cmdLine);

// "filter": the choice of points by the value of a channel; may be repeated. The second wraps a source in the
// filters, and returns it as it is without any. -1 for text that is not of the option's format, for channels
// that are not integers of at most 32 bits and for values out of a channel's range, InvalidArgument for an unknown
// channel.
void addFilterOptions(QMCmdLine& cmdLine);
Scoped<PointSource> handleFilterOptions(const QMCmdLine& cmdLine, const Scoped<PointSource>& source);

// "ofld"/"outFields", "s"/"subsample", "c"/"crop": which points and channels of a source are wanted.
void addOutFieldsOption(QMCmdLine& cmdLine);
void addSubsampleOption(QMCmdLine& cmdLine);
void addCropOption(QMCmdLine& cmdLine);
// All channels of the source when none are named; by letters only, or also by a list of names.
PointInfo getOutFields(const QMCmdLine& cmdLine, const PointSource& source);
PointInfo getOutColumns(const QMCmdLine& cmdLine, const PointSource& source);
double getFraction(const QMCmdLine& cmdLine);
Bounds getCropBox(const QMCmdLine& cmdLine);
// Usage errors for a subsample that is not above 0 and for an inverted box.
void checkQueryOptions(const QMCmdLine& cmdLine);
// Warns that "outputFile" has no points and says why: the box, the filters (texts of "filter", if the program
// has that option), the sampling or the source.
void warnOfEmptyOutput(const QMCmdLine& cmdLine, const PointSource& source,
                       const std::vector<std::string>& filters = {});

// "d"/"depth", for addInput().
void addDepthOption(QMCmdLine& cmdLine);
// Adds what a user named: a file of any kind, a list, or the files of a directory and of "depth" levels below
// it. What does not exist is the system's error.
void addInput(FilePointSourceManager& files, const char* name, const QMCmdLine& cmdLine);

// How files that differ become one point cloud: see MergeRules.h and docs/merging.md.
struct MergeOptions
{
    std::optional<int> gpsWeek;                // converts week time to adjusted standard time
    bool requiresSameCoordinateSystem = false; // otherwise different ones give a warning
};
// "gpsWeek". The option "srs" has the value "same" for requiresSameCoordinateSystem.
void addGPSWeekOption(QMCmdLine& cmdLine);
MergeOptions getMergeOptions(const QMCmdLine& cmdLine);
// Compares the coordinate systems of files that become one cloud, and warns if they differ or one of the
// files has none; -1 if they have to be the same.
void compareCoordinateSystems(const std::vector<NamedCoordinateSystem>& systems, const MergeOptions& options);

// The file, or the mosaic of several; `verbose` prints a summary of each. What the files do not agree on is
// said in warnings.
Scoped<PointSource> openInputs(FilePointSourceManager& files, bool verbose, const MergeOptions& options = {});
// Warns of what a finished LAS file does not hold: the other one of two clocks, its coordinate system, scan
// angles in its own unit.
void warnOfLASOutput(const LASPointWriter& writer, const char* output);
// Warns once of files whose coordinate systems are not understood; `consequence` says what is kept of them.
void warnOfUnknownCoordinateSystems(const std::vector<std::string>& files, const char* consequence);
// A writer truncates its output, which must not be what it reads: -1 "the output '%s' is the input file".
void refuseSameFile(const char* input, const char* output);
// The same for all files of a set, the tiles of an index included.
void refuseInputs(const FilePointSourceManager& files, const char* output);

// Adds a file, or the files of a directory and of `depth` levels of directories below it: those of a
// directory in the order of their names, whatever their case, then its directories. Lists stand for the files
// that they name; text files, indexes and the null name are passed over. A directory that cannot be read is
// the system's error "could not get directory contents".
void addFiles(FilePointSourceManager& manager, const char* path, int depth);
void addFiles(PersistentPointSourceWriter& writer, const char* path, int depth);

} // namespace Utils

} // namespace Quillmoran

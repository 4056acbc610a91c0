// Options that programs share, and the warnings that follow from them.
#pragma once

#include "filters/PointCloudUnion.h"
#include "utils/sets/Inputs.h"

#include <string>
#include <vector>

namespace Quillmoran {

class QMCmdLine;

namespace Utils {

// "V"/"verbose" and "j"/"numThreads", the options of every program.
void addCommonOptions(QMCmdLine& cmdLine);
void setVersion(QMCmdLine& cmdLine);
// Names the arguments of all options that a program has, for its usage texts.
void nameArguments(QMCmdLine& cmdLine);
// The name of the arguments of an option, given by its longer name; null if they have none.
const char* getArgumentName(const char* option);
// A line of help for each field letter that names a channel.
extern const char fieldLetters[];

inline constexpr auto& getPointSourceType = SimpleFileOpener::getPointSourceType;
inline constexpr auto& getPointSourceTypeName = SimpleFileOpener::getPointSourceTypeName;

// All values of an option that takes one per occurrence.
std::vector<std::string> getStrings(const QMCmdLine& cmdLine, const char* option);

// "p"/"parse", "skip"/"skipHeader" and "lenient": how text input is read.
void addTXTPointReaderOptions(QMCmdLine& cmdLine);
// Passes them to an opener of files. The delegate may be null; scans of text files ask it whether to stop, so
// it must outlive the sources opened with these options. Throws InvalidArgument for a bad "parse".
void setTextOptions(SimpleFileOpener& opener, bool scanNow, const QMCmdLine& cmdLine,
                    ProgressDelegate* cancellation = nullptr);

// "allowRemote", an option of every program: opens remote files that lists and indexes name.
void handleRemoteOption(const QMCmdLine& cmdLine, SimpleFileOpener& opener);

// "dropWaveforms": opens LAS files with waveforms, with a warning for each.
void addWaveformOption(QMCmdLine& cmdLine);
void handleWaveformOption(const QMCmdLine& cmdLine, SimpleFileOpener& opener);

// "filter": selects points by the value of a channel; may be repeated. The second function wraps a source in
// the filters; without filters it returns the source. Throws General for malformed text, for channels that
// are not integers of at most 32 bits and for values out of the range of a channel, InvalidArgument for an
// unknown channel.
void addFilterOptions(QMCmdLine& cmdLine);
Scoped<PointSource> handleFilterOptions(const QMCmdLine& cmdLine, const Scoped<PointSource>& source);

// "ofld"/"outFields", "s"/"subsample", "c"/"crop": the points and channels of a query.
void addOutFieldsOption(QMCmdLine& cmdLine);
void addSubsampleOption(QMCmdLine& cmdLine);
void addCropOption(QMCmdLine& cmdLine);
// By default all channels of the source. The option has letters, or with `acceptsNames` also a list of names.
PointInfo getOutFields(const QMCmdLine& cmdLine, const PointSource& source, bool acceptsNames = false);
double getFraction(const QMCmdLine& cmdLine);
Bounds getCropBox(const QMCmdLine& cmdLine);
// Usage errors for a subsample that is not above 0 and for an inverted box.
void checkQueryOptions(const QMCmdLine& cmdLine);
// Warns that an output has no points and says why: the box, the filters (texts of "filter", if the program has
// that option), the sampling or the source.
void warnOfEmptyOutput(const QMCmdLine& cmdLine, const PointSource& source, const std::string& output,
                       const std::vector<std::string>& filters = {});

// "if"/"inputFormat", the format of the files and pipes of "inputFile".
void addInputFormatOption(QMCmdLine& cmdLine);
// Usage errors for an unknown format, and for standard input that is given twice.
void checkInputs(const QMCmdLine& cmdLine);
// openInput() with this option.
Input openInput(const QMCmdLine& cmdLine, const std::string& name);

// The name of an output that has none: that of the only input with another ending, of a remote input in the
// current directory. Throws General "the output '%s' exists; -f replaces it" unless "force" is given, and what
// refuseSameFile() throws.
std::string nameOutput(const QMCmdLine& cmdLine, const std::string& input, const char* ending);

// "d"/"depth", the levels of directories that addNamed() descends.
void addDepthOption(QMCmdLine& cmdLine);
int getDepth(const QMCmdLine& cmdLine);
// "od"/"outputDirectory" and "f"/"force".
void addBatchOptions(QMCmdLine& cmdLine, const char* description);
// The same as getDepth(), but all levels unless the option is present.
int getBatchDepth(const QMCmdLine& cmdLine);
// addInput() for all values of "inputFile"; "-" is a list on standard input.
void addNamed(FilePointSourceManager& files, const QMCmdLine& cmdLine);
// refuseSameFile() for all values of "inputFile", which include lists and directories.
void refuseNamed(const QMCmdLine& cmdLine, const char* output);

// "gpsWeek". The option "srs" has the value "same" for requiresSameCoordinateSystem.
void addGPSWeekOption(QMCmdLine& cmdLine);
MergeOptions getMergeOptions(const QMCmdLine& cmdLine);
// joinFiles() with warnings about differences between the files; `verbose` prints a summary of each file.
Scoped<PointSource> openInputs(FilePointSourceManager& files, bool verbose, const MergeOptions& options = {});

} // namespace Utils

} // namespace Quillmoran

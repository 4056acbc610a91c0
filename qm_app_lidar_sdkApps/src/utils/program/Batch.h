// Converts each file of directory trees by itself: the option "od"/"outputDirectory" of vxpack and vxunpack.
#pragma once

#include "utils/program/ConsoleProgress.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Quillmoran::Utils {

struct Conversion
{
    std::string input;
    std::string output;
    std::int64_t size = 0; // of the input, in bytes
};

// Plans a conversion for each file that the arguments name: files, lists, and directories with the files of
// `depth` levels of directories below them. An output has the name of its input, relative to the directory
// that was given, with another ending. With `allowsRemote` a list may name remote files. Inputs for which `accepts` is false are skipped if a directory has
// them. Inputs that are their own outputs and files in the output directory are skipped. Throws General if two
// inputs have the same output, and what opening lists and directories throws.
std::vector<Conversion> planConversions(const std::vector<std::string>& arguments, int depth,
                                        const std::string& outputDirectory, const char* ending,
                                        const std::function<bool(const char* name)>& accepts,
                                        bool allowsRemote = false);

struct Converted
{
    std::int64_t numPoints = 0;
    std::int64_t size = 0; // of the output, in bytes
};

struct BatchResult
{
    std::size_t numConverted = 0, numUpToDate = 0;
    std::vector<std::string> failed; // names of inputs
    Converted sum;
};

// Runs the conversions, several at a time on `numThreads` threads in all, and prints a line for each. Outputs
// that are not older than their inputs are kept unless `force` is set. A failure is printed, and the others go
// on. `convert` is called on several threads at the same time. Throws Cancelled if the run is interrupted.
BatchResult convertAll(const std::vector<Conversion>& conversions, unsigned numThreads, bool force,
                       const std::function<Converted(const Conversion&, ProgressDelegate&)>& convert);

// Prints the line that ends the run, and the names of the inputs that failed. Returns whether none did.
bool reportBatch(const BatchResult& result, const std::string& speed);

} // namespace Quillmoran::Utils

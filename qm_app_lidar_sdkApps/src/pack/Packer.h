// vxpack: opens the inputs as one source, applies the filters of the options and writes the file.
#pragma once

#include "utils/program/Program.h"
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/VX7PointWriter.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

class DescriptionOptions;
class VX7PointReader;

class Packer final : public Program
{
public:
    Packer();

private:
    void checkOptions() const override;
    bool work() override;

    // The inputs of one output file, and the file after it was written.
    struct Task
    {
        std::vector<std::string> inputs;
        std::string output;
        Scoped<IO> stream; // if the output is standard output
        std::vector<VX7PointWriter::ChannelSummary> records;
        std::string restart; // why the points were read again; empty if they were not
        bool isCopy = false; // of coded bands
        std::int64_t numPoints = 0;
        std::int64_t size = 0; // bytes
    };

    // The name of the output, by default that of the only input with another ending.
    std::string chooseOutput(const std::vector<std::string>& inputs) const;
    void pack(Task& task, ProgressDelegate& progress, bool verbose) const;
    bool changesPoints() const;
    Metadata describe(Metadata metadata, const DescriptionOptions& description) const;
    // Writes the points of a file without decoding them.
    void copy(const VX7PointReader& file, const DescriptionOptions& description, Task& task,
              ProgressDelegate& progress) const;
    bool packEach() const;
    void addInputs(FilePointSourceManager& files, const Task& task, ProgressDelegate& delegate) const;
    // Warns of a LAS file with too many bytes, or unusual coordinates, to be restored from the output.
    void warnOfUnrestorable(FilePointSourceManager& files, const Metadata& metadata) const;
    Scoped<PointSource> applyFilters(Scoped<PointSource> source) const;
    Scoped<PointSource> applyOrder(PointSource& source, const Task& task, const PointInfo& layout,
                                   const EncodeOptions& options, ProgressDelegate& progress) const;
    void printResult(const Task& task) const;
};

} // namespace Quillmoran

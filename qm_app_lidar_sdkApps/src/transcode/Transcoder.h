// vxunpack: opens the input, creates the writer and writes the points.
#pragma once

#include "utils/program/Program.h"
#include "utils/sets/Inputs.h"

#include <cstdint>
#include <string>

namespace Quillmoran {

class LASPointWriter;

class Transcoder final : public Program
{
public:
    Transcoder();

private:
    // One input and its output.
    struct Task
    {
        Utils::Input input;
        std::string outputFile;
        OutputChoice output;
        Scoped<IO> standardOutput; // if the points are written to it
        long long numPoints = 0;
        std::int64_t size = 0; // of the output in bytes, if it is a file
    };

    void checkOptions() const override;
    bool work() override;

    void unpack(Task& task, bool verbose, ProgressDelegate& progress) const;
    bool unpackEach() const;
    PointInfo chooseTime(const Task& task, const PointInfo& layout) const;
    void restore(const Task& task, LASPointWriter* writer) const;
    void configure(PointWriter& writer) const;
    void warnOfRounding(const Task& task, const PointSource& source, const PointInfo& layout) const;
};

} // namespace Quillmoran

// vxunpack: opens the input, creates the writer and writes the points.
#pragma once

#include "utils/program/Program.h"
#include "utils/sets/Formats.h"

#include <optional>
#include <string>

namespace Quillmoran {

class Transcoder final : public Program
{
public:
    Transcoder();

private:
    bool work() override;

    void separateOutputs();
    OutputChoice chooseOutput() const;
    PointInfo chooseTime(const PointInfo& layout) const;
    void configure(PointWriter& writer) const;
    void warnOfRounding(const PointSource& source, const PointInfo& layout) const;

    std::optional<OutputChoice> m_output;
    std::string m_outputFile;
    Scoped<IO> m_standardOutput; // of text that is written to it
};

} // namespace Quillmoran

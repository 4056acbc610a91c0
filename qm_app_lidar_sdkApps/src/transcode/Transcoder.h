// One run of vxunpack: declares and parses the options, opens the input, makes the writer and pulls the
// points through it.
#pragma once

#include "cli/QMCmdLine.h"
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/IO.h>
#include <vxunpack/PointWriter.h>

#include <string>

namespace Quillmoran {

class Transcoder
{
public:
    Transcoder();

    // Ends the process on usage errors and after help or version texts.
    void parse(int argc, const char* const* argv);
    // Failures are thrown.
    void run();

private:
    enum class Output
    {
        Text,
        LAS,
        BPF,
        Null
    };

    void transcode();
    void separateOutputs();
    Output chooseOutput() const;
    PointInfo chooseTime(const PointInfo& layout) const;
    bool prefersNonzeroTime() const;
    Scoped<PointWriter> createWriter(PointSource& source, const PointInfo& layout) const;
    int getLASVersion() const; // -1: by the channels
    bool writesLAZ() const;
    void configure(PointWriter& writer) const;
    void warnOfRounding(const PointSource& source, const PointInfo& layout) const;
    void printOutputHeader() const;

    QMCmdLine m_cmdLine;
    Output m_output = Output::Null;
    std::string m_outputFile;
    Scoped<IO> m_standardOutput; // when the output is text to it
};

} // namespace Quillmoran

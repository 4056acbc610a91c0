// One run of vxinfo: declares and parses the options, expands lists, and reports file by file.
#pragma once

#include "cli/QMCmdLine.h"
#include "info/FileReport.h"
#include <vxunpack/Base.h>
#include <vxunpack/FilePointSourceManager.h>

#include <string>
#include <vector>

namespace Quillmoran {

class Inspector
{
public:
    Inspector();

    // Ends the process on usage errors and after help or version texts.
    void parse(int argc, const char* const* argv);
    // Whether all files are sound. What is wrong with a file is reported and the next one follows; only a
    // cancelled run ends in a throw.
    bool run();

private:
    void inspectArgument(const char* argument);
    FileReport inspect(const std::string& fileName) const;
    void scan(FileReport& report) const;
    void write(const FileReport& report);

    // Does the work and makes its failure a problem of the file.
    template <class Work>
    void attempt(FileReport& report, Work work) const;
    std::string explain(const Error& error) const;
    // The files that an argument stands for: itself, or what a list names.
    std::vector<std::string> expand(const char* argument) const;
    Scoped<FilePointSourceManager> createManager(const char* argument) const;

    QMCmdLine m_cmdLine;
    bool m_allSound = true;
    bool m_isFirst = true; // report of the run
};

} // namespace Quillmoran

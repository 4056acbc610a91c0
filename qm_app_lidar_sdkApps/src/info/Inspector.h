// vxinfo: expands lists and reports on each file.
#pragma once

#include "info/FileReport.h"
#include "utils/program/Program.h"
#include "utils/sets/Inputs.h"
#include <vxunpack/Base.h>
#include <vxunpack/FilePointSourceManager.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

class Inspector final : public Program
{
public:
    Inspector();

private:
    void checkOptions() const override;
    // Returns true if no file has a problem. An error in a file is added to the problems in its report, and
    // the program continues with the next file; only cancellation is thrown.
    bool work() override;
    void inspectArgument(const std::string& argument);
    FileReport inspect(const Utils::Input& input);
    void decode(FileReport& report);
    void scan(FileReport& report, ProgressDelegate& progress);
    // The number of points of which one is read: a power of two.
    std::uint64_t getSamplingInterval(const SourceDescription& description) const;
    void write(const FileReport& report);

    // Does the work; if it fails, adds the error to the problems of the file.
    template <class Work>
    void attempt(FileReport& report, Work work) const;
    std::string explain(const Error& error) const;
    // The files of a list or a directory; for other arguments the file itself.
    std::vector<Utils::Input> expand(const std::string& argument) const;
    Scoped<FilePointSourceManager> createManager() const;

    bool m_allSound = true;
    bool m_isFirst = true;        // no report has been written
    std::int64_t m_numPoints = 0; // decoded
    std::int64_t m_numBytes = 0;  // of the files that were decoded
};

} // namespace Quillmoran

// The results of a run for one file. Written as text or as JSON.
#pragma once

#include "info/ChannelStatistics.h"
#include "info/SourceDescription.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

struct FileReport
{
    struct Check
    {
        long long numPoints;    // decoded
        std::size_t numQueries; // compared boxes
    };

    std::string fileName;
    std::optional<SourceDescription> description; // unless the file cannot be opened
    std::optional<Check> check;                   // of a run with -check that completed
    std::vector<ChannelStatistics> statistics;    // of a run with -stats that completed
    std::vector<std::string> problems;            // empty for a sound file
};

} // namespace Quillmoran

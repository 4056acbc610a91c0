// The results of vxinfo for one file, to be written as text or JSON.
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
    std::optional<SourceDescription> description; // none if the file cannot be opened
    std::optional<Check> check;                   // only if -check completed
    std::vector<ChannelStatistics> statistics;    // only if -stats completed
    std::vector<std::string> problems;            // empty for a sound file
};

} // namespace Quillmoran

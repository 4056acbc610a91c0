// All that a run found out about one file. Written as text or as JSON.
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
        long long numPoints;    // that were there
        std::size_t numQueries; // boxes that were compared
    };

    std::string fileName;
    std::optional<SourceDescription> description; // none when the file cannot be opened
    std::optional<Check> check;                   // none unless wanted and done
    std::vector<ChannelStatistics> statistics;    // empty unless wanted and done
    std::vector<std::string> problems;            // empty: the file is sound
};

} // namespace Quillmoran

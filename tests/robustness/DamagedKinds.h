// Small files of every kind that the programs read, for tests that damage them.
#pragma once

#include "support/TemporaryDirectory.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

struct DamagedKind
{
    using FileBytes = std::vector<std::uint8_t>;

    const char* fileName; // its extension selects the reader
    // Returns the whole file; other files that it needs are made in the directory.
    FileBytes (*make)(const TemporaryDirectory& directory);
    // How many times longer a trial takes than for other files.
    std::size_t slowness;
    // Opens the file and makes all queries.
    void (*read)(const std::string& path);
};

// All kinds that this build supports.
const std::vector<DamagedKind>& damagedKinds();

} // namespace Quillmoran::Testing

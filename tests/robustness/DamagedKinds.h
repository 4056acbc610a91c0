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

    const char* fileName; // says what it is by its ending
    // The whole file; what else it needs is made in the directory.
    FileBytes (*make)(const TemporaryDirectory& directory);
    // How many times longer it takes to try one than other files.
    std::size_t slowness;
    // Opens the file and asks for all that it can tell.
    void (*read)(const std::string& path);
};

// Every kind that this build has.
const std::vector<DamagedKind>& damagedKinds();

} // namespace Quillmoran::Testing

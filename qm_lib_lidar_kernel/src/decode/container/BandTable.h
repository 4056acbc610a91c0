// The sizes of all bands, in the last chunk of a file. With them a reader of a remote file knows where the bands are;
// otherwise it follows the chunk headers through the file, each of which says where the next one is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Quillmoran {

class IO;

struct BandTable
{
    struct Sizes
    {
        std::int64_t data;    // bytes
        std::int64_t headers; // bytes

        bool operator==(const Sizes& other) const = default;
    };

    std::size_t numChannels = 0; // records
    std::size_t numBands = 0;    // of each
    std::vector<Sizes> bands;    // by channel and band; not negative

    bool operator==(const BandTable& other) const = default;

    // Reads the table of an open file. No value if the file has none, or if it is damaged.
    static std::optional<BandTable> read(const IO& io);
};

} // namespace Quillmoran

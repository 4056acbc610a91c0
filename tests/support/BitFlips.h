// Files with one changed bit.
#pragma once

#include "support/ReadPoints.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

namespace Quillmoran::Testing {

// Flips one bit at a time of a compressed file, and expects that reading all points is an Error or gives the
// same points. Returns the number of flips that only the digests of the samples reported.
inline std::size_t flipBits(Bytes file, const std::vector<std::size_t>& bits)
{
    const Points whole = readAll(*openFile(file));
    std::size_t numDiffering = 0;
    for (const std::size_t bit : bits) {
        const auto mask = static_cast<std::uint8_t>(1u << bit % 8);
        file[bit / 8] ^= mask;
        try {
            EXPECT_TRUE(readAll(*openFile(file)) == whole) << "bit " << bit;
        } catch (const Error& error) {
            numDiffering +=
                error.code() == ErrorCode::DigestDiffers && std::string(error.what()).starts_with("channel ");
        }
        file[bit / 8] ^= mask;
    }
    std::printf("%zu bits, of which the digests of samples revealed %zu\n", bits.size(), numDiffering);
    return numDiffering;
}

} // namespace Quillmoran::Testing

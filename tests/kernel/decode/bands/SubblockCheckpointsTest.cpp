#include "decode/bands/SubblockCheckpoints.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// Seeking backwards reads at most a part of the headers, and none for a few subblocks, as at the start of each
// range of points.
TEST(SubblockCheckpoints, AreNearAnyPosition)
{
    constexpr std::uint64_t count = 1000000;
    constexpr std::size_t latest = 30;
    SubblockCheckpoints places;
    places.reset({0, 100, 7, 0}, latest);
    for (std::uint64_t i = 1; i <= count; ++i)
        places.offer({i, static_cast<std::int64_t>(100 + 6 * i), 7, 0});
    for (std::uint64_t i = 0; i < latest; ++i)
        ASSERT_EQ(places.before(count - i).subblock, count - i);
    for (std::uint64_t i = 0; i < count; i += 997) {
        const std::uint64_t found = places.before(i).subblock;
        ASSERT_LE(found, i);
        ASSERT_GE(found + count / 100, i);
    }
}

}} // namespace Quillmoran::Testing

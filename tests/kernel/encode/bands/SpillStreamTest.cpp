#include "encode/bands/SpillStream.h"

#include "support/SubblockEncoder.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

TEST(SpillStream, KeepsStreamsSeparate)
{
    Random random(3);
    SpillFile file;
    std::vector<SpillStream> streams(7, SpillStream(file));
    std::vector<std::vector<std::uint8_t>> expected(streams.size());
    for (int i = 0; i < 4000; ++i) {
        // One stream uses several ranges of the file, one only its buffer, one stays empty.
        const std::size_t s = i % 2 == 0 ? 0 : static_cast<std::size_t>(random.below(6));
        std::vector<std::uint8_t> bytes(s == 1 ? 3 : random.below(s == 0 ? 2000 : 400));
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(random.next());
        streams[s].append(bytes);
        expected[s].insert(expected[s].end(), bytes.begin(), bytes.end());
    }
    for (std::size_t s = 0; s < streams.size(); ++s) {
        EXPECT_EQ(streams[s].size(), static_cast<std::int64_t>(expected[s].size()));
        EXPECT_EQ(bytesOf(streams[s]), expected[s]) << s;
    }
}

}} // namespace Quillmoran::Testing

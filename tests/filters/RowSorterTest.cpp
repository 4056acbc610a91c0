#include "filters/RowSorter.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// Few keys, so that most rows have a key that others have.
TEST(RowSorter, OrdersRowsWithEqualKeysByTheirFirstBytes)
{
    constexpr std::size_t rowSize = 4, count = 3000;
    Random random(1);
    std::vector<std::string> rows;
    for (std::size_t i = 0; i < count; ++i)
        rows.push_back({static_cast<char>(random.below(3)), static_cast<char>(random.below(256)),
                        static_cast<char>(i / 256), static_cast<char>(i % 256)});
    for (const std::size_t compared : {0u, 2u, 4u}) {
        std::vector<std::string> expected = rows; // std::string compares bytes as unsigned numbers
        std::stable_sort(expected.begin(), expected.end(), [=](const std::string& a, const std::string& b) {
            const std::size_t bytes = std::max<std::size_t>(compared, 1); // the key is the first byte
            return a.compare(0, bytes, b, 0, bytes) < 0;
        });
        for (const std::size_t run : {300u, 1u << 20}) {
            RowSorter sorter(rowSize, {run, 100, 1}, compared);
            for (const std::string& row : rows) {
                const auto key = static_cast<std::uint64_t>(row[0]);
                std::size_t one = 1;
                std::memcpy(sorter.append(&key, one), row.data(), rowSize);
            }
            const auto sorted = sorter.finish([] {});
            SortedRows::Reader reader(*sorted);
            std::vector<std::string> found;
            for (unsigned char row[rowSize]; reader.read(row, 1) == 1;)
                found.emplace_back(row, row + rowSize);
            EXPECT_TRUE(found == expected) << compared << ' ' << run;
        }
    }
}

}} // namespace Quillmoran::Testing

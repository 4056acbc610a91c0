#include "filters/HilbertCurve.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

constexpr std::uint32_t last = UINT32_MAX;

struct Cell
{
    std::uint32_t x, y;
};

// The inverse, from the finest level up: rotates a part of the curve into the next larger one.
Cell cellAt(std::uint64_t key)
{
    Cell cell{0, 0};
    for (int level = 0; level < 32; ++level, key >>= 2) {
        const std::uint32_t side = 1u << level;
        const std::uint32_t x = key >> 1 & 1, y = (key ^ x) & 1;
        if (y == 0) {
            if (x == 1)
                cell = {side - 1 - cell.x, side - 1 - cell.y};
            std::swap(cell.x, cell.y);
        }
        cell.x += x * side;
        cell.y += y * side;
    }
    return cell;
}

TEST(HilbertCurve, MovesFromEachCellToANeighbour)
{
    Random random(1);
    for (int round = 0; round < 300; ++round) {
        const std::uint64_t begin = round == 0 ? 0 : random.next() >> random.below(64);
        for (std::uint64_t key = begin; key < begin + 300 && key != UINT64_MAX; ++key) {
            const Cell from = cellAt(key), to = cellAt(key + 1);
            ASSERT_EQ(getHilbertKey(from.x, from.y), key);
            ASSERT_EQ(std::abs(std::int64_t{from.x} - to.x) + std::abs(std::int64_t{from.y} - to.y), 1);
        }
    }
    EXPECT_EQ(getHilbertKey(last, 0), UINT64_MAX);
}

TEST(HilbertGrid, HasAKeyForEveryPoint)
{
    const Bounds::Range none, any{-infinity, infinity};
    const std::uint32_t half = 1u << 31, quarter = 1u << 30;
    const std::tuple<Bounds, Bounds, double, double, Cell> cases[] = {
        // The longer side of the bounds; outside coordinates are at the edge.
        {{{0, 4}, {10, 12}, none}, Bounds::Huge(), 1, 11, {quarter, quarter}},
        {{{0, 4}, {10, 12}, none}, Bounds::Huge(), 4, 12, {last, half}},
        {{{0, 4}, {10, 12}, none}, Bounds::Huge(), -1e300, 15, {0, last}},
        {{{0, 4}, {10, 12}, none}, Bounds::Huge(), infinity, nan, {last, 0}},
        {{{10, 12}, {0, 4}, none}, Bounds::Huge(), 11, 1, {quarter, quarter}},
        {{{10, 12}, {0, 4}, none}, Bounds::Huge(), 12, 4, {half, last}},
        // The box cuts the bounds, also on one side, and replaces unknown ones.
        {{{0, 4}, {0, 4}, none}, {{2, infinity}, {-5, 2}, any}, 3, 0.5, {half, quarter}},
        {{none, any, none}, {{2, 4}, {0, 2}, any}, 3, 0.5, {half, quarter}},
        // Empty and unbounded: the square of all projections.
        {{none, none, none}, Bounds::Huge(), 0, 1, {half, half + 64}},
        {{{0, 1}, {0, infinity}, none}, Bounds::Huge(), 0, 1, {half, half + 64}},
        {{{-1e308, 1e308}, {0, 1}, none}, Bounds::Huge(), 0, 1, {half, half + 64}},
        {{{0, 1}, {nan, nan}, none}, Bounds::Huge(), 0, 1, {half, half + 64}},
        {{{0, 1}, {0, 1}, none}, {{2, 3}, {0, 1}, any}, 0, 1, {half, half + 64}},
        // A single point.
        {{{7, 7}, {8, 8}, none}, Bounds::Huge(), 7, 9, {0, last}},
    };
    for (const auto& [known, box, x, y, cell] : cases) {
        std::uint64_t key = 0;
        HilbertGrid(known, box).getKeys(&key, &x, &y, 1);
        EXPECT_EQ(key, getHilbertKey(cell.x, cell.y)) << x << ' ' << y;
    }
}

}} // namespace Quillmoran::Testing

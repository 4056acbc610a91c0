#include "las/header/LASSpatialIndex.h"

#include "platform/ByteOrder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

namespace Quillmoran {

namespace {

constexpr unsigned maxLevels = 15; // the indices of their cells fit into 32 bits

// Bytes from the beginning on. After the end, or after something else than was expected, all is zero.
class Input
{
public:
    explicit Input(std::span<const unsigned char> bytes) : m_bytes(bytes) {}

    template <class T>
    T next()
    {
        if (m_bytes.size() < sizeof(T)) {
            fail();
            return {};
        }
        const T value = loadLittleEndian<T>(m_bytes.data());
        m_bytes = m_bytes.subspan(sizeof(T));
        return value;
    }
    void expect(std::string_view signature)
    {
        if (m_bytes.size() < signature.size() ||
            std::memcmp(m_bytes.data(), signature.data(), signature.size()) != 0)
            fail();
        else
            m_bytes = m_bytes.subspan(signature.size());
    }
    void expectZero()
    {
        if (next<std::uint32_t>() != 0)
            fail();
    }
    std::size_t left() const noexcept { return m_bytes.size(); }
    bool hasFailed() const noexcept { return m_hasFailed; }
    void fail() noexcept
    {
        m_hasFailed = true;
        m_bytes = {};
    }

private:
    std::span<const unsigned char> m_bytes;
    bool m_hasFailed = false;
};

struct Tree
{
    unsigned levels;
    float minX, maxX, minY, maxY;
};

// The cell of a level is found by one halving of the box per level, in single precision. The outer cells also
// have the points outside of the box.
bool locate(const Tree& tree, std::uint32_t index, Bounds::Range& x, Bounds::Range& y)
{
    std::uint64_t offset = 0;
    unsigned level = 0;
    while (level <= tree.levels && index - offset >= std::uint64_t{1} << 2 * level)
        offset += std::uint64_t{1} << 2 * level++;
    if (level > tree.levels)
        return false;
    const std::uint64_t path = index - offset;
    float minX = tree.minX, maxX = tree.maxX, minY = tree.minY, maxY = tree.maxY;
    constexpr double infinity = std::numeric_limits<double>::infinity();
    x = y = {-infinity, infinity};
    for (unsigned i = level; i-- > 0;) {
        const float middleX = (minX + maxX) / 2;
        const float middleY = (minY + maxY) / 2;
        ((path >> 2 * i & 1) != 0 ? minX : maxX) = middleX;
        ((path >> 2 * i & 1) != 0 ? x.min : x.max) = middleX;
        ((path >> 2 * i & 2) != 0 ? minY : maxY) = middleY;
        ((path >> 2 * i & 2) != 0 ? y.min : y.max) = middleY;
    }
    return true;
}

} // namespace

std::optional<LASSpatialIndex> LASSpatialIndex::parse(std::span<const unsigned char> bytes,
                                                      std::uint64_t numPoints)
{
    constexpr std::size_t cellBytes = 12;
    constexpr std::size_t intervalBytes = 8;
    Input input(bytes);
    for (const char* const signature : {"LASX", "LASS", "LASQ"}) {
        input.expect(signature);
        input.expectZero(); // version, or the type: a quadtree
    }
    Tree tree{};
    tree.levels = input.next<std::uint32_t>();
    input.expectZero(); // part of a tree
    input.next<std::uint32_t>();
    tree.minX = input.next<float>();
    tree.maxX = input.next<float>();
    tree.minY = input.next<float>();
    tree.maxY = input.next<float>();
    input.expect("LASV");
    input.expectZero();
    const std::size_t numCells = input.next<std::uint32_t>();
    const bool isBox = std::isfinite(tree.maxX - tree.minX) && std::isfinite(tree.maxY - tree.minY);
    if (input.hasFailed() || tree.levels > maxLevels || !isBox || numCells > input.left() / cellBytes)
        return std::nullopt;
    LASSpatialIndex index;
    for (std::size_t i = 0; i < numCells; ++i) {
        Cell cell{};
        const auto number = input.next<std::uint32_t>();
        const std::size_t numIntervals = input.next<std::uint32_t>();
        input.next<std::uint32_t>();
        if (input.hasFailed() || numIntervals > input.left() / intervalBytes ||
            !locate(tree, number, cell.x, cell.y))
            return std::nullopt;
        cell.firstInterval = index.m_intervals.size();
        for (std::size_t k = 0; k < numIntervals; ++k) {
            const auto first = input.next<std::uint32_t>();
            const auto last = input.next<std::uint32_t>();
            if (first > last || last >= numPoints)
                return std::nullopt;
            index.m_intervals.push_back({first, last});
        }
        cell.endInterval = index.m_intervals.size();
        index.m_cells.push_back(cell);
    }
    std::vector<Interval> sorted = index.m_intervals;
    std::sort(sorted.begin(), sorted.end(),
              [](const Interval& a, const Interval& b) { return a.first < b.first; });
    std::uint64_t covered = 0;
    for (const Interval& interval : sorted)
        if (interval.first <= covered)
            covered = std::max<std::uint64_t>(covered, std::uint64_t{interval.last} + 1);
    if (covered != numPoints)
        return std::nullopt;
    return index;
}

std::vector<bool> LASSpatialIndex::find(const Bounds& box, std::span<const std::uint64_t> firsts) const
{
    std::vector<bool> found(firsts.size() - 1);
    const auto overlap = [](const Bounds::Range& a, const Bounds::Range& b) {
        return a.min <= b.max && b.min <= a.max;
    };
    for (const Cell& cell : m_cells) {
        if (!overlap(cell.x, box.x) || !overlap(cell.y, box.y))
            continue;
        for (std::size_t i = cell.firstInterval; i < cell.endInterval; ++i) {
            const Interval& interval = m_intervals[i];
            const auto after = std::upper_bound(firsts.begin(), firsts.end() - 1, interval.first);
            auto range = static_cast<std::size_t>(after - firsts.begin()) - 1;
            for (; range < found.size() && firsts[range] <= interval.last; ++range)
                found[range] = true;
        }
    }
    return found;
}

} // namespace Quillmoran

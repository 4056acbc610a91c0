#include "pack/OrderChooser.h"

#include "support/MemoryPointSource.h"
#include "support/ProgressLog.h"
#include "support/Test.h"

#include <numeric>

namespace Quillmoran::Testing { namespace {

constexpr std::size_t numPoints = 60000;

// Reads less for a box, as sources with an index do.
class Indexed final : public PointFilter
{
public:
    double getTotalWork(const Bounds& bounds, double fraction) const override
    {
        return estimatePoints(bounds, fraction);
    }
};

// A scanner that swings across two overlapping flight lines.
MemoryPointSource::Columns fly()
{
    Random random(1);
    const auto noise = [&random] { return static_cast<double>(random.below(64)) / 64; };
    MemoryPointSource::Columns columns(4);
    for (std::size_t i = 0; i < numPoints; ++i) {
        const double inLine = static_cast<double>(i % (numPoints / 2)), swing = std::fmod(inLine / 200, 2);
        columns[0].push_back(std::floor(inLine / 64) + noise());
        columns[1].push_back((i < numPoints / 2 ? 0 : 80) + std::floor(100 * std::min(swing, 2 - swing)) +
                             noise());
        columns[2].push_back(std::floor(10 * std::sin(columns[0][i] / 30)) + noise());
        columns[3].push_back(static_cast<double>(i) / 65536);
    }
    return columns;
}

// The points in another order, of which `keyOf` is the key.
MemoryPointSource::Columns sortBy(const MemoryPointSource::Columns& columns,
                                  const std::function<double(std::size_t)>& keyOf)
{
    std::vector<std::size_t> order(numPoints);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return keyOf(a) < keyOf(b); });
    MemoryPointSource::Columns sorted(columns.size());
    for (std::size_t c = 0; c < columns.size(); ++c)
        for (const std::size_t i : order)
            sorted[c].push_back(columns[c][i]);
    return sorted;
}

// What is chosen with these limits; the estimates in kB, as they are printed.
std::string choose(PointSource& source, const PointInfo& layout, const OrderChooser::Limits& limits,
                   std::vector<double>& sizes)
{
    OrderChooser chooser(source, {Bounds::Huge(), 1, layout}, {});
    chooser.setLimits(limits);
    ProgressLog log;
    chooser.choose(&log);
    EXPECT_LE(log.last(), 1);
    EXPECT_GT(log.last(), 0.5);
    std::string text = chooser.describe(), words;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!std::isdigit(static_cast<unsigned char>(text[at])) || text.compare(at, 3, "1 %") == 0) {
            words += text[at];
            continue;
        }
        std::size_t end = 0;
        sizes.push_back(std::stod(text.substr(at), &end));
        at += end - 1;
        words += '#';
    }
    return words;
}

TEST(OrderChooser, FindsTheSameOrderFromSamplesAsFromAllPoints)
{
    const auto flown = fly();
    const auto tileOf = [&](std::size_t i) {
        return std::floor(flown[0][i] / 20) * 100 + std::floor(flown[1][i] / 20);
    };
    const PointInfo timed = layoutXYZ({channel("GPSTime_Adjusted", FLOAT64)});
    auto mixed = sortBy(flown, [](std::size_t i) { return static_cast<double>(i * 40503 % 65536); });
    mixed.pop_back();
    const struct
    {
        MemoryPointSource::Columns columns;
        PointInfo layout; // of the source
        std::string words;
    } cases[] = {
        {flown, timed, "order: input (estimated # kB; time # kB, hilbert # kB)"},
        {sortBy(flown, tileOf), timed, "order: time (estimated # kB; input # kB, hilbert # kB)"},
        {mixed, layoutXYZ(), "order: hilbert (estimated # kB; input # kB; no GPS times)"},
    };
    for (const auto& each : cases) {
        const auto points = MemoryPointSource::make(each.layout, each.columns);
        const Scoped<Indexed> indexed(new Indexed);
        indexed->init(points.get());
        const auto uncounted = MemoryPointSource::make(each.layout, each.columns);
        uncounted->setNumPoints(PointSource::unknownNumPoints);
        std::vector<double> exact;
        EXPECT_EQ(choose(*points, layoutXYZ(), {}, exact), each.words);
        for (PointSource* source :
             std::initializer_list<PointSource*>{points.get(), indexed.get(), uncounted.get()}) {
            std::vector<double> sizes;
            EXPECT_EQ(choose(*source, layoutXYZ(), {numPoints / 3, 1 << 20, 2}, sizes), each.words);
            ASSERT_EQ(sizes.size(), exact.size());
            for (std::size_t i = 0; i < sizes.size(); ++i)
                EXPECT_NEAR(sizes[i], exact[i], 0.15 * exact[i]) << each.words << i;
        }
    }
}

}} // namespace Quillmoran::Testing

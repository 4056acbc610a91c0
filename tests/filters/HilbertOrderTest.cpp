#include <vxunpack/HilbertOrder.h>

#include "filters/HilbertCurve.h"
#include "support/SetOfSources.h"
#include "support/Test.h"

#include <climits>
#include <thread>

namespace Quillmoran::Testing { namespace {

using Rows = std::vector<Numbers>;

// Counts the queries to its source.
class Counter final : public PointFilter
{
public:
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override
    {
        ++count;
        return PointFilter::createIterator(bounds, fraction, layout, delegate);
    }

    mutable int count = 0;
};

// Creates temporary files in a directory of its own.
class HilbertOrderTest : public testing::Test
{
protected:
    HilbertOrderTest() { setenv("TMPDIR", directory.path().c_str(), 1); }
    ~HilbertOrderTest() override
    {
        EXPECT_TRUE(directory.isEmpty());
        unsetenv("TMPDIR");
    }

    // Random samples of all types, some cells with several points.
    void fill(std::size_t count)
    {
        Random random(count);
        MemoryPointSource::Columns columns(layout.getNumChannels());
        for (std::size_t i = 0; i < count * columns.size(); ++i) {
            const auto sample = static_cast<double>(random.below(100));
            columns[i % columns.size()].push_back(i % columns.size() < 2 ? std::floor(sample / 2) * 0.25 - 5
                                                                         : sample);
        }
        source = MemoryPointSource::make(layout, columns);
        counter->init(source.get());
        filter->init(counter.get());
    }

    Rows sorted(const Bounds& bounds = Bounds::Huge(), double fraction = 1, std::size_t blockPoints = 1000,
                ProgressDelegate* delegate = nullptr) const
    {
        return readRows(*filter, layout, bounds, fraction, blockPoints, delegate);
    }

    Rows expected(const Bounds& bounds = Bounds::Huge(), double fraction = 1) const
    {
        Rows rows = readRows(*source, layout, bounds, fraction);
        const HilbertGrid grid(source->getBounds(), bounds);
        const auto keyOf = [&grid](const Numbers& row) {
            std::uint64_t key;
            grid.getKeys(&key, &row[0], &row[1], 1);
            return key;
        };
        std::stable_sort(rows.begin(), rows.end(),
                         [&](const auto& a, const auto& b) { return keyOf(a) < keyOf(b); });
        return rows;
    }

    const PointInfo layout =
        layoutXYZ({channel("A", UINT8), channel("B", SINT64), channel("C", SINT8), channel("D", UINT16),
                   channel("E", SINT16), channel("F", FLOAT32), channel("G", UINT32), channel("H", SINT32),
                   channel("I", UINT64), channel("J", FLOAT64)});
    // Sorted runs of about a dozen points, merged two at a time.
    const PointOrder::Limits small{1000, 1, 1};
    const TemporaryDirectory directory;
    Scoped<MemoryPointSource> source;
    const Scoped<Counter> counter{new Counter};
    const Scoped<HilbertOrder> filter{HilbertOrder::create()};
};

TEST_F(HilbertOrderTest, IsTheSameForAllSizesOfRunsAndMerges)
{
    for (const std::size_t count : {1u, 2u, 100u, 5000u}) {
        fill(count);
        const Rows rows = expected();
        for (const std::size_t run : {1u, 1000u, 30'000u, 10'000'000u})
            for (const std::size_t merge : {1u, 300u, 2000u, 1'000'000u}) {
                filter->init(counter.get());
                filter->setLimits({run, merge, 1});
                ASSERT_EQ(sorted(), rows) << count << ' ' << run << ' ' << merge;
                ASSERT_EQ(sorted(Bounds::Huge(), 1, 7), rows) << count << ' ' << run << ' ' << merge;
            }
    }
}

TEST_F(HilbertOrderTest, PassesBoxAndFractionToTheSource)
{
    fill(3000);
    filter->setLimits(small);
    for (const Bounds& box : {Bounds{{-1, 3.5}, {0, 90}, {0, 99}}, Bounds{{6, infinity}, {-1, 1}, {0, 99}}})
        for (const double fraction : {1.0, 0.3}) {
            const Rows rows = expected(box, fraction);
            EXPECT_GT(rows.size(), 10u);
            EXPECT_EQ(sorted(box, fraction), rows);
        }
    EXPECT_EQ(sorted({{90, 91}, {0, 1}, {0, 99}}), Rows());
    EXPECT_EQ(sorted(Bounds::Huge(), nan), Rows());
    fill(0);
    EXPECT_EQ(sorted(), Rows());
}

TEST_F(HilbertOrderTest, ReadsTheSourceOncePerQuery)
{
    fill(500);
    for (const PointOrder::Limits& limits : {small, HilbertOrder::Limits()}) {
        counter->count = 0;
        filter->init(counter.get());
        filter->setLimits(limits);
        const Rows rows = expected();
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&] { EXPECT_EQ(sorted(), rows); });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(counter->count, 1);

        const Scoped<PointIterator> older(filter->createIterator(Bounds::Huge(), 1, layout, nullptr));
        EXPECT_EQ(sorted(Bounds::Huge(), 0.5), expected(Bounds::Huge(), 0.5));
        EXPECT_EQ(counter->count, 2);
        const Scoped<PointIterator> narrow(filter->createIterator(Bounds::Huge(), 0.5, layoutXYZ(), nullptr));
        EXPECT_EQ(readRows(*narrow, layoutXYZ()).size(), 250u);
        EXPECT_EQ(sorted({{0, 1}, {0, 1}, {0, 99}}, 0.5), expected({{0, 1}, {0, 1}, {0, 99}}, 0.5));
        EXPECT_EQ(counter->count, 4);
        EXPECT_EQ(readRows(*older, layout), rows);
    }
}

TEST_F(HilbertOrderTest, ReportsTheSortedPointsAndStopsWhenCancelled)
{
    fill(40'000);
    const auto queriesOf = [this](const PointOrder::Limits& limits) {
        filter->init(counter.get());
        filter->setLimits(limits);
        ProgressLog log;
        sorted(Bounds::Huge(), 1, 1000, &log);
        return INT_MAX - log.queriesLeft;
    };
    // Blocks of 1,985 rows are sorted, blocks of 1,000 are read, and the end is noticed.
    EXPECT_EQ(queriesOf({}), 21 + 40 + 1);
    // Merging asks, too.
    const int queries = queriesOf({400'000, 1, 1});
    EXPECT_GT(queries, 21 + 40 + 1);
    const Rows rows = sorted();
    const Bounds box{{-5, 0}, {-5, 9}, {0, 99}}; // of less than half of the points
    ProgressLog log;
    log.setTotal(filter->getTotalWork(box, 1));
    const Rows inBox = sorted(box, 1, 1000, &log);
    const double written = static_cast<double>(inBox.size()), estimated = source->estimatePoints(box, 1);
    EXPECT_DOUBLE_EQ(log.last(), written / (40'000 + estimated)); // the source does not report
    sorted(box, 1, 1000, &log);
    EXPECT_DOUBLE_EQ(log.last(), (2 * written + 40'000) / (40'000 + estimated)); // the saved work of reading
    EXPECT_EQ(filter->getTotalWork(Bounds::Huge(), 2), 80'000);
    EXPECT_EQ(filter->getTotalWork(Bounds::Huge(), -1), 0);

    for (int query = 0; query < queries; query += 1 + query / 2) {
        ProgressLog canceller(query);
        filter->init(counter.get());
        EXPECT_EQ(errorOf(40006, [&] { sorted(Bounds::Huge(), 1, 1000, &canceller); }),
                  "operation cancelled.")
            << query;
    }
    EXPECT_EQ(sorted(), rows);
}

TEST_F(HilbertOrderTest, PassesErrors)
{
    fill(500);
    const Rows rows = expected();
    const Bounds box{{0, 1}, {0, 1}, {0, 99}};
    const Rows inBox = expected(box);
    filter->setLimits(small);
    EXPECT_EQ(sorted(box), inBox);
    for (const std::size_t point : {0u, 400u}) {
        source->failAt(point);
        EXPECT_EQ(errorOf(40000, [&] { sorted(); }), "test");
    }
    source->failAt(500);
    EXPECT_EQ(sorted(), rows);
    EXPECT_EQ(sorted(box), inBox);

    setenv("TMPDIR", (directory / "none").c_str(), 1);
    EXPECT_NE(errorOf(ENOENT, [&] { sorted(); }).find("none"), std::string::npos);
    filter->setLimits({});
    EXPECT_EQ(sorted(), rows); // no file for a single sorted run
}

}} // namespace Quillmoran::Testing

#include "support/Errors.h"
#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include "support/Random.h"
#include <vxunpack/PointSource.h>
#include <vxunpack/PointWriter.h>
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/TXTPointReader.h>
#include <vxunpack/TXTPointWriter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::errorOf;
using Testing::layoutXYZ;
using Testing::MemoryPointSource;
using Numbers = std::vector<double>;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

Numbers every(int step, int count)
{
    Numbers numbers;
    for (int i = 0; i < count; i += step)
        numbers.push_back(i);
    return numbers;
}

// Point i is (i, 0, 0).
Scoped<MemoryPointSource> pointsOnALine(int count)
{
    const Numbers x = every(1, count), zeros(x.size());
    return MemoryPointSource::make(layoutXYZ(), {x, zeros, zeros});
}

// A minimal source: the points (i, 2i, 3i) for i from 0 to 9.
class TenPoints final : public PointSource
{
public:
    const PointInfo& getPointInfo() const override { return m_layout; }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override
    {
        return new Iterator(bounds, fraction, layout, delegate);
    }

private:
    class Iterator final : public PointIterator
    {
    public:
        Iterator(const Bounds& bounds, double fraction, const PointInfo& layout, ProgressDelegate* delegate)
        {
            init(bounds, fraction, layout, delegate);
        }
        std::size_t getNextPoints(PointData& buffer) override
        {
            std::size_t count = 0;
            for (; m_next < 10 && count < buffer.getNumSamples(); ++m_next) {
                if (!isWanted(m_next, 2.0 * m_next, 3.0 * m_next) || !sample())
                    continue;
                buffer.getX()[count] = m_next;
                buffer.getY()[count] = 2.0 * m_next;
                buffer.getZ()[count] = 3.0 * m_next;
                ++count;
            }
            return count;
        }

    private:
        int m_next = 0;
    };

    PointInfo m_layout = layoutXYZ();
};

// The x of all points of a query.
Numbers query(const PointSource& source, const Bounds& bounds, double fraction,
              const PointInfo& layout = layoutXYZ())
{
    const Scoped<PointIterator> iterator(source.createIterator(bounds, fraction, layout, nullptr));
    PointData block;
    block.init(layout, 7);
    Numbers all;
    while (const std::size_t count = iterator->getNextPoints(block))
        all.insert(all.end(), block.getX(), block.getX() + count);
    return all;
}

TEST(PointSource, NeedsOnlyALayoutAndAnIterator)
{
    const Scoped<TenPoints> source(new TenPoints);
    EXPECT_EQ(query(*source, {{0, 8}, {0, 100}, {6, 100}}, 0.5), (Numbers{2, 4, 6, 8}));
    EXPECT_EQ(source->getNumPoints(), PointSource::unknownNumPoints);
    EXPECT_EQ(source->getBounds(), Bounds::Huge());
    EXPECT_EQ(source->estimatePoints({{0, 1}, {0, 1}, {0, 1}}, 1), 0);
    const Scoped<TXTPointWriter> writer(TXTPointWriter::create());
    writer->init(source.get(), "/dev/null", "xyz");
    EXPECT_EQ(writer->write(Bounds::Huge(), 0.5, layoutXYZ(), nullptr), 5);
    EXPECT_EQ(writer->getScale()[2], 0.001);
    EXPECT_EQ(writer->getOffset()[2], 0);
}

TEST(PointSource, IsRefusedBeforeInit)
{
    struct Filter final : PointFilter
    {};
    const Scoped<Filter> filter(new Filter);
    const Scoped<TXTPointReader> reader(TXTPointReader::create());
    const Scoped<TXTPointWriter> text(TXTPointWriter::create()), noOutput(TXTPointWriter::create());
    const Scoped<NULLPointWriter> null(NULLPointWriter::create());
    const Scoped<TenPoints> source(new TenPoints);
    noOutput->init(source.get(), static_cast<IO*>(nullptr), "xyz");
    const Bounds& all = Bounds::Huge();
    const PointInfo xyz = layoutXYZ();
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"the filter has no source", [&] { filter->getPointInfo(); }},
        {"the filter has no source", [&] { filter->createIterator(all, 1, xyz, nullptr); }},
        {"source is NULL", [&] { filter->init(nullptr); }},
        {"io is NULL", [&] { reader->createIterator(all, 1, xyz, nullptr); }},
        {"io is NULL", [&] { reader->getBounds(); }},
        {"path not given", [&] { reader->init(static_cast<const char*>(nullptr), "xyz", 0, true); }},
        {"the writer has no source", [&] { text->write(all, 1, xyz, nullptr); }},
        {"the writer has no source", [&] { text->setQuantization(nullptr, nullptr); }},
        {"source is NULL", [&] { text->init(nullptr, "file", "xyz"); }},
        {"path not given", [&] { text->init(source.get(), static_cast<const char*>(nullptr), "xyz"); }},
        {"io is NULL", [&] { noOutput->write(all, 1, xyz, nullptr); }},
        {"the writer has no source", [&] { null->write(all, 1, xyz, nullptr); }},
    };
    for (const auto& [message, call] : cases)
        EXPECT_EQ(errorOf(40007, call), message);
}

TEST(PointIterator, SelectsEveryNthPointOfTheBox)
{
    const auto source = pointsOnALine(30);
    for (const int n : {1, 2, 3, 4, 5, 10})
        EXPECT_EQ(query(*source, Bounds::Huge(), 1.0 / n), every(n, 30)) << "1 / " << n;
    EXPECT_EQ(query(*source, {{5, 14}, {0, 0}, {0, 0}}, 0.5), (Numbers{5, 7, 9, 11, 13}));
}

TEST(PointIterator, SelectsAllOrNothingOutsideTheUnitRange)
{
    const auto source = pointsOnALine(20);
    for (const double fraction : {0.0, -0.5, nan, 1.5, infinity})
        EXPECT_EQ(query(*source, Bounds::Huge(), fraction), every(1, fraction > 1 ? 20 : 0)) << fraction;
}

TEST(PointIterator, SelectsAnEvenSample)
{
    const auto source = pointsOnALine(1000);
    Testing::Random random(5);
    for (int round = 0; round < 50; ++round) {
        const double fraction = random.real();
        const Numbers selected = query(*source, Bounds::Huge(), fraction);
        ASSERT_NEAR(static_cast<double>(selected.size()), 1000 * fraction, 1) << fraction;
        for (std::size_t i = 0; i < selected.size(); ++i)
            ASSERT_NEAR(selected[i], static_cast<double>(i) / fraction, 1) << fraction;
    }
}

TEST(PointIterator, WidensTheBoxByHalfAStepOfTheLayout)
{
    const Numbers values{0.7, 0.75, 1, 2, 2.25, 2.3};
    for (const std::size_t axis : {0u, 1u, 2u}) {
        MemoryPointSource::Columns columns(3, Numbers(values.size(), 1.5));
        columns[axis] = values;
        const auto source = MemoryPointSource::make(layoutXYZ(), columns);
        for (const double step : {0.0, 0.5, -0.5}) {
            PointInfo layout = layoutXYZ();
            layout.getChannel(axis).setQuantization(step);
            EXPECT_EQ(query(*source, {{1, 2}, {1, 2}, {1, 2}}, 1, layout).size(), step == 0 ? 2u : 4u)
                << axis;
        }
    }
}

Numbers readInto(const PointSource& source, std::size_t capacity, std::size_t expectedCount,
                 const Bounds& bounds = Bounds::Huge(), ProgressDelegate* delegate = nullptr)
{
    PointData buffer;
    buffer.init(layoutXYZ(), capacity);
    std::fill_n(buffer.getX(), capacity, -1.0);
    EXPECT_EQ(source.read(bounds, buffer, delegate), expectedCount);
    return {buffer.getX(), buffer.getX() + capacity};
}

TEST(PointSourceRead, FillsTheBufferWithAnEvenSampleOfTheBox)
{
    const auto source = pointsOnALine(100);
    EXPECT_EQ(readInto(*source, 100, 100), every(1, 100));
    EXPECT_EQ(readInto(*source, 25, 25), every(4, 100));
    EXPECT_EQ(readInto(*source, 102, 100)[100], -1);
    const Numbers half = readInto(*source, 10, 10, {{49.5, 200}, {0, 1}, {0, 1}});
    EXPECT_EQ(half.front(), 50);
    EXPECT_NEAR(half.back(), 95, 1);
}

TEST(PointSourceRead, MergesAllPointsWhenTheirNumberIsUnknown)
{
    const auto source = pointsOnALine(1000);
    source->setNumPoints(PointSource::unknownNumPoints);
    Numbers held = readInto(*source, 40, 1000);
    std::sort(held.begin(), held.end());
    EXPECT_EQ(std::adjacent_find(held.begin(), held.end()), held.end());
    EXPECT_GE(held.front(), 0);
    EXPECT_NEAR(held[20], 500, 200);
}

// Cancels after `polls` calls.
class Canceller final : public ProgressDelegate
{
public:
    explicit Canceller(int polls) : m_polls(polls) {}
    void reportProgress(double, const char*) override {}
    bool getCancelled() override { return m_polls-- <= 0; }

private:
    int m_polls;
};

TEST(PointSourceRead, StopsWhenCancelled)
{
    const auto source = pointsOnALine(100);
    source->setNumPoints(PointSource::unknownNumPoints);
    // Called after the first block and before each of the three that are merged.
    for (const int polls : {0, 1, 3, 4}) {
        Canceller delegate(polls);
        const auto read = [&] { readInto(*source, 25, 100, Bounds::Huge(), &delegate); };
        EXPECT_EQ(errorOf(40006, read), polls < 4 ? "operation cancelled." : "nothing thrown") << polls;
    }
}

} // namespace
} // namespace Quillmoran

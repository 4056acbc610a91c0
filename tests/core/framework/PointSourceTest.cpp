#include <vxunpack/PointCloudInfo.h>

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

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

TEST(PointIterator, SelectsAnEvenSampleOfTheBox)
{
    const auto source = pointsOnALine(1000);
    for (const int n : {1, 2, 3, 4, 5, 10})
        EXPECT_EQ(query(*source, Bounds::Huge(), 1.0 / n), every(n, 1000)) << "1 / " << n;
    EXPECT_EQ(query(*source, {{5, 14}, {0, 0}, {0, 0}}, 0.5), (Numbers{5, 7, 9, 11, 13}));
    EXPECT_EQ(query(*source, {{0, 3}, {0, 0}, {0, 0}}, 0.75), (Numbers{0, 1, 3}));
    for (const double fraction : {0.0, -0.5, nan, 1.5, infinity})
        EXPECT_EQ(query(*source, Bounds::Huge(), fraction), every(1, fraction > 1 ? 1000 : 0)) << fraction;
    Random random(5);
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

TEST(PointCloudInfo, CopiesEverything)
{
    const auto source = pointsOnALine(3);
    const double scale[] = {1, 2, 3}, offset[] = {4, 5, 6}, flat[] = {1, 2, 0};
    const char* const names[] = {"ground", nullptr, "roof"};
    source->setQuantization(scale, offset);
    source->setClassIdNames(names, 3);
    source->setWKT("here");
    const Scoped<PointCloudInfo> info(PointCloudInfo::create()), copy(PointCloudInfo::create());
    info->init(*source);
    source->setQuantization(flat, offset);
    EXPECT_EQ(source->getOffset(), nullptr);
    copy->init(*info);
    EXPECT_TRUE(copy->getPointInfo() == layoutXYZ());
    EXPECT_EQ(copy->getWKT() + std::to_string(copy->getNumPoints()), "here3");
    EXPECT_EQ(copy->getBounds(), source->getBounds());
    EXPECT_EQ(copy->getScale()[2] + copy->getOffset()[1], 8);
    ASSERT_EQ(copy->getNumClassIdNames(), 3u);
    EXPECT_EQ(copy->getClassIdNames()[1], nullptr);
    EXPECT_STREQ(copy->getClassIdNames()[2], "roof");
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

    source->setNumPoints(PointSource::unknownNumPoints);
    Numbers held = readInto(*source, 10, 100);
    std::sort(held.begin(), held.end());
    for (std::size_t i = 0; i < held.size(); ++i)
        EXPECT_NEAR(held[i], 10 * static_cast<double>(i) + 4.5, 12) << i;
    EXPECT_EQ(std::adjacent_find(held.begin(), held.end()), held.end());
}

TEST(PointSourceRead, CountsWorkAndStopsWhenCancelled)
{
    const auto source = pointsOnALine(100);
    ProgressLog log;
    readInto(*source, 25, 25, {{0, 49.5}, {0, 0}, {0, 0}}, &log);
    log.updateCompleted(25, "");
    EXPECT_EQ(log.last(), 25 / 50.0) << "of 50, half of the points";
    source->setNumPoints(PointSource::unknownNumPoints);
    // Asked after the first block and before each of the three that are merged.
    for (const int queries : {0, 1, 3, 4}) {
        ProgressLog cancelling(queries);
        const auto read = [&] { readInto(*source, 25, 100, Bounds::Huge(), &cancelling); };
        EXPECT_EQ(errorOf(40006, read), queries < 4 ? "operation cancelled." : "nothing thrown") << queries;
    }
}

}} // namespace Quillmoran::Testing

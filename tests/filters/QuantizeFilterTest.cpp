#include <vxunpack/QuantizeFilter.h>

#include "support/SetOfSources.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

using Rows = std::vector<Numbers>;

Scoped<QuantizeFilter> filterOf(PointSource& source, const Numbers& steps)
{
    Scoped<QuantizeFilter> filter(QuantizeFilter::create());
    filter->init(&source, steps.data());
    return filter;
}

// Random points in a square, numbered in the channel "N".
Scoped<MemoryPointSource> randomSource(std::size_t count)
{
    Random random(4);
    MemoryPointSource::Columns columns(4);
    for (std::size_t i = 0; i < count; ++i) {
        columns[0].push_back(500 + 20 * random.real());
        columns[1].push_back(-30 + 20 * random.real());
        columns[2].push_back(random.real());
        columns[3].push_back(static_cast<double>(i));
    }
    return MemoryPointSource::make(layoutXYZ({channel("N", UINT32)}), columns);
}

TEST(QuantizeFilter, RoundsToTheNearestMultiple)
{
    const auto source = MemoryPointSource::make(layoutXYZ(), {{0, 0.24, 0.26, 0.25, -0.2, -0.25, -0.3},
                                                              {5, 6, 7, 7.1, 8.5, 9.49, 1e10 + 0.51},
                                                              {49, infinity, -infinity, 99, 149, 151, -151}});
    const auto counted = MemoryPointSource::make(layoutXYZ(), {{0.3}, {0.6}, {4}});
    counted->setQuantization(Numbers{0.1, 0.1, 0.1}.data(), Numbers{0.25, 0.5, 1}.data());
    EXPECT_EQ(readRows(*filterOf(*counted, {1, 1, 2}), layoutXYZ()), (Rows{{0.25, 0.5, 5}}))
        << "counted from the source's offset";
    const Rows rows = readRows(*filterOf(*source, {0.5, 1, 100}), layoutXYZ());
    EXPECT_EQ(rows, (Rows{{0, 5, 0},
                          {0, 6, infinity},
                          {0.5, 7, -infinity},
                          {0.5, 7, 100},
                          {0, 9, 100},
                          {0, 9, 200},
                          {-0.5, 1e10 + 1, -200}}));
}

TEST(QuantizeFilter, MovesNoPointByMoreThanHalfAStep)
{
    const auto source = randomSource(5000);
    const auto filter = filterOf(*source, {0.1, 0.3, 0.007});
    const double steps[] = {0.1, 0.3, 0.007};
    const PointInfo& layout = filter->getPointInfo();
    for (const char* name : {"X", "Y", "Z"})
        EXPECT_EQ(layout.getChannel(name)->getQuantization(), steps[name[0] - 'X']);
    const Rows before = readRows(*source, layout), after = readRows(*filter, layout, Bounds::Huge(), 1, 999);
    ASSERT_EQ(after.size(), 5000u);
    Bounds bounds;
    for (std::size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i][3], before[i][3]);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            EXPECT_LE(std::fabs(after[i][axis] - before[i][axis]), steps[axis] / 2 * (1 + 1e-9));
            const double cell = (after[i][axis] - filter->getOffset()[axis]) / steps[axis];
            EXPECT_NEAR(cell, std::round(cell), 1e-6);
        }
        bounds.x.grow(after[i][0]);
        bounds.y.grow(after[i][1]);
        bounds.z.grow(after[i][2]);
    }
    EXPECT_EQ(filter->getBounds(), bounds) << "bounds of the rounded points";
    EXPECT_EQ(filter->getNumPoints(), 5000);
    // Rounding again has no effect.
    const auto again = filterOf(*filter, {0.1, 0.3, 0.007});
    EXPECT_EQ(readRows(*again, layout), after);
    EXPECT_EQ(again->getBounds(), bounds);
    again->init(filter.get(), Numbers{100, 100, 100}.data());
    EXPECT_EQ(again->getBounds().x.max, 500) << "with other steps";
}

TEST(QuantizeFilter, LosesNoPointOfABox)
{
    const auto source = randomSource(5000);
    const auto filter = filterOf(*source, {0.5, 0.5, 0.5});
    const PointInfo& layout = filter->getPointInfo();
    const Rows all = readRows(*filter, layout);
    // Sides of the box on and between the lines of the grid.
    for (const double shift : {0.0, 0.2, 0.4}) {
        Bounds box = Bounds::Huge();
        box.x = {505 + shift, 509.5 - shift};
        box.y = {-25 - shift, -20 + shift};
        const auto inBox = [&box](Rows rows) {
            std::erase_if(rows, [&](const Numbers& row) { return !box.contains(row[0], row[1], row[2]); });
            return rows;
        };
        const Rows expected = inBox(all);
        EXPECT_GT(expected.size(), 100u);
        EXPECT_EQ(inBox(readRows(*filter, layout, box)), expected) << shift;
    }
}

TEST(QuantizeFilter, RefusesInvalidSteps)
{
    const auto source = randomSource(3);
    for (const auto& [step, text] :
         {std::pair(0.0, "0"), std::pair(-0.5, "-0.5"), std::pair(infinity, "inf"), std::pair(nan, "nan")}) {
        const Numbers steps = {1, step, 1};
        EXPECT_EQ(failureOf([&] { filterOf(*source, steps); }),
                  std::string("40007 a step must be above 0: ") + text);
    }
    // An empty source has no offset.
    const auto empty = MemoryPointSource::make(layoutXYZ(), {{}, {}, {}});
    const auto filter = filterOf(*empty, {1, 1, 1});
    EXPECT_EQ(filter->getOffset()[1], 0);
    EXPECT_EQ(readRows(*filter, layoutXYZ()), Rows());
}

}} // namespace Quillmoran::Testing

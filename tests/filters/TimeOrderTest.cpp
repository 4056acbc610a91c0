#include <vxunpack/TimeOrder.h>

#include "support/SetOfSources.h"
#include "support/Test.h"

#include <numeric>

namespace Quillmoran::Testing { namespace {

// X of the points by time; X counts the points of the source.
Numbers sortByTime(const Scoped<MemoryPointSource>& source)
{
    const Scoped<TimeOrder> order(TimeOrder::create());
    order->init(source.get());
    order->setLimits({200, 1, 1}); // sorted runs of a few points, merged two at a time
    Numbers found;
    for (const Numbers& row : readRows(*order, layoutXYZ()))
        found.push_back(row[0]);
    return found;
}

TEST(TimeOrder, SortsTimesOfAnyTypeThatTheQueryNeedNotHave)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct
    {
        const char* channel;
        DataType type;
        Numbers times, expected;
    } cases[] = {
        {"GPSTime",
         FLOAT64,
         {nan, 3, -0.0, -infinity, 0, infinity, -nan, 3, -2.5, -2}, // equal: kept in order
         {3, 8, 9, 2, 4, 1, 7, 5, 0, 6}},
        {"GPSTime_Adjusted", FLOAT32, {1.5, -1.5, 1e30, 1.25, -1e30}, {4, 1, 3, 0, 2}},
        {"GPSTime", SINT32, {5, -7, 0, -6, 5}, {1, 3, 2, 0, 4}},
        {"GPSTime", UINT64, {0x1p63, 1, 0x1p63 + 4096, 0}, {3, 1, 0, 2}},
    };
    for (const auto& each : cases) {
        Numbers x(each.times.size());
        std::iota(x.begin(), x.end(), 0);
        EXPECT_EQ(sortByTime(MemoryPointSource::make(layoutXYZ({channel(each.channel, each.type)}),
                                                     {x, x, x, each.times})),
                  each.expected)
            << each.channel << ' ' << each.type;
    }
    // Adjusted time has no jumps at the ends of weeks.
    EXPECT_EQ(sortByTime(MemoryPointSource::make(
                  layoutXYZ({channel("GPSTime", FLOAT64), channel("GPSTime_Adjusted", FLOAT64)}),
                  {{0, 1, 2}, {0, 1, 2}, {0, 1, 2}, {1, 2, 3}, {8, 9, 7}})),
              (Numbers{2, 0, 1}));
}

TEST(TimeOrder, RefusesASourceWithoutTimes)
{
    const Scoped<TimeOrder> order(TimeOrder::create());
    const auto source = MemoryPointSource::make(layoutXYZ({channel("Time", FLOAT64)}), {{1}, {2}, {3}, {4}});
    EXPECT_EQ(errorOf(40012, [&] { order->init(source.get()); }),
              "sorting by time needs a channel GPSTime or GPSTime_Adjusted");
}

}} // namespace Quillmoran::Testing

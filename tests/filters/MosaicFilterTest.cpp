#include <vxunpack/MosaicFilter.h>

#include "index/MemoryRTree.h"
#include "support/SetOfSources.h"
#include "support/Test.h"
#include <vxunpack/TXTPointReader.h>

namespace Quillmoran::Testing { namespace {

using Rows = std::vector<Numbers>;
using Sources = std::vector<Scoped<PointSource>>;

// `count` points on a line along x from `begin` on, with a distance of 1.
Scoped<MemoryPointSource> pointsFrom(double begin, int count, double step = 0)
{
    Numbers x, zeros(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        x.push_back(begin + i);
    PointInfo layout = layoutXYZ();
    layout.getChannel("X")->setQuantization(step);
    return MemoryPointSource::make(layout, {x, zeros, zeros});
}

// One point at (x, 0, 0) with more channels.
using Samples = std::initializer_list<std::pair<ChannelInfo, double>>;
Scoped<MemoryPointSource> pointWith(double x, Samples samples)
{
    PointInfo layout = layoutXYZ();
    MemoryPointSource::Columns columns = {{x}, {0}, {0}};
    for (const auto& [info, value] : samples) {
        layout.append(info);
        columns.push_back({value});
    }
    return MemoryPointSource::make(layout, columns);
}

const ChannelInfo classId = channel("ClassId", UINT8), classFlags = channel("ClassFlags", UINT8),
                  degrees = channel("ScanAngle", SINT8), angleSteps = channel("ScanAngle", SINT16),
                  weekTime = channel("GPSTime", FLOAT64), adjusted = channel("GPSTime_Adjusted", FLOAT64);

// One point as in files of the older LAS formats, or of the newer ones.
Scoped<MemoryPointSource> oldPoint(double x, double classByte, double angle, double time)
{
    return pointWith(x, {{classId, classByte}, {degrees, angle}, {weekTime, time}});
}

Scoped<MemoryPointSource> newPoint(double x, double number, double flags, double angle, double time)
{
    return pointWith(x, {{classFlags, flags}, {classId, number}, {angleSteps, angle}, {adjusted, time}});
}

template <class... Each>
Sources sourcesOf(const Each&... sources)
{
    return {Scoped<PointSource>::retained(sources.get())...};
}

struct Mosaic
{
    explicit Mosaic(Sources sources, const std::optional<int>& gpsWeek = std::nullopt)
        : set(SetOfSources::make(std::move(sources)))
    {
        filter->init(set.get(), gpsWeek);
        set->takeRequests();
    }

    template <class... Each>
    static Mosaic of(const Each&... sources)
    {
        return Mosaic(sourcesOf(sources...));
    }

    Rows rows(const Bounds& bounds = Bounds::Huge(), double fraction = 1) const
    {
        Rows all = readRows(*filter, filter->getPointInfo(), bounds, fraction);
        std::sort(all.begin(), all.end());
        return all;
    }

    Rows rows(std::initializer_list<ChannelInfo> channels, const Bounds& bounds) const
    {
        return readRows(*filter, layoutXYZ(channels), bounds);
    }

    Scoped<SetOfSources> set;
    Scoped<MosaicFilter> filter{MosaicFilter::create()};
};

template <class... Each>
Strings warningsOf(const Each&... sources)
{
    return Mosaic::of(sources...).filter->getWarnings();
}

Bounds fromTo(double begin, double end)
{
    return {{begin, end}, {-1, 1}, {-1, 1}};
}

TEST(MosaicFilter, DoesNotChangeASingleSource)
{
    const auto source = pointsFrom(0, 100);
    const double scale[] = {0.01, 0.01, 0.001}, offset[] = {5, 6, 7};
    source->setQuantization(scale, offset);
    source->metadata().add("PreCompressionPointCount", nullptr, METADATA_STRING, "100", 0);
    const auto mosaic = Mosaic::of(source);
    EXPECT_TRUE(mosaic.filter->getPointInfo() == source->getPointInfo());
    EXPECT_EQ(mosaic.filter->getNumPoints(), 100);
    EXPECT_EQ(mosaic.filter->getBounds(), source->getBounds());
    EXPECT_EQ(mosaic.filter->getOffset()[2], 7);
    for (const double fraction : {1.0, 0.3, 2.0, 0.0, -1.0})
        EXPECT_EQ(mosaic.rows(fromTo(10, 60), fraction),
                  readRows(*source, layoutXYZ(), fromTo(10, 60), fraction))
            << fraction;
    Metadata records;
    mosaic.filter->loadMetadata(records, false);
    EXPECT_TRUE(records.has("PreCompressionPointCount"));
}

TEST(MosaicFilter, OpensOnlyTheSourcesThatIntersectTheQuery)
{
    Sources sources;
    for (int i = 0; i < 30; ++i)
        sources.emplace_back(pointsFrom(i * 10, 10).detach());
    const Mosaic mosaic(std::move(sources));
    EXPECT_EQ(mosaic.filter->getNumPoints(), 300);
    std::vector<int> expected(30);
    expected[4] = expected[5] = 1;
    EXPECT_EQ(mosaic.rows(fromTo(47, 52)).size(), 6u);
    EXPECT_EQ(mosaic.set->takeRequests(), expected);
    EXPECT_EQ(mosaic.filter->getTotalWork(fromTo(47, 52), 1), 20);
    EXPECT_EQ(mosaic.set->takeRequests(), expected);
    EXPECT_EQ(mosaic.rows(fromTo(400, 500)), Rows());
    EXPECT_EQ(mosaic.filter->getTotalWork(fromTo(400, 500), 1), 0);
    EXPECT_EQ(mosaic.set->takeRequests(), std::vector<int>(30));
    EXPECT_EQ(mosaic.rows().size(), 300u);
}

TEST(MosaicFilter, FindsPointsThatRoundIntoTheQuery)
{
    EXPECT_EQ(Mosaic::of(pointsFrom(1, 2, 0.5), pointsFrom(3, 2, 0.5)).rows(fromTo(2.2, 2.8)),
              (Rows{{2, 0, 0}, {3, 0, 0}}));
}

TEST(MosaicFilter, ReadsTheOverviewForSmallFractions)
{
    const auto source = pointsFrom(0, 1000);
    const auto overview = pointsFrom(0, 100);
    const auto mosaic = Mosaic::of(source);
    mosaic.set->setOverview(Scoped<PointSource>::retained(overview.get()), 0.1);
    mosaic.filter->init(mosaic.set.get());
    EXPECT_EQ(mosaic.rows(Bounds::Huge(), 0.11).size(), 110u);
    EXPECT_EQ(mosaic.filter->getTotalWork(Bounds::Huge(), 0.25), 250);
    mosaic.set->takeRequests();
    EXPECT_EQ(mosaic.rows(Bounds::Huge(), 0.1).size(), 100u);
    EXPECT_EQ(mosaic.rows(Bounds::Huge(), 0.05), readRows(*overview, layoutXYZ(), Bounds::Huge(), 0.5));
    EXPECT_EQ(mosaic.filter->getTotalWork(Bounds::Huge(), 0.05), 50);
    EXPECT_EQ(mosaic.rows(Bounds::Huge(), -1).size(), 0u);
    EXPECT_EQ(mosaic.set->takeRequests(), std::vector<int>(1));
}

TEST(MosaicFilter, UnitesChannelsAndFillsMissingOnesWithZeros)
{
    const auto a = pointWith(1, {{channel("Intensity", UINT16), 60000}}), b = pointWith(2, {{classId, 7}});
    const auto mosaic = Mosaic::of(a, b);
    const PointInfo& layout = mosaic.filter->getPointInfo();
    EXPECT_EQ(std::string(layout.getChannel(3).getName()) + layout.getChannel(4).getName(),
              "IntensityClassId");
    EXPECT_EQ(mosaic.rows(), (Rows{{1, 0, 0, 60000, 0}, {2, 0, 0, 0, 7}}));
    EXPECT_EQ(failureOf([&] { mosaic.rows({channel("Red", UINT16)}, Bounds::Huge()); }),
              "40012 requesting channel not in the source");
    // An adapted source with more than one block, read in blocks of other sizes.
    const auto all = Mosaic::of(b, pointsFrom(0, 40000));
    const Scoped<PointIterator> iterator(
        all.filter->createIterator(fromTo(10, 1e6), 1, layoutXYZ({classId}), nullptr));
    for (const std::size_t size : {100u, 7u, 50u}) {
        PointData block;
        block.init(layoutXYZ({classId}), size);
        EXPECT_EQ(iterator->getNextPoints(block), size);
    }
    EXPECT_EQ(readRows(*iterator, layoutXYZ({classId}), 100000).size(), 39990u - 157);
}

TEST(MosaicFilter, ChoosesATypeThatHoldsBothSources)
{
    const std::tuple<DataType, DataType, DataType, double, double, int> cases[] = {
        {UINT8, UINT16, UINT16, 255, 65535, 16},   {SINT8, SINT32, SINT32, -128, -2147483648.0, 32},
        {UINT8, SINT8, SINT16, 255, -128, 16},     {UINT16, SINT8, SINT32, 65535, -128, 32},
        {SINT16, UINT8, SINT16, -32768, 255, 16},  {UINT32, SINT16, SINT64, 4294967295.0, -1, 64},
        {UINT64, SINT8, FLOAT64, 1e15, -128, 64},  {FLOAT32, UINT8, FLOAT64, 0.5, 255, 64},
        {FLOAT32, FLOAT64, FLOAT64, 0.5, 0.1, 64}, {SINT64, FLOAT64, FLOAT64, -5, 0.1, 64},
    };
    for (const auto& [typeA, typeB, type, valueA, valueB, bits] : cases) {
        const auto a = pointWith(1, {{channel("C", typeA), valueA}}),
                   b = pointWith(2, {{channel("C", typeB), valueB}});
        for (const Mosaic& mosaic : {Mosaic::of(a, b), Mosaic::of(b, a)}) {
            const ChannelInfo* both = mosaic.filter->getChannel("C");
            EXPECT_EQ(std::pair(both->getDataType(), both->getBits()), std::pair(type, bits)) << typeB;
            EXPECT_EQ(mosaic.rows(), (Rows{{1, 0, 0, valueA}, {2, 0, 0, valueB}})) << typeA << ' ' << typeB;
        }
    }
}

TEST(MosaicFilter, KeepsTheStepThatRepresentsAllPoints)
{
    const std::array<double, 3> steps[] = {{0.01, 0.01, 0.01}, {0.01, 0.001, 0.001}, {0.25, 0.01, 0.01},
                                           {0.01, 0.003, 0},   {-0.25, 0.01, 0.01},  {0.01, 0, 0},
                                           {0, 0, 0}};
    for (const auto& [a, b, both] : steps)
        for (const auto& [first, second] : {std::pair(a, b), std::pair(b, a)}) {
            const auto mosaic = Mosaic::of(pointsFrom(0, 1, first), pointsFrom(0, 1, second));
            EXPECT_EQ(mosaic.filter->getChannel("X")->getQuantization(), both) << first << ' ' << second;
        }
}

TEST(MosaicFilter, HasTheScaleThatAllSourcesShare)
{
    const double scale[] = {1, 2, 3}, otherScale[] = {1, 2, 4}, offset[] = {5, 6, 7},
                 otherOffset[] = {5, 6, 8};
    const std::tuple<const double*, const double*, int, bool> others[] = {{scale, offset, 2, true},
                                                                          {otherScale, offset, 2, false},
                                                                          {scale, otherOffset, 2, false},
                                                                          {nullptr, nullptr, 2, false},
                                                                          {otherScale, otherOffset, 0, true}};
    for (const auto& [steps, origin, count, isShared] : others) {
        const auto a = pointsFrom(0, 3), b = pointsFrom(10, count);
        a->setQuantization(scale, offset);
        b->setQuantization(steps, origin);
        if (count == 0)
            b->setBounds({{-100, 0}, {0, 0}, {0, 0}});
        // A third source does not bring the scale back.
        for (const Mosaic& mosaic : {Mosaic::of(b, a, a), Mosaic::of(a, b, a)}) {
            const double* const shared = mosaic.filter->getScale();
            ASSERT_EQ(shared != nullptr, isShared);
            EXPECT_TRUE(!isShared || (shared[2] == 3 && mosaic.filter->getOffset()[2] == 7));
            EXPECT_EQ(mosaic.filter->getBounds().x.min, 0);
            EXPECT_EQ(mosaic.filter->getNumPoints(), 6 + count);
        }
    }
}

TEST(MosaicFilter, NamesTheCoordinateSystemsOfItsSources)
{
    const auto systemsOf = [](const Mosaic& mosaic) {
        std::string systems;
        for (const NamedCoordinateSystem& system : mosaic.filter->getCoordinateSystems())
            systems += system.file + " has '" + system.wkt + "'; ";
        return systems;
    };
    const auto none = pointsFrom(0, 3), first = pointsFrom(10, 4), second = pointsFrom(20, 0),
               empty = pointsFrom(0, 0);
    first->setWKT("FIRST");
    second->setWKT("SECOND");
    const auto mosaic = Mosaic::of(empty, none, first, second, second, none);
    EXPECT_STREQ(mosaic.filter->getWKT(), "FIRST");
    EXPECT_EQ(systemsOf(mosaic), "source 1 has ''; source 2 has 'FIRST'; source 3 has 'SECOND'; ");
    Sources many;
    for (int i = 0; i < 20; ++i) {
        many.emplace_back(pointsFrom(i, 1).detach());
        static_cast<MemoryPointSource&>(*many.back()).setWKT(std::to_string(i).c_str());
    }
    const std::string systems = systemsOf(Mosaic(many));
    EXPECT_EQ(systems.substr(systems.find("source 15")), "source 15 has '15'; source 16 has 'one of many'; ");
    first->setNumPoints(PointSource::unknownNumPoints);
    EXPECT_EQ(Mosaic::of(none, first, none).filter->getNumPoints(), PointSource::unknownNumPoints);
}

TEST(MosaicFilter, WarnsOfMissingChannelsAndDroppedNames)
{
    const auto with = pointWith(1, {{channel("Red", UINT16), 1}}), without = pointsFrom(10, 1),
               empty = pointsFrom(0, 0), alike = pointsFrom(20, 1);
    const char *const names[] = {"ground", nullptr}, *const others[] = {"ground", "water"};
    with->setClassIdNames(names, 1);
    EXPECT_EQ(warningsOf(with, with, empty), Strings());
    without->setClassIdNames(others, 2);
    EXPECT_EQ(warningsOf(with, without, without),
              (Strings{"'source 1' and 1 other file without Red: the points have 0 there",
                       "the class names of 'source 1' differ from those of 'source 0', which are used"}));
    EXPECT_EQ(warningsOf(without, with, without, without)[0],
              "'source 0' and 2 other files without Red: the points have 0 there");
    EXPECT_EQ(warningsOf(without, with)[0], "'source 0' without Red: the points have 0 there");
    alike->setClassIdNames(names, 2);
    without->setClassIdNames(names, 2);
    EXPECT_EQ(warningsOf(alike, without), Strings());
    // Older files lack flags and scanner channels; their values are known.
    const auto newer = pointWith(
        1, {{classId, 2}, {classFlags, 1}, {channel("ScannerChannel", UINT8), 3}, {angleSteps, -5}});
    const auto older = pointWith(2, {{classId, 2}, {degrees, 9}});
    EXPECT_EQ(warningsOf(newer, older), Strings());
    EXPECT_EQ(
        warningsOf(newer, pointWith(2, {{classId, 65}, {channel("ScanAngle", FLOAT32), 1}}),
                   pointWith(3, {{classId, 65}})),
        (Strings{"'source 2' without ScanAngle: the points have 0 there",
                 "the classes of 'source 2' are read as classification bytes of LAS formats 0 to 5: class in "
                 "the low 5 bits, flags in the others",
                 "the scan angles of 'source 1' are rounded to steps of 0.006 degrees"}));
}

TEST(MosaicFilter, ConvertsChannelsWithDifferentMeanings)
{
    const auto a = oldPoint(2, 255, -90, nan), b = newPoint(4, 200, 9, -2334, 5);
    const auto mosaic = Mosaic(sourcesOf(a, b), 2000);
    EXPECT_FALSE(mosaic.filter->hasChannel("GPSTime"));
    EXPECT_EQ(mosaic.rows({classId, classFlags, angleSteps}, Bounds::Huge()),
              (Rows{{2, 0, 0, 31, 7, -15000}, {4, 0, 0, 200, 9, -2334}}));
    EXPECT_TRUE(std::isnan(mosaic.rows({adjusted}, fromTo(2, 2))[0][3]));
    // The whole mosaic defines the meaning, also in a query without the flags.
    EXPECT_EQ(mosaic.rows({classId}, fromTo(2, 2)), (Rows{{2, 0, 0, 31}}));
    // Floating-point degrees become steps.
    const auto steps = pointWith(1, {{angleSteps, 500}}),
               real = pointWith(2, {{channel("ScanAngle", FLOAT32), -1.5}});
    EXPECT_EQ(Mosaic::of(steps, real).rows(), (Rows{{1, 0, 0, 500}, {2, 0, 0, -250}}));
}

TEST(MosaicFilter, HasTheNewerMeaningIfAnySourceIsNewer)
{
    const std::pair<ChannelInfo, bool> cases[] = {
        {classFlags, true},
        {channel("ScannerChannel", UINT8), true},
        {channel("NearInfrared", UINT16), true},
        {angleSteps, true},
        {channel("ReturnNum", UINT8, 0, 4), true},
        {channel("NumReturns", UINT8, 0, 4), true},
        {channel("ReturnNum", UINT8, 0, 3), false},
        {channel("NumReturns", UINT8, 0, 3), false},
        {degrees, false},
        {channel("Red", UINT16), false},
    };
    for (const auto& [info, isNewer] : cases) {
        SCOPED_TRACE(std::string(info.getName()) + ' ' + std::to_string(info.getBits()));
        const auto older = oldPoint(1, 130, 14, 0.5), other = pointWith(2, {{info, 1}});
        for (const Mosaic& mosaic : {Mosaic::of(other, older), Mosaic::of(older, other)}) {
            ASSERT_EQ(mosaic.filter->hasChannel("ClassFlags"), isNewer);
            EXPECT_EQ(mosaic.filter->getChannel("ScanAngle")->getDataType(), isNewer ? SINT16 : SINT8);
            EXPECT_TRUE(!isNewer || info.isNamed("ClassFlags") ||
                        mosaic.filter->getChannel("ClassFlags")->getBits() == 4);
            if (isNewer)
                EXPECT_EQ(mosaic.rows({classId, classFlags, angleSteps}, fromTo(1, 1)),
                          (Rows{{1, 0, 0, 2, 4, 2333}}));
            else
                EXPECT_EQ(mosaic.rows({classId, degrees}, fromTo(1, 1)), (Rows{{1, 0, 0, 130, 14}}));
        }
    }
}

TEST(MosaicFilter, RefusesToMixClocksWithoutAWeek)
{
    const auto week = oldPoint(1, 2, 14, 0.5), newer = newPoint(2, 2, 0, 0, 5), none = pointsFrom(3, 1);
    const auto clocks = [](DataType type) {
        return MemoryPointSource::make(layoutXYZ({channel("GPSTime", type), adjusted}),
                                       {{4, 5, 6}, {0, 0, 0}, {0, 0, 0}, {7, 0, 8}, {0, 0, 9}});
    };
    const auto both = clocks(FLOAT64), single = clocks(FLOAT32);
    const auto empty = MemoryPointSource::make(newer->getPointInfo(), MemoryPointSource::Columns(7));
    EXPECT_EQ(errorOf(40007, [&] { Mosaic::of(none, newer, week); }),
              "the files hold different GPS times: 'source 1' adjusted standard time (GPSTime_Adjusted), "
              "'source 2' week time (GPSTime); give the GPS week to convert week time (-gpsWeek)");
    EXPECT_NE(errorOf(40007, [&] { Mosaic::of(both, week); }), "nothing thrown");
    EXPECT_NE(errorOf(40007, [&] { Mosaic::of(newer, both); }), "nothing thrown");
    EXPECT_EQ(Mosaic::of(both, none).rows().size(), 4u);
    EXPECT_EQ(Mosaic::of(week, empty).rows({weekTime}, Bounds::Huge()), (Rows{{1, 0, 0, 0.5}}));
    // A file with both clocks: one time per point.
    constexpr double origin = 1654 * 604800.0 - 1e9;
    const Mosaic mosaic(sourcesOf(both), 1654);
    EXPECT_EQ(mosaic.rows(), (Rows{{4, 0, 0, origin + 7}, {5, 0, 0, 0}, {6, 0, 0, 9}}));
    EXPECT_EQ(
        errorOf(40010, [&] { Mosaic(sourcesOf(single), 1654).rows(); }),
        "channel 'GPSTime' does not fit the joined layout; an index needs an update (vxindex -u) path = "
        "source 0");
}

TEST(MosaicFilter, HasTheRecordsThatAllSourcesShare)
{
    const auto a = pointsFrom(0, 3), b = pointsFrom(10, 3);
    const double box[] = {1, 2}, otherBox[] = {1, 3};
    for (const bool isA : {true, false}) {
        Metadata& records = (isA ? a : b)->metadata();
        for (const auto& [key, text] :
             {std::pair("Vendor", "a vendor"), {"PreCompressionPointCount", "3"}, {"Tile", isA ? "1" : "2"}})
            records.add(key, nullptr, METADATA_STRING, text, 0);
        records.add("LAS_BoundingBox", nullptr, METADATA_FLOAT64_ARRAY, box, 2);
        records.add("Blob", nullptr, isA ? METADATA_STRING : METADATA_BLOB, "x", 2);
        records.add("Shorter", nullptr, METADATA_FLOAT64_ARRAY, box, isA ? 2 : 1);
        records.add("Other", nullptr, METADATA_FLOAT64_ARRAY, isA ? box : otherBox, 2);
        records.add("Empty", nullptr, METADATA_BLOB, "", 0);
    }
    a->metadata().add("Only", nullptr, METADATA_STRING, "a", 0);
    Metadata shared;
    shared.add("Before", nullptr, METADATA_STRING, "stays", 0);
    Mosaic::of(a, b).filter->loadMetadata(shared, false);
    Strings keys;
    for (std::size_t i = 0; i < shared.getNumRecords(); ++i)
        keys.push_back(shared.getKey(i));
    EXPECT_EQ(keys, (Strings{"Before", "Vendor", "Empty"}));
}

TEST(MosaicFilter, LosesNoPointsOfSourcesWithoutUsableBounds)
{
    const auto empty = pointsFrom(0, 0), unknown = pointsFrom(5, 5), unbounded = pointsFrom(50, 5),
               known = pointsFrom(100, 5);
    Bounds box;
    box.x = {nan, nan};
    box.y = {0, 0};
    unknown->setBounds(box);
    unbounded->setBounds(Bounds::Huge());
    const auto mosaic = Mosaic::of(empty, unknown, unbounded, known);
    EXPECT_EQ(mosaic.rows().size(), 15u);
    EXPECT_EQ(mosaic.rows(fromTo(6, 7)), (Rows{{6, 0, 0}, {7, 0, 0}}));
    EXPECT_EQ(mosaic.set->takeRequests()[0], 0);
    EXPECT_EQ(Mosaic::of(unknown, known).filter->getBounds().x.max, 104);
    EXPECT_EQ(Mosaic({}).filter->getNumPoints(), 0);
    EXPECT_EQ(Mosaic::of(empty).rows(), Rows());
    EXPECT_EQ(Mosaic::of(empty).filter->getBounds().x.min, infinity);
}

TEST(MosaicFilter, CountsTheTextFilesThatItReadsForTheirBounds)
{
    const auto store = ByteStore::make("1 2 3\n4 5 6\n");
    const Scoped<TXTPointReader> text(TXTPointReader::create());
    text->init(store.get(), "xyz", 0, false);
    const auto mosaic = Mosaic::of(pointsFrom(0, 2), text);
    EXPECT_EQ(mosaic.filter->getNumPoints(), 4);
    EXPECT_EQ(mosaic.filter->getBounds().y.max, 5);
    EXPECT_EQ(mosaic.rows(fromTo(3, 9)), Rows());
    EXPECT_EQ(store->openCount(), 0);
}

TEST(MosaicFilter, StopsBetweenSources)
{
    const auto mosaic = Mosaic::of(pointsFrom(0, 2), pointsFrom(10, 2), pointsFrom(20, 2));
    for (int query = 0; query < 4; ++query) {
        ProgressLog log(query);
        const Scoped<PointIterator> iterator(
            mosaic.filter->createIterator(Bounds::Huge(), 1, layoutXYZ(), &log));
        PointData block;
        block.init(layoutXYZ(), 10);
        for (int source = 0; source < query && source < 3; ++source)
            EXPECT_EQ(iterator->getNextPoints(block), 2u);
        EXPECT_EQ(errorOf(40006, [&] { iterator->getNextPoints(block); }), "operation cancelled.");
    }
}

TEST(MosaicFilter, TakesADescriptionWithoutOpeningItsSources)
{
    // Of a tile that was replaced after its index was written.
    const Scoped<PointCloudInfo> info(PointCloudInfo::create());
    info->init(*oldPoint(1, 2, 14, 0.5));
    info->setNumPoints(1234);
    const auto set = SetOfSources::make(sourcesOf(newPoint(1, 2, 0, 0, 5)));
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    tree->insert(fromTo(0, 5), 0);
    // After sources with records, coordinate systems and warnings.
    const auto first = pointsFrom(0, 1);
    first->metadata().add("Key", nullptr, METADATA_STRING, "value", 0);
    const Scoped<MosaicFilter> mosaic = Mosaic::of(first, oldPoint(1, 2, 3, 4)).filter;
    ASSERT_EQ(mosaic->getWarnings().size(), 1u);
    mosaic->init(info.get(), tree.get(), set.get());
    EXPECT_TRUE(mosaic->getWarnings().empty() && mosaic->getCoordinateSystems().empty());
    EXPECT_EQ(mosaic->getNumPoints(), 1234);
    Metadata none;
    mosaic->loadMetadata(none, false);
    EXPECT_EQ(none.getNumRecords(), 0u);
    EXPECT_EQ(readRows(*mosaic, layoutXYZ(), fromTo(7, 9)).size(), 0u);
    EXPECT_EQ(set->takeRequests(), std::vector<int>{0});
    EXPECT_EQ(readRows(*mosaic, layoutXYZ(), fromTo(0, 9)).size(), 1u);
    for (const auto& [wanted, problem] : {std::pair(degrees, "ScanAngle"), std::pair(classId, "ClassFlags"),
                                          std::pair(weekTime, "GPSTime_Adjusted")})
        EXPECT_EQ(
            errorOf(40010, [&, one = wanted] { readRows(*mosaic, layoutXYZ({one})); }),
            std::string("channel '") + problem +
                "' does not fit the joined layout; an index needs an update (vxindex -u) path = source 0");
}

}} // namespace Quillmoran::Testing

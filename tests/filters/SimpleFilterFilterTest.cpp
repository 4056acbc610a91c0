#include <vxunpack/SimpleFilterFilter.h>

#include "support/SetOfSources.h"
#include "support/Test.h"
#include <vxunpack/HilbertOrder.h>
#include <vxunpack/QuantizeFilter.h>

namespace Quillmoran::Testing { namespace {

// Point i is (i, 0, 0) and has the value i % 100 in the channel "C" of the given type.
Scoped<MemoryPointSource> countingSource(DataType type, int count)
{
    Numbers x, zeros(static_cast<std::size_t>(count)), values;
    for (int i = 0; i < count; ++i) {
        x.push_back(i);
        values.push_back(i % 100);
    }
    return MemoryPointSource::make(layoutXYZ({channel("C", type)}), {x, zeros, zeros, values});
}

Scoped<SimpleFilterFilter> filterOf(PointSource& source, bool include, std::initializer_list<int> values)
{
    Scoped<SimpleFilterFilter> filter(SimpleFilterFilter::create());
    filter->init(&source, "C", include);
    for (const int value : values)
        filter->addValue(value);
    return filter;
}

// The x coordinates of the kept points.
Numbers passing(const PointSource& filter, const PointInfo& layout = layoutXYZ(), std::size_t blockPoints = 7)
{
    Numbers all;
    for (const auto& row : readRows(filter, layout, Bounds::Huge(), 1, blockPoints))
        all.push_back(row[0]);
    return all;
}

// Records that hold for the points of one file only are not passed on with others.
TEST(Filters, DropRecordsThatNoLongerHold)
{
    const auto source = countingSource(UINT8, 3);
    const char* const keys[] = {
        "LAS_BoundingBox", "PointRecordsByReturnCount", "copc::1", "copc::1000", "LAStools::30", "Owner::9",
        "PointOrder"};
    for (const char* key : keys)
        source->metadata().add(key, nullptr, METADATA_STRING, "value", 0);
    const auto kept = [](const PointSource& filter) {
        Metadata records;
        filter.loadMetadata(records, false);
        std::string text;
        for (std::size_t i = 0; i < records.getNumRecords(); ++i)
            text += records.getKey(i) + std::string(" ");
        return text;
    };
    EXPECT_EQ(kept(*filterOf(*source, true, {1})), "copc::1 copc::1000 LAStools::30 Owner::9 PointOrder ");
    const Numbers steps = {1, 1, 1};
    const Scoped<QuantizeFilter> rounded(QuantizeFilter::create());
    rounded->init(source.get(), steps.data());
    EXPECT_EQ(kept(*rounded), "copc::1 copc::1000 LAStools::30 Owner::9 PointOrder ");
    const Scoped<HilbertOrder> ordered(HilbertOrder::create());
    ordered->init(source.get());
    EXPECT_EQ(kept(*ordered), "LAS_BoundingBox PointRecordsByReturnCount Owner::9 PointOrder ");
}

TEST(SimpleFilterFilter, KeepsOrDropsTheValuesOfEveryIntegerType)
{
    for (const DataType type : {UINT8, SINT8, UINT16, SINT16, UINT32, SINT32}) {
        const auto source = countingSource(type, 200);
        EXPECT_EQ(passing(*filterOf(*source, true, {3, 98, 3})), (Numbers{3, 98, 103, 198})) << type;
        EXPECT_EQ(passing(*filterOf(*source, false, {3, 98})).size(), 196u) << type;
        EXPECT_EQ(passing(*filterOf(*source, true, {})).size(), 0u) << type;
        EXPECT_EQ(passing(*filterOf(*source, false, {})).size(), 200u) << type;
        // Values are converted to the type of the channel.
        EXPECT_EQ(passing(*filterOf(*source, true, {300, 45, -213})),
                  DataTypeUtils::getSize(type) == 1 ? (Numbers{43, 44, 45, 143, 144, 145})
                                                    : (Numbers{45, 145}));
    }
}

TEST(SimpleFilterFilter, ContinuesInTheMiddleOfABatch)
{
    // Three batches of the source; the second one has no kept point.
    const auto source = countingSource(SINT32, 40000);
    auto& samples = source->column("C");
    auto* values = static_cast<std::int32_t*>(samples.getData());
    for (int i = 16384; i < 32768; ++i)
        values[i] = -1;
    const auto filter = filterOf(*source, true, {5, 6, 7});
    const Numbers whole = passing(*filter, layoutXYZ(), 40000);
    EXPECT_EQ(whole.size(), (164u + 72u) * 3);
    EXPECT_EQ(passing(*filter, layoutXYZ(), 1), whole);
    EXPECT_EQ(passing(*filter, layoutXYZ(), 2), whole);
    EXPECT_EQ(passing(*filter, layoutXYZ({channel("C", SINT32)}), 7), whole);
    const auto some = readRows(*filter, layoutXYZ(), {{0, 499}, {0, 0}, {0, 0}}, 0.5);
    EXPECT_EQ(some, (std::vector<Numbers>{{6, 0, 0}, {106, 0, 0}, {206, 0, 0}, {306, 0, 0}, {406, 0, 0}}));
    // A full block from several batches, after one without capacity. The values are those at its creation.
    const Scoped<PointIterator> iterator(filter->createIterator(Bounds::Huge(), 1, layoutXYZ(), nullptr));
    filter->addValue(8);
    PointData block, none;
    block.init(layoutXYZ(), 700);
    none.init(layoutXYZ(), 0);
    EXPECT_EQ(iterator->getNextPoints(none), 0u);
    EXPECT_EQ(iterator->getNextPoints(block), 700u);
    EXPECT_EQ(block.getX()[699], whole[699]);
    EXPECT_EQ(iterator->getNextPoints(block), 8u);
    EXPECT_EQ(iterator->getNextPoints(block), 0u);
}

TEST(SimpleFilterFilter, RefusesChannelsThatItCannotTest)
{
    const auto source = countingSource(FLOAT32, 10);
    const Scoped<SimpleFilterFilter> filter(SimpleFilterFilter::create());
    EXPECT_EQ(errorOf(40007, [&] { filter->init(source.get(), "c", true); }),
              "the point source does not have channel: 'c'");
    for (const DataType type : {FLOAT32, FLOAT64, UINT64, SINT64}) {
        const auto other = countingSource(type, 10);
        EXPECT_EQ(errorOf(-1, [&] { passing(*filterOf(*other, true, {1})); }), "unsupported datatype");
    }
    const auto failing = countingSource(UINT8, 10);
    failing->failAt(5);
    EXPECT_EQ(errorOf(40000, [&] { passing(*filterOf(*failing, true, {1})); }), "test");
}

}} // namespace Quillmoran::Testing

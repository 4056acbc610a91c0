// What all sources that can be sampled promise: samples are the points of the file from a position on, and files
// that are packed with them are complete when the points between the samples differ.
#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include "support/ReadPoints.h"
#include "support/SetOfSources.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/QuantizeFilter.h>
#include <vxunpack/TXTPointReader.h>
#include <vxunpack/TXTPointWriter.h>

namespace Quillmoran::Testing { namespace {

class Sampling : public testing::Test
{
protected:
    static Scoped<MemoryPointSource> makeCloud(std::size_t count)
    {
        MemoryPointSource::Columns columns(5, std::vector<double>(count));
        for (std::size_t i = 0; i < count; ++i) {
            const auto number = static_cast<double>(i);
            const double samples[] = {static_cast<double>(i * 7919 % 10007) * 0.25, number * 0.25, 3,
                                      static_cast<double>(i % 200), 1000 + number * 0.125};
            for (std::size_t c = 0; c < columns.size(); ++c)
                columns[c][i] = samples[c];
        }
        const double scale[] = {0.25, 0.25, 0.25};
        const double offset[] = {0, 0, 0};
        const auto source = MemoryPointSource::make(
            layoutXYZ({channel("Intensity", UINT16), channel("GPSTime", FLOAT64)}), columns);
        source->setQuantization(scale, offset);
        return source;
    }

    Scoped<PointSource> writeLAS(PointSource& source, bool isCompressed, int version, const char* name)
    {
        const std::string path = directory / name;
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(&source, path.c_str(), version);
        writer->setWriteLAZ(isCompressed);
        writer->write(Bounds::Huge(), 1, source.getPointInfo(), nullptr);
        const Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init(path.c_str(), false);
        return Scoped<PointSource>::retained(reader.get());
    }
    // After two lines that are not part of the table.
    Scoped<PointSource> writeText(PointSource& source)
    {
        const std::string path = directory / "file.txt";
        const Scoped<TXTPointWriter> writer(TXTPointWriter::create());
        writer->init(&source, path.c_str(), source.getPointInfo());
        writer->write(Bounds::Huge(), 1, source.getPointInfo(), nullptr);
        writeFile(path, "a line\nand 2 3 4 5\n" + readFile(path));
        TextOptions options;
        options.layout = source.getPointInfo();
        options.skipLines = 2;
        options.strict = true;
        const Scoped<TXTPointReader> reader(TXTPointReader::create());
        reader->init(path.c_str(), options);
        return Scoped<PointSource>::retained(reader.get());
    }

    TemporaryDirectory directory;
};

Points readRest(PointIterator& iterator, const PointInfo& layout)
{
    PointData block;
    block.init(layout, 5000);
    Points points;
    points.channels.resize(layout.getNumChannels());
    while (const std::size_t count = iterator.getNextPoints(block)) {
        points.count += count;
        for (std::size_t i = 0; i < points.channels.size(); ++i) {
            const auto* const bytes = static_cast<const std::uint8_t*>(block.getChannel(i).getData());
            points.channels[i].insert(points.channels[i].end(), bytes,
                                      bytes +
                                          count * DataTypeUtils::getSize(block.getChannel(i).getDataType()));
        }
    }
    return points;
}

TEST_F(Sampling, DeliversThePointsFromAPositionOn)
{
    constexpr std::size_t count = 60001;
    const auto cloud = makeCloud(count);
    const Scoped<PointSource> plain = writeLAS(*cloud, false, 12, "file.las");
    const auto quantized = Scoped<QuantizeFilter>(QuantizeFilter::create());
    const double steps[] = {0.5, 0.5, 0.5};
    quantized->init(plain.get(), steps);
    // The second source has another format, so that its points are converted.
    const auto mosaic = Scoped<MosaicFilter>(MosaicFilter::create());
    const auto set = SetOfSources::make({plain, writeLAS(*makeCloud(40000), true, 14, "other.laz")});
    mosaic->init(set.get());
    struct Case
    {
        const char* name;
        Scoped<PointSource> source;
        std::vector<std::size_t> begins; // at the positions below
    };
    const double positions[] = {0, 0.3, 0.84, 1};
    const std::vector<std::size_t> any = {0, 18000, 50400, count};
    const Case cases[] = {
        {"LAS", plain, any},
        {"LAZ", writeLAS(*cloud, true, 12, "file.laz"), {0, 0, 50000, 50000}},
        {"layered LAZ", writeLAS(*cloud, true, 14, "layered.laz"), {0, 0, 50000, 50000}},
        {"text", writeText(*cloud), any},
        {"VX7", Scoped<PointSource>(openFile(packWith(*cloud)).detach()), any},
        {"quantized", Scoped<PointSource>::retained(quantized.get()), any},
        {"mosaic", Scoped<PointSource>::retained(mosaic.get()), {0, 30000, 60001, 60001}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        const Points all = readAll(*each.source, Bounds::Huge(), 1, 5000);
        for (std::size_t i = 0; i < std::size(positions); ++i) {
            const PointInfo& layout = each.source->getPointInfo();
            const Scoped<PointIterator> iterator(each.source->createSampleIterator(positions[i], layout));
            ASSERT_TRUE(iterator);
            const Points rest = readRest(*iterator, layout);
            ASSERT_LE(rest.count, all.count);
            const std::size_t begin = all.count - rest.count;
            EXPECT_NEAR(static_cast<double>(begin), static_cast<double>(each.begins[i]),
                        positions[i] == 0 ? 0 : 2500); // lines of text have different lengths
            for (std::size_t c = 0; c < layout.getNumChannels(); ++c) {
                const auto size = static_cast<std::ptrdiff_t>(rest.channels[c].size());
                EXPECT_TRUE(
                    std::equal(all.channels[c].end() - size, all.channels[c].end(), rest.channels[c].begin()))
                    << c;
            }
        }
    }
}

// A filter that does not say how to sample it.
struct Unsampled final : PointFilter
{};

TEST_F(Sampling, WritesTheFileOfTwoPassesWhenOtherPointsDiffer)
{
    constexpr std::size_t count = 140000;
    for (const bool differs : {false, true}) {
        const auto cloud = makeCloud(count);
        if (differs) // finer than the grid of all others
            static_cast<double*>(cloud->column("GPSTime").getData())[120000] += 0x1p-30;
        const std::pair<const char*, Scoped<PointSource>> sources[] = {
            {"LAS", writeLAS(*cloud, false, 12, "file.las")},
            {"LAZ", writeLAS(*cloud, true, 12, "file.laz")},
            {"layered LAZ", writeLAS(*cloud, true, 14, "layered.laz")},
            {"text", writeText(*cloud)},
        };
        for (const auto& [name, source] : sources) {
            SCOPED_TRACE(std::string(name) + (differs ? " differs" : ""));
            const auto store = ByteStore::make();
            const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
            writer->init(source.get(), store.get());
            writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr);
            EXPECT_EQ(writer->getRestart().empty(), !differs) << writer->getRestart();
            EXPECT_TRUE(readAll(*openFile(store->bytes())) == readAll(*source));
            if (!differs)
                continue;
            const Scoped<Unsampled> unsampled(new Unsampled);
            unsampled->init(source.get());
            EXPECT_TRUE(store->bytes() == packWith(*unsampled));
        }
    }
}

}} // namespace Quillmoran::Testing

// Encoding in one pass with plans from samples, and starting over when the points contradict them.
#include "encode/SourceEncoder.h"

#include "platform/Stream.h"
#include "support/ProgressLog.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/Test.h"

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran::Testing { namespace {

constexpr std::size_t numSampledPoints = 140000; // enough to be sampled

Scoped<MemoryPointSource> makeSampledCloud()
{
    Random random(2);
    MemoryPointSource::Columns columns(7, std::vector<double>(numSampledPoints));
    for (std::size_t i = 0; i < numSampledPoints; ++i) {
        const double samples[] = {500000 + static_cast<double>(random.between(0, 9999)) * 0.01,
                                  static_cast<double>(i) * 0.01,
                                  static_cast<double>(random.between(-9, 9)) * 0.25,
                                  static_cast<double>(random.below(200)),
                                  static_cast<double>(i / 500 * 3),
                                  static_cast<double>(i / 9 * 7),
                                  1e5 + static_cast<double>(i) * 0x1p-10};
        for (std::size_t c = 0; c < columns.size(); ++c)
            columns[c][i] = samples[c];
    }
    columns[4][numSampledPoints - 20000] = 65535; // not sampled
    auto source = MemoryPointSource::make(layoutXYZ({channel("Noise", UINT16), channel("Steps", UINT16),
                                                     channel("Index", SINT32), channel("Time", FLOAT64)}),
                                          columns);
    source->setBounds(Bounds::Huge());
    source->setSampled(true);
    return source;
}

// Does not count reading as work, since sources in memory do not report it.
struct Effortless final : PointFilter
{
    double getTotalWork(const Bounds&, double) const override { return 0; }
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override
    {
        return getSrc()->createSampleIterator(position, layout);
    }
};

struct Packed
{
    Bytes bytes;
    std::string restart;
    std::vector<VX7PointWriter::ChannelSummary> records;
};

Packed pack(PointSource& source, ProgressDelegate* delegate = nullptr, const EncodeOptions& options = {})
{
    const auto store = ByteStore::make();
    const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
    writer->init(&source, store.get());
    writer->setOptions(options);
    writer->write(Bounds::Huge(), 1.0, source.getPointInfo(), delegate);
    return {store->bytes(), writer->getRestart(), writer->getSummary()};
}

template <class T>
void setSample(MemoryPointSource& source, const char* channel, T value,
               std::size_t point = numSampledPoints - 9000)
{
    static_cast<T*>(source.column(channel).getData())[point] = value;
}

// A change of the points that are not sampled.
struct Contradiction
{
    const char* name;
    void (*change)(MemoryPointSource& source);
    const char* restart; // the beginning of its reason; empty: a range with a margin needs no other plan
};

constexpr const char* otherValues = "channel '";
const Contradiction contradictions[] = {
    {"None", [](MemoryPointSource&) {}, ""},
    {"Margin", [](MemoryPointSource& s) { setSample<std::uint16_t>(s, "Noise", 300); }, ""},
    {"Grid", [](MemoryPointSource& s) { setSample(s, "X", 500000.001); }, otherValues},
    {"GridOfTimes", [](MemoryPointSource& s) { setSample(s, "Time", 1e5 + 0x1p-12); }, otherValues},
    {"SignOfZero", [](MemoryPointSource& s) { setSample(s, "Z", -0.0); }, otherValues},
    {"NoNumber", [](MemoryPointSource& s) { setSample(s, "Z", nan); }, otherValues},
    {"KernelOfAGrid", [](MemoryPointSource& s) { setSample(s, "Z", 1e9); }, otherValues},
    {"KernelOfIntegers", [](MemoryPointSource& s) { setSample(s, "Index", INT32_MAX); }, otherValues},
    {"Coder", [](MemoryPointSource& s) { setSample<std::uint16_t>(s, "Noise", 40000); }, otherValues},
    {"SampledLastPoint", [](MemoryPointSource& s) { setSample(s, "X", 1e300, numSampledPoints - 1); }, ""},
    {"Count", [](MemoryPointSource& s) { s.setNumPoints(4 * numSampledPoints); }, "their number"},
};

class SourceEncoderPlan : public ::testing::TestWithParam<Contradiction>
{};

// After a contradiction the file is that of two passes.
TEST_P(SourceEncoderPlan, IsMadeAgainWhenTheLastPointsContradictIt)
{
    const auto source = makeSampledCloud();
    GetParam().change(*source);
    ProgressLog log;
    const Scoped<Effortless> effortless(new Effortless);
    effortless->init(source.get());
    const Packed once = pack(*effortless, &log);
    const std::string restart = GetParam().restart;
    EXPECT_EQ(once.restart.substr(0, restart.size()), restart);
    EXPECT_EQ(once.restart.empty(), restart.empty()) << once.restart;
    EXPECT_EQ(source->numQueries(), restart.empty() ? 1 : 2);
    EXPECT_TRUE(readAll(*openFile(once.bytes)) == readAll(*source));
    EXPECT_TRUE(source->getNumPoints() != numSampledPoints || std::fabs(log.last() - 1) < 1e-9) << log.last();
    source->setSampled(false);
    const Packed twice = pack(*source);
    EXPECT_TRUE(restart.empty() || once.bytes == twice.bytes);
    EXPECT_NEAR(static_cast<double>(once.bytes.size()), static_cast<double>(twice.bytes.size()),
                static_cast<double>(twice.bytes.size()) / 50);
}

INSTANTIATE_TEST_SUITE_P(Of, SourceEncoderPlan, ::testing::ValuesIn(contradictions),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SourceEncoder, NeedsSamplesOfAllPointsForOnePass)
{
    const auto source = makeSampledCloud();
    EncodeOptions smooth;
    smooth.all.smooth = true;
    EXPECT_TRUE(readAll(*openFile(packWith(*source, smooth))) == readAll(*source)); // kernels must be exact
    EXPECT_EQ(source->numQueries(), 3);
    packWith(*source, {}, {Bounds::Huge(), 0.5});
    packWith(*source, {}, {{{0, 1e6}, {0, 1e6}, {-1e6, 1e6}}});
    EXPECT_EQ(source->numQueries(), 7);
    // A required transform suits the points, but not the margins of samples.
    auto* const noise = static_cast<std::uint16_t*>(source->column("Noise").getData());
    std::transform(noise, noise + numSampledPoints, noise,
                   [](std::uint16_t sample) { return static_cast<std::uint16_t>(100 * sample); });
    EncodeOptions required;
    required.byChannel["Noise"].transform = 91;
    EXPECT_TRUE(readAll(*openFile(packWith(*source, required))) == readAll(*source));
    EXPECT_EQ(source->numQueries(), 10);
    // A block is kept in memory.
    const auto small = makeRandomCloud(*std::make_unique<Random>(1), 3000, 4);
    EXPECT_TRUE(readAll(*openFile(packWith(*small))) == readAll(*small));
    EXPECT_EQ(small->numQueries(), 2);
}

TEST(SourceEncoder, RestoresAnySampledPointsOnAnyNumberOfThreads)
{
    for (std::uint64_t seed = 0; seed < 8; ++seed) {
        SCOPED_TRACE("seed=" + std::to_string(seed));
        Random random(seed);
        const auto source = makeRandomCloud(random, 132000 + seed, 4);
        source->setSampled(true);
        const EncodeOptions options = seed % 2 == 0 ? EncodeOptions() : randomOptions(random);
        Bytes first;
        for (const int threads : {1, 3}) {
            const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                            static_cast<std::size_t>(threads));
            tbb::task_arena(threads).execute([&] {
                const Bytes bytes = packWith(*source, options);
                EXPECT_TRUE(first.empty() || bytes == first);
                first = bytes;
            });
        }
        EXPECT_TRUE(readAll(*openFile(first)) == readAll(*source));
    }
}

Bytes bandsOf(const ChannelEncoder& encoder)
{
    const auto store = ByteStore::make();
    StreamWriter stream;
    stream.init(store.get(), true, 4096);
    for (const SubbandWriter& band : encoder.getBands()) {
        band.headers().copyTo(stream);
        band.data().copyTo(stream);
    }
    stream.close(true);
    return store->bytes();
}

// Readers derive the kernel type from the samples. Plans from samples can have a wider one.
TEST(ChannelEncoder, WritesTheSameBandsWithAWiderKernel)
{
    for (const int transform : {10, 11, 13, 90, 91, 93})
        for (const int widestBits : {15, 31}) {
            if (transform >= 90 && widestBits != 15)
                continue; // the arithmetic coder has 15 bits
            const int bits = widestBits - TransformUtils::getHeadroom(static_cast<TransformType>(transform));
            Random random(4);
            const std::int64_t high = (std::int64_t{1} << bits) - 1;
            std::vector<double> samples(5000);
            for (double& sample : samples)
                sample = static_cast<double>(random.chance(0.7) ? high * random.between(0, 1)
                                                                : random.between(0, high));
            const auto source = MemoryPointSource::make(layoutXYZ({channel("T", SINT64)}),
                                                        {samples, samples, samples, samples});
            PointData points;
            points.init(source->getPointInfo(), samples.size());
            const Scoped<PointIterator> iterator(
                source->createIterator(Bounds::Huge(), 1, source->getPointInfo(), nullptr));
            iterator->getNextPoints(points);
            std::vector<Bytes> bands;
            for (const int planned : {bits, bits + 1, 40}) {
                SpillFile file;
                const KernelPlan plan{"T", SINT64, static_cast<TransformType>(transform), 256, planned, 0, 0};
                ChannelEncoder encoder(plan, 3, {5}, file);
                const auto encodePending = [&encoder] {
                    for (std::size_t i = 0; i < encoder.numPending(); ++i)
                        encoder.encodePending(i);
                    encoder.commit();
                };
                encoder.put(points, samples.size());
                encodePending();
                encoder.finish();
                encodePending();
                EXPECT_TRUE(encoder.isReadable());
                bands.push_back(bandsOf(encoder));
                EXPECT_TRUE(bands.back() == bands.front()) << transform << ' ' << planned;
            }
        }
}

}} // namespace Quillmoran::Testing

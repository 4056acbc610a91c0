// Many threads read one source at once, each with its own iterators: every result must be that of a single
// thread. Meant for thread sanitizers as well as for its own comparisons.
#include "support/LASClouds.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include "support/Test.h"
#include "support/TileFiles.h"
#include "utils/sets/ThreadLimit.h"
#include <vxunpack/HilbertOrder.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/PersistentPointSourceWriter.h>

#include <thread>

namespace Quillmoran::Testing { namespace {

const char* const longRun = std::getenv("VX_STRESS");
#ifdef __SANITIZE_THREAD__
constexpr std::size_t fewRounds = 3; // the sanitizer sees a race even if it does no harm
#else
constexpr std::size_t fewRounds = 12;
#endif
const std::size_t rounds = longRun ? std::strtoul(longRun, nullptr, 10) : fewRounds;

// Runs body(thread) on many threads, in one pool that has more threads than small machines have cores.
void onManyThreads(const std::function<void(std::size_t)>& body)
{
    // A thread sanitizer does not see how the scheduler synchronizes threads; there, loops run on plain threads
    // and need no pool.
#if !defined(__SANITIZE_THREAD__)
    ThreadLimit pool(8);
    const auto run = [&pool](const auto& work) { pool.execute(work); };
#else
    const auto run = [](const auto& work) { work(); };
#endif
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 16; ++i)
        threads.emplace_back([&, i] { EXPECT_NO_THROW(run([&] { body(i); })); });
    for (std::thread& thread : threads)
        thread.join();
}

// Returns the bytes of the points of a random query, some of which end early, then the text of any error.
std::string ask(const PointSource& source, std::size_t seed)
{
    Random random(seed);
    Bounds box = Bounds::Huge();
    if (random.chance(0.7)) {
        const Bounds all = source.getBounds();
        for (const auto axis : {&Bounds::x, &Bounds::y}) {
            const double size = (all.*axis).max - (all.*axis).min;
            (box.*axis).min = (all.*axis).min + size * random.real();
            (box.*axis).max = (box.*axis).min + size * random.real();
        }
    }
    const double fraction = random.chance(0.5) ? random.real() : 1;
    PointInfo layout;
    for (std::size_t i = 0; i < source.getNumChannels(); ++i)
        if (i < 3 || random.chance(0.6))
            layout.append(source.getChannel(i));
    PointData block;
    block.init(layout, random.chance(0.1) ? 1 + random.below(5) : 50 + random.below(3000));
    const std::size_t numBlocks = random.chance(0.3) ? random.below(4) : SIZE_MAX;
    std::string answer = source.getWKT() ? source.getWKT() : "none";
    answer += failureOf([&] {
        const Scoped<PointIterator> iterator(source.createIterator(box, fraction, layout, nullptr));
        for (std::size_t n = 0; n < numBlocks; ++n) {
            const std::size_t count = iterator->getNextPoints(block);
            if (count == 0)
                break;
            for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
                const ChannelData& channel = block.getChannel(i);
                answer.append(static_cast<const char*>(channel.getData()),
                              count * DataTypeUtils::getSize(channel.getDataType()));
            }
        }
        Metadata metadata;
        source.loadMetadata(metadata, false);
        source.getTotalWork(box, fraction);
    });
    return answer;
}

// Returns the answers of a single thread to a source that is opened for it.
std::vector<std::string> expectSameAnswers(const std::function<Scoped<PointSource>()>& open)
{
    const Scoped<PointSource> calm = open(), busy = open();
    std::vector<std::string> answers;
    for (std::size_t seed = 0; seed < 25; ++seed)
        answers.push_back(ask(*calm, seed));
    onManyThreads([&](std::size_t thread) {
        Random choice(thread);
        for (std::size_t n = rounds; n > 0; --n) {
            const std::size_t seed = choice.below(answers.size());
            EXPECT_TRUE(ask(*busy, seed) == answers[seed]) << "query " << seed;
        }
    });
    return answers;
}

Bytes buildSurvey(std::uint8_t indexVersion)
{
    const SampleCloud cloud = SampleCloud::make(8000, indexVersion);
    FilePlan plan = cloud.toFile();
    cloud.addIndex(plan, indexVersion, 100);
    return buildFile(plan);
}

Scoped<PointSource> openSurvey(const Bytes& bytes)
{
    return Scoped<PointSource>(openFile(bytes).detach());
}

// Of all points, or of those sorted on first use.
TEST(Stress, IteratorsOfOneCompressedFile)
{
    for (const std::uint8_t indexVersion : std::initializer_list<std::uint8_t>{1, 2})
        expectSameAnswers([&] { return openSurvey(buildSurvey(indexVersion)); });
    expectSameAnswers([] {
        Scoped<HilbertOrder> order(HilbertOrder::create());
        order->init(openSurvey(buildSurvey(2)).get());
        return Scoped<PointSource>(order.detach());
    });
}

// Some queries read broken subblocks, in different channels and places.
TEST(Stress, IteratorsOfADamagedFile)
{
    Bytes bytes = buildSurvey(2);
    Random random(3);
    for (std::size_t at = bytes.size() / 2; at < bytes.size() - 2000; at += 1 + random.below(3000))
        bytes[at] ^= 0xFF;
    std::size_t failing = 0;
    for (const std::string& answer : expectSameAnswers([&] { return openSurvey(bytes); }))
        failing += !answer.ends_with("no error");
    EXPECT_GT(failing, 0u);
    EXPECT_LT(failing, 25u);
}

Scoped<PointSource> openByName(const std::string& path)
{
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->addFile(path.c_str());
    return Scoped<PointSource>(files->createPointSource(0));
}

TEST(Stress, IteratorsOfOneLASFile)
{
    const TemporaryDirectory directory;
    const std::string plain = directory / "points.las", compressed = directory / "points.laz";
    writeFile(plain, randomLASFile(7, 4, 4000, 1).build());
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    const Scoped<PointSource> source = openByName(plain);
    writer->init(source.get(), compressed.c_str(), 14);
    writer->setWriteLAZ(true);
    writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr);
    for (const std::string& path : {plain, compressed})
        expectSameAnswers([&] { return openByName(path); });
}

TEST(Stress, IteratorsOfManyTiles)
{
    const TemporaryDirectory directory;
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    const Scoped<PersistentPointSourceWriter> index(PersistentPointSourceWriter::create());
    index->init(opener.get());
    for (int i = 0; i < 30; ++i) {
        const std::string tile = directory / (std::to_string(i) + ".vxl");
        writeFile(tile, buildTile(i % 6 * 10, i / 6 * 10, 200));
        index->add(tile.c_str());
    }
    index->setOverview((directory / "7.vxl").c_str(), 0.1);
    index->write((directory / "tiles.index").c_str());
    expectSameAnswers([&] { return openByName(directory / "tiles.index"); });
}

// Writers share only their source; each packs all of it, while others read it.
TEST(Stress, WritersAtOnce)
{
    Random random(5);
    const auto cloud = makeRandomCloud(random, 3000, 6);
    const Bytes once = packWith(*cloud);
    const auto reader = openFile(once);
    const Bytes twice = packWith(*reader);
    onManyThreads([&](std::size_t thread) {
        for (std::size_t n = (rounds + 5) / 6; n > 0; --n)
            EXPECT_TRUE(thread % 2 == 0 ? packWith(*cloud) == once : packWith(*reader) == twice);
    });
}

}} // namespace Quillmoran::Testing

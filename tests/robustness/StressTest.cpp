// Many threads read one source at once, each with its own iterators: every result must be that of a single
// thread. Meant for thread sanitizers as well as for its own comparisons.
#include "support/ByteStore.h"
#include "support/LASClouds.h"
#include "support/MemoryPointSource.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include "support/TileFiles.h"
#include "utils/sets/ThreadLimit.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/PersistentPointSourceWriter.h>
#include <vxunpack/VX7PointReader.h>
#include <vxunpack/VX7PointWriter.h>

#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace Quillmoran {
namespace {

using Testing::Bytes;
using Testing::ByteStore;
using Testing::Random;
using Testing::SampleCloud;
using Testing::TemporaryDirectory;

constexpr std::size_t numThreads = 16;

std::size_t rounds()
{
    const char* wanted = std::getenv("VX_STRESS");
    return wanted ? std::strtoul(wanted, nullptr, 10) : 12;
}

// Runs body(thread) on many threads, in one pool that has more threads than small machines have cores. Returns
// the text of an exception of any of them.
template <class Body>
std::string onManyThreads(const Body& body)
{
    std::mutex mutex;
    std::string failures;
    // A thread sanitizer does not see how the scheduler synchronizes threads; there, loops run on plain threads
    // and need no pool.
#if !defined(__SANITIZE_THREAD__)
    ThreadLimit pool(8);
    const auto run = [&pool](const auto& work) { pool.execute(work); };
#else
    const auto run = [](const auto& work) { work(); };
#endif
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < numThreads; ++i)
        threads.emplace_back([&, i] {
            try {
                run([&] { body(i); });
            } catch (const std::exception& error) {
                const std::lock_guard<std::mutex> lock(mutex);
                failures += error.what() + std::string("; ");
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    return failures;
}

struct Query
{
    Bounds box = Bounds::Huge();
    double fraction = 1;
    PointInfo layout;
    std::size_t blockSize = 100;
    std::size_t numBlocks = SIZE_MAX; // then the iterator is abandoned

    Query(const PointSource& source, Random& random)
    {
        if (random.chance(0.7)) {
            const Bounds all = source.getBounds();
            for (const auto axis : {&Bounds::x, &Bounds::y}) {
                const double size = (all.*axis).max - (all.*axis).min;
                (box.*axis).min = (all.*axis).min + size * random.real();
                (box.*axis).max = (box.*axis).min + size * random.real();
            }
        }
        if (random.chance(0.5))
            fraction = random.real();
        for (std::size_t i = 0; i < source.getNumChannels(); ++i)
            if (i < 3 || random.chance(0.6))
                layout.append(source.getChannel(i));
        blockSize = random.below(10) == 0 ? 1 + random.below(5) : 50 + random.below(3000);
        if (random.chance(0.3))
            numBlocks = random.below(4);
    }

    // The bytes of all points, then the text of the error, if any.
    std::string ask(const PointSource& source) const
    {
        std::string answer;
        try {
            const Scoped<PointIterator> iterator(source.createIterator(box, fraction, layout, nullptr));
            PointData block;
            block.init(layout, blockSize);
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
        } catch (const Error& error) {
            answer += std::to_string(error.error()) + error.what();
        }
        return answer;
    }
};

// `calm` and `busy` are the same source, opened twice.
void expectSameAnswers(const PointSource& calm, const PointSource& busy)
{
    Random random(7);
    std::vector<Query> queries;
    std::vector<std::string> answers;
    for (int i = 0; i < 25; ++i) {
        queries.emplace_back(calm, random);
        answers.push_back(queries.back().ask(calm));
    }
    const std::string wkt = calm.getWKT() ? calm.getWKT() : "none";
    EXPECT_EQ(onManyThreads([&](std::size_t thread) {
                  Random choice(thread);
                  for (std::size_t n = rounds(); n > 0; --n) {
                      const std::size_t i = choice.below(queries.size());
                      if (queries[i].ask(busy) != answers[i])
                          QM_THROW(ErrorCode::General, "query %zu differs", i);
                      if ((busy.getWKT() ? busy.getWKT() : "none") != wkt)
                          QM_THROW(ErrorCode::General, "the coordinate system differs");
                      Metadata metadata;
                      busy.loadMetadata(metadata, false);
                      busy.getTotalWork(queries[i].box, queries[i].fraction);
                  }
              }),
              "");
}

Bytes buildSurvey(std::uint8_t indexVersion)
{
    const SampleCloud cloud = SampleCloud::make(8000, indexVersion);
    Testing::FilePlan plan = cloud.toFile();
    cloud.addIndex(plan, indexVersion, 100);
    return buildFile(plan);
}

TEST(Stress, IteratorsOfOneCompressedFile)
{
    for (const std::uint8_t indexVersion : std::initializer_list<std::uint8_t>{1, 2}) {
        const Bytes bytes = buildSurvey(indexVersion);
        expectSameAnswers(*Testing::openFile(bytes), *Testing::openFile(bytes));
    }
}

// Some queries read broken subblocks, in different channels and places.
TEST(Stress, IteratorsOfADamagedFile)
{
    Bytes bytes = buildSurvey(2);
    Random random(3);
    for (std::size_t at = bytes.size() / 2; at < bytes.size() - 2000; at += 1 + random.below(3000))
        bytes[at] ^= 0xFF;
    const auto reader = Testing::openFile(bytes);
    std::size_t failing = 0;
    for (int i = 0; i < 25; ++i)
        failing += Query(*reader, random).ask(*reader).find("40") != std::string::npos;
    EXPECT_GT(failing, 0u);
    expectSameAnswers(*reader, *Testing::openFile(bytes));
}

TEST(Stress, IteratorsOfOneLASFile)
{
    const TemporaryDirectory directory;
    const auto open = [&](const char* name) {
        Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init((directory / name).c_str(), false);
        return reader;
    };
    Testing::writeFile(directory / "points.las", Testing::randomLASFile(7, 4, 4000, 1).build());
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    writer->init(open("points.las").get(), (directory / "points.laz").c_str(), 14);
    writer->setWriteLAZ(true);
    writer->write(Bounds::Huge(), 1, open("points.las")->getPointInfo(), nullptr);
    for (const char* name : {"points.las", "points.laz"})
        expectSameAnswers(*open(name), *open(name));
}

TEST(Stress, IteratorsOfManyTiles)
{
    const TemporaryDirectory directory;
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    const Scoped<PersistentPointSourceWriter> index(PersistentPointSourceWriter::create());
    index->init(opener.get());
    for (int i = 0; i < 30; ++i) {
        const std::string tile = directory / (std::to_string(i) + ".vxl");
        Testing::writeFile(tile, Testing::buildTile(i % 6 * 10, i / 6 * 10, 200));
        index->add(tile.c_str());
    }
    Testing::writeFile(directory / "overview.vxl", Testing::buildTile(0, 0, 100));
    index->setOverview((directory / "overview.vxl").c_str(), 0.1);
    const std::string path = directory / "tiles.index";
    index->write(path.c_str());
    const auto open = [&] {
        const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
        files->addFile(path.c_str());
        return Scoped<PointSource>(files->createPointSource(0));
    };
    expectSameAnswers(*open(), *open());
}

// Writers share only their source; each packs all of it, while others read it.
TEST(Stress, WritersAtOnce)
{
    Random random(5);
    const auto cloud = Testing::makeRandomCloud(random, 3000, 6);
    const auto pack = [&](const PointSource& from) {
        const Scoped<ByteStore> store(ByteStore::create());
        const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
        writer->init(const_cast<PointSource*>(&from), store.get());
        writer->write(Bounds::Huge(), 1, from.getPointInfo(), nullptr);
        return store->bytes();
    };
    const Bytes once = pack(*cloud);
    const auto reader = Testing::openFile(once);
    const Bytes twice = pack(*reader);
    EXPECT_EQ(onManyThreads([&](std::size_t thread) {
                  for (std::size_t n = (rounds() + 5) / 6; n > 0; --n) {
                      if (thread % 2 == 0 ? pack(*cloud) != once : pack(*reader) != twice)
                          QM_THROW(ErrorCode::General, "the file differs");
                  }
              }),
              "");
}

} // namespace
} // namespace Quillmoran

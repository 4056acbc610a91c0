// Queries of a remote file: their points are those of a local one, and what they read was announced.
#include "common/container/BandTableFormat.h"
#include "common/container/Digest.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// Counts the bytes that are read without having been announced. The first bytes come with the size of a file.
class RemoteStore final : public IO
{
public:
    explicit RemoteStore(Bytes bytes) : m_bytes(std::move(bytes)), m_isKnown(m_bytes.size())
    {
        std::fill_n(m_isKnown.begin(), std::min<std::size_t>(m_bytes.size(), 64 << 10), true);
    }

    void open() override {}
    void close() override {}
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override
    {
        const std::lock_guard lock(m_mutex);
        if (offset < 0 || offset >= size())
            return 0;
        // As a cache has them: known bytes are not continued by unknown ones.
        const auto begin = static_cast<std::size_t>(offset);
        std::size_t end = begin;
        while (end < m_bytes.size() && end - begin < count && m_isKnown[end] == m_isKnown[begin])
            ++end;
        numMissed += m_isKnown[begin] ? 0 : end - begin;
        std::memcpy(buffer, m_bytes.data() + begin, end - begin);
        return end - begin;
    }
    std::size_t pwrite(std::int64_t, const void*, std::size_t) const override { return 0; }
    std::int64_t size() const override { return static_cast<std::int64_t>(m_bytes.size()); }
    void truncate(std::int64_t) override {}
    void unlink() override {}
    bool isRemote() const noexcept override { return true; }
    void willRead(std::span<const Range> ranges) const override
    {
        const std::lock_guard lock(m_mutex);
        std::size_t numNew = 0;
        for (const Range& range : ranges)
            for (std::int64_t i = range.offset; i < std::min(range.offset + range.length, size()); ++i) {
                numNew += !m_isKnown[static_cast<std::size_t>(i)];
                m_isKnown[static_cast<std::size_t>(i)] = true;
            }
        numAnnounced += numNew;
        numRequests += numNew != 0;
    }

    mutable std::size_t numMissed = 0, numAnnounced = 0, numRequests = 0;

private:
    const Bytes m_bytes;
    mutable std::mutex m_mutex;
    mutable std::vector<bool> m_isKnown;
};

struct RemoteFile
{
    explicit RemoteFile(const Bytes& bytes) : store(new RemoteStore(bytes)), reader(VX7PointReader::create())
    {
        reader->init(store.get());
    }

    Scoped<RemoteStore> store;
    Scoped<VX7PointReader> reader;
};

// Lines of a scanner, so that a box is in many places of the file, as noisy as to be larger than 256 KiB.
Bytes makeSurvey(EncodeOptions options)
{
    constexpr std::size_t count = 60000, lineLength = 2000;
    Random random(11);
    MemoryPointSource::Columns columns(5);
    for (std::size_t i = 0; i < count; ++i) {
        columns[0].push_back(static_cast<double>(i % lineLength) * 0.5 + random.real() * 0.4);
        columns[1].push_back(static_cast<double>(i / lineLength) * 7 + random.real());
        columns[2].push_back(random.real() * 100);
        columns[3].push_back(static_cast<double>(random.below(4000)));
        columns[4].push_back(static_cast<double>(i / 5000)); // zeros and runs of them
    }
    const auto source =
        MemoryPointSource::make(layoutXYZ({channel("I", UINT16), channel("C", UINT8)}), columns);
    return packWith(*source, options);
}

const std::pair<Bounds, double> queries[] = {
    {Bounds::Huge(), 1},
    {Bounds::Huge(), 1.0 / 64},
    {{{100, 190}, {20, 90}, {-infinity, infinity}}, 1},
    {{{900, 1e9}, {-1e9, 30}, {0, 60}}, 0.3},
    {{{-5, 1}, {200, 203}, {0, 100}}, 1},
};

TEST(ReadPlan, AnnouncesWhatTheDecoderReads)
{
    EncodeOptions options;
    options.all.subblockSize = 64;
    options.numLevels = 9;
    options.pointsPerEntry = 50;
    const Bytes file = makeSurvey(options);
    ASSERT_GT(file.size(), std::size_t{256} << 10);
    const auto local = openFile(file);
    {
        const RemoteFile remote(file);
        EXPECT_EQ(remote.store->numMissed, 0u);
        EXPECT_EQ(remote.store->numRequests, 1u) << "the end of the file, with the table of the bands";
    }
    for (const auto& [box, fraction] : queries) {
        const RemoteFile remote(file);
        EXPECT_EQ(readAll(*remote.reader, box, fraction), readAll(*local, box, fraction));
        EXPECT_EQ(remote.store->numMissed, 0u) << box.x.min << ' ' << fraction;
        EXPECT_LE(remote.store->numRequests, 4u);
        const bool isSmall = fraction < 0.1 || (box != Bounds::Huge() && box.x.max < 10);
        EXPECT_LT(remote.store->numAnnounced, isSmall ? file.size() / 4 : file.size());
    }
    // A sample is expected to be small. If it is not, there are further steps.
    const RemoteFile remote(file);
    const PointInfo layout = local->getPointInfo();
    const Scoped<PointIterator> sample(remote.reader->createSampleIterator(0.25, layout));
    PointData block;
    block.init(layout, 100);
    ASSERT_EQ(sample->getNextPoints(block), 100u);
    EXPECT_LT(remote.store->numAnnounced, file.size() * 3 / 5);
    std::size_t count = 100;
    while (const std::size_t got = sample->getNextPoints(block))
        count += got;
    EXPECT_EQ(count, 45000u);
    EXPECT_EQ(remote.store->numMissed, 0u);
}

TEST(ReadPlan, ChangesNoPointsOfFilesOfAnyKind)
{
    for (std::uint64_t seed = 0; seed < 30; ++seed) {
        Random random(seed);
        const Bytes file = seed < 2 ? makeSurvey(randomOptions(random))
                                    : packWith(*makeRandomCloud(random, seed * 40, 6), randomOptions(random));
        const auto local = openFile(file);
        Bounds part = local->getBounds();
        part.x.max = (part.x.min + part.x.max) / 2;
        for (const auto& [box, fraction] :
             {std::pair(Bounds::Huge(), 1.0), {Bounds::Huge(), 0.1}, {part, 1.0}}) {
            const RemoteFile remote(file);
            EXPECT_EQ(readAll(*remote.reader, box, fraction), readAll(*local, box, fraction)) << seed;
        }
    }
}

TEST(ReadPlan, DoesNotDependOnASoundTable)
{
    using namespace BandTableFormat;
    const Bytes file = makeSurvey({});
    const Points expected = readAll(*openFile(file), Bounds::Huge(), 1.0 / 64);
    std::size_t tableSize = 0;
    for (std::size_t i = file.size() - endBytes; i < file.size() - 4; ++i)
        tableSize = tableSize << 8 | file[i];
    const std::size_t table = file.size() - tableSize;
    for (std::size_t at = table - 12; at < file.size(); at += 29) {
        Bytes damaged = file;
        damaged[at] ^= 0x10;
        const RemoteFile remote(damaged);
        EXPECT_EQ(readAll(*remote.reader, Bounds::Huge(), 1.0 / 64), expected) << at - table;
    }
    // A table with a good digest, of other bands: the coarsest bands of two channels are swapped.
    const std::size_t numBands = file[table + 4] + std::size_t{1};
    Bytes other = file;
    std::swap_ranges(other.begin() + static_cast<std::ptrdiff_t>(table + headBytes),
                     other.begin() + static_cast<std::ptrdiff_t>(table + headBytes + sizesBytes),
                     other.begin() +
                         static_cast<std::ptrdiff_t>(table + headBytes + 2 * numBands * sizesBytes));
    ASSERT_NE(other, file);
    Digest digest;
    digest.add(&other[table], tableSize - endBytes - digestBytes);
    storeBigEndian(&other[other.size() - endBytes - digestBytes], digest.get());
    EXPECT_THROW(readAll(*RemoteFile(other).reader), Error);
    EXPECT_TRUE(openFile(file)->getDecoderInfo().hasGoodBandTable());
    EXPECT_FALSE(openFile(other)->getDecoderInfo().hasGoodBandTable());
}

}} // namespace Quillmoran::Testing

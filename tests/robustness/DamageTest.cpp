// Files of every kind, damaged in many ways: reading them gives an Error or points, never a crash, in limited
// memory and time. If a test crashes, the file that caused it is left in its temporary directory.
//
// Ordinary runs skip some places of files that are slow to open, and sanitizers, being slow themselves, five
// of six. VX_DAMAGES skips none, and sets the number of random changes of each file.
#include "support/BitFlips.h"
#include "support/FuzzTarget.h"
#include "support/Mutator.h"
#include "support/RandomCloud.h"
#include "support/SampleFiles.h"
#include "support/Test.h"
#if HAS_PDAL
#include "pdal/PDALFormats.h"
#include "support/ReadPoints.h"
#include "support/TileFiles.h"
#endif

namespace Quillmoran::Testing {

void PrintTo(const SampleFile& file, std::ostream* out)
{
    *out << file.target << ' ' << file.name;
}

namespace {

std::vector<SampleFile> allFiles()
{
    std::vector<SampleFile> files(sampleFiles().begin(), sampleFiles().end());
#if HAS_PDAL
    const auto makeBPF = [] {
        const TemporaryDirectory directory;
        const auto tile = openFile(buildTile(0, 0, 50));
        const Scoped<PointWriter> writer(createPDALPointWriter(tile.get(), (directory / "made.bpf").c_str()));
        writer->write(Bounds::Huge(), 1, tile->getPointInfo(), nullptr);
        const std::string bytes = readFile(directory / "made.bpf");
        return Bytes(bytes.begin(), bytes.end());
    };
    files.push_back({"bpf", "points", makeBPF});
#endif
    return files;
}

bool handles(const std::string& target, [[maybe_unused]] const std::string& path, const Bytes& bytes)
{
#if HAS_PDAL
    if (target == "bpf") // it is not fuzzed: PDAL cannot be built with the fuzzers' sanitizers
        return Fuzz::succeeds([&] {
            const Scoped<PointReader> source(createPDALPointReader(path.c_str()));
            Fuzz::describe(*source);
            Fuzz::readPoints(*source, Bounds::Huge(), 1, source->getPointInfo());
            Fuzz::readPoints(*source, Fuzz::partOf(source->getBounds()), 0.5, source->getPointInfo());
        });
#endif
    return Fuzz::handlesInput(target, bytes);
}

#ifdef VX_SANITIZED
constexpr int slowdown = 6;
#else
constexpr int slowdown = 1;
#endif

const char* const longRun = std::getenv("VX_DAMAGES");

class Damage : public testing::TestWithParam<SampleFile>
{
protected:
    void SetUp() override { ASSERT_TRUE(attempt(whole, "nothing")); }
    void TearDown() override
    {
        std::printf("%d files of %zu bytes, %d refused\n", m_files, whole.size(), m_refused);
    }

    // Returns whether the file can be read.
    bool attempt(const Bytes& bytes, const std::string& what)
    {
        const std::string path =
            Fuzz::storeInput(bytes, (GetParam().name + std::string(".") + GetParam().target).c_str());
        ++m_files;
        try {
            const bool isGood = handles(GetParam().target, path, bytes);
            m_refused += !isGood;
            return isGood;
        } catch (const std::exception& fault) {
            ADD_FAILURE() << what << ": " << fault.what();
            return false;
        }
    }

    const Bytes whole = GetParam().make();
    Random random{whole.size()};
    const std::uint64_t stride = longRun ? 1 : static_cast<std::uint64_t>(GetParam().slowness * slowdown);

private:
    int m_files = 0;
    int m_refused = 0;
};

TEST_P(Damage, CutAtEveryLength)
{
    for (std::size_t size = 0; size < whole.size(); ++size)
        attempt({whole.data(), whole.data() + size}, "cut at " + std::to_string(size));
}

TEST_P(Damage, WrongBytes)
{
    for (std::size_t at = 0; at < whole.size(); ++at) {
        // Values that are special for lengths, counts and codes; near the beginning, where headers are, also
        // every bit.
        std::vector<std::uint64_t> values = {0, 1, 0x7F, 0x80, 0xFF, random.below(256)};
        values = {values[random.below(values.size())]};
        for (int bit = 0; bit < 8 && at < 100; ++bit)
            values.push_back(whole[at] ^ 1u << bit);
        for (const std::uint64_t value : values) {
            if (random.below(stride) != 0)
                continue;
            Bytes bytes = whole;
            bytes[at] = static_cast<std::uint8_t>(value);
            attempt(bytes, "byte " + std::to_string(at) + " is " + std::to_string(value));
        }
    }
}

TEST_P(Damage, RandomChanges)
{
    const std::uint64_t count = longRun ? std::strtoul(longRun, nullptr, 10) : 1000 / stride;
    for (std::uint64_t i = 0; i < count; ++i)
        attempt(Mutator(i).mutate(whole), "change " + std::to_string(i));
}

// The clouds have channels of all types, coded in all ways.
TEST(Digests, ReportEveryBitThatChangesAPoint)
{
    for (const std::uint64_t seed : {1, 2, 3}) {
        Random random(seed);
        const Bytes file = packWith(*makeRandomCloud(random, 60, 5), randomOptions(random));
        std::vector<std::size_t> bits;
        for (std::size_t bit = 0; bit < 8 * file.size(); bit += slowdown)
            bits.push_back(bit);
        EXPECT_GT(flipBits(file, bits), bits.size() / 10);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Damage, testing::ValuesIn(allFiles()), [](const auto& test) {
    return test.param.target + std::string("_") + test.param.name;
});

} // namespace
} // namespace Quillmoran::Testing

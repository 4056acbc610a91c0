// Files of every kind, damaged in many ways: reading them gives an Error or points, never a crash. If a test
// crashes, the file that caused it is left in its temporary directory.
//
// Ordinary runs skip some places of files that are slow to open. VX_DAMAGES skips none, and sets the number of
// trials of each kind of random damage.
#include "robustness/DamagedKinds.h"
#include "support/Random.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::DamagedKind;
using Testing::Random;
using FileBytes = DamagedKind::FileBytes;

const char* const longRun = std::getenv("VX_DAMAGES");

class Damage : public testing::TestWithParam<std::size_t>
{
protected:
    void SetUp() override
    {
        whole = kind.make(directory);
        ASSERT_EQ(attempt(whole, "nothing"), "points");
    }
    void TearDown() override
    {
        RecordProperty("files", m_files);
        std::printf("%s: %d files of %zu bytes, %d refused\n", kind.fileName, m_files, whole.size(),
                    m_refused);
    }

    std::string attempt(const FileBytes& bytes, const std::string& what)
    {
        const std::string path = directory / kind.fileName;
        // A new file each time: some file systems write a file that replaces another to disk at once.
        std::filesystem::remove(path);
        Testing::writeFile(path, bytes);
        ++m_files;
        try {
            kind.read(path);
        } catch (const Error&) {
            ++m_refused;
            return "error";
        } catch (const std::exception& other) {
            ADD_FAILURE() << kind.fileName << ", " << what << ": " << other.what();
            return "failure";
        }
        return "points";
    }

    std::size_t anywhere() { return random.below(whole.size()); }
    bool isLeftOut() { return random.below(stride) != 0; }

    const DamagedKind& kind = Testing::damagedKinds()[GetParam()];
    Testing::TemporaryDirectory directory;
    FileBytes whole;
    Random random{GetParam()};
    // One in how many places is damaged, and the number of trials of random damage.
#if defined(__SANITIZE_THREAD__)
    static constexpr std::size_t thinning = 16; // finds little that concerns threads
#else
    static constexpr std::size_t thinning = 1;
#endif
    const std::size_t stride = longRun ? 1 : kind.slowness * thinning;
    const std::size_t count = longRun ? std::strtoul(longRun, nullptr, 10) : 100 / stride + 1;

private:
    int m_files = 0;
    int m_refused = 0;
};

FileBytes::difference_type signedOf(std::size_t size)
{
    return static_cast<FileBytes::difference_type>(size);
}

FileBytes slice(const FileBytes& bytes, std::size_t begin, std::size_t end)
{
    return {bytes.begin() + signedOf(begin), bytes.begin() + signedOf(end)};
}

void append(FileBytes& to, const FileBytes& bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

TEST_P(Damage, CutAtEveryLength)
{
    for (std::size_t size = 0; size < whole.size(); size += thinning)
        attempt(slice(whole, 0, size), "cut at " + std::to_string(size));
}

// Headers are at the beginning of a file.
TEST_P(Damage, SingleBits)
{
    const std::size_t headerBytes = std::min<std::size_t>(whole.size(), 100);
    for (std::size_t i = 0; i < 8 * headerBytes + 2 * count; ++i) {
        if (i < 8 * headerBytes && isLeftOut())
            continue;
        const std::size_t bit = i < 8 * headerBytes ? i : random.below(8 * whole.size());
        FileBytes bytes = whole;
        bytes[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
        attempt(bytes, "bit " + std::to_string(bit));
    }
}

TEST_P(Damage, WrongBytes)
{
    for (std::size_t at = 0; at < whole.size(); ++at) {
        if (isLeftOut())
            continue;
        // Values that are special for lengths, counts and codes, in turn.
        const int values[] = {0, 1, 0x7F, 0x80, 0xFF, static_cast<int>(random.below(256))};
        FileBytes bytes = whole;
        bytes[at] = static_cast<std::uint8_t>(values[random.below(std::size(values))]);
        attempt(bytes, "byte " + std::to_string(at));
    }
}

TEST_P(Damage, ExtremeFields)
{
    const auto size = static_cast<std::uint64_t>(whole.size());
    for (std::size_t i = 0; i < 4 * count; ++i) {
        const std::uint64_t values[] = {0,
                                        1,
                                        UINT64_MAX,
                                        INT64_MAX,
                                        size,
                                        size - 1,
                                        UINT64_MAX / 8,
                                        static_cast<std::uint64_t>(INT64_MIN),
                                        UINT32_MAX,
                                        INT32_MAX,
                                        0x80000000,
                                        0x7FF0000000000000,
                                        random.next()};
        const std::uint64_t value = values[random.below(std::size(values))];
        const std::size_t width = 2u << random.below(3);
        const bool bigEndian = random.chance(0.5);
        // Half of them in the first bytes, where most fields are.
        const std::size_t at =
            random.below(random.chance(0.5) ? whole.size() : std::min<std::size_t>(whole.size(), 400));
        FileBytes bytes = whole;
        for (std::size_t k = 0; k < width && at + k < bytes.size(); ++k)
            bytes[at + k] = static_cast<std::uint8_t>(value >> 8 * (bigEndian ? width - 1 - k : k));
        attempt(bytes, std::to_string(width) + " bytes at " + std::to_string(at));
    }
}

// Several wrong bytes at once, so that the check for one does not hide another.
TEST_P(Damage, ManyWrongBytes)
{
    for (std::size_t i = 0; i < 2 * count; ++i) {
        FileBytes bytes = whole;
        for (std::uint64_t wrong = random.between(2, 12); wrong > 0; --wrong)
            bytes[anywhere()] = static_cast<std::uint8_t>(random.chance(0.3) ? 0xFF : random.below(256));
        attempt(bytes, "bytes, try " + std::to_string(i));
    }
}

TEST_P(Damage, RangesMoved)
{
    for (std::size_t i = 0; i < 2 * count; ++i) {
        std::size_t cuts[4] = {anywhere(), anywhere(), anywhere(), anywhere()};
        std::sort(cuts, cuts + 4);
        const FileBytes parts[] = {slice(whole, 0, cuts[0]), slice(whole, cuts[0], cuts[1]),
                                   slice(whole, cuts[1], cuts[2]), slice(whole, cuts[2], cuts[3]),
                                   slice(whole, cuts[3], whole.size())};
        constexpr const char* orders[] = {"03214", "011234", "01334", "034", "02134"};
        FileBytes bytes;
        const char* const order = orders[i % std::size(orders)];
        for (const char* part = order; *part; ++part)
            append(bytes, parts[*part - '0']);
        attempt(bytes, std::string("ranges ") + order);
    }
}

class DamageOfChunks : public Damage
{};

// The chunks of a .vxl file in another order, doubled and missing, with correct and with unchanged lengths of
// the group.
TEST_P(DamageOfChunks, ChunksMoved)
{
    constexpr std::size_t first = 28;
    const auto lengthAt = [](const FileBytes& bytes, std::size_t at) {
        std::uint64_t length = 0;
        for (std::size_t i = 0; i < 8; ++i)
            length = length << 8 | bytes[at + i];
        return length;
    };
    std::vector<FileBytes> chunks;
    for (std::size_t at = first; at < whole.size();) {
        const std::size_t end = at + 12 + lengthAt(whole, at + 4);
        chunks.push_back(slice(whole, at, end));
        at = end;
    }
    const auto attemptWith = [&](const std::vector<FileBytes>& changed, const std::string& what) {
        FileBytes bytes = slice(whole, 0, first);
        for (const FileBytes& chunk : changed)
            append(bytes, chunk);
        attempt(bytes, what);
        for (const std::size_t field : {8, 20}) {
            const std::uint64_t length = lengthAt(whole, field) + bytes.size() - whole.size();
            for (std::size_t i = 0; i < 8; ++i)
                bytes[field + i] = static_cast<std::uint8_t>(length >> 8 * (7 - i));
        }
        attempt(bytes, what + " with lengths");
    };
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        const std::string name = " chunk " + std::to_string(i);
        std::vector<FileBytes> changed = chunks;
        changed.erase(changed.begin() + signedOf(i));
        attemptWith(changed, "dropped" + name);
        changed = chunks;
        changed.insert(changed.begin() + signedOf(random.below(chunks.size())), chunks[i]);
        attemptWith(changed, "doubled" + name);
        changed = chunks;
        std::swap(changed[i], changed[random.below(chunks.size())]);
        attemptWith(changed, "swapped" + name);
    }
}

std::string nameOf(const testing::TestParamInfo<std::size_t>& test)
{
    std::string name = Testing::damagedKinds()[test.param].fileName;
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

std::vector<std::size_t> filesOfChunks()
{
    std::vector<std::size_t> files;
    for (std::size_t i = 0; i < Testing::damagedKinds().size(); ++i)
        if (std::strstr(Testing::damagedKinds()[i].fileName, ".vxl"))
            files.push_back(i);
    return files;
}

INSTANTIATE_TEST_SUITE_P(Of, Damage, testing::Range<std::size_t>(0, Testing::damagedKinds().size()), nameOf);
INSTANTIATE_TEST_SUITE_P(Of, DamageOfChunks, testing::ValuesIn(filesOfChunks()), nameOf);

} // namespace
} // namespace Quillmoran

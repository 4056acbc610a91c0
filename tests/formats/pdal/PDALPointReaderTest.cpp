#include "formats/pdal/BPFTestFile.h"
#include "pdal/PDALFormats.h"
#include "support/Test.h"
#include <vxunpack/PointWriter.h>

#include <zlib.h>

namespace Quillmoran::Testing { namespace {

const PointInfo layout = layoutXYZ({channel("Intensity", UINT16), channel("ReturnNum", UINT8)});

Scoped<PointReader> open(const std::string& path)
{
    return Scoped<PointReader>(createPDALPointReader(path.c_str()));
}

class PDALPointReaderTest : public testing::Test
{
protected:
    // Points on a grid, whose coordinates are exact in a file. They repeat with the period.
    void writeGrid(std::size_t count, std::size_t period = SIZE_MAX)
    {
        Random random(7);
        MemoryPointSource::Columns columns(layout.getNumChannels());
        for (std::size_t i = 0; i < count; ++i) {
            if (i % period == 0)
                random = Random(7);
            const auto step = [&](int bound) { return static_cast<double>(random.between(0, bound)); };
            columns[0].push_back(1000 + step(400) / 4);
            columns[1].push_back(2000 + step(400) / 4);
            columns[2].push_back(step(40) / 4);
            columns[3].push_back(step(65535));
            columns[4].push_back(step(5));
        }
        source = MemoryPointSource::make(layout, columns);
        const double scale[] = {0.25, 0.25, 0.25}, offset[] = {1000, 2000, 0};
        source->setQuantization(scale, offset);
        const Scoped<PointWriter> writer(createPDALPointWriter(source.get(), path.c_str()));
        writer->write(Bounds::Huge(), 1, layout, nullptr);
    }

    // The error of reading a file of these bytes.
    std::string readDamaged(const std::string& bytes)
    {
        writeFile(path, bytes);
        return failureOf([this] { readColumns(*open(path)); });
    }

    TemporaryDirectory directory;
    std::string path = directory / "in.bpf";
    Scoped<MemoryPointSource> source;
};

TEST_F(PDALPointReaderTest, HonoursBoxFractionAndChannels)
{
    writeGrid(10000);
    const auto reader = open(path);
    EXPECT_EQ(reader->getBounds(), source->getBounds());
    EXPECT_EQ(reader->getTotalWork(Bounds::Huge(), 0.5), 10000);
    PointInfo some = layoutXYZ({channel("ReturnNum", UINT8)});
    const Bounds boxes[] = {Bounds::Huge(),
                            {{1020, 1060.25}, {2000, 2050}, Bounds::Huge().z},
                            {{1020, 1021}, {2000, 2050}, {3, 3}},
                            {{0, 1}, {0, 1}, {0, 1}}};
    for (const Bounds& box : boxes)
        for (const double fraction : {1.0, 0.5, 0.3, 1e-4, 0.0, -1.0}) {
            EXPECT_EQ(readColumns(*reader, layout, box, fraction),
                      readColumns(*source, layout, box, fraction))
                << box.x.min << ' ' << fraction;
            EXPECT_EQ(readColumns(*reader, some, box, fraction), readColumns(*source, some, box, fraction));
        }

    const auto query = [&](const PointInfo& wanted, ProgressDelegate* delegate = nullptr) {
        return failureOf([&] { readColumns(*reader, wanted, Bounds::Huge(), 1, delegate); });
    };
    EXPECT_EQ(query(layoutXYZ({channel("Red", UINT16)})), "40012 requesting channel not in the source");
    EXPECT_EQ(query(layoutXYZ({channel("Intensity", UINT8)})),
              "40010 channel 'Intensity' has another type in the source");
    ProgressLog delegate(0);
    EXPECT_EQ(query(layout, &delegate), "40006 operation cancelled.");
}

TEST_F(PDALPointReaderTest, ReportsTheFaultOfAFile)
{
    const std::string failed = "40609 Failed to create PDALReader for path = '" + path + "': ";
    EXPECT_EQ(failureOf([&] { open(path); }), failed + "No such file or directory path = " + path);
    writeGrid(20);
    const std::string whole = readFile(path);
    for (std::size_t length = 0; length < whole.size(); ++length)
        ASSERT_EQ(readDamaged(whole.substr(0, length)).substr(0, failed.size()), failed) << length;
    EXPECT_EQ(readDamaged(whole + "more"), "no error");
    const auto with = [&whole](std::size_t at, const std::string& bytes) {
        return std::string(whole).replace(at, bytes.size(), bytes);
    };
    EXPECT_EQ(readDamaged(with(7, "2")), failed + "not a BPF file of version 3");
    EXPECT_EQ(readDamaged(with(16, "\xff\xff\xff\x7f")),
              failed + "the file ends before the last of its 2147483647 points");
    EXPECT_EQ(readDamaged(with(16, "\xff\xff\xff\xff")), failed + "bad BPF header");
    EXPECT_EQ(readDamaged(with(8, std::string(4, '\0'))), failed + "bad BPF header");
    EXPECT_EQ(readDamaged(with(12, "\xff")), failed + "bad BPF header");
    EXPECT_EQ(readDamaged(with(whole.find("Z", 176 + 24 * 5), "Q")),
              failed + "must have x, y, and z channels");
    // PDAL does not terminate on such a name.
    EXPECT_EQ(readDamaged(with(whole.find("Intensity"), "7")), failed + "bad BPF header");
    // Declared as compressed, but the points are not blocks.
    EXPECT_EQ(readDamaged(with(14, "\3")).substr(0, failed.size()), failed);
}

TEST_F(PDALPointReaderTest, TypesChannelsByTheRangeInTheHeader)
{
    writeGrid(20);
    const std::string whole = readFile(path);
    const BPFTestFile file = BPFTestFile::parse(whole);
    const auto intensity = static_cast<std::size_t>(
        std::find(file.labels.begin(), file.labels.end(), "Intensity") - file.labels.begin());
    const auto withMaximum = [&](double maximum) {
        std::string bytes = whole;
        storeLittleEndian(&bytes[176 + 8 * (2 * file.labels.size() + intensity)], maximum);
        return bytes;
    };
    EXPECT_EQ(readDamaged(withMaximum(65535)), "no error");
    EXPECT_EQ(open(path)->getChannel("Intensity")->getDataType(), UINT16);
    for (const double maximum : {70000.0, 0.5, std::nan("")}) {
        EXPECT_EQ(readDamaged(withMaximum(maximum)), "no error");
        EXPECT_EQ(open(path)->getChannel("Intensity")->getDataType(), FLOAT64) << maximum;
    }
    std::string bytes = withMaximum(65535);
    storeLittleEndian(&bytes[bytes.size() - 4 * (file.labels.size() - intensity)], 1e9f);
    EXPECT_EQ(readDamaged(bytes), "40609 a value of 'Intensity' is outside the range in the header");
}

std::string sizeText(std::size_t size)
{
    char bytes[4];
    storeLittleEndian(bytes, static_cast<std::uint32_t>(size));
    return {bytes, sizeof bytes};
}

std::string deflate(const std::string& bytes)
{
    uLongf size = compressBound(bytes.size());
    std::string packed(size, '\0');
    compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()),
             bytes.size());
    return packed.substr(0, size);
}

// Finds matches at the given distance only. Level 2 has longer matches and distances.
std::string fastLZ(const std::string& bytes, int level, std::size_t distance)
{
    std::string packed;
    const std::size_t maxLength = level == 1 ? 264 : 5000;
    for (std::size_t at = 0, begin = 0; at < bytes.size();) {
        std::size_t length = 0;
        while (at >= distance && length < maxLength && at + length < bytes.size() &&
               bytes[at + length] == bytes[at + length - distance])
            ++length;
        if (length < 3)
            ++at;
        // Up to 32 bytes as they are, before a match and at the end.
        if (begin < at && (length >= 3 || at - begin == 32 || at == bytes.size())) {
            packed += static_cast<char>(at - begin - 1) + bytes.substr(begin, at - begin);
            begin = at;
        }
        if (length < 3)
            continue;
        const bool isFar = distance > 8191; // needs level 2
        const std::size_t near = isFar ? 8191 : distance - 1, code = length - 2;
        packed += static_cast<char>(std::min<std::size_t>(code, 7) << 5 | near >> 8);
        if (code >= 7) {
            packed.append(level == 2 ? (code - 7) / 255 : 0, '\xff');
            packed += static_cast<char>(level == 2 ? (code - 7) % 255 : code - 7);
        }
        packed += static_cast<char>(near);
        if (isFar) {
            packed += static_cast<char>((distance - 8192) >> 8);
            packed += static_cast<char>(distance - 8192);
        }
        begin = at += length;
    }
    packed[0] = static_cast<char>(packed[0] | (level - 1) << 5);
    return packed;
}

// The file with its points in two blocks, packed by pack().
template <class Pack>
std::string compressedBy(char method, const std::string& plain, Pack pack)
{
    const auto headerSize = static_cast<std::size_t>(loadLittleEndian<std::int32_t>(&plain[8]));
    std::string bytes = plain.substr(0, headerSize);
    bytes[14] = method;
    const std::size_t half = (plain.size() - headerSize) / 2;
    for (const std::string& raw : {plain.substr(headerSize, half), plain.substr(headerSize + half)}) {
        const std::string packed = pack(raw);
        bytes += sizeText(raw.size()) + sizeText(packed.size()) + packed;
    }
    return bytes;
}

// The file with its points one dimension after the other.
std::string byDimension(const std::string& plain)
{
    const auto begin = static_cast<std::size_t>(loadLittleEndian<std::int32_t>(&plain[8]));
    const auto width = static_cast<std::size_t>(plain[12]), count = (plain.size() - begin) / (4 * width);
    std::string bytes = plain;
    bytes[13] = 0;
    for (std::size_t i = 0; i < count * width; ++i)
        bytes.replace(begin + 4 * (i % width * count + i / width), 4, plain, begin + 4 * i, 4);
    return bytes;
}

TEST_F(PDALPointReaderTest, ReadsPointsInEveryArrangement)
{
    constexpr std::size_t pointBytes = 20, period = 400; // the maximum distance of level 1
    writeGrid(5000, period);
    const std::string plain = readFile(path);
    const Columns expected = readColumns(*open(path));
    const auto fastLZOf = [](int level, std::size_t distance) {
        return [=](const std::string& raw) { return fastLZ(raw, level, distance); };
    };
    const std::pair<const char*, std::string> cases[] = {
        {"by dimension", byDimension(plain)},
        {"deflate", compressedBy(3, plain, deflate)},
        {"FastLZ 1, short matches", compressedBy(2, plain, fastLZOf(1, pointBytes))},
        {"FastLZ 1, repeated bytes", compressedBy(2, plain, fastLZOf(1, 1))},
        {"FastLZ 1, long matches", compressedBy(2, plain, fastLZOf(1, pointBytes * period))},
        {"FastLZ 2, short matches", compressedBy(2, plain, fastLZOf(2, pointBytes))},
        {"FastLZ 2, far and long", compressedBy(2, plain, fastLZOf(2, 2 * pointBytes * period))},
        {"stored", compressedBy(2, plain, [](const std::string& raw) { return raw; })}};
    for (const auto& [name, bytes] : cases) {
        writeFile(path, bytes);
        EXPECT_EQ(readColumns(*open(path)), expected) << name;
    }
    std::string other = compressedBy(3, plain, deflate);
    other[14] = '\1';
    EXPECT_EQ(readDamaged(other), "40609 the file is compressed by a method that is not supported");
    // Too few points, too many, matches before the first byte.
    const auto damaged = [&](char method, const std::string& packed) {
        return readDamaged(compressedBy(method, plain, [&](const std::string&) { return packed; }));
    };
    const std::string points = plain.substr(plain.size() - 50000, 50000);
    for (const char method : {'\2', '\3'}) {
        const auto pack = [&](const std::string& raw) {
            return method == 3 ? deflate(raw) : fastLZ(raw, 2, 20);
        };
        EXPECT_EQ(damaged(method, pack(points)), "no error");
        for (const std::string& wrong :
             {pack(points.substr(1)), pack(points + '\0'), pack(points).substr(0, 900),
              std::string("\x20q\xe0\x01\x07", 5), std::string()})
            EXPECT_EQ(damaged(method, wrong), "40609 the compressed points are malformed") << wrong.size();
    }
}

}} // namespace Quillmoran::Testing

// LAS files written anew from what their reader gives: byte for byte, or as much as still holds.
#include "las/header/LASRestore.h"
#include "las/points/LASExtraBytes.h"
#include "platform/ByteOrder.h"
#include "support/LASClouds.h"
#include "support/Test.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

namespace Quillmoran::Testing { namespace {

constexpr std::size_t descriptorBytes = 192;

// A descriptor of LASF_Spec 4.
LASBytes descriptor(int type, const std::string& name, int options = 0, double scale = 0, double offset = 0)
{
    LASBytes bytes(descriptorBytes);
    bytes[2] = static_cast<std::uint8_t>(type);
    bytes[3] = static_cast<std::uint8_t>(options);
    std::copy_n(name.begin(), std::min<std::size_t>(name.size(), 32), bytes.begin() + 4);
    for (std::size_t i = 0; i < 3; ++i) {
        storeLittleEndian(&bytes[112 + 8 * i], scale);
        storeLittleEndian(&bytes[136 + 8 * i], offset);
    }
    return bytes;
}

LASBytes operator+(LASBytes a, const LASBytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class LASRestoring : public testing::Test
{
protected:
    struct Query
    {
        Bounds box = Bounds::Huge();
        double fraction = 1;
        std::vector<std::string> without{}; // channels
        int version = -1;
    };

    Scoped<LASPointReader> open(const LASBytes& bytes)
    {
        writeFile(directory / "in.las", bytes);
        return open("in.las");
    }
    Scoped<LASPointReader> open(const std::string& name)
    {
        Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init((directory / name).c_str(), true);
        return reader;
    }
    // The restored file, LAZ if its name says so.
    LASBytes restore(PointSource& source, const std::string& name, const Query& query)
    {
        PointInfo layout;
        for (std::size_t i = 0; i < source.getNumChannels(); ++i)
            if (std::find(query.without.begin(), query.without.end(), source.getChannel(i).getName()) ==
                query.without.end())
                layout.append(source.getChannel(i));
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(&source, (directory / name).c_str(), query.version);
        writer->setRestores(true);
        writer->setWriteLAZ(name.back() == 'z');
        writer->write(query.box, query.fraction, layout, nullptr);
        leftOut = writer->getLeftOutRecords();
        hasForeignChunkIndex = writer->hasForeignChunkIndex();
        const std::string bytes = readFile(directory / name);
        return {bytes.begin(), bytes.end()};
    }
    LASBytes restore(PointSource& source, const std::string& name = "out.las")
    {
        return restore(source, name, {});
    }

    TemporaryDirectory directory;
    std::vector<std::string> leftOut;
    bool hasForeignChunkIndex = false;
};

// Fills what no reader interprets with random bytes: names, dates, counts, bounds, the ends of header and
// VLRs, extra bytes, the bytes after the points.
LASBytes randomFile(std::uint64_t seed, bool hasTail)
{
    Random random(seed);
    const auto noise = [&random](std::size_t count) {
        LASBytes bytes(count);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random.next()); });
        return bytes;
    };
    const auto pick = [&random](auto... values) {
        const std::common_type_t<decltype(values)...> all[] = {values...};
        return all[random.below(sizeof...(values))];
    };
    const int format = pick(0, 1, 2, 3, 6, 7, 8);
    const int minor = format > 5 ? 4 : static_cast<int>(random.below(5));
    LASFile file = randomLASFile(format, minor, random.below(40), seed);
    file.headerSize = static_cast<std::uint16_t>((minor == 4   ? 375
                                                  : minor == 3 ? 235
                                                               : 227) +
                                                 pick(0, 0, 9, 900));
    LASBytes described;
    for (std::uint64_t fields = random.below(6); fields > 0; --fields)
        described = described + descriptor(static_cast<int>(random.below(32)),
                                           pick("a", "", "Intensity", "b c", "\xff", "x\n", "@s|x", "z"),
                                           static_cast<int>(random.below(32)), pick(0.01, -1.0, 0.5, 1e300),
                                           pick(0.0, 12.25, 1e18));
    const std::size_t extra = pick(0u, 0u, 1u, 40u);
    file.recordLength = static_cast<std::uint16_t>(LASFile::recordBytes(format) + extra);
    const auto addRecords = [&](std::vector<LASFileRecord>& to) {
        for (std::uint64_t count = random.below(4); count > 0; --count)
            to.push_back({pick("LASF_Projection", "same", "copc", "::", "\xfe"),
                          pick(std::uint16_t{1}, std::uint16_t{2112}, std::uint16_t{34735}), "what",
                          noise(pick(0u, 3u, 300u)), pick(std::uint16_t{0}, std::uint16_t{0xAABB})});
    };
    addRecords(file.records);
    if (!described.empty())
        file.records.push_back({"LASF_Spec", 4, "", described});
    if (minor == 4)
        addRecords(file.extendedRecords);
    std::size_t end = file.headerSize;
    for (const LASFileRecord& record : file.records)
        end += 54 + record.value.size();
    file.pointDataOffset = static_cast<std::uint32_t>(end + pick(0u, 2u, 77u));

    LASBytes bytes = file.build();
    const auto fill = [&](std::size_t begin, std::size_t length) {
        const LASBytes filling = noise(length);
        std::copy(filling.begin(), filling.end(), bytes.begin() + static_cast<std::ptrdiff_t>(begin));
    };
    fill(8, 16);   // project ID
    fill(26, 68);  // names and date
    fill(111, 20); // counts by return
    fill(end, file.pointDataOffset - end);
    const std::size_t own = minor == 4 ? 375 : minor == 3 ? 235 : 227;
    fill(own, file.headerSize - own);
    for (std::size_t i = 0; i < file.points.size(); ++i)
        fill(file.pointDataOffset + (i + 1) * file.recordLength - extra, extra);
    if (!hasTail)
        return bytes;
    const LASBytes gap = noise(pick(0u, 5u)), rest = noise(pick(0u, 50u));
    if (!file.extendedRecords.empty()) {
        const auto first = loadLittleEndian<std::uint64_t>(&bytes[235]);
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(first), gap.begin(), gap.end());
        storeLittleEndian(&bytes[235], first + gap.size());
    }
    return bytes + rest;
}

TEST_F(LASRestoring, WritesTheSameBytes)
{
    for (std::uint64_t seed = 0; seed < 30; ++seed) {
        SCOPED_TRACE(seed);
        const LASBytes file = randomFile(seed, true);
        EXPECT_EQ(failureOf([&] {
                      EXPECT_TRUE(restore(*open(file)) == file);
                      // Bytes after the points are not known to end where LASzip's data ends.
                      const LASBytes tight = randomFile(seed, false);
                      const LASBytes compressed = restore(*open(tight), "1.laz");
                      EXPECT_TRUE(restore(*open("1.laz"), "2.laz") == compressed);
                      EXPECT_TRUE(restore(*open("2.laz")) == tight);
                  }),
                  "no error");
    }
}

// Four points with VLRs and EVLRs, one of them an index of the points, extra bytes of three kinds, and counts
// and bounds that are wrong.
LASFile makeFile(int format)
{
    LASFile file = randomLASFile(format, 4, 4, 7);
    file.globalEncoding = format < 6 ? 8 : 8 | 16;
    file.systemID = "scanner";
    file.records = {{"LASF_Spec", 4, "fields",
                     descriptor(4, "Angle", 24, 0.5, 10) + descriptor(13, "Pair") + descriptor(9, "Range")},
                    {"copc", 1, "", LASBytes(160)},
                    {"Owner", 9, "", {1, 2}}};
    file.extendedRecords = {{"LAStools", 30, "", {3}}, {"Owner", 10, "", {4, 5}}};
    file.recordLength = static_cast<std::uint16_t>(LASFile::recordBytes(format) + 2 + 4 + 4);
    for (std::size_t i = 0; i < file.points.size(); ++i)
        file.points[i].returnNum = 1;
    file.byReturn.fill(99);
    return file;
}

std::string namesOf(const std::vector<LASFileRecord>& records)
{
    std::string names;
    for (const LASFileRecord& record : records)
        names += record.userID + ' ' + std::to_string(record.recordID) + ' ' +
                 std::to_string(record.value.size()) + ", ";
    return names;
}

TEST_F(LASRestoring, KeepsWhatHoldsForAPartOfThePoints)
{
    Query box;
    box.box.y = {-2000, -1999.98};
    const std::string records = "LASF_Spec 4 576, Owner 9 2, ";
    const struct
    {
        const char* what;
        Query query;
        std::string records;
        std::size_t points;
        std::size_t extraBytes;
    } cases[] = {
        {"box", box, records, 3, 10},
        {"fraction", {Bounds::Huge(), 0.5}, records, 2, 10},
        {"fewer fields", {Bounds::Huge(), 1, {"UserData"}}, records, 4, 10},
        {"fewer extra bytes", {Bounds::Huge(), 1, {"Pair[0]"}}, "LASF_Spec 4 576, Owner 9 2, ", 4, 8},
        {"no extra bytes",
         {Bounds::Huge(), 1, {"Pair[0]", "Pair[1]", "Angle", "Range"}},
         "Owner 9 2, ",
         4,
         0},
    };
    for (const int format : {3, 7}) {
        const auto source = open(makeFile(format).build());
        for (const auto& each : cases) {
            SCOPED_TRACE(each.what);
            restore(*source, "out.las", each.query);
            const LASFile file = LASFile::load(directory / "out.las");
            LASFile described = file;
            described.describePoints();
            EXPECT_EQ(file.format, format);
            EXPECT_EQ(file.versionMinor, 4);
            EXPECT_EQ(file.systemID, "scanner");
            EXPECT_EQ(file.globalEncoding, format < 6 ? 8 : 24);
            EXPECT_EQ(file.recordLength, LASFile::recordBytes(format) + each.extraBytes);
            EXPECT_EQ(namesOf(file.records), each.records);
            EXPECT_EQ(namesOf(file.extendedRecords), "Owner 10 2, ");
            EXPECT_EQ(leftOut, (std::vector<std::string>{"copc::1", "LAStools::30"}));
            EXPECT_EQ(file.points.size(), each.points);
            EXPECT_EQ(file.count, each.points);
            EXPECT_EQ(file.legacyCount, format < 6 ? each.points : 0);
            EXPECT_EQ(file.byReturn, described.byReturn);
            EXPECT_EQ(file.min, described.min);
            EXPECT_EQ(file.max, described.max);
            const auto again = open("out.las");
            EXPECT_EQ(again->hasChannel("Pair[1]"), each.extraBytes != 0);
        }
    }
}

TEST_F(LASRestoring, SaysThatACOPCIndexDescribesOtherChunks)
{
    const auto source = open(makeFile(7).build());
    for (const char* name : {"out.las", "out.laz"}) {
        restore(*source, name);
        EXPECT_EQ(hasForeignChunkIndex, name[6] == 'z') << name;
        EXPECT_EQ(namesOf(LASFile::load(directory / name).records).find("copc 1 160") != std::string::npos,
                  true);
    }
}

TEST_F(LASRestoring, ChoosesAFormatThatHoldsAllChannels)
{
    // Of a source without records: an extra channel of each type.
    std::vector<ChannelInfo> channels;
    ChannelInfo channel;
    for (const DataType type :
         {UINT8, SINT8, UINT16, SINT16, UINT32, SINT32, UINT64, SINT64, FLOAT32, FLOAT64}) {
        channel.init(DataTypeUtils::toString(type), type, 0, 0);
        channels.push_back(channel);
    }
    channel.init("NearInfrared", UINT16, 0, 0);
    channels.push_back(channel);
    MemoryPointSource::Columns columns(3 + channels.size());
    for (std::size_t i = 0; i < columns.size(); ++i)
        columns[i] = {static_cast<double>(i), 100};
    PointInfo layout = layoutXYZ({});
    for (const ChannelInfo& each : channels)
        layout.append(each);
    const auto source = MemoryPointSource::make(layout, columns);
    for (const char* name : {"out.las", "out.laz"}) {
        restore(*source, name);
        const auto restored = open(name);
        EXPECT_STREQ(restored->getFileFormatString(), name[6] == 's' ? "LAS 1.4" : "LAZ 1.4");
        EXPECT_EQ(LASFile::load(directory / name).globalEncoding & 16, 16);
        EXPECT_EQ(readRows(*restored, layout), readRows(*source, layout));
    }

    const auto extended = open(makeFile(6).build());
    Query older;
    older.version = 12;
    EXPECT_EQ(failureOf([&] { restore(*extended, "older.las", older); }),
              "40607 LAS 1.2 does not have point format 6 of these points");
    const auto file = open(makeFile(1).build());
    restore(*file, "older.las", older);
    const LASFile moved = LASFile::load(directory / "older.las");
    EXPECT_EQ(namesOf(moved.records), "LASF_Spec 4 576, Owner 9 2, Owner 10 2, ");
    EXPECT_EQ(moved.versionMinor, 2);
}

TEST(LASExtraBytes, GivesEveryByteAChannel)
{
    const LASBytes described = descriptor(1, "plain") + descriptor(3, "Intensity") + descriptor(5, "plain") +
                               descriptor(2, "") + descriptor(4, "scaled", 24, 0.25, -3) +
                               descriptor(6, "steps", 8, 0.01) + descriptor(7, "wide", 8, 0.5) +
                               descriptor(9, "real", 8, 2) + descriptor(6, "far", 24, 1e-9, 1e9) +
                               descriptor(0, "raw", 2) + descriptor(21, "\xff") + descriptor(1, "@s|x") +
                               descriptor(31, "unknown") + descriptor(1, "after");
    // Name, type and bytes of the stored number, in the order of the record.
    const char* const expected[] = {"plain UINT8 1",         "Intensity_2 UINT16 2",  "plain_3 UINT32 4",
                                    "Unnamed_4 SINT8 1",     "scaled FLOAT64 2 0.25", "steps FLOAT64 4 0.01",
                                    "wide UINT64 8",         "real FLOAT32 4",        "far SINT32 4",
                                    "raw[0] UINT8 1",        "raw[1] UINT8 1",        "\\xff_11[0] UINT8 1",
                                    "\\xff_11[1] UINT8 1",   "\\xff_11[2] UINT8 1",   "_@s|x_12 UINT8 1",
                                    "ExtraBytes[0] UINT8 1", "ExtraBytes[1] UINT8 1"};
    std::size_t offset = 20;
    std::size_t index = 0;
    for (const LASExtraField& field : LASExtraBytes::describe({0}, 20 + 38, described)) {
        const ChannelInfo channel = field.toChannel();
        char step[32] = "";
        if (channel.getQuantization() != 0)
            std::snprintf(step, sizeof step, " %g", channel.getQuantization());
        EXPECT_EQ(std::string(channel.getName()) + ' ' + DataTypeUtils::toString(channel.getDataType()) +
                      ' ' + std::to_string(DataTypeUtils::getSize(field.stored)) + step,
                  expected[index++]);
        EXPECT_EQ(field.offset, offset);
        offset += DataTypeUtils::getSize(field.stored);
    }
    EXPECT_EQ(index, std::size(expected));

    // Scaled numbers return, also the largest ones, and values between them are refused.
    const auto fields = LASExtraBytes::describe({0}, described);
    const LASExtraField& scaled = fields[4];
    const double samples[] = {-3 - 0.25 * 32768, -3, -3 + 0.25 * 32767}, between = -2.9;
    unsigned char records[3 * 64] = {};
    EXPECT_TRUE(scaled.pack(records, 64, samples, 3));
    EXPECT_EQ(loadLittleEndian<std::int16_t>(records + scaled.offset), -32768);
    double back[3];
    scaled.unpack(back, records, 64, 3);
    EXPECT_TRUE(std::equal(back, back + 3, samples));
    EXPECT_FALSE(scaled.pack(records, 64, &between, 1));
}

TEST_F(LASRestoring, RefusesADamagedRecord)
{
    const auto source = open(makeFile(7).build());
    Metadata metadata;
    source->loadMetadata(metadata, false);
    const int index = metadata.getKeyIndex(LASRestore::key);
    const auto* const value =
        static_cast<const unsigned char*>(metadata.getValue(static_cast<std::size_t>(index)));
    const LASBytes packed(value, value + metadata.getValueLength(static_cast<std::size_t>(index)));
    const auto isRefused = [](const LASBytes& bytes) {
        return failureOf([&] { LASRestore::unpack(bytes); }) == "40602 the restore record is damaged";
    };
    EXPECT_FALSE(isRefused(packed));
    for (std::size_t length = 0; length < packed.size(); ++length)
        EXPECT_TRUE(isRefused({packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(length)}))
            << length;
    for (const std::size_t at : {0u, 1u, 2u, 3u, 4u, 5u, 30u, 100u}) {
        LASBytes changed = packed;
        changed[at] ^= 0x41;
        EXPECT_TRUE(isRefused(changed)) << at;
    }
    // A header that says that it is longer, and a list of 4 billion VLRs.
    for (const std::size_t at : {94u, 375u}) {
        LASRestore restore = LASRestore::unpack(packed);
        metadata.remove(LASRestore::key);
        if (at == 94)
            restore.header[at] = 0xFF;
        else
            restore.header.resize(at - 1);
        const LASBytes changed = restore.pack();
        metadata.add(LASRestore::key, nullptr, METADATA_BLOB, changed.data(), changed.size());
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(source.get(), (directory / "out.las").c_str(), -1);
        writer->setMetadata(metadata);
        writer->setRestores(true);
        EXPECT_NE(failureOf([&] { writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr); }), "");
    }
}

}} // namespace Quillmoran::Testing

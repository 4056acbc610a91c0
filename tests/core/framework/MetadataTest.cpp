#include "platform/Stream.h"

#include "support/Test.h"
#include <vxunpack/Metadata.h>

#include <sys/resource.h>

namespace Quillmoran::Testing { namespace {

using namespace std::string_literals;

std::string dumped(const Metadata& metadata)
{
    testing::internal::CaptureStdout();
    metadata.dump(stdout);
    return testing::internal::GetCapturedStdout();
}

std::string written(const Metadata& metadata, std::size_t capacity = SIZE_MAX)
{
    const Scoped<ByteStore> file = ByteStore::make();
    file->setCapacity(capacity);
    StreamWriter writer;
    writer.init(file.get(), true, 4);
    metadata.write(writer);
    writer.close(true);
    return file->text();
}

void read(Metadata& metadata, const std::string& bytes)
{
    StreamReader reader;
    reader.init(ByteStore::make(bytes).get(), true, 64);
    metadata.read(reader);
}

std::string readError(const std::string& bytes)
{
    Metadata metadata;
    return errorOf(40008, [&] { read(metadata, bytes); });
}

std::string number(std::uint64_t value, std::size_t size)
{
    std::string bytes;
    while (size-- > 0)
        bytes += static_cast<char>(value >> (8 * size));
    return bytes;
}

std::string block(const std::string& bytes)
{
    return number(bytes.size(), 4) + bytes;
}

// The same records of all types as calls, as a file and as text.
Metadata everyType()
{
    constexpr double reals[] = {1.0, -2.5, infinity};
    Metadata metadata;
    metadata.add("text", "a description", METADATA_STRING, "value", 1); // the length of a string is ignored
    metadata.add("empty", "", METADATA_STRING, "", 99);
    metadata.add("blob", nullptr, METADATA_BLOB, "a\0b\xFF", 4);
    metadata.add("reals", "three", METADATA_FLOAT64_ARRAY, reals, 3);
    metadata.add("other", nullptr, static_cast<MetadataDataType>(900), "xyz", 3);
    return metadata;
}

const std::string everyTypeFile = number(0, 4) + number(5, 4) + block("text\0"s) + block("a description\0"s) +
                                  number(1, 2) + block("value\0"s) + block("empty\0"s) + block("") +
                                  number(1, 2) + block("\0"s) + block("blob\0"s) + block("") + number(2, 2) +
                                  block("a\0b\xFF"s) + block("reals\0"s) + block("three\0"s) + number(3, 2) +
                                  block("\x3F\xF0\0\0\0\0\0\0\xC0\x04\0\0\0\0\0\0\x7F\xF0\0\0\0\0\0\0"s) +
                                  block("other\0"s) + block("") + number(900, 2) + block("xyz");

const std::string everyTypeText = "   text (a description):\n      'value'\n   empty:\n      ''\n"
                                  "   blob:\n      (blob of 4 bytes)\n"
                                  "   reals (three):\n      { 1.000000 -2.500000 inf }\n   other:\n";

TEST(Metadata, AppendsExactlyWhatItReads)
{
    Metadata metadata = everyType();
    EXPECT_EQ(written(metadata), everyTypeFile);
    read(metadata, everyTypeFile);
    metadata.add(metadata);
    EXPECT_EQ(dumped(metadata), everyTypeText + everyTypeText + everyTypeText + everyTypeText);
    const char *key, *description;
    MetadataDataType type;
    const void* value;
    std::size_t length;
    metadata.get(8, key, description, type, value, length);
    EXPECT_EQ(key + ": "s + description + std::to_string(length), "reals: three3");
    EXPECT_EQ(type, METADATA_FLOAT64_ARRAY);
    EXPECT_EQ(static_cast<const double*>(value)[1], -2.5);
    EXPECT_TRUE(metadata.get("text", description, type, value, length));
    EXPECT_EQ(description + std::to_string(length), "a description6");
    EXPECT_FALSE(metadata.get("texts", description, type, value, length));
    EXPECT_EQ(metadata.getDescription(6), nullptr);
    while (metadata.getNumRecords() > 5)
        metadata.remove(std::size_t{0});
    EXPECT_EQ(written(metadata), everyTypeFile);
    for (std::size_t size = 0; size < everyTypeFile.size(); ++size) {
        EXPECT_EQ(readError(everyTypeFile.substr(0, size)).rfind("bad read -- ", 0), 0u) << size;
        EXPECT_NE(failureOf([&] { written(metadata, size); }), "no error") << size;
    }
}

TEST(Metadata, NamesTheTruncatedField)
{
    const std::pair<std::string, const char*> fields[] = {
        {number(0, 4), "version"},  {number(2, 4), "numRecords"},         {number(4, 4), "key length"},
        {"key\0"s, "key data"},     {number(2, 4), "description length"}, {"d\0"s, "description data"},
        {number(2, 2), "datatype"}, {number(5, 4), "value length"},       {"value", "value data"}};
    std::string bytes;
    for (const auto& [field, name] : fields)
        for (const char byte : field) {
            EXPECT_EQ(readError(bytes), "bad read -- "s + name) << bytes.size();
            bytes += byte;
        }
    EXPECT_EQ(readError(bytes), "bad read -- key length"); // of the second record
    EXPECT_EQ(readError(number(1, 4)), "unsupported version");
    Metadata metadata;
    const std::string noKey =
        number(0, 4) + number(1, 4) + block("\0"s) + block("") + number(1, 2) + block("v");
    EXPECT_EQ(failureOf([&] { read(metadata, noKey); }), "40007 metadata key not given");
    metadata.add("k", nullptr, METADATA_BLOB, std::string(100, 'x').c_str(), 100);
    EXPECT_EQ(failureOf([&] { written(metadata, 60); }), "40009 bad write -- value data");
}

TEST(Metadata, DoesNotAllocateForMissingBytes)
{
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    const std::string head = number(0, 4) + number(0xFFFFFFFF, 4), key = block("k\0"s);
    for (const std::uint64_t length : {std::uint64_t{9}, std::uint64_t{0xFFFFFFFF}}) {
        const std::string tooLong = number(length, 4) + "12345678";
        EXPECT_EQ(readError(head + tooLong), "bad read -- key data");
        EXPECT_EQ(readError(head + key + tooLong), "bad read -- description data");
        EXPECT_EQ(readError(head + key + block("") + number(3, 2) + tooLong), "bad read -- value data");
    }
    EXPECT_EQ(readError(head), "bad read -- key length");
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 200 * 1024); // KiB
}

TEST(Metadata, TerminatesTextsAndTruncatesArraysOfFiles)
{
    Metadata metadata;
    read(metadata, number(0, 4) + number(3, 4) + block("key") + block("text") + number(1, 2) +
                       block("value") + block("a") + block("") + number(3, 2) +
                       block(number(0x3FF0000000000000, 8) + "1234567") + block("b") + block("") +
                       number(3, 2) + block(""));
    EXPECT_EQ(dumped(metadata),
              "   key (text):\n      'value'\n   a:\n      { 1.000000 }\n   b:\n      { }\n");
    EXPECT_EQ(written(metadata).find("1234567"), std::string::npos);
    EXPECT_EQ(metadata.getValue(2), nullptr);
}

TEST(Metadata, FindsAndRemovesRecordsByKey)
{
    Metadata metadata;
    for (const char* key : {"k", "\xE4", "k", "K", "k"})
        metadata.add(key, nullptr, METADATA_STRING, std::to_string(metadata.getNumRecords()).c_str(), 0);
    EXPECT_EQ(metadata.getKeyIndex("k"), 0);
    metadata.remove("missing");
    metadata.remove("k");
    EXPECT_EQ(metadata.getKeyIndex("k"), 1);
    metadata.removeAll("k");
    EXPECT_FALSE(metadata.has("k"));
    metadata.add("k\n", nullptr, METADATA_STRING, "\t", 0);
    metadata.sort();
    EXPECT_EQ(dumped(metadata), "   K:\n      '3'\n   k\\n:\n      '\\t'\n   \\xe4:\n      '1'\n");
    EXPECT_EQ(errorOf(40007, [&] { metadata.remove(std::size_t{3}); }), "bad index");
    EXPECT_EQ(errorOf(40007, [&] { metadata.add("k", nullptr, METADATA_BLOB, nullptr, 0); }),
              "metadata value not given");
}

}} // namespace Quillmoran::Testing

#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/Errors.h"
#include <vxunpack/Metadata.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using Testing::errorOf;
using namespace std::string_literals;

std::string dumped(const Metadata& metadata)
{
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* file = open_memstream(&text, &length);
    metadata.dump(file);
    std::fclose(file);
    const std::string result(text, length);
    std::free(text);
    return result;
}

std::string written(const Metadata& metadata)
{
    const Scoped<ByteStore> bytesIO(ByteStore::create());
    StreamWriter writer;
    writer.init(bytesIO.get(), true, 64);
    metadata.write(writer);
    writer.close(true);
    return bytesIO->text();
}

void read(Metadata& metadata, const std::string& bytes)
{
    const Scoped<ByteStore> bytesIO(ByteStore::create({bytes.begin(), bytes.end()}));
    StreamReader reader;
    reader.init(bytesIO.get(), true, 64);
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

constexpr double reals[] = {1.0, -2.5, std::numeric_limits<double>::infinity()};

// The same records of all types as calls, as a file and as text.
Metadata everyType()
{
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

const std::string everyTypeText = "   text (a description):\n      'value'\n"
                                  "   empty:\n      ''\n"
                                  "   blob:\n      (blob of 4 bytes)\n"
                                  "   reals (three):\n      { 1.000000 -2.500000 inf }\n"
                                  "   other:\n";

TEST(Metadata, WritesBigEndianBlocksAfterTheirLengths)
{
    EXPECT_EQ(written(everyType()), everyTypeFile);
}

TEST(Metadata, AppendsExactlyWhatItReads)
{
    Metadata metadata = everyType();
    read(metadata, everyTypeFile);
    metadata.add(metadata);
    EXPECT_EQ(dumped(metadata), everyTypeText + everyTypeText + everyTypeText + everyTypeText);
    EXPECT_EQ(metadata.getValueLength(5), 6u);
    EXPECT_EQ(metadata.getDescription(6), nullptr);
    EXPECT_EQ(std::string(static_cast<const char*>(metadata.getValue(7)), 4), "a\0b\xFF"s);
    EXPECT_EQ(metadata.getValueLength(8), 3u);
    while (metadata.getNumRecords() > 5)
        metadata.remove(std::size_t{0});
    EXPECT_EQ(written(metadata), everyTypeFile);
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
}

TEST(Metadata, FailsAtEveryTruncatedLengthAndForAnotherVersion)
{
    for (std::size_t length = 0; length < everyTypeFile.size(); ++length)
        EXPECT_EQ(readError(everyTypeFile.substr(0, length)).find("bad read -- "), 0u) << length;
    EXPECT_EQ(readError(number(1, 4)), "unsupported version");
}

TEST(Metadata, DoesNotAllocateForMissingBytes)
{
    const auto peakKilobytes = [] {
        rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    const long before = peakKilobytes();
    const std::string head = number(0, 4) + number(0xFFFFFFFF, 4), key = block("k\0"s);
    for (const std::uint64_t length : {std::uint64_t{9}, std::uint64_t{0xFFFFFFFF}}) {
        const std::string tooLong = number(length, 4) + "12345678";
        EXPECT_EQ(readError(head + tooLong), "bad read -- key data");
        EXPECT_EQ(readError(head + key + tooLong), "bad read -- description data");
        EXPECT_EQ(readError(head + key + block("") + number(3, 2) + tooLong), "bad read -- value data");
    }
    EXPECT_EQ(readError(head), "bad read -- key length");
    EXPECT_LT(peakKilobytes() - before, 200 * 1024);
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
    EXPECT_EQ(metadata.getValueLength(0), 5u);
    EXPECT_EQ(written(metadata).find("1234567"), std::string::npos);
    EXPECT_EQ(metadata.getValue(2), nullptr);
}

TEST(Metadata, FindsAndRemovesTheFirstRecordOfAKey)
{
    Metadata metadata;
    for (const char* key : {"k", "\xE4", "k", "K"})
        metadata.add(key, nullptr, METADATA_STRING, std::to_string(metadata.getNumRecords()).c_str(), 0);
    EXPECT_EQ(metadata.getKeyIndex("k"), 0);
    metadata.remove("missing");
    metadata.remove("k");
    EXPECT_EQ(metadata.getKeyIndex("k"), 1);
    metadata.sort();
    EXPECT_EQ(dumped(metadata), "   K:\n      '3'\n   k:\n      '2'\n   \\xe4:\n      '1'\n");
    EXPECT_EQ(errorOf(40007, [&] { metadata.remove(std::size_t{3}); }), "bad index");
    EXPECT_EQ(errorOf(40007, [&] { metadata.add("", nullptr, METADATA_BLOB, "v", 1); }),
              "metadata key not given");
    EXPECT_EQ(errorOf(40007, [&] { metadata.add("k", nullptr, METADATA_BLOB, nullptr, 0); }),
              "metadata value not given");
}

TEST(Metadata, ReportsAFullFile)
{
    const Scoped<ByteStore> bytesIO(ByteStore::create());
    bytesIO->setCapacity(60);
    StreamWriter writer;
    writer.init(bytesIO.get(), true, 4);
    Metadata metadata;
    metadata.add("k", nullptr, METADATA_BLOB, std::string(100, 'x').c_str(), 100);
    EXPECT_EQ(errorOf(40009, [&] { metadata.write(writer); }), "bad write -- value data");
}

} // namespace
} // namespace Quillmoran

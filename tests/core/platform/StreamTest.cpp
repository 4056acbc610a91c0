#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/Random.h"
#include <vxunpack/FileIO.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using Testing::errorOf;
using Testing::Random;
using Bytes = std::vector<std::uint8_t>;

Bytes pattern(std::size_t count, std::size_t first = 0)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>((first + i) * 167 + (first + i) / 256);
    return bytes;
}

Scoped<ByteStore> fileOf(const Bytes& bytes)
{
    return Scoped<ByteStore>(ByteStore::create(bytes));
}

Scoped<ByteStore> fileOf(const std::string& text)
{
    return fileOf(Bytes(text.begin(), text.end()));
}

// The result of one read, in a block of exactly that size.
Bytes readBytes(StreamReader& reader, std::size_t count)
{
    Bytes bytes(count);
    bytes.resize(reader.read(bytes.data(), count));
    return bytes;
}

TEST(StreamReader, RefillsWhenExactlyTheBufferedBytesAreRead)
{
    const auto file = fileOf(pattern(20));
    StreamReader reader;
    reader.init(file.get(), true, 8);
    for (const auto& [from, count, reads] : {std::array{0u, 3u, 1u}, {3u, 5u, 2u}, {8u, 7u, 2u}}) {
        EXPECT_EQ(readBytes(reader, count), pattern(count, from));
        EXPECT_EQ(file->reads(), static_cast<int>(reads));
    }
}

TEST(StreamReader, SeeksWithoutReadingWithinItsBuffer)
{
    const auto file = fileOf(pattern(64));
    StreamReader reader;
    reader.init(file.get(), true, 16);
    readBytes(reader, 10);
    for (const int target : {0, 15, 3, 16}) {
        reader.seek(target, Stream::SEEK_FROM_START);
        reader.seek(-target, Stream::SEEK_FROM_CURRENT);
        EXPECT_EQ(readBytes(reader, 1), pattern(1));
    }
    for (const int target : {40, 17, 64, 0})
        reader.seek(target, Stream::SEEK_FROM_START);
    EXPECT_EQ(file->reads(), 1);
    EXPECT_EQ(readBytes(reader, 20), pattern(20)); // past the buffer
    EXPECT_EQ(file->reads(), 2);
}

TEST(StreamReader, ReadsNothingOutsideTheFile)
{
    const auto file = fileOf(pattern(10));
    StreamReader reader;
    reader.init(file.get(), true, 8);
    for (const std::int64_t far : {std::int64_t{11}, INT64_MAX, std::int64_t{-3}, INT64_MIN}) {
        readBytes(reader, 2);
        reader.seek(far, Stream::SEEK_FROM_START);
        reader.seek(far < 0 ? INT64_MIN : INT64_MAX, Stream::SEEK_FROM_CURRENT);
        EXPECT_EQ(reader.tell(), far < 0 ? INT64_MIN : INT64_MAX);
        EXPECT_EQ(reader.remaining(), far < 0 ? (std::uint64_t{1} << 63) + 10 : 0);
        EXPECT_TRUE(readBytes(reader, 1).empty());
        EXPECT_TRUE(readBytes(reader, 20).empty());
        reader.seek(0, Stream::SEEK_FROM_START);
    }
}

TEST(StreamReader, AgreesWithAnArrayInEverySequenceOfCalls)
{
    constexpr std::int64_t length = 200;
    const Bytes all = pattern(length);
    const auto file = fileOf(all);
    for (const std::size_t bufferSize : {1u, 2u, 7u, 32u, 500u}) {
        SCOPED_TRACE(bufferSize);
        Random random(bufferSize);
        file->setMaxMoved(bufferSize % 2 == 0 ? 3 : SIZE_MAX);
        StreamReader reader;
        reader.init(file.get(), true, bufferSize);
        std::int64_t position = 0;
        for (int step = 0; step < 4000; ++step) {
            const std::int64_t target = random.chance(0.5)
                                            ? std::max<std::int64_t>(position, 0) + random.between(-5, 5)
                                            : random.between(-5, length + 5);
            const auto mode = static_cast<Stream::Mode>(random.below(3));
            const std::int64_t origins[] = {0, position, length};
            switch (random.below(4)) {
            case 0:
                reader.seek(target - origins[mode], mode);
                position = target;
                break;
            case 1:
                reader.flush();
                break;
            default:
                const auto count = random.between(0, random.chance(0.2) ? 90 : 12);
                const std::int64_t first = position < 0 ? length : std::min(position, length);
                const std::int64_t got = std::min(count, length - first);
                ASSERT_EQ(readBytes(reader, static_cast<std::size_t>(count)),
                          Bytes(all.begin() + first, all.begin() + first + got))
                    << "step " << step;
                position += got;
            }
            ASSERT_EQ(reader.tell(), position) << "step " << step;
        }
    }
}

TEST(StreamReader, ReadsLinesOfAnyLengthIntoAGrowingBuffer)
{
    std::string text;
    std::vector<std::string> lines;
    for (const std::size_t length : {0u, 1u, 1021u, 1022u, 1023u, 1024u, 3u, 5000u})
        text += lines.emplace_back(std::string(length, 'x') + '\n');
    text += lines.emplace_back("no newline");
    for (const std::size_t bufferSize : {1u, 10u, 1024u, 100000u}) {
        const auto file = fileOf(text);
        StreamReader reader;
        reader.init(file.get(), true, bufferSize);
        char* line = nullptr;
        std::size_t capacity = 0;
        for (const std::string& expected : lines) {
            ASSERT_TRUE(reader.get_str(line, capacity));
            EXPECT_EQ(line, expected) << "buffer " << bufferSize;
            EXPECT_EQ(capacity % 1024, 0u);
        }
        EXPECT_FALSE(reader.get_str(line, capacity));
        XDEALLOC(line);
    }
}

TEST(Stream, ClosesItsFileOnceIfItWasOpened)
{
    const auto file = fileOf("");
    {
        StreamReader reader, closed;
        reader.init(file.get(), true, 8);
        closed.init(file.get(), true, 8);
        EXPECT_EQ(file->openCount(), 2);
        closed.close();
        closed.close();
        EXPECT_EQ(file->openCount(), 1);
    }
    EXPECT_EQ(file->openCount(), 0);
    const Scoped<FileIO::Imp> missing(FileIO::create());
    missing->init("no/such", "r");
    StreamReader reader;
    errorOf(ENOENT, [&] { reader.init(missing.get(), true, 8); });
    EXPECT_NE(errorOf(ENOENT, [&] { reader.open(8); }), "nothing thrown"); // it is not open yet
}

TEST(StreamWriter, KeepsBytesUntilItsBufferIsFull)
{
    const auto file = fileOf("");
    StreamWriter writer;
    writer.init(file.get(), true, 8);
    writer.put_str("1234567");
    EXPECT_EQ(file->writes(), 0);
    writer.put_str("8");
    EXPECT_EQ(file->text(), "12345678");
    writer.put_str("9");
    EXPECT_EQ(file->writes(), 1);
    writer.put_str("0123456789abcdefghij"); // the rest after filling the buffer is written directly
    EXPECT_EQ(file->writes(), 3);
    writer.put_str("dropped");
    writer.close(false);
    EXPECT_EQ(file->text(), "1234567890123456789abcdefghij");
}

TEST(StreamWriter, AgreesWithAnArrayInEverySequenceOfCalls)
{
    const auto source = fileOf(pattern(300));
    for (const std::size_t bufferSize : {1u, 2u, 7u, 32u, 500u}) {
        SCOPED_TRACE(bufferSize);
        Random random(bufferSize);
        const auto file = fileOf("");
        file->setMaxMoved(bufferSize % 2 == 0 ? 3 : SIZE_MAX);
        StreamWriter writer;
        StreamReader reader;
        writer.init(file.get(), true, bufferSize);
        reader.init(source.get(), true, 16);
        Bytes model;
        std::int64_t position = 0;
        for (int step = 0; step < 3000; ++step) {
            const std::int64_t from = random.between(0, 200);
            const std::int64_t count = random.between(0, random.chance(0.2) ? 90 : 12);
            const Bytes bytes = pattern(static_cast<std::size_t>(count), static_cast<std::size_t>(from));
            const auto mode = static_cast<Stream::Mode>(random.below(3));
            const std::int64_t origins[] = {0, position, static_cast<std::int64_t>(model.size())};
            bool writes = true;
            switch (random.below(8)) {
            case 0:
                writer.seek(from - origins[mode], mode);
                position = from;
                writes = false;
                break;
            case 1:
                writer.flush();
                ASSERT_EQ(file->bytes(), model) << "step " << step;
                writes = false;
                break;
            case 2:
                ASSERT_TRUE(writer.copy(source.get(), from, count));
                break;
            case 3:
                reader.seek(from, Stream::SEEK_FROM_START);
                ASSERT_TRUE(writer.copy(reader, count));
                break;
            default:
                ASSERT_EQ(writer.write(bytes.data(), bytes.size()), bytes.size());
            }
            if (writes && count > 0) {
                model.resize(std::max(model.size(), static_cast<std::size_t>(position + count)));
                std::copy(bytes.begin(), bytes.end(), model.begin() + position);
                position += count;
            }
            ASSERT_EQ(writer.tell(), position) << "step " << step;
        }
        writer.close(true);
        EXPECT_EQ(file->bytes(), model);
    }
}

TEST(StreamWriter, ReportsShortWritesAndClosesTheSourceOfACopy)
{
    const auto file = fileOf(""), source = fileOf(pattern(50));
    file->setCapacity(10);
    StreamWriter writer;
    writer.init(file.get(), true, 8);
    EXPECT_EQ(errorOf(40002, [&] { writer.copy(source.get(), 0, 50); }), "write error");
    EXPECT_EQ(source->openCount(), 0);
    writer.seek(7, Stream::SEEK_FROM_START);
    writer.put_str("1234567"); // which fits into the buffer
    EXPECT_EQ(errorOf(40002, [&] { writer.put_str("8"); }), "write error");
    writer.seek(9, Stream::SEEK_FROM_START);
    writer.put_str("12");
    EXPECT_EQ(errorOf(40002, [&] { writer.close(true); }), "write error");
    // Bytes that are written directly are counted.
    writer.seek(0, Stream::SEEK_FROM_START);
    EXPECT_EQ(writer.write(pattern(30).data(), 30), 10u);
}

TEST(StreamWriter, ReportsASourceThatIsTooShort)
{
    const auto file = fileOf(""), source = fileOf("0123456789");
    StreamWriter writer;
    writer.init(file.get(), true, 4);
    EXPECT_TRUE(writer.copy(IO::Location(source.get(), 8, 2)));
    for (const std::int64_t length : {std::int64_t{3}, std::int64_t{7}, INT64_MAX})
        EXPECT_FALSE(writer.copy(source.get(), 8, length)) << length;
    EXPECT_EQ(source->openCount(), 0);
    writer.close(true);
    EXPECT_EQ(file->text(), "89898989");
}

TEST(Stream, WritesNumbersBigEndian)
{
    const auto file = fileOf("");
    StreamWriter writer;
    writer.init(file.get(), true, 5);
    EXPECT_TRUE(writer.put_be(std::int16_t{-2}) && writer.put_be(0x01020304u) && writer.put_be(-2.5));
    writer.close(true);
    EXPECT_EQ(file->text(), std::string("\xFF\xFE\1\2\3\4\xC0\4\0\0\0\0\0\0", 14));

    StreamReader reader;
    reader.init(file.get(), true, 5);
    std::int16_t small = 0;
    std::uint32_t word = 0;
    double real = 0;
    EXPECT_TRUE(reader.get_be(small) && reader.get_be(word) && reader.get_be(real));
    EXPECT_TRUE(small == -2 && word == 0x01020304 && real == -2.5);
    reader.seek(-3, Stream::SEEK_FROM_CURRENT);
    EXPECT_FALSE(reader.get_be(word));
}

TEST(BoundedIO, EndsWithItsRangeOrWithTheFile)
{
    const auto file = fileOf(pattern(100));
    const std::int64_t cases[][3] = {{10, 20, 30}, {50, INT64_MAX, 100}, {INT64_MAX, INT64_MAX, 100},
                                     {0, -1, 0},   {40, INT64_MIN, 40},  {INT64_MIN, INT64_MIN, 0}};
    for (const auto& [offset, length, end] : cases) {
        SCOPED_TRACE(std::to_string(offset) + " + " + std::to_string(length));
        const Scoped<BoundedIO> bounded(BoundedIO::create(IO::Location(file.get(), offset, length)));
        EXPECT_EQ(bounded->size(), end);
        Bytes bytes(200);
        EXPECT_EQ(bounded->pread(0, bytes.data(), 200), static_cast<std::size_t>(end));
        for (const std::int64_t position : {end, end + 1, INT64_MAX, std::int64_t{-1}, INT64_MIN})
            EXPECT_EQ(bounded->pread(position, bytes.data(), 200), 0u) << position;
        errorOf(EROFS, [&] { bounded->pwrite(0, "x", 1); });
    }
}

} // namespace
} // namespace Quillmoran

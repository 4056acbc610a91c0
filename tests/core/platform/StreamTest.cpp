#include "platform/Stream.h"
#include "platform/FileIO.h"
#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/Random.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using Testing::Random;
using Testing::TemporaryDirectory;
using TestSupport::errorOf;
using Bytes = std::vector<std::uint8_t>;

Bytes pattern(std::size_t count, std::size_t first = 0)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>((first + i) * 167 + (first + i) / 256);
    return bytes;
}

Scoped<ByteStore> storeOf(Bytes bytes)
{
    return Scoped<ByteStore>(ByteStore::create(std::move(bytes)));
}

Scoped<ByteStore> storeOf(const std::string& text)
{
    return storeOf(Bytes(text.begin(), text.end()));
}

// What one read gives, in a block of exactly that size.
Bytes readBytes(StreamReader& reader, std::size_t count)
{
    Bytes bytes(count);
    bytes.resize(reader.read(bytes.data(), count));
    return bytes;
}

int countOf(const Object* object)
{
    object->retain();
    return object->release();
}

TEST(StreamReader, RefillsWhenExactlyTheBufferedBytesAreRead)
{
    const auto store = storeOf(pattern(20));
    StreamReader reader;
    reader.init(store.get(), true, 8);
    EXPECT_EQ(readBytes(reader, 3), pattern(3));
    EXPECT_EQ(readBytes(reader, 5), pattern(5, 3));
    EXPECT_EQ(reader.tell(), 8);
    EXPECT_EQ(store->reads(), 2);
    EXPECT_EQ(readBytes(reader, 7), pattern(7, 8));
    EXPECT_EQ(store->reads(), 2);
}

TEST(StreamReader, BypassesItsBufferForLargeReads)
{
    const auto store = storeOf(pattern(100));
    StreamReader reader;
    reader.init(store.get(), true, 4);
    readBytes(reader, 1);
    EXPECT_EQ(readBytes(reader, 50), pattern(50, 1));
    EXPECT_EQ(reader.tell(), 51);
    EXPECT_EQ(store->reads(), 2);
    EXPECT_EQ(readBytes(reader, 1), pattern(1, 51));
}

TEST(StreamReader, SeeksInsideTheBufferWithoutReading)
{
    const auto store = storeOf(pattern(64));
    StreamReader reader;
    reader.init(store.get(), true, 16);
    readBytes(reader, 10);
    for (const int target : {0, 15, 3, 12}) {
        reader.seek(target, Stream::SEEK_FROM_START);
        EXPECT_EQ(reader.tell(), target);
        reader.seek(-target, Stream::SEEK_FROM_CURRENT);
        EXPECT_EQ(readBytes(reader, 1), pattern(1));
    }
    reader.seek(16, Stream::SEEK_FROM_START); // the edge: nothing is left, nothing is lost
    reader.seek(-50, Stream::SEEK_FROM_END);
    EXPECT_EQ(readBytes(reader, 1), pattern(1, 14));
    EXPECT_EQ(store->reads(), 1);
}

TEST(StreamReader, SeeksOutsideTheBufferReadNothingYet)
{
    const auto store = storeOf(pattern(64));
    StreamReader reader;
    reader.init(store.get(), true, 8);
    readBytes(reader, 1);
    for (const int target : {40, 9, 64, 0})
        reader.seek(target, Stream::SEEK_FROM_START);
    EXPECT_EQ(store->reads(), 1);
    EXPECT_EQ(readBytes(reader, 4), pattern(4));
    EXPECT_EQ(store->reads(), 2);
}

TEST(StreamReader, FindsNothingOutsideTheStoreHoweverFarItSeeks)
{
    const auto store = storeOf(pattern(10));
    StreamReader reader;
    reader.init(store.get(), true, 8);
    readBytes(reader, 2);
    const struct
    {
        std::int64_t first, second, position;
        std::uint64_t remaining;
    } cases[] = {{11, 0, 11, 0},
                 {INT64_MAX, INT64_MAX, INT64_MAX, 0},
                 {-3, 1, -2, 12},
                 {INT64_MIN, INT64_MIN, INT64_MIN, (std::uint64_t{1} << 63) + 10}};
    for (const auto& each : cases) {
        reader.seek(each.first, Stream::SEEK_FROM_START);
        reader.seek(each.second, Stream::SEEK_FROM_CURRENT);
        EXPECT_EQ(reader.tell(), each.position);
        EXPECT_EQ(reader.remaining(), each.remaining);
        EXPECT_TRUE(readBytes(reader, 1).empty());
        EXPECT_TRUE(readBytes(reader, 20).empty());
    }
    reader.seek(-4, Stream::SEEK_FROM_END);
    EXPECT_EQ(reader.remaining(), 4u);
    EXPECT_EQ(readBytes(reader, 20), pattern(4, 6));
}

TEST(StreamReader, SeesChangesOfTheStoreAfterAFlush)
{
    const auto store = storeOf("abcdef");
    StreamReader reader;
    reader.init(store.get(), true, 8);
    readBytes(reader, 2);
    store->pwrite(0, "ABCDEF", 6);
    EXPECT_EQ(readBytes(reader, 1), Bytes{'c'});
    reader.flush();
    EXPECT_EQ(reader.tell(), 3);
    EXPECT_EQ(readBytes(reader, 1), Bytes{'D'});
}

TEST(StreamReader, AgreesWithAnArrayInEverySequenceOfCalls)
{
    constexpr std::int64_t length = 200;
    const Bytes all = pattern(length);
    const auto store = storeOf(all);
    for (const std::size_t bufferSize : {1u, 2u, 7u, 32u, 500u}) {
        SCOPED_TRACE(bufferSize);
        Random random(bufferSize);
        StreamReader reader;
        reader.init(store.get(), true, bufferSize);
        std::int64_t position = 0;
        for (int step = 0; step < 4000; ++step) {
            const std::int64_t target = random.between(-5, length + 5);
            switch (random.below(8)) {
            case 0:
                reader.seek(position = target, Stream::SEEK_FROM_START);
                break;
            case 1:
                reader.seek(target - position, Stream::SEEK_FROM_CURRENT);
                position = target;
                break;
            case 2:
                reader.seek(target - length, Stream::SEEK_FROM_END);
                position = target;
                break;
            case 3:
                reader.flush();
                break;
            default: {
                const std::uint64_t count = random.below(random.chance(0.2) ? 90 : 12);
                const std::int64_t first = position < 0 ? length : std::min(position, length);
                const auto expected = all.begin() + first;
                const std::int64_t got = std::min<std::int64_t>(static_cast<std::int64_t>(count), length - first);
                ASSERT_EQ(readBytes(reader, count), Bytes(expected, expected + got)) << "step " << step;
                position += got;
            }
            }
            ASSERT_EQ(reader.tell(), position) << "step " << step;
        }
    }
}

TEST(StreamReader, ReadsLinesOfAnyLengthIntoAGrowingBuffer)
{
    std::vector<std::string> lines;
    for (const std::size_t length : {0u, 1u, 1021u, 1022u, 1023u, 1024u, 3u, 5000u})
        lines.push_back(std::string(length, 'x') + '\n');
    lines.push_back("no newline");
    std::string text;
    for (const std::string& line : lines)
        text += line;
    for (const std::size_t bufferSize : {1u, 10u, 1024u, 100000u}) {
        const auto store = storeOf(text);
        StreamReader reader;
        reader.init(store.get(), true, bufferSize);
        char* line = nullptr;
        std::size_t capacity = 0;
        for (const std::string& expected : lines) {
            ASSERT_TRUE(reader.get_str(line, capacity));
            EXPECT_EQ(line, expected) << "buffer " << bufferSize;
            EXPECT_EQ(capacity % 1024, 0u);
        }
        EXPECT_FALSE(reader.get_str(line, capacity));
        EXPECT_FALSE(reader.get_str(line, capacity));
        XDEALLOC(line);
    }
}

TEST(StreamReader, StartsAtAStretchAndReadsOnBehindIt)
{
    const auto store = storeOf(pattern(50));
    for (const std::int64_t length : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{5}, INT64_MAX}) {
        StreamReader reader;
        reader.init(IO::Location(store.get(), 10, length), 16);
        EXPECT_EQ(reader.tell(), 10);
        EXPECT_EQ(readBytes(reader, 8), pattern(8, 10)) << length;
    }
}

TEST(Stream, ClosesAndReleasesItsStore)
{
    const auto store = storeOf("");
    {
        StreamReader reader, closed;
        StreamWriter writer;
        reader.init(store.get(), true, 8);
        reader.open(8); // once is enough
        writer.init(store.get(), true, 8);
        closed.init(store.get(), true, 8);
        EXPECT_EQ(store->openCount(), 3);
        closed.close();
        closed.close();
        EXPECT_EQ(store->openCount(), 2);
    }
    EXPECT_EQ(store->openCount(), 0);
    EXPECT_EQ(countOf(store.get()), 1);
}

TEST(Stream, DoesNotCloseAStoreThatItCouldNotOpen)
{
    const TemporaryDirectory directory;
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(directory.path("late").c_str(), "r");
    StreamReader reader;
    EXPECT_THROW(reader.init(file.get(), true, 8), Error);
    reader.close();
    directory.file("late", "abc");
    reader.open(8);
    EXPECT_EQ(readBytes(reader, 9).size(), 3u);
    reader.close();
    EXPECT_EQ(errorOf(EBADF, [&] { file->pread(0, nullptr, 1); }).find("Bad file"), 0u);
}

TEST(StreamWriter, KeepsBytesUntilItsBufferIsFull)
{
    const auto store = storeOf("");
    StreamWriter writer;
    writer.init(store.get(), true, 8);
    writer.write("1234567", 7);
    EXPECT_EQ(store->writes(), 0);
    EXPECT_EQ(writer.tell(), 7);
    writer.write("8", 1);
    EXPECT_EQ(store->text(), "12345678");
    writer.write("9", 1);
    EXPECT_EQ(store->writes(), 1);
    writer.write("0123456789abcdefghij", 20); // what is left after filling the buffer goes by it
    EXPECT_EQ(store->text(), "123456789" "0123456789abcdefghij");
    EXPECT_EQ(store->writes(), 3);
}

TEST(StreamWriter, DropsOrWritesWhatIsBufferedWhenClosing)
{
    for (const bool flush : {false, true}) {
        const auto store = storeOf("");
        StreamWriter writer;
        writer.init(store.get(), true, 8);
        writer.put_str("abc");
        writer.close(flush);
        EXPECT_EQ(store->text(), flush ? "abc" : "");
    }
}

TEST(StreamWriter, AgreesWithAnArrayInEverySequenceOfCalls)
{
    const Bytes other = pattern(300, 1000);
    const auto otherStore = storeOf(other);
    for (const std::size_t bufferSize : {1u, 2u, 7u, 32u, 500u}) {
        SCOPED_TRACE(bufferSize);
        Random random(bufferSize);
        const auto store = storeOf("");
        StreamWriter writer;
        writer.init(store.get(), true, bufferSize);
        StreamReader source;
        source.init(otherStore.get(), true, 16);
        Bytes model;
        std::size_t position = 0;
        const auto expectWritten = [&](Bytes bytes) {
            model.resize(std::max(model.size(), position + bytes.size()));
            std::copy(bytes.begin(), bytes.end(), model.begin() + static_cast<std::ptrdiff_t>(position));
            position += bytes.size();
        };
        for (int step = 0; step < 3000; ++step) {
            const std::size_t count = random.below(random.chance(0.2) ? 90 : 12);
            const std::size_t from = random.below(200);
            const auto signedCount = static_cast<std::int64_t>(count), signedFrom = static_cast<std::int64_t>(from);
            const Bytes bytes = pattern(count, 1000 + from); // other[from ...]
            switch (random.below(8)) {
            case 0:
                writer.seek(signedFrom, Stream::SEEK_FROM_START);
                position = from;
                break;
            case 1:
                writer.seek(signedFrom - writer.tell(), Stream::SEEK_FROM_CURRENT);
                position = from;
                break;
            case 2:
                writer.flush();
                ASSERT_EQ(store->bytes(), model) << "step " << step;
                writer.seek(-std::min(signedFrom, store->size()), Stream::SEEK_FROM_END);
                position = model.size() - std::min(from, model.size());
                break;
            case 3:
                ASSERT_TRUE(writer.copy(otherStore.get(), signedFrom, signedCount));
                expectWritten(bytes);
                break;
            case 4:
                source.seek(signedFrom, Stream::SEEK_FROM_START);
                ASSERT_TRUE(writer.copy(source, signedCount));
                EXPECT_EQ(source.tell(), signedFrom + signedCount);
                expectWritten(bytes);
                break;
            default:
                ASSERT_EQ(writer.write(bytes.data(), count), count);
                expectWritten(bytes);
            }
            ASSERT_EQ(writer.tell(), static_cast<std::int64_t>(position)) << "step " << step;
        }
        writer.close(true);
        EXPECT_EQ(store->bytes(), model);
        EXPECT_EQ(otherStore->openCount(), 1); // the reader's
    }
}

TEST(StreamWriter, ReportsShortWrites)
{
    const auto store = storeOf("");
    store->setCapacity(10);
    const auto source = storeOf(pattern(50));
    const auto failing = [&](auto body) {
        StreamWriter writer;
        writer.init(store.get(), true, 8);
        return errorOf(40002, [&] { body(writer); });
    };
    const Bytes bytes(7);
    EXPECT_EQ(failing([&](StreamWriter& writer) {
                  writer.write(bytes.data(), 7); // the buffer takes these
                  writer.write(bytes.data(), 7);
                  writer.write(bytes.data(), 7);
              }),
              "write error");
    EXPECT_EQ(failing([&](StreamWriter& writer) {
                  writer.seek(10, Stream::SEEK_FROM_START);
                  writer.put_be('x');
                  writer.close(true);
              }),
              "write error");
    EXPECT_EQ(failing([&](StreamWriter& writer) { writer.copy(source.get(), 0, 50); }), "write error");
    EXPECT_EQ(store->openCount(), 0);
    EXPECT_EQ(source->openCount(), 0);
}

TEST(StreamWriter, ReturnsWhatALargeWriteLeftOut)
{
    const auto store = storeOf("");
    store->setCapacity(10);
    StreamWriter writer;
    writer.init(store.get(), true, 4);
    EXPECT_EQ(writer.write(pattern(30).data(), 30), 10u);
    EXPECT_EQ(writer.tell(), 10);
    EXPECT_FALSE(writer.put_str("another long text"));
}

TEST(StreamWriter, TellsWhenTheSourceOfACopyEndsTooSoon)
{
    const auto store = storeOf(""), source = storeOf("0123456789");
    StreamWriter writer;
    writer.init(store.get(), true, 4);
    EXPECT_TRUE(writer.copy(IO::Location(source.get(), 8, 2)));
    for (const std::int64_t length : {std::int64_t{3}, std::int64_t{7}, INT64_MAX}) {
        EXPECT_FALSE(writer.copy(source.get(), 8, length)) << length;
        EXPECT_EQ(source->openCount(), 0);
    }
    writer.close(true);
    EXPECT_EQ(store->text(), "89898989");
}

TEST(Stream, KeepsNumbersBigEndian)
{
    const auto store = storeOf("");
    StreamWriter writer;
    writer.init(store.get(), true, 5);
    EXPECT_TRUE(writer.put_be(std::uint8_t{0xAB}) && writer.put_be(std::int16_t{-2}) &&
                writer.put_be(std::uint32_t{0x01020304}) && writer.put_be(INT64_MIN + 1) &&
                writer.put_be(-2.5f) && writer.put_be(1.0));
    writer.close(true);
    const Bytes expected{0xAB, 0xFF, 0xFE, 1, 2,    3,    4, 0x80, 0,    0,    0, 0, 0, 0,
                         0,    1,    0xC0, 0x20, 0, 0, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(store->bytes(), expected);

    StreamReader reader;
    reader.init(store.get(), true, 5);
    std::uint8_t byte;
    std::int16_t small;
    std::uint32_t word;
    std::int64_t large;
    float single;
    double real;
    ASSERT_TRUE(reader.get_be(byte) && reader.get_be(small) && reader.get_be(word) && reader.get_be(large) &&
                reader.get_be(single) && reader.get_be(real));
    EXPECT_EQ(byte, 0xAB);
    EXPECT_EQ(small, -2);
    EXPECT_EQ(word, 0x01020304u);
    EXPECT_EQ(large, INT64_MIN + 1);
    EXPECT_EQ(single, -2.5f);
    EXPECT_EQ(real, 1.0);
    reader.seek(-3, Stream::SEEK_FROM_CURRENT);
    EXPECT_FALSE(reader.get_be(word));
}

TEST(Location, KeepsItsStoreAlive)
{
    const auto first = storeOf("1"), second = storeOf("2");
    {
        IO::Location location(first.get(), 3, 4);
        const IO::Location copy = location;
        EXPECT_EQ(countOf(first.get()), 3);
        location.set(first.get(), 5, 6);
        EXPECT_EQ(countOf(first.get()), 3);
        location.set(second.get(), 7, 8);
        EXPECT_EQ(countOf(first.get()), 2);
        EXPECT_EQ(countOf(second.get()), 2);
        location = copy;
        EXPECT_EQ(location.io(), first.get());
        EXPECT_EQ(location.offset(), 3);
        EXPECT_EQ(location.length(), 4);
    }
    EXPECT_EQ(countOf(first.get()) + countOf(second.get()), 2);
}

TEST(BoundedIO, EndsWhereItsStretchEnds)
{
    const auto store = storeOf(pattern(100));
    const Scoped<BoundedIO> bounded(BoundedIO::create(IO::Location(store.get(), 10, 20)));
    EXPECT_EQ(bounded->size(), 30);
    StreamReader reader;
    reader.init(bounded.get(), true, 8);
    EXPECT_EQ(store->openCount(), 1);
    reader.seek(10, Stream::SEEK_FROM_START); // positions are those of the store
    EXPECT_EQ(readBytes(reader, 50), pattern(20, 10));
    EXPECT_EQ(readBytes(reader, 3), Bytes());
    reader.seek(28, Stream::SEEK_FROM_START);
    EXPECT_EQ(reader.remaining(), 2u);
    EXPECT_EQ(readBytes(reader, 3), pattern(2, 28));
}

TEST(BoundedIO, ClampsHostileStretchesToTheStore)
{
    const auto store = storeOf(pattern(100));
    const struct
    {
        std::int64_t offset, length, end;
    } cases[] = {{50, INT64_MAX, 100}, {100, 1, 100},           {INT64_MAX, INT64_MAX, 100}, {0, -1, 0},
                 {40, INT64_MIN, 40},  {INT64_MIN, INT64_MIN, 0}, {101, 0, 100}};
    for (const auto& each : cases) {
        const Scoped<BoundedIO> bounded(
            BoundedIO::create(IO::Location(store.get(), each.offset, each.length)));
        EXPECT_EQ(bounded->size(), each.end) << each.offset << '+' << each.length;
        Bytes bytes(200);
        EXPECT_EQ(bounded->pread(0, bytes.data(), 200), static_cast<std::size_t>(each.end));
        for (const std::int64_t position : {each.end, INT64_MAX, std::int64_t{-1}, INT64_MIN})
            EXPECT_EQ(bounded->pread(position, bytes.data(), 200), 0u) << position;
    }
}

TEST(BoundedIO, RefusesToWrite)
{
    const auto store = storeOf("abc");
    const Scoped<BoundedIO> bounded(BoundedIO::create(IO::Location(store.get(), 0, 3)));
    errorOf(EROFS, [&] { bounded->pwrite(0, "x", 1); });
    errorOf(EROFS, [&] { bounded->truncate(0); });
    EXPECT_EQ(store->text(), "abc");
}

} // namespace
} // namespace Quillmoran

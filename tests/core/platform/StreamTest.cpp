#include "platform/Stream.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

std::string pattern(std::int64_t count, std::int64_t first = 0)
{
    std::string bytes;
    for (std::int64_t i = first; i < first + count; ++i)
        bytes += static_cast<char>(i * 167 + i / 256);
    return bytes;
}

// The result of one read, in a block of exactly that size.
std::string readBytes(StreamReader& reader, std::size_t count)
{
    std::vector<char> bytes(count);
    const std::size_t got = reader.read(bytes.data(), count);
    return {bytes.data(), got};
}

TEST(StreamReader, ReadsWhatItsBufferHoldsFromThere)
{
    const auto file = ByteStore::make(pattern(64));
    StreamReader reader;
    reader.init(file.get(), true, 8);
    // Exactly the buffered bytes, then a full buffer.
    for (const auto& [count, reads] : {std::pair{3u, 1}, {5, 2}, {7, 2}, {1, 3}, {8, 4}}) {
        readBytes(reader, count);
        EXPECT_EQ(file->reads(), reads) << count;
    }
    reader.seek(0, Stream::SEEK_FROM_START);
    reader.close();
    reader.open(16);
    readBytes(reader, 10);
    const int before = file->reads();
    for (const int target : {0, 15, 3, 16}) {
        reader.seek(target, Stream::SEEK_FROM_START);
        reader.seek(-target, Stream::SEEK_FROM_CURRENT);
        EXPECT_EQ(readBytes(reader, 1), pattern(1));
    }
    for (const int target : {40, 17, 64, 0})
        reader.seek(target, Stream::SEEK_FROM_START);
    EXPECT_EQ(file->reads(), before);
    EXPECT_EQ(readBytes(reader, 20), pattern(20)); // past the buffer

    StreamReader range;
    range.init(IO::Location(file.get(), 30, 5), 1000);
    EXPECT_EQ(readBytes(range, 4), pattern(4, 30));
    file->setMaxMoved(1);
    const int reads = file->reads();
    EXPECT_EQ(readBytes(range, 3), pattern(3, 34)) << "the range does not limit reads";
    EXPECT_EQ(file->reads() - reads, 2) << "but the buffer";
}

TEST(StreamReader, ReadsNothingOutsideTheFile)
{
    StreamReader reader;
    reader.init(ByteStore::make(pattern(10)).get(), true, 8);
    for (const std::int64_t far : {std::int64_t{11}, INT64_MAX, std::int64_t{-3}, INT64_MIN}) {
        readBytes(reader, 2);
        reader.seek(far, Stream::SEEK_FROM_START);
        reader.seek(far < 0 ? INT64_MIN : INT64_MAX, Stream::SEEK_FROM_CURRENT);
        EXPECT_EQ(reader.tell(), far < 0 ? INT64_MIN : INT64_MAX);
        EXPECT_EQ(reader.remaining(), far < 0 ? (std::uint64_t{1} << 63) + 10 : 0);
        EXPECT_EQ(readBytes(reader, 1) + readBytes(reader, 20), "");
        reader.seek(0, Stream::SEEK_FROM_START);
    }
}

TEST(StreamReader, AgreesWithAnArrayInEverySequenceOfCalls)
{
    constexpr std::int64_t length = 200;
    const std::string all = pattern(length);
    const auto file = ByteStore::make(all);
    for (const std::size_t bufferSize : {1u, 2u, 7u, 32u, 500u}) {
        SCOPED_TRACE(bufferSize);
        Random random(bufferSize);
        file->setMaxMoved(bufferSize % 2 == 0 ? 3 : SIZE_MAX);
        StreamReader reader;
        reader.init(file.get(), true, bufferSize);
        std::int64_t position = 0;
        for (int step = 0; step < 4000; ++step) {
            const std::int64_t near = std::max<std::int64_t>(position, 0) + random.between(-5, 5);
            const std::int64_t target = random.chance(0.5) ? near : random.between(-5, length + 5);
            const auto mode = static_cast<Stream::Mode>(random.below(3));
            const std::int64_t origins[] = {0, position, length};
            const std::uint64_t call = random.below(6);
            if (call == 0) {
                reader.seek(target - origins[mode], mode);
                position = target;
            } else if (call == 1) {
                reader.flush();
            } else if (call == 2) {
                reader.close();
                reader.open(bufferSize);
            } else {
                const std::size_t count = random.below(random.chance(0.2) ? 91 : 13);
                const std::int64_t first = position < 0 ? length : std::min(position, length);
                const std::string expected = all.substr(static_cast<std::size_t>(first), count);
                ASSERT_EQ(readBytes(reader, count), expected) << "step " << step;
                position += static_cast<std::int64_t>(expected.size());
            }
            ASSERT_EQ(reader.tell(), position) << "step " << step;
        }
    }
}

TEST(StreamWriter, KeepsBytesUntilItsBufferIsFull)
{
    const auto file = ByteStore::make();
    StreamWriter writer;
    writer.init(file.get(), true, 8);
    for (const auto& [text, writes] : {std::pair{"1234567", 0},
                                       {"8", 1},
                                       {"9", 1},
                                       {"0123456789abcdefghij", 3},
                                       {"klm", 3},
                                       {"nopqr", 4}}) {
        writer.put_str(text);
        EXPECT_EQ(file->writes(), writes) << text; // the rest after filling the buffer is written directly
    }
    writer.put_str("dropped");
    writer.close(false);
    EXPECT_EQ(file->text(), "1234567890123456789abcdefghijklmnopqr");
}

TEST(StreamWriter, AgreesWithAnArrayInEverySequenceOfCalls)
{
    const auto source = ByteStore::make(pattern(300));
    for (const std::size_t bufferSize : {1u, 2u, 7u, 32u, 500u}) {
        SCOPED_TRACE(bufferSize);
        Random random(bufferSize);
        const auto file = ByteStore::make();
        file->setMaxMoved(bufferSize % 2 == 0 ? 3 : SIZE_MAX);
        StreamWriter writer;
        StreamReader reader;
        writer.init(file.get(), true, bufferSize);
        reader.init(source.get(), true, 16);
        std::string model;
        std::size_t position = 0;
        for (int step = 0; step < 3000; ++step) {
            const std::int64_t from = random.between(0, 200);
            const std::int64_t count = random.between(0, random.chance(0.2) ? 90 : 12);
            std::string bytes = pattern(count, from);
            const auto mode = static_cast<Stream::Mode>(random.below(3));
            const std::size_t origins[] = {0, position, model.size()};
            const std::uint64_t call = random.below(8);
            if (call == 0) {
                writer.seek(from - static_cast<std::int64_t>(origins[mode]), mode);
                position = static_cast<std::size_t>(from);
                bytes.clear();
            } else if (call == 1) {
                writer.flush();
                ASSERT_EQ(file->text(), model) << "step " << step;
                bytes.clear();
            } else if (call == 2) {
                ASSERT_TRUE(writer.copy(source.get(), from, count));
            } else if (call == 3) {
                reader.seek(from, Stream::SEEK_FROM_START);
                ASSERT_TRUE(writer.copy(reader, count));
            } else {
                ASSERT_EQ(writer.write(bytes.data(), bytes.size()), bytes.size());
            }
            if (!bytes.empty()) {
                model.resize(std::max(model.size(), position + bytes.size()));
                model.replace(position, bytes.size(), bytes);
                position += bytes.size();
            }
            ASSERT_EQ(writer.tell(), static_cast<std::int64_t>(position)) << "step " << step;
        }
        writer.close(true);
        EXPECT_EQ(file->text(), model);
    }
}

TEST(StreamWriter, ReportsShortWritesAndShortSources)
{
    const auto full = ByteStore::make(), fifty = ByteStore::make(pattern(50));
    full->setCapacity(10);
    StreamWriter writer;
    writer.init(full.get(), true, 8);
    EXPECT_EQ(errorOf(40002, [&] { writer.copy(fifty.get(), 0, 50); }), "write error");
    writer.seek(7, Stream::SEEK_FROM_START);
    writer.put_str("1234567"); // which fits into the buffer
    EXPECT_EQ(errorOf(40002, [&] { writer.put_str("8"); }), "write error");
    writer.seek(9, Stream::SEEK_FROM_START);
    writer.put_str("12");
    EXPECT_EQ(errorOf(40002, [&] { writer.close(true); }), "write error");
    // Bytes that are written directly are counted.
    writer.seek(0, Stream::SEEK_FROM_START);
    EXPECT_EQ(writer.write(pattern(30).data(), 30), 10u);

    const auto file = ByteStore::make(), source = ByteStore::make("0123456789");
    StreamWriter copying;
    StreamReader reader;
    copying.init(file.get(), true, 4);
    reader.init(source.get(), true, 4);
    EXPECT_TRUE(copying.copy(IO::Location(source.get(), 8, 2)));
    for (const std::int64_t length : {std::int64_t{3}, std::int64_t{7}, INT64_MAX, std::int64_t{-1}})
        EXPECT_FALSE(copying.copy(source.get(), 8, length)) << length;
    EXPECT_FALSE(copying.copy(reader, -1));
    EXPECT_EQ(source->openCount(), 1);
    copying.close(true);
    EXPECT_EQ(file->text(), "89898989");
}

TEST(BoundedIO, EndsWithItsRangeOrWithTheFile)
{
    const auto file = ByteStore::make(pattern(100));
    const std::int64_t cases[][3] = {{10, 20, 30}, {50, INT64_MAX, 100}, {INT64_MAX, INT64_MAX, 100},
                                     {0, -1, 0},   {40, INT64_MIN, 40},  {INT64_MIN, INT64_MIN, 0}};
    for (const auto& [offset, length, end] : cases) {
        SCOPED_TRACE(std::to_string(offset) + " + " + std::to_string(length));
        const Scoped<BoundedIO> bounded(BoundedIO::create(IO::Location(file.get(), offset, length)));
        EXPECT_EQ(bounded->size(), end);
        char bytes[200];
        EXPECT_EQ(bounded->pread(0, bytes, 200), static_cast<std::size_t>(end));
        for (const std::int64_t position : {end, end + 1, INT64_MAX, std::int64_t{-1}, INT64_MIN})
            EXPECT_EQ(bounded->pread(position, bytes, 200), 0u) << position;
        EXPECT_NE(errorOf(EROFS, [&] { bounded->pwrite(0, "x", 1); }), "nothing thrown");
        EXPECT_NE(errorOf(EROFS, [&] { bounded->truncate(0); }), "nothing thrown");
    }
}

}} // namespace Quillmoran::Testing

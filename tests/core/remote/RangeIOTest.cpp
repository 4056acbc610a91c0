// The bytes of a remote file against a copy of them, with a source that counts what it is asked and fails on demand.
#include "remote/RangeIO.h"

#include <vxunpack/Base.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

namespace Quillmoran::Testing { namespace {

// What a source does, and has done. Outlives it.
struct Server
{
    explicit Server(std::size_t size) : bytes(size)
    {
        std::mt19937 random(7);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random());
    }

    std::vector<unsigned char> bytes;
    bool takesMany = true;
    std::atomic<int> numCalls = 0, numRanges = 0, numFailures = 0; // failures that are left
    std::atomic<std::int64_t> numBytes = 0;
    RangeSource::Result::Status failure = RangeSource::Result::Failed;
};

class FakeSource final : public RangeSource
{
public:
    explicit FakeSource(Server& server) : m_server(server) {}

    Result open(std::int64_t& size, std::vector<unsigned char>& head) override
    {
        size = static_cast<std::int64_t>(m_server.bytes.size());
        head.resize(std::min(head.size(), m_server.bytes.size()));
        std::copy_n(m_server.bytes.begin(), head.size(), head.begin());
        return {};
    }
    Result read(std::span<const Read> reads) override
    {
        ++m_server.numCalls;
        if (m_server.numFailures > 0) {
            --m_server.numFailures;
            return {m_server.failure, "out of order"};
        }
        std::int64_t end = 0;
        for (const Read& read : reads) {
            EXPECT_GE(read.offset, end) << "not sorted, or not disjoint";
            end = read.offset + static_cast<std::int64_t>(read.into.size());
            std::copy_n(m_server.bytes.begin() + read.offset, read.into.size(), read.into.begin());
            ++m_server.numRanges;
            m_server.numBytes += static_cast<std::int64_t>(read.into.size());
        }
        EXPECT_LE(end, static_cast<std::int64_t>(m_server.bytes.size()));
        return {};
    }
    bool takesManyRanges() const noexcept override { return m_server.takesMany; }

private:
    Server& m_server;
};

Scoped<IO> makeFile(Server& server)
{
    return Scoped<IO>(RangeIO::create(std::make_unique<FakeSource>(server), "far.vxl"));
}

void expectBytes(const IO& file, const Server& server, std::int64_t offset, std::size_t count)
{
    std::vector<unsigned char> read(count);
    const auto size = static_cast<std::int64_t>(server.bytes.size());
    const auto available = static_cast<std::size_t>(
        std::clamp<std::int64_t>(size - offset, 0, static_cast<std::int64_t>(count)));
    ASSERT_EQ(readFully(file, offset, read.data(), count), available);
    ASSERT_TRUE(std::equal(read.begin(), read.begin() + static_cast<std::ptrdiff_t>(available),
                           server.bytes.begin() + std::min(offset, size)))
        << offset << ' ' << count;
}

TEST(RangeIO, GivesTheBytesOfTheFileOnAnyNumberOfThreads)
{
    // Larger than what is kept, so that extents are dropped while others are read.
    Server server(std::size_t{100} << 20);
    for (const bool takesMany : {true, false}) {
        server.takesMany = takesMany;
        const Scoped<IO> file = makeFile(server);
        file->open();
        const auto work = [&](unsigned seed) {
            std::mt19937_64 random(seed);
            const auto anywhere = [&] {
                return static_cast<std::int64_t>(random() % (server.bytes.size() + 9));
            };
            for (int i = 0; i < 30; ++i) {
                std::vector<IO::Range> ranges;
                for (std::size_t j = random() % 40; j > 0; --j)
                    ranges.push_back(
                        {anywhere(), static_cast<std::int64_t>(random() % (1u << (random() % 20)))});
                file->willRead(ranges);
                for (const IO::Range& range : ranges)
                    expectBytes(*file, server, range.offset, static_cast<std::size_t>(range.length));
                expectBytes(*file, server, anywhere(), random() % 300000);
                if (i % 10 == 0) { // another user comes and goes
                    file->open();
                    file->close();
                }
            }
        };
        std::vector<std::thread> threads;
        for (unsigned seed = 1; seed <= 4; ++seed)
            threads.emplace_back(work, seed);
        for (std::thread& thread : threads)
            thread.join();
        file->close();
    }
}

TEST(RangeIO, ReceivesWhatWasAnnouncedOnce)
{
    for (const bool takesMany : {true, false}) {
        Server server(10 << 20);
        server.takesMany = takesMany;
        const Scoped<IO> file = makeFile(server);
        file->open();
        expectBytes(*file, server, 0, 60000);
        EXPECT_EQ(server.numCalls, 0) << "the first bytes come with the answer to open()";
        // Out of order, overlapping, with a small gap, with a gap of 40,000, and beyond the end.
        const IO::Range ranges[] = {{5000000, 1000}, {1000000, 2000}, {1001000, 2000},
                                    {1003100, 100},  {1043200, 10},   {10 << 20, 50}};
        file->willRead(ranges);
        EXPECT_EQ(server.numCalls, 1);
        EXPECT_EQ(server.numRanges, takesMany ? 3 : 2);
        EXPECT_EQ(server.numBytes, takesMany ? 3200 + 10 + 1000 : 43210 + 1000);
        for (const IO::Range& range : ranges)
            expectBytes(*file, server, range.offset, static_cast<std::size_t>(range.length));
        file->willRead(ranges);
        EXPECT_EQ(server.numCalls, 1);
        // Reads of one place after the other take few requests.
        for (std::int64_t at = 6000000; at < 10000000; at += 10000)
            expectBytes(*file, server, at, 10000);
        EXPECT_LE(server.numCalls, 9);
        file->close();
    }
}

TEST(RangeIO, ReportsFailuresAndRecovers)
{
    using Status = RangeSource::Result::Status;
    const std::tuple<Status, ErrorCode, std::string> cases[] = {
        {Status::Failed, ErrorCode::RemoteRead, "cannot read 'far.vxl': out of order"},
        {Status::Changed, ErrorCode::RemoteChanged, "'far.vxl' has changed while it was read"},
        {Status::Cancelled, ErrorCode::Cancelled, "operation cancelled."}};
    Server server(1 << 20);
    const Scoped<IO> file = makeFile(server);
    file->open();
    IO::Range range{200000, 10};
    for (const auto& [status, code, message] : cases) {
        server.failure = status;
        server.numFailures = 2;
        range.offset += 200000;
        for (const bool announces : {true, false}) {
            try {
                unsigned char byte;
                if (announces)
                    file->willRead({&range, 1});
                else
                    file->pread(range.offset, &byte, 1);
                ADD_FAILURE() << message;
            } catch (const Error& error) {
                EXPECT_EQ(error.code(), code);
                EXPECT_EQ(error.what(), message);
            }
        }
        expectBytes(*file, server, range.offset, 10);
    }
    unsigned char byte = 0;
    EXPECT_THROW(file->pwrite(0, &byte, 1), Error);
    EXPECT_THROW(file->truncate(0), Error);
    EXPECT_EQ(file->pread(-1, &byte, 1), 0u);
    file->close();
}

}} // namespace Quillmoran::Testing

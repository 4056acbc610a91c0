// What all writers of point files promise: the output is complete or unchanged, nothing else is left in its
// directory, progress ends with the work, and a writer can be used again.
#include "pdal/PDALFormats.h"

#include "support/CoordinateSystems.h"
#include "support/Test.h"
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/TXTPointWriter.h>
#include <vxunpack/VX7PointWriter.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace Quillmoran::Testing { namespace {

// More than one block of every writer.
constexpr std::size_t numPoints = 70000;
constexpr std::size_t pointsPerBlock = 20000;

// A new writer, or the used one with another source or path.
using Prepare = Scoped<PointWriter> (*)(PointWriter* used, PointSource& source, const std::string& path);

template <class Writer, class... Arguments>
Scoped<PointWriter> initialized(PointWriter* used, Arguments... arguments)
{
    Scoped<Writer> writer =
        used ? Scoped<Writer>::retained(static_cast<Writer*>(used)) : Scoped<Writer>(Writer::create());
    writer->init(arguments...);
    return Scoped<PointWriter>(writer.detach());
}

Scoped<PointWriter> text(PointWriter* used, PointSource& source, const std::string& path)
{
    return initialized<TXTPointWriter>(used, &source, path.c_str(), source.getPointInfo());
}

Scoped<PointWriter> las(PointWriter* used, PointSource& source, const std::string& path)
{
    return initialized<LASPointWriter>(used, &source, path.c_str(), -1);
}

Scoped<PointWriter> laz(PointWriter* used, PointSource& source, const std::string& path)
{
    Scoped<PointWriter> writer = las(used, source, path);
    static_cast<LASPointWriter&>(*writer).setWriteLAZ(true);
    return writer;
}

Scoped<PointWriter> vx7(PointWriter* used, PointSource& source, const std::string& path)
{
    return initialized<VX7PointWriter>(used, &source, path.c_str());
}

// Of errors; "$" is the path, and the system's message follows.
constexpr char cannotCreate[] = "40610 Unable to create output $. ";
constexpr char cannotWrite[] = "40601 Unable to write point: ";

struct Format
{
    const char* name; // of the test
    const char* messageName;
    Prepare prepare;
    bool canPrepareAgain;
    Strings activities;
    double ownWork;                    // per point; reading it from the source is 1 per pass
    int passes;                        // over the source
    std::array<const char*, 3> errors; // of creating it, its header and its points
};

const Format formats[] = {
    {"TXT", "TXT", text, true, {"writing text file"}, 1, 1, {"2 ", "27 ", "27 "}},
    {"LAS", "LAS", las, true, {"writing LAS file"}, 1, 1, {cannotCreate, cannotCreate, cannotWrite}},
    {"LAZ", "LAS", laz, true, {"writing LAS file"}, 1, 1, {cannotCreate, cannotCreate, cannotWrite}},
    {"VX7", "VX7", vx7, true, {"surveying points", "writing VX7 file"}, 2.5, 2, {"2 ", "27 ", "27 "}},
#if HAS_PDAL
    {"BPF",
     "BPF",
     [](PointWriter*, PointSource& source, const std::string& path) {
         return Scoped<PointWriter>(createPDALPointWriter(&source, path.c_str()));
     },
     false,
     {"writing BPF file"},
     1,
     1,
     {cannotCreate, cannotWrite, cannotWrite}},
#endif
};
constexpr int numQueries = 4; // of each writer, whether to cancel: one per block and pass

// Files cannot grow beyond a size during its lifetime, as on a full disk.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(std::size_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*m_handler)(int);
    rlimit m_before;
};

class WriterContract : public testing::TestWithParam<Format>
{
protected:
    WriterContract() { ::setenv("TMPDIR", temporary.path().c_str(), 1); }
    ~WriterContract() override { ::unsetenv("TMPDIR"); }

    static Scoped<MemoryPointSource> makeSource(std::size_t count, double first = 0)
    {
        const PointInfo layout = layoutOf({channel("X", FLOAT64, 0.01), channel("Y", FLOAT64, 0.01),
                                           channel("Z", FLOAT64, 0.01), channel("Intensity", UINT16),
                                           channel("ReturnNum", UINT8, 0, 3), channel("GPSTime", FLOAT64)});
        MemoryPointSource::Columns columns(layout.getNumChannels(), std::vector<double>(count));
        for (std::size_t i = 0; i < count; ++i) {
            const double t = first + static_cast<double>(i);
            columns[0][i] = 500 + t * 0.25;
            columns[1][i] = -3000 - t * 0.5;
            columns[2][i] = static_cast<double>((i * 7919 + i * i) % 1024) * 0.125;
            columns[3][i] = static_cast<double>((i * 104729 + i * i) % 4001);
            columns[4][i] = static_cast<double>(1 + i % 3);
            columns[5][i] = 1000 + t * 0.015625;
        }
        auto source = MemoryPointSource::make(layout, columns);
        source->setWKT(wgs84.c_str());
        const double counts[] = {3, 2, 1, 0, 0};
        source->metadata().add("PointRecordsByReturnCount", nullptr, METADATA_FLOAT64_ARRAY, counts, 5);
        source->metadata().add("SystemID", nullptr, METADATA_STRING, "scanner", 0);
        return source;
    }

    Scoped<PointWriter> makeWriter(PointSource& from, PointWriter* used = nullptr) const
    {
        Scoped<PointWriter> writer = GetParam().prepare(used, from, path);
        writer->setChunckSize(pointsPerBlock);
        return writer;
    }
    std::int64_t write(PointWriter& writer, const Bounds& area = Bounds::Huge(), double fraction = 1,
                       ProgressDelegate* delegate = nullptr) const
    {
        return writer.write(area, fraction, writer.getSrc()->getPointInfo(), delegate);
    }
    std::string failure(PointWriter& writer, ProgressDelegate* delegate = nullptr) const
    {
        return failureOf([&] { write(writer, Bounds::Huge(), 1, delegate); });
    }
    // The output, which is removed; nothing else may be in the directories. LAS files without their date.
    std::string takeOutput() const
    {
        std::string bytes = readFile(path);
        EXPECT_TRUE(std::filesystem::remove(path));
        expectNoTrace();
        if (bytes.rfind("LASF", 0) == 0)
            bytes.replace(90, 4, 4, '\0');
        return bytes;
    }
    void expectNoTrace() const
    {
        EXPECT_TRUE(directory.isEmpty());
        EXPECT_TRUE(temporary.isEmpty());
    }
    // What a new writer writes.
    std::string reference(PointSource& from, const Bounds& area = Bounds::Huge(), double fraction = 1) const
    {
        write(*makeWriter(from), area, fraction);
        return takeOutput();
    }
    std::string systemError(std::string error, const std::string& message) const
    {
        error += message + " path = " + path;
        if (const std::size_t at = error.find('$'); at != std::string::npos)
            error.replace(at, 1, path);
        return error;
    }
    // Calls fail(), which returns an error, without a file and with an older one.
    template <class Fail>
    void expectOnlyTheError(const std::string& error, Fail fail) const
    {
        EXPECT_EQ(fail(), error);
        expectNoTrace();
        writeFile(path, std::string("precious"));
        EXPECT_EQ(fail(), error);
        EXPECT_EQ(readFile(path), "precious");
        std::filesystem::remove(path);
        expectNoTrace();
    }

    TemporaryDirectory directory, temporary;
    std::string path = directory / "out.file";
    const Scoped<MemoryPointSource> source = makeSource(numPoints);
    Bounds box{{500.25, 2000}, {-9000, -3000}, {-1, 1000}}; // 6,000 points
};

TEST_P(WriterContract, ReplacesAnOlderFileAndReportsAllOfItsWork)
{
    const Format& format = GetParam();
    const std::string expected = reference(*source);
    EXPECT_GT(expected.size(), numPoints);
    writeFile(path, std::string(3 * expected.size(), 'x'));
    ProgressLog log;
    EXPECT_EQ(write(*makeWriter(*source), Bounds::Huge(), 1, &log), std::int64_t{numPoints});
    EXPECT_TRUE(takeOutput() == expected);
    EXPECT_EQ(log.activities, format.activities);
    EXPECT_EQ(log.warnings, Strings());
    EXPECT_TRUE(std::is_sorted(log.fractions.begin(), log.fractions.end()));
    // This source does not report its own part.
    EXPECT_NEAR(log.last(), format.ownWork / (format.ownWork + format.passes), 1e-9);
    EXPECT_EQ(INT_MAX - log.queriesLeft, numQueries);
}

TEST_P(WriterContract, LeavesNoTraceOfAFailure)
{
    const Format& format = GetParam();
    const std::string expected = reference(*source);
    const auto writer = makeWriter(*source);
    for (int query = 0; query < numQueries; ++query)
        expectOnlyTheError(std::string("40006 ") + format.messageName + " Write operation cancelled.", [&] {
            ProgressLog log(query);
            return failure(*writer, &log);
        });
    for (const std::size_t point : {std::size_t{0}, numPoints / 2, numPoints - 1}) {
        source->failAt(point);
        expectOnlyTheError("40000 test", [&] { return failure(*writer); });
    }
    source->failAt(numPoints);
    expectOnlyTheError("40012 requesting channel not in the source", [&] {
        PointInfo layout = source->getPointInfo();
        layout.append(channel("UserData", UINT8));
        return failureOf([&] { writer->write(Bounds::Huge(), 1, layout, nullptr); });
    });
    for (const std::size_t size : {std::size_t{0}, expected.size() / 2, expected.size() - 1})
        expectOnlyTheError(systemError(format.errors[size == 0 ? 1 : 2], "File too large"), [&] {
            const FileSizeLimit limit(std::max<std::size_t>(size, 8)); // the older file fits
            return failure(*writer);
        });
    const FileSizeLimit limit(expected.size());
    ProgressLog patient(numQueries);
    EXPECT_EQ(failure(*writer, &patient), "no error");
    EXPECT_TRUE(takeOutput() == expected);
}

TEST_P(WriterContract, WritesFilesLikeANewWriter)
{
    const std::string whole = reference(*source), part = reference(*source, box, 0.5);
    EXPECT_TRUE(whole != part);
    const auto writer = makeWriter(*source), empty = makeWriter(*makeSource(0));
    EXPECT_EQ(write(*empty), 0);
    EXPECT_LT(takeOutput().size(), 5000u);
    for (int round = 0; round < 2; ++round) {
        ProgressLog log;
        EXPECT_EQ(write(*writer, box, 0.5, &log), 3000);
        EXPECT_TRUE(takeOutput() == part) << round;
        EXPECT_EQ(write(*writer, {{-9, -8}, {1, 2}, {0, 1}}), 0);
        EXPECT_LT(takeOutput().size(), 5000u);
        EXPECT_EQ(write(*writer, Bounds::Huge(), 1, &log), std::int64_t{numPoints});
        EXPECT_TRUE(takeOutput() == whole) << round;
    }
    if (!GetParam().canPrepareAgain)
        return;
    const auto other = makeSource(1000, -40000);
    other->metadata().remove();
    other->metadata().add("FileSourceID", nullptr, METADATA_STRING, "7", 0);
    other->setWKT(nullptr);
    const std::string expected = reference(*other);
    path = directory / "other.file";
    makeWriter(*other, writer.get());
    EXPECT_EQ(write(*writer), 1000);
    EXPECT_TRUE(takeOutput() == expected);
}

TEST_P(WriterContract, RefusesOutputsThatItCannotWrite)
{
    path = directory / "none/out.file";
    EXPECT_EQ(failure(*makeWriter(*source)), systemError(GetParam().errors[0], "No such file or directory"));
    expectNoTrace();
}

// Formats that are not written in order need a temporary file.
TEST_P(WriterContract, WritesTheSameFileToAPipe)
{
    const std::string expected = reference(*source), pipe = path;
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::string got;
    std::thread reader([&] { got = readFile(pipe); });
    EXPECT_EQ(write(*makeWriter(*source)), std::int64_t{numPoints});
    reader.join();
    EXPECT_TRUE(temporary.isEmpty());
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    std::filesystem::remove(pipe);
    writeFile(path, got);
    EXPECT_TRUE(takeOutput() == expected);
}

INSTANTIATE_TEST_SUITE_P(All, WriterContract, testing::ValuesIn(formats),
                         [](const auto& test) { return std::string(test.param.name); });

using StreamContract = WriterContract;

TEST_P(StreamContract, UnlinksAnIncompleteStreamAndAlwaysClosesIt)
{
    const Format& format = GetParam();
    const std::string whole = reference(*source);
    const auto check = [&](const std::string& error, std::size_t capacity, int cancelAt) {
        const Scoped<ByteStore> stream = ByteStore::make();
        stream->setCapacity(capacity);
        ProgressLog log(cancelAt);
        IO* const io = stream.get();
        const auto writer = format.prepare == text ? initialized<TXTPointWriter>(nullptr, source.get(), io,
                                                                                 source->getPointInfo())
                                                   : initialized<VX7PointWriter>(nullptr, source.get(), io);
        writer->setChunckSize(pointsPerBlock);
        EXPECT_EQ(failure(*writer, &log), error);
        EXPECT_EQ(stream->openCount(), 0);
        EXPECT_EQ(stream->text() == whole, error == "no error");
        // A writer of several passes opens its output after the last query.
        const bool isOpened = format.passes == 1 || cancelAt == numQueries;
        EXPECT_EQ(stream->unlinked(), isOpened && error != "no error");
    };
    check("no error", whole.size(), numQueries);
    for (const std::size_t capacity : {std::size_t{1}, whole.size() / 2, whole.size() - 1})
        check("40002 write error", capacity, numQueries);
    check(std::string("40006 ") + format.messageName + " Write operation cancelled.", whole.size(),
          numQueries - 1);
}

INSTANTIATE_TEST_SUITE_P(All, StreamContract,
                         testing::Values(formats[0], formats[3]), // which write to streams
                         [](const auto& test) { return std::string(test.param.name); });

}} // namespace Quillmoran::Testing

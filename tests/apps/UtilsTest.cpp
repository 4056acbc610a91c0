#include "utils/program/Utils.h"

#include "cli/QMCmdLine.h"
#include "support/SetOfSources.h"
#include "support/Test.h"
#include "support/TileFiles.h"
#include "utils/program/Program.h"
#include <vxunpack/PersistentPointSourceWriter.h>

#include <fcntl.h>
#include <tbb/task_arena.h>
#include <thread>
#include <unistd.h>

namespace Quillmoran::Testing { namespace {

class AddFiles : public testing::Test
{
protected:
    // The added names, relative to the directory.
    Strings walk(const std::string& path, int depth) const
    {
        const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
        Utils::addFiles(*manager, path.c_str(), depth);
        Strings names;
        for (std::size_t i = 0; i < manager->getNumSources(); ++i)
            names.push_back(std::string(manager->getFilename(i)).substr(directory.path().size() + 1));
        return names;
    }
    TemporaryDirectory directory;
};

TEST_F(AddFiles, SortsTheFilesOfADirectoryByName)
{
    for (const char* name : {"B.las", "a.laz", "c.VXL", "D.bpf", "notes.txt", "old.index", "null", "las"})
        directory.file(name, "");
    EXPECT_EQ(walk(directory.path(), 0), (Strings{"a.laz", "B.las", "c.VXL", "D.bpf"}));
    EXPECT_EQ(walk(directory / "c.VXL", 0), (Strings{"c.VXL"}));
    EXPECT_EQ(walk(directory / "notes.txt", 0), Strings()) << "text is skipped by name, too";
    EXPECT_EQ(walk(directory / "old.index", 5), Strings());
}

TEST_F(AddFiles, DescendsToTheGivenDepth)
{
    const Strings all{"z/f.vxl", "z/one/a.vxl", "z/one/two/b.vxl", "z/side/c.vxl"};
    for (const std::string& name : all)
        directory.file(name, "");
    const auto sorted = [this](int depth) {
        Strings names = walk(directory / "z", depth);
        std::sort(names.begin() + 1, names.end()); // files are before directories
        return names;
    };
    EXPECT_EQ(sorted(-1), (Strings{all[0]}));
    EXPECT_EQ(sorted(0), (Strings{all[0]}));
    EXPECT_EQ(sorted(1), (Strings{all[0], all[1], all[3]}));
    EXPECT_EQ(sorted(2), all);
    // A link to a directory above is not followed, but one to another directory is.
    std::filesystem::create_directory_symlink(directory / "z", directory / "z/one/two/up");
    EXPECT_EQ(sorted(1000), all);
    std::filesystem::create_directory_symlink(directory / "z/one/two", directory / "z/side/across");
    EXPECT_EQ(sorted(9).size(), 5u);
}

TEST_F(AddFiles, ReadsListsInTheirPlace)
{
    directory.file("lists/inner.list", "x.vxl\n");
    directory.file("b.list", "lists/inner.list\ny.las\nz.index\n");
    directory.file("c.vxl", "");
    EXPECT_EQ(walk(directory.path(), 0), (Strings{"lists/x.vxl", "y.las", "c.vxl"}));
    EXPECT_EQ(walk(directory / "b.list", 0), (Strings{"lists/x.vxl", "y.las"}));
    for (const auto& [line, name] : {std::pair("a.txt\n", "a.txt"), {"\n", ""}}) {
        directory.file("text.list", line);
        EXPECT_EQ(errorOf(-1, [&] { walk(directory / "text.list", 0); }),
                  "TXT file requires a format parse string '-parse': '" + directory.path(name) + "'");
    }
}

// Removes a directory when a file is opened.
struct Remover final : PersistentPointSourceManager::FileOpener
{
    PointSource* openPointSource(const char* path) const override
    {
        std::filesystem::remove_all(victim);
        return Scoped<SimpleFileOpener>(SimpleFileOpener::create())->openPointSource(path);
    }
    std::string victim;
};

TEST_F(AddFiles, FillsAnIndex)
{
    writeFile(directory / "b.vxl", buildTile(0, 0));
    writeFile(directory / "sub/a.vxl", buildTile(10, 0));
    directory.file("c.txt", "");
    directory.file("again.list", "b.vxl\nsub/a.vxl\n");
    const Scoped<Remover> opener(new Remover);
    opener->victim = directory / "none";
    const Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
    writer->init(opener.get());
    Utils::addFiles(*writer, directory.path().c_str(), 1);
    EXPECT_EQ(writer->getFiles(), (Strings{directory / "b.vxl", directory / "sub/a.vxl"}));
    opener->victim = directory / "sub";
    std::filesystem::remove(directory / "again.list");
    EXPECT_EQ(errorOf(ENOENT, [&] { Utils::addFiles(*writer, directory.path().c_str(), 1); }),
              "could not get directory contents");
}

TEST(FilterOption, ExplainsWhatItCannotFilter)
{
    const auto source = MemoryPointSource::make(
        layoutXYZ({channel("ClassId", UINT8), channel("a,b", SINT8), channel("Wide", UINT32),
                   channel("Signed", SINT32), channel("Huge", SINT64), channel("Real", FLOAT32)}),
        MemoryPointSource::Columns(9, {0, 7, 100}));
    const auto filter = [&](const char* text) {
        QMCmdLine cmdLine("test", "test", "test", false);
        Utils::addFilterOptions(cmdLine);
        const char* const argv[] = {"test", "-filter", text};
        cmdLine.parse(3, argv);
        std::size_t count = 0;
        const std::string failure = failureOf([&] {
            const auto filtered =
                Utils::handleFilterOptions(cmdLine, Scoped<PointSource>::retained(source.get()));
            count = readRows(*filtered, source->getPointInfo()).size();
        });
        return failure == "no error" ? std::to_string(count) + " points" : failure;
    };
    for (const char* text :
         {"", "ClassId", "ClassId,5", "ClassId,5,includes", "ClassId,,include", "ClassId,5x,include",
          "ClassId,99999999999999999999,include", ",5,include", "ClassId, 5,include"})
        EXPECT_EQ(filter(text), std::string("-1 bad filter '") + text +
                                    "', the format is <channel name>,<integer value>,include|exclude");
    const auto range = [](const char* value, const char* name, const char* type) {
        return std::string("-1 the value ") + value + " of -filter is out of the range of channel '" + name +
               "' (" + type + ")";
    };
    const std::string kind = "-1 -filter needs a channel of integers of at most 32 bits, channel ";
    const std::pair<const char*, std::string> cases[] = {
        {"classification,7,include", "1 points"},
        {"ClassId,255,exclude", "3 points"},
        {"ClassId,256,include", range("256", "ClassId", "UINT8")},
        {"ClassId,-1,include", range("-1", "ClassId", "UINT8")},
        {"a,b,-128,exclude", "3 points"},
        {"a,b,-129,exclude", range("-129", "a,b", "SINT8")},
        {"a,b,128,exclude", range("128", "a,b", "SINT8")},
        {"Wide,4294967295,exclude", "3 points"},
        {"Wide,4294967296,exclude", range("4294967296", "Wide", "UINT32")},
        {"Signed,-2147483648,include", "0 points"},
        {"Huge,1,include", kind + "'Huge' is SINT64"},
        {"Real,1,include", kind + "'Real' is FLOAT32"},
    };
    for (const auto& [text, outcome] : cases)
        EXPECT_EQ(filter(text), outcome) << text;
}

struct Threads final : Quillmoran::Program
{
    Threads() : Program("test", "test") {}
    bool work() override { return (count = tbb::this_task_arena::max_concurrency()) != 3; }
    int count = 0;
};

TEST(Program, LimitsItsThreadsAndReturnsTheOutcomeOfItsWork)
{
    const int processors = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    for (const auto& [option, count] : {std::pair("1", 1), {"3", 3}, {"0", processors}, {"4000", 1024}}) {
        Threads program;
        const char* const argv[] = {"test", "-j", option};
        program.parse(3, argv);
        EXPECT_EQ(program.run(), count != 3);
        EXPECT_EQ(program.count, count) << option;
    }
    EXPECT_EQ(Utils::runProgram([] { return true; }), 0);
    EXPECT_EQ(Utils::runProgram([] { return false; }), 1);
}

// A later write that succeeds does not restore the first one.
TEST(Report, IsLostIfItsBeginningIs)
{
    const TemporaryDirectory directory;
    const std::string file = directory.file("report", "");
    const int saved = ::dup(STDOUT_FILENO);
    for (const int flags : {O_RDONLY, O_WRONLY}) {
        std::fflush(stdout);
        const int descriptor = ::open(file.c_str(), flags);
        ::dup2(descriptor, STDOUT_FILENO);
        ::close(descriptor);
        std::printf("%s", std::string(1 << 17, 'x').c_str());
    }
    const std::string outcome = failureOf([] { Utils::finishReport(); });
    std::clearerr(stdout);
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    EXPECT_EQ(outcome, "-1 cannot write the report");
}

}} // namespace Quillmoran::Testing

#include "utils/program/Utils.h"

#include "cli/QMCmdLine.h"
#include "support/Errors.h"
#include "support/SetOfSources.h"
#include "support/TileFiles.h"
#include "utils/program/Summary.h"
#include <vxunpack/PersistentPointSourceWriter.h>

#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::buildTile;
using Testing::errorOf;
using Testing::TemporaryDirectory;
using Testing::writeFile;
using Names = std::vector<std::string>;

class AddFiles : public testing::Test
{
protected:
    // The added names, relative to the directory.
    Names walk(const std::string& path, int depth)
    {
        const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
        Utils::addFiles(*manager, path.c_str(), depth);
        Names names;
        for (std::size_t i = 0; i < manager->getNumSources(); ++i)
            names.push_back(std::string(manager->getFilename(i)).substr(directory.path().size() + 1));
        return names;
    }
    void makeDirectory(const std::string& name) { std::filesystem::create_directories(directory / name); }

    TemporaryDirectory directory;
};

TEST_F(AddFiles, SortsTheFilesOfADirectoryByName)
{
    for (const char* name : {"B.las", "a.laz", "c.VXL", "D.bpf", "notes.txt", "old.index", "null", "las"})
        directory.file(name, "");
    EXPECT_EQ(walk(directory.path(), 0), (Names{"a.laz", "B.las", "c.VXL", "D.bpf"}));
    EXPECT_EQ(walk(directory / "c.VXL", 0), (Names{"c.VXL"}));
    EXPECT_EQ(walk(directory / "notes.txt", 0), Names()) << "text is skipped by name, too";
    EXPECT_EQ(walk(directory / "old.index", 5), Names());
}

TEST_F(AddFiles, DescendsToTheGivenDepth)
{
    makeDirectory("z/one/two");
    directory.file("z/f.vxl", "");
    directory.file("z/one/a.vxl", "");
    directory.file("z/one/two/b.vxl", "");
    EXPECT_EQ(walk(directory / "z", -1), (Names{"z/f.vxl"}));
    EXPECT_EQ(walk(directory / "z", 0), (Names{"z/f.vxl"}));
    EXPECT_EQ(walk(directory / "z", 1), (Names{"z/f.vxl", "z/one/a.vxl"}));
    const Names all{"z/f.vxl", "z/one/a.vxl", "z/one/two/b.vxl"};
    EXPECT_EQ(walk(directory / "z", 2), all);
    // A link to a directory above is not followed.
    std::filesystem::create_directory_symlink(directory / "z", directory / "z/one/two/up");
    EXPECT_EQ(walk(directory / "z", 1000), all);
}

TEST_F(AddFiles, ReadsListsInTheirPlace)
{
    makeDirectory("lists");
    directory.file("lists/inner.list", "x.vxl\n");
    directory.file("b.list", "lists/inner.list\ny.las\nz.index\n");
    directory.file("c.vxl", "");
    EXPECT_EQ(walk(directory.path(), 0), (Names{"lists/x.vxl", "y.las", "c.vxl"}));
    EXPECT_EQ(walk(directory / "b.list", 0), (Names{"lists/x.vxl", "y.las"}));
    directory.file("text.list", "a.txt\n");
    EXPECT_EQ(errorOf(-1, [&] { walk(directory / "text.list", 0); }),
              "TXT file requires a format parse string '-parse': '" + directory / "a.txt" + "'");
    directory.file("blank.list", "\n");
    EXPECT_EQ(errorOf(-1, [&] { walk(directory / "blank.list", 0); }),
              "TXT file requires a format parse string '-parse': '" + directory.path("") + "'");
}

TEST_F(AddFiles, FillsAnIndex)
{
    makeDirectory("sub");
    writeFile(directory / "b.vxl", buildTile(0, 0));
    writeFile(directory / "sub/a.vxl", buildTile(10, 0));
    directory.file("c.txt", "");
    directory.file("again.list", "b.vxl\nsub/a.vxl\n");
    const auto opener = Testing::CountingOpener::make();
    const Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
    writer->init(opener.get());
    Utils::addFiles(*writer, directory.path().c_str(), 1);
    EXPECT_EQ(writer->getNumTiles(), 2u);
    EXPECT_EQ(writer->getFiles()[0], directory / "b.vxl");
}

// Removes a directory when a file is opened.
class Remover final : public PersistentPointSourceManager::FileOpener
{
public:
    explicit Remover(std::string victim) : m_victim(std::move(victim)) {}

    PointSource* openPointSource(const char* path) const override
    {
        std::filesystem::remove(m_victim);
        return Scoped<SimpleFileOpener>(SimpleFileOpener::create())->openPointSource(path);
    }

private:
    std::string m_victim;
};

TEST_F(AddFiles, SaysWhenADirectoryCannotBeRead)
{
    makeDirectory("sub");
    writeFile(directory / "a.vxl", buildTile(0, 0));
    const Scoped<Remover> opener(new Remover(directory / "sub"));
    const Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
    writer->init(opener.get());
    EXPECT_EQ(errorOf(ENOENT, [&] { Utils::addFiles(*writer, directory.path().c_str(), 1); }),
              "could not get directory contents");
}

TEST(FilterOption, ExplainsABadText)
{
    const TemporaryDirectory directory;
    writeFile(directory / "a.vxl", buildTile(0, 0));
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->addFile((directory / "a.vxl").c_str());
    const Scoped<PointSource> source(manager->createPointSource(0));
    for (const char* text :
         {"", "ClassId", "ClassId,5", "ClassId,5,includes", "ClassId,5,", "ClassId,,include",
          "ClassId,5x,include", "ClassId,x,include", "ClassId,99999999999999999999,include", ",5,include",
          "ClassId, 5,include", ",,"}) {
        QMCmdLine cmdLine("test", "test", "test", false);
        Utils::addFilterOptions(cmdLine);
        const char* const argv[] = {"test", "-filter", text};
        cmdLine.parse(3, argv);
        EXPECT_EQ(errorOf(-1, [&] { Utils::handleFilterOptions(cmdLine, source); }),
                  std::string("bad filter '") + text +
                      "', the format is <channel name>,<integer value>,include|exclude");
    }
}

TEST(Summary, CallsAMosaicAMosaic)
{
    const TemporaryDirectory directory;
    const auto opener = Testing::CountingOpener::make();
    const Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
    writer->init(opener.get());
    for (const char* name : {"a.vxl", "b.vxl"}) {
        writeFile(directory / name, buildTile(0, 0));
        writer->add((directory / name).c_str());
    }
    writer->write((directory / "t.index").c_str());
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->addFile((directory / "t.index").c_str());
    const Scoped<PointSource> mosaic(manager->createPointSource(0));
    std::FILE* stream = std::fopen((directory / "out").c_str(), "w");
    Utils::printHeader(stream, *mosaic, manager->getFilename(0));
    std::fclose(stream);
    const std::string text = Testing::readFile(directory / "out");
    EXPECT_EQ(text.rfind("Basic Mosaic Info:\n   Number of Points:  40\n   Bounds Min:  ", 0), 0u) << text;
}

} // namespace
} // namespace Quillmoran

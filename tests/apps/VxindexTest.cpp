// Runs of the program.
#include "apps/ProgramTest.h"
#include "support/TileFiles.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

namespace Quillmoran {
namespace {

using Testing::buildTile;
using Testing::Program;
using Testing::readFile;
using Testing::Result;
using Testing::writeFile;

class Vxindex : public Testing::ProgramTest
{
protected:
    Vxindex()
    {
        std::filesystem::create_directory(directory / "tiles");
        for (const char* name : {"a.vxl", "b.vxl", "c.vxl"})
            tile(std::string("tiles/") + name, (name[0] - 'a') * 10.0);
    }

    void tile(const std::string& name, double x, int count = 20)
    {
        writeFile(directory / name, buildTile(x, 0, count));
        std::filesystem::last_write_time(directory / name, std::filesystem::file_time_type::clock::now() -
                                                               std::chrono::hours(1));
    }

    Result run(const std::string& arguments) const { return ProgramTest::run(VXINDEX, arguments); }
    std::string resolved(const std::string& name) const
    {
        return (std::filesystem::canonical(directory.path()) / name).string();
    }
    // Runs, expecting success, and returns the last line.
    std::string report(const std::string& arguments) const
    {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.errors, "");
        const std::string& text = result.output;
        return text.empty() ? text : text.substr(text.rfind('\n', text.size() - 2) + 1);
    }
};

TEST_F(Vxindex, IndexesADirectoryAndListsIt)
{
    EXPECT_EQ(report("-o t.index tiles"), "3 files, 60 points (3 files added, 0 refreshed, 0 removed)\n");
    EXPECT_EQ(run("-o t.index -l").output,
              "3 files, 60 points\n"
              "ok                   20  0.000 8.820  0.000 8.550  0.000 0.040  tiles/a.vxl\n"
              "ok                   20  10.000 18.820  0.000 8.550  0.000 0.040  tiles/b.vxl\n"
              "ok                   20  20.000 28.820  0.000 8.550  0.000 0.040  tiles/c.vxl\n");
    EXPECT_EQ(run("-o t.index -check").output, run("-o t.index -l").output);
    const Result summary = run("-o t.index -l -V");
    EXPECT_NE(summary.output.find("Basic Mosaic Info:\n   Number of Points:  60\n"), std::string::npos);
}

TEST_F(Vxindex, AcceptsFilesListsTextAndDirectoriesInAnyOrder)
{
    directory.file("all.list", "tiles/b.vxl\nmore/d.txt\n");
    std::filesystem::create_directories(directory / "more/deep");
    directory.file("more/d.txt", "header\n1 2 3\n");
    tile("more/deep/e.vxl", 40);
    const Result result =
        run("-o t.index tiles/c.vxl -p xyz -skip 1 -i tiles/c.vxl all.list -d 1 more tiles");
    EXPECT_NE(result.output.find("\n5 files, 81 points (5 files added, 0 refreshed, 0 removed)\n"),
              std::string::npos)
        << result.output;
    EXPECT_EQ(result.errors,
              "Warning: 'more/d.txt' has no coordinate system and 'tiles/c.vxl' has one, which "
              "is used for all\n");
    EXPECT_EQ(report("-o t.index -l"),
              "ok                   20  0.000 8.820  0.000 8.550  0.000 0.040  tiles/a.vxl\n");
}

TEST_F(Vxindex, FollowsChanges)
{
    report("-o t.index tiles -srs EPSG:4326");
    std::filesystem::remove(directory / "tiles/a.vxl");
    writeFile(directory / "tiles/b.vxl", buildTile(10, 0, 5));
    // A replaced file with its old time is detected only by opening it.
    const auto time = std::filesystem::last_write_time(directory / "tiles/c.vxl");
    writeFile(directory / "tiles/c.vxl", buildTile(20, 0, 7));
    std::filesystem::last_write_time(directory / "tiles/c.vxl", time);
    const std::string listed = run("-o t.index -l").output;
    for (const char* line : {"\nspatial reference: EPSG:4326\nmissing  ", "\nchanged  ", "\nok  "})
        EXPECT_NE(listed.find(line), std::string::npos) << listed;
    const Result checked = run("-o t.index -check");
    EXPECT_EQ(checked.status, 1);
    EXPECT_EQ(checked.errors, "Error: 3 of 3 files are not as they were indexed\n");

    tile("tiles/d.vxl", 30);
    EXPECT_EQ(report("-o t.index -u tiles"), "3 files, 45 points (1 files added, 1 refreshed, 1 removed)\n");
    EXPECT_EQ(run("-o t.index -check").errors, "Error: 1 of 3 files are not as they were indexed\n");
    tile("tiles/c.vxl", 20, 7);
    std::filesystem::last_write_time(directory / "tiles/c.vxl", time - std::chrono::hours(1));
    EXPECT_EQ(report("-o t.index -u"), "3 files, 32 points (0 files added, 1 refreshed, 0 removed)\n");
    EXPECT_EQ(run("-o t.index -check").status, 0);
    directory.file("tiles/d.vxl", "a broken file");
    std::filesystem::last_write_time(directory / "tiles/d.vxl",
                                     std::filesystem::last_write_time(directory / "tiles/c.vxl"));
    EXPECT_EQ(run("-o t.index -u").errors,
              "Error: not a Vexil file path = " + resolved("tiles/d.vxl") + "\n");
}

TEST_F(Vxindex, SetsAndRemovesAnOverview)
{
    tile("tiles/overview.vxl", 0, 15);
    EXPECT_EQ(report("-o tiles/t.index -overview tiles/overview.vxl tiles"),
              "3 files, 60 points (3 files added, 0 refreshed, 0 removed)\n");
    const std::string listed = run("-o tiles/t.index -l").output;
    EXPECT_NE(listed.find("overview of a share of 0.25:\nok "), std::string::npos) << listed;
    report("-o tiles/t.index -u tiles");
    EXPECT_EQ(run("-o tiles/t.index -l").output, listed) << "the overview is kept";
    report("-o tiles/t.index -u -removeOverview");
    EXPECT_EQ(run("-o tiles/t.index -l").output.find("overview"), std::string::npos);
}

TEST_F(Vxindex, CreatesAnOverviewFromTheTiles)
{
    for (int again = 0; again < 2; ++again) { // the file is not a tile of the second run
        EXPECT_EQ(
            report("-o tiles/t.index tiles -overview tiles/o.laz -createOverview -overviewFraction 0.1"),
            "3 files, 60 points (3 files added, 0 refreshed, 0 removed)\n");
        const std::string listed = run("-o tiles/t.index -l").output;
        EXPECT_NE(listed.find("overview of a share of 0.1:\nok                    6  "), std::string::npos)
            << listed;
    }
    report("-o tiles/t.index -u -overview tiles/p.las -createOverview");
    EXPECT_NE(
        run("-o tiles/t.index -l").output.find("overview of a share of 0.0625:\nok                    6  "),
        std::string::npos);
    tile("d.vxl", 40);
    EXPECT_NE(run("-o tiles/t.index -u d.vxl").errors.find("does not cover files that were added"),
              std::string::npos);
    for (const char* name : {"-overview tiles/o.vxl ", ""})
        EXPECT_NE(run(std::string("-o t.index tiles -createOverview ") + name)
                      .errors.find("Error: an overview is created as a LAS or LAZ file: '"),
                  std::string::npos);
    EXPECT_FALSE(exists("t.index"));
}

// Neither the index nor a tile is lost if an overview is refused or cannot be written.
TEST_F(Vxindex, CreatesNoOverviewInPlaceOfATile)
{
    EXPECT_EQ(run("-o las.index tiles/a.vxl -overview a.las -overviewFraction 1 -createOverview").status, 0);
    std::filesystem::rename(directory / "a.las", directory / "tiles/a.las");
    std::filesystem::create_symlink("tiles/a.las", directory / "link.las");
    std::filesystem::create_hard_link(directory / "tiles/a.las", directory / "hard.las");
    std::filesystem::create_directory(directory / "directory.las");
    std::filesystem::remove(directory / "las.index");
    report("-o t.index tiles/a.las");
    const std::pair<const char*, const char*> cases[] = {
        {"tiles/a.las tiles/b.vxl -overview tiles/a.las", "the output 'tiles/a.las' is the input file"},
        {"-u tiles/b.vxl -overview tiles/a.las", "the output 'tiles/a.las' is the input file"},
        {"-u -overview link.las", "the output 'link.las' is the input file"},
        {"-u -overview hard.las", "the output 'hard.las' is the input file"},
        {"tiles -overview tiles/../tiles/a.las", "the output 'tiles/../tiles/a.las' is the input file"},
        {"tiles/b.vxl -overview directory.las",
         "Unable to create output directory.las. Is a directory path = directory.las"},
    };
    const std::string before = readFile(directory / "t.index");
    const std::string survey = readFile(directory / "tiles/a.las");
    for (const auto& [arguments, error] : cases) {
        expectError(VXINDEX, std::string("-o t.index -createOverview ") + arguments, error);
        EXPECT_EQ(readFile(directory / "t.index"), before) << arguments;
        EXPECT_EQ(readFile(directory / "tiles/a.las"), survey) << arguments;
    }
    // The present overview is replaced, also where a directory names it.
    report("-o t.index tiles/b.vxl -overview tiles/o.las -createOverview");
    EXPECT_EQ(run("-o t.index -u tiles -overview tiles/o.las -createOverview -overviewFraction 1").status, 0);
    EXPECT_NE(run("-o t.index -l").output.find("overview of a share of 1:\nok                   80  "),
              std::string::npos);
}

TEST_F(Vxindex, ExplainsWhatItCannotDo)
{
    directory.file("bad.vxl", "no points");
    directory.file("a.txt", "1 2 3\n");
    directory.file("wrong.txt", "1 2 3 4\n1 2 3 65536\n");
    directory.file("old.index", "rtre");
    const std::pair<const char*, std::string> cases[] = {
        {"-o t.index", "there are no files to index"},
        {"-o t.index nothing", "No such file or directory path = nothing"},
        {"-o t.index a.txt", "TXT file requires a format parse string '-parse': 'a.txt'"},
        {"-o t.index -p xyzi wrong.txt", "wrong.txt:2:7: 65536 does not fit Intensity (0 to 65535)"},
        {"-o t.index -p xyz a.txt bad.vxl", "not a Vexil file path = bad.vxl"},
        {"-o tiles/a.vxl tiles/b.vxl", "the name of an index must end in '.index': 'tiles/a.vxl'"},
        {"-o t.index -l", "No such file or directory path = t.index"},
        {"-o t.index -u tiles", "No such file or directory path = t.index"},
        {"-o old.index -u tiles", "Input/output error: failed reading: version"},
        {"-o t.index tiles old.index", "unsupported input file format 'old.index'"},
        {"-o link.index tiles", "the output 'link.index' is the input file"},
        {"-o hard.index all.list", "the output 'hard.index' is the input file"},
        {"-o list.index all.list", "the output 'list.index' is the input file"},
        {"-o t.index tiles -overview over.las -createOverview", "the output 'over.las' is the input file"},
    };
    directory.file("all.list", "tiles/a.vxl\n");
    std::filesystem::create_symlink("tiles/a.vxl", directory / "link.index");
    for (const auto& [name, link] :
         {std::pair("tiles/a.vxl", "hard.index"), {"tiles/a.vxl", "over.las"}, {"all.list", "list.index"}})
        std::filesystem::create_hard_link(directory / name, directory / link);
    for (const auto& [arguments, error] : cases) {
        expectError(VXINDEX, arguments, error);
        EXPECT_FALSE(exists("t.index")) << arguments;
    }
    EXPECT_EQ(readFile(directory / "old.index"), "rtre");
    EXPECT_EQ(run("").status, 1);
    EXPECT_NE(run("").errors.find("required switch -index not present"), std::string::npos);
    EXPECT_EQ(run("-help").status, 0);
}

TEST_F(Vxindex, KeepsTheOldIndexAtAnInterrupt)
{
    report("-o t.index tiles/a.vxl");
    const std::string before = readFile(directory / "t.index");
    // Reading the second file is slow enough for a signal.
    std::string lines;
    for (int i = 0; i < 1000000; ++i)
        lines += "1234567.89 1234567.89 1.5\n";
    directory.file("tiles/b.txt", lines);
    directory.file("all.list", "tiles/a.vxl\ntiles/b.txt\ntiles/c.vxl\n");
    Program program = start(VXINDEX, "-o t.index -p xyz all.list");
    program.interrupt("33.34%", SIGINT);
    EXPECT_EQ(readFile(directory / "t.index"), before);
    for (const auto& file : std::filesystem::directory_iterator(directory.path()))
        EXPECT_NE(file.path().extension(), ".part");
}

} // namespace
} // namespace Quillmoran

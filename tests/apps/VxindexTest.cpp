// Runs of the program.
#include "apps/AppTest.h"
#include "support/TileFiles.h"

namespace Quillmoran::Testing { namespace {

class Vxindex : public AppTest
{
protected:
    Vxindex()
    {
        for (const char* name : {"a.vxl", "b.vxl", "c.vxl"})
            tile(std::string("tiles/") + name, (name[0] - 'a') * 10.0);
    }

    // A tile that is an hour old.
    void tile(const std::string& name, double x, int count = 20) const
    {
        writeFile(directory / name, buildTile(x, 0, count));
        directory.setAge(name, std::chrono::hours(1));
    }
    // Returns the last line of a run.
    std::string report(const std::string& arguments, const std::string& messages = "") const
    {
        const auto lines = linesOf(succeed("vxindex " + arguments, messages));
        return lines.empty() ? "" : std::regex_replace(lines.back(), std::regex(", \\d+ bytes$"), "");
    }
    std::string list(const std::string& index = "t.index") const { return succeed("vxindex -l -o " + index); }
};

TEST_F(Vxindex, IndexesADirectoryAndListsIt)
{
    EXPECT_EQ(report("-o t.index tiles"), "3 files, 60 points (3 files added, 0 refreshed, 0 removed)");
    const std::string listed =
        "3 files, 60 points\n"
        "ok                   20  0.000 8.820  0.000 8.550  0.000 0.040  tiles/a.vxl\n"
        "ok                   20  10.000 18.820  0.000 8.550  0.000 0.040  tiles/b.vxl\n"
        "ok                   20  20.000 28.820  0.000 8.550  0.000 0.040  tiles/c.vxl\n";
    EXPECT_EQ(list(), listed);
    EXPECT_EQ(succeed("vxindex -o t.index -check"), listed);
    expectContains(succeed("vxindex -o t.index -l -V"), {"Basic Mosaic Info:\n   Number of Points:  60\n"});
    // Paths below the directory of the index are relative to it, also if another directory is the current one.
    tile("tiles2/d.vxl", 40);
    EXPECT_EQ(report("-o tiles/u.index tiles/a.vxl tiles2 -overview tiles/b.vxl"),
              "2 files, 40 points (2 files added, 0 refreshed, 0 removed)");
    std::filesystem::rename(directory / "tiles", directory / "moved");
    const std::string expected =
        "2 files, 40 points\noverview of a share of 0.5:\n"
        "ok                   20  10.000 18.820  0.000 8.550  0.000 0.040  moved/b.vxl\n"
        "ok                   20  0.000 8.820  0.000 8.550  0.000 0.040  moved/a.vxl\n"
        "ok                   20  40.000 48.820  0.000 8.550  0.000 0.040  ";
    EXPECT_EQ(list("moved/u.index"), expected + directory / "tiles2/d.vxl" + '\n');
}

TEST_F(Vxindex, AcceptsFilesListsTextAndDirectoriesInAnyOrder)
{
    std::filesystem::create_directory_symlink("tiles", directory / "again");
    directory.file("all.list", "tiles/b.vxl\nmore/d.txt\n");
    directory.file("more/d.txt", "header\n1 2 3\n");
    tile("more/deep/e.vxl", 40);
    EXPECT_EQ(report("-o t.index tiles/c.vxl -p xyz -skip 1 -i again/c.vxl all.list -d 1 more tiles",
                     "Warning: 'more/d.txt' has no coordinate system and 'tiles/c.vxl' has one, which is "
                     "used for all\n"),
              "5 files, 81 points (5 files added, 0 refreshed, 0 removed)");
    expectContains(list(),
                   {"\nok                    1  1.000 1.000  2.000 2.000  3.000 3.000  more/d.txt\n"});
    EXPECT_EQ(linesOf(list()).back(),
              "ok                   20  0.000 8.820  0.000 8.550  0.000 0.040  tiles/a.vxl");
}

TEST_F(Vxindex, FollowsChanges)
{
    report("-o t.index tiles -srs same");
    EXPECT_EQ(list().find("spatial"), std::string::npos);
    report("-o t.index tiles -srs EPSG:4326");
    directory.setAge("t.index", std::chrono::minutes(10));
    std::filesystem::remove(directory / "tiles/a.vxl");
    tile("tiles/b.vxl", 10, 5);
    directory.setAge("tiles/b.vxl", std::chrono::minutes(90)); // also an older file is another one
    // A replaced file with its old time is detected only by opening it.
    const auto replace = [&](const std::string& path, const Bytes& bytes) {
        const auto time = std::filesystem::last_write_time(path);
        writeFile(path, bytes);
        std::filesystem::last_write_time(path, time);
    };
    replace(directory / "tiles/c.vxl", buildTile(20, 0, 7));
    const auto states = [this](const std::string& option) {
        std::string words;
        for (const std::string& line : linesOf(run("vxindex -o t.index " + option).output))
            words += line.substr(0, line.find(' ')) + ' ';
        return words;
    };
    EXPECT_EQ(states("-l"), "3 spatial missing changed ok ");
    EXPECT_EQ(states("-check"), "3 spatial missing changed changed ");
    expectContains(list(), {"\nspatial reference: EPSG:4326\n"});
    expectError("vxindex -o t.index -check", "3 of 3 files are not as they were indexed");

    tile("tiles/d.vxl", 30);
    EXPECT_EQ(report("-o t.index -u tiles"), "3 files, 45 points (1 files added, 1 refreshed, 1 removed)");
    expectError("vxindex -o t.index -check", "1 of 3 files are not as they were indexed");
    directory.setAge("tiles/c.vxl", std::chrono::minutes(70));
    EXPECT_EQ(report("-o t.index -u"), "3 files, 32 points (0 files added, 1 refreshed, 0 removed)");
    EXPECT_EQ(states("-check"), "3 spatial ok ok ok ") << "the spatial reference is kept";
    directory.file("tiles/d.vxl", "a broken file");
    expectError("vxindex -o t.index -u",
                "not a Vexil file path = " +
                    (std::filesystem::canonical(directory.path()) / "tiles/d.vxl").string());
    replace(directory / "tiles/c.vxl", Bytes(9));
    EXPECT_EQ(states("-check"), "3 spatial ok unreadable changed ");
}

TEST_F(Vxindex, SetsAndRemovesAnOverview)
{
    tile("tiles/overview.vxl", 0, 15);
    EXPECT_EQ(report("-o tiles/t.index -overview tiles/overview.vxl tiles"),
              "3 files, 60 points (3 files added, 0 refreshed, 0 removed)");
    const std::string listed = list("tiles/t.index");
    expectContains(listed, {"\noverview of a share of 0.25:\nok                   15  "});
    report("-o tiles/t.index -u tiles");
    EXPECT_EQ(list("tiles/t.index"), listed) << "the overview is kept";
    const std::string warning =
        "Warning: the overview of 'tiles/t.index' does not cover files that were added or "
        "changed; queries of small fractions read only the overview. -createOverview makes a "
        "new one\n";
    tile("tiles/d.vxl", 30);
    report("-o tiles/t.index -u tiles", warning);
    directory.setAge("tiles/t.index", std::chrono::minutes(10));
    tile("tiles/d.vxl", 30, 6);
    directory.setAge("tiles/d.vxl", std::chrono::minutes(30));
    report("-o tiles/t.index -u", warning);
    report("-o tiles/t.index -u tiles -overview tiles/overview.vxl -overviewFraction 1");
    expectContains(list("tiles/t.index"), {"\noverview of a share of 1:\n"});
    std::filesystem::remove(directory / "tiles/d.vxl");
    tile("tiles/overview.vxl", 0, 5);
    directory.setAge("tiles/overview.vxl", std::chrono::minutes(90));
    expectError("vxindex -o tiles/t.index -check", "2 of 5 files are not as they were indexed");
    EXPECT_EQ(report("-o tiles/t.index -u", warning),
              "3 files, 60 points (0 files added, 1 refreshed, 1 removed)");
    report("-o tiles/t.index -u -removeOverview");
    EXPECT_EQ(list("tiles/t.index").find("overview"), std::string::npos);
    EXPECT_TRUE(exists("tiles/overview.vxl"));
}

TEST_F(Vxindex, CreatesAnOverviewFromTheTiles)
{
    for (int again = 0; again < 2; ++again) { // the file is not a tile of the second run
        EXPECT_EQ(
            report("-o tiles/t.index tiles -overview tiles/o.laz -createOverview -overviewFraction 0.1"),
            "3 files, 60 points (3 files added, 0 refreshed, 0 removed)");
        expectContains(list("tiles/t.index"), {"overview of a share of 0.1:\nok                    6  "});
    }
    report("-o tiles/t.index -u -overview tiles/p.vxl -createOverview");
    expectContains(list("tiles/t.index"), {"overview of a share of 0.0625:\nok                    6  "});
    // The present overview is replaced, also where a directory names it.
    EXPECT_EQ(run("vxindex -o t.index tiles/a.vxl tiles/b.vxl -overview tiles/o.las -createOverview").status,
              0);
    for (const std::string options : {"", "-overviewFraction 1 "})
        EXPECT_EQ(
            report(
                "-o t.index -u tiles/a.vxl tiles/b.vxl tiles/o.las -overview tiles/o.las -createOverview " +
                options),
            "2 files, 40 points (0 files added, 0 refreshed, 0 removed)");
    expectContains(list(), {"overview of a share of 1:\nok                   40  "});
}

}} // namespace Quillmoran::Testing

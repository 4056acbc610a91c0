// Files with hostile strings: only regular files are opened, control characters are not printed, and unknown
// coordinate systems are reported.
#include "apps/ProgramTest.h"
#include "support/LASFile.h"
#include "support/SetOfSources.h"
#include "support/TileFiles.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace Quillmoran {
namespace {

using Testing::LASBytes;
using Testing::LASFile;
using Testing::Program;
using Testing::readFile;
using Testing::Result;
using Testing::writeFile;
using Keys = std::vector<std::uint16_t>;

const Keys utmKeys = {1, 1, 0, 2, 1024, 0, 1, 1, 3072, 0, 1, 32613};
const Keys unknownKeys = {1, 1, 0, 1, 3073, 34737, 8, 0}; // a text of 8 characters, without texts

class HostileInputs : public Testing::ProgramTest
{
protected:
    void las(const std::string& name, const Keys& keys) const
    {
        LASFile file;
        file.points.resize(3);
        LASBytes bytes;
        for (const std::uint16_t key : keys) {
            bytes.push_back(static_cast<std::uint8_t>(key & 0xFF));
            bytes.push_back(static_cast<std::uint8_t>(key >> 8));
        }
        file.records = {{"LASF_Projection", 34735, "keys", bytes}};
        file.describePoints();
        writeFile(directory / name, file.build());
    }

    // A channel, a class, a record, the description of one and the coordinate system have this name.
    void vxl(const std::string& file, const std::string& evil) const
    {
        Testing::FilePlan plan;
        for (const std::string& channel : {std::string("X"), std::string("Y"), std::string("Z"), evil})
            plan.channels.push_back(Testing::quantizedChannel(channel, {1, 2, 3}, 0, 1));
        plan.wkt = evil;
        plan.classNames = {evil};
        plan.metadata.add(evil.c_str(), evil.c_str(), METADATA_STRING, evil.c_str(), 0);
        writeFile(directory / file, Testing::buildFile(plan));
    }
};

TEST_F(HostileInputs, AModuleThatCannotBeLoadedEndsTheRun)
{
    las("in.las", utmKeys);
    ASSERT_EQ(run(VXPACK, "-i in.las -o good.vxl").errors, "");
    vxl("grid.vxl", "LOCAL_CS[\"grid\"]");
    for (int version = 26; version < 50; ++version) // of GDAL, in place of the system's
        directory.file("libgdal.so." + std::to_string(version), "");
    const auto runWithoutGDAL = [this](const char* program, const std::string& arguments) {
        const std::string command = std::string("LD_LIBRARY_PATH=. exec ") + program + ' ' + arguments;
        return Program("/bin/sh", directory, {"-c", command}).wait();
    };
    const std::string reason = "cannot load the module 'libqm_formats_srs.so': ";
    for (const auto& [program, arguments] : {std::pair(VXPACK, "-i in.las -o out.vxl"),
                                             {VXINDEX, "-o out.index in.las"},
                                             {VXUNPACK, "-i grid.vxl -o out.las -of las12 -ofld xyz"}}) {
        const Result result = runWithoutGDAL(program, arguments);
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_EQ(result.errors.rfind("Error: " + reason, 0), 0u) << arguments << result.errors;
        for (const char* output : {"out.vxl", "out.index", "out.las"})
            EXPECT_FALSE(std::filesystem::exists(directory / output)) << arguments;
    }
    EXPECT_EQ(runWithoutGDAL(VXINFO, "in.las").errors.rfind("Error: in.las: " + reason, 0), 0u);
    const Result shown = runWithoutGDAL(VXINFO, "good.vxl");
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(
        shown.errors.rfind("Warning: 'good.vxl': the coordinate system is printed as it is: " + reason, 0),
        0u)
        << shown.errors;
    EXPECT_NE(shown.output.find("Spatial Reference: PROJCS[\"WGS 84 / UTM zone 13N\",GEOGCS["),
              std::string::npos);
}

TEST_F(HostileInputs, CoordinateSystemsThatAreLostAreReported)
{
    las("a.las", unknownKeys);
    las("b.las", unknownKeys);
    las("none.las", {1, 1, 0, 0});
    vxl("x.vxl", "no coordinate system");
    const std::string unknown = ": the GeoTIFF keys of the coordinate system are not understood";
    const std::string noPlace =
        ": this LAS file cannot hold the coordinate system of its source, which is not kept\n";
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {VXPACK, "-i none.las -o out.vxl", ""},
        {VXPACK, "-i a.las -o out.vxl", "'a.las'" + unknown + "; they are kept in the metadata only\n"},
        {VXPACK, "-i a.las -i none.las -i b.las -o out.vxl",
         "'a.las' and 1 more" + unknown + "; they are kept in the metadata only, if all files agree\n"},
        {VXINDEX, "-o out.index a.las", "'a.las'" + unknown + "; the index does not keep them\n"},
        {VXINFO, "a.las", "'a.las'" + unknown + '\n'},
        {VXUNPACK, "-i x.vxl -o out.las -of las12 -ofld xyz", "'out.las'" + noPlace},
        {VXINDEX, "-o out.index x.vxl -overview over.las -createOverview -overviewFraction 1",
         "'over.las'" + noPlace},
    };
    for (const auto& [program, arguments, warning] : cases) {
        const Result result = run(program, arguments);
        EXPECT_EQ(result.status, 0) << arguments;
        EXPECT_EQ(result.errors, warning.empty() ? "" : "Warning: " + warning) << arguments;
    }
    run(VXPACK, "-i a.las -o out.vxl");
    EXPECT_NE(run(VXINFO, "out.vxl").output.find("LASF_Projection::34735"), std::string::npos);
}

TEST_F(HostileInputs, OnlyRegularFilesAreOpened)
{
    for (const char* name : {"pipe.las", "pipe.vxl", "pipe.txt", "pipe.list", "pipe.index"})
        ASSERT_EQ(mkfifo((directory / name).c_str(), 0600), 0);
    std::filesystem::create_directory(directory / "d.laz");
    std::filesystem::create_symlink("/dev/zero", directory / "zero.list");
    std::filesystem::create_symlink("/dev/zero", directory / "zero.las");
    sockaddr_un address{AF_UNIX, {}};
    (directory / "s.las").copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    directory.file("pipes.list", "pipe.las\n");
    directory.file("urls.list", "http://localhost/a.las\n");
    writeFile(directory / "a.vxl", Testing::buildTile(0, 0));
    std::filesystem::create_symlink("a.vxl", directory / "link.vxl");
    ASSERT_EQ(run(VXINDEX, "-o tiles.index link.vxl").errors, "");
    std::filesystem::remove(directory / "link.vxl");
    ASSERT_EQ(mkfifo((directory / "link.vxl").c_str(), 0600), 0);
    const auto refusal = [](const std::string& name, const std::string& kind) {
        return "cannot read '" + name + "': it is " + kind + ", not a regular file";
    };
    const std::string tile = (std::filesystem::canonical(directory.path()) / "link.vxl").string();
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {VXPACK, "-o out.vxl -i pipe.las", refusal("pipe.las", "a pipe")},
        {VXPACK, "-o out.vxl -p xyz -i pipe.txt", refusal("pipe.txt", "a pipe")},
        {VXPACK, "-o out.vxl -i pipe.list", refusal("pipe.list", "a pipe")},
        {VXPACK, "-o out.vxl -i pipe.index", refusal("pipe.index", "a pipe")},
        {VXPACK, "-o out.vxl -i pipes.list", refusal("pipe.las", "a pipe")},
        {VXPACK, "-o out.vxl -i zero.list", refusal("zero.list", "a device")},
        {VXPACK, "-o out.vxl -i zero.las", refusal("zero.las", "a device")},
        {VXPACK, "-o out.vxl -i s.las", refusal("s.las", "a socket")},
        {VXPACK, "-o out.vxl -i tiles.index", refusal("link.vxl", "a pipe")},
        {VXUNPACK, "-i pipe.vxl -o null", refusal("pipe.vxl", "a pipe")},
        {VXINDEX, "-o out.index pipes.list", refusal("pipe.las", "a pipe")},
        {VXINDEX, "-o pipe.index -u", refusal("pipe.index", "a pipe")},
        {VXINFO, "pipe.vxl", "pipe.vxl: " + refusal("pipe.vxl", "a pipe")},
        {VXPACK, "-o out.vxl -i urls.list",
         "Failed to create LASReader for path = 'http://localhost/a.las': No such file or directory path = "
         "http://localhost/a.las"},
    };
    for (const auto& [program, arguments, message] : cases)
        expectError(program, arguments, message);
    close(socket);
}

TEST_F(HostileInputs, LinesOfListsAreLimited)
{
    constexpr std::size_t longest = 1 << 20;
    writeFile(directory / "a.vxl", Testing::buildTile(0, 0));
    directory.file("ok.list", std::string(longest - 5, ' ') + "a.vxl\n");
    directory.file("long.list", "a.vxl\n" + std::string(longest + 1, 'a'));
    EXPECT_EQ(run(VXINFO, "ok.list").status, 0);
    EXPECT_EQ(run(VXPACK, "-i long.list -o out.vxl").errors,
              "Error: long.list:2: line is longer than 1048576 bytes\n");
}

TEST_F(HostileInputs, ControlCharactersAreNeverPrinted)
{
    const std::string evil = "e\x1b]0;\x07\nEVIL\xff";
    const std::string escaped = "e\\x1b]0;\\x07\\nEVIL\\xff";
    const std::string file = "\x1b[31m.vxl";
    vxl("a.vxl", evil);
    std::filesystem::copy_file(directory / "a.vxl", directory / file);
    const auto text = [&](const char* program, const std::string& arguments) {
        const Result result = run(program, arguments);
        return result.output + result.errors;
    };
    const std::tuple<const char*, std::string, std::size_t> cases[] = {
        {VXINFO, "-stats -json", 0},
        {VXINFO, "-stats a.vxl",
         9}, // summary: channel, coordinate system; channel, class, record (3), coding,
        {VXPACK, "-V -i a.vxl -o out.vxl", 3}, // statistics
        {VXUNPACK, "-i a.vxl -o out.txt", 0},
        {VXUNPACK, "-i a.vxl -o out.las", 1},
        {VXINDEX, "-o t.index -srs \x1b[32m " + file, 0},
        {VXINDEX, "-o t.index -l", 0},
        {VXINFO, file + "x.vxl", 0},
    };
    for (const auto& [program, arguments, count] : cases) {
        const std::string output = text(program, arguments);
        EXPECT_EQ(output.find('\x1b'), std::string::npos) << arguments;
        EXPECT_EQ(output.find("\nEVIL"), std::string::npos) << arguments;
        std::size_t found = 0;
        for (std::size_t at = 0; (at = output.find(escaped, at)) != std::string::npos; ++at)
            ++found;
        EXPECT_EQ(found, count) << arguments << '\n' << output;
    }
    const std::string table = readFile(directory / "out.txt");
    EXPECT_EQ(table.substr(0, table.find('\n')), "# X Y Z " + escaped);
    EXPECT_NE(text(VXINDEX, "-o t.index -l").find("\\x1b[31m.vxl\n"), std::string::npos);
    const auto parsed = nlohmann::json::parse(run(VXINFO, "-json a.vxl").output);
    EXPECT_EQ(parsed[0]["channels"][3]["name"], "e\x1b]0;\x07\nEVIL\xef\xbf\xbd");
}

} // namespace
} // namespace Quillmoran

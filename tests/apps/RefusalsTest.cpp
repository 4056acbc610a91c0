// What each program refuses, and that a refused run changes no file.
#include "apps/AppTest.h"
#include "support/ExampleSurvey.h"
#include "support/LASClouds.h"
#include "support/TileFiles.h"

#include <map>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace Quillmoran {
namespace {

using namespace Testing;
using Cases = std::initializer_list<std::pair<std::string, std::string>>;

class Refusals : public AppTest
{
protected:
    Refusals()
    {
        for (const char* name : {"tiles", "own", "folder.vxl", "folder.las"})
            std::filesystem::create_directory(directory / name);
        for (const char* name : {"survey.vxl", "own/a.vxl"})
            writeFile(directory / name, buildExampleSurvey());
        for (const char* name : {"tiles/a.vxl", "tiles/b.vxl", "small.vxl"})
            writeFile(directory / name, buildTile(0, 0));
        writeFile(directory / "tile.las", randomLASFile(1, 2, 5, 1).build());
        directory.file("out.vxl", "precious");
        directory.file("bad.vxl", "no points");
        directory.file("old.index", "rtre");
        directory.file("a.xyz", "1 2 3\n");
        directory.file("wrong.txt", "1 2 3 4\n1 2 3 65536\n");
        directory.file("two.xyz", "1 1 1 10 0\n2 2 2 20 7\n");
        directory.file("all.list", "survey.vxl\n");
        for (const char* link : {"link.vxl", "link.index", "link.txt", "link.las"})
            std::filesystem::create_symlink(link == std::string("link.las") ? "tile.las" : "survey.vxl",
                                            directory / link);
        for (const char* link : {"hard.vxl", "hard.index"})
            std::filesystem::create_hard_link(directory / "survey.vxl", directory / link);
        std::filesystem::create_hard_link(directory / "tile.las", directory / "hard.las");
        std::filesystem::create_hard_link(directory / "all.list", directory / "list.index");
    }

    std::map<std::string, std::string> contents() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path()))
            if (entry.is_regular_file() && entry.path().stem() != "stdout" && entry.path().stem() != "stderr")
                files[entry.path()] = readFile(entry.path());
        return files;
    }

    void expectRefused(const std::string& program, const std::string& common, const Cases& cases) const
    {
        const auto before = contents();
        for (const auto& [arguments, message] : cases) {
            const bool isUsage = message.find(" usage error: ") != std::string::npos;
            const Result result = run(program, common + arguments);
            EXPECT_EQ(result.status, 1) << arguments;
            EXPECT_EQ(result.errors, isUsage ? message + "\nUse -h or -help for list of options.\n\n"
                                             : "Error: " + message + '\n')
                << arguments;
            EXPECT_TRUE(contents() == before) << "a file was changed by " << arguments;
        }
    }
};

TEST_F(Refusals, BadValuesOfOptions)
{
    const std::string usage = "vxpack usage error: ";
    expectRefused(
        VXPACK, "-i survey.vxl -o out.vxl ",
        {{"-j abc", usage + "bad value 'abc' of option -numThreads"},
         {"-fileVersion 4294967297", usage + "bad value '4294967297' of option -fileVersion"},
         {"-s 0", usage + "the value of -subsample must be a number above 0"},
         {"-s -2", usage + "the value of -subsample must be a number above 0"},
         {"-s inf", usage + "the value of -subsample must be a number above 0"},
         {"-c 7 5 0 1 0 1", usage + "the box of -crop is inverted: x-min 7 is greater than x-max 5"},
         {"-c 0 1 0 1 -inf -1e400", usage + "bad value '-1e400' of option -crop"},
         {"-c 0 1 7 5 -inf inf", usage + "the box of -crop is inverted: y-min 7 is greater than y-max 5"},
         {"-c 0 1 5 5 1 0.5", usage + "the box of -crop is inverted: z-min 1 is greater than z-max 0.5"},
         {"-quantize 1 1 0", usage + "the steps of -quantize must be numbers above 0"},
         {"-quantize 1 inf 1", usage + "the steps of -quantize must be numbers above 0"}});
    expectRefused(VXINDEX, "-o t.index -i survey.vxl ",
                  {{"-d -1", "vxindex usage error: bad value '-1' of option -depth"},
                   {"-overviewFraction 0",
                    "vxindex usage error: the value of -overviewFraction must be above 0 and at most 1"},
                   {"-overviewFraction 1.001",
                    "vxindex usage error: the value of -overviewFraction must be above 0 and at most 1"},
                   {"-gpsWeek 100000", "bad GPS week 100000"}});
    expectRefused(VXINFO, "survey.vxl ",
                  {{"-j 2x", "vxinfo usage error: bad value '2x' of option -numThreads"}});
    // The parser of vxunpack is part of its interface and stays lenient.
    succeed(VXUNPACK, "-i survey.vxl -o null -j 2x -c 7 5 0 1x 0 1");
}

TEST_F(Refusals, RequiredOptions)
{
    expectRefused(VXPACK, "-i survey.vxl",
                  {{"", "vxpack usage error: required switch -outputFile not present"}});
    expectRefused(VXUNPACK, "-o out.las",
                  {{"", "vxunpack usage error: required switch -inputFile not present"}});
    expectRefused(VXINDEX, "tiles", {{"", "vxindex usage error: required switch -index not present"}});
    expectRefused(VXINFO, "-json", {{"", "vxinfo usage error: required inputFile argument(s) not present"}});
    for (const auto& [program, line] : {std::pair(VXPACK, "\n  -o or -outputFile STRING\n"),
                                        {VXUNPACK, "  -s or -subsample FLOAT\n"},
                                        {VXINDEX, "  -d or -depth UNSIGNED-INT\n"},
                                        {VXINFO, "  -skip or -skipHeader UNSIGNED-INT\n"}})
        expectContains(succeed(program, "-help"), {line});
    expectContains(succeed(VXUNPACK, "-version"),
                   {"Version 1.1.4.4709.", "\nBuilt Dec 21 2017 14:39:27 (release, 64 bits)\n"});
}

TEST_F(Refusals, OutputsThatAreInputs)
{
    const auto refusal = [](const std::string& output) {
        return "the output '" + output + "' is the input file";
    };
    succeed(VXINDEX, "-o tiles.index tiles -overview small.vxl");
    succeed(VXINDEX, "-o las.index tile.las");
    expectRefused(VXPACK, "",
                  {{"-i survey.vxl -o survey.vxl", refusal("survey.vxl")},
                   {"-i survey.vxl -o link.vxl -order hilbert", refusal("link.vxl")},
                   {"-i all.list -o hard.vxl", refusal("hard.vxl")},
                   {"-i tiles -i own -o own/a.vxl", refusal("own/a.vxl")},
                   {"-i tiles.index -o ./tiles/b.vxl", refusal("./tiles/b.vxl")},
                   {"-i survey.vxl -i tiles.index -o small.vxl", refusal("small.vxl")}});
    expectRefused(VXUNPACK, "-i survey.vxl ",
                  {{"-o survey.vxl -of las10", refusal("survey.vxl")},
                   {"-o own/../survey.vxl -of txt", refusal("own/../survey.vxl")},
                   {"-o link.txt", refusal("link.txt")}});
    expectRefused(VXINDEX, "",
                  {{"-o link.index survey.vxl", refusal("link.index")},
                   {"-o hard.index all.list", refusal("hard.index")},
                   {"-o list.index all.list", refusal("list.index")}});
    expectRefused(VXINDEX, "-createOverview -o ",
                  {{"las.index tile.las tiles/b.vxl -overview tile.las", refusal("tile.las")},
                   {"las.index -u tiles/b.vxl -overview tiles/../tile.las", refusal("tiles/../tile.las")},
                   {"las.index -u -overview link.las", refusal("link.las")},
                   {"new.index tile.las -overview hard.las", refusal("hard.las")},
                   {"las.index tiles -overview folder.las",
                    "Unable to create output folder.las. Is a directory path = folder.las"},
                   {"t.index tiles -overview o.vxl", "an overview is created as a LAS or LAZ file: 'o.vxl'"},
                   {"t.index tiles", "an overview is created as a LAS or LAZ file: ''"}});
}

TEST_F(Refusals, NamesAndFormats)
{
    expectRefused(VXPACK, "-i ",
                  {{"survey.vxl -o out.las", "the name of the output must end in '.vxl': 'out.las'"},
                   {"survey.vxl -o null", "the name of the output must end in '.vxl': 'null'"},
                   {"survey.vxl -o none/out.vxl", "No such file or directory path = none/out.vxl"},
                   {"survey.vxl -o folder.vxl", "Is a directory path = folder.vxl"},
                   {"none.las -o out.vxl", "No such file or directory path = none.las"},
                   {"folder.vxl -o out.vxl", "there are no files to read"},
                   {"bad.vxl -o out.vxl", "not a Vexil file path = bad.vxl"},
                   {"a.xyz -o out.vxl", "TXT file requires a format parse string '-parse': 'a.xyz'"},
                   {"a.xyz -o out.vxl -parse xyzi -lenient", "a.xyz:1:6: 3 fields, expected 4"},
                   {"a.xyz -o out.vxl -parse xyi", "must have x, y, and z channels"}});
    expectRefused(
        VXUNPACK, "-i ",
        {{"a.xyz -o out.txt", "unsupported input file format 'a.xyz'"},
         {"'' -o out.txt", "unsupported input file format ''"},
         {"none.vxl -o out.txt", "No such file or directory path = none.vxl"},
         {"survey.vxl -o out.txt -of PLY", "unsupported output format 'PLY'"},
         {"survey.vxl -o out.vxl", "unknown output format"},
         {"survey.vxl -o new.list", "unknown output format"},
         {"survey.vxl -o ''", "the name of the output file is empty"},
         {"survey.vxl -o '' -of laz", "the name of the output file is empty"},
         {"survey.vxl -o none/o.las",
          "Unable to create output none/o.las. No such file or directory path = none/o.las"},
         {"survey.vxl -o none/o.txt", "No such file or directory path = none/o.txt"},
         {"survey.vxl -o o.laz -sc 0.01 nan 0.01", "the scale nan of Y cannot be used"},
         {"survey.vxl -o o.txt -ofld xyzQ", "'Q' is not a supported format token"},
         {"survey.vxl -o o.txt -ofld x,y,z", "',' is not a supported format token"},
         {"survey.vxl -o o.txt -ofld xyzT", "'GPSTime_Adjusted' is not in the input channel mapping"},
         {"survey.vxl -o o.las -gps adjusted", "'survey.vxl' has no channel 'GPSTime_Adjusted'"},
         {"survey.vxl -o o.las -gps both",
          "unknown value 'both' of -gps, it is 'week', 'adjusted' or 'nonzero'"},
         {"survey.vxl -o o.txt -gps week", "-gps is for LAS and LAZ output"}});
    expectRefused(VXINDEX, "-o ",
                  {{"t.index", "there are no files to index"},
                   {"t.index nothing", "No such file or directory path = nothing"},
                   {"t.index a.xyz", "TXT file requires a format parse string '-parse': 'a.xyz'"},
                   {"t.index -p xyzi wrong.txt", "wrong.txt:2:7: 65536 does not fit Intensity (0 to 65535)"},
                   {"t.index -p xyz a.xyz bad.vxl", "not a Vexil file path = bad.vxl"},
                   {"tiles/a.vxl tiles/b.vxl", "the name of an index must end in '.index': 'tiles/a.vxl'"},
                   {"t.index -l", "No such file or directory path = t.index"},
                   {"t.index -u tiles", "No such file or directory path = t.index"},
                   {"old.index -u tiles", "Input/output error: failed reading: version"},
                   {"t.index tiles old.index", "unsupported input file format 'old.index'"}});
}

TEST_F(Refusals, ChoicesOfTheEncoder)
{
    const std::string channels =
        ", its channels are X, Y, Z, Intensity, ReturnNum, NumReturns, ScanDir, EdgeFlightLine, "
        "ClassId, ScanAngle, SourceId, GPSTime, Red, Green, Blue";
    expectRefused(
        VXPACK, "-i survey.vxl -o out.vxl ",
        {{"-t 42", "there is no transform 42"},
         {"-t X=", "bad value 'X=' of -transform"},
         {"-t 9x", "bad value '9x' of -transform"},
         {"-t 266", "the value 266 of -transform is too large"},
         {"-t Red=70", "transform 70 does not suit channel 'Red'"},
         {"-t Mood=10", "the output does not have channel: 'Mood'" + channels},
         {"-sb 15", "the subblock size must be 16 to 1048576"},
         {"-ofld xyz -sb Red=64", "the output does not have channel: 'Red', its channels are X, Y, Z"},
         {"-ofld xyi", "must have x, y, and z channels"},
         {"-levels 65", "the number of levels must be 1 to 64"},
         {"-pe 0", "the number of points per index entry must be 1 to 2147483647"},
         {"-fileVersion 5", "the file version must be 1 to 4"},
         {"-headerVersion 258", "the value 258 of -headerVersion is too large"},
         {"-indexVersion 3", "the version of the index must be 1 to 2"},
         {"-bandVersion 0", "the version of the subbands must be 1 to 3"},
         {"-order random", "unknown order 'random', it is 'input' or 'hilbert'"},
         {"-srs EPSG:1", "unknown value 'EPSG:1' of -srs, it is 'same'"},
         {"-filter ClassId,5",
          "bad filter 'ClassId,5', the format is <channel name>,<integer value>,include|exclude"},
         {"-filter Mood,1,include", "the point source does not have channel: 'Mood'" + channels}});
}

TEST_F(Refusals, FilesThatAreNotRegular)
{
    for (const char* name : {"pipe.las", "pipe.vxl", "pipe.txt", "pipe.list", "pipe.index"})
        ASSERT_EQ(mkfifo((directory / name).c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", directory / "zero.list");
    sockaddr_un address{AF_UNIX, {}};
    (directory / "s.las").copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    directory.file("pipes.list", "pipe.las\n");
    directory.file("urls.list", "http://localhost/a.las\n");
    const std::string tile = directory / "tiles/b.vxl";
    succeed(VXINDEX, "-o tiles.index tiles/b.vxl");
    std::filesystem::remove(tile);
    ASSERT_EQ(mkfifo(tile.c_str(), 0600), 0);
    const auto refusal = [](const std::string& name, const std::string& kind) {
        return "cannot read '" + name + "': it is " + kind + ", not a regular file";
    };
    expectRefused(
        VXPACK, "-o out.vxl -i ",
        {{"pipe.las", refusal("pipe.las", "a pipe")},
         {"pipe.txt -p xyz", refusal("pipe.txt", "a pipe")},
         {"pipe.index", refusal("pipe.index", "a pipe")},
         {"pipes.list", refusal("pipe.las", "a pipe")},
         {"zero.list", refusal("zero.list", "a device")},
         {"s.las", refusal("s.las", "a socket")},
         {"tiles.index", refusal("tiles/b.vxl", "a pipe")},
         {"urls.list", "Failed to create LASReader for path = 'http://localhost/a.las': No such file "
                       "or directory path = http://localhost/a.las"}});
    expectRefused(VXUNPACK, "-o null -i ", {{"pipe.vxl", refusal("pipe.vxl", "a pipe")}});
    expectRefused(VXINDEX, "-o pipe.index -u", {{"", refusal("pipe.index", "a pipe")}});
    expectRefused(VXINFO, "", {{"pipe.list", "pipe.list: " + refusal("pipe.list", "a pipe")}});
    close(socket);
}

} // namespace
} // namespace Quillmoran

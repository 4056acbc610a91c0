// What each program refuses, and that a refused run changes no file.
#include "apps/AppTest.h"
#include "support/LASClouds.h"
#include "support/TileFiles.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace Quillmoran::Testing { namespace {

class Refusals : public AppTest
{
protected:
    Refusals()
    {
        for (const char* name : {"folder.vxl", "folder.las"})
            std::filesystem::create_directory(directory / name);
        writeFile(directory / "own/a.vxl", buildExampleSurvey());
        for (const char* name : {"tiles/a.vxl", "tiles/b.vxl", "small.vxl"})
            writeFile(directory / name, buildTile(0, 0));
        writeFile(directory / "tile.las", randomLASFile(1, 2, 5, 1).build());
        for (const auto& [name, content] : {std::pair("out.vxl", "precious"),
                                            {"bad.vxl", "no points"},
                                            {"old.index", "rtre"},
                                            {"a.xyz", "1 2 3\n"},
                                            {"wrong.txt", "1 2 3 4\n1 2 3 65536\n"},
                                            {"all.list", "survey.vxl\n"},
                                            {"survey.png", "precious"}})
            directory.file(name, content);
        for (const char* link : {"link.vxl", "link.index", "link.txt"})
            std::filesystem::create_symlink("survey.vxl", directory / link);
        std::filesystem::create_symlink("tile.las", directory / "link.las");
        for (const auto& [file, link] : {std::pair("survey.vxl", "hard.vxl"),
                                         {"survey.vxl", "hard.index"},
                                         {"tile.las", "hard.las"},
                                         {"all.list", "list.index"},
                                         {"tiles/b.vxl", "shot.png"}})
            std::filesystem::create_hard_link(directory / file, directory / link);
    }

    std::map<std::string, std::string> contents() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path()))
            if (entry.is_regular_file() && entry.path().stem() != "stdout" && entry.path().stem() != "stderr")
                files[entry.path()] = readFile(entry.path());
        return files;
    }

    // The commands of the table's section of this test.
    void expectRefused() const
    {
        const auto before = contents();
        for (const Strings& row : tableOf("refusals.txt")) {
            std::string message = row.at(1);
            if (message.rfind("same ", 0) == 0)
                message = "the output '" + message.substr(5) + "' is the input file";
            const bool isUsage = message.find(" usage error: ") != std::string::npos;
            const Result result = run(row[0]);
            EXPECT_EQ(result.status, row[0].rfind("vxdiff", 0) == 0 ? 2 : 1) << row[0];
            EXPECT_EQ(result.errors, isUsage ? message + "\nUse -h or -help for list of options.\n\n"
                                             : "Error: " + message + '\n')
                << row[0];
            EXPECT_TRUE(contents() == before) << "a file was changed by " << row[0];
        }
    }
};

TEST_F(Refusals, BadValuesOfOptions)
{
    expectRefused();
    // The parser of vxunpack is part of its interface and stays lenient.
    succeed("vxunpack -i survey.vxl -o null -j 2x -c 7 5 0 1x 0 1");
    for (const auto& [command, line] :
         {std::pair("vxpack -help", "\n  -o or -outputFile FILE\n"),
          {"vxunpack -help", "  -s or -subsample FLOAT\n"},
          {"vxindex -help", "  -d or -depth N\n"},
          {"vxinfo -help", "  -skip or -skipHeader N\n"},
          {"vxunpack -version", "Version 1.1.4.4709."},
          {"vxunpack -version", "\nBuilt Dec 21 2017 14:39:27 (release, 64 bits)\n"}})
        expectContains(succeed(command), {line});
}

TEST_F(Refusals, OutputsThatAreInputs)
{
    succeed("vxindex -o tiles.index tiles -overview small.vxl");
    succeed("vxindex -o las.index tile.las");
    expectRefused();
}

TEST_F(Refusals, NamesFormatsAndChoicesOfTheEncoder)
{
    expectRefused();
}

TEST_F(Refusals, FilesThatAreNotRegular)
{
    succeed("vxindex -o tiles.index tiles/b.vxl");
    std::filesystem::remove(directory / "tiles/b.vxl");
    for (const char* name : {"pipe.las", "pipe.vxl", "pipe.txt", "pipe.list", "pipe.index", "tiles/b.vxl"})
        ASSERT_EQ(mkfifo((directory / name).c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", directory / "zero.list");
    sockaddr_un address{AF_UNIX, {}};
    (directory / "s.las").copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    directory.file("pipes.list", "pipe.las\n");
    directory.file("urls.list", "http://localhost/a.las\n");
    expectRefused();
    close(socket);
}

}} // namespace Quillmoran::Testing

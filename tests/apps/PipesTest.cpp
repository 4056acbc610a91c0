// Programs in pipelines: points from and to pipes are those of files, messages are apart from them, and a reader
// that has seen enough is no error.
#include "apps/AppTest.h"
#include "support/LASClouds.h"

#include <sys/stat.h>

namespace Quillmoran::Testing { namespace {

class Pipes : public AppTest
{
protected:
    Pipes()
    {
        for (const auto& [name, format] : {std::pair("old", 3), {"new", 7}}) {
            LASFile file = randomLASFile(format, format == 3 ? 2 : 4, 20000, 5);
            file.describePoints();
            writeFile(directory / name + std::string(".las"), file.build());
            succeed(std::string("vxpack -q -i ") + name + ".las -o " + name + ".vxl");
        }
        std::filesystem::create_directory(directory / "tmp");
        setenv("TMPDIR", (directory / "tmp").c_str(), 1);
    }
    ~Pipes() override { unsetenv("TMPDIR"); }

    std::string bytes(const std::string& name) const { return readFile(directory / name); }
    void expectSame(const std::string& a, const std::string& b, const std::string& command) const
    {
        EXPECT_FALSE(bytes(a).empty());
        EXPECT_TRUE(bytes(a) == bytes(b)) << command;
    }
};

TEST_F(Pipes, GetTheSameBytesAsFiles)
{
    struct Row
    {
        const char* options;
        bool streams; // without a temporary file
    };
    for (const auto& [options, streams] : {Row{"-of txt", true},
                                           {"-of las12 -ofld xyzirn", true},
                                           {"-of las12 -ofld xyz -sc 1 1 1", true},
                                           {"-of las12 -c -inf +inf 0 +inf -inf +inf", false},
                                           {"-of las12 -s 3", false},
                                           {"-of laz -s 3", false},
                                           {"-restore -of laz", false}})
        for (const std::string input : {"old", "new"}) {
            const std::string command = "vxunpack -i " + input + ".vxl " + options + " -o ";
            SCOPED_TRACE(command);
            ASSERT_EQ(run(command + "file").status, 0);
            const std::string piped = command + "- 2>messages | cat >pipe; cat messages >&2";
            const Result result = shell(streams ? "export TMPDIR=none; " + piped : piped);
            expectSame("file", "pipe", command);
            EXPECT_NE(result.errors.find(" points written\n"), std::string::npos) << result.errors;
            for (const char* output :
                 {"/dev/stdout >pipe2", "- >pipe2", "fifo 2>&1 & cat fifo >pipe2; wait"}) {
                mkfifo((directory / "fifo").c_str(), 0600);
                shell(command + output);
                expectSame("file", "pipe2", output);
                EXPECT_TRUE(std::filesystem::is_empty(directory / "tmp"));
            }
            if (!streams) {
                EXPECT_NE(shell("TMPDIR=none " + command + "- | cat >pipe").errors.find("path = none"),
                          std::string::npos);
            }
        }
    shell("vxunpack -i old.vxl -of las12 -restore -o - | cat >restored");
    expectSame("restored", "old.las", "-restore");
    succeed("vxpack -q -i old.las -o dashed.vxl");
    shell("vxpack old.las -o - | cat >piped.vxl");
    expectSame("piped.vxl", "dashed.vxl", "vxpack");
    succeed("vxunpack -i old.vxl -o ./-");
    succeed("vxunpack -i old.vxl -o out.txt");
    expectSame("-", "out.txt", "./-");
}

// In a pipe, the position of the chunk table is at the end.
TEST_F(Pipes, GetLAZFilesThatReadersAccept)
{
    for (const std::string input : {"old", "new"}) {
        const Result result = shell("TMPDIR=none vxunpack -i " + input + ".vxl -of laz -o - | cat >pipe.laz");
        EXPECT_EQ(result.output, "");
        const LASFile file = LASFile::load(directory / "pipe.laz");
        EXPECT_EQ(bytes("pipe.laz").substr(file.pointDataOffset, 8), std::string(8, '\xff'));
        succeed("vxdiff " + input + ".las pipe.laz");
    }
}

TEST_F(Pipes, EndQuietlyWhenTheirReaderHasSeenEnough)
{
    succeed("vxindex -q -o t.index old.vxl new.vxl");
    const auto expectQuiet = [&](const std::string& command, const std::string& reader) {
        shell("(sleep 0.1; " + command + " 2>messages; echo $? >status) | " + reader + " >got");
        EXPECT_EQ(bytes("status"), "141\n") << command;
        EXPECT_EQ(bytes("messages").find("Error"), std::string::npos) << bytes("messages");
        EXPECT_TRUE(std::filesystem::is_empty(directory / "tmp"));
    };
    for (const char* command : {"vxunpack -i old.vxl -o -", "vxunpack -i old.vxl -of las12 -o /dev/stdout",
                                "vxunpack -i old.vxl -of laz -s 2 -o -", "vxpack old.las -o -"}) {
        expectQuiet(command, "head -c 1");
        expectQuiet(command, "true");
    }
    for (const char* report : {"vxdiff old.vxl new.vxl", "vxinfo -json old.vxl", "vxindex -o t.index -l"})
        expectQuiet(report, "true");
}

}} // namespace Quillmoran::Testing

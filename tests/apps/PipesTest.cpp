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

TEST_F(Pipes, GiveTheSamePointsAsFiles)
{
    succeed("vxunpack -q -i old.vxl -o old.laz");
    succeed("vxunpack -q -i old.vxl -o old.txt");
    for (const char* name : {"old.las", "new.las", "old.laz", "old.txt", "old.vxl"}) {
        SCOPED_TRACE(name);
        const std::string input = name, report = succeed("vxinfo -json " + input);
        succeed("vxpack -q " + input + " -o file.vxl");
        for (const std::string& command :
             {"cat " + input + " | vxpack -q - -o pipe.vxl", "vxpack -q -i - -o pipe.vxl <" + input,
              "mkfifo fifo; cat " + input + " >fifo & vxpack -q fifo -o pipe.vxl; wait; rm fifo",
              "cp " + input + " x; vxpack -q x --Input-Format " + input.substr(4) + " -o pipe.vxl"}) {
            EXPECT_EQ(shell(command).errors, "") << command;
            expectSame("pipe.vxl", "file.vxl", command);
        }
        EXPECT_EQ(std::regex_replace(shell("cat " + input + " | vxinfo --json -").output,
                                     std::regex("standard input"), input),
                  report);
        EXPECT_EQ(shell("(echo; cat " + input + ") >x; (read line; vxdiff " + input + " -) <x").status, 0);
    }
    shell("cat old.las | vxpack -q - -o again.vxl; vxunpack -i again.vxl -o again.las -restore");
    expectSame("again.las", "old.las", "-restore");
    succeed("vxunpack -q -i old.vxl -o xyzi.txt -ofld xyzi");
    shell("grep -v '#' xyzi.txt | vxpack -q - -parse xyzi -o xyzi.vxl");
    EXPECT_EQ(run("vxdiff xyzi.txt xyzi.vxl").status, 0);
    EXPECT_EQ(shell("cat old.vxl | vxunpack -i - -if vxl -o again.txt").status, 0);
    expectSame("again.txt", "old.txt", "vxunpack");
    EXPECT_EQ(shell("ls old.las | vxinfo -json -if LIST -").output, succeed("vxinfo -json old.las"));
    succeed("vxindex -q -o file.index old.las");
    shell("ls old.las | vxindex -q -o pipe.index -");
    expectSame("pipe.index", "file.index", "vxindex");
    EXPECT_TRUE(std::filesystem::is_empty(directory / "tmp"));
}

TEST_F(Pipes, GiveTheErrorsOfFiles)
{
    succeed("vxunpack -q -i old.vxl -o old.laz");
    for (const char* name : {"old.las", "old.laz", "old.vxl"})
        for (const char* size : {"3", "200", "100000"}) {
            const std::string input = name, cut = std::string("head -c ") + size + ' ' + name,
                              format = " -if " + input.substr(4);
            EXPECT_EQ(shell(cut + " >cut; vxinfo -check cut" + format).status, 1);
            const std::string expected = shell("vxinfo -check cut" + format).errors;
            EXPECT_EQ(std::regex_replace(shell(cut + " | vxinfo -check -" + format).errors,
                                         std::regex("standard input"), "cut"),
                      expected);
        }
    for (const auto& [command, error] :
         {std::pair(
              "TMPDIR=none vxpack - -o a.vxl",
              "Error: cannot copy 'standard input' to a temporary file: No such file or directory path = "
              "none\n"),
          {"ulimit -f 100; vxpack - -o a.vxl",
           "Error: cannot copy 'standard input' to a temporary file: File too large path = $/tmp\n"},
          {"vxpack - -if index -o a.vxl", "Error: cannot read 'standard input': an index must be a file\n"},
          {"vxunpack -i - -o null", "Error: unsupported input file format '-'\n"},
          {"vxunpack -i - -if las -o null", "Error: unsupported input file format '-'\n"},
          {"vxpack -", "vxpack usage error: -outputFile is required for points from a pipe\n$"},
          {"vxdiff - -", "vxdiff usage error: standard input ('-') can be given only once\n$"}}) {
        std::string expected = error;
        const std::string errors = shell(std::string("cat old.las | (") + command + ")").errors;
        if (expected.back() == '$')
            expected = expected.substr(0, expected.size() - 1) + "Use -h or -help for list of options.\n\n";
        expected = std::regex_replace(expected, std::regex("\\$"), directory.path());
        EXPECT_EQ(errors, expected) << command;
        EXPECT_TRUE(std::filesystem::is_empty(directory / "tmp"));
        EXPECT_FALSE(exists("a.vxl"));
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

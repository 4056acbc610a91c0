// What users see: on a terminal, in a log and through pipes.
#include "support/Terminal.h"
#include "apps/AppTest.h"
#include "support/LASClouds.h"

namespace Quillmoran::Testing { namespace {

class Terminal : public AppTest
{
protected:
    // Sizes and times vary.
    static std::string withoutNumbers(std::string text)
    {
        for (const auto& [pattern, replacement] : {std::pair(R"(\d+\.\d{3} s, \d+ points/s)", "SPEED"),
                                                   {R"(\d+ bytes, \d+\.\d{3} a point)", "SIZE"},
                                                   {R"(\d+ bytes)", "SIZE"}})
            text = std::regex_replace(text, std::regex(pattern), replacement);
        return text;
    }

    // Those of progress; reports have a space before the sign.
    static std::ptrdiff_t numPercentages(const std::string& text)
    {
        const std::regex percentage(R"(\d%)");
        return std::distance(std::sregex_iterator(text.begin(), text.end(), percentage),
                             std::sregex_iterator());
    }

    // The lines that are not empty, with a mark.
    static std::string marked(const std::string& output, const std::string& mark = "")
    {
        std::string text;
        for (const std::string& line : linesOf(withoutNumbers(output)))
            text += line.empty() ? "" : mark + line + '\n';
        return text;
    }
};

// The file has commands and what follows them: after "$ " on a terminal, after "| " in files, where lines of
// standard error begin with "! ". A status that is not 0 is a line of its own.
TEST_F(Terminal, ShowsWhatTheSessionsSay)
{
    succeed("vxunpack -i survey.vxl -o survey.laz");
    succeed("vxunpack -i survey.vxl -o survey.las");
    directory.file("tiles/a.laz", readFile(directory / "survey.laz"));
    directory.file("tiles/north/b.LAS", readFile(directory / "survey.las"));
    directory.file("points.txt", "1 2 3\n4 5 6\n");
    directory.file("-odd.txt", "# X Y Z\n1 2 3\n");

    std::string expected, actual;
    for (const std::string& line : linesOf(readFile(EXPECTED "/sessions.txt"))) {
        if (line.empty() || line.rfind("# ", 0) == 0)
            continue;
        expected += line + '\n';
        const bool isShown = line.rfind("$ ", 0) == 0;
        if (!isShown && line.rfind("| ", 0) != 0)
            continue;
        const std::string command = line.substr(2);
        actual += line + '\n';
        int status = 0;
        if (isShown) {
            const TerminalRun run = TerminalProgram(command, directory).wait();
            actual += marked(run.screen);
            status = run.status;
        } else {
            const Program program("/bin/sh", directory, {"-c", "PATH=" PROGRAMS ":$PATH; " + command});
            const Result result = program.waitForAll();
            actual += marked(result.output) + marked(result.errors, "! ");
            status = result.status;
        }
        if (status != 0)
            actual += "status " + std::to_string(status) + '\n';
    }
    EXPECT_EQ(actual, expected);
}

TEST_F(Terminal, ProgressRisesAndIsErased)
{
    for (const auto& [name, count] :
         {std::pair("tiles/a.las", 20000u), {"tiles/b.las", 10000u}, {"tiles/c.las", 5u}})
        writeFile(directory / name, randomLASFile(1, 2, count, 5).build());
    // Most points are in a corner of the bounds, so that estimates of points in a box are bad.
    LASFile corner = randomLASFile(1, 2, 30000, 8);
    for (std::size_t i = 0; i < corner.points.size(); ++i) {
        corner.points[i].x = static_cast<std::int32_t>(i % 1000 == 0 ? i : i / 100);
        corner.points[i].y = corner.points[i].x;
    }
    corner.describePoints();
    writeFile(directory / "corner.las", corner.build());
    // The first lines are longer or shorter than the others, so that estimates of their number are bad.
    for (const bool startsLong : {true, false}) {
        std::string text;
        for (int i = 0; i < 40000; ++i)
            text += ((i < 100) == startsLong ? "100000.123456 200000.123456 " : "1 2 ") + std::to_string(i) +
                    '\n';
        directory.file(startsLong ? "long.xyz" : "short.xyz", text);
    }
    directory.file("bad.xyz", readFile(directory / "long.xyz") + "x y z\n");
    succeed("vxpack corner.las -pe 1000");
    succeed("vxindex -o tiles.index tiles");

    const std::string box = " -c 995 1010 -2100 -1990 -inf +inf";
    const std::string cases[] = {
        "vxunpack -i corner.vxl -o out.txt",
        "vxunpack -i corner.vxl -o out.laz -s 3" + box,
        "vxunpack -i corner.vxl -o null" + box,
        "vxpack -i corner.las -o out.vxl" + box,
        "vxpack -i corner.vxl -o out.vxl -order hilbert" + box,
        "vxpack -i tiles.index -o out.vxl -order hilbert -s 2",
        "vxpack tiles -od out -f",
        "vxpack -i long.xyz -i short.xyz -o out.vxl -p xyz -order hilbert",
        "vxpack -i bad.xyz -o out.vxl -p xyz",
        "vxdiff corner.vxl corner.las",
        "vxinfo -check -stats corner.vxl",
        "vxinfo -stats short.xyz -p xyz",
        "vxindex -o again.index tiles long.xyz short.xyz -p xyz",
    };
    for (const std::string& command : cases) {
        SCOPED_TRACE(command);
        const bool fails = command.find("bad.xyz") != std::string::npos;
        const bool isDecoder = command.rfind("vxunpack", 0) == 0;
        const auto begin = std::chrono::steady_clock::now();
        const TerminalRun run = TerminalProgram(command, directory).wait();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        EXPECT_EQ(run.status, fails) << run.screen;
        const std::regex frame(isDecoder ? "\r *([0-9.]+)% \\([^)]*\\)" : "\r *([0-9.]+)%  [^\r\n]*\033\\[K");
        Numbers shown;
        for (std::sregex_iterator at(run.bytes.begin(), run.bytes.end(), frame), end; at != end; ++at)
            shown.push_back(std::stod((*at)[1]));
        EXPECT_FALSE(shown.empty());
        EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
        EXPECT_EQ(std::count(shown.begin(), shown.end(), 100.0), isDecoder);
        if (isDecoder) {
            EXPECT_TRUE(
                std::regex_search(run.screen, std::regex("^100.00% \\([^)]*\\)\n\\d+ points written\n")))
                << run.screen;
        } else {
            EXPECT_EQ(numPercentages(run.screen), 0) << run.screen;
            EXPECT_LE(static_cast<double>(shown.size()), 1 + 10 * seconds);
        }

        // A log gets the last frame of the decoder, and nothing of the others.
        const Result result = this->run(command);
        const std::string logged = result.output + result.errors;
        EXPECT_EQ(numPercentages(logged), isDecoder) << logged;
        EXPECT_EQ(logged.find('\r') == 0, isDecoder) << logged;
    }
}

}} // namespace Quillmoran::Testing

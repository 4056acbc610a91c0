// The completion scripts: bash's as the shell calls it, those of other shells as far as they are installed.
#include "apps/AppTest.h"

#include <set>

namespace Quillmoran::Testing { namespace {

class Completions : public ProgramTest
{
protected:
    // What bash offers for the last word of a command line, which may be empty; "files" if it completes names of
    // files.
    std::string offers(const std::string& program, const std::string& words) const
    {
        const std::string script =
            "source " PROGRAMS "/completions/bash/" + program +
            "\n"
            "readline=files; compopt() { case \"$*\" in *dirnames) readline=directories;; "
            "*) readline=;; esac; }\n"
            "COMP_WORDS=(" +
            program + ' ' + words +
            "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
            "_" +
            program + "; echo ${COMPREPLY[@]:-$readline}";
        const Result result = Testing::Program("/bin/bash", directory, {"-c", script}).wait();
        EXPECT_EQ(result.errors, "") << words;
        return result.output.substr(0, result.output.find('\n'));
    }
};

TEST_F(Completions, OfferOptionsAndTheirValues)
{
    const struct
    {
        const char* program;
        const char* words;
        const char* offers;
    } cases[] = {
        {"vxpack", "-ord", "-order"},
        {"vxpack", "a.laz -or", "-order"},
        {"vxpack", "--drop", "--drop --dropWaveforms"},
        {"vxpack", "-order hil", "hilbert"},
        {"vxpack", "-prefer s", "size speed"},
        {"vxpack", "--order = hil", "hilbert"}, // bash splits words at "="
        {"vxpack", "-srs ''", "same"},
        {"vxpack", "-i ''", "files"},
        {"vxpack", "-od ''", "directories"},
        {"vxpack", "''", "files"},
        {"vxpack", "-- -or", "files"},
        {"vxpack", "-j ''", ""},
        {"vxpack", "-c 1 2 3 4 5 -or", ""}, // the last number of the box
        {"vxpack", "-c 1 2 3 4 5 6 -or", "-order"},
        {"vxunpack", "-of l", "las10 las11 las12 laz"},
        {"vxunpack", "-gps ''", "week adjusted nonzero"},
        {"vxunpack", "-no", "-noVerify"}, // not in the usage text
        {"vxunpack", "--no", "files"},
        {"vxunpack", "-ofld x", ""},
    };
    for (const auto& [program, words, expected] : cases)
        EXPECT_EQ(offers(program, words), expected) << program << ' ' << words;
}

// The man pages list options as "\fB\-o\fR \fIfile\fR, \fB\-outputFile\fR \fIfile\fR" after ".TP".
TEST_F(Completions, OfferTheOptionsOfTheManPages)
{
    const std::regex option("\\\\-([A-Za-z]+)");
    for (const std::string program : {"vxdiff", "vxindex", "vxinfo", "vxpack", "vxunpack", "vxview"}) {
        std::set<std::string> documented, offered;
        const Strings lines = linesOf(readFile(EXAMPLES "/../docs/man/" + program + ".1"));
        for (std::size_t i = 1; i < lines.size(); ++i)
            if (lines[i - 1] == ".TP")
                for (std::sregex_iterator at(lines[i].begin(), lines[i].end(), option), end; at != end; ++at)
                    documented.insert('-' + (*at)[1].str());
        std::istringstream names(offers(program, "-"));
        for (std::string name; names >> name;)
            offered.insert(name);
        EXPECT_EQ(offered, documented) << program;
    }
}

TEST_F(Completions, AreScriptsOfTheirShells)
{
    for (const std::string program : {"vxdiff", "vxindex", "vxinfo", "vxpack", "vxunpack", "vxview"})
        for (const std::string& check :
             {"bash -n " PROGRAMS "/completions/bash/" + program,
              "! command -v zsh || zsh -n " PROGRAMS "/completions/zsh/_" + program,
              "! command -v fish || fish -n " PROGRAMS "/completions/fish/" + program + ".fish"}) {
            const Result result = shell(check);
            EXPECT_EQ(result.status, 0) << check << result.errors;
            EXPECT_EQ(result.errors, "") << check;
        }
}

}} // namespace Quillmoran::Testing

// Runs of the programs whose outputs are examined: points as text or as numbers, descriptions as JSON.
#pragma once

#include "support/ExampleSurvey.h"
#include "support/Program.h"
#include "support/SetOfSources.h"
#include <vxunpack/VX7PointReader.h>

#include <nlohmann/json.hpp>

namespace Quillmoran::Testing {

using nlohmann::json;
using Rows = std::vector<Numbers>;

// The object of a list with this name; null if there is none.
inline json find(const json& list, const std::string& name)
{
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const auto& each) { return each.at("name") == name; });
    return found == list.end() ? json() : *found;
}

inline void expectContains(const std::string& text, const Strings& parts)
{
    for (const std::string& part : parts)
        EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
}

inline Strings linesOf(const std::string& text)
{
    std::istringstream stream(text);
    Strings lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

class AppTest : public ProgramTest
{
protected:
    AppTest() { writeFile(directory / "survey.vxl", buildExampleSurvey()); }

    // The section of a table that is named after the test. Rows: a command and its messages, separated by " | ".
    static std::vector<Strings> tableOf(const std::string& file)
    {
        const std::string text = readFile(EXPECTED "/" + file),
                          title = testing::UnitTest::GetInstance()->current_test_info()->name();
        const std::size_t begin = text.find("\n[" + title + "]\n") + title.size() + 4;
        EXPECT_GT(begin, title.size() + 4) << "no section " << title;
        const std::regex separator(" \\| ");
        std::vector<Strings> rows;
        for (const std::string& line : linesOf(text.substr(begin, text.find("\n\n", begin) - begin)))
            rows.emplace_back(std::sregex_token_iterator(line.begin(), line.end(), separator, -1),
                              std::sregex_token_iterator());
        return rows;
    }
    // Runs that succeed with the warnings of a table, in the order of its rows.
    void expectWarnings() const
    {
        for (const Strings& row : tableOf("warnings.txt")) {
            std::string errors;
            for (std::size_t i = 1; i < row.size(); ++i)
                errors += "Warning: " + row[i] + '\n';
            succeed(row[0], errors);
        }
    }
    // Text of compressed files.
    std::string decode(const std::string& arguments) const
    {
        succeed("vxunpack -o text.txt -i " + arguments);
        return readFile(directory / "text.txt");
    }
    Scoped<VX7PointReader> openCompressed(const std::string& name) const
    {
        Scoped<VX7PointReader> reader(VX7PointReader::create());
        reader->init((directory / name).c_str());
        return reader;
    }
    // The points of a compressed file, to the last bit.
    Rows samplesOf(const std::string& name, const Bounds& box = Bounds::Huge()) const
    {
        const auto reader = openCompressed(name);
        return readRows(*reader, reader->getPointInfo(), box);
    }
    json describe(const std::string& arguments) const
    {
        return json::parse(succeed("vxinfo -json " + arguments))[0];
    }
    // A survey that can be opened, but not decoded.
    void damage(const std::string& name) const
    {
        Bytes bytes = buildExampleSurvey();
        std::fill_n(bytes.begin() + 9300, 64, std::uint8_t{0xFF});
        writeFile(directory / name, bytes);
    }
};

} // namespace Quillmoran::Testing

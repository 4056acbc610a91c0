// Runs of the programs whose outputs are examined: points as text or as numbers, descriptions as JSON.
#pragma once

#include "support/Program.h"
#include "support/SetOfSources.h"
#include <vxunpack/VX7PointReader.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

using nlohmann::json;
using Rows = std::vector<std::vector<double>>;

// The object of a list with this name; null if there is none.
inline json find(const json& list, const std::string& name)
{
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const auto& each) { return each["name"] == name; });
    return found == list.end() ? json() : *found;
}

inline void expectContains(const std::string& text, const std::vector<std::string>& parts)
{
    for (const std::string& part : parts)
        EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
}

inline std::vector<std::string> linesOf(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

class AppTest : public ProgramTest
{
protected:
    struct Row
    {
        std::string command;
        std::vector<std::string> messages;
    };
    // The section of a table that is named after the test. Rows: a command and its messages, separated by " | ".
    static std::vector<Row> tableOf(const std::string& file)
    {
        std::vector<Row> rows;
        std::string section;
        for (const std::string& line : linesOf(readFile(EXPECTED "/" + file)))
            if (line[0] == '[') {
                section = line;
            } else if (section ==
                           '[' + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) +
                               ']' &&
                       !line.empty()) {
                std::size_t end = std::min(line.find(" | "), line.size());
                rows.push_back({line.substr(0, end), {}});
                while (end < line.size()) {
                    const std::size_t begin = end + 3;
                    end = std::min(line.find(" | ", begin), line.size());
                    rows.back().messages.push_back(line.substr(begin, end - begin));
                }
            }
        EXPECT_FALSE(rows.empty()) << file;
        return rows;
    }
    // Runs that succeed with the warnings of a table, in the order of its rows.
    void expectWarnings() const
    {
        for (const auto& [command, messages] : tableOf("warnings.txt")) {
            std::string errors;
            for (const std::string& message : messages)
                errors += "Warning: " + message + '\n';
            succeed(command, errors);
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
};

} // namespace Quillmoran::Testing

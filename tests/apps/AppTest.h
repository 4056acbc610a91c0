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
    std::string pack(const std::string& arguments, const std::string& messages = "") const
    {
        return succeed(VXPACK, arguments, messages);
    }
    // Text of compressed files.
    std::string decode(const std::string& arguments) const
    {
        succeed(VXUNPACK, "-o text.txt -i " + arguments);
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
        return json::parse(succeed(VXINFO, "-json " + arguments))[0];
    }
};

} // namespace Quillmoran::Testing

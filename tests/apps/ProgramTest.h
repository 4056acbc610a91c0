// Runs the programs in a directory of the test, as their users do.
#pragma once

#include "support/Program.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

class ProgramTest : public testing::Test
{
protected:
    // Arguments are separated by blanks.
    Program start(const char* program, const std::string& arguments) const
    {
        std::istringstream words(arguments);
        return {program, directory, {std::istream_iterator<std::string>(words), {}}};
    }
    Result run(const char* program, const std::string& arguments) const
    {
        return start(program, arguments).wait();
    }
    Result succeed(const char* program, const std::string& arguments) const
    {
        Result result = run(program, arguments);
        EXPECT_EQ(result.status, 0) << program << ' ' << arguments << '\n' << result.errors;
        return result;
    }
    void expectError(const char* program, const std::string& arguments, const std::string& message) const
    {
        const Result result = run(program, arguments);
        EXPECT_EQ(result.status, 1) << program << ' ' << arguments;
        EXPECT_EQ(result.errors, "Error: " + message + '\n') << program << ' ' << arguments;
    }
    bool exists(const std::string& path) const { return std::filesystem::exists(directory / path); }

    TemporaryDirectory directory;
};

// The object of a list with this name; null if there is none.
inline nlohmann::json find(const nlohmann::json& list, const std::string& name)
{
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const auto& each) { return each["name"] == name; });
    return found == list.end() ? nlohmann::json() : *found;
}

} // namespace Quillmoran::Testing

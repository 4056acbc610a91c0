// Makes the outputs of runs comparable.
#pragma once

#include <algorithm>
#include <regex>
#include <string>

namespace Quillmoran::Testing {

// The output without the times of runs: without ", 0.024 s, 101532 points/s", and without the lines of programs that
// only read, which consist of numbers.
inline std::string withoutTimes(const std::string& output)
{
    static const std::regex times(R"(, \d+\.\d{3} s, \d+ points/s)"), numbers(R"(\d+ points, \d+ bytes)");
    std::string result;
    for (std::size_t begin = 0, end = 0; begin < output.size(); begin = end) {
        end = std::min(output.find('\n', begin), output.size() - 1) + 1;
        const std::string line = output.substr(begin, end - begin),
                          rest = std::regex_replace(line, times, "");
        if (rest == line || !std::regex_match(rest.begin(), rest.end() - 1, numbers))
            result += rest;
    }
    return result;
}

} // namespace Quillmoran::Testing

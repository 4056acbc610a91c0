// What is said about a figure that was taken once in every round, and whether it is as wanted.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran::Benchmarks {

struct Spread
{
    double median = 0;
    double least = 0;
    double most = 0;
};

// Of at least one value.
Spread spread(std::vector<double> values);

// `value` tells the figure of a round, of which there is at least one.
template <class Value>
Spread spreadOfRounds(std::size_t numRounds, Value value)
{
    std::vector<double> values;
    values.reserve(numRounds);
    for (std::size_t round = 0; round < numRounds; ++round)
        values.push_back(value(round));
    return spread(std::move(values));
}

// "0.71 (0.69..0.73)"
std::string toString(const Spread& spread, int decimals);

const char* mark(bool isMet);

// While others use this many cores or more, a run that needs several cannot show what it does.
constexpr double idleCores = 0.2;

// As mark, but "busy" for what was missed where others had some of the cores that were needed.
const char* judge(bool isMet, bool needsCores, double othersCores);

} // namespace Quillmoran::Benchmarks

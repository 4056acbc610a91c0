#include "support/Statistics.h"

#include <algorithm>
#include <cstdio>

namespace Quillmoran::Benchmarks {

Spread spread(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    const double median = values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {median, values.front(), values.back()};
}

std::string toString(const Spread& spread, int decimals)
{
    char text[80];
    std::snprintf(text, sizeof text, "%.*f (%.*f..%.*f)", decimals, spread.median, decimals, spread.least,
                  decimals, spread.most);
    return text;
}

const char* mark(bool isMet)
{
    return isMet ? "met" : "missed";
}

const char* judge(bool isMet, bool needsCores, double othersCores)
{
    return !isMet && needsCores && othersCores > idleCores ? "busy" : mark(isMet);
}

} // namespace Quillmoran::Benchmarks

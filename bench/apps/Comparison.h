// A row of measurements beside those that a goal compares it with.
#pragma once

#include "apps/CompareRun.h"
#include "support/Statistics.h"

#include <string>
#include <vector>

namespace Quillmoran::Benchmarks {

constexpr double bytesPerMiB = 1024 * 1024;

// Whether more of it is better.
constexpr bool isAtLeast(Quantity quantity)
{
    return quantity == Quantity::speed;
}

// "wall / LASzip decode"
std::string describe(const Goal& goal);

// Refers to the results.
class Comparison
{
public:
    Comparison(const Goal& goal, const RowResult& own, const std::vector<RowResult>& results);

    // Whether all rows that it takes were run.
    bool isPossible() const;
    // What the goal is about, by the clock or by CPU time. Memory is the same by both, in MiB.
    Spread getRatio(double Usage::*seconds) const;

private:
    double getRatioOfRound(std::size_t round, double Usage::*seconds) const;

    Quantity m_quantity;
    const RowResult& m_own;
    const RowResult* m_peer;
    const RowResult* m_null; // that of as many threads
};

} // namespace Quillmoran::Benchmarks

#include "apps/Comparison.h"

#include <algorithm>

namespace Quillmoran::Benchmarks {

namespace {

template <class Matches>
const RowResult* find(const std::vector<RowResult>& results, Matches matches)
{
    const auto found = std::find_if(results.begin(), results.end(), matches);
    return found == results.end() ? nullptr : &*found;
}

} // namespace

std::string describe(const Goal& goal)
{
    const std::string peer(goal.peer);
    switch (goal.quantity) {
    case Quantity::speed:
        return "speed / " + peer;
    case Quantity::wall:
        return "wall / " + peer;
    case Quantity::overNull:
        return "over null / " + peer;
    case Quantity::peak:
        break;
    }
    return "peak MiB";
}

Comparison::Comparison(const Goal& goal, const RowResult& own, const std::vector<RowResult>& results)
    : m_quantity(goal.quantity),
      m_own(own),
      m_peer(find(results, [&](const RowResult& result) { return result.row->name == goal.peer; })),
      m_null(find(results, [&](const RowResult& result) {
          return result.row->name.starts_with("null,") && result.numThreads == own.numThreads;
      }))
{}

bool Comparison::isPossible() const
{
    return m_quantity == Quantity::peak || (m_peer && (m_quantity != Quantity::overNull || m_null));
}

Spread Comparison::getRatio(double Usage::*seconds) const
{
    return spreadOfRounds(m_own.usages.size(),
                          [&](std::size_t round) { return getRatioOfRound(round, seconds); });
}

double Comparison::getRatioOfRound(std::size_t round, double Usage::*seconds) const
{
    const Usage& own = m_own.usages[round];
    if (m_quantity == Quantity::peak)
        return own.peakBytes / bytesPerMiB;
    const double peer = m_peer->usages[round].*seconds;
    if (m_quantity == Quantity::overNull)
        return (own.*seconds - m_null->usages[round].*seconds) / peer;
    if (m_quantity == Quantity::wall)
        return own.*seconds / peer;
    // A peer may have read fewer points.
    const double sizes = static_cast<double>(m_own.numPoints) / static_cast<double>(m_peer->numPoints);
    return sizes * peer / (own.*seconds);
}

} // namespace Quillmoran::Benchmarks

#include "diff/SampleComparison.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace Quillmoran {

namespace {

template <class T>
bool haveSameBits(T a, T b) noexcept
{
    using Bits = std::conditional_t<sizeof(T) == sizeof(std::uint32_t), std::uint32_t, std::uint64_t>;
    Bits bitsOfA;
    Bits bitsOfB;
    std::memcpy(&bitsOfA, &a, sizeof a);
    std::memcpy(&bitsOfB, &b, sizeof b);
    return bitsOfA == bitsOfB;
}

template <class T>
bool areEqual(T a, T b) noexcept
{
    if constexpr (std::is_floating_point_v<T>)
        return (a == b) | haveSameBits(a, b); // without branches
    else
        return a == b;
}

// |a - b|, a double or the unsigned type of T.
template <class T>
auto distance(T a, T b) noexcept
{
    if constexpr (std::is_floating_point_v<T>) {
        return std::fabs(static_cast<double>(a) - static_cast<double>(b));
    } else {
        using Unsigned = std::make_unsigned_t<T>;
        const auto up = static_cast<Unsigned>(static_cast<Unsigned>(a) - static_cast<Unsigned>(b));
        const auto down = static_cast<Unsigned>(static_cast<Unsigned>(b) - static_cast<Unsigned>(a));
        return a > b ? up : down;
    }
}

template <class T>
struct Tally
{
    std::size_t numDifferent = 0;
    decltype(distance(T{}, T{})) largest{}; // ignoring NaNs
};

template <class T, class AreEqual>
Tally<T> tally(const T* a, const T* b, std::size_t count, AreEqual areSame) noexcept
{
    Tally<T> result;
    for (std::size_t i = 0; i < count; ++i) {
        result.numDifferent += !areSame(a[i], b[i]);
        const auto difference = distance(a[i], b[i]);
        result.largest = difference > result.largest ? difference : result.largest;
    }
    return result;
}

// long double holds every integer of 64 bits where it is wider than double, and rounds elsewhere.
double distance(const ExactNumber& a, const ExactNumber& b)
{
    const auto toReal = [](const ExactNumber& number) {
        return std::visit([](auto value) { return static_cast<long double>(value); }, number.toSample());
    };
    return static_cast<double>(std::fabs(toReal(a) - toReal(b)));
}

} // namespace

bool isWithin(double a, double b, double tolerance) noexcept
{
    if (tolerance == 0)
        return areEqual(a, b);
    // Coordinates are rounded, and so were the numbers that they are made of: a product of a scale, and an
    // offset that can be larger than the result.
    constexpr double millionth = 1e-6;
    const double rounding = std::numeric_limits<double>::epsilon() * std::max(std::fabs(a), std::fabs(b));
    return areEqual(a, b) | (std::fabs(a - b) <= tolerance + tolerance * millionth + rounding);
}

SampleComparison::SampleComparison(const ChannelInfo& a, const ChannelInfo& b, double tolerance)
    : m_tolerance(a.getDataType() == FLOAT64 && b.getDataType() == FLOAT64 ? tolerance : 0)
{
    m_result.name = a.getName();
    const bool isInteger = a.getDataType() == b.getDataType() && !DataTypeUtils::isFloat(a.getDataType());
    m_result.largest = isInteger ? Sample(std::uint64_t{0}) : Sample(std::nan(""));
}

void SampleComparison::add(const ChannelData& a, const ChannelData& b, std::size_t count,
                           std::uint64_t firstPoint)
{
    if (a.getDataType() != b.getDataType())
        return addMixed(a, b, count, firstPoint);
    if (count == 0 ||
        std::memcmp(a.getData(), b.getData(), count * DataTypeUtils::getSize(a.getDataType())) == 0)
        return;
    visitDataType(a.getDataType(), [&](auto zero) {
        using T = decltype(zero);
        addSame(static_cast<const T*>(a.getData()), static_cast<const T*>(b.getData()), count, firstPoint);
    });
}

template <class T>
void SampleComparison::addSame(const T* a, const T* b, std::size_t count, std::uint64_t firstPoint)
{
    const auto addTally = [&](auto areSame) {
        const Tally<T> found = tally(a, b, count, areSame);
        if (found.numDifferent == 0)
            return;
        m_result.numDifferent += found.numDifferent;
        if constexpr (std::is_floating_point_v<T>) {
            if (!(std::get<double>(m_result.largest) >= found.largest) && found.largest > 0)
                m_result.largest = found.largest;
        } else {
            m_result.largest =
                std::max<std::uint64_t>(std::get<std::uint64_t>(m_result.largest), found.largest);
        }
        addPairs(a, b, count, firstPoint, [&](const T& x, const T& y) { return !areSame(x, y); });
    };
    if constexpr (std::is_same_v<T, double>) {
        if (const double tolerance = m_tolerance; tolerance != 0)
            return addTally([tolerance](double x, double y) { return isWithin(x, y, tolerance); });
    }
    addTally([](T x, T y) { return areEqual(x, y); });
}

void SampleComparison::addMixed(const ChannelData& a, const ChannelData& b, std::size_t count,
                                std::uint64_t firstPoint)
{
    m_numbersOfA.resize(count);
    m_numbersOfB.resize(count);
    toExactNumbers(m_numbersOfA.data(), a.getData(), a.getDataType(), count);
    toExactNumbers(m_numbersOfB.data(), b.getData(), b.getDataType(), count);
    double largest = std::get<double>(m_result.largest);
    std::size_t numDifferent = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (m_numbersOfA[i] == m_numbersOfB[i])
            continue;
        ++numDifferent;
        const double difference = distance(m_numbersOfA[i], m_numbersOfB[i]);
        if (!(largest >= difference) && !std::isnan(difference))
            largest = difference;
    }
    m_result.largest = largest;
    m_result.numDifferent += numDifferent;
    if (numDifferent != 0)
        addPairs(m_numbersOfA.data(), m_numbersOfB.data(), count, firstPoint,
                 [](const ExactNumber& x, const ExactNumber& y) { return !(x == y); });
}

template <class T, class Differ>
void SampleComparison::addPairs(const T* a, const T* b, std::size_t count, std::uint64_t firstPoint,
                                Differ differs)
{
    const auto toSample = [](const T& value) -> Sample {
        if constexpr (std::is_same_v<T, ExactNumber>)
            return value.toSample();
        else if constexpr (std::is_floating_point_v<T>)
            return static_cast<double>(value);
        else if constexpr (std::is_signed_v<T>)
            return static_cast<std::int64_t>(value);
        else
            return static_cast<std::uint64_t>(value);
    };
    for (std::size_t i = 0; i < count && m_result.first.size() < DiffReport::maxShown; ++i)
        if (differs(a[i], b[i]))
            m_result.first.push_back({firstPoint + i, toSample(a[i]), toSample(b[i])});
}

} // namespace Quillmoran

#include "support/TerrainSurvey.h"

#include "model/ChannelNames.h"
#include "support/Random.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace Quillmoran::Benchmarks {

namespace {

// Lengths are metres.
constexpr double scale = 0.01;
constexpr double offsets[3] = {500000, 4100000, 0};

constexpr std::int64_t pulsesPerLine = 600;
constexpr std::int64_t linesPerFlight = 2500;
constexpr double swathWidth = 400;
constexpr double flightSpacing = 300;
constexpr double lineSpacing = 0.6;
constexpr double widestAngle = 18; // degrees
constexpr double firstTime = 150000;
constexpr double pulsesPerSecond = 100000;
constexpr double tallestTree = 22;
constexpr double highest = 100; // of the ground, above and below 0
constexpr double margin = 10;

enum Column : std::size_t
{
    X,
    Y,
    Z,
    INTENSITY,
    RETURN_NUM,
    NUM_RETURNS,
    SCAN_DIR,
    EDGE_FLIGHT_LINE,
    CLASS_ID,
    SCAN_ANGLE,
    USER_DATA,
    SOURCE_ID,
    GPS_TIME,
    RED,
    GREEN,
    BLUE,
    numColumns
};

PointInfo makeLayout()
{
    using namespace ChannelNames;
    // In the order of the columns.
    constexpr struct
    {
        const char* name;
        DataType type;
        int bits;
    } columns[numColumns] = {
        {x, FLOAT64, 32},       {y, FLOAT64, 32},       {z, FLOAT64, 32},     {intensity, UINT16, 16},
        {returnNum, UINT8, 3},  {numReturns, UINT8, 3}, {scanDir, UINT8, 1},  {edgeFlightLine, UINT8, 1},
        {classId, UINT8, 5},    {scanAngle, SINT8, 8},  {userData, UINT8, 8}, {sourceId, UINT16, 16},
        {gpsTime, FLOAT64, 64}, {red, UINT16, 16},      {green, UINT16, 16},  {blue, UINT16, 16},
    };
    PointInfo layout;
    layout.init(numColumns);
    for (std::size_t i = 0; i < numColumns; ++i)
        layout.getChannel(i).init(columns[i].name, columns[i].type, columns[i].bits, i <= Z ? scale : 0);
    return layout;
}

// A value of -1 to 1 for every node of a lattice.
double nodeValue(std::int64_t x, std::int64_t y, std::uint64_t layer)
{
    std::uint64_t bits = static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15u ^
                         static_cast<std::uint64_t>(y) * 0xC2B2AE3D27D4EB4Fu ^ layer * 0x165667B19E3779F9u;
    bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9u;
    bits = (bits ^ bits >> 27) * 0x94D049BB133111EBu;
    return static_cast<double>((bits ^ bits >> 31) >> 11) * 0x1p-52 - 1;
}

// Smooth noise of -1 to 1 whose bumps are about `wavelength` apart.
double noise(double x, double y, double wavelength, std::uint64_t layer)
{
    x /= wavelength;
    y /= wavelength;
    const auto column = static_cast<std::int64_t>(std::floor(x));
    const auto row = static_cast<std::int64_t>(std::floor(y));
    const auto smooth = [](double t) { return t * t * (3 - 2 * t); };
    const double u = smooth(x - static_cast<double>(column));
    const double v = smooth(y - static_cast<double>(row));
    const auto across = [&](std::int64_t at) {
        const double left = nodeValue(column, at, layer);
        return left + u * (nodeValue(column + 1, at, layer) - left);
    };
    const double below = across(row);
    return below + v * (across(row + 1) - below);
}

double groundHeight(double x, double y)
{
    return 60 * noise(x, y, 800, 0) + 15 * noise(x, y, 200, 1) + 3 * noise(x, y, 50, 2) +
           0.6 * noise(x, y, 12, 3);
}

double onGrid(double metres, double offset)
{
    return std::nearbyint(metres / scale) * scale + offset;
}

std::int64_t numFlights(std::int64_t numPoints)
{
    return numPoints / (pulsesPerLine * linesPerFlight) + 1;
}

// The returns of one pulse after the other.
class Scanner
{
public:
    using Return = std::array<double, numColumns>;

    const Return& next()
    {
        if (m_next == m_count)
            firePulse();
        return m_returns[m_next++];
    }

private:
    static constexpr std::size_t mostReturns = 3;

    // About normal, of standard deviation 1.
    double scatter() { return 2 * (m_random.real() + m_random.real() + m_random.real()) - 3; }
    double colour(double value)
    {
        return std::clamp(std::nearbyint(value + 8 * scatter()), 0.0, 255.0) * 256;
    }

    void firePulse()
    {
        const std::int64_t line = m_pulse / pulsesPerLine;
        const std::int64_t flight = line / linesPerFlight;
        const std::int64_t place = m_pulse % pulsesPerLine;
        const bool isForth = line % 2 == 0;
        const double swing = static_cast<double>(isForth ? place : pulsesPerLine - 1 - place) /
                                 static_cast<double>(pulsesPerLine - 1) -
                             0.5;
        const double along = static_cast<double>(line % linesPerFlight) * lineSpacing;
        const double x = static_cast<double>(flight) * flightSpacing + swing * swathWidth + 0.03 * scatter();
        // Flights go up and down in turn.
        const double y = (flight % 2 == 0 ? along : linesPerFlight * lineSpacing - along) + 0.03 * scatter();
        const double ground = groundHeight(x, y);
        const double wood = noise(x, y, 120, 4);
        const double texture = noise(x, y, 15, 5);
        const bool isWood = wood > 0.1;

        m_next = 0;
        m_count = 1;
        if (isWood)
            m_count += (m_random.chance(0.5) ? 1u : 0u) + (m_random.chance(0.2) ? 1u : 0u);
        const double tree = isWood ? tallestTree * (0.5 + 0.3 * wood + 0.2 * m_random.real()) : 0;

        Return common{};
        common[NUM_RETURNS] = static_cast<double>(m_count);
        common[SCAN_DIR] = isForth;
        common[EDGE_FLIGHT_LINE] = place == 0 || place == pulsesPerLine - 1;
        common[SCAN_ANGLE] = std::nearbyint(2 * swing * widestAngle);
        common[SOURCE_ID] = static_cast<double>(flight + 1);
        common[GPS_TIME] = firstTime + static_cast<double>(m_pulse) / pulsesPerSecond;
        common[RED] = colour((isWood ? 70 : 130) + 30 * texture);
        common[GREEN] = colour((isWood ? 95 : 140) + 25 * texture);
        common[BLUE] = colour((isWood ? 60 : 100) + 20 * texture);
        const double lean = swing * 0.6; // of the beam
        for (std::size_t i = 0; i < m_count; ++i) {
            // The last return is the ground's, unless the wood lets nothing through.
            const bool isGround = i + 1 == m_count && (!isWood || m_random.chance(0.6));
            const double up =
                isGround ? 0
                         : tree * (1 - static_cast<double>(i) / mostReturns) * (0.8 + 0.2 * m_random.real());
            Return& out = m_returns[i];
            out = common;
            out[X] = onGrid(x - lean * up, offsets[0]);
            out[Y] = onGrid(y, offsets[1]);
            out[Z] = onGrid(ground + up + 0.02 * scatter(), offsets[2]);
            out[RETURN_NUM] = static_cast<double>(i + 1);
            out[CLASS_ID] = isGround ? (m_random.chance(0.02) ? 1 : 2) : 5;
            const double brightness = (isGround ? 140 : 70) + 40 * texture + 12 * scatter();
            out[INTENSITY] = std::nearbyint(std::max(brightness / static_cast<double>(m_count), 1.0));
        }
        ++m_pulse;
    }

    Testing::Random m_random{7};
    std::int64_t m_pulse = 0;
    std::array<Return, mostReturns> m_returns{};
    std::size_t m_count = 0; // of the present pulse
    std::size_t m_next = 0;
};

class Iterator final : public PointIterator
{
public:
    Iterator(const PointSource& survey, const Bounds& bounds, double fraction, const PointInfo& layout,
             ProgressDelegate* delegate)
        : m_remaining(survey.getNumPoints())
    {
        init(bounds, fraction, layout, delegate);
        for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
            const int column = survey.getPointInfo().getChannelIndex(layout.getChannel(i).getName());
            if (column < 0)
                QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
            m_columns.push_back(static_cast<std::size_t>(column));
        }
    }

    std::size_t getNextPoints(PointData& buffer) override
    {
        std::size_t count = 0;
        for (; m_remaining > 0 && count < buffer.getNumSamples(); --m_remaining) {
            const Scanner::Return& point = m_scanner.next();
            if (!getBounds().contains(point[X], point[Y], point[Z]) || !sample())
                continue;
            for (std::size_t i = 0; i < m_columns.size(); ++i) {
                ChannelData& channel = buffer.getChannel(i);
                visitDataType(channel.getDataType(), [&](auto zero) {
                    using T = decltype(zero);
                    static_cast<T*>(channel.getData())[count] = static_cast<T>(point[m_columns[i]]);
                });
            }
            ++count;
        }
        return count;
    }

private:
    Scanner m_scanner;
    std::int64_t m_remaining;
    std::vector<std::size_t> m_columns; // of the requested channels
};

} // namespace

Scoped<TerrainSurvey> TerrainSurvey::make(std::int64_t numPoints)
{
    Scoped<TerrainSurvey> survey(new TerrainSurvey);
    survey->setPointInfo(makeLayout());
    survey->setNumPoints(numPoints);
    const double scales[3] = {scale, scale, scale};
    survey->setQuantization(scales, offsets);
    // An outer box: the points themselves are not known yet.
    Bounds bounds;
    bounds.x = {offsets[0] - swathWidth / 2 - margin,
                offsets[0] + static_cast<double>(numFlights(numPoints) - 1) * flightSpacing + swathWidth / 2 +
                    margin};
    bounds.y = {offsets[1] - margin, offsets[1] + linesPerFlight * lineSpacing + margin};
    bounds.z = {offsets[2] - highest, offsets[2] + highest + tallestTree};
    survey->setBounds(bounds);
    return survey;
}

PointIterator* TerrainSurvey::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                             ProgressDelegate* delegate) const
{
    return new Iterator(*this, bounds, fraction, layout, delegate);
}

} // namespace Quillmoran::Benchmarks

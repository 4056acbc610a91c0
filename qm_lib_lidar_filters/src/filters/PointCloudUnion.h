// The description of several point clouds as one, for the sources of a mosaic and the tiles of an index.
// Clouds are added one by one:
//
//   channels            all names, in order of first appearance, with types and meanings by the rules of
//                       MergeRules.h; two clocks of GPS time are refused
//   number of points    the sum; unknown when one is unknown
//   bounds              of all points
//   scale and offset    kept when equal, else none
//   coordinate system   the first; getCoordinateSystems() has the others
//   class names         the first, with a warning when others differ
//
// A cloud without points adds only its channels, its coordinate system and its class names.
#pragma once

#include <vxunpack/MosaicFilter.h>
#include <vxunpack/PointCloudInfo.h>

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class PointCloudUnion
{
public:
    // Number of different texts that are kept. All further ones are listed once, as one unknown system.
    static constexpr std::size_t maxCoordinateSystems = 16;

    // With a GPS week, week time is converted to adjusted time (see MergeRules.h), and clouds may have both
    // clocks.
    explicit PointCloudUnion(const std::optional<int>& gpsWeek = std::nullopt);

    // `file` is the name of the cloud in messages. Throws InvalidArgument "... hold different GPS times ..."
    // if the cloud has another clock than the clouds added before; the union is then unchanged.
    void add(const PointCloudInfo& cloud, const std::string& file);

    const PointCloudInfo& getInfo() const noexcept { return *m_info; }
    // Each distinct WKT once, in order of first appearance, with the first file that has it.
    const std::vector<NamedCoordinateSystem>& getCoordinateSystems() const noexcept
    {
        return m_coordinateSystems;
    }
    // About values that are filled with zeros, rounded, dropped or doubtful. The caller compares coordinate
    // systems, since different texts may mean the same.
    std::vector<std::string> getWarnings() const;

private:
    enum Clock
    {
        WEEK,
        ADJUSTED,
        BOTH,
        NUM_CLOCKS
    };

    void checkClocks(const PointInfo& layout, const std::string& file);
    void addChannels(const PointInfo& layout);
    void addCoordinateSystem(const PointCloudInfo& cloud, const std::string& file);
    void addQuantization(const double* scale, const double* offset);
    void addClassNames(const PointCloudInfo& cloud, const std::string& file);
    void noteDoubts(const PointInfo& layout, const std::string& file);
    void countChannels(const PointInfo& layout, const std::string& file);

    struct Presence
    {
        std::size_t count = 0; // clouds with points that have the channel
        std::string file;      // the first one without the channel
    };

    Scoped<PointCloudInfo> m_info;
    std::optional<int> m_gpsWeek;
    std::size_t m_numWithPoints = 0;
    std::string m_firstWithPoints;
    std::array<std::string, NUM_CLOCKS> m_clockFiles; // the first file of each clock, empty: none
    std::map<std::string, Presence> m_channels;       // reported when a file lacks them
    std::vector<NamedCoordinateSystem> m_coordinateSystems;
    std::string m_doubtfulClassFile;   // with classes that may not be legacy bytes
    std::string m_realAnglesFile;      // with floating-point scan angles
    std::string m_classNamesFile;      // where the class names are from
    std::string m_otherClassNamesFile; // the first file with others
};

} // namespace Quillmoran

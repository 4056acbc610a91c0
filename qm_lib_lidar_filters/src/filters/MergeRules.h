// How the channels of several point clouds become those of one, by their meaning. PointCloudUnion builds the
// united layout with these rules and LayoutAdapter reads each source in it, so that a mosaic, a tile-set
// index and queries to both follow one table:
//
//   channel            sources have              united                        reason
//   -----------------  ------------------------  ----------------------------  ------------------------------
//   ScanAngle          degrees only              unchanged                     nothing to convert
//                      degrees, and two-byte     steps:                        rounding restores whole degrees
//                      steps of 0.006 degrees    round(degrees / 0.006)        exactly
//   ClassId            older layouts only        unchanged byte                nothing to convert
//   and ClassFlags     older and newer layouts   low 5 bits: class; bits 5-7:  LAS 1.4 keeps class and flags
//                                                synthetic, key point,         apart
//                                                withheld
//                      and class 12 (overlap)    class 12 and overlap flag     LAS 1.4 has a flag for it; the
//                                                                              real class is not known
//   ReturnNum,         3 bits and 4 bits         4 bits, the same values       LAS 1.4 counts up to 15
//   NumReturns
//   GPSTime,           one clock                 that clock                    nothing to convert
//   GPSTime_Adjusted   both clocks               refused                       half of the times would be lost
//                      both, GPS week given      GPSTime_Adjusted:             the week fixes the origin of
//                                                week * 604800 + time - 1e9    week time
//   any other          different types           a type that holds both        no value changes
//   any                missing in some           zeros, with a warning         LAS stores 0 for "unknown"
//
// A newer layout has a channel that only LAS formats 6 to 10 have: ClassFlags, ScannerChannel, NearInfrared,
// returns of more than 3 bits or two-byte scan angles. If the layout of any source is newer, the union is
// newer: its scan angles are steps and its classes have ClassFlags.
#pragma once

#include "model/NameIndex.h"
#include <vxunpack/PointData.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <optional>

namespace Quillmoran::MergeRules {

// The layout that several sources are read in. Const methods may be called from any thread.
class Target
{
public:
    // `gpsWeek` is the GPS week (0 began on 1980-01-06) that week time counts from. With it, GPSTime is
    // converted to GPSTime_Adjusted.
    explicit Target(const PointInfo& layout, const std::optional<int>& gpsWeek = std::nullopt);
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    // Null if there is no such channel.
    const ChannelInfo* find(const char* channel) const;
    const std::optional<int>& getGPSWeek() const noexcept { return m_gpsWeek; }

private:
    PointInfo m_layout;
    NameIndex m_names; // of the layout
    std::optional<int> m_gpsWeek;
};

// The channels of a source with their names in a union: with a GPS week, GPSTime becomes GPSTime_Adjusted.
PointInfo renameClocks(const PointInfo& layout, const std::optional<int>& gpsWeek);

// The union of two channels of the same name. Its type holds the values of both: the integer type of the
// larger size (signed if either is), FLOAT64 if no integer type does. It has the larger number of bits, and
// the finer quantization if the other is a multiple of it, else none. If one has steps of scan angles, so has
// the union.
ChannelInfo uniteChannels(const ChannelInfo& a, const ChannelInfo& b);

// Makes the union of several layouts a complete newer layout if any of them is newer.
void completeUnion(PointInfo& layout);

// Whether the layout has the classification byte of LAS formats 0 to 5, which includes flags.
bool hasLegacyClass(const PointInfo& layout);
// Whether scan angles of the layout are floating-point degrees, which are rounded to steps.
bool hasRealAngles(const PointInfo& layout);

enum class Rule
{
    Copy,             // convert the type only
    DegreesToSteps,   // of scan angles
    SplitClass,       // the class of a legacy classification byte
    SplitFlags,       // its flags
    WeekToAdjusted,   // of GPS time
    EitherToAdjusted, // adjusted time where it is not 0, else converted week time; both FLOAT64
};

// The channel of a source that gives the samples of a channel.
struct Origin
{
    std::size_t channel; // of the source
    Rule rule = Rule::Copy;
    std::size_t other = 0; // week time, for EitherToAdjusted
};

// Finds the origin of a channel of `target` in a source; none if the source lacks it. `names` are those of
// `source`. Throws ChannelType "channel '%s' does not fit the joined layout; an index needs an update
// (vxindex -u)" when conversion would change the meaning of the samples, as with a file that was replaced
// after the target was made.
std::optional<Origin> findOrigin(const PointInfo& source, const NameIndex& names, const Target& target,
                                 const char* channel);

// Converts `count` samples of a source. For Rule::EitherToAdjusted `from` is adjusted time and `week` week
// time, otherwise `week` is not used.
void convert(ChannelData& to, const ChannelData& from, const ChannelData* week, Rule rule,
             const std::optional<int>& gpsWeek, std::size_t count);

} // namespace Quillmoran::MergeRules

// The names of the standard channels, and their names in LAS and PDAL. Readers and writers compare names
// exactly, with case; resolve() is for names that users type.
#pragma once

#include <string>

namespace Quillmoran {

class ChannelInfo;
class PointInfo;

} // namespace Quillmoran

namespace Quillmoran::ChannelNames {

inline constexpr char x[] = "X";
inline constexpr char y[] = "Y";
inline constexpr char z[] = "Z";
inline constexpr char intensity[] = "Intensity";
inline constexpr char returnNum[] = "ReturnNum";
inline constexpr char numReturns[] = "NumReturns";
inline constexpr char scanDir[] = "ScanDir";
inline constexpr char edgeFlightLine[] = "EdgeFlightLine";
inline constexpr char classId[] = "ClassId";
inline constexpr char classFlags[] = "ClassFlags";
inline constexpr char scannerChannel[] = "ScannerChannel";
inline constexpr char scanAngle[] = "ScanAngle";
inline constexpr char userData[] = "UserData";
inline constexpr char sourceId[] = "SourceId";
inline constexpr char gpsTime[] = "GPSTime";
inline constexpr char gpsTimeAdjusted[] = "GPSTime_Adjusted";
inline constexpr char red[] = "Red";
inline constexpr char green[] = "Green";
inline constexpr char blue[] = "Blue";
inline constexpr char nearInfrared[] = "NearInfrared";
// A column of a text file that is skipped.
inline constexpr char skip[] = "@Skip";

// The channel of `layout` that a user means by `name`; null if there is none. It is the channel of exactly
// that name, else the only one whose name differs in case, else the channel with that LAS or PDAL name
// ("Classification", "return_number", "NIR"), ignoring case, blanks and underscores. "GpsTime" is either time
// channel, GPSTime first.
const ChannelInfo* resolve(const std::string& name, const PointInfo& layout);
// The same; InvalidArgument "<context> does not have channel: '<name>', its channels are X, Y, Z" if there is
// none.
const ChannelInfo& require(const std::string& name, const PointInfo& layout,
                           const char* context = "the point source");

// PDAL's name of a standard channel; null for all other channels.
const char* toPDAL(const std::string& channel);
// The standard channel of a PDAL dimension, ignoring case, blanks and underscores; null if there is none.
const char* fromPDAL(const std::string& dimension);

} // namespace Quillmoran::ChannelNames

// The names of the standard channels of LAS-type points. Names match exactly, with case.
#pragma once

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
// A column of a text file that is read over and dropped.
inline constexpr char skip[] = "@Skip";

} // namespace Quillmoran::ChannelNames

// Messages about data that joined files do not agree on or that an output does not hold.
#pragma once

#include "filters/PointCloudUnion.h"
#include <vxunpack/Metadata.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class FilePointSourceManager;
class LASPointWriter;
class PointInfo;
class PointSource;

namespace Utils {

// Receives each message; it names the file.
using Warn = std::function<void(const std::string&)>;

// How files that differ become one point cloud: see MergeRules.h and docs/merging.md.
struct MergeOptions
{
    std::optional<int> gpsWeek;                // converts week time to adjusted standard time
    bool requiresSameCoordinateSystem = false; // by default different ones give a warning
    // Whether to warn of a file, if it is the only one, whose coordinate system is not understood. To know this
    // takes a tenth of a second.
    bool examinesOnlyFile = true;
    bool givesCoordinateSystem = false; // the cloud gets its own, so that those of the files do not matter
};

// Compares the coordinate systems of files that become one cloud. Warns if they differ or a file has none;
// General if they are required to be the same.
void compareCoordinateSystems(const std::vector<NamedCoordinateSystem>& systems, const MergeOptions& options,
                              const Warn& warn);

// Warns once of files whose coordinate systems are not understood; `consequence` ends the message.
void warnOfUnknownCoordinateSystems(const std::vector<std::string>& files, const char* consequence,
                                    const Warn& warn);
// The same for the only file of a cloud.
void warnOfUnknownCoordinateSystem(const PointSource& source, const std::string& file, const Warn& warn);
// The same for the LAS files of a set. Opens all files.
void warnOfUnknownCoordinateSystems(FilePointSourceManager& files, const Warn& warn);

// LAS output without a given scale rounds coordinates that have no scale; `advice` ends the message.
void warnOfRounding(const PointSource& source, const PointInfo& layout, const std::string& output,
                    const char* advice, const Warn& warn);
// Warns of data that a finished LAS file does not hold: the second of two clocks, its coordinate system, scan
// angles in its own unit, records, channels of `layout`. `advice` ends the message about records and channels.
void warnOfLASOutput(const LASPointWriter& writer, const PointInfo& layout, const std::string& output,
                     const char* advice, const Warn& warn);

// The metadata of a LAS file without the records that describe or hold waveform packets, which are useless
// without the packets.
Metadata withoutWaveformRecords(Metadata metadata);

} // namespace Utils

} // namespace Quillmoran

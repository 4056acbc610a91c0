#include "cli/QMCmdLine.h"
#include "model/ChannelNames.h"
#include "srs/SpatialReference.h"
#include "utils/program/Program.h"
#include "utils/program/Summary.h"
#include "utils/program/Utils.h"
#include "utils/sets/NamedSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/MosaicFilter.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace Quillmoran::Utils {

namespace {

constexpr unsigned maxGPSWeek = 99999; // about 1,900 years

std::string quoted(const NamedCoordinateSystem& system)
{
    return '\'' + system.file + '\'';
}

std::string countOf(std::uint64_t points)
{
    return std::to_string(points) + (points == 1 ? " point" : " points");
}

// A LAS record holds one time.
void warnOfTimeConflict(const LASPointWriter::TimeConflict& conflict, const std::string& output)
{
    const std::string written = conflict.written;
    const std::string other = conflict.other;
    std::string text =
        output + "LAS holds one GPS time of " + other + " and " + written + "; " + written + " is written, ";
    if (conflict.numFromOther != 0)
        text += other + " for " + countOf(conflict.numFromOther) + " where it is 0, ";
    text += countOf(conflict.numLost) + (conflict.numLost == 1 ? " loses a " : " lose a ") + other +
            " that is not 0";
    // One flag in the header applies to all points.
    if (written == ChannelNames::gpsTime || conflict.numFromOther != 0)
        text += "; the header says adjusted standard time for all points";
    warn(text);
}

} // namespace

void addGPSWeekOption(QMCmdLine& cmdLine)
{
    cmdLine.addUint("gpsWeek", nullptr,
                    "GPS week (0 began on 1980-01-06) in which all week times were taken.  Converts them to "
                    "adjusted standard time, which files with both kinds need",
                    false);
}

MergeOptions getMergeOptions(const QMCmdLine& cmdLine)
{
    MergeOptions options;
    if (cmdLine.isPresent("gpsWeek")) {
        const unsigned week = cmdLine.getUint("gpsWeek");
        if (week > maxGPSWeek)
            QM_THROW(ErrorCode::General, "bad GPS week %u", week);
        options.gpsWeek = static_cast<int>(week);
    }
    options.requiresSameCoordinateSystem =
        cmdLine.isPresent("srs") && std::strcmp(cmdLine.getString("srs"), "same") == 0;
    return options;
}

void compareCoordinateSystems(const std::vector<NamedCoordinateSystem>& systems, const MergeOptions& options)
{
    const auto hasText = [](const NamedCoordinateSystem& system) { return !system.wkt.empty(); };
    const auto first = std::find_if(systems.begin(), systems.end(), hasText);
    if (first == systems.end())
        return;
    const auto report = [&](const std::string& problem, const std::string& consequence) {
        if (options.requiresSameCoordinateSystem)
            QM_THROW(ErrorCode::General, "%s", problem.c_str());
        warn(problem + consequence);
    };
    const auto other = std::find_if(first + 1, systems.end(), [&](const NamedCoordinateSystem& system) {
        return hasText(system) && !SpatialReference::isSame(first->wkt.c_str(), system.wkt.c_str());
    });
    if (other != systems.end())
        report("the coordinate systems of " + quoted(*first) + " and " + quoted(*other) + " differ",
               "; that of " + quoted(*first) + " is used");
    const auto none = std::find_if_not(systems.begin(), systems.end(), hasText);
    if (none != systems.end())
        report(quoted(*none) + " has no coordinate system and " + quoted(*first) + " has one",
               ", which is used for all");
}

void warnOfLASOutput(const LASPointWriter& writer, const char* output)
{
    const std::string name = std::string("'") + output + "': ";
    if (writer.getTimeConflict())
        warnOfTimeConflict(*writer.getTimeConflict(), name);
    if (writer.losesCoordinateSystem())
        warn(name + "this LAS file cannot hold the coordinate system of its source, which is not kept");
    if (writer.hasForeignScanAngles())
        warn(name +
             "the scan angles are written as they are, but their unit is not that of the LAS point format "
             "(degrees, or steps of 0.006 degrees)");
}

void warnOfUnknownCoordinateSystems(const std::vector<std::string>& files, const char* consequence)
{
    if (files.empty())
        return;
    std::string text = '\'' + files.front() + '\'';
    if (files.size() > 1)
        text += " and " + std::to_string(files.size() - 1) + " more";
    warn(text + ": the GeoTIFF keys of the coordinate system are not understood" + consequence);
}

namespace {

// Asks each file, which opens it.
void warnOfUnknownSystemsOf(FilePointSourceManager& files)
{
    std::vector<std::string> unknown;
    for (std::size_t i = 0; i < files.getNumSources(); ++i) {
        const Scoped<PointSource> source(files.createPointSource(i));
        const auto* las = dynamic_cast<const LASPointReader*>(&NamedSource::unwrap(*source));
        if (las && las->hasUnknownCoordinateSystem())
            unknown.emplace_back(files.getFilename(i));
    }
    warnOfUnknownCoordinateSystems(unknown, files.getNumSources() == 1
                                                ? "; they are kept in the metadata only"
                                                : "; they are kept in the metadata only, if all files agree");
}

} // namespace

Scoped<PointSource> openInputs(FilePointSourceManager& files, bool verbose, const MergeOptions& options)
{
    files.setGPSWeek(options.gpsWeek);
    for (std::size_t i = 0; verbose && i < files.getNumSources(); ++i) {
        const Scoped<PointSource> source(files.createPointSource(i));
        printHeader(stdout, *source, files.getFilename(i));
    }
    warnOfUnknownSystemsOf(files);
    Scoped<PointSource> joined = joinFiles(files, options.gpsWeek);
    const auto* mosaic = dynamic_cast<const MosaicFilter*>(joined.get());
    if (!mosaic ||
        (files.getNumSources() == 1 && !options.gpsWeek)) // an index compared its files when it was made
        return joined;
    if (verbose)
        printHeader(stdout, *mosaic, nullptr);
    for (const std::string& warning : mosaic->getWarnings())
        warn(warning);
    compareCoordinateSystems(mosaic->getCoordinateSystems(), options);
    return joined;
}

} // namespace Quillmoran::Utils

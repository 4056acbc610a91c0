#include "utils/sets/Losses.h"

#include "model/ChannelNames.h"
#include "srs/SpatialReference.h"
#include "utils/sets/NamedSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

#include <algorithm>
#include <cstdint>

namespace Quillmoran::Utils {

namespace {

bool hasUnknownCoordinateSystem(const PointSource& source)
{
    const auto* las = dynamic_cast<const LASPointReader*>(&NamedSource::unwrap(source));
    return las && las->hasUnknownCoordinateSystem();
}

std::string quoted(const NamedCoordinateSystem& system)
{
    return '\'' + system.file + '\'';
}

std::string countOf(std::uint64_t points)
{
    return std::to_string(points) + (points == 1 ? " point" : " points");
}

// A LAS record holds one time.
void warnOfTimeConflict(const LASPointWriter::TimeConflict& conflict, const std::string& output,
                        const Warn& warn)
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

// A list for a message, of limited length.
std::string listOf(const char* what, const std::vector<std::string>& names)
{
    constexpr std::size_t maxNames = 6;
    std::string text = std::string(what) + (names.size() == 1 ? " " : "s ");
    for (std::size_t i = 0; i < std::min(names.size(), maxNames); ++i)
        text += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > maxNames)
        text += " and " + std::to_string(names.size() - maxNames) + " more";
    return text;
}

// Channels that no LAS point format has, and VLRs.
void warnOfLeftOut(const LASPointWriter& writer, const PointInfo& layout, const std::string& output,
                   const char* advice, const Warn& warn)
{
    PointInfo kept;
    writer.supportedChannels(layout, kept);
    std::vector<std::string> channels;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (const char* const name = layout.getChannel(i).getName(); !kept.hasChannel(name))
            channels.emplace_back(name);
    const std::vector<std::string>& records = writer.getLeftOutRecords();
    if (channels.empty() && records.empty())
        return;
    std::string text = output + "this file leaves out the ";
    if (!channels.empty())
        text += listOf("channel", channels);
    if (!records.empty())
        text += (channels.empty() ? "" : " and the ") + listOf("record", records);
    warn(text + advice);
}

} // namespace

void compareCoordinateSystems(const std::vector<NamedCoordinateSystem>& systems, const MergeOptions& options,
                              const Warn& warn)
{
    const auto hasText = [](const NamedCoordinateSystem& system) { return !system.wkt.empty(); };
    const auto first = std::find_if(systems.begin(), systems.end(), hasText);
    if (first == systems.end() || options.givesCoordinateSystem)
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

void warnOfLASOutput(const LASPointWriter& writer, const PointInfo& layout, const std::string& output,
                     const char* advice, const Warn& warn)
{
    const std::string name = '\'' + output + "': ";
    if (writer.getTimeConflict())
        warnOfTimeConflict(*writer.getTimeConflict(), name, warn);
    if (writer.losesCoordinateSystem())
        warn(name + "this LAS file cannot hold the coordinate system of its source, which is not kept");
    if (writer.hasForeignScanAngles())
        warn(name +
             "the scan angles are written as they are, but their unit is not that of the LAS point format "
             "(degrees, or steps of 0.006 degrees)");
    if (writer.hasForeignChunkIndex())
        warn(name +
             "the COPC records are those of the file that was packed, and do not describe the chunks of this "
             "file; programs that read it as COPC will fail");
    if (writer.hasLargerBounds())
        warn(name + "the bounds in the header, which was written before the points, are larger than those of "
                    "the points");
    if (writer.isReordered())
        warn(name +
             "the points were sorted when they were packed, so their order may differ from that of the "
             "file that was packed");
    warnOfLeftOut(writer, layout, name, advice, warn);
}

void warnOfUnknownCoordinateSystems(const std::vector<std::string>& files, const char* consequence,
                                    const Warn& warn)
{
    if (files.empty())
        return;
    std::string text = '\'' + files.front() + '\'';
    if (files.size() > 1)
        text += " and " + std::to_string(files.size() - 1) + " more";
    warn(text + ": the GeoTIFF keys of the coordinate system are not understood" + consequence);
}

void warnOfUnknownCoordinateSystem(const PointSource& source, const std::string& file, const Warn& warn)
{
    if (hasUnknownCoordinateSystem(source))
        warnOfUnknownCoordinateSystems({file}, "; they are kept in the metadata only", warn);
}

void warnOfUnknownCoordinateSystems(FilePointSourceManager& files, const Warn& warn)
{
    if (files.getNumSources() == 1) {
        const Scoped<PointSource> source(files.createPointSource(0));
        warnOfUnknownCoordinateSystem(*source, files.getFilename(0), warn);
        return;
    }
    std::vector<std::string> unknown;
    for (std::size_t i = 0; i < files.getNumSources(); ++i) {
        const Scoped<PointSource> source(files.createPointSource(i));
        if (hasUnknownCoordinateSystem(*source))
            unknown.emplace_back(files.getFilename(i));
    }
    warnOfUnknownCoordinateSystems(unknown, "; they are kept in the metadata only, if all files agree", warn);
}

void warnOfRounding(const PointSource& source, const PointInfo& layout, const std::string& output,
                    const char* advice, const Warn& warn)
{
    if (source.getNumPoints() == 0)
        return;
    std::string names;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z}) {
        const ChannelInfo* channel = layout.getChannel(name);
        if (channel && channel->getQuantization() == 0)
            names += std::string(names.empty() ? "" : ", ") + name;
    }
    if (!names.empty())
        warn("'" + output + "': coordinates (" + names +
             ") are rounded to 0.001, since the input has no scale for them" + advice);
}

Metadata withoutWaveformRecords(Metadata metadata)
{
    constexpr int firstDescriptor = 100;
    constexpr int lastDescriptor = 354;
    constexpr int packets = 65535;
    const std::string user = "LASF_Spec::";
    for (int recordID = firstDescriptor; recordID <= lastDescriptor; ++recordID)
        metadata.removeAll((user + std::to_string(recordID)).c_str());
    metadata.removeAll((user + std::to_string(packets)).c_str());
    return metadata;
}

} // namespace Quillmoran::Utils

#include "pack/DescriptionOptions.h"

#include "cli/QMCmdLine.h"
#include "las/header/LASMetadata.h"
#include "srs/SpatialReference.h"
#include "text/FieldFormat.h"
#include "utils/program/Utils.h"
#include "utils/sets/CoordinateSystemFilter.h"
#include "utils/sets/Make.h"
#include <vxunpack/Base.h>

#include <cstring>

namespace Quillmoran {

namespace {

std::optional<std::string> getText(const QMCmdLine& cmdLine, const char* option)
{
    return cmdLine.isPresent(option) ? std::optional<std::string>(cmdLine.getString(option)) : std::nullopt;
}

bool isCoordinate(const ChannelInfo& channel)
{
    return channel.isNamed("X") || channel.isNamed("Y") || channel.isNamed("Z");
}

} // namespace

void DescriptionOptions::add(QMCmdLine& cmdLine)
{
    cmdLine.addString("drop", nullptr,
                      "leave out these channels.  Names separated by commas, as in Red,Green,Blue", false);
    cmdLine.addString("keep", nullptr, "keep only X, Y, Z and these channels", false);
    cmdLine.addStringArray("meta", nullptr,
                           "set a metadata record, <key>=<text>.  No text removes it.  May be repeated",
                           false, -1);
    cmdLine.addString(
        "srs", nullptr,
        "coordinate system of the output (not a transformation).\n"
        "  EPSG:25832, WKT or other text that GDAL understands.  'same' refuses inputs with\n"
        "  different coordinate systems; by default there is a warning, and the first one is used",
        false);
    cmdLine.setChoices("srs", {"same"}, false);
}

void DescriptionOptions::check(const QMCmdLine& cmdLine)
{
    if (cmdLine.isPresent("drop") + cmdLine.isPresent("keep") + cmdLine.isPresent("outFields") > 1)
        cmdLine.usageError("-drop, -keep and -outFields exclude each other");
    for (const std::string& record : Utils::getStrings(cmdLine, "meta"))
        if (const std::size_t equals = record.find('='); equals == std::string::npos || equals == 0)
            cmdLine.usageError("bad value '%s' of option -meta, it is <key>=<text>", record.c_str());
}

DescriptionOptions::DescriptionOptions(const QMCmdLine& cmdLine)
    : m_dropped(getText(cmdLine, "drop")), m_kept(getText(cmdLine, "keep"))
{
    for (const std::string& record : Utils::getStrings(cmdLine, "meta")) {
        const std::size_t equals = record.find('=');
        m_records.emplace_back(record.substr(0, equals), record.substr(equals + 1));
    }
    const char* const srs = cmdLine.isPresent("srs") ? cmdLine.getString("srs") : "same";
    if (std::strcmp(srs, "same") == 0)
        return;
    m_wkt = SpatialReference::fromUserInput(srs);
    if (!m_wkt)
        QM_THROW(ErrorCode::General, "the coordinate system '%s' is not understood", srs);
}

PointInfo DescriptionOptions::choose(const PointInfo& channels) const
{
    if (!choosesChannels())
        return channels;
    PointInfo named;
    FieldFormat::parseNames((m_dropped ? *m_dropped : *m_kept).c_str(), named, channels);
    PointInfo chosen;
    for (std::size_t i = 0; i < channels.getNumChannels(); ++i) {
        const ChannelInfo& channel = channels.getChannel(i);
        const bool isNamed = named.hasChannel(channel.getName());
        if (m_dropped && isNamed && isCoordinate(channel))
            QM_THROW(ErrorCode::InvalidArgument, "X, Y and Z cannot be dropped");
        if (isNamed != m_dropped.has_value() || isCoordinate(channel))
            chosen.append(channel);
    }
    return chosen;
}

void DescriptionOptions::apply(Metadata& metadata) const
{
    if (m_wkt)
        LASMetadata::removeCoordinateSystem(metadata);
    for (const auto& [key, text] : m_records) {
        const int index = metadata.getKeyIndex(key.c_str());
        if (index >= 0 && !text.empty() &&
            metadata.getDataType(static_cast<std::size_t>(index)) != METADATA_STRING)
            QM_THROW(ErrorCode::InvalidArgument,
                     "the record '%s' is not text and cannot be set; '-meta %s=' removes it", key.c_str(),
                     key.c_str());
        metadata.removeAll(key.c_str());
        if (!text.empty())
            metadata.add(key.c_str(), nullptr, METADATA_STRING, text.c_str(), 0);
    }
}

Scoped<PointSource> DescriptionOptions::apply(Scoped<PointSource> source) const
{
    if (!m_wkt)
        return source;
    return make<CoordinateSystemFilter, PointSource>(source.get(), *m_wkt);
}

} // namespace Quillmoran

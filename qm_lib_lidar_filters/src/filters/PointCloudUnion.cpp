#include "filters/PointCloudUnion.h"

#include "filters/MergeRules.h"
#include "model/ChannelNames.h"
#include "platform/CheckedMath.h"
#include <vxunpack/Base.h>
#include <vxunpack/PointSource.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::array<const char*, 3> clockNames = {"week time (GPSTime)",
                                                   "adjusted standard time (GPSTime_Adjusted)",
                                                   "both week time and adjusted standard time"};

// Files of the older LAS formats lack these channels; their values are then 0 or part of the class.
bool isImplied(const ChannelInfo& channel)
{
    return channel.isNamed(ChannelNames::classFlags) || channel.isNamed(ChannelNames::scannerChannel);
}

bool isSameNames(const PointCloudInfo& a, const PointCloudInfo& b)
{
    const auto isSame = [](const char* x, const char* y) { return std::strcmp(x ? x : "", y ? y : "") == 0; };
    return a.getNumClassIdNames() == b.getNumClassIdNames() &&
           std::equal(a.getClassIdNames(), a.getClassIdNames() + a.getNumClassIdNames(), b.getClassIdNames(),
                      isSame);
}

std::string others(std::size_t count)
{
    return count == 0 ? "" : " and " + std::to_string(count) + (count == 1 ? " other file" : " other files");
}

} // namespace

PointCloudUnion::PointCloudUnion(const std::optional<int>& gpsWeek)
    : m_info(PointCloudInfo::create()), m_gpsWeek(gpsWeek)
{}

void PointCloudUnion::add(const PointCloudInfo& cloud, const std::string& file)
{
    const bool hasPoints = cloud.getNumPoints() != 0;
    if (hasPoints)
        checkClocks(cloud.getPointInfo(), file);
    const PointInfo layout = MergeRules::renameClocks(cloud.getPointInfo(), m_gpsWeek);
    addChannels(layout);
    addCoordinateSystem(cloud, file);
    addClassNames(cloud, file);
    if (!hasPoints)
        return;
    countChannels(layout, file);
    noteDoubts(layout, file);
    addQuantization(cloud.getScale(), cloud.getOffset());
    // The maximum means unknown, and the sum saturates there.
    static_assert(PointSource::unknownNumPoints == INT64_MAX);
    m_info->setNumPoints(saturatingAdd(m_info->getNumPoints(), cloud.getNumPoints()));
    Bounds bounds = m_info->getBounds();
    bounds.grow(cloud.getBounds());
    m_info->setBounds(bounds);
    if (m_numWithPoints++ == 0)
        m_firstWithPoints = file;
}

void PointCloudUnion::checkClocks(const PointInfo& layout, const std::string& file)
{
    const bool week = layout.hasChannel(ChannelNames::gpsTime);
    const bool adjusted = layout.hasChannel(ChannelNames::gpsTimeAdjusted);
    if (m_gpsWeek || (!week && !adjusted))
        return;
    const Clock clock = !week ? ADJUSTED : !adjusted ? WEEK : BOTH;
    const auto describe = [](const std::string& name, std::size_t kind) {
        return '\'' + name + "' " + clockNames.at(kind);
    };
    for (std::size_t i = 0; i < m_clockFiles.size(); ++i)
        if (i != clock && !m_clockFiles[i].empty())
            QM_THROW(ErrorCode::InvalidArgument,
                     "the files hold different GPS times: %s, %s; give the GPS week to convert week time "
                     "(-gpsWeek)",
                     describe(m_clockFiles[i], i).c_str(), describe(file, clock).c_str());
    if (m_clockFiles[clock].empty())
        m_clockFiles[clock] = file;
}

void PointCloudUnion::addChannels(const PointInfo& layout)
{
    PointInfo all = m_info->getPointInfo();
    const bool isFirst = all.getNumChannels() == 0;
    std::map<std::string, std::size_t> names; // first channels of their names
    for (std::size_t i = 0; i < all.getNumChannels(); ++i)
        if (const char* name = all.getChannel(i).getName())
            names.emplace(name, i);
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        const char* const name = channel.getName();
        const auto known = name ? names.find(name) : names.end();
        if (known != names.end()) {
            ChannelInfo& both = all.getChannel(known->second);
            both = MergeRules::uniteChannels(both, channel);
            continue;
        }
        if (name)
            names.emplace(name, all.getNumChannels());
        all.append(channel);
    }
    if (!isFirst)
        MergeRules::completeUnion(all);
    m_info->setPointInfo(all);
}

void PointCloudUnion::addCoordinateSystem(const PointCloudInfo& cloud, const std::string& file)
{
    const std::string wkt = cloud.getWKT() ? cloud.getWKT() : "";
    if (wkt.empty() && cloud.getNumPoints() == 0)
        return;
    if (!wkt.empty() && (!m_info->getWKT() || *m_info->getWKT() == '\0'))
        m_info->setWKT(wkt.c_str());
    const auto isKnown = [this](const std::string& text) {
        return std::any_of(m_coordinateSystems.begin(), m_coordinateSystems.end(),
                           [&](const NamedCoordinateSystem& known) { return known.wkt == text; });
    };
    const bool isKept = wkt.empty() || m_coordinateSystems.size() < maxCoordinateSystems;
    const std::string text = isKept ? wkt : "one of many";
    if (!isKnown(wkt) && !isKnown(text))
        m_coordinateSystems.push_back({text, file});
}

void PointCloudUnion::addClassNames(const PointCloudInfo& cloud, const std::string& file)
{
    if (cloud.getNumClassIdNames() == 0)
        return;
    if (m_info->getNumClassIdNames() == 0) {
        m_info->setClassIdNames(cloud.getClassIdNames(), cloud.getNumClassIdNames());
        m_classNamesFile = file;
    } else if (m_otherClassNamesFile.empty() && !isSameNames(*m_info, cloud)) {
        m_otherClassNamesFile = file;
    }
}

void PointCloudUnion::countChannels(const PointInfo& layout, const std::string& file)
{
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        if (!channel.getName() || isImplied(channel))
            continue;
        const auto [known, isNew] = m_channels.emplace(channel.getName(), Presence{});
        if (isNew)
            known->second.file = m_firstWithPoints;
        ++known->second.count;
    }
    for (auto& [name, presence] : m_channels)
        if (presence.file.empty() && presence.count <= m_numWithPoints)
            presence.file = file;
}

void PointCloudUnion::noteDoubts(const PointInfo& layout, const std::string& file)
{
    // Every LAS file has scan angles. The meaning of classes from other sources is not known.
    const bool isDoubtful = MergeRules::hasLegacyClass(layout) && !layout.hasChannel(ChannelNames::scanAngle);
    if (isDoubtful && m_doubtfulClassFile.empty())
        m_doubtfulClassFile = file;
    if (MergeRules::hasRealAngles(layout) && m_realAnglesFile.empty())
        m_realAnglesFile = file;
}

void PointCloudUnion::addQuantization(const double* scale, const double* offset)
{
    if (m_numWithPoints == 0) {
        m_info->setQuantization(scale, offset);
        return;
    }
    const double* const ownScale = m_info->getScale();
    if (!ownScale)
        return;
    if (!scale || !std::equal(scale, scale + 3, ownScale) ||
        !std::equal(offset, offset + 3, m_info->getOffset()))
        m_info->setQuantization(nullptr, nullptr);
}

std::vector<std::string> PointCloudUnion::getWarnings() const
{
    // Channels of the same first file and number of files are on one line.
    std::map<std::pair<std::string, std::size_t>, std::string> missing;
    for (const auto& [name, presence] : m_channels) {
        if (presence.count == m_numWithPoints)
            continue;
        std::string& names = missing[{presence.file, m_numWithPoints - presence.count}];
        names += (names.empty() ? "" : ", ") + name;
    }
    std::vector<std::string> warnings;
    warnings.reserve(missing.size() + 4);
    for (const auto& [files, names] : missing)
        warnings.push_back("'" + files.first + "'" + others(files.second - 1) + " without " + names +
                           ": the points have 0 there");
    const PointInfo& layout = m_info->getPointInfo();
    if (!m_doubtfulClassFile.empty() && layout.hasChannel(ChannelNames::classFlags))
        warnings.push_back(
            "the classes of '" + m_doubtfulClassFile +
            "' are read as classification bytes of LAS formats 0 to 5: class in the low 5 bits, "
            "flags in the others");
    if (!m_realAnglesFile.empty() && !MergeRules::hasRealAngles(layout))
        warnings.push_back("the scan angles of '" + m_realAnglesFile +
                           "' are rounded to steps of 0.006 degrees");
    if (!m_otherClassNamesFile.empty())
        warnings.push_back("the class names of '" + m_otherClassNamesFile + "' differ from those of '" +
                           m_classNamesFile + "', which are used");
    return warnings;
}

} // namespace Quillmoran

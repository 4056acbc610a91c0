#include "filters/PointCloudUnion.h"

#include "framework/PointSource.h"
#include "platform/CheckedMath.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <string>

namespace Quillmoran {

namespace {

constexpr bool isSigned(DataType type)
{
    return (type & 1) != 0;
}

DataType findCommonType(DataType a, DataType b)
{
    if (a == b)
        return a;
    if (DataTypeUtils::isFloat(a) || DataTypeUtils::isFloat(b))
        return FLOAT64;
    // An unsigned type needs a signed one of twice its size.
    const bool needsSign = isSigned(a) || isSigned(b);
    const auto bytesOf = [needsSign](DataType type) {
        return DataTypeUtils::getSize(type) * (needsSign && !isSigned(type) ? 2 : 1);
    };
    switch (std::max(bytesOf(a), bytesOf(b))) {
    case 1:
        return needsSign ? SINT8 : UINT8;
    case 2:
        return needsSign ? SINT16 : UINT16;
    case 4:
        return needsSign ? SINT32 : UINT32;
    case 8:
        return needsSign ? SINT64 : UINT64;
    default:
        return FLOAT64;
    }
}

// Decimals that show the multiples of one step show those of every whole multiple of it.
double findCommonStep(double a, double b)
{
    if (a == b)
        return a;
    const double finer = std::min(std::fabs(a), std::fabs(b));
    const double ratio = std::max(std::fabs(a), std::fabs(b)) / finer;
    constexpr double tolerance = 1e-9; // decimal steps are no exact doubles
    return std::fabs(ratio - std::round(ratio)) < tolerance * ratio ? finer : 0;
}

ChannelInfo uniteChannels(const ChannelInfo& a, const ChannelInfo& b)
{
    const DataType type = findCommonType(a.getDataType(), b.getDataType());
    const bool isOneOfThem = type == a.getDataType() || type == b.getDataType();
    const int allBits = 0;
    ChannelInfo both;
    both.init(a.getName(), type, isOneOfThem ? std::max(a.getBits(), b.getBits()) : allBits,
              findCommonStep(a.getQuantization(), b.getQuantization()));
    return both;
}

bool isEmpty(const char* text)
{
    return !text || *text == '\0';
}

} // namespace

PointCloudUnion::PointCloudUnion() : m_info(PointCloudInfo::create())
{}

PointCloudUnion::PointCloudUnion(const PointCloudInfo& cloud) : PointCloudUnion()
{
    add(cloud);
}

void PointCloudUnion::add(const PointCloudInfo& cloud)
{
    addChannels(cloud.getPointInfo());
    addWKT(cloud.getWKT());
    if (m_info->getNumClassIdNames() == 0)
        m_info->setClassIdNames(cloud.getClassIdNames(), cloud.getNumClassIdNames());
    if (cloud.getNumPoints() == 0)
        return;
    addQuantization(cloud.getScale(), cloud.getOffset());
    // The largest count means unknown, and the sum stops there.
    static_assert(PointSource::unknownNumPoints == INT64_MAX);
    m_info->setNumPoints(saturatingAdd(m_info->getNumPoints(), cloud.getNumPoints()));
    Bounds bounds = m_info->getBounds();
    bounds.grow(cloud.getBounds());
    m_info->setBounds(bounds);
    m_hasPoints = true;
}

void PointCloudUnion::addChannels(const PointInfo& layout)
{
    PointInfo all = m_info->getPointInfo();
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
            both = uniteChannels(both, channel);
            continue;
        }
        if (name)
            names.emplace(name, all.getNumChannels());
        all.append(channel);
    }
    m_info->setPointInfo(all);
}

void PointCloudUnion::addWKT(const char* wkt)
{
    if (isEmpty(wkt))
        return;
    if (isEmpty(m_info->getWKT()))
        m_info->setWKT(wkt);
    else if (std::strcmp(m_info->getWKT(), wkt) != 0 && m_warnings.empty())
        m_warnings.emplace_back("the sources have different coordinate systems; the first one is used");
}

void PointCloudUnion::addQuantization(const double* scale, const double* offset)
{
    if (!m_hasPoints) {
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

} // namespace Quillmoran

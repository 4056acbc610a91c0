#include "filters/MergeRules.h"

#include "model/ChannelNames.h"
#include "model/SampleConversion.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <type_traits>

namespace Quillmoran::MergeRules {

namespace {

using ChannelNames::classFlags;
using ChannelNames::classId;
using ChannelNames::gpsTime;
using ChannelNames::gpsTimeAdjusted;
using ChannelNames::scanAngle;

constexpr double angleStep = 0.006; // degrees
constexpr double secondsPerWeek = 604800;
constexpr double adjustedZero = 1e9; // seconds from the first GPS week to adjusted time 0

// The legacy classification byte.
constexpr unsigned classMask = 0x1F;
constexpr unsigned legacyFlagsShift = 5;
constexpr unsigned legacyOverlapClass = 12;
constexpr unsigned overlapFlag = 1 << 3;

constexpr bool isSigned(DataType type)
{
    return (type & 1) != 0;
}

constexpr DataType signedTypes[] = {SINT8, SINT16, SINT32, SINT64};
constexpr DataType unsignedTypes[] = {UINT8, UINT16, UINT32, UINT64};

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
    const std::size_t bytes = std::max(bytesOf(a), bytesOf(b));
    for (const DataType type : needsSign ? signedTypes : unsignedTypes)
        if (DataTypeUtils::getSize(type) == bytes)
            return type;
    return FLOAT64;
}

// The decimals that represent multiples of the finer step also represent those of the coarser one if the
// ratio of the steps is an integer.
double findCommonStep(double a, double b)
{
    if (a == b)
        return a;
    const double finer = std::min(std::fabs(a), std::fabs(b));
    const double ratio = std::max(std::fabs(a), std::fabs(b)) / finer;
    constexpr double tolerance = 1e-9; // doubles approximate decimal steps
    return std::fabs(ratio - std::round(ratio)) < tolerance * ratio ? finer : 0;
}

bool holdsSteps(DataType type)
{
    return !DataTypeUtils::isFloat(type) && DataTypeUtils::getSize(type) > 1;
}

bool hasSteps(const PointInfo& layout)
{
    const ChannelInfo* const angle = layout.getChannel(scanAngle);
    return angle && holdsSteps(angle->getDataType());
}

// Whether LAS needs one of its formats 6 to 10 for the layout.
bool isNewer(const PointInfo& layout)
{
    constexpr int oldReturnBits = 3;
    const auto hasMoreReturns = [&](const char* name) {
        const ChannelInfo* const channel = layout.getChannel(name);
        return channel && channel->getBits() > oldReturnBits;
    };
    return layout.hasChannel(classFlags) || layout.hasChannel(ChannelNames::scannerChannel) ||
           layout.hasChannel(ChannelNames::nearInfrared) || hasSteps(layout) ||
           hasMoreReturns(ChannelNames::returnNum) || hasMoreReturns(ChannelNames::numReturns);
}

[[noreturn]] void throwDoesNotFit(const char* channel)
{
    QM_THROW(ErrorCode::ChannelType,
             "channel '%s' does not fit the joined layout; an index needs an update (vxindex -u)", channel);
}

std::optional<Origin> findTime(const PointInfo& source, const NameIndex& names, const Target& target,
                               const char* channel)
{
    const auto week = names.find(gpsTime);
    const auto adjusted = names.find(gpsTimeAdjusted);
    const bool wantsAdjusted = std::string_view(channel) == gpsTimeAdjusted;
    if (wantsAdjusted && target.getGPSWeek() && week) {
        if (!adjusted)
            return Origin{*week, Rule::WeekToAdjusted};
        for (const std::size_t index : {*week, *adjusted})
            if (source.getChannel(index).getDataType() != FLOAT64)
                throwDoesNotFit(source.getChannel(index).getName());
        return Origin{*adjusted, Rule::EitherToAdjusted, *week};
    }
    const auto same = wantsAdjusted ? adjusted : week;
    if (same)
        return Origin{*same};
    // Without the other clock in the target, the source had another clock when the target was made.
    const char* const other = wantsAdjusted ? gpsTime : gpsTimeAdjusted;
    if (names.find(other) && !target.find(other))
        throwDoesNotFit(other);
    return std::nullopt;
}

std::optional<Origin> findClass(const PointInfo& source, const NameIndex& names, const Target& target,
                                const char* channel)
{
    const auto own = names.find(channel);
    const auto ownClass = names.find(classId);
    const bool splits = target.find(classFlags) && hasLegacyClass(source);
    if (splits)
        return Origin{*ownClass, own ? Rule::SplitClass : Rule::SplitFlags};
    if (names.find(classFlags) && !target.find(classFlags))
        throwDoesNotFit(classFlags);
    return own ? std::optional(Origin{*own}) : std::nullopt;
}

Rule findAngleRule(DataType own, DataType united)
{
    if (holdsSteps(own) && !holdsSteps(united))
        throwDoesNotFit(scanAngle);
    return holdsSteps(own) == holdsSteps(united) ? Rule::Copy : Rule::DegreesToSteps;
}

// Narrows like the conversions between sample types.
template <class To, class From>
To narrow(From value)
{
    if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>)
        return static_cast<To>(SampleConversion::truncate<std::int64_t>(value));
    else
        return static_cast<To>(value);
}

// Writes convert(sample) for each sample.
template <class Convert>
void transform(ChannelData& to, const ChannelData& from, std::size_t count, Convert convert)
{
    visitDataType(from.getDataType(), [&](auto fromZero) {
        const auto* const in = static_cast<const decltype(fromZero)*>(from.getData());
        visitDataType(to.getDataType(), [&](auto toZero) {
            using To = decltype(toZero);
            auto* const out = static_cast<To*>(to.getData());
            for (std::size_t i = 0; i < count; ++i)
                out[i] = narrow<To>(convert(in[i]));
        });
    });
}

double toAdjusted(double weekTime, int week)
{
    return weekTime + (week * secondsPerWeek - adjustedZero);
}

} // namespace

Target::Target(const PointInfo& layout, const std::optional<int>& gpsWeek)
    : m_layout(layout), m_names(m_layout), m_gpsWeek(gpsWeek)
{}

const ChannelInfo* Target::find(const char* channel) const
{
    const auto index = m_names.find(channel);
    return index ? &m_layout.getChannel(*index) : nullptr;
}

PointInfo renameClocks(const PointInfo& layout, const std::optional<int>& gpsWeek)
{
    if (!gpsWeek || !layout.hasChannel(gpsTime))
        return layout;
    PointInfo renamed;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        ChannelInfo channel = layout.getChannel(i);
        if (channel.isNamed(gpsTime))
            channel.init(gpsTimeAdjusted, FLOAT64, 0, 0);
        if (!channel.isNamed(gpsTimeAdjusted) || !renamed.hasChannel(gpsTimeAdjusted))
            renamed.append(channel);
    }
    return renamed;
}

ChannelInfo uniteChannels(const ChannelInfo& a, const ChannelInfo& b)
{
    const bool aHasSteps = holdsSteps(a.getDataType());
    if (a.isNamed(scanAngle) && aHasSteps != holdsSteps(b.getDataType()))
        return aHasSteps ? a : b;
    const DataType type = findCommonType(a.getDataType(), b.getDataType());
    const bool isOneOfThem = type == a.getDataType() || type == b.getDataType();
    const int allBits = 0;
    ChannelInfo both;
    both.init(a.getName(), type, isOneOfThem ? std::max(a.getBits(), b.getBits()) : allBits,
              findCommonStep(a.getQuantization(), b.getQuantization()));
    return both;
}

void completeUnion(PointInfo& layout)
{
    if (!isNewer(layout))
        return;
    ChannelInfo* const angle = layout.getChannel(scanAngle);
    if (angle && DataTypeUtils::getSize(angle->getDataType()) == 1)
        angle->init(scanAngle, SINT16, 0, 0.0);
    const ChannelInfo* const classes = layout.getChannel(classId);
    if (classes && !DataTypeUtils::isFloat(classes->getDataType()) && !layout.hasChannel(classFlags)) {
        constexpr int flagBits = 4;
        ChannelInfo flags;
        flags.init(classFlags, UINT8, flagBits, 0.0);
        layout.append(flags);
    }
}

bool hasLegacyClass(const PointInfo& layout)
{
    const ChannelInfo* const classes = layout.getChannel(classId);
    return classes && !DataTypeUtils::isFloat(classes->getDataType()) && !isNewer(layout);
}

bool hasRealAngles(const PointInfo& layout)
{
    const ChannelInfo* const angle = layout.getChannel(scanAngle);
    return angle && DataTypeUtils::isFloat(angle->getDataType());
}

std::optional<Origin> findOrigin(const PointInfo& source, const NameIndex& names, const Target& target,
                                 const char* channel)
{
    const std::string_view name(channel);
    std::optional<Origin> origin;
    if (name == gpsTime || name == gpsTimeAdjusted)
        origin = findTime(source, names, target, channel);
    else if (name == classId || name == classFlags)
        origin = findClass(source, names, target, channel);
    else if (const auto own = names.find(channel))
        origin = Origin{*own};
    const ChannelInfo* const united = target.find(channel);
    if (!origin || !united)
        return origin;
    const DataType own = source.getChannel(origin->channel).getDataType();
    if (name == scanAngle)
        origin->rule = findAngleRule(own, united->getDataType());
    else if (origin->rule == Rule::Copy &&
             findCommonType(own, united->getDataType()) != united->getDataType())
        throwDoesNotFit(channel);
    return origin;
}

void convert(ChannelData& to, const ChannelData& from, const ChannelData* week, Rule rule,
             const std::optional<int>& gpsWeek, std::size_t count)
{
    switch (rule) {
    case Rule::Copy:
        if (DataTypeUtils::isFloat(to.getDataType()) == DataTypeUtils::isFloat(from.getDataType()))
            ChannelData::convert(to, 0, from, 0, count);
        else
            ChannelData::convert(to, 0, from, 0, 0.0, 1.0, count);
        return;
    case Rule::DegreesToSteps:
        return transform(to, from, count,
                         [](auto degrees) { return std::round(static_cast<double>(degrees) / angleStep); });
    case Rule::SplitClass:
        return transform(to, from, count, [](auto byte) { return static_cast<unsigned>(byte) & classMask; });
    case Rule::SplitFlags:
        return transform(to, from, count, [](auto sample) {
            const unsigned byte = static_cast<std::uint8_t>(sample);
            return byte >> legacyFlagsShift | ((byte & classMask) == legacyOverlapClass ? overlapFlag : 0u);
        });
    case Rule::WeekToAdjusted:
        return transform(to, from, count,
                         [&](auto time) { return toAdjusted(static_cast<double>(time), *gpsWeek); });
    case Rule::EitherToAdjusted: {
        const auto* ofWeek = static_cast<const double*>(week->getData());
        return transform(to, from, count, [&](auto time) {
            const double weekTime = *ofWeek++;
            const auto adjusted = static_cast<double>(time);
            return adjusted != 0 || weekTime == 0 ? adjusted : toAdjusted(weekTime, *gpsWeek);
        });
    }
    }
}

} // namespace Quillmoran::MergeRules

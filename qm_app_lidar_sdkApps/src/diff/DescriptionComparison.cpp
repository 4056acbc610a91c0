#include "diff/DescriptionComparison.h"

#include "diff/ComparedCloud.h"
#include "framework/MetadataKeys.h"
#include "las/header/LASRestore.h"
#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include "srs/SpatialReference.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string_view>

namespace Quillmoran {

namespace {

// These describe a file, not its cloud: other values of them are only noted. Bounds and counts follow from
// the points, which are compared themselves.
constexpr std::string_view fileRecords[] = {
    "GeneratingSoftware", "FileCreationDate",        "LAS_Format",
    LASRestore::key,      MetadataKeys::boundingBox, MetadataKeys::countsByReturn};
// VLRs of the coordinate system.
constexpr std::string_view projectionRecords = "LASF_Projection::";

// The names of the channels that a user means, in both clouds; all if there are none.
std::set<std::string> chooseNames(const ComparedCloud& a, const ComparedCloud& b,
                                  const std::vector<std::string>& names)
{
    std::set<std::string> chosen;
    for (const std::string& name : names) {
        const ChannelInfo* const inA = ChannelNames::resolve(name, a.source->getPointInfo());
        const ChannelInfo* const inB = ChannelNames::resolve(name, b.source->getPointInfo());
        if (!inA && !inB)
            QM_THROW(ErrorCode::InvalidArgument, "neither '%s' nor '%s' has a channel '%s'", a.name.c_str(),
                     b.name.c_str(), name.c_str());
        for (const ChannelInfo* channel : {inA, inB})
            if (channel)
                chosen.insert(channel->getName());
    }
    return chosen;
}

void noteDescription(const ChannelInfo& a, const ChannelInfo& b, std::vector<std::string>& notes)
{
    const std::string name = a.getName();
    if (a.getBits() != b.getBits() && a.getDataType() == b.getDataType())
        notes.push_back(name + " has " + std::to_string(a.getBits()) + " significant bits in A and " +
                        std::to_string(b.getBits()) + " in B");
    if (a.getQuantization() != b.getQuantization())
        notes.push_back(name + " has a step of " + toText(Sample(a.getQuantization())) + " in A and " +
                        toText(Sample(b.getQuantization())) + " in B");
}

ComparedChannels compareLayouts(const PointInfo& a, const PointInfo& b, const std::set<std::string>& chosen,
                                DiffReport& report)
{
    const NameIndex namesInA(a);
    const NameIndex namesInB(b);
    const auto isChosen = [&](const char* name) { return name && (chosen.empty() || chosen.count(name)); };
    const auto isCoordinate = [](const ChannelInfo& channel) {
        return channel.isNamed(ChannelNames::x) || channel.isNamed(ChannelNames::y) ||
               channel.isNamed(ChannelNames::z);
    };
    ComparedChannels channels;
    std::size_t last = 0; // in b
    bool isSameOrder = true;
    for (std::size_t i = 0; i < a.getNumChannels(); ++i) {
        const ChannelInfo& inA = a.getChannel(i);
        if (namesInA.find(inA.getName()) != i)
            continue; // readers give only the first channel of a name
        const auto found = namesInB.find(inA.getName());
        if (!found) {
            if (isChosen(inA.getName()))
                report.layout.push_back({inA.getName(), inA.getDataType(), std::nullopt});
            continue;
        }
        const ChannelInfo& inB = b.getChannel(*found);
        if (isChosen(inA.getName())) {
            isSameOrder = isSameOrder && *found >= last;
            last = *found;
            if (inA.getDataType() != inB.getDataType())
                report.layout.push_back({inA.getName(), inA.getDataType(), inB.getDataType()});
            noteDescription(inA, inB, report.notes);
            channels.compared.push_back(channels.a.getNumChannels());
            report.channels.emplace_back(inA.getName());
        } else if (!isCoordinate(inA)) {
            continue;
        }
        channels.a.append(inA);
        channels.b.append(inB);
    }
    for (std::size_t i = 0; i < b.getNumChannels(); ++i) {
        const ChannelInfo& inB = b.getChannel(i);
        if (namesInB.find(inB.getName()) == i && isChosen(inB.getName()) && !namesInA.find(inB.getName()))
            report.layout.push_back({inB.getName(), std::nullopt, inB.getDataType()});
    }
    if (!isSameOrder)
        report.notes.emplace_back("the channels have another order");
    return channels;
}

std::optional<std::string> nameOfClass(const PointSource& source, std::size_t code)
{
    const char* const name = code < source.getNumClassIdNames() ? source.getClassIdNames()[code] : nullptr;
    return name ? std::optional<std::string>(name) : std::nullopt;
}

void compareClassNames(const PointSource& a, const PointSource& b, DiffReport& report)
{
    const std::size_t count = std::max(a.getNumClassIdNames(), b.getNumClassIdNames());
    for (std::size_t code = 0; code < count; ++code) {
        std::optional<std::string> inA = nameOfClass(a, code);
        std::optional<std::string> inB = nameOfClass(b, code);
        if (inA != inB)
            report.classNames.push_back({code, std::move(inA), std::move(inB)});
    }
}

DiffReport::Systems compareCoordinateSystems(const char* a, const char* b)
{
    using Systems = DiffReport::Systems;
    if (!a || !b)
        return a ? Systems::OnlyA : b ? Systems::OnlyB : Systems::Same;
    return std::strcmp(a, b) == 0 || SpatialReference::isSame(a, b) ? Systems::Same : Systems::Different;
}

// The indices of the records, sorted by key; those with the same key keep their order, which can matter.
std::vector<std::size_t> sortByKey(const Metadata& metadata)
{
    std::vector<std::size_t> order(metadata.getNumRecords());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t i, std::size_t j) {
        return std::strcmp(metadata.getKey(i), metadata.getKey(j)) < 0;
    });
    return order;
}

bool isSameRecord(const Metadata& a, std::size_t i, const Metadata& b, std::size_t j)
{
    const auto descriptionOf = [](const Metadata& metadata, std::size_t index) {
        const char* const text = metadata.getDescription(index);
        return std::string_view(text ? text : "");
    };
    if (a.getDataType(i) != b.getDataType(j) || a.getValueLength(i) != b.getValueLength(j) ||
        descriptionOf(a, i) != descriptionOf(b, j))
        return false;
    const std::size_t bytes =
        a.getValueLength(i) * (a.getDataType(i) == METADATA_FLOAT64_ARRAY ? sizeof(double) : 1);
    return bytes == 0 || std::memcmp(a.getValue(i), b.getValue(j), bytes) == 0;
}

void addRecord(const std::string& key, bool isInA, bool isInB, DiffReport& report)
{
    const bool isOfFile =
        std::find(std::begin(fileRecords), std::end(fileRecords), key) != std::end(fileRecords) ||
        MetadataKeys::isPointIndex(key);
    if (!isOfFile)
        report.metadata.push_back({key, isInA, isInB});
    else
        report.notes.push_back(key + (isInA && isInB ? " differs"
                                      : isInA        ? " is only in A"
                                                     : " is only in B"));
}

void compareMetadata(const Metadata& a, const Metadata& b, bool ignoresProjection, DiffReport& report)
{
    const std::vector<std::size_t> inA = sortByKey(a);
    const std::vector<std::size_t> inB = sortByKey(b);
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < inA.size() || j < inB.size()) {
        const int order = i == inA.size()   ? 1
                          : j == inB.size() ? -1
                                            : std::strcmp(a.getKey(inA[i]), b.getKey(inB[j]));
        const std::string key = order <= 0 ? a.getKey(inA[i]) : b.getKey(inB[j]);
        const bool isDifferent = order != 0 || !isSameRecord(a, inA[i], b, inB[j]);
        if (isDifferent && !(ignoresProjection && key.rfind(projectionRecords, 0) == 0))
            addRecord(key, order <= 0, order >= 0, report);
        i += order <= 0;
        j += order >= 0;
    }
}

} // namespace

ComparedChannels compareDescriptions(const ComparedCloud& a, const ComparedCloud& b,
                                     const std::vector<std::string>& names, DiffReport& report)
{
    const PointInfo& inA = a.source->getPointInfo();
    const PointInfo& inB = b.source->getPointInfo();
    for (const ComparedCloud* cloud : {&a, &b})
        if (!cloud->source->getPointInfo().hasValidXYZ())
            QM_THROW(ErrorCode::InvalidArgument, "'%s' must have x, y, and z channels", cloud->name.c_str());
    ComparedChannels channels = compareLayouts(inA, inB, chooseNames(a, b, names), report);
    const char* const wktOfA = a.source->getWKT();
    const char* const wktOfB = b.source->getWKT();
    report.coordinateSystems = compareCoordinateSystems(wktOfA, wktOfB);
    compareClassNames(*a.source, *b.source, report);
    // Systems that are not understood are compared as records.
    compareMetadata(a.metadata, b.metadata, wktOfA && wktOfB, report);
    return channels;
}

} // namespace Quillmoran

#include "las/header/LASFileHead.h"

#include "las/header/LASMetadata.h"
#include "las/header/LASRestoredHead.h"
#include "las/header/LASVariableRecord.h"
#include "las/points/LASRecordWriter.h"
#include "model/ChannelNames.h"
#include "platform/Version.h"
#include "srs/SpatialReference.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace Quillmoran {

namespace {

constexpr std::size_t maxValueBytes = 65535; // of a VLR

bool hasMoreBits(const PointInfo& layout, const char* name, int bits)
{
    const ChannelInfo* channel = layout.getChannel(name);
    return channel && channel->getBits() > bits;
}

} // namespace

LASPointFormat LASFileHead::chooseFormat(const PointInfo& layout)
{
    const bool time =
        layout.hasChannel(ChannelNames::gpsTime) || layout.hasChannel(ChannelNames::gpsTimeAdjusted);
    const bool colour = layout.hasChannel(ChannelNames::red) || layout.hasChannel(ChannelNames::green) ||
                        layout.hasChannel(ChannelNames::blue);
    const bool nearInfrared = layout.hasChannel(ChannelNames::nearInfrared);
    const bool extended =
        layout.hasChannel(ChannelNames::classFlags) || layout.hasChannel(ChannelNames::scannerChannel) ||
        hasMoreBits(layout, ChannelNames::numReturns, 3) || hasMoreBits(layout, ChannelNames::returnNum, 3) ||
        hasMoreBits(layout, ChannelNames::scanAngle, 8);
    if (!extended && !nearInfrared)
        return {static_cast<std::uint8_t>((colour ? 2 : 0) + (time ? 1 : 0))};
    // No format has near infrared without colour; a channel without a field is left out.
    return {static_cast<std::uint8_t>(!colour ? 6 : nearInfrared ? 8 : 7)};
}

int LASFileHead::chooseVersion(const PointInfo& layout)
{
    constexpr int versions[] = {11, 11, 12, 12, 13, 13};
    const LASPointFormat format = chooseFormat(layout);
    return format.isExtended() ? 14 : versions[format.number];
}

LASFileHead LASFileHead::make(const PointInfo& layout, const Metadata& metadata, const Request& request)
{
    if (request.restores)
        return makeRestoredHead(layout, metadata, request);
    LASFileHead head;
    LASHeader& header = head.header;
    header.pointFormat = chooseFormat(layout);
    header.compressed = request.compressed;
    header.recordLength = static_cast<std::uint16_t>(header.pointFormat.recordLength());
    head.setIdentity(request.version < 0 ? chooseVersion(layout) : request.version);
    head.setEncoding(LASHeader::ADJUSTED_TIME, layout.hasChannel(ChannelNames::gpsTimeAdjusted));
    std::copy_n(request.scale, 3, header.scale.begin());
    std::copy_n(request.offset, 3, header.offset.begin());
    LASMetadata::apply(metadata, header);
    if (request.overrideProjection || !head.copyProjection(metadata))
        head.addCoordinateSystem(request.wkt);
    if (request.compressed)
        head.appendRecord(LASRecordWriter::compressionRecord(header));
    head.listOthers(metadata);
    return head;
}

void LASFileHead::setIdentity(int version)
{
    header.versionMajor = static_cast<std::uint8_t>(version / 10);
    header.versionMinor = static_cast<std::uint8_t>(version % 10);
    header.headerSize = LASHeader::sizeOfVersion(header.versionMinor);
    header.pointDataOffset = header.headerSize;
    header.generatingSoftware = std::string("Quillmoran ") + Version::getSDKVersionString();
    const std::time_t now = std::time(nullptr);
    std::tm date{};
    gmtime_r(&now, &date);
    header.creationDay = static_cast<std::uint16_t>(date.tm_yday + 1);
    header.creationYear = static_cast<std::uint16_t>(date.tm_year + 1900);
}

bool LASFileHead::copyProjection(const Metadata& metadata)
{
    bool copiedKeys = false;
    bool copiedWKT = false;
    for (std::size_t i = 0; i < metadata.getNumRecords(); ++i) {
        const auto key = LASMetadata::parseRecordKey(metadata.getKey(i));
        if (!key || key->userID != LASVariableRecord::projectionUserID)
            continue;
        const bool isKeys = key->recordID >= LASVariableRecord::GEO_KEY_DIRECTORY &&
                            key->recordID <= LASVariableRecord::GEO_ASCII_PARAMS &&
                            !header.pointFormat.isExtended();
        const bool isWKT = key->recordID == LASVariableRecord::WKT_MATH_TRANSFORM ||
                           key->recordID == LASVariableRecord::WKT_COORDINATE_SYSTEM;
        const auto value = LASMetadata::valueAt(metadata, i);
        if ((!isKeys && !isWKT) || value.size() > maxValueBytes)
            continue;
        addRecord(key->userID.c_str(), key->recordID, metadata.getDescription(i), value.data(), value.size());
        (isKeys ? copiedKeys : copiedWKT) = true;
    }
    if (copiedWKT)
        setEncoding(LASHeader::WKT, true);
    if (copiedKeys)
        setEncoding(LASHeader::WKT, false);
    return copiedKeys || copiedWKT;
}

void LASFileHead::listOthers(const Metadata& metadata)
{
    for (std::size_t i = 0; i < metadata.getNumRecords(); ++i) {
        const auto key = LASMetadata::parseRecordKey(metadata.getKey(i));
        if (key && key->isCanonical && key->userID != LASVariableRecord::projectionUserID)
            leftOut.emplace_back(metadata.getKey(i));
    }
}

void LASFileHead::addCoordinateSystem(const char* wkt)
{
    setEncoding(LASHeader::WKT, false);
    if (!wkt || *wkt == '\0')
        return;
    const int version = 10 * header.versionMajor + header.versionMinor;
    if (version <= 13 && !header.pointFormat.isExtended()) {
        addGeoTIFFKeys(wkt);
        return;
    }
    losesCoordinateSystem =
        !addRecord(LASVariableRecord::projectionUserID, LASVariableRecord::WKT_COORDINATE_SYSTEM, nullptr,
                   wkt, std::strlen(wkt) + 1);
    setEncoding(LASHeader::WKT, true);
}

void LASFileHead::addGeoTIFFKeys(const char* wkt)
{
    const auto keys = SpatialReference::toGeoTIFF(wkt);
    losesCoordinateSystem = !keys;
    if (!keys)
        return;
    const auto add = [this](std::uint16_t recordID, const auto& values) {
        if (!values.empty() && !addRecord(LASVariableRecord::projectionUserID, recordID, nullptr,
                                          values.data(), values.size() * sizeof(values[0])))
            losesCoordinateSystem = true;
    };
    add(LASVariableRecord::GEO_KEY_DIRECTORY, keys->directory);
    add(LASVariableRecord::GEO_DOUBLE_PARAMS, keys->doubles);
    add(LASVariableRecord::GEO_ASCII_PARAMS, keys->ascii);
}

bool LASFileHead::addRecord(const char* userID, std::uint16_t recordID, const char* description,
                            const void* value, std::size_t length)
{
    if (length > maxValueBytes)
        return false;
    std::vector<unsigned char> record;
    appendLASVariableRecord(record, userID, recordID, description, value, length);
    appendRecord(record);
    return true;
}

void LASFileHead::appendRecord(const std::vector<unsigned char>& record)
{
    records.insert(records.end(), record.begin(), record.end());
    ++header.numVLRs;
    header.pointDataOffset += static_cast<std::uint32_t>(record.size());
}

void LASFileHead::setEncoding(LASHeader::GlobalEncoding bit, bool on)
{
    const unsigned others = header.globalEncoding & ~static_cast<unsigned>(bit);
    header.globalEncoding = static_cast<std::uint16_t>(others | (on ? unsigned{bit} : 0u));
}

} // namespace Quillmoran

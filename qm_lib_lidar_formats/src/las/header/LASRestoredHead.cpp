#include "las/header/LASRestoredHead.h"

#include "framework/MetadataKeys.h"
#include "las/header/LASMetadata.h"
#include "las/header/LASRestore.h"
#include "las/laszip/LASzipCoding.h"
#include "las/points/LASRecordWriter.h"
#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <map>
#include <optional>
#include <span>

namespace Quillmoran {

namespace {

using Bytes = LASRestore::Bytes;

constexpr std::size_t maxRecordLength = UINT16_MAX;
constexpr unsigned waveformBits = 6; // of the global encoding: where the packets are

LASPointFormat withoutWaveforms(LASPointFormat format)
{
    constexpr std::uint8_t others[] = {0, 1, 2, 3, 1, 3, 6, 7, 8, 6, 8};
    return {others[format.number]};
}

int minVersion(LASPointFormat format)
{
    constexpr int versions[] = {10, 10, 12, 12, 13, 13};
    return format.isExtended() ? 14 : versions[format.number];
}

// The format without waveforms that has all channels of a layout which LAS has.
LASPointFormat fittingFormat(const PointInfo& layout)
{
    const LASPointFormat format = LASFileHead::chooseFormat(layout);
    return {layout.hasChannel(ChannelNames::nearInfrared) ? std::uint8_t{8} : format.number};
}

bool holds(LASPointFormat format, const PointInfo& layout)
{
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        if (!LASFields::isKnown(channel.getName()))
            continue;
        const auto field = LASFields::find(format, channel.getName());
        if (!field || (!DataTypeUtils::isFloat(channel.getDataType()) && channel.getBits() > field->bits))
            return false;
    }
    return true;
}

class Restorer
{
public:
    Restorer(const PointInfo& layout, const Metadata& metadata, const LASFileHead::Request& request)
        : m_layout(layout), m_metadata(metadata), m_request(request), m_kept(LASRestore::find(metadata))
    {
        for (std::size_t i = metadata.getNumRecords(); i-- > 0;)
            m_values[metadata.getKey(i)].push_back(i);
    }

    LASFileHead make()
    {
        if (m_kept)
            readOldHeader();
        const LASPointFormat format = chooseFormat();
        const int version = chooseVersion(format);
        m_isSameHeader = m_kept && version == 10 * m_old.versionMajor + m_old.versionMinor;
        startHeader(version);
        header().pointFormat = format;
        header().compressed = m_request.compressed;
        chooseExtraFields();
        m_head.keepsCounts = isWhole();
        setEncoding();
        setScale();
        addRecords();
        addExtendedRecords();
        return std::move(m_head);
    }

private:
    LASHeader& header() noexcept { return m_head.header; }

    void readOldHeader()
    {
        m_old.parse(m_kept->header);
        if (m_kept->header.size() != m_old.headerSize)
            QM_THROW(ErrorCode::LASRead, "the restore record is damaged");
        if (m_old.pointFormat.hasWaveform()) {
            const LASPointFormat format = withoutWaveforms(m_old.pointFormat);
            const std::size_t shorter = m_old.pointFormat.recordLength() - format.recordLength();
            m_old.recordLength = static_cast<std::uint16_t>(m_old.recordLength - shorter);
            m_old.pointFormat = format;
            m_old.waveformDataStart = 0;
            m_old.globalEncoding &= static_cast<std::uint16_t>(~waveformBits);
        }
    }

    LASPointFormat chooseFormat() const
    {
        std::optional<LASPointFormat> format;
        if (m_kept)
            format = m_old.pointFormat;
        else if (const auto shared = LASMetadata::findFormat(m_metadata))
            format = withoutWaveforms(shared->pointFormat);
        return format && holds(*format, m_layout) ? *format : fittingFormat(m_layout);
    }

    int chooseVersion(LASPointFormat format) const
    {
        if (m_request.version > 0) {
            if (m_request.version < minVersion(format))
                QM_THROW(ErrorCode::NotRepresentable,
                         "LAS %d.%d does not have point format %d of these points", m_request.version / 10,
                         m_request.version % 10, format.number);
            return m_request.version;
        }
        if (m_kept && format.number == m_old.pointFormat.number)
            return 10 * m_old.versionMajor + m_old.versionMinor;
        const auto shared = LASMetadata::findFormat(m_metadata);
        return std::max(shared ? shared->version : LASFileHead::chooseVersion(m_layout), minVersion(format));
    }

    void startHeader(int version)
    {
        if (m_isSameHeader) {
            header() = m_old;
            m_head.block = m_kept->header;
            header().pointDataOffset = header().headerSize;
        } else {
            m_head.setIdentity(version);
            LASMetadata::apply(m_metadata, header());
            if (const auto shared = LASMetadata::findFormat(m_metadata))
                header().globalEncoding = shared->globalEncoding & static_cast<std::uint16_t>(~waveformBits);
        }
        if (m_kept && !m_isSameHeader) {
            header().fileSourceID = m_old.fileSourceID;
            header().globalEncoding = m_old.globalEncoding;
            header().projectID = m_old.projectID;
            header().systemIdentifier = m_old.systemIdentifier;
            header().generatingSoftware = m_old.generatingSoftware;
            header().creationDay = m_old.creationDay;
            header().creationYear = m_old.creationYear;
        }
        header().numVLRs = 0;
        header().numEVLRs = 0;
    }

    // Puts the channels that are not in the point format after its fields: as they were, or else those that
    // the layout still has, and new ones.
    void chooseExtraFields()
    {
        const std::size_t begin = header().pointFormat.recordLength();
        m_descriptors = findValue(extraBytesKey);
        const std::vector<LASExtraField> old =
            m_kept ? LASExtraBytes::describe(m_old.pointFormat, m_old.recordLength, m_descriptors)
                   : LASExtraBytes::describe(header().pointFormat, m_descriptors);
        const NameIndex channels(m_layout);
        std::vector<bool> isPlaced(m_layout.getNumChannels());
        std::size_t end = begin;
        const auto place = [&](LASExtraField field, std::size_t channel) {
            field.offset = end;
            end += DataTypeUtils::getSize(field.stored);
            isPlaced[channel] = true;
            m_head.extraFields.push_back(std::move(field));
        };
        for (const LASExtraField& field : old) {
            const auto channel = channels.find(field.channel.c_str());
            if (channel && m_layout.getChannel(*channel).getDataType() == field.toChannel().getDataType())
                place(field, *channel);
        }
        m_hasOldFields = m_head.extraFields.size() == old.size();
        for (std::size_t i = 0; i < m_layout.getNumChannels(); ++i) {
            const ChannelInfo& channel = m_layout.getChannel(i);
            if (isPlaced[i] || LASFields::isKnown(channel.getName()))
                continue;
            place({channel.getName(), channel.getDataType()}, i);
            m_hasOldFields = false;
        }
        if (end > maxRecordLength)
            QM_THROW(ErrorCode::NotRepresentable, "the points are too long for LAS: %zu bytes each", end);
        header().recordLength = static_cast<std::uint16_t>(end);
        if (!m_hasOldFields)
            describeExtraFields();
    }

    // Makes the value of the VLR for the chosen fields. Parts of arrays become fields of their own.
    void describeExtraFields()
    {
        for (LASExtraField& field : m_head.extraFields) {
            if (!field.descriptor.empty()) {
                m_newDescriptors.insert(m_newDescriptors.end(), field.descriptor.begin(),
                                        field.descriptor.end());
                continue;
            }
            const Bytes made = LASExtraBytes::makeDescriptor(field);
            m_newDescriptors.insert(m_newDescriptors.end(), made.begin(), made.end());
        }
        m_descriptors = m_newDescriptors;
    }

    // Whether the points are all points of the file with all its channels.
    bool isWhole() const
    {
        if (!m_isSameHeader || !m_hasOldFields || !LASMetadata::hasCounts(m_metadata) ||
            m_head.header.pointFormat.number != m_old.pointFormat.number)
            return false;
        const bool adjusted = m_layout.hasChannel(ChannelNames::gpsTimeAdjusted);
        const PointInfo all = LASFields::channelsOf(m_old.pointFormat, adjusted, m_old.scale);
        for (std::size_t i = 0; i < all.getNumChannels(); ++i)
            if (!m_layout.hasChannel(all.getChannel(i).getName()))
                return false;
        return true;
    }

    void setEncoding()
    {
        const bool adjusted = m_layout.hasChannel(ChannelNames::gpsTimeAdjusted);
        if (adjusted || m_layout.hasChannel(ChannelNames::gpsTime))
            m_head.setEncoding(LASHeader::ADJUSTED_TIME, adjusted);
    }

    // The scale of the file, unless a filter has changed it.
    void setScale()
    {
        bool isOld = m_kept.has_value();
        for (std::size_t axis = 0; isOld && axis < 3; ++axis) {
            constexpr const char* names[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
            const ChannelInfo* const channel = m_layout.getChannel(names[axis]);
            const double step = channel ? channel->getQuantization() : 0;
            isOld = step == 0 || step == m_old.scale[axis];
        }
        for (std::size_t axis = 0; axis < 3; ++axis) {
            header().scale[axis] = isOld ? m_old.scale[axis] : m_request.scale[axis];
            header().offset[axis] = isOld ? m_old.offset[axis] : m_request.offset[axis];
        }
        m_head.keepsCounts = m_head.keepsCounts && isOld;
    }

    void addRecords()
    {
        if (m_kept)
            for (const LASRestore::Record& record : m_kept->records)
                addKept(record);
        addProjection();
        if (!m_hasExtraBytesRecord && !m_descriptors.empty() && !keeps(extraBytesKey) &&
            !m_head.addRecord(LASVariableRecord::specUserID, LASVariableRecord::extraBytesRecordID,
                              "Extra bytes", m_descriptors.data(), m_descriptors.size()))
            QM_THROW(ErrorCode::NotRepresentable,
                     "the descriptions of the extra bytes do not fit into a VLR");
        addOthers();
        if (m_request.compressed && !m_hasCompressionRecord)
            m_head.appendRecord(LASRecordWriter::compressionRecord(header()));
        if (m_kept) {
            const Bytes& padding = m_kept->padding;
            m_head.records.insert(m_head.records.end(), padding.begin(), padding.end());
            header().pointDataOffset += static_cast<std::uint32_t>(padding.size());
        }
    }

    // LAS 1.4 requires WKT for the point formats from 6 on. Points that got another coordinate system later
    // have no kept records of one.
    void addProjection()
    {
        const bool needsWKT = header().pointFormat.isExtended();
        const bool hasWKT = m_request.wkt && *m_request.wkt != '\0';
        if (!m_kept
                ? !m_head.copyProjection(m_metadata)
                : (hasWKT && !keepsProjection()) || (!m_head.keepsCounts && needsWKT && !keeps(wktKey, true)))
            m_head.addCoordinateSystem(m_request.wkt);
        if (!m_head.keepsCounts && needsWKT)
            m_head.setEncoding(LASHeader::WKT, true);
    }

    // Whether the file gets a kept EVLR, or VLR, with the key.
    bool keeps(const std::string& key, bool orVLR = false) const
    {
        const auto hasKey = [&](const LASRestore::Record& record) { return keyOf(record) == key; };
        return m_kept && ((hasEVLRs() && std::any_of(m_kept->extendedRecords.begin(),
                                                     m_kept->extendedRecords.end(), hasKey)) ||
                          (orVLR && std::any_of(m_kept->records.begin(), m_kept->records.end(), hasKey)));
    }
    bool keepsProjection() const
    {
        const auto isProjection = [](const LASRestore::Record& record) {
            return record.userID() == LASVariableRecord::projectionUserID;
        };
        return std::any_of(m_kept->records.begin(), m_kept->records.end(), isProjection) ||
               std::any_of(m_kept->extendedRecords.begin(), m_kept->extendedRecords.end(), isProjection);
    }
    bool hasEVLRs() const noexcept { return m_head.header.versionMinor >= 4; }

    void addKept(const LASRestore::Record& record)
    {
        if (m_old.compressed &&
            record.is(LASVariableRecord::compressionUserID, LASVariableRecord::compressionRecordID)) {
            if (!m_request.compressed)
                return;
            const Bytes made = LASRecordWriter::compressionRecord(header());
            const auto value = std::span(made).subspan(LASVariableRecord::headerBytes);
            const bool isSame =
                m_head.keepsCounts && record.value && LASzipCoding::isSame(*record.value, value);
            append(record, isSame ? *record.value : value);
            m_hasCompressionRecord = true;
            return;
        }
        const std::string key = keyOf(record);
        const auto value = takeValue(record, key);
        if (!value)
            return;
        if ((!m_head.keepsCounts && MetadataKeys::isPointIndex(key)) || value->size() > record.maxLength()) {
            m_head.leftOut.push_back(key);
            return;
        }
        m_head.hasForeignChunkIndex |= m_request.compressed && record.userID() == "copc";
        append(record, *value);
    }

    static std::string keyOf(const LASRestore::Record& record)
    {
        return LASMetadata::makeRecordKey(record.userID(), record.recordID());
    }

    // The value of a kept record; nothing if the file does not get it.
    std::optional<std::span<const unsigned char>> takeValue(const LASRestore::Record& record,
                                                            const std::string& key)
    {
        std::optional<std::span<const unsigned char>> value;
        if (record.value) {
            value = *record.value;
        } else if (auto& indices = m_values[key]; !indices.empty()) {
            value = valueAt(indices.back());
            indices.pop_back();
        }
        if (key != extraBytesKey || m_hasExtraBytesRecord)
            return value;
        m_hasExtraBytesRecord = true;
        if (m_descriptors.empty() && !m_hasOldFields)
            return std::nullopt;
        return m_hasOldFields ? value : m_descriptors;
    }

    void append(const LASRestore::Record& record, std::span<const unsigned char> value)
    {
        std::vector<unsigned char> bytes = record.headerFor(value.size());
        bytes.insert(bytes.end(), value.begin(), value.end());
        if (!record.isExtended()) {
            m_head.appendRecord(bytes);
            return;
        }
        m_head.extended.insert(m_head.extended.end(), bytes.begin(), bytes.end());
        ++header().numEVLRs;
    }

    // Adds the records that joined files share, or that have been added since.
    void addOthers()
    {
        for (std::size_t i = 0; i < m_metadata.getNumRecords(); ++i) {
            const std::string key = m_metadata.getKey(i);
            const auto record = LASMetadata::parseRecordKey(key.c_str());
            if (!record || !record->isCanonical || isTaken(key, i) || key == extraBytesKey || keeps(key) ||
                record->userID == LASVariableRecord::projectionUserID)
                continue;
            const auto value = valueAt(i);
            if (MetadataKeys::isPointIndex(key) ||
                !m_head.addRecord(record->userID.c_str(), record->recordID, m_metadata.getDescription(i),
                                  value.data(), value.size()))
                m_head.leftOut.push_back(key);
        }
    }

    bool isTaken(const std::string& key, std::size_t index)
    {
        const auto& free = m_values[key];
        return std::find(free.begin(), free.end(), index) == free.end();
    }

    void addExtendedRecords()
    {
        if (!m_kept)
            return;
        for (const LASRestore::Record& record : m_kept->extendedRecords) {
            if (hasEVLRs())
                addKept(record);
            else if (record.value)
                m_head.leftOut.push_back(keyOf(record));
        }
        if (header().numEVLRs != 0 || m_head.keepsCounts) {
            m_head.gap = m_kept->gap;
            m_head.extended.insert(m_head.extended.end(), m_kept->rest.begin(), m_kept->rest.end());
        } else {
            header().firstEVLR = 0;
        }
        // EVLRs inside the points are restored with these.
        if (m_head.keepsCounts && m_kept->extendedRecords.empty())
            header().numEVLRs = m_old.numEVLRs;
    }

    std::span<const unsigned char> valueAt(std::size_t index) const
    {
        return LASMetadata::valueAt(m_metadata, index);
    }

    std::span<const unsigned char> findValue(const char* key) const
    {
        const int index = m_metadata.getKeyIndex(key);
        return index < 0 ? std::span<const unsigned char>() : valueAt(static_cast<std::size_t>(index));
    }

    static constexpr char extraBytesKey[] = "LASF_Spec::4";
    static constexpr char wktKey[] = "LASF_Projection::2112";

    const PointInfo& m_layout;
    const Metadata& m_metadata;
    const LASFileHead::Request& m_request;
    std::optional<LASRestore> m_kept;
    LASHeader m_old; // of the file, without waveforms
    bool m_isSameHeader = false;
    bool m_hasOldFields = false;
    LASFileHead m_head;
    std::map<std::string, std::vector<std::size_t>> m_values; // records by key that are not taken, last first
    std::span<const unsigned char> m_descriptors;             // of the extra bytes
    Bytes m_newDescriptors;
    bool m_hasExtraBytesRecord = false;
    bool m_hasCompressionRecord = false;
};

} // namespace

LASFileHead makeRestoredHead(const PointInfo& layout, const Metadata& metadata,
                             const LASFileHead::Request& request)
{
    return Restorer(layout, metadata, request).make();
}

} // namespace Quillmoran

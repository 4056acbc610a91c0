#include <vxunpack/LASPointReader.h>

#include "las/LASFields.h"
#include "las/LASMetadata.h"
#include "las/LASPointIterator.h"
#include "las/LASzipRecord.h"
#include "platform/ByteOrder.h"
#include "platform/OpenIO.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <algorithm>
#include <cstdio>

namespace Quillmoran {

namespace {

// The values of a record; what does not fill one at its end is no value.
template <class T>
std::vector<T> toNumbers(const std::vector<unsigned char>& bytes)
{
    std::vector<T> numbers(bytes.size() / sizeof(T));
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = loadLittleEndian<T>(bytes.data() + i * sizeof(T));
    return numbers;
}

} // namespace

LASPointReader* LASPointReader::create()
{
    return new LASPointReader;
}

void LASPointReader::init(const char* path, bool openFullWaveform)
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(path, "r");
    m_io = Scoped<IO>::retained(file.get());
    try {
        open(openFullWaveform);
    } catch (const Error& error) {
        if (error.code() == ErrorCode::Waveforms)
            throw;
        QM_THROW(ErrorCode::LASOpen, "Failed to create LASReader for path = '%s': %s", path, error.what());
    }
    setDescription();
}

void LASPointReader::open(bool openFullWaveform)
{
    const OpenIO io(m_io.get());
    m_header.read(*io);
    if (m_header.pointFormat.hasWaveform() && !openFullWaveform)
        QM_THROW(ErrorCode::Waveforms,
                 "Input LAS/LAZ file contains waveform data.  This is not currently supported.");
    checkSize();
    m_records = readLASVariableRecords(*io, m_header);
    readCoordinateSystem();
    if (m_header.compressed)
        openCompressed();
}

void LASPointReader::checkSize() const
{
    const std::int64_t size = m_io->size();
    const std::int64_t begin = m_header.pointDataOffset;
    const std::uint64_t count = m_header.getPointCount();
    if (begin > size)
        QM_THROW(ErrorCode::LASRead, "the file ends before its points");
    if (count > static_cast<std::uint64_t>(INT64_MAX) - 1)
        QM_THROW(ErrorCode::LASRead, "bad LAS header: the number of points is too large");
    const std::uint64_t whole = static_cast<std::uint64_t>(size - begin) / m_header.recordLength;
    if (!m_header.compressed && count > whole)
        QM_THROW(ErrorCode::LASRead, "the file ends after %llu of %llu points",
                 static_cast<unsigned long long>(whole), static_cast<unsigned long long>(count));
}

void LASPointReader::openCompressed()
{
    // Nothing says which of several counts, and those behind the points come too late.
    std::vector<LASVariableRecord> records = m_records;
    const auto isOther = [this](const LASVariableRecord& record) {
        return !record.isCompression() || record.position > m_header.pointDataOffset;
    };
    records.erase(std::remove_if(records.begin(), records.end(), isOther), records.end());
    if (records.empty())
        QM_THROW(ErrorCode::LASRead, "the file says that it is compressed, and not how");
    if (records.size() > 1)
        QM_THROW(ErrorCode::LASRead, "the file says more than once how it is compressed");
    const std::vector<unsigned char> value = readLASRecordValue(*m_io, records.front());
    m_chunks = LASzipChunks::find(*m_io, m_header, readLASzipRecord(value, m_header));
    m_chunks.head = makeLASzipHead(m_header, value);
    // Whether LASzip can take the file shows when it begins.
    LASRecordReader::create(m_io.get(), m_header, m_chunks, PointInfo());
}

const LASVariableRecord* LASPointReader::findProjection(std::uint16_t recordID) const noexcept
{
    const auto found =
        std::find_if(m_records.begin(), m_records.end(),
                     [recordID](const LASVariableRecord& record) { return record.isProjection(recordID); });
    return found == m_records.end() ? nullptr : &*found;
}

void LASPointReader::readCoordinateSystem()
{
    const auto valueOf = [this](std::uint16_t recordID) {
        const LASVariableRecord* record = findProjection(recordID);
        constexpr std::uint64_t longest = 1 << 20; // bytes
        return record && record->length <= longest ? readLASRecordValue(*m_io, *record)
                                                   : std::vector<unsigned char>();
    };
    const auto keys = toNumbers<std::uint16_t>(valueOf(LASVariableRecord::GEO_KEY_DIRECTORY));
    const auto text = valueOf(LASVariableRecord::WKT_COORDINATE_SYSTEM);
    // A file may have both notations and says which one counts.
    const bool textCounts = (m_header.globalEncoding & LASHeader::WKT) != 0 || keys.empty();
    const std::string wkt(text.begin(), std::find(text.begin(), text.end(), '\0'));
    if (textCounts && !wkt.empty()) {
        setWKT(wkt.c_str());
        return;
    }
    m_keys.directory = keys;
    m_keys.doubles = toNumbers<double>(valueOf(LASVariableRecord::GEO_DOUBLE_PARAMS));
    const auto ascii = valueOf(LASVariableRecord::GEO_ASCII_PARAMS);
    m_keys.ascii.assign(ascii.begin(), ascii.end());
}

void LASPointReader::setDescription()
{
    std::snprintf(m_fileFormat, sizeof m_fileFormat, "%s %d.%d", m_header.compressed ? "LAZ" : "LAS",
                  m_header.versionMajor, m_header.versionMinor);
    setNumPoints(static_cast<std::int64_t>(m_header.getPointCount()));
    const bool adjusted = (m_header.globalEncoding & LASHeader::ADJUSTED_TIME) != 0;
    setPointInfo(LASFields::channelsOf(m_header.pointFormat, adjusted, m_header.scale));
    setQuantization(m_header.scale.data(), m_header.offset.data());
    Bounds bounds;
    Bounds::Range* const ranges[] = {&bounds.x, &bounds.y, &bounds.z};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const bool known = m_header.min[axis] <= m_header.max[axis];
        *ranges[axis] = known ? Bounds::Range{m_header.min[axis], m_header.max[axis]} : Bounds::Huge().x;
    }
    setBounds(bounds);
}

const char* LASPointReader::getWKT() const
{
    if (const char* text = PointReader::getWKT())
        return text;
    if (m_keys.directory.empty())
        return nullptr;
    std::call_once(m_translateOnce, [this] { m_translated = SpatialReference::toWKT(m_keys); });
    return m_translated ? m_translated->c_str() : nullptr;
}

bool LASPointReader::hasUnknownCoordinateSystem() const
{
    constexpr std::size_t keyCount = 3; // index of the number of keys
    const auto& directory = m_keys.directory;
    const bool hasKeys = !directory.empty() && (directory.size() <= keyCount || directory[keyCount] != 0);
    return hasKeys && !getWKT();
}

void LASPointReader::loadMetadata(Metadata& into, bool sanitize) const
{
    std::vector<LASVariableRecord> records = m_records;
    if (sanitize)
        records.erase(std::remove_if(records.begin(), records.end(),
                                     [](const LASVariableRecord& record) {
                                         return record.userID == LASVariableRecord::projectionUserID;
                                     }),
                      records.end());
    const OpenIO io(m_io.get());
    LASMetadata::read(into, *io, m_header, records);
}

double LASPointReader::getTotalWork(const Bounds&, double fraction) const
{
    return fraction > 0 ? static_cast<double>(getNumPoints()) : 0;
}

PointIterator* LASPointReader::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                              ProgressDelegate* delegate) const
{
    Scoped<LASPointIterator> iterator(LASPointIterator::create());
    iterator->init(m_io.get(), m_header, m_chunks, getPointInfo(), bounds, fraction, layout, delegate);
    return iterator.detach();
}

} // namespace Quillmoran

#include <vxunpack/LASPointReader.h>

#include "las/LASPointIterator.h"
#include "las/header/LASMetadata.h"
#include "las/header/LASSpatialIndex.h"
#include "las/laszip/LASzipCoding.h"
#include "las/points/LASExtraBytes.h"
#include "platform/ByteOrder.h"
#include "platform/OpenIO.h"
#include "remote/RemoteError.h"
#include "srs/SpatialReference.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <optional>

namespace Quillmoran {

namespace {

// The values of a record; incomplete bytes at its end are ignored.
template <class T>
std::vector<T> toNumbers(const std::vector<unsigned char>& bytes)
{
    std::vector<T> numbers(bytes.size() / sizeof(T));
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = loadLittleEndian<T>(bytes.data() + i * sizeof(T));
    return numbers;
}

constexpr std::int64_t maxSpecialRecords = 100;

} // namespace

struct LASPointReader::Impl
{
    void open(bool openFullWaveform);
    void checkSize() const;
    void openCompressed();
    void readCoordinateSystem();
    std::vector<unsigned char> readValue(const char* userID, std::uint16_t recordID) const;
    std::vector<unsigned char> readProjection(std::uint16_t recordID) const
    {
        return readValue(LASVariableRecord::projectionUserID, recordID);
    }
    PointInfo getChannels() const;
    Bounds getBounds() const;
    // Whether the chunks have points in the box, as far as a spatial index says; empty without one.
    std::vector<bool> findChunks(const Bounds& box, ProgressDelegate* delegate) const;
    void readSpatialIndex() const;

    Scoped<IO> io;
    LASHeader header;
    LASzipCoding coding; // of a compressed file
    LASzipChunks chunks;
    std::vector<LASVariableRecord> records;
    std::vector<unsigned char> descriptors; // of the extra bytes
    std::vector<LASExtraField> extraFields;
    std::string fileFormat;
    std::string wkt;  // the text of the file
    GeoTIFFKeys keys; // the coordinate system when `wkt` is empty

    std::string path; // empty for an IO
    mutable std::once_flag indexOnce;
    mutable std::optional<LASSpatialIndex> index;
    mutable std::string indexProblem; // why there is none

    mutable std::once_flag translateOnce;
    mutable std::optional<std::string> translated; // the keys as WKT
};

LASPointReader::LASPointReader() = default;

LASPointReader::~LASPointReader() = default;

const LASPointReader::Impl& LASPointReader::opened() const
{
    if (!m_impl)
        QM_THROW(ErrorCode::InvalidArgument, "the LAS reader has no file before init()");
    return *m_impl;
}

void LASPointReader::init(const char* path, bool openFullWaveform)
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(path, "r");
    init(file.get(), path, openFullWaveform);
    m_impl->path = path;
}

void LASPointReader::init(IO* io, const char* name, bool openFullWaveform)
{
    if (!io || !name)
        QM_THROW(ErrorCode::InvalidArgument, io ? "name not given" : "io is NULL");
    auto impl = std::make_unique<Impl>();
    impl->io = Scoped<IO>::retained(io);
    try {
        impl->open(openFullWaveform);
    } catch (const Error& error) {
        if (error.code() == ErrorCode::Waveforms || isRemoteError(error))
            throw;
        QM_THROW(ErrorCode::LASOpen, "Failed to create LASReader for path = '%s': %s", name, error.what());
    }
    const LASHeader& header = impl->header;
    setPointInfo(impl->getChannels());
    setNumPoints(static_cast<std::int64_t>(header.getPointCount()));
    setQuantization(header.scale.data(), header.offset.data());
    setBounds(impl->getBounds());
    if (!impl->wkt.empty())
        setWKT(impl->wkt.c_str());
    m_impl = std::move(impl);
}

void LASPointReader::Impl::open(bool openFullWaveform)
{
    const OpenIO opened(io.get());
    header.read(*opened);
    if (header.pointFormat.hasWaveform() && !openFullWaveform)
        QM_THROW(ErrorCode::Waveforms,
                 "Input LAS/LAZ file contains waveform data.  This is not currently supported.");
    checkSize();
    fileFormat = std::string(header.compressed ? "LAZ " : "LAS ") + std::to_string(header.versionMajor) +
                 '.' + std::to_string(header.versionMinor);
    records = readLASVariableRecords(*opened, header);
    readCoordinateSystem();
    descriptors = readValue(LASVariableRecord::specUserID, LASVariableRecord::extraBytesRecordID);
    extraFields = LASExtraBytes::describe(header.pointFormat, header.recordLength, descriptors);
    if (header.compressed)
        openCompressed();
}

void LASPointReader::Impl::checkSize() const
{
    const std::int64_t size = io->size();
    const std::int64_t begin = header.pointDataOffset;
    const std::uint64_t count = header.getPointCount();
    if (begin > size)
        QM_THROW(ErrorCode::LASRead, "the file ends before its points");
    if (count > static_cast<std::uint64_t>(INT64_MAX) - 1)
        QM_THROW(ErrorCode::LASRead, "bad LAS header: the number of points is too large");
    const std::uint64_t whole = static_cast<std::uint64_t>(size - begin) / header.recordLength;
    if (!header.compressed && count > whole)
        QM_THROW(ErrorCode::LASRead, "the file ends after %llu of %llu points",
                 static_cast<unsigned long long>(whole), static_cast<unsigned long long>(count));
}

void LASPointReader::Impl::openCompressed()
{
    // With several records nothing says which one is valid, and LASzip does not read the EVLRs after the
    // points.
    std::vector<LASVariableRecord> compression;
    std::copy_if(records.begin(), records.end(), std::back_inserter(compression),
                 [this](const LASVariableRecord& record) {
                     return record.isCompression() && record.position <= header.pointDataOffset;
                 });
    if (compression.empty())
        QM_THROW(ErrorCode::LASRead, "the file has no VLR with the LASzip coding of its points");
    if (compression.size() > 1)
        QM_THROW(ErrorCode::LASRead, "the file has more than one VLR with the LASzip coding of its points");
    const std::vector<unsigned char> value = readLASRecordValue(*io, compression.front());
    coding = LASzipCoding::parse(value, header);
    chunks = LASzipChunks::find(*io, header, coding);
    chunks.head = makeLASzipHead(header, value);
    // LASzip accepts or refuses the file when it begins to read.
    LASRecordReader::create(io.get(), header, chunks, PointInfo());
}

// Empty without such a record, or with a long one.
std::vector<unsigned char> LASPointReader::Impl::readValue(const char* userID, std::uint16_t recordID) const
{
    constexpr std::uint64_t maxLength = 1 << 20; // bytes
    const auto found = std::find_if(records.begin(), records.end(), [=](const LASVariableRecord& record) {
        return record.is(userID, recordID);
    });
    if (found == records.end() || found->length > maxLength)
        return {};
    return readLASRecordValue(*io, *found);
}

void LASPointReader::Impl::readCoordinateSystem()
{
    const auto directory = toNumbers<std::uint16_t>(readProjection(LASVariableRecord::GEO_KEY_DIRECTORY));
    const auto text = readProjection(LASVariableRecord::WKT_COORDINATE_SYSTEM);
    // If a file has both notations, its header says which one is valid.
    const bool isTextValid = (header.globalEncoding & LASHeader::WKT) != 0 || directory.empty();
    if (isTextValid)
        wkt.assign(text.begin(), std::find(text.begin(), text.end(), '\0'));
    if (!wkt.empty())
        return;
    const auto ascii = readProjection(LASVariableRecord::GEO_ASCII_PARAMS);
    keys = {directory, toNumbers<double>(readProjection(LASVariableRecord::GEO_DOUBLE_PARAMS)),
            std::string(ascii.begin(), ascii.end())};
}

PointInfo LASPointReader::Impl::getChannels() const
{
    const bool adjusted = (header.globalEncoding & LASHeader::ADJUSTED_TIME) != 0;
    PointInfo channels = LASFields::channelsOf(header.pointFormat, adjusted, header.scale);
    for (const LASExtraField& field : extraFields)
        channels.append(field.toChannel());
    return channels;
}

Bounds LASPointReader::Impl::getBounds() const
{
    Bounds bounds = Bounds::Huge();
    Bounds::Range* const ranges[] = {&bounds.x, &bounds.y, &bounds.z};
    for (std::size_t axis = 0; axis < 3; ++axis)
        if (header.min[axis] <= header.max[axis])
            *ranges[axis] = {header.min[axis], header.max[axis]};
    return bounds;
}

// The index is in a record of the file or in a file beside it.
void LASPointReader::Impl::readSpatialIndex() const
{
    const auto parse = [this](const IO& from, std::int64_t position, std::uint64_t size,
                              const std::string& name) {
        if (size > LASSpatialIndex::maxBytes)
            QM_THROW(ErrorCode::LASRead, "%s is too large", name.c_str());
        std::vector<unsigned char> bytes(size);
        bytes.resize(readFully(from, position, bytes.data(), bytes.size()));
        index = LASSpatialIndex::parse(bytes, header.getPointCount());
        if (!index)
            QM_THROW(ErrorCode::LASRead, "%s does not describe all points of the file", name.c_str());
    };
    const OpenIO whole(io.get());
    std::vector<LASVariableRecord> all = records;
    const std::int64_t count = coding.numSpecialRecords;
    if (count > 0 && count <= maxSpecialRecords && coding.specialRecords > 0) {
        const auto special =
            readLASExtendedRecords(*whole, coding.specialRecords, static_cast<std::uint32_t>(count));
        all.insert(all.end(), special.begin(), special.end());
    }
    for (const LASVariableRecord& record : all)
        if (record.is(LASVariableRecord::indexUserID, LASVariableRecord::indexRecordID))
            return parse(*whole, record.position, record.length, "that in the file");
    if (path.empty())
        return;
    const auto beside = std::filesystem::path(path).replace_extension(".lax");
    std::error_code missing;
    const auto written = std::filesystem::last_write_time(beside, missing);
    if (missing)
        return;
    if (written < std::filesystem::last_write_time(path))
        QM_THROW(ErrorCode::LASRead, "%s is older than the file", beside.c_str());
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(beside.c_str(), "r");
    const OpenIO opened(file.get());
    parse(*opened, 0, static_cast<std::uint64_t>(opened->size()), beside);
}

std::vector<bool> LASPointReader::Impl::findChunks(const Bounds& box, ProgressDelegate* delegate) const
{
    if (!chunks.table || box == Bounds::Huge())
        return {};
    std::call_once(indexOnce, [this] {
        try {
            readSpatialIndex();
        } catch (const std::exception& error) {
            indexProblem = error.what();
        }
    });
    if (!indexProblem.empty() && delegate)
        delegate->warning("the spatial index is not used: %s", indexProblem.c_str());
    return index ? index->find(box, chunks.table->points) : std::vector<bool>();
}

const char* LASPointReader::getFileFormatString() const
{
    return opened().fileFormat.c_str();
}

bool LASPointReader::hasWaveforms() const
{
    return opened().header.pointFormat.hasWaveform();
}

const char* LASPointReader::getWKT() const
{
    const Impl& impl = opened();
    if (const char* text = PointReader::getWKT())
        return text;
    if (impl.keys.directory.empty())
        return nullptr;
    std::call_once(impl.translateOnce, [&impl] { impl.translated = SpatialReference::toWKT(impl.keys); });
    return impl.translated ? impl.translated->c_str() : nullptr;
}

bool LASPointReader::hasUnknownCoordinateSystem() const
{
    constexpr std::size_t keyCount = 3; // index of the number of keys
    const auto& directory = opened().keys.directory;
    const bool hasKeys = !directory.empty() && (directory.size() <= keyCount || directory[keyCount] != 0);
    return hasKeys && !getWKT();
}

void LASPointReader::loadMetadata(Metadata& into, bool sanitize) const
{
    const Impl& impl = opened();
    const OpenIO io(impl.io.get());
    LASMetadata::read(into, *io, impl.header, impl.records, sanitize);
}

double LASPointReader::getTotalWork(const Bounds&, double fraction) const
{
    const auto count = static_cast<double>(opened().header.getPointCount());
    return fraction > 0 ? count : 0;
}

PointIterator* LASPointReader::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                              ProgressDelegate* delegate) const
{
    const Impl& impl = opened();
    const LASPointIterator::File file{
        impl.io.get(),  impl.header,      impl.chunks,
        getPointInfo(), impl.extraFields, impl.findChunks(PointIterator::widened(bounds, layout), delegate)};
    return new LASPointIterator(file, bounds, fraction, layout, delegate);
}

PointIterator* LASPointReader::createSampleIterator(double position, const PointInfo& layout) const
{
    const Impl& impl = opened();
    const std::uint64_t count = impl.header.getPointCount();
    const LASzipChunkTable* const table = impl.chunks.table.get();
    if (impl.header.compressed && !table && count != 0)
        return nullptr;
    auto first = static_cast<std::uint64_t>(std::clamp(position, 0.0, 1.0) * static_cast<double>(count));
    first = std::min(first, count);
    if (impl.header.compressed && count != 0) // to decode no points before it
        first = table->points[table->find(first)];
    const LASPointIterator::File file{impl.io.get(),  impl.header,      impl.chunks,
                                      getPointInfo(), impl.extraFields, {}};
    return new LASPointIterator(file, first, layout);
}

} // namespace Quillmoran

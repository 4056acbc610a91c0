#include "encode/container/BaseChunkWriter.h"

#include "common/container/BandTableFormat.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::int64_t fileLengthOffset = 8;
constexpr std::int64_t preambleSize = 16;
constexpr std::int64_t minSizeWithTable = 256 << 10;
constexpr ErrorCode headerError = ErrorCode::WaveletHeaderWrite;
constexpr ErrorCode extendedError = ErrorCode::ExtendedRecordRead;

// Writes numbers and digests their bytes.
class DigestedNumbers
{
public:
    explicit DigestedNumbers(StreamWriter& out) : m_out(out) {}

    template <class T>
    void operator()(T number)
    {
        unsigned char bytes[sizeof number];
        storeBigEndian(bytes, number);
        m_digest.add(bytes, sizeof bytes);
        m_out.write(bytes, sizeof bytes);
    }
    std::uint64_t digest() const noexcept { return m_digest.get(); }

private:
    StreamWriter& m_out;
    Digest m_digest;
};

} // namespace

BaseChunkWriter::BaseChunkWriter(IO* io, std::uint8_t fileVersion) : m_fileVersion(fileVersion)
{
    m_out.init(io, true, streamBufferSize);
}

void BaseChunkWriter::writePreamble()
{
    const unsigned char lidarFile[] = {'v', 'x', 'i', 'l', 4, 0, 0, m_fileVersion};
    m_out.write(lidarFile, sizeof lidarFile);
    m_description.add(lidarFile, sizeof lidarFile);
    m_out.put_be(std::uint64_t{0}); // replaced by finishPreamble()
}

void BaseChunkWriter::finishPreamble()
{
    const std::int64_t end = m_out.tell();
    m_out.seek(fileLengthOffset, Stream::SEEK_FROM_START);
    m_out.put_be(static_cast<std::uint64_t>(end - preambleSize));
    m_out.close(true);
}

void BaseChunkWriter::writeWaveletHeader(std::uint8_t version, std::int64_t numPoints,
                                         std::uint32_t numLevels, const Records& records)
{
    writeChunk(CHUNK_WAVELET_HEADER, m_description, [&](StreamWriter& out) {
        out.put_be(version);
        out.put_be(numPoints);
        out.put_be(static_cast<std::uint16_t>(numLevels - 1));
        out.put_be(static_cast<std::uint16_t>(records.size()));
        for (const WaveletChannelInfo* record : records)
            record->save(out, headerError);
    });
}

void BaseChunkWriter::writeWKT(const char* wkt)
{
    writeChunk(CHUNK_WKT, m_description, [&](StreamWriter& out) {
        out.put_be(smallChunkVersion);
        writeText(out, wkt);
    });
}

void BaseChunkWriter::writeExtendedHeader(const Records& records)
{
    if (std::none_of(records.begin(), records.end(), [](const WaveletChannelInfo* record) {
            return std::strlen(record->getName()) > WaveletChannelInfo::recordNameSize;
        }))
        return;
    writeChunk(CHUNK_EXTENDED_HEADER, m_description, [&](StreamWriter& out) {
        out.put_be(smallChunkVersion);
        for (const WaveletChannelInfo* record : records)
            record->saveExtended(out, extendedError);
    });
}

void BaseChunkWriter::writeDigests(unsigned blockBits, std::int64_t numPoints, std::size_t numChannels,
                                   const std::vector<std::uint64_t>& samples)
{
    writeChunk(CHUNK_DIGESTS, [&] {
        DigestedNumbers put(m_out);
        put(smallChunkVersion);
        put(static_cast<std::uint8_t>(blockBits));
        put(numPoints);
        put(static_cast<std::uint16_t>(numChannels));
        for (const std::uint64_t digest : samples)
            put(digest);
        put(m_index.get());
        put(m_description.get());
        put(put.digest());
    });
}

void BaseChunkWriter::writeBandTable(std::size_t numChannels, std::uint32_t numLevels)
{
    using namespace BandTableFormat;
    if (m_out.tell() < minSizeWithTable || m_bandSizes.size() != numChannels * numLevels)
        return;
    writeChunk(CHUNK_BAND_TABLE, [&] {
        const std::int64_t begin = m_out.tell();
        DigestedNumbers put(m_out);
        put(version);
        put(static_cast<std::uint16_t>(numChannels));
        put(static_cast<std::uint16_t>(numLevels - 1));
        for (const BandSizes& band : m_bandSizes) {
            put(band.data);
            put(band.headers);
        }
        put(put.digest());
        put(m_out.tell() - begin + static_cast<std::int64_t>(endBytes));
        put(std::uint32_t{CHUNK_BAND_TABLE});
    });
}

void BaseChunkWriter::writeText(StreamWriter& out, const char* text)
{
    const std::size_t size = text ? std::strlen(text) + 1 : 0;
    out.put_be(static_cast<std::uint32_t>(size));
    if (text)
        out.write(text, size);
}

} // namespace Quillmoran

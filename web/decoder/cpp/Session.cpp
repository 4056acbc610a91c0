#include "Session.h"

#include "decode/WaveletDecoder.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "model/ChannelNames.h"
#include <vxunpack/Base.h>
#include <vxunpack/PointIterator.h>

#include <limits>
#include <utility>

namespace Quillmoran {

void Session::open()
{
    Scoped<VX7PointReader> reader(VX7PointReader::create());
    reader->init(m_file.get());
    reader->getDecoderInfo().getDigests().verifyDescription();
    Metadata metadata;
    std::string failure;
    try {
        reader->loadMetadata(metadata, false);
    } catch (const Error& error) {
        failure = error.what(); // the points can be read
    }
    m_file->keep();
    m_metadata = std::move(metadata);
    m_metadataFailure = std::move(failure);
    m_reader = std::move(reader);
}

std::uint32_t Session::getNumLevels() const
{
    return m_reader->getDecoderInfo().getNumLevels();
}

void Session::checkLevel(std::uint32_t level) const
{
    if (level >= getNumLevels())
        QM_THROW(ErrorCode::InvalidArgument, "level %u is not in the file", level);
}

std::vector<Session::PointRange> Session::findRanges(std::uint32_t level, const Bounds& box) const
{
    checkLevel(level);
    const WaveletDecoderInfo& info = m_reader->getDecoderInfo();
    const Bounds widened = PointIterator::widened(box, m_reader->getPointInfo());
    if (info.needsIndex(widened)) {
        // All of it: a search would start again for each node that is missing.
        const IO::Location& index = info.getChunks().index;
        const IO::Range range{index.offset(), index.length()};
        m_file->willRead({&range, 1});
        info.getDigests().verifyIndex();
    }
    std::vector<PointRange> ranges;
    for (const WaveletDecoderInfo::PointRange& range : info.getPointRanges(level, widened))
        ranges.push_back({range.start, range.length});
    return ranges;
}

PointInfo Session::chooseLayout(const std::vector<std::size_t>& channels) const
{
    const PointInfo& all = m_reader->getPointInfo();
    // An argument of a query would be wrong otherwise; here it is the file.
    if (!all.hasValidXYZ())
        QM_THROW(ErrorCode::WaveletHeaderRead, "must have x, y, and z channels");
    std::vector<std::size_t> indices;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z})
        indices.push_back(static_cast<std::size_t>(all.getChannelIndex(name)));
    indices.insert(indices.end(), channels.begin(), channels.end());
    PointInfo layout;
    layout.init(all, indices.data(), indices.size());
    return layout;
}

std::size_t Session::decode(std::uint32_t level, const std::vector<PointRange>& ranges, const Bounds& box,
                            const std::vector<std::size_t>& channels, bool verifies)
{
    checkLevel(level);
    const std::int64_t levelPoints =
        m_reader->getNumPoints() == 0 ? 0 : m_reader->getDecoderInfo().getNumSamples(level);
    std::vector<WaveletDecoderInfo::PointRange> chosen;
    std::int64_t previousEnd = 0, numPoints = 0;
    for (const PointRange& range : ranges) {
        if (range.start < previousEnd || range.length <= 0 || range.start > levelPoints ||
            range.length > levelPoints - range.start)
            QM_THROW(ErrorCode::InvalidArgument, "points outside the file");
        chosen.push_back({range.start, range.length});
        previousEnd = range.start + range.length;
        numPoints += range.length;
    }
    // Of the largest sample.
    if (static_cast<std::uint64_t>(numPoints) > std::numeric_limits<std::size_t>::max() / sizeof(double))
        QM_THROW(ErrorCode::InvalidArgument, "too many points at a time");

    const PointInfo layout = chooseLayout(channels);
    const Scoped<WaveletDecoder> decoder(WaveletDecoder::create());
    decoder->takeOnly(level, std::move(chosen), false);
    decoder->init(m_reader->getDecoderInfo(), box, 1, layout, verifies, nullptr);
    m_points.init(layout, static_cast<std::size_t>(numPoints));
    return numPoints == 0 ? 0 : decoder->getNextPoints(m_points);
}

} // namespace Quillmoran

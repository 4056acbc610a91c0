#include <vxunpack/VX7PointWriter.h>

#include "encode/SourceEncoder.h"
#include "encode/container/ChunkWriter.h"
#include "files/OutputFile.h"
#include "text/TextDecimals.h"

#include <set>
#include <utility>

namespace Quillmoran {

namespace {

constexpr char pointCountKey[] = "PreCompressionPointCount";

void checkNames(const PointInfo& layout)
{
    constexpr std::size_t maxName = 65000; // bytes; length fields have 16 bits, and prefixes are added
    constexpr std::size_t maxChannels = 65535 / 3;
    if (layout.getNumChannels() > maxChannels)
        QM_THROW(ErrorCode::InvalidArgument, "more than %zu channels", maxChannels);
    std::set<std::string> seen;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const std::string name = layout.getChannel(i).getName();
        const bool isPart = name.size() >= 3 && name[0] == '@' && name[2] == '|';
        if (name.empty() || name.size() > maxName || isPart)
            QM_THROW(ErrorCode::InvalidArgument, "a channel cannot be called '%.64s'", name.c_str());
        if (!seen.insert(name).second)
            QM_THROW(ErrorCode::InvalidArgument, "two channels are called '%.64s'", name.c_str());
    }
}

} // namespace

VX7PointWriter* VX7PointWriter::create()
{
    return new VX7PointWriter;
}

void VX7PointWriter::init(PointSource* source, const char* path)
{
    if (!path)
        QM_THROW(ErrorCode::InvalidArgument, "path not given");
    PointWriter::init(source);
    m_path = path;
    m_io.reset();
}

void VX7PointWriter::init(PointSource* source, IO* io)
{
    if (!io)
        QM_THROW(ErrorCode::InvalidArgument, "io is NULL");
    PointWriter::init(source);
    m_path.reset();
    m_io = Scoped<IO>::retained(io);
}

void VX7PointWriter::setOptions(const EncodeOptions& options)
{
    options.check();
    m_options = options;
}

void VX7PointWriter::setQuantization(const double* scale, const double* offset)
{
    m_hasGrid = scale != nullptr;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        m_scale[axis] = scale ? scale[axis] : 0;
        m_offset[axis] = scale && offset ? offset[axis] : 0;
    }
}

bool VX7PointWriter::supportedChannels(const PointInfo& wanted, PointInfo& supported) const
{
    for (std::size_t i = 0; i < wanted.getNumChannels(); ++i)
        if (DataTypeUtils::isKnown(wanted.getChannel(i).getDataType()))
            supported.append(wanted.getChannel(i));
    return supported.getNumChannels() != wanted.getNumChannels();
}

namespace {

void writeChunks(IO* io, const SourceEncoder& encoder, const PointSource& source, const Metadata& metadata,
                 const FileVersions& versions)
{
    const PointEncoder& points = encoder.getPoints();
    FileContents contents;
    contents.numPoints = points.getNumPoints();
    contents.numLevels = encoder.getNumLevels();
    contents.channels = &points.getChannels();
    contents.index = &points.getIndex();
    contents.digests = &points.getDigests();
    contents.metadata = &metadata;
    contents.wkt = source.getWKT();
    contents.classNames = source.getClassIdNames();
    contents.numClassNames = source.getNumClassIdNames();
    ChunkWriter(io, versions).write(contents);
}

std::vector<VX7PointWriter::ChannelSummary> summarize(const PointEncoder& points)
{
    std::vector<VX7PointWriter::ChannelSummary> summary;
    for (const auto& channel : points.getChannels()) {
        const WaveletChannelInfo& record = channel->getRecord();
        summary.push_back({record.getName(), record.getTransformType(), record.getSubblockSize(),
                           record.getScale(), record.getOffset(), channel->getSize()});
    }
    return summary;
}

} // namespace

std::int64_t VX7PointWriter::write(const Bounds& bounds, double fraction, const PointInfo& wanted,
                                   ProgressDelegate* delegate)
{
    getSrc(); // refuses a writer without init()
    const PointInfo layout = getSupported(wanted, delegate);
    checkNames(layout);
    for (const auto& [name, choice] : m_options.byChannel)
        if (!layout.hasChannel(name.c_str()))
            QM_THROW(ErrorCode::InvalidArgument, "there is no channel '%s' to choose a coding for",
                     name.c_str());
    Metadata metadata = getGroomedMetadata(bounds, fraction); // for this file only

    OutputFile output("VX7", OutputFile::SEEKABLE);
    if (m_path)
        output.init(m_path->c_str());
    else
        output.init(m_io.get());
    output.create(); // before the work, so that an invalid output fails early
    const SourceEncoder::Query query{bounds, fraction, layout};
    SourceEncoder encoder(*getSrc(), query, {getScale(), getOffset()}, m_options, delegate);
    encoder.encode();
    const std::int64_t numPoints = encoder.getPoints().getNumPoints();
    addPointCount(metadata, numPoints);
    addDecimals(metadata, encoder.getDecimals());
    writeChunks(&output.open(), encoder, *getSrc(), metadata, m_options.versions);
    m_summary = summarize(encoder.getPoints());
    m_restart = encoder.getRestart();
    m_fileSize = output.io().size();
    output.commit();
    return numPoints;
}

void VX7PointWriter::addPointCount(Metadata& metadata, std::int64_t numPoints) const
{
    if (metadata.has(pointCountKey))
        return;
    const std::int64_t whole = getSrc()->getNumPoints();
    const std::string count = std::to_string(whole == PointSource::unknownNumPoints ? numPoints : whole);
    metadata.add(pointCountKey, nullptr, METADATA_STRING, count.c_str(), 0);
}

void VX7PointWriter::addDecimals(Metadata& metadata, const std::vector<std::pair<std::string, int>>& decimals)
{
    TextDecimals::remove(metadata); // those of the source, whose samples may have changed
    for (const auto& [channel, count] : decimals)
        TextDecimals::add(metadata, channel.c_str(), count);
}

} // namespace Quillmoran

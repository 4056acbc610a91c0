#include <vxunpack/VX7PointWriter.h>

#include "encode/BlockReader.h"
#include "encode/PointEncoder.h"
#include "encode/container/ChunkWriter.h"
#include "encode/planning/SourceSurvey.h"
#include "files/OutputFile.h"
#include "platform/ParallelLoop.h"
#include "text/TextDecimals.h"
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <set>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::size_t blockPoints = 65536;
constexpr std::size_t minBlockPoints = 64; // for points with very many channels
constexpr std::size_t maxBlockBytes = 16 << 20;
// Minimum of the coarsest level: previews need no fewer points, and each chunk costs bytes.
constexpr std::int64_t coarsestPoints = 512;
constexpr std::uint32_t maxLevels = 24;
constexpr std::int64_t maxIndexEntries = 65536;
constexpr std::int64_t smallFileEntries = 16; // minimum for a small file
constexpr std::uint32_t smallestEntry = 64;   // points
constexpr char pointCountKey[] = "PreCompressionPointCount";
constexpr const char* surveying = "surveying points";
constexpr const char* writing = "writing VX7 file";

// The work on a point, relative to reading it from the source.
constexpr double surveyWork = 0.5;
constexpr double encodeWork = 2;

// Reports the work done and throws if the operation is cancelled.
void report(ProgressDelegate* delegate, double work, const char* activity)
{
    if (!delegate)
        return;
    if (delegate->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "VX7 Write operation cancelled.");
    delegate->updateCompleted(work, activity);
}

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

// One call of write(): surveys and encodes the points of a query, then writes the chunks.
class VX7PointWriter::Encoding
{
public:
    Encoding(const VX7PointWriter& writer, const Bounds& bounds, double fraction, const PointInfo& layout,
             ProgressDelegate* delegate)
        : m_writer(writer),
          m_options(writer.m_options),
          m_source(*writer.getSrc()),
          m_bounds(bounds),
          m_fraction(fraction),
          m_layout(layout),
          m_delegate(delegate)
    {}

    double getTotalWork() const
    {
        return 2 * m_source.getTotalWork(m_bounds, m_fraction) +
               m_source.estimatePoints(m_bounds, m_fraction) * (surveyWork + encodeWork);
    }
    // Both passes over the source.
    void encode();
    void writeChunks(IO* io, const Metadata& metadata) const;

    std::int64_t getNumPoints() const { return m_encoder->getNumPoints(); }
    // The decimals of channels for which text output cannot derive them from the plan.
    const std::vector<std::pair<std::string, int>>& getDecimals() const { return m_decimals; }
    std::vector<ChannelSummary> getSummary() const;

private:
    void survey();
    BlockReader openReader() const;
    std::vector<ChannelPlan> choosePlans(const SourceSurvey& survey, const BandFormat& format) const;
    ChannelChoice getChoice(const ChannelInfo& channel) const;
    std::uint32_t chooseLevels() const;
    std::uint32_t choosePointsPerEntry(const std::vector<ChannelPlan>& plans) const;
    void noteDecimals(const SourceSurvey& survey, const std::vector<ChannelPlan>& plans);

    const VX7PointWriter& m_writer;
    const EncodeOptions& m_options;
    PointSource& m_source;
    const Bounds& m_bounds;
    double m_fraction;
    const PointInfo& m_layout;
    ProgressDelegate* m_delegate;
    std::int64_t m_numPoints = 0; // of the survey
    std::unique_ptr<PointEncoder> m_encoder;
    std::vector<std::pair<std::string, int>> m_decimals; // by channel
};

void VX7PointWriter::Encoding::encode()
{
    survey();
    // The number of points is now known. They share the estimated work.
    const double pointWork = m_numPoints == 0 ? 0
                                              : encodeWork * m_source.estimatePoints(m_bounds, m_fraction) /
                                                    static_cast<double>(m_numPoints);
    BlockReader reader = openReader();
    m_encoder->encode(reader, [&](std::size_t count) {
        report(m_delegate, static_cast<double>(count) * pointWork, writing);
    });
    if (m_encoder->getNumPoints() != m_numPoints || !m_encoder->isWithinPlans())
        QM_THROW(ErrorCode::InvalidArgument, "the source has changed while it was read");
}

void VX7PointWriter::Encoding::survey()
{
    BlockReader reader = openReader();
    const SourceSurvey survey(
        m_layout, {m_writer.getScale(), m_writer.getOffset()}, reader,
        [&](std::size_t count) { report(m_delegate, static_cast<double>(count) * surveyWork, surveying); });
    m_numPoints = survey.getNumPoints();
    const BandFormat format{chooseLevels(), m_options.versions.band == 1,
                            m_options.versions.file < FileVersions::withSingleLengths, m_options.rawPlanes};
    const std::vector<ChannelPlan> plans = choosePlans(survey, format);
    noteDecimals(survey, plans);
    m_encoder = std::make_unique<PointEncoder>(plans, format, choosePointsPerEntry(plans));
}

BlockReader VX7PointWriter::Encoding::openReader() const
{
    Scoped<PointIterator> iterator(m_source.createIterator(m_bounds, m_fraction, m_layout, m_delegate));
    const std::size_t fitting =
        std::max<std::size_t>(maxBlockBytes / (m_layout.getPointSize() + 1), minBlockPoints);
    return BlockReader(std::move(iterator), m_layout, std::min(fitting, blockPoints));
}

std::vector<ChannelPlan> VX7PointWriter::Encoding::choosePlans(const SourceSurvey& survey,
                                                               const BandFormat& format) const
{
    const std::vector<const PlanChooser::Run*> runs = survey.getRuns();
    const PlanChooser chooser(runs, format);
    std::vector<ChannelPlan> plans(m_layout.getNumChannels());
    parallelLoop(plans.size() + 1, [&](std::size_t job) {
        if (job == 0) {
            // Some sources have to translate their WKT, which is slow. No other thread reads the source now.
            m_source.getWKT();
            return;
        }
        const std::size_t i = job - 1;
        const ChannelInfo& channel = m_layout.getChannel(i);
        plans[i] = chooser.choose(channel, i, survey.getChannel(i), getChoice(channel));
    });
    return plans;
}

ChannelChoice VX7PointWriter::Encoding::getChoice(const ChannelInfo& channel) const
{
    ChannelChoice choice = m_options.all;
    const auto found = m_options.byChannel.find(channel.getName());
    if (found == m_options.byChannel.end())
        return choice;
    const ChannelChoice& own = found->second;
    if (own.transform) {
        choice.transform = own.transform;
        choice.isRequired = true;
    }
    choice.smooth |= own.smooth;
    if (own.subblockSize)
        choice.subblockSize = own.subblockSize;
    return choice;
}

std::uint32_t VX7PointWriter::Encoding::chooseLevels() const
{
    if (m_options.numLevels)
        return *m_options.numLevels;
    std::uint32_t levels = 1;
    while (levels < maxLevels && m_numPoints >> levels >= coarsestPoints)
        ++levels;
    return levels;
}

// Readers join ranges of points with a gap of at most the largest subblock, so boxes with fewer points are of
// little use.
std::uint32_t VX7PointWriter::Encoding::choosePointsPerEntry(const std::vector<ChannelPlan>& plans) const
{
    if (m_options.pointsPerEntry)
        return *m_options.pointsPerEntry;
    std::uint32_t largest = smallestEntry;
    for (const ChannelPlan& plan : plans)
        for (const KernelPlan& part : plan)
            largest = std::max(largest, part.subblockSize);
    std::int64_t points = largest;
    while (points > smallestEntry && m_numPoints / points < smallFileEntries)
        points /= 2;
    while (m_numPoints / points >= maxIndexEntries)
        points *= 2;
    return static_cast<std::uint32_t>(std::min<std::int64_t>(points, INT32_MAX));
}

// Transforms that smooth are excluded: their coarse levels hold averages, which have other decimals.
void VX7PointWriter::Encoding::noteDecimals(const SourceSurvey& survey, const std::vector<ChannelPlan>& plans)
{
    for (std::size_t i = 0; i < plans.size(); ++i) {
        const ChannelInfo& channel = m_layout.getChannel(i);
        const KernelPlan& plan = plans[i].front();
        if (!DataTypeUtils::isFloat(channel.getDataType()) || TransformUtils::hasUpdate(plan.transform))
            continue;
        if (const int decimals = survey.getChannel(i).getHiddenDecimals(plan.scale))
            m_decimals.emplace_back(channel.getName(), decimals);
    }
}

void VX7PointWriter::Encoding::writeChunks(IO* io, const Metadata& metadata) const
{
    FileContents contents;
    contents.numPoints = m_encoder->getNumPoints();
    contents.numLevels = chooseLevels();
    contents.channels = &m_encoder->getChannels();
    contents.index = &m_encoder->getIndex();
    contents.digests = &m_encoder->getDigests();
    contents.metadata = &metadata;
    contents.wkt = m_source.getWKT();
    contents.classNames = m_source.getClassIdNames();
    contents.numClassNames = m_source.getNumClassIdNames();
    ChunkWriter(io, m_options.versions).write(contents);
}

std::vector<VX7PointWriter::ChannelSummary> VX7PointWriter::Encoding::getSummary() const
{
    std::vector<ChannelSummary> summary;
    for (const auto& channel : m_encoder->getChannels()) {
        const WaveletChannelInfo& record = channel->getRecord();
        summary.push_back({record.getName(), record.getTransformType(), record.getSubblockSize(),
                           record.getScale(), record.getOffset(), channel->getSize()});
    }
    return summary;
}

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
    Encoding encoding(*this, bounds, fraction, layout, delegate);
    if (delegate)
        delegate->setTotal(encoding.getTotalWork());
    Metadata metadata = getGroomedMetadata(bounds, fraction); // for this file only

    OutputFile output("VX7", OutputFile::SEEKABLE);
    if (m_path)
        output.init(m_path->c_str());
    else
        output.init(m_io.get());
    output.create(); // before the work, so that an invalid output fails early
    encoding.encode();
    addPointCount(metadata, encoding.getNumPoints());
    addDecimals(metadata, encoding.getDecimals());
    encoding.writeChunks(&output.open(), metadata);
    m_summary = encoding.getSummary();
    m_fileSize = output.io().size();
    output.commit();
    return encoding.getNumPoints();
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

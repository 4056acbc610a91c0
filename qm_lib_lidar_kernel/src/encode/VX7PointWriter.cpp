#include <vxunpack/VX7PointWriter.h>

#include "encode/BlockReader.h"
#include "encode/PointEncoder.h"
#include "encode/container/ChunkWriter.h"
#include "encode/planning/SourceSurvey.h"
#include "files/PartialFile.h"
#include "platform/ParallelLoop.h"
#include "text/TextDecimals.h"
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <set>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::size_t blockPoints = 65536;
constexpr std::size_t smallestBlock = 64; // for points of very many channels
constexpr std::size_t mostBlockBytes = 16 << 20;
// The coarsest level keeps at least as many points: previews want no fewer, and chunks cost bytes.
constexpr std::int64_t coarsestPoints = 512;
constexpr std::uint32_t mostLevels = 24;
constexpr std::int64_t mostIndexEntries = 65536;
constexpr std::int64_t smallFileEntries = 16; // that a small file should have
constexpr std::uint32_t smallestEntry = 64;   // points
constexpr char pointCountKey[] = "PreCompressionPointCount";
constexpr const char* surveying = "surveying points";
constexpr const char* writing = "writing VX7 file";

// The writer's own work on a point, in units of what a source has with it.
constexpr double surveyWork = 0.5;
constexpr double encodeWork = 2;

// Adds the work done and ends a run that is to end.
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
    constexpr std::size_t longestName = 65000; // a length field has 16 bits, and prefixes come on top
    constexpr std::size_t mostChannels = 65535 / 3;
    if (layout.getNumChannels() > mostChannels)
        QM_THROW(ErrorCode::InvalidArgument, "more than %zu channels", mostChannels);
    std::set<std::string> seen;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const std::string name = layout.getChannel(i).getName();
        const bool isPart = name.size() >= WaveletChannelInfo::prefixSize && name[0] == '@' && name[2] == '|';
        if (name.empty() || name.size() > longestName || isPart)
            QM_THROW(ErrorCode::InvalidArgument, "a channel cannot be called '%.64s'", name.c_str());
        if (!seen.insert(name).second)
            QM_THROW(ErrorCode::InvalidArgument, "two channels are called '%.64s'", name.c_str());
    }
}

// Where the chunks go: a file that takes its name when it is complete, or the caller's store.
class OutputFile
{
public:
    OutputFile(const std::optional<std::string>& path, const Scoped<IO>& io) : m_io(io)
    {
        if (!path)
            return;
        m_partial.emplace(path->c_str());
        m_partial->requireSeekable("VX7");
        m_io = Scoped<IO>::retained(m_partial->io());
    }
    ~OutputFile()
    {
        if (m_isBegun && !m_isFinished)
            m_io->unlink();
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Until then a caller's store is untouched, and so is a file that is written directly.
    IO* begin() noexcept
    {
        m_isBegun = true;
        return m_io.get();
    }
    void finish()
    {
        if (m_partial)
            m_partial->finish();
        m_isFinished = true;
    }

private:
    std::optional<PartialFile> m_partial;
    Scoped<IO> m_io;
    bool m_isBegun = false;
    bool m_isFinished = false;
};

} // namespace

VX7PointWriter* VX7PointWriter::create()
{
    return new VX7PointWriter;
}

void VX7PointWriter::init(PointSource* source, const char* path)
{
    PointWriter::init(source);
    m_path = path;
    m_io.reset();
}

void VX7PointWriter::init(PointSource* source, IO* io)
{
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

std::int64_t VX7PointWriter::write(const Bounds& bounds, double fraction, const PointInfo& wanted,
                                   ProgressDelegate* delegate)
{
    const PointInfo layout = getSupported(wanted, delegate);
    checkNames(layout);
    for (const auto& [name, choice] : m_options.byChannel)
        if (!layout.hasChannel(name.c_str()))
            QM_THROW(ErrorCode::InvalidArgument, "there is no channel '%s' to choose a coding for",
                     name.c_str());
    if (delegate)
        delegate->setTotal(2 * getSrc()->getTotalWork(bounds, fraction) +
                           getSrc()->estimatePoints(bounds, fraction) * (surveyWork + encodeWork));
    groomMetadata(bounds, fraction);

    OutputFile output(m_path, m_io); // an output that cannot be made is noticed before the work
    m_decimals.clear();
    const std::unique_ptr<PointEncoder> encoder = encode(bounds, fraction, layout, delegate);
    addPointCount(encoder->getNumPoints());
    addDecimals();
    writeChunks(output.begin(), *encoder);
    summarise(*encoder);
    output.finish();
    return encoder->getNumPoints();
}

std::unique_ptr<PointEncoder> VX7PointWriter::encode(const Bounds& bounds, double fraction,
                                                     const PointInfo& layout, ProgressDelegate* delegate)
{
    std::int64_t numPoints = 0;
    std::unique_ptr<PointEncoder> encoder;
    {
        BlockReader reader = openReader(bounds, fraction, layout, delegate);
        const SourceSurvey survey(layout, {getScale(), getOffset()}, reader, [&](std::size_t count) {
            report(delegate, static_cast<double>(count) * surveyWork, surveying);
        });
        numPoints = survey.getNumPoints();
        const BandFormat format{chooseLevels(numPoints), m_options.versions.band == 1,
                                m_options.versions.file < FileVersions::withSingleLengths,
                                m_options.rawPlanes};
        const std::vector<ChannelPlan> plans = choosePlans(survey, layout, format);
        noteDecimals(survey, layout, plans);
        encoder = std::make_unique<PointEncoder>(plans, format, choosePointsPerEntry(numPoints, plans));
    }
    // The number of points is known by now. They share the work that was estimated.
    const double pointWork = numPoints == 0 ? 0
                                            : encodeWork * getSrc()->estimatePoints(bounds, fraction) /
                                                  static_cast<double>(numPoints);
    BlockReader reader = openReader(bounds, fraction, layout, delegate);
    encoder->encode(reader, [&](std::size_t count) {
        report(delegate, static_cast<double>(count) * pointWork, writing);
    });
    if (encoder->getNumPoints() != numPoints || !encoder->isWithinPlans())
        QM_THROW(ErrorCode::InvalidArgument, "the source has changed while it was read");
    return encoder;
}

BlockReader VX7PointWriter::openReader(const Bounds& bounds, double fraction, const PointInfo& layout,
                                       ProgressDelegate* delegate) const
{
    Scoped<PointIterator> iterator(getSrc()->createIterator(bounds, fraction, layout, delegate));
    const std::size_t room =
        std::max<std::size_t>(mostBlockBytes / (layout.getPointSize() + 1), smallestBlock);
    return BlockReader(std::move(iterator), layout, std::min(room, blockPoints));
}

std::vector<ChannelPlan> VX7PointWriter::choosePlans(const SourceSurvey& survey, const PointInfo& layout,
                                                     const BandFormat& format) const
{
    const std::vector<const PlanChooser::Run*> runs = survey.getRuns();
    const PlanChooser chooser(runs, format);
    std::vector<ChannelPlan> plans(layout.getNumChannels());
    parallelLoop(plans.size() + 1, [&](std::size_t job) {
        if (job == 0) {
            // Some sources have to translate theirs, which takes as long as a good many points. Nobody reads
            // now.
            getSrc()->getWKT();
            return;
        }
        const std::size_t i = job - 1;
        const ChannelInfo& channel = layout.getChannel(i);
        plans[i] = chooser.choose(channel, static_cast<int>(i), survey.getChannel(i), getChoice(channel));
    });
    return plans;
}

ChannelChoice VX7PointWriter::getChoice(const ChannelInfo& channel) const
{
    ChannelChoice choice = m_options.all;
    const auto found = m_options.byChannel.find(channel.getName());
    if (found == m_options.byChannel.end())
        return choice;
    const ChannelChoice& own = found->second;
    if (own.transform) {
        choice.transform = own.transform;
        choice.mustSuit = true;
    }
    choice.smooth |= own.smooth;
    if (own.subblockSize)
        choice.subblockSize = own.subblockSize;
    return choice;
}

std::uint32_t VX7PointWriter::chooseLevels(std::int64_t numPoints) const
{
    if (m_options.numLevels)
        return *m_options.numLevels;
    std::uint32_t levels = 1;
    while (levels < mostLevels && numPoints >> levels >= coarsestPoints)
        ++levels;
    return levels;
}

// Ranges of points are joined when they are no further apart than the largest subblock, so finer boxes than
// that tell a reader little.
std::uint32_t VX7PointWriter::choosePointsPerEntry(std::int64_t numPoints,
                                                   const std::vector<ChannelPlan>& plans) const
{
    if (m_options.pointsPerEntry)
        return *m_options.pointsPerEntry;
    std::uint32_t largest = smallestEntry;
    for (const ChannelPlan& plan : plans)
        for (const KernelPlan& part : plan)
            largest = std::max(largest, part.subblockSize);
    std::int64_t points = largest;
    while (points > smallestEntry && numPoints / points < smallFileEntries)
        points /= 2;
    while (numPoints / points >= mostIndexEntries)
        points *= 2;
    return static_cast<std::uint32_t>(std::min<std::int64_t>(points, INT32_MAX));
}

void VX7PointWriter::addPointCount(std::int64_t numPoints)
{
    Metadata metadata = getMetadata();
    if (metadata.has(pointCountKey))
        return;
    const std::int64_t whole = getSrc()->getNumPoints();
    const std::string count = std::to_string(whole == PointSource::unknownNumPoints ? numPoints : whole);
    metadata.add(pointCountKey, nullptr, METADATA_STRING, count.c_str(), 0);
    setMetadata(metadata);
}

// Coarse levels of transforms that smooth hold averages, which have decimals of their own.
void VX7PointWriter::noteDecimals(const SourceSurvey& survey, const PointInfo& layout,
                                  const std::vector<ChannelPlan>& plans)
{
    for (std::size_t i = 0; i < plans.size(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        const KernelPlan& plan = plans[i].front();
        if (!DataTypeUtils::isFloat(channel.getDataType()) || TransformUtils::hasUpdate(plan.transform))
            continue;
        if (const int decimals = survey.getChannel(i).getHiddenDecimals(plan.scale))
            m_decimals.emplace_back(channel.getName(), decimals);
    }
}

void VX7PointWriter::addDecimals()
{
    Metadata metadata = getMetadata();
    TextDecimals::remove(metadata); // those of the source, whose samples may have been changed
    for (const auto& [channel, decimals] : m_decimals)
        TextDecimals::add(metadata, channel.c_str(), decimals);
    setMetadata(metadata);
}

void VX7PointWriter::writeChunks(IO* io, const PointEncoder& encoder) const
{
    FileContents contents;
    contents.numPoints = encoder.getNumPoints();
    contents.numLevels = chooseLevels(encoder.getNumPoints());
    contents.channels = &encoder.getChannels();
    contents.index = &encoder.getIndex();
    contents.metadata = &getMetadata();
    contents.wkt = getSrc()->getWKT();
    contents.classNames = getSrc()->getClassIdNames();
    contents.numClassNames = getSrc()->getNumClassIdNames();
    ChunkWriter(io, m_options.versions).write(contents);
}

void VX7PointWriter::summarise(const PointEncoder& encoder)
{
    m_summary.clear();
    for (const auto& channel : encoder.getChannels()) {
        const WaveletChannelInfo& info = channel->getInfo();
        m_summary.push_back({info.getName(), info.getTransformType(), info.getSubblockSize(), info.getScale(),
                             info.getOffset(), channel->getSize()});
    }
}

} // namespace Quillmoran

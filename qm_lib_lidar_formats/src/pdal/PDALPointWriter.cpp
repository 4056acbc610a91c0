#include "pdal/PDALPointWriter.h"

#include "model/ChannelNames.h"
#include "pdal/BPFHeader.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>

namespace Quillmoran {

namespace {

constexpr const char* activity = "writing BPF file";
constexpr const char* coordinates[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
// Differences of up to this number of units, and those near them, are stored exactly.
constexpr double exactUnits = 1 << 22;

// Whether values of the type can need more digits than a float has.
bool needsOrigin(DataType type)
{
    return DataTypeUtils::getSize(type) >= 4 && type != FLOAT32;
}

} // namespace

PDALPointWriter* PDALPointWriter::create()
{
    return new PDALPointWriter;
}

void PDALPointWriter::init(PointSource* source, const char* outputFile)
{
    PointWriter::init(source);
    m_output.init(outputFile);
    if (std::strchr(outputFile, '#'))
        QM_THROW(ErrorCode::General, "the name of a BPF file cannot hold a '#': '%s'", outputFile);
}

bool PDALPointWriter::supportedChannels(const PointInfo& wanted, PointInfo& supported) const
{
    PointInfo kept;
    const auto dimensions = PDALDimensions::ofLayout(wanted);
    for (std::size_t i = 0; i < wanted.getNumChannels(); ++i) {
        const ChannelInfo& channel = wanted.getChannel(i);
        if (dimensions[i].name.size() <= BPFHeader::maxLabelLength && !kept.hasChannel(channel.getName()) &&
            kept.getNumChannels() < BPFHeader::maxDimensions)
            kept.append(channel);
    }
    supported = std::move(kept);
    return true;
}

void PDALPointWriter::writeBegin(const PointInfo& layout)
{
    checkQuantization();
    m_total = 0;
    m_warned = false;
    chooseColumns(layout);
    m_values.assign(m_columns.size(), std::vector<double>(PDALBPFOutput::viewSize));
    openOutput();
}

void PDALPointWriter::chooseColumns(const PointInfo& layout)
{
    const auto dimensions = PDALDimensions::ofLayout(layout);
    m_columns.clear();
    const auto add = [&](std::size_t channel, double scale) {
        m_columns.push_back({dimensions[channel].name, channel, dimensions[channel].factor, scale, 0});
    };
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double scale = getScale()[axis];
        add(static_cast<std::size_t>(layout.getChannelIndex(coordinates[axis])),
            std::isnormal(scale) ? scale : 1);
    }
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (std::none_of(m_columns.begin(), m_columns.begin() + 3,
                         [i](const Column& column) { return column.channel == i; }))
            add(i, 1);
}

void PDALPointWriter::openOutput()
{
    try {
        m_output.open();
    } catch (const Error& error) {
        if (error.code() == ErrorCode::OutputCreate)
            throw;
        QM_THROW(ErrorCode::OutputCreate, "Unable to create output %s. %s", m_output.path(), error.what());
    }
    // PDAL opens files by name. This name leads to the open file, even if another file has taken its path.
    const std::string path = "/proc/self/fd/" + std::to_string(m_output.file()->descriptor());
    // The header is written last, which a device does not support.
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        QM_THROW(ErrorCode::OutputCreate, "Unable to create output %s. BPF output needs a regular file",
                 m_output.path());
    std::vector<std::string> dimensions;
    for (const Column& column : m_columns)
        dimensions.push_back(column.dimension);
    const double scales[] = {m_columns[0].scale, m_columns[1].scale, m_columns[2].scale};
    m_bpf = std::make_unique<PDALBPFOutput>(path.c_str(), dimensions, scales, getSrc()->getWKT());
}

void PDALPointWriter::chooseOrigins(const PointData& block, std::size_t count)
{
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        Column& column = m_columns[i];
        if (!needsOrigin(block.getChannel(column.channel).getDataType()))
            continue;
        const std::size_t first = std::min(count, PDALBPFOutput::viewSize);
        fillColumn(column, block, 0, first, m_values[i]);
        const auto end = m_values[i].begin() + static_cast<std::ptrdiff_t>(first);
        const auto found = std::find_if(m_values[i].begin(), end, [](double v) { return std::isfinite(v); });
        const double near = found == end ? 0 : *found;
        if (i >= 3)
            column.origin = std::trunc(near);
        else // the writer's offset if it is near enough
            column.origin = std::fabs(near - getOffset()[i]) < exactUnits * std::fabs(column.scale)
                                ? getOffset()[i]
                                : near;
    }
}

void PDALPointWriter::fillColumn(const Column& column, const PointData& block, std::size_t first,
                                 std::size_t count, std::vector<double>& values) const
{
    const ChannelData& channel = block.getChannel(column.channel);
    visitDataType(channel.getDataType(), [&](auto zero) {
        using T = decltype(zero);
        const T* const samples = static_cast<const T*>(channel.getData()) + first;
        std::transform(samples, samples + count, values.begin(), [&column](T sample) {
            return static_cast<double>(sample) * column.factor - column.origin;
        });
    });
}

void PDALPointWriter::writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate)
{
    m_output.checkCancelled(delegate, activity);
    if (delegate && !m_warned && !m_bpf->keepsCoordinateSystem())
        delegate->warning("the output format does not support the coordinate system");
    m_warned = true;
    if (m_total == 0)
        chooseOrigins(block, count);
    m_total += static_cast<std::int64_t>(count);
    if (m_total > BPFHeader::maxPoints)
        QM_THROW(ErrorCode::NotRepresentable, "Attempt to write 2 ^ 31 or more points to a BPF file.");
    for (std::size_t first = 0; first < count; first += PDALBPFOutput::viewSize) {
        const std::size_t size = std::min(PDALBPFOutput::viewSize, count - first);
        for (std::size_t i = 0; i < m_columns.size(); ++i)
            fillColumn(m_columns[i], block, first, size, m_values[i]);
        m_bpf->write(m_values, size);
    }
    if (delegate)
        delegate->updateCompleted(static_cast<double>(count), activity);
}

void PDALPointWriter::writeEnd(std::int64_t, const Bounds&)
{
    m_bpf->finish();
    m_bpf.reset();
    completeFile();
    m_output.commit();
}

// PDAL does not report why a write failed. Another write fails for the same reason.
void PDALPointWriter::throwIncomplete() const
{
    const std::vector<char> bytes(1 << 20);
    try {
        writeFully(m_output.io(), m_output.io().size(), bytes.data(), bytes.size());
    } catch (const Error& error) {
        QM_THROW(ErrorCode::PointWrite, "Unable to write point: %s", error.what());
    }
    QM_THROW(ErrorCode::PointWrite, "Unable to write point: PDAL failed path = %s", m_output.path());
}

void PDALPointWriter::completeFile()
{
    // PDAL does not detect a full disk; its header then has more points than the file.
    BPFHeader header;
    bool isComplete = false;
    try {
        header.read(m_output.io());
        isComplete = header.numPoints == m_total;
    } catch (const Error&) {
        isComplete = false;
    }
    if (!isComplete)
        throwIncomplete();
    std::vector<BPFHeader::Origin> origins;
    for (const Column& column : m_columns)
        origins.push_back({column.dimension, column.origin, column.scale});
    if (m_total != 0)
        header.addOrigins(m_output.io(), origins);
}

void PDALPointWriter::writeAborted() noexcept
{
    m_bpf.reset();
    m_output.abort();
}

} // namespace Quillmoran

#include "pdal/PDALPointIterator.h"

#include "pdal/BPFUnpacker.h"
#include "platform/OpenIO.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <cmath>
#include <limits>

namespace Quillmoran {

namespace {

constexpr std::size_t sliceSize = 4096; // points

template <class T>
T toSample(double value, const ChannelInfo& channel)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        const double rounded = std::floor(value + 0.5);
        using Limits = std::numeric_limits<T>;
        if (!(rounded >= static_cast<double>(Limits::min()) && rounded < std::ldexp(1.0, Limits::digits)))
            QM_THROW(ErrorCode::BPFRead, "a value of '%s' is outside the range in the header",
                     channel.getName());
        return static_cast<T>(rounded);
    }
}

} // namespace

PDALPointIterator::PDALPointIterator(const char* path, const BPFHeader& header, const PointInfo& channels,
                                     const Bounds& bounds, double fraction, const PointInfo& layout,
                                     ProgressDelegate* delegate)
{
    init(bounds, fraction, layout, delegate);
    selectDimensions(channels, layout);
    if (getFraction() == 0)
        return;
    openInput(path, header);
    m_values.resize(header.dimensions.size());
    m_slice.init(layout, sliceSize);
}

void PDALPointIterator::openInput(const char* path, const BPFHeader& header)
{
    if (header.compression != BPFCompression::None) {
        const Scoped<FileIO::Imp> packed(FileIO::create());
        packed->init(path, "r");
        m_plain = unpackBPF(*OpenIO(packed.get()), header);
        path = m_plain->path();
    }
    m_input = std::make_unique<PDALBPFInput>(path, header.dimensions);
}

void PDALPointIterator::selectDimensions(const PointInfo& channels, const PointInfo& layout)
{
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& wanted = layout.getChannel(i);
        const int dimension = channels.getChannelIndex(wanted.getName());
        if (dimension < 0)
            QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
        m_dimensions.push_back(static_cast<std::size_t>(dimension));
        if (wanted.getDataType() != channels.getChannel(m_dimensions.back()).getDataType())
            QM_THROW(ErrorCode::ChannelType, "channel '%s' has another type in the source", wanted.getName());
    }
}

void PDALPointIterator::store(std::size_t point)
{
    for (std::size_t i = 0; i < m_dimensions.size(); ++i) {
        ChannelData& channel = m_slice.getChannel(i);
        const double value = m_values[m_dimensions[i]];
        visitDataType(channel.getDataType(), [&](auto zero) {
            using T = decltype(zero);
            static_cast<T*>(channel.getData())[point] = toSample<T>(value, channel);
        });
    }
}

bool PDALPointIterator::refill()
{
    m_cursor = m_fill = 0;
    if (!m_input)
        return false;
    if (getDelegate() && getDelegate()->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    while (m_fill < sliceSize && m_input->next(m_values.data()))
        store(m_fill++);
    if (getDelegate())
        getDelegate()->updateCompleted(static_cast<double>(m_fill), "reading BPF file");
    return m_fill != 0;
}

std::size_t PDALPointIterator::getNextPoints(PointData& buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.getNumSamples()) {
        if (m_cursor == m_fill && !refill())
            break;
        filled = takeKept(m_slice.getX(), m_slice.getY(), m_slice.getZ(), m_cursor, m_fill, filled,
                          buffer.getNumSamples(), [&](std::size_t to, std::size_t first, std::size_t count) {
                              PointData::copy(buffer, to, m_slice, first, count);
                          });
    }
    return filled;
}

} // namespace Quillmoran

#include "filters/PointRows.h"

#include <vxunpack/Base.h>

#include <cstring>

namespace Quillmoran {

namespace {

template <class T>
void scatter(unsigned char* rows, std::size_t rowSize, const T* samples, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(rows + i * rowSize, samples + i, sizeof(T));
}

template <class T>
void gather(T* samples, const unsigned char* rows, std::size_t rowSize, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(samples + i, rows + i * rowSize, sizeof(T));
}

} // namespace

PointRows::PointRows(const PointInfo& layout)
{
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const DataType type = layout.getChannel(i).getDataType();
        if (!DataTypeUtils::isKnown(type))
            QM_THROW(ErrorCode::General, "unsupported datatype");
        m_types.push_back(type);
        m_rowSize += DataTypeUtils::getSize(type);
    }
}

void PointRows::checkLayout(const PointData& block) const
{
    if (block.getNumChannels() < m_types.size())
        QM_THROW(ErrorCode::InvalidArgument, "number of channels must the same");
    for (std::size_t i = 0; i < m_types.size(); ++i)
        if (block.getChannel(i).getDataType() != m_types[i])
            QM_THROW(ErrorCode::InvalidArgument, "datatype are not the same");
}

void PointRows::pack(unsigned char* rows, const PointData& block, std::size_t first, std::size_t count) const
{
    checkLayout(block);
    for (std::size_t i = 0; i < m_types.size(); ++i) {
        visitDataType(m_types[i], [&](auto zero) {
            const auto* const samples = static_cast<const decltype(zero)*>(block.getChannel(i).getData());
            scatter(rows, m_rowSize, samples + first, count);
        });
        rows += DataTypeUtils::getSize(m_types[i]);
    }
}

void PointRows::unpack(PointData& block, std::size_t first, const unsigned char* rows,
                       std::size_t count) const
{
    checkLayout(block);
    for (std::size_t i = 0; i < m_types.size(); ++i) {
        visitDataType(m_types[i], [&](auto zero) {
            auto* const samples = static_cast<decltype(zero)*>(block.getChannel(i).getData());
            gather(samples + first, rows, m_rowSize, count);
        });
        rows += DataTypeUtils::getSize(m_types[i]);
    }
}

} // namespace Quillmoran

#include "common/container/WaveletChannelInfo.h"

#include "platform/Stream.h"
#include <vxunpack/PointData.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <limits>

namespace Quillmoran {

namespace {

constexpr const char* prefixes[] = {"", "@f|", "@d|", "@e|", "@s|"}; // by ChannelPart

std::uint64_t magnitude(std::int64_t value)
{
    return value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
}

} // namespace

const char* WaveletChannelInfo::getPrefix(ChannelPart part) noexcept
{
    return prefixes[static_cast<std::size_t>(part)];
}

ChannelPart WaveletChannelInfo::getPart() const noexcept
{
    for (std::size_t part = 1; part < std::size(prefixes); ++part)
        if (m_name.compare(0, std::strlen(prefixes[part]), prefixes[part]) == 0)
            return static_cast<ChannelPart>(part);
    return ChannelPart::Whole;
}

const char* WaveletChannelInfo::getPointName() const noexcept
{
    return m_name.c_str() + std::strlen(getPrefix(getPart()));
}

void WaveletChannelInfo::init(const char* name, DataType dataType, int bits, TransformType transform,
                              std::uint32_t subblockSize, double offset, double scale)
{
    m_name = name;
    m_dataType = dataType;
    m_bits = bits;
    m_transform = transform;
    m_subblockSize = subblockSize;
    m_offset = offset;
    m_scale = scale;
    m_kernelDataType = TransformUtils::isInteger(transform) ? integerKernel(bits) : dataType;
    if (DataTypeUtils::isFloat(m_kernelDataType)) {
        m_minimum.real = std::numeric_limits<double>::infinity();
        m_maximum.real = -std::numeric_limits<double>::infinity();
    } else {
        m_minimum.integer = INT64_MAX;
        m_maximum.integer = INT64_MIN;
    }
}

DataType WaveletChannelInfo::integerKernel(int bits) const
{
    const int total = bits + TransformUtils::getHeadroom(m_transform);
    return total <= 15 ? SINT16 : total <= 31 ? SINT32 : SINT64;
}

int WaveletChannelInfo::countBits(std::int64_t low, std::int64_t high) noexcept
{
    // Unsigned, because a range of 2^63 or more overflows, and so do the limits of a channel without samples
    // (the minimum is above the maximum). Both result in the widest kernel.
    const std::uint64_t range =
        low <= high ? static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low) : 0;
    return static_cast<int>(std::bit_width(std::max({range, magnitude(low), magnitude(high)})));
}

void WaveletChannelInfo::deriveKernel()
{
    if (TransformUtils::isFloatingPoint(m_transform)) {
        m_kernelDataType = m_dataType;
        m_bits = static_cast<int>(8 * DataTypeUtils::getSize(m_dataType));
        m_offset = m_scale = 0;
        return;
    }
    m_bits = countBits(m_minimum.integer, m_maximum.integer);
    const ChannelPart part = getPart();
    m_kernelDataType = part == ChannelPart::Fraction64   ? SINT64
                       : part == ChannelPart::Fraction32 ? SINT32
                                                         : integerKernel(m_bits);
}

bool WaveletChannelInfo::isQuantized() const noexcept
{
    return DataTypeUtils::isFloat(m_dataType) && !DataTypeUtils::isFloat(m_kernelDataType);
}

int WaveletChannelInfo::save(StreamWriter& writer, ErrorCode code) const
{
    char name[recordNameSize] = {};
    m_name.copy(name, sizeof name);
    bool written = writer.write(name, sizeof name) == sizeof name;
    written &= writer.put_be(static_cast<std::uint16_t>(m_dataType));
    written &= writer.put_be(m_transform);
    written &= writer.put_be(m_subblockSize);
    written &= writer.put_be(m_minimum.integer); // or the bits of the double
    written &= writer.put_be(m_maximum.integer);
    const bool quantized = isQuantized();
    if (quantized) {
        written &= writer.put_be(m_offset);
        written &= writer.put_be(m_scale);
    }
    if (!written)
        QM_THROW(code, "bad write -- channel info");
    return quantized ? quantizedRecordSize : recordSize;
}

int WaveletChannelInfo::load(StreamReader& reader, ErrorCode code)
{
    char name[recordNameSize];
    std::uint16_t dataType = 0;
    if (reader.read(name, sizeof name) != sizeof name || !reader.get_be(dataType) ||
        !reader.get_be(m_transform) || !reader.get_be(m_subblockSize) || !reader.get_be(m_minimum.integer) ||
        !reader.get_be(m_maximum.integer))
        QM_THROW(code, "bad read -- channel info");
    m_name.assign(name, strnlen(name, sizeof name));
    m_dataType = static_cast<DataType>(dataType);
    m_offset = m_scale = 0;
    const bool quantized = DataTypeUtils::isFloat(m_dataType) && TransformUtils::isInteger(m_transform);
    if (quantized && (!reader.get_be(m_offset) || !reader.get_be(m_scale)))
        QM_THROW(code, "bad read -- channel info");
    deriveKernel();
    return quantized ? quantizedRecordSize : recordSize;
}

int WaveletChannelInfo::saveExtended(StreamWriter& writer, ErrorCode code) const
{
    const auto length = static_cast<std::uint16_t>(m_name.size());
    if (length != m_name.size() || !writer.put_be(length))
        QM_THROW(code, "bad write -- channel name length");
    if (writer.write(m_name.data(), length) != length)
        QM_THROW(code, "bad write -- channel name");
    return length + 2;
}

int WaveletChannelInfo::loadExtended(StreamReader& reader, ErrorCode code)
{
    std::uint16_t length = 0;
    if (!reader.get_be(length))
        QM_THROW(code, "bad read -- channel name length");
    std::string name(length, '\0');
    if (reader.read(name.data(), length) != length)
        QM_THROW(code, "bad read -- channel name");
    m_name.assign(name, 0, name.find('\0')); // a NUL ends a name
    return length + 2;
}

void WaveletChannelInfo::updateMinMax(const ChannelData& kernel, std::size_t count)
{
    const bool known = visitDataType(kernel.getDataType(), [&](auto zero) {
        using T = decltype(zero);
        if constexpr (std::is_signed_v<T>) {
            const auto* samples = static_cast<const T*>(kernel.getData());
            using Limits = std::numeric_limits<T>;
            T low = std::is_integral_v<T> ? Limits::max() : Limits::infinity();
            T high = std::is_integral_v<T> ? Limits::lowest() : -Limits::infinity();
            for (std::size_t i = 0; i < count; ++i) {
                low = samples[i] < low ? samples[i] : low; // NaNs are ignored
                high = samples[i] > high ? samples[i] : high;
            }
            if (count == 0)
                return;
            if constexpr (std::is_integral_v<T>) {
                m_minimum.integer = std::min<std::int64_t>(m_minimum.integer, low);
                m_maximum.integer = std::max<std::int64_t>(m_maximum.integer, high);
            } else {
                m_minimum.real = std::min<double>(m_minimum.real, low);
                m_maximum.real = std::max<double>(m_maximum.real, high);
            }
        } else {
            QM_THROW(ErrorCode::KernelDataType, "bad kernel datatype");
        }
    });
    if (!known)
        QM_THROW(ErrorCode::KernelDataType, "bad kernel datatype");
}

} // namespace Quillmoran

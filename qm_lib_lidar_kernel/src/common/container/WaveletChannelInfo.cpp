#include "common/container/WaveletChannelInfo.h"

#include "platform/Stream.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace Quillmoran {

namespace {

// How IEEE 754 numbers are cut into parts.
template <class Float>
struct Layout;
template <>
struct Layout<float>
{
    using Bits = std::uint32_t;
    using Kernel = std::int32_t;
    static constexpr int fractionBits = 23;
    static constexpr int exponentBits = 8;
};
template <>
struct Layout<double>
{
    using Bits = std::uint64_t;
    using Kernel = std::int64_t;
    static constexpr int fractionBits = 52;
    static constexpr int exponentBits = 11;
};

template <class Bits>
constexpr Bits lowMask(int bits)
{
    return (Bits{1} << bits) - 1;
}

template <class Float, class Kernel>
void extractPart(Kernel* __restrict kernel, const void* samples, std::size_t count, int shift, int width)
{
    using Bits = typename Layout<Float>::Bits;
    const auto* bytes = static_cast<const unsigned char*>(samples);
    const Bits mask = lowMask<Bits>(width);
    for (std::size_t i = 0; i < count; ++i) {
        Bits bits;
        std::memcpy(&bits, bytes + i * sizeof bits, sizeof bits);
        kernel[i] = static_cast<Kernel>((bits >> shift) & mask);
    }
}

// Each part is cut out into whatever integer the kernel has.
template <class Float>
void extract(ChannelData& kernel, const ChannelData& channel, std::size_t count, ConversionAction action)
{
    using Parts = Layout<Float>;
    int shift = 0;
    int width = Parts::fractionBits;
    if (action != CONVERT_EXTRACT_FRACTION) {
        const bool isExponent = action == CONVERT_EXTRACT_EXPONENT;
        shift = isExponent ? Parts::fractionBits : Parts::fractionBits + Parts::exponentBits;
        width = isExponent ? Parts::exponentBits : 1;
    }
    visitDataType(kernel.getDataType(), [&](auto zero) {
        using T = decltype(zero);
        if constexpr (std::is_integral_v<T> && std::is_signed_v<T> && sizeof(T) >= 2)
            extractPart<Float>(static_cast<T*>(kernel.getData()), channel.getData(), count, shift, width);
    });
}

template <class Float>
void merge(void* samples, const ChannelData& fraction, const std::int16_t* exponent, const std::int16_t* sign,
           std::size_t count)
{
    using Parts = Layout<Float>;
    using Bits = typename Parts::Bits;
    const auto* low = static_cast<const typename Parts::Kernel*>(fraction.getData());
    auto* bytes = static_cast<unsigned char*>(samples);
    for (std::size_t i = 0; i < count; ++i) {
        const Bits bits = (static_cast<Bits>(low[i]) & lowMask<Bits>(Parts::fractionBits)) |
                          (static_cast<Bits>(exponent[i]) & lowMask<Bits>(Parts::exponentBits))
                              << Parts::fractionBits |
                          (static_cast<Bits>(sign[i]) & 1) << (Parts::fractionBits + Parts::exponentBits);
        std::memcpy(bytes + i * sizeof bits, &bits, sizeof bits);
    }
}

// The low 16 bits of each sample, which hold every exponent and sign. A part of another width is narrowed in
// place of being looked at sample by sample.
const std::int16_t* narrowed(const ChannelData& part, ChannelData& scratch, std::size_t count)
{
    if (part.getDataType() == SINT16)
        return static_cast<const std::int16_t*>(part.getData());
    ChannelInfo info;
    info.init(nullptr, SINT16, 0, 0);
    scratch.init(info, count);
    ChannelData::convert(scratch, 0, part, 0, count);
    return static_cast<const std::int16_t*>(scratch.getData());
}

std::uint64_t magnitude(std::int64_t value)
{
    return value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
}

} // namespace

WaveletChannelInfo::~WaveletChannelInfo() = default;

WaveletChannelInfo& WaveletChannelInfo::operator=(const WaveletChannelInfo& other)
{
    if (this == &other)
        return *this;
    m_name = other.m_name;
    m_dataType = other.m_dataType;
    m_kernelDataType = other.m_kernelDataType;
    m_transform = other.m_transform;
    m_bits = other.m_bits;
    m_subblockSize = other.m_subblockSize;
    m_minimum = other.m_minimum;
    m_maximum = other.m_maximum;
    m_offset = other.m_offset;
    m_scale = other.m_scale;
    m_action = other.m_action;
    m_channelIndex = other.m_channelIndex;
    m_kernel.resize(0);
    return *this;
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
    resetMinMax();
}

void WaveletChannelInfo::resetMinMax() noexcept
{
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
    // Unsigned, so that neither a range of 2^63 and more nor the limits of a channel without samples (the
    // smallest above the largest) overflow: both give the widest kernel.
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
    const std::int64_t low = m_minimum.integer;
    const std::int64_t high = m_maximum.integer;
    m_bits = countBits(low, high);
    if (nameBehind(fraction64Prefix))
        m_kernelDataType = SINT64;
    else if (nameBehind(fraction32Prefix))
        m_kernelDataType = SINT32;
    else
        m_kernelDataType = integerKernel(m_bits);
}

bool WaveletChannelInfo::isQuantized() const noexcept
{
    return DataTypeUtils::isFloat(m_dataType) && !DataTypeUtils::isFloat(m_kernelDataType);
}

const char* WaveletChannelInfo::nameBehind(const char* prefix) const noexcept
{
    return m_name.compare(0, prefixSize, prefix) == 0 ? m_name.c_str() + prefixSize : nullptr;
}

int WaveletChannelInfo::save(StreamWriter& writer, ErrorCode code) const
{
    char name[recordNameSize] = {};
    m_name.copy(name, sizeof name);
    bool written = writer.write(name, sizeof name) == sizeof name;
    written &= writer.put_be(static_cast<std::uint16_t>(m_dataType));
    written &= writer.put_be(m_transform);
    written &= writer.put_be(m_subblockSize);
    written &= writer.put_be(m_minimum.integer); // the bits, whatever they stand for
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
    m_name.assign(name, 0, name.find('\0')); // a NUL inside ends it, as everywhere else
    return length + 2;
}

void WaveletChannelInfo::setupConvert(ConversionAction action, int channelIndex) noexcept
{
    m_action = action;
    m_channelIndex = channelIndex;
}

void WaveletChannelInfo::reserveKernel(std::size_t count)
{
    if (m_kernel.getDataType() == m_kernelDataType && m_kernel.getNumSamples() >= count)
        return;
    ChannelInfo info;
    info.init(m_name.c_str(), m_kernelDataType, 0, 0);
    m_kernel.init(info, count);
}

void WaveletChannelInfo::convertToKernel(const PointData& points, std::size_t count)
{
    const ChannelData& channel = points.getChannel(static_cast<std::size_t>(m_channelIndex));
    reserveKernel(count);
    if (m_action != CONVERT_PLAIN) {
        if (channel.getDataType() == FLOAT32)
            extract<float>(m_kernel, channel, count, m_action);
        else
            extract<double>(m_kernel, channel, count, m_action);
    } else if (DataTypeUtils::isFloat(channel.getDataType()) != DataTypeUtils::isFloat(m_kernelDataType)) {
        ChannelData::convert(m_kernel, 0, channel, 0, m_offset, m_scale, count);
    } else {
        ChannelData::convert(m_kernel, 0, channel, 0, count);
    }
}

void WaveletChannelInfo::convertFromKernel(PointData& points, std::size_t count) const
{
    if (m_action != CONVERT_PLAIN)
        return;
    ChannelData& channel = points.getChannel(static_cast<std::size_t>(m_channelIndex));
    if (isQuantized())
        ChannelData::convert(channel, 0, m_kernel, 0, m_offset, m_scale, count);
    else
        ChannelData::convert(channel, 0, m_kernel, 0, count);
}

void WaveletChannelInfo::mergeFromKernel(WaveletChannelInfo& exponent, WaveletChannelInfo& sign,
                                         PointData& points, std::size_t count) const
{
    ChannelData exponentScratch;
    ChannelData signScratch;
    const std::int16_t* exponents = narrowed(exponent.m_kernel, exponentScratch, count);
    const std::int16_t* signs = narrowed(sign.m_kernel, signScratch, count);
    void* samples = points.getChannel(static_cast<std::size_t>(m_channelIndex)).getData();
    if (nameBehind(fraction32Prefix))
        merge<float>(samples, m_kernel, exponents, signs, count);
    else
        merge<double>(samples, m_kernel, exponents, signs, count);
}

void WaveletChannelInfo::updateMinMax(std::size_t count)
{
    const bool known = visitDataType(m_kernelDataType, [&](auto zero) {
        using T = decltype(zero);
        if constexpr (std::is_signed_v<T>) {
            const auto* samples = static_cast<const T*>(m_kernel.getData());
            using Limits = std::numeric_limits<T>;
            T low = std::is_integral_v<T> ? Limits::max() : Limits::infinity();
            T high = std::is_integral_v<T> ? Limits::lowest() : -Limits::infinity();
            for (std::size_t i = 0; i < count; ++i) {
                low = samples[i] < low ? samples[i] : low; // a NaN changes nothing
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

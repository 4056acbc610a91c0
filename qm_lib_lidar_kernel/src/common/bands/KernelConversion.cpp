#include "common/bands/KernelConversion.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Quillmoran {

namespace {

// The parts of IEEE 754 numbers.
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

// Extracts one part into the integer type of the kernel.
template <class Float>
void extract(ChannelData& kernel, const ChannelData& channel, std::size_t count, ChannelPart part)
{
    using Parts = Layout<Float>;
    int shift = 0;
    int width = Parts::fractionBits;
    if (part == ChannelPart::Exponent) {
        shift = Parts::fractionBits;
        width = Parts::exponentBits;
    } else if (part == ChannelPart::Sign) {
        shift = Parts::fractionBits + Parts::exponentBits;
        width = 1;
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

// The low 16 bits of each sample, which hold every exponent and sign. A part of another width is narrowed
// first.
const std::int16_t* narrowed(const KernelSamples& part, KernelSamples& scratch, std::size_t count)
{
    if (part.getDataType() == SINT16)
        return static_cast<const std::int16_t*>(part.getData());
    scratch.reserve(SINT16, count);
    ChannelData::convert(scratch, 0, part, 0, count);
    return static_cast<const std::int16_t*>(scratch.getData());
}

} // namespace

void KernelConversion::convertToKernel(const PointData& points, KernelSamples& kernel,
                                       std::size_t count) const
{
    const ChannelData& channel = points.getChannel(m_channelIndex);
    kernel.reserve(m_record->getKernelDataType(), count);
    const ChannelPart part = m_record->getPart();
    if (part != ChannelPart::Whole) {
        if (channel.getDataType() == FLOAT32)
            extract<float>(kernel, channel, count, part);
        else
            extract<double>(kernel, channel, count, part);
    } else if (DataTypeUtils::isFloat(channel.getDataType()) !=
               DataTypeUtils::isFloat(kernel.getDataType())) {
        ChannelData::convert(kernel, 0, channel, 0, m_record->getOffset(), m_record->getScale(), count);
    } else {
        ChannelData::convert(kernel, 0, channel, 0, count);
    }
}

void KernelConversion::convertFromKernel(const KernelSamples& kernel, PointData& points,
                                         std::size_t count) const
{
    if (m_record->getPart() == ChannelPart::Whole)
        convertFromKernel(kernel, points.getChannel(m_channelIndex), count);
}

void KernelConversion::convertFromKernel(const KernelSamples& kernel, ChannelData& channel,
                                         std::size_t count) const
{
    if (m_record->isQuantized())
        ChannelData::convert(channel, 0, kernel, 0, m_record->getOffset(), m_record->getScale(), count);
    else
        ChannelData::convert(channel, 0, kernel, 0, count);
}

void KernelConversion::mergeFromKernel(const KernelSamples& fraction, const KernelSamples& exponent,
                                       const KernelSamples& sign, PointData& points, std::size_t count) const
{
    KernelSamples exponentScratch;
    KernelSamples signScratch;
    const std::int16_t* exponents = narrowed(exponent, exponentScratch, count);
    const std::int16_t* signs = narrowed(sign, signScratch, count);
    void* samples = points.getChannel(m_channelIndex).getData();
    if (m_record->getPart() == ChannelPart::Fraction32)
        merge<float>(samples, fraction, exponents, signs, count);
    else
        merge<double>(samples, fraction, exponents, signs, count);
}

} // namespace Quillmoran

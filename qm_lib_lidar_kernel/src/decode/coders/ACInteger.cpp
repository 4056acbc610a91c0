// Reads subblocks of signed integers that are coded symbol by symbol with the arithmetic coder;
// ACIntegerModels has the symbols. Magnitudes have at most 15 bits. Every subblock starts with fresh models.
//
// The counterpart is encode/coders/ACIntegerWriter.cpp.
#include "common/coders/ACIntegerModels.h"
#include "common/coders/KernelTypes.h"
#include "decode/coders/SubblockReader.h"
#include "platform/ByteOrder.h"

namespace Quillmoran {

namespace {

// A subblock that is being decoded.
template <class U>
class Samples
{
public:
    Samples(const CodedSubblock& subblock, ACIntegerModels& models)
        : m_models(models), m_next(static_cast<U*>(subblock.samples)), m_end(m_next + subblock.count)
    {
        models.reset();
        m_decoder.begin(subblock.payload, static_cast<std::size_t>(subblock.header.payloadLength));
    }

    bool atEnd() const noexcept { return m_next == m_end; }
    void put(U sample) noexcept { *m_next++ = sample; }

    // A sample is decoded in steps: the sign, then, unless it is zero, the length of its magnitude and its
    // value.
    std::uint32_t sign() noexcept { return m_decoder.decodeThree(m_models.sign); }
    std::uint32_t length() noexcept { return m_decoder.decodeSmall(m_models.length); }

    // A magnitude of k bits: the leading one, then up to seven bits as one symbol, then raw bits.
    U value(std::uint32_t sign, std::uint32_t length) noexcept
    {
        U magnitude = 1;
        if (__builtin_expect(length >= 2, 1))
            magnitude = longMagnitude(static_cast<int>(length));
        const auto negative = static_cast<U>(0 - U{sign == ACIntegerModels::NEGATIVE}); // all ones
        return static_cast<U>((magnitude ^ negative) - negative);
    }

    U afterSign(std::uint32_t sign) noexcept
    {
        return sign == ACIntegerModels::ZERO ? U{0} : value(sign, length());
    }

private:
    U longMagnitude(int length) noexcept
    {
        constexpr int modelledBits = ACIntegerModels::modelledBits;
        constexpr int rawBitsAtOnce = ACIntegerModels::rawBitsAtOnce;
        const std::uint32_t low = m_decoder.decode(m_models.lowBits[length - 1]);
        if (__builtin_expect(length <= modelledBits, 1))
            return static_cast<U>(1u << (length - 1) | low);
        U magnitude = static_cast<U>(1u << (modelledBits - 1) | low);
        int left = length - modelledBits;
        for (; left > rawBitsAtOnce; left -= rawBitsAtOnce)
            magnitude = static_cast<U>(magnitude << rawBitsAtOnce | m_decoder.getBits(rawBitsAtOnce));
        return static_cast<U>(magnitude << left | m_decoder.getBits(left));
    }

    ACDecoder m_decoder;
    ACIntegerModels& m_models;
    U* m_next;
    U* m_end;
};

template <class T>
class ACInteger final : public SubblockReader
{
public:
    using SubblockReader::SubblockReader;

    void init() override { initForIntegers(); }

    void decode(const CodedSubblock& subblock) const override
    {
        Samples<UnsignedOf<T>> samples(subblock, ACIntegerModels::ofThread()[0]);
        while (!samples.atEnd())
            samples.put(samples.afterSign(samples.sign()));
    }

    // Each symbol depends on the one before it, so two subblocks are interleaved to hide latency.
    void decodeTwo(const CodedSubblock& first, const CodedSubblock& second) const override
    {
        std::array<ACIntegerModels, 2>& models = ACIntegerModels::ofThread();
        Samples<UnsignedOf<T>> a(first, models[0]);
        Samples<UnsignedOf<T>> b(second, models[1]);
        while (!a.atEnd() && !b.atEnd()) {
            const std::uint32_t signA = a.sign();
            const std::uint32_t signB = b.sign();
            if (signA == ACIntegerModels::ZERO || signB == ACIntegerModels::ZERO) {
                a.put(a.afterSign(signA));
                b.put(b.afterSign(signB));
                continue;
            }
            const std::uint32_t lengthA = a.length();
            const std::uint32_t lengthB = b.length();
            a.put(a.value(signA, lengthA));
            b.put(b.value(signB, lengthB));
        }
        for (Samples<UnsignedOf<T>>* samples : {&a, &b})
            while (!samples->atEnd())
                samples->put(samples->afterSign(samples->sign()));
    }

    bool prefersTwo() const noexcept override { return true; }
};

} // namespace

std::unique_ptr<SubblockReader> createACReader(const SubblockFormat& format)
{
    return createCoder<SubblockReader, ACInteger, std::is_integral>(format);
}

} // namespace Quillmoran

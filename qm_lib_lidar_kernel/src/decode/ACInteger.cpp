#include "decode/ACInteger.h"

namespace Quillmoran {

template <class T>
ACInteger<T>::ACInteger(DataType type, TransformType transform, const char* name, std::size_t subblockSize)
    : SubblockReader(type, transform, name, subblockSize, false)
{}

template <class T>
void ACInteger<T>::init()
{
    // One and a half times the raw size.
    SubblockReader::init(std::uint64_t{getSubblockSize()} * sizeof(T) * 3 / 2);
}

// A magnitude of k bits: the leading one, then up to seven bits as one symbol, then raw bits.
template <class T>
typename ACInteger<T>::U ACInteger<T>::decodeMagnitude(ACDecoder& decoder, ACIntegerModels& models)
{
    const int length = static_cast<int>(decoder.decode(models.length));
    if (length < 2)
        return 1;
    const std::uint32_t low = decoder.decode(models.lowBits[length - 1]);
    constexpr int modelledBits = ACIntegerModels::modelledBits;
    constexpr int rawBitsAtOnce = ACIntegerModels::rawBitsAtOnce;
    if (length <= modelledBits)
        return static_cast<U>(1u << (length - 1) | low);
    U value = static_cast<U>(1u << (modelledBits - 1) | low);
    int left = length - modelledBits;
    for (; left > rawBitsAtOnce; left -= rawBitsAtOnce)
        value = static_cast<U>(value << rawBitsAtOnce | decoder.getBits(rawBitsAtOnce));
    return static_cast<U>(value << left | decoder.getBits(left));
}

template <class T>
void ACInteger<T>::decode(std::size_t, void* out, std::size_t count)
{
    ACIntegerModels& models = ACIntegerModels::ofThread();
    models.reset();
    ACDecoder decoder;
    decoder.begin(payload(), payloadSize());
    auto* samples = static_cast<U*>(out);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t sign = decoder.decode(models.sign);
        if (sign == ACIntegerModels::ZERO) {
            samples[i] = 0;
            continue;
        }
        const U magnitude = decodeMagnitude(decoder, models);
        samples[i] = sign == ACIntegerModels::NEGATIVE ? static_cast<U>(0 - magnitude) : magnitude;
    }
}

template class ACInteger<std::int16_t>;
template class ACInteger<std::int32_t>;
template class ACInteger<std::int64_t>;

} // namespace Quillmoran

#include "las/points/LASExtraBytes.h"

#include "platform/ByteOrder.h"
#include "text/FieldFormat.h"
#include "text/Printable.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <set>
#include <type_traits>
#include <utility>

namespace Quillmoran {

namespace {

// Positions in a descriptor.
constexpr std::size_t typeAt = 2;
constexpr std::size_t optionsAt = 3;
constexpr std::size_t nameAt = 4;
constexpr std::size_t nameBytes = 32;
constexpr std::size_t scaleAt = 112;
constexpr std::size_t offsetAt = 136;

enum Option : unsigned
{
    HAS_SCALE = 8,
    HAS_OFFSET = 16
};

// By type - 1.
constexpr DataType scalars[] = {UINT8,  SINT8,  UINT16, SINT16,  UINT32,
                                SINT32, UINT64, SINT64, FLOAT32, FLOAT64};
constexpr unsigned numScalars = std::size(scalars);
constexpr unsigned maxElements = 3;

// Whether readers can take the name for that of a standard channel.
bool isTaken(const std::string& name)
{
    return FieldFormat::findStandard(name) != nullptr;
}

// Such names are those of parts of split channels.
bool isPartName(const std::string& name)
{
    return name.size() >= 3 && name[0] == '@' && name[2] == '|';
}

// Names the channels of descriptors. A name that cannot be used as it is gets the number of its descriptor,
// from 1, as a suffix.
class Names
{
public:
    std::string choose(const unsigned char* descriptor, std::size_t number)
    {
        const auto* const text = reinterpret_cast<const char*>(descriptor + nameAt);
        std::string name(text, strnlen(text, nameBytes));
        while (!name.empty() && name.back() == ' ')
            name.pop_back();
        const std::string suffix = '_' + std::to_string(number);
        const std::string clean = printable(name);
        if (name.empty())
            name = "Unnamed" + suffix;
        else if (isPartName(name))
            name = '_' + clean + suffix;
        else if (isTaken(name) || clean != name)
            name = clean + suffix;
        while (!isNew(name))
            name += suffix;
        return name;
    }

    // For the elements of arrays and runs of bytes.
    std::string chooseElement(const std::string& name, std::size_t index)
    {
        std::string element = name + '[' + std::to_string(index) + ']';
        while (!isNew(element))
            element += '_';
        return element;
    }

private:
    bool isNew(const std::string& name) { return m_seen.insert(name).second; }

    std::set<std::string> m_seen;
};

// The descriptors in order, as long as they are valid and their fields fit.
class Parser
{
public:
    Parser(std::size_t begin, std::size_t end, std::span<const unsigned char> descriptors)
        : m_at(begin), m_end(end)
    {
        for (std::size_t i = 0; (i + 1) * LASExtraBytes::descriptorBytes <= descriptors.size(); ++i)
            if (!add(descriptors.subspan(i * LASExtraBytes::descriptorBytes, LASExtraBytes::descriptorBytes),
                     i + 1))
                break;
    }

    void addUndescribed()
    {
        for (std::size_t i = 0; m_at < m_end; ++i)
            append(m_names.chooseElement("ExtraBytes", i), UINT8);
    }

    std::vector<LASExtraField> take() { return std::move(m_fields); }

private:
    bool add(std::span<const unsigned char> descriptor, std::size_t number)
    {
        const unsigned type = descriptor[typeAt];
        const std::size_t elements =
            type == 0 ? descriptor[optionsAt] : (type - 1) / numScalars + std::size_t{1};
        if (type > maxElements * numScalars)
            return false;
        const DataType stored = type == 0 ? UINT8 : scalars[(type - 1) % numScalars];
        if (elements * DataTypeUtils::getSize(stored) > m_end - m_at)
            return false;
        const std::string name = m_names.choose(descriptor.data(), number);
        if (elements == 1) {
            append(name, stored).descriptor = type == 0 ? std::span<const unsigned char>() : descriptor;
            setAxis(descriptor.data(), type, 0);
            return true;
        }
        for (std::size_t i = 0; i < elements; ++i) {
            append(m_names.chooseElement(name, i), stored);
            setAxis(descriptor.data(), type, i);
        }
        return true;
    }

    LASExtraField& append(std::string name, DataType stored)
    {
        LASExtraField& field = m_fields.emplace_back();
        field.channel = std::move(name);
        field.stored = stored;
        field.offset = m_at;
        m_at += DataTypeUtils::getSize(stored);
        return field;
    }

    void setAxis(const unsigned char* descriptor, unsigned type, std::size_t element)
    {
        const unsigned options = descriptor[optionsAt];
        if (type == 0 || (options & (HAS_SCALE | HAS_OFFSET)) == 0)
            return;
        LASFields::Axis axis{1, 0};
        if ((options & HAS_SCALE) != 0)
            axis.scale = loadLittleEndian<double>(descriptor + scaleAt + 8 * element);
        if ((options & HAS_OFFSET) != 0)
            axis.offset = loadLittleEndian<double>(descriptor + offsetAt + 8 * element);
        const DataType stored = m_fields.back().stored;
        if (!DataTypeUtils::isFloat(stored) && DataTypeUtils::getSize(stored) <= 4 &&
            LASFields::isExact(axis))
            m_fields.back().axis = axis;
    }

    std::size_t m_at; // bytes into the record
    std::size_t m_end;
    Names m_names;
    std::vector<LASExtraField> m_fields;
};

template <class T>
constexpr bool isScalable = std::is_integral_v<T> && sizeof(T) <= 4;

template <class T>
void unpackScaled(double* __restrict samples, const unsigned char* __restrict at, std::size_t stride,
                  const LASFields::Axis& axis, std::size_t count)
{
    const double scale = axis.scale;
    const double offset = axis.offset;
    for (std::size_t i = 0; i < count; ++i, at += stride)
        samples[i] = static_cast<double>(loadLittleEndian<T>(at)) * scale + offset;
}

template <class T>
bool packScaled(unsigned char* __restrict at, std::size_t stride, const double* __restrict samples,
                const LASFields::Axis& axis, std::size_t count)
{
    constexpr double min = std::numeric_limits<T>::min();
    constexpr double max = std::numeric_limits<T>::max();
    const double scale = axis.scale;
    const double offset = axis.offset;
    bool isExact = true;
    for (std::size_t i = 0; i < count; ++i, at += stride) {
        const double number = std::nearbyint((samples[i] - offset) / scale);
        const double stored = number >= min && number <= max ? number : 0; // 0 for NaN
        isExact &= stored * scale + offset == samples[i];
        storeLittleEndian(at, static_cast<T>(stored));
    }
    return isExact;
}

} // namespace

ChannelInfo LASExtraField::toChannel() const
{
    ChannelInfo info;
    info.init(channel.c_str(), isScaled() ? FLOAT64 : stored, 0, axis.scale);
    return info;
}

void LASExtraField::unpack(void* samples, const unsigned char* records, std::size_t stride,
                           std::size_t count) const
{
    visitDataType(stored, [&](auto zero) {
        using T = decltype(zero);
        const unsigned char* at = records + offset;
        if (isScaled()) {
            if constexpr (isScalable<T>)
                unpackScaled<T>(static_cast<double*>(samples), at, stride, axis, count);
            return;
        }
        auto* const to = static_cast<T*>(samples);
        for (std::size_t i = 0; i < count; ++i, at += stride)
            to[i] = loadLittleEndian<T>(at);
    });
}

bool LASExtraField::pack(unsigned char* records, std::size_t stride, const void* samples,
                         std::size_t count) const
{
    bool isExact = true;
    visitDataType(stored, [&](auto zero) {
        using T = decltype(zero);
        unsigned char* at = records + offset;
        if (isScaled()) {
            if constexpr (isScalable<T>)
                isExact = packScaled<T>(at, stride, static_cast<const double*>(samples), axis, count);
            return;
        }
        const auto* const from = static_cast<const T*>(samples);
        for (std::size_t i = 0; i < count; ++i, at += stride)
            storeLittleEndian(at, from[i]);
    });
    return isExact;
}

namespace LASExtraBytes {

std::vector<LASExtraField> describe(LASPointFormat format, std::size_t recordLength,
                                    std::span<const unsigned char> descriptors)
{
    Parser parser(format.recordLength(), recordLength, descriptors);
    parser.addUndescribed();
    return parser.take();
}

std::vector<LASExtraField> describe(LASPointFormat format, std::span<const unsigned char> descriptors)
{
    constexpr std::size_t longestRecord = std::numeric_limits<std::uint16_t>::max();
    return Parser(format.recordLength(), longestRecord, descriptors).take();
}

std::vector<unsigned char> makeDescriptor(const LASExtraField& field)
{
    std::vector<unsigned char> descriptor(descriptorBytes);
    const auto* const found = std::find(std::begin(scalars), std::end(scalars), field.stored);
    descriptor[typeAt] = static_cast<unsigned char>(found - scalars + 1);
    std::memcpy(descriptor.data() + nameAt, field.channel.data(), std::min(field.channel.size(), nameBytes));
    if (field.isScaled()) {
        descriptor[optionsAt] = HAS_SCALE | HAS_OFFSET;
        storeLittleEndian(descriptor.data() + scaleAt, field.axis.scale);
        storeLittleEndian(descriptor.data() + offsetAt, field.axis.offset);
    }
    return descriptor;
}

} // namespace LASExtraBytes

} // namespace Quillmoran

#include "diff/PointRowFormat.h"

#include <cstring>
#include <type_traits>

namespace Quillmoran {

namespace {

constexpr std::size_t wordSize = sizeof(std::uint64_t);

template <class T>
void scatter(unsigned char* rows, std::size_t rowSize, const T* samples, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        T sample = samples[i];
        if constexpr (std::is_floating_point_v<T>)
            sample = sample == 0 ? T{0} : sample;
        std::memcpy(rows + i * rowSize, &sample, sizeof sample);
    }
}

template <class T>
T load(const unsigned char* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

// A step of a multiplicative hash; rows that it does not tell apart are compared byte by byte.
std::uint64_t mix(std::uint64_t hash, std::uint64_t word) noexcept
{
    constexpr std::uint64_t goldenRatio = 0x9E3779B97F4A7C15; // of 2^64
    hash = (hash ^ word) * goldenRatio;
    return hash ^ hash >> 32;
}

} // namespace

PointRowFormat::PointRowFormat(const ComparedChannels& channels)
{
    for (const std::size_t channel : channels.compared) {
        const DataType type = channels.a.getChannel(channel).getDataType();
        const bool isSame = channels.b.getChannel(channel).getDataType() == type;
        m_columns.push_back({channel, isSame ? type : INVALID, m_sampleBytes});
        m_sampleBytes += isSame ? DataTypeUtils::getSize(type) : sizeof(ExactNumber);
    }
    m_sampleBytes = (m_sampleBytes + wordSize - 1) / wordSize * wordSize;
}

void PointRowFormat::pack(unsigned char* rows, const PointData& block, std::size_t count,
                          std::uint64_t firstPoint) const
{
    const std::size_t rowSize = getRowSize();
    std::memset(rows, 0, count * rowSize);
    std::vector<ExactNumber> numbers;
    for (const Column& column : m_columns) {
        const ChannelData& channel = block.getChannel(column.channel);
        unsigned char* const to = rows + column.position;
        if (column.type == INVALID) {
            numbers.resize(count);
            toExactNumbers(numbers.data(), channel.getData(), channel.getDataType(), count);
            scatter(to, rowSize, numbers.data(), count);
            continue;
        }
        visitDataType(column.type, [&](auto zero) {
            scatter(to, rowSize, static_cast<const decltype(zero)*>(channel.getData()), count);
        });
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t index = firstPoint + i;
        std::memcpy(rows + i * rowSize + m_sampleBytes, &index, sizeof index);
    }
}

void PointRowFormat::getKeys(std::uint64_t* keys, const unsigned char* rows, std::size_t count) const
{
    const std::size_t rowSize = getRowSize();
    const std::size_t sampleBytes = m_sampleBytes;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint64_t key = 0;
        for (std::size_t at = 0; at < sampleBytes; at += wordSize)
            key = mix(key, load<std::uint64_t>(rows + i * rowSize + at));
        keys[i] = key;
    }
}

std::uint64_t PointRowFormat::getIndex(const unsigned char* row) const noexcept
{
    return load<std::uint64_t>(row + m_sampleBytes);
}

DiffReport::Surplus::Point PointRowFormat::unpack(const unsigned char* row) const
{
    DiffReport::Surplus::Point point{getIndex(row), {}};
    for (const Column& column : m_columns) {
        const unsigned char* const bytes = row + column.position;
        ExactNumber number{};
        if (column.type == INVALID)
            number = load<ExactNumber>(bytes);
        else
            visitDataType(column.type, [&](auto zero) {
                const auto value = load<decltype(zero)>(bytes);
                toExactNumbers(&number, &value, column.type, 1);
            });
        point.samples.push_back(number.toSample());
    }
    return point;
}

} // namespace Quillmoran

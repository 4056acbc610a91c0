// Clouds of random layout and content for tests of code that must restore points exactly: channels of every
// type and samples of many kinds, also those that arithmetic would change.
#pragma once

#include "support/MemoryPointSource.h"
#include "support/Random.h"

#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

namespace RandomCloudDetail {

// Fills a column of integers: constant, a ramp, steps, small noise, random bits, the two extremes.
template <class T>
void fillIntegers(Random& random, T* samples, std::size_t count)
{
    const std::uint64_t kind = random.below(7);
    const auto start = static_cast<T>(random.next());
    for (std::size_t i = 0; i < count; ++i) {
        switch (kind) {
        case 0:
            samples[i] = start;
            break;
        case 1:
            samples[i] = static_cast<T>(start + static_cast<T>(3 * i));
            break;
        case 2:
            samples[i] = random.chance(0.02) || i == 0 ? static_cast<T>(random.next()) : samples[i - 1];
            break;
        case 3:
            samples[i] = static_cast<T>(random.below(6));
            break;
        case 4:
            samples[i] = random.chance(0.5) ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
            break;
        case 5:
            samples[i] = 0;
            break;
        default:
            samples[i] = static_cast<T>(random.next());
        }
    }
}

// The same for floating point: multiples of a step, halves, smooth curves, any bit pattern, special values.
template <class T>
void fillReals(Random& random, T* samples, std::size_t count, bool finite)
{
    const std::uint64_t kind = random.below(finite ? 4 : 7);
    const T special[] = {T(0),
                         T(-0.0),
                         std::numeric_limits<T>::infinity(),
                         -std::numeric_limits<T>::infinity(),
                         std::numeric_limits<T>::quiet_NaN(),
                         std::numeric_limits<T>::denorm_min(),
                         std::numeric_limits<T>::max(),
                         T(-1.5)};
    for (std::size_t i = 0; i < count; ++i) {
        switch (kind) {
        case 0:
            samples[i] = static_cast<T>(static_cast<double>(random.between(-50000, 50000)) * 0.01 + 500000);
            break;
        case 1:
            samples[i] = static_cast<T>(static_cast<double>(random.between(-2000, 2000)) * 0.5);
            break;
        case 2:
            samples[i] = static_cast<T>(245379.125 + static_cast<double>(i) * 1.000001e-5);
            break;
        case 3:
            samples[i] = static_cast<T>(random.real() * 1e5);
            break;
        case 4: {
            const std::uint64_t bits = random.next();
            std::memcpy(&samples[i], &bits, sizeof(T));
            break;
        }
        case 5:
            samples[i] = special[random.below(std::size(special))];
            break;
        default:
            samples[i] = random.chance(0.01) ? special[random.below(std::size(special))] : T(2.25);
        }
    }
}

} // namespace RandomCloudDetail

// X, Y and Z, never NaN, and up to `maxChannels` others.
inline Scoped<MemoryPointSource> makeRandomCloud(Random& random, std::size_t count, std::size_t maxChannels)
{
    constexpr DataType types[] = {UINT8,  SINT8,   UINT16, SINT16, UINT32,
                                  SINT32, FLOAT32, UINT64, SINT64, FLOAT64};
    PointInfo layout;
    const auto append = [&layout](const std::string& name, DataType type, double step) {
        ChannelInfo info;
        info.init(name.c_str(), type, 0, step);
        layout.append(info);
    };
    for (const char* name : {"X", "Y", "Z"})
        append(name, FLOAT64, random.chance(0.5) ? 0.01 : 0);
    for (std::size_t i = random.below(maxChannels + 1); i > 0; --i)
        append((random.chance(0.2) ? "a name that is longer than the record holds " : "C") +
                   std::to_string(i),
               types[random.below(std::size(types))], 0);

    const Scoped<MemoryPointSource> source = MemoryPointSource::make(
        layout, MemoryPointSource::Columns(layout.getNumChannels(), std::vector<double>(count, 0.0)));
    Bounds bounds;
    Bounds::Range* const ranges[3] = {&bounds.x, &bounds.y, &bounds.z};
    for (std::size_t c = 0; c < layout.getNumChannels(); ++c) {
        ChannelData& column = source->column(layout.getChannel(c).getName());
        visitDataType(column.getDataType(), [&](auto zero) {
            using T = decltype(zero);
            T* samples = static_cast<T*>(column.getData());
            if constexpr (std::is_floating_point_v<T>)
                RandomCloudDetail::fillReals(random, samples, count, c < 3);
            else
                RandomCloudDetail::fillIntegers(random, samples, count);
            for (std::size_t i = 0; c < 3 && i < count; ++i)
                ranges[c]->grow(static_cast<double>(samples[i]));
        });
    }
    source->setBounds(bounds);
    return source;
}

} // namespace Quillmoran::Testing

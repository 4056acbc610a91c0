// Clouds of random layout and content for tests of code that must restore points exactly: channels of every
// type and samples of many kinds, also those that arithmetic would change.
#pragma once

#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include "support/Random.h"
#include <vxunpack/VX7PointWriter.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

// Of integers: a constant, a ramp, steps, small noise. Of floating point: multiples of a step, halves, a
// smooth curve, noise. Of both: any bit pattern, special values, and rare special values.
template <class T>
void fillRandomly(Random& random, T* samples, std::size_t count, bool isCoordinate)
{
    using Limits = std::numeric_limits<T>;
    const T special[] = {T(0),
                         T(-0.0),
                         Limits::infinity(),
                         static_cast<T>(-Limits::infinity()),
                         Limits::min(),
                         Limits::quiet_NaN(),
                         Limits::denorm_min(),
                         Limits::max(),
                         Limits::lowest()};
    const auto anySpecial = [&] { return special[random.below(std::size(special))]; };
    const std::uint64_t start = random.next(), kind = random.below(isCoordinate ? 4 : 7);
    for (std::size_t i = 0; i < count; ++i) {
        if (kind == 4) {
            const std::uint64_t bits = random.next();
            std::memcpy(&samples[i], &bits, sizeof(T));
        } else if (kind > 4) {
            samples[i] = kind == 5 || random.chance(0.01) ? anySpecial() : T(2.25);
        } else if constexpr (std::is_floating_point_v<T>) {
            const double values[] = {500000 + static_cast<double>(random.between(-50000, 50000)) * 0.01,
                                     static_cast<double>(random.between(-2000, 2000)) * 0.5,
                                     245379.125 + static_cast<double>(i) * 1.000001e-5, random.real() * 1e5};
            samples[i] = static_cast<T>(values[kind]);
        } else {
            const std::uint64_t values[] = {start, start + 3 * i, start * (1 + i / 50), random.below(6)};
            samples[i] = static_cast<T>(values[kind]);
        }
    }
}

// X, Y and Z, never NaN, and up to `maxChannels` others.
inline Scoped<MemoryPointSource> makeRandomCloud(Random& random, std::size_t count, std::size_t maxChannels)
{
    constexpr DataType types[] = {UINT8,  SINT8,   UINT16, SINT16, UINT32,
                                  SINT32, FLOAT32, UINT64, SINT64, FLOAT64};
    PointInfo layout;
    for (const char* name : {"X", "Y", "Z"})
        layout.append(channel(name, FLOAT64, random.chance(0.5) ? 0.01 : 0));
    for (std::size_t i = random.below(maxChannels + 1); i > 0; --i) {
        const char* const name = random.chance(0.2) ? "a name that is longer than the record holds " : "C";
        layout.append(channel((name + std::to_string(i)).c_str(), types[random.below(std::size(types))]));
    }
    const Scoped<MemoryPointSource> source = MemoryPointSource::make(
        layout, MemoryPointSource::Columns(layout.getNumChannels(), std::vector<double>(count, 0.0)));
    Bounds bounds;
    Bounds::Range* const ranges[3] = {&bounds.x, &bounds.y, &bounds.z};
    for (std::size_t c = 0; c < layout.getNumChannels(); ++c) {
        ChannelData& column = source->column(layout.getChannel(c).getName());
        visitDataType(column.getDataType(), [&](auto zero) {
            auto* const samples = static_cast<decltype(zero)*>(column.getData());
            fillRandomly(random, samples, count, c < 3);
            for (std::size_t i = 0; c < 3 && i < count; ++i)
                ranges[c]->grow(static_cast<double>(samples[i]));
        });
    }
    source->setBounds(bounds);
    return source;
}

// All options of the writer. A channel that does not support the transform gets another one.
inline EncodeOptions randomOptions(Random& random)
{
    constexpr std::uint8_t transforms[] = {1, 3, 10, 11, 13, 61, 63, 70, 71, 73, 81, 83, 90, 91, 93};
    EncodeOptions options;
    options.versions.file = static_cast<std::uint8_t>(random.between(1, 4));
    options.versions.header = static_cast<std::uint8_t>(random.between(1, 2));
    options.versions.index = static_cast<std::uint8_t>(random.between(1, 2));
    options.versions.band = static_cast<std::uint8_t>(random.between(1, 3));
    if (random.chance(0.5))
        options.all.transform = transforms[random.below(std::size(transforms))];
    options.all.smooth = random.chance(0.5);
    if (random.chance(0.5))
        options.all.subblockSize = static_cast<std::uint32_t>(random.between(16, 315));
    if (random.chance(0.5))
        options.numLevels = static_cast<std::uint32_t>(random.between(1, 12));
    if (random.chance(0.5))
        options.pointsPerEntry = static_cast<std::uint32_t>(random.between(1, 200));
    if (random.chance(0.5))
        options.rawPlanes = static_cast<int>(random.below(8));
    options.prefer = static_cast<Preference>(random.below(3));
    return options;
}

} // namespace Quillmoran::Testing

// A small survey with every kind of channel, for tests of whole files.
#pragma once

#include "support/VX7FileBuilder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

struct SampleCloud
{
    static constexpr double scale = 0.01;
    static constexpr double offsets[3] = {500000.0, 4100000.0, 100.0};

    // Quantized coordinates, as steps and as the doubles that a reader returns.
    std::vector<std::int64_t> steps[3];
    std::vector<double> coordinates[3];
    std::vector<std::int64_t> intensity, classId, scanAngle;
    std::vector<double> gpsTime;     // any bit pattern survives
    std::vector<double> temperature; // single precision

    static SampleCloud make(std::size_t count, std::uint64_t seed);

    // A file of it: coordinates, intensity, class, angle, a split GPS time and a deflated temperature,
    // without an index.
    FilePlan toFile() const;
    void addIndex(FilePlan& plan, std::uint8_t version, std::uint32_t pointsPerEntry) const;
};

} // namespace Quillmoran::Testing

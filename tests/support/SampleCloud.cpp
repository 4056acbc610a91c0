#include "support/SampleCloud.h"

#include "support/Random.h"

#include <limits>

namespace Quillmoran::Testing {

SampleCloud SampleCloud::make(std::size_t count, std::uint64_t seed)
{
    SampleCloud cloud;
    Random random(seed);
    for (std::size_t i = 0; i < count; ++i) {
        // Zigzag scan lines over hills.
        const auto line = static_cast<std::int64_t>(i / 200);
        const auto along = static_cast<std::int64_t>(i % 200);
        cloud.steps[0].push_back((line % 2 ? 200 - along : along) * 35 + random.between(-9, 9));
        cloud.steps[1].push_back(line * 60 + random.between(-7, 7));
        cloud.steps[2].push_back((along * line) % 97 + random.between(-20, 20));
        for (int axis = 0; axis < 3; ++axis)
            cloud.coordinates[axis].push_back(static_cast<double>(cloud.steps[axis].back()) * scale +
                                              offsets[axis]);
        cloud.intensity.push_back(random.chance(0.1) ? 0 : random.between(0, 4000));
        cloud.classId.push_back(i / 500 % 2 ? 2 : 5);
        cloud.scanAngle.push_back(along / 8 - 12);
        cloud.gpsTime.push_back(245380.78 + static_cast<double>(i) * 1e-5);
        cloud.temperature.push_back(static_cast<float>(11.5 + random.real()));
    }
    if (count > 3) {
        cloud.gpsTime[1] = -0.0;
        cloud.gpsTime[2] = std::numeric_limits<double>::infinity();
        cloud.temperature[3] = -std::numeric_limits<double>::infinity();
    }
    return cloud;
}

FilePlan SampleCloud::toFile() const
{
    FilePlan plan;
    const char* const names[3] = {"X", "Y", "Z"};
    for (int axis = 0; axis < 3; ++axis)
        plan.channels.push_back(quantizedChannel(names[axis], steps[axis], offsets[axis], scale));
    plan.channels.push_back(integerChannel("Intensity", UINT16, intensity, 91));
    plan.channels.push_back(integerChannel("ClassId", UINT8, classId, 10));
    plan.channels.push_back(integerChannel("ScanAngle", SINT8, scanAngle, 90));
    for (ChannelPlan& part : splitChannel("GPSTime", FLOAT64, gpsTime))
        plan.channels.push_back(std::move(part));
    plan.channels.push_back(deflatedChannel("Temperature", FLOAT32, temperature));
    return plan;
}

void SampleCloud::addIndex(FilePlan& plan, std::uint8_t version, std::uint32_t pointsPerEntry) const
{
    plan.indexVersion = version;
    plan.pointsPerEntry = pointsPerEntry;
    plan.indexBoxes = makeIndexBoxes(coordinates[0], coordinates[1], coordinates[2], pointsPerEntry);
    // Stored boxes are rounded to the index's quantum; they must still cover their points.
    const double margin = version == 2 ? plan.indexScale : 0;
    for (Bounds& box : plan.indexBoxes) {
        for (Bounds::Range* range : {&box.x, &box.y, &box.z}) {
            range->min -= margin;
            range->max += margin;
        }
    }
}

} // namespace Quillmoran::Testing

// Points for tests of LAS files: random points that use every field, their channels, and the points of a query
// as LAS points.
#pragma once

#include "model/ChannelNames.h"
#include "support/LASFile.h"
#include "support/Random.h"
#include "support/SetOfSources.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

// A file of points with any values of their fields; Y counts up, the box and the times are those of a survey.
inline LASFile randomLASFile(int format, int minor, std::size_t count, std::uint64_t seed)
{
    Random random(seed);
    LASFile file;
    file.format = format;
    file.versionMinor = static_cast<std::uint8_t>(minor);
    file.offset = {1000, -2000, 50};
    file.points.resize(count);
    file.describePoints();
    LASBytes bytes = file.build();
    std::generate(bytes.end() - static_cast<std::ptrdiff_t>(count * LASFile::recordBytes(format)),
                  bytes.end(), [&random] { return static_cast<std::uint8_t>(random.next()); });
    file.points = LASFile::parse(bytes).points;
    for (std::size_t i = 0; i < count; ++i) {
        file.points[i].x = static_cast<std::int32_t>(random.between(-100000, 100000));
        file.points[i].y = static_cast<std::int32_t>(i);
        if (LASFile::hasTime(format))
            file.points[i].gpsTime = random.real() * 1e6 - 10;
    }
    file.describePoints();
    return file;
}

// The points of a file as they are joined with those of formats 6 and above, by the published format. Week
// times are in the given GPS week.
inline std::vector<LASFilePoint> joinedPoints(const LASFile& file, int gpsWeek)
{
    std::vector<LASFilePoint> points = file.points;
    for (LASFilePoint& p : points) {
        if (file.format < 6) {
            p.classFlags = static_cast<std::uint8_t>(p.classId >> 5);
            p.classId &= 31;
            if (p.classId == 12)
                p.classFlags |= 8;
            p.scanAngle = static_cast<std::int16_t>(std::lround(p.scanAngle / 0.006));
        }
        if (LASFile::hasTime(file.format) && (file.globalEncoding & 1) == 0)
            p.gpsTime += gpsWeek * 604800.0 - 1e9;
    }
    return points;
}

// Writes a LAS or LAZ file anew, without a compressed cloud in between.
inline LASFile rewriteLAS(const std::string& input, const std::string& output)
{
    const Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(input.c_str(), true);
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    writer->init(reader.get(), output.c_str(), -1);
    writer->setWriteLAZ(output.back() == 'z');
    writer->write(Bounds::Huge(), 1, reader->getPointInfo(), nullptr);
    return LASFile::load(output);
}

// All points of a source as LAS points. Coordinates are in steps of the source's scale.
inline std::vector<LASFilePoint> readLASPoints(const PointSource& source, const Bounds& box = Bounds::Huge(),
                                               double fraction = 1, std::size_t blockSize = 1000,
                                               ProgressDelegate* delegate = nullptr)
{
    std::vector<LASFilePoint> points;
    const PointInfo& layout = source.getPointInfo();
    for (const auto& row : readRows(source, layout, box, fraction, blockSize, delegate)) {
        LASFilePoint& p = points.emplace_back();
        const auto step = [&](std::size_t axis) {
            return static_cast<std::int32_t>(
                std::lround((row[axis] - source.getOffset()[axis]) / source.getScale()[axis]));
        };
        p.x = step(0);
        p.y = step(1);
        p.z = step(2);
        const auto take = [&](const char* name, auto& field) {
            if (const int index = layout.getChannelIndex(name); index >= 0)
                field = static_cast<std::decay_t<decltype(field)>>(row[static_cast<std::size_t>(index)]);
        };
        take(ChannelNames::intensity, p.intensity);
        take(ChannelNames::returnNum, p.returnNum);
        take(ChannelNames::numReturns, p.numReturns);
        take(ChannelNames::scanDir, p.scanDir);
        take(ChannelNames::edgeFlightLine, p.edge);
        take(ChannelNames::classId, p.classId);
        take(ChannelNames::classFlags, p.classFlags);
        take(ChannelNames::scannerChannel, p.scannerChannel);
        take(ChannelNames::scanAngle, p.scanAngle);
        take(ChannelNames::userData, p.userData);
        take(ChannelNames::sourceId, p.sourceId);
        take(ChannelNames::gpsTime, p.gpsTime);
        take(ChannelNames::gpsTimeAdjusted, p.gpsTime);
        take(ChannelNames::red, p.red);
        take(ChannelNames::green, p.green);
        take(ChannelNames::blue, p.blue);
        take(ChannelNames::nearInfrared, p.nearInfrared);
    }
    return points;
}

} // namespace Quillmoran::Testing

// Points for tests of LAS files: random points that use every field, their channels, and the points of a query
// as LAS points.
#pragma once

#include "model/ChannelNames.h"
#include "support/LASFile.h"
#include "support/Random.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

// A file of random points whose fields are within the limits of the format.
inline LASFile randomLASFile(int format, int minor, std::size_t count, std::uint64_t seed)
{
    Random random(seed);
    const bool extended = format >= 6;
    const bool time = format == 1 || format >= 3;
    const bool colour =
        LASFile::recordBytes(format) >= 26 && format != 1 && format != 4 && format != 6 && format != 9;
    LASFile file;
    file.format = format;
    file.versionMinor = minor;
    file.offset = {1000, -2000, 50};
    for (std::size_t i = 0; i < count; ++i) {
        LASFilePoint p;
        const auto byte = [&random](int bound) {
            return static_cast<std::uint8_t>(random.below(static_cast<unsigned>(bound)));
        };
        const auto word = [&random] { return static_cast<std::uint16_t>(random.next()); };
        p.x = static_cast<std::int32_t>(random.between(-100000, 100000));
        p.y = static_cast<std::int32_t>(i);
        p.z = static_cast<std::int32_t>(random.between(INT32_MIN, INT32_MAX));
        p.intensity = word();
        p.returnNum = byte(extended ? 16 : 8);
        p.numReturns = byte(extended ? 16 : 8);
        p.scanDir = byte(2);
        p.edge = byte(2);
        p.classId = byte(256);
        p.scanAngle =
            static_cast<std::int16_t>(extended ? random.between(-30000, 30000) : random.between(-128, 127));
        p.userData = byte(256);
        p.sourceId = word();
        if (extended) {
            p.classFlags = byte(16);
            p.scannerChannel = byte(4);
        }
        if (time)
            p.gpsTime = random.real() * 1e6 - 10;
        if (colour) {
            p.red = word();
            p.green = word();
            p.blue = word();
        }
        if (format == 8 || format == 10)
            p.nearInfrared = word();
        file.points.push_back(p);
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
        const bool hasTime = file.format == 1 || file.format >= 3;
        if (hasTime && (file.globalEncoding & 1) == 0)
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
    const Scoped<PointIterator> iterator(
        source.createIterator(box, fraction, source.getPointInfo(), delegate));
    PointData block;
    block.init(source.getPointInfo(), blockSize);
    while (const std::size_t count = iterator->getNextPoints(block)) {
        for (std::size_t i = 0; i < count; ++i) {
            LASFilePoint p;
            const auto take = [&](const char* name, auto& field) {
                if (const ChannelData* channel = block.getChannel(name)) {
                    const auto* samples = static_cast<const unsigned char*>(channel->getData());
                    const std::size_t size = DataTypeUtils::getSize(channel->getDataType());
                    if (channel->getDataType() == SINT8)
                        field =
                            static_cast<std::decay_t<decltype(field)>>(static_cast<std::int8_t>(samples[i]));
                    else
                        std::memcpy(&field, samples + i * size, size);
                }
            };
            const auto step = [&](const double* values, int axis) {
                const double steps = (values[i] - source.getOffset()[axis]) / source.getScale()[axis];
                return static_cast<std::int32_t>(steps < 0 ? steps - 0.5 : steps + 0.5);
            };
            p.x = step(block.getX(), 0);
            p.y = step(block.getY(), 1);
            p.z = step(block.getZ(), 2);
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
            points.push_back(p);
        }
    }
    return points;
}

} // namespace Quillmoran::Testing

#include "support/ExampleSurvey.h"

#include "model/ChannelNames.h"
#include "support/ByteStore.h"
#include "support/MemoryPointSource.h"
#include "support/Random.h"
#include <vxunpack/VX7PointWriter.h>

#include <cstdlib>
#include <iterator>

namespace Quillmoran::Testing {

namespace {

constexpr int numLines = 4;
constexpr int pointsPerLine = 600;
constexpr double scale = 0.01;
constexpr double offsets[3] = {500000.0, 4100000.0, 100.0};

// Height of the ground in steps, in integer arithmetic only so that it is the same on every machine.
std::int64_t ground(std::int64_t x, std::int64_t y)
{
    const std::int64_t hill = 6000 - std::abs(x - 9000) / 3 - std::abs(y - 2000) / 2;
    return hill + x * y / 9000 % 40;
}

struct Survey
{
    std::vector<std::int64_t> position[3], intensity, returnNum, numReturns, scanDir, edge, classId, angle,
        source;
    std::vector<std::int64_t> red, green, blue;
    std::vector<double> gpsTime;
};

Survey flySurvey()
{
    Survey survey;
    Random random(20);
    for (int line = 0; line < numLines; ++line) {
        for (int i = 0; i < pointsPerLine; ++i) {
            const int along = line % 2 ? pointsPerLine - 1 - i : i;
            const int swing = i % 40;
            const std::int64_t x = along * 30 + random.between(-6, 6);
            const std::int64_t y = line * 1000 + std::abs(swing - 20) * 45 + random.between(-6, 6);
            const bool tree = ground(x, y) % 7 == 3 && random.chance(0.6);
            const std::int64_t height = tree ? random.between(300, 1500) : random.between(-4, 4);
            survey.position[0].push_back(x);
            survey.position[1].push_back(y);
            survey.position[2].push_back(ground(x, y) + height);
            survey.intensity.push_back(tree ? random.between(20, 90) : random.between(110, 180));
            survey.returnNum.push_back(tree ? random.between(1, 3) : 1);
            survey.numReturns.push_back(tree ? 3 : 1);
            survey.scanDir.push_back(swing < 20);
            survey.edge.push_back(swing == 0 || swing == 20);
            survey.classId.push_back(tree ? 5 : 2);
            survey.angle.push_back(std::abs(swing - 20) - 10);
            survey.source.push_back(101 + line);
            survey.red.push_back(tree ? random.between(40, 70) : random.between(120, 140));
            survey.green.push_back(tree ? random.between(90, 140) : random.between(110, 130));
            survey.blue.push_back(tree ? random.between(30, 50) : random.between(80, 95));
            survey.gpsTime.push_back(245380.0 + line * 60 + i * 0x1p-10);
        }
    }
    return survey;
}

ChannelInfo describe(const char* name, DataType type, double step)
{
    ChannelInfo channel;
    channel.init(name, type, 0, step);
    return channel;
}

Scoped<MemoryPointSource> makeSource()
{
    const Survey survey = flySurvey();
    PointInfo layout;
    MemoryPointSource::Columns columns;
    const char* const axes[3] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (int axis = 0; axis < 3; ++axis) {
        layout.append(describe(axes[axis], FLOAT64, scale));
        columns.emplace_back();
        for (const std::int64_t step : survey.position[axis])
            columns.back().push_back(static_cast<double>(step) * scale + offsets[axis]);
    }
    const auto add = [&](const char* name, DataType type, const auto& values) {
        layout.append(describe(name, type, 0));
        columns.emplace_back(values.begin(), values.end());
    };
    add(ChannelNames::intensity, UINT16, survey.intensity);
    add(ChannelNames::returnNum, UINT8, survey.returnNum);
    add(ChannelNames::numReturns, UINT8, survey.numReturns);
    add(ChannelNames::scanDir, UINT8, survey.scanDir);
    add(ChannelNames::edgeFlightLine, UINT8, survey.edge);
    add(ChannelNames::classId, UINT8, survey.classId);
    add(ChannelNames::scanAngle, SINT8, survey.angle);
    add(ChannelNames::sourceId, UINT16, survey.source);
    add(ChannelNames::gpsTime, FLOAT64, survey.gpsTime);
    add(ChannelNames::red, UINT16, survey.red);
    add(ChannelNames::green, UINT16, survey.green);
    add(ChannelNames::blue, UINT16, survey.blue);

    Scoped<MemoryPointSource> source = MemoryPointSource::make(layout, columns);
    const double steps[3] = {scale, scale, scale};
    source->setQuantization(steps, offsets);
    source->setWKT(
        "PROJCS[\"WGS 84 / UTM zone 13N\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,"
        "298.257223563]],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],"
        "PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",0],"
        "PARAMETER[\"central_meridian\",-105],PARAMETER[\"scale_factor\",0.9996],"
        "PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0],UNIT[\"metre\",1]]");
    const char* const names[] = {"Created",        "Unclassified",      "Ground",
                                 "Low vegetation", "Medium vegetation", "High vegetation"};
    source->setClassIdNames(names, std::size(names));
    return source;
}

} // namespace

Bytes buildExampleSurvey()
{
    const Scoped<MemoryPointSource> source = makeSource();
    const Scoped<ByteStore> store(ByteStore::create());
    const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
    writer->init(source.get(), store.get());
    // By default a file of so few points has few levels, subblocks and boxes; an example should have several.
    EncodeOptions options;
    options.numLevels = 6;
    options.pointsPerEntry = 64;
    options.all.subblockSize = 256;
    // Times must not be deflated: those bytes depend on the version of zlib.
    options.byChannel[ChannelNames::gpsTime].transform = TransformType{11};
    writer->setOptions(options);
    writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr);
    return store->bytes();
}

} // namespace Quillmoran::Testing

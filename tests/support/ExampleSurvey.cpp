#include "support/ExampleSurvey.h"

#include "model/ChannelNames.h"
#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include "support/Random.h"
#include "support/ReadPoints.h"

namespace Quillmoran::Testing {

namespace {

constexpr int numLines = 4;
constexpr int pointsPerLine = 600;
constexpr double steps[3] = {0.01, 0.01, 0.01};
constexpr double offsets[3] = {500000.0, 4100000.0, 100.0};

// Height of the ground in steps, in integer arithmetic only so that it is the same on every machine.
std::int64_t ground(std::int64_t x, std::int64_t y)
{
    const std::int64_t hill = 6000 - std::abs(x - 9000) / 3 - std::abs(y - 2000) / 2;
    return hill + x * y / 9000 % 40;
}

PointInfo makeLayout()
{
    namespace Names = ChannelNames;
    return layoutOf(
        {channel(Names::x, FLOAT64, steps[0]), channel(Names::y, FLOAT64, steps[1]),
         channel(Names::z, FLOAT64, steps[2]), channel(Names::intensity, UINT16),
         channel(Names::returnNum, UINT8), channel(Names::numReturns, UINT8), channel(Names::scanDir, UINT8),
         channel(Names::edgeFlightLine, UINT8), channel(Names::classId, UINT8),
         channel(Names::scanAngle, SINT8), channel(Names::sourceId, UINT16), channel(Names::gpsTime, FLOAT64),
         channel(Names::red, UINT16), channel(Names::green, UINT16), channel(Names::blue, UINT16)});
}

// One column for each channel of the layout.
MemoryPointSource::Columns flySurvey()
{
    MemoryPointSource::Columns columns(makeLayout().getNumChannels());
    Random random(20);
    for (int line = 0; line < numLines; ++line) {
        for (int i = 0; i < pointsPerLine; ++i) {
            std::size_t next = 0;
            const auto add = [&](auto value) { columns[next++].push_back(static_cast<double>(value)); };
            const int along = line % 2 ? pointsPerLine - 1 - i : i;
            const int swing = i % 40;
            const std::int64_t x = along * 30 + random.between(-6, 6);
            const std::int64_t y = line * 1000 + std::abs(swing - 20) * 45 + random.between(-6, 6);
            const bool tree = ground(x, y) % 7 == 3 && random.chance(0.6);
            const std::int64_t z = ground(x, y) + random.between(tree ? 300 : -4, tree ? 1500 : 4);
            for (const std::int64_t step : {x, y, z})
                add(static_cast<double>(step) * steps[next] + offsets[next]);
            add(random.between(tree ? 20 : 110, tree ? 90 : 180));
            add(tree ? random.between(1, 3) : 1);
            add(tree ? 3 : 1);
            add(swing < 20);
            add(swing == 0 || swing == 20);
            add(tree ? 5 : 2);
            add(std::abs(swing - 20) - 10);
            add(101 + line);
            add(245380.0 + line * 60 + i * 0x1p-10);
            add(random.between(tree ? 40 : 120, tree ? 70 : 140));
            add(random.between(tree ? 90 : 110, tree ? 140 : 130));
            add(random.between(tree ? 30 : 80, tree ? 50 : 95));
        }
    }
    return columns;
}

} // namespace

Bytes buildExampleSurvey()
{
    const Scoped<MemoryPointSource> source = MemoryPointSource::make(makeLayout(), flySurvey());
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
    // By default a file of so few points has few levels, subblocks and boxes; an example should have several.
    EncodeOptions options;
    options.numLevels = 6;
    options.pointsPerEntry = 64;
    options.all.subblockSize = 256;
    // Times must not be deflated: those bytes depend on the version of zlib.
    options.byChannel[ChannelNames::gpsTime].transform = TransformType{11};
    return packWith(*source, options);
}

} // namespace Quillmoran::Testing

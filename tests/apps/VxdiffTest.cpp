// Runs of the program, and its comparisons of points against simple models.
#include "apps/AppTest.h"
#include "diff/PointComparison.h"
#include "diff/UnorderedComparison.h"
#include "support/CoordinateSystems.h"
#include "support/LASClouds.h"
#include "support/RandomCloud.h"
#include "support/SampleCloud.h"
#include "support/TileFiles.h"

#include <set>

namespace Quillmoran::Testing { namespace {

class Vxdiff : public AppTest
{
protected:
    // The report, without what is the same in both clouds.
    json differences(const std::string& arguments) const
    {
        const Result result = run("vxdiff -json " + arguments);
        EXPECT_EQ(result.errors, "");
        json report = json::parse(result.output);
        EXPECT_EQ(result.status, report["equal"] == true ? 0 : 1) << arguments;
        EXPECT_EQ(run("vxdiff " + arguments).output.rfind("equal: ", 0) == 0, report["equal"] == true);
        for (const char* key : {"equal", "a", "b", "channels", "numCompared"})
            report.erase(key);
        for (auto at = report.begin(); at != report.end();)
            at = at->empty() || *at == "same" ? report.erase(at) : std::next(at);
        return report;
    }
};

TEST_F(Vxdiff, FindsTheSameCloudInEveryForm)
{
    for (const auto& [format, name] : {std::pair(3, "old.las"), {7, "new.las"}}) {
        LASFile file = randomLASFile(format, format == 3 ? 2 : 4, 20000, 4);
        file.records.push_back({"Owner", 9, "twice", {1, 2}});
        file.records.push_back({"Owner", 9, "twice", {3}});
        writeFile(directory / name, file.build());
    }
    rewriteLAS(directory / "old.las", directory / "plain.las");
    rewriteLAS(directory / "old.las", directory / "plain.laz");
    for (const char* name : {"tiles/a.vxl", "tiles/b.vxl", "tiles/c.vxl"})
        writeFile(directory / name, buildTile(name[6] * 10, 0, 37));
    directory.file("all.list", "tiles/a.vxl\ntiles/b.vxl\ntiles/c.vxl\n");
    directory.file("table.txt", "# X Y Z Intensity Amplitude\n1 2 3 4 0.5\n5 6 7 8 nan\n");
    directory.file("table.xyz", "1 2 3 4 0.5\n5 6 7 8 nan\n");
    for (const char* command :
         {"vxpack -i old.las -o old.vxl", "vxpack -i new.las -o curve.vxl -order hilbert",
          "vxpack -i old.las -o coarse.vxl -quantize 0.02 0.02 0.02", "vxpack -i table.txt -o table.vxl",
          "vxindex -o tiles.index tiles", "vxpack -i tiles -o tiles.vxl -quantize 0.01 0.01 0.01"})
        EXPECT_EQ(run(command).status, 0) << command;
    const std::pair<const char*, const char*> cases[] = {
        {"old.las old.vxl", "20000 points, 16 channels"},
        {"old.vxl old.las -unordered -j 1", "20000 points, 16 channels"},
        {"plain.las -i plain.laz", "20000 points, 16 channels"},
        {"-i curve.vxl -i new.las -unordered", "20000 points, 18 channels"},
        {"old.las coarse.vxl -tolerance 0.01 0.01 0.01", "20000 points, 16 channels"},
        {"old.las coarse.vxl -channels Classification,z -tolerance 0 0 0.01", "20000 points, 2 channels"},
        {"tiles all.list", "111 points, 3 channels"},
        {"tiles.index all.list", "111 points, 3 channels"},
        {"tiles.vxl tiles -tolerance 1e-9 1e-9 1e-9 -j 3", "111 points, 3 channels"},
        {"table.txt table.vxl", "2 points, 5 channels"},
        {"table.xyz table.vxl -parse x,y,z,i,Amplitude:FLOAT64", "2 points, 5 channels"},
    };
    for (const auto& [arguments, counts] : cases) {
        const std::string options = std::string(arguments) + (*arguments == 't' ? " -channels x,y,z" : "");
        const bool isTable = options.rfind("table", 0) == 0;
        const Result result = run("vxdiff " + (isTable ? std::string(arguments) : options));
        EXPECT_EQ(result.output, std::string("equal: ") + counts + '\n') << arguments;
        EXPECT_EQ(result.status, 0) << arguments << result.errors;
    }
    // Blocks end with tiles.
    directory.file("other.list", "tiles/a.vxl\ntiles/c.vxl\ntiles/b.vxl\n");
    EXPECT_EQ(differences("tiles all.list -channels x"), json::object());
    const json samples = differences("tiles other.list -channels x")["samples"];
    EXPECT_EQ(json({samples[0]["numDifferent"], samples[0]["first"][0]["point"]}), json({74, 37}));
    EXPECT_EQ(
        differences("tiles.vxl other.list -channels x -tolerance 1e-9 0 0")["samples"][0]["numDifferent"],
        74);
}

TEST_F(Vxdiff, ReportsEveryKindOfDifference)
{
    const SampleCloud cloud = SampleCloud::make(17000, 1);
    const double numbers[] = {1, 2};
    FilePlan base = cloud.toFile();
    base.wkt = transverseMercator(3);
    base.classNames = {"none", std::nullopt, "ground"};
    base.metadata.add("Alpha", nullptr, METADATA_STRING, "moves", 0);
    base.metadata.add("Owner::9", "first", METADATA_BLOB, "abc", 3);
    base.metadata.add("Owner::9", "second", METADATA_BLOB, "abc", 3);
    base.metadata.add("Range", nullptr, METADATA_FLOAT64_ARRAY, numbers, 2);
    writeFile(directory / "base.vxl", buildFile(base));
    const auto shift = [](FilePlan& plan, std::size_t channel, std::size_t point, int difference) {
        plan.channels[channel].integers[point] += difference;
    };
    const std::tuple<std::function<void(FilePlan&)>, std::string, std::string> cases[] = {
        {[](FilePlan&) {}, "", "{}"},
        {[](FilePlan& p) { std::swap(p.channels[3], p.channels[4]); }, "",
         R"({"notes": ["the channels have another order"]})"},
        {[](FilePlan& p) { p.channels[3].name = "Amplitude"; }, "",
         R"({"layout": [{"name": "Intensity", "a": "UINT16", "b": null},
                        {"name": "Amplitude", "a": null, "b": "UINT16"}]})"},
        {[](FilePlan& p) { p.channels[3].name = "Amplitude"; }, "-channels ClassId,x", "{}"},
        {[](FilePlan& p) { p.channels[4].type = SINT32; }, "-channels ClassId",
         R"({"layout": [{"name": "ClassId", "a": "UINT8", "b": "SINT32"}]})"},
        {[](FilePlan& p) { p.wkt = transverseMercator(3, "another name"); }, "", "{}"},
        {[](FilePlan& p) { p.wkt = transverseMercator(9); }, "", R"({"coordinateSystem": "different"})"},
        {[](FilePlan& p) { p.wkt.reset(); }, "", R"({"coordinateSystem": "onlyA"})"},
        {[](FilePlan& p) {
             p.classNames = {"none", "new"};
         },
         "",
         R"({"classNames": [{"class": 1, "a": null, "b": "new"}, {"class": 2, "a": "ground", "b": null}]})"},
        {[](FilePlan& p) {
             p.metadata.remove("Range");
             p.metadata.add("Other", nullptr, METADATA_STRING, "text", 0);
             p.metadata.remove("Owner::9");
             p.metadata.remove("Owner::9");
             p.metadata.add("Owner::9", "other", METADATA_BLOB, "abc", 3);
             p.metadata.add("Owner::9", "second", METADATA_BLOB, "abd", 3);
             p.metadata.remove("Alpha");
             p.metadata.add("Alpha", nullptr, METADATA_STRING, "moves", 0);
             p.metadata.add("TextDecimals", "X", METADATA_STRING, "3", 0);
             p.metadata.add("FileCreationDate", nullptr, METADATA_STRING, "2001-001", 0);
         },
         "",
         R"({"metadata": [{"key": "Other", "a": false, "b": true}, {"key": "Owner::9", "a": true, "b": true},
                          {"key": "Owner::9", "a": true, "b": true},
                          {"key": "Range", "a": true, "b": false}],
             "notes": ["FileCreationDate is only in B"]})"},
        {[&](FilePlan& p) {
             shift(p, 3, 16384, 2);
             shift(p, 3, 16999, 1);
             shift(p, 4, 0, 1);
             p.channels.back().reals[7] = nan;
         },
         "",
         R"({"samples": [
            {"name": "Intensity", "numDifferent": 2, "largestDifference": 2, "first": [
                {"point": 16384, "a": I0, "b": I1}, {"point": 16999, "a": I2, "b": I3}]},
            {"name": "ClassId", "numDifferent": 1, "largestDifference": 1, "first": [
                {"point": 0, "a": 5, "b": 6}]},
            {"name": "Temperature", "numDifferent": 1, "largestDifference": null, "first": [
                {"point": 7, "a": T7, "b": null}]}]})"},
        {[&](FilePlan& p) { shift(p, 0, 9000, 100000); }, "-tolerance 999.99 0 0",
         R"({"notes": ["X has 13 significant bits in A and 17 in B"], "samples": [{"name": "X", "numDifferent": 1, "largestDifference": 1000.0,
             "first": [{"point": 9000, "a": X0, "b": X1}]}]})"},
        {[&](FilePlan& p) { shift(p, 0, 9000, 100000); }, "-tolerance 1000 0 0",
         R"({"notes": ["X has 13 significant bits in A and 17 in B"]})"},
    };
    const std::pair<const char*, json> values[] = {
        {"I0", cloud.intensity[16384]},
        {"I1", cloud.intensity[16384] + 2},
        {"I2", cloud.intensity[16999]},
        {"I3", cloud.intensity[16999] + 1},
        {"T7", cloud.temperature[7]},
        {"X0", cloud.coordinates[0][9000]},
        {"X1", static_cast<double>(cloud.steps[0][9000] + 100000) * 0.01 + 500000}};
    for (const auto& [change, options, text] : cases) {
        FilePlan plan = base;
        change(plan);
        writeFile(directory / "other.vxl", buildFile(plan));
        std::string expected = text;
        for (const auto& [name, value] : values)
            expected = std::regex_replace(expected, std::regex(name), value.dump());
        EXPECT_EQ(differences("base.vxl other.vxl " + options), json::parse(expected)) << text;
    }

    // All of a cloud in one line, and of another length.
    const auto shorter = SampleCloud::make(16000, 1);
    base.channels = shorter.toFile().channels;
    shift(base, 3, 5, 1);
    writeFile(directory / "other.vxl", buildFile(base));
    const std::string text = run("vxdiff base.vxl other.vxl -channels Intensity").output;
    EXPECT_EQ(
        text,
        "different:\n   A: base.vxl\n   B: other.vxl\nPoints:\n   17000 in A, 16000 in B; the first "
        "16000 are compared\nSamples:\n   Intensity             1 difference, at most 1\n      point 5: " +
            std::to_string(cloud.intensity[5]) + " in A, " + std::to_string(cloud.intensity[5] + 1) +
            " in B\n");
}

TEST_F(Vxdiff, CountsPointsRegardlessOfTheirOrder)
{
    directory.file("a.txt", "# X Y Z Intensity\n1 1 1 1\n2 2 2 2\n1 1 1 1\n-0.0 0 0 5\n3 3 3 3\n");
    directory.file("b.txt", "# X Y Z Intensity\n0 0 0 5\n2 2 2 2\n1 1 1 1\n2 2 2 2\n2 2 2 2\n");
    EXPECT_EQ(differences("a.txt b.txt -unordered"), json::parse(R"({"bounds": ["X", "Y", "Z"],
        "onlyA": {"numPoints": 2, "first": [{"point": 2, "samples": [1, 1, 1, 1]},
                                            {"point": 4, "samples": [3, 3, 3, 3]}]},
        "onlyB": {"numPoints": 2, "first": [{"point": 3, "samples": [2, 2, 2, 2]},
                                            {"point": 4, "samples": [2, 2, 2, 2]}]}})"));
    expectContains(run("vxdiff a.txt b.txt -unordered").output,
                   {"\nPoints:\n   2 points only in A:\n      2: X=1 Y=1 Z=1 Intensity=1\n",
                    "\nBounds:\n   X                     0 to 3 in A, 0 to 2 in B\n"});
}

// Samples of two clouds that are equal except in some points, and how an independent comparison sees them.
struct Pairs
{
    Scoped<MemoryPointSource> a, b;
    std::vector<std::vector<bool>> differs; // by channel and point
    std::vector<long double> largest;       // by channel
};

template <class T, class U>
bool areEqual(T x, U y)
{
    const auto wideX = static_cast<long double>(x), wideY = static_cast<long double>(y); // exact: 64 bits
    std::uint64_t bitsX, bitsY;
    const auto realX = static_cast<double>(x), realY = static_cast<double>(y);
    std::memcpy(&bitsX, &realX, sizeof bitsX);
    std::memcpy(&bitsY, &realY, sizeof bitsY);
    return wideX == wideY || (std::isnan(realX) && bitsX == bitsY);
}

ComparedChannels allChannels(const Pairs& pairs)
{
    ComparedChannels channels{pairs.a->getPointInfo(), pairs.b->getPointInfo(), {}};
    for (std::size_t i = 0; i < channels.a.getNumChannels(); ++i)
        channels.compared.push_back(i);
    return channels;
}

// Channels of all pairs of types.
Pairs makePairs(std::size_t count, std::uint64_t seed)
{
    constexpr DataType types[] = {UINT8,  SINT8,   UINT16, SINT16, UINT32,
                                  SINT32, FLOAT32, UINT64, SINT64, FLOAT64};
    Random random(seed);
    PointInfo a = layoutXYZ(), b = layoutXYZ();
    for (const DataType inA : types)
        for (const DataType inB : types) {
            const std::string name = std::to_string(a.getNumChannels());
            a.append(channel(name.c_str(), inA));
            b.append(channel(name.c_str(), inB));
        }
    Pairs pairs;
    const MemoryPointSource::Columns zeros(a.getNumChannels(), Numbers(count, 0.0));
    pairs.a = MemoryPointSource::make(a, zeros);
    pairs.b = MemoryPointSource::make(b, zeros);
    for (std::size_t c = 0; c < a.getNumChannels(); ++c) {
        auto& differs = pairs.differs.emplace_back(count);
        auto& largest = pairs.largest.emplace_back(0);
        const char* const name = a.getChannel(c).getName();
        visitDataType(a.getChannel(c).getDataType(), [&](auto x) {
            visitDataType(b.getChannel(c).getDataType(), [&](auto y) {
                using X = decltype(x);
                using Y = decltype(y);
                auto* const inA = static_cast<X*>(pairs.a->column(name).getData());
                auto* const inB = static_cast<Y*>(pairs.b->column(name).getData());
                fillRandomly(random, inA, count, c < 3);
                fillRandomly(random, inB, count, c < 3);
                for (std::size_t i = 0; i < count; ++i) {
                    const auto value = static_cast<long double>(inA[i]);
                    const bool fits = value >= static_cast<long double>(std::numeric_limits<Y>::lowest()) &&
                                      value <= static_cast<long double>(std::numeric_limits<Y>::max());
                    if ((fits || std::is_same_v<X, Y>)&&!random.chance(0.01))
                        inB[i] = static_cast<Y>(inA[i]); // can still differ, by rounding
                    differs[i] = !areEqual(inA[i], inB[i]);
                    const long double distance = std::fabs(value - static_cast<long double>(inB[i]));
                    if (differs[i] && distance > largest)
                        largest = distance;
                }
            });
        });
    }
    return pairs;
}

TEST(PointComparison, ComparesAllPairsOfTypesByValue)
{
    for (const std::uint64_t seed : {1, 2, 3, 4, 5, 6}) {
        const Pairs pairs = makePairs(seed * 700, seed);
        ProgressLog progress;
        DiffReport report;
        comparePoints(*pairs.a, *pairs.b, allChannels(pairs), nullptr, progress, report);
        EXPECT_EQ(report.a.numPoints, seed * 700);
        std::size_t numFound = 0;
        for (std::size_t c = 0; c < pairs.differs.size(); ++c) {
            const auto& differs = pairs.differs[c];
            const auto count = static_cast<std::uint64_t>(std::count(differs.begin(), differs.end(), true));
            if (count == 0)
                continue;
            ASSERT_LT(numFound, report.samples.size());
            const DiffReport::Samples& found = report.samples[numFound++];
            SCOPED_TRACE(found.name);
            EXPECT_EQ(found.name, pairs.a->getChannel(c).getName());
            EXPECT_EQ(found.numDifferent, count);
            const auto largest =
                std::visit([](auto value) { return static_cast<long double>(value); }, found.largest);
            if (pairs.largest[c] > 0 && pairs.largest[c] < 1e300L) {
                EXPECT_NEAR(static_cast<double>(largest / pairs.largest[c]), 1, 1e-15);
            }
            std::size_t place = 0;
            for (std::size_t i = 0; i < differs.size() && place < found.first.size(); ++i)
                if (differs[i]) {
                    EXPECT_EQ(found.first[place++].point, i);
                }
            EXPECT_EQ(place, std::min<std::uint64_t>(count, DiffReport::maxShown));
        }
        EXPECT_EQ(numFound, report.samples.size());
    }
}

// Short sorted runs, so that they are merged in several levels.
TEST(UnorderedComparison, CountsPointsAsAMultisetDoes)
{
    for (const std::size_t count : {0u, 1u, 700u, 5000u}) {
        const PointInfo layout = layoutXYZ({channel("A", UINT8), channel("B", SINT16)});
        Random random(count);
        MemoryPointSource::Columns inA(5), inB(5);
        std::vector<Numbers> rows;
        for (std::size_t i = 0; i < count; ++i)
            rows.push_back({static_cast<double>(random.below(4)), 1, -0.0,
                            static_cast<double>(random.below(9)), static_cast<double>(random.below(3)) - 1});
        std::multiset<Numbers> onlyA;
        std::vector<std::pair<std::uint64_t, Numbers>> onlyB; // with their indices
        for (const Numbers& row : rows) {
            onlyA.insert(row);
            for (std::size_t c = 0; c < 5; ++c)
                inA[c].push_back(row[c]);
        }
        for (std::size_t i = rows.size(); i > 1; --i)
            std::swap(rows[i - 1], rows[random.below(i)]);
        for (Numbers row : rows) {
            if (random.chance(0.02))
                row[3] = 9;
            row[2] = 0; // equals -0.0
            const auto found = onlyA.find(row);
            if (found != onlyA.end())
                onlyA.erase(found);
            else
                onlyB.emplace_back(inB[0].size(), row);
            for (std::size_t c = 0; c < 5; ++c)
                inB[c].push_back(row[c]);
        }
        PointInfo wide = layout;
        wide.getChannel(3) = channel("A", FLOAT64);
        for (const PointInfo& other : {layout, wide}) {
            const Pairs pairs{
                MemoryPointSource::make(layout, inA), MemoryPointSource::make(other, inB), {}, {}};
            for (const std::size_t run : {500u, 32u << 20}) {
                ProgressLog progress;
                DiffReport report;
                compareUnordered(*pairs.a, *pairs.b, allChannels(pairs), progress, report, {run, 200, 1});
                EXPECT_EQ(report.onlyA.numPoints, onlyA.size());
                EXPECT_EQ(report.onlyB.numPoints, onlyB.size());
                EXPECT_EQ(report.b.numPoints, count);
                for (std::size_t i = 0; i < report.onlyB.first.size(); ++i) {
                    Numbers row;
                    for (const Sample& sample : report.onlyB.first[i].samples)
                        row.push_back(std::visit([](auto v) { return static_cast<double>(v); }, sample));
                    EXPECT_EQ(std::pair(report.onlyB.first[i].index, row), onlyB.at(i));
                }
                EXPECT_EQ(report.onlyB.first.size(), std::min(onlyB.size(), DiffReport::maxShown));
            }
        }
    }
}

}} // namespace Quillmoran::Testing

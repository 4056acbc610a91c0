// Pictures of small clouds, whose cells are known, and where they are written.
#include "apps/AppTest.h"
#include "support/LASClouds.h"
#include "view/Image.h"

#include <gdal.h>
#include <png.h>
#include <set>

namespace Quillmoran::Testing { namespace {

constexpr Color white = {255, 255, 255}, ground = {165, 115, 65}, lowVegetation = {165, 215, 100},
                highVegetation = {20, 115, 45}, building = {225, 85, 45}, water = {55, 130, 215};

using Pixel = std::tuple<int, int, int, int>;

Pixel toPixel(const Color& color)
{
    return {color.red, color.green, color.blue, color.alpha};
}

std::set<Pixel> colorsOf(const Image& image, std::size_t firstColumn = 0)
{
    std::set<Pixel> colors;
    for (std::size_t y = 0; y < image.height(); ++y)
        for (const Color& color : image.row(y).subspan(firstColumn))
            colors.insert(toPixel(color));
    return colors;
}

class Vxview : public AppTest
{
protected:
    static constexpr std::size_t side = 16;

    // A point in the middle of each cell of 16 x 16, with some changes.
    Vxview()
    {
        std::string text = "# X Y Z ClassId\n0 0 0 2\n16 16 0 2\n";
        const auto add = [&text](double x, double y, double z, int number) {
            text += std::to_string(x) + ' ' + std::to_string(y) + ' ' + std::to_string(z) + ' ' +
                    std::to_string(number) + '\n';
        };
        for (std::size_t y = 0; y < side; ++y)
            for (std::size_t x = 0; x < side; ++x)
                if ((x < 8 || y < 8) && !(x == 5 && y == 4))
                    add(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5, 0,
                        y == 2   ? 3
                        : y == 3 ? 9
                                 : 2);
        add(3.2, 12.2, 5, 6); // higher than what comes before and after it
        add(3.3, 12.3, 4, 9);
        add(10.5, 0.2, 1, 5); // as high as what comes after it
        add(10.6, 0.3, 1, 6);
        add(13.5, 13.5, 1, 6); // alone
        directory.file("a.txt", text);
    }

    Image load(const std::string& name) const
    {
        png_image png = {};
        png.version = PNG_IMAGE_VERSION;
        EXPECT_NE(png_image_begin_read_from_file(&png, (directory / name).c_str()), 0) << png.message;
        png.format = PNG_FORMAT_RGBA;
        std::vector<Color> pixels(std::size_t{png.width} * png.height);
        EXPECT_NE(png_image_finish_read(&png, nullptr, pixels.data(), 0, nullptr), 0) << png.message;
        Image image(png.width, png.height, {});
        for (std::size_t y = 0; y < image.height(); ++y)
            std::copy_n(pixels.begin() + static_cast<std::ptrdiff_t>(y * image.width()), image.width(),
                        image.row(y).begin());
        return image;
    }
    Image view(const std::string& arguments) const
    {
        succeed("vxview -o out.png " + arguments);
        return load("out.png");
    }
};

TEST_F(Vxview, ShowsTheHighestPointOfEachCellAndFillsOnlySmallGaps)
{
    const Image image = view("a.txt -size 16 -noLegend -by class");
    ASSERT_EQ(image.width(), side);
    ASSERT_EQ(image.height(), side);
    const auto at = [&image](std::size_t x, std::size_t y) { return toPixel(image.row(side - 1 - y)[x]); };
    for (std::size_t x = 0; x < side; ++x) {
        EXPECT_EQ(at(x, 2), toPixel(lowVegetation)) << x;
        EXPECT_EQ(at(x, 3), toPixel(water)) << x;
    }
    EXPECT_EQ(at(3, 12), toPixel(building));
    EXPECT_EQ(at(10, 0), toPixel(highVegetation));
    EXPECT_EQ(at(13, 13), toPixel(building));
    EXPECT_NE(at(5, 4), toPixel(white)) << "a gap of one cell";
    EXPECT_EQ(at(7, 15), toPixel(ground));
    for (std::size_t y = 10; y < 13; ++y)
        for (std::size_t x = 8; x < 12; ++x)
            EXPECT_EQ(at(x, y), toPixel(white)) << "an empty area, next to points";

    const std::string bytes = readFile(directory / "out.png");
    succeed("vxpack -q a.txt");
    for (const char* arguments : {"a.txt -j 1", "a.vxl -j 1 -s 1", "a.vxl -j 5 -s 1", "a.txt -o - -j 3"}) {
        const Result result =
            shell("vxview -q -o out2.png -size 16 -noLegend -by class " + std::string(arguments) + " >piped");
        EXPECT_EQ(result.errors, "") << arguments;
        const bool isPiped = exists("piped") && std::filesystem::file_size(directory / "piped") != 0;
        EXPECT_TRUE(readFile(directory / (isPiped ? "piped" : "out2.png")) == bytes) << arguments;
    }
}

TEST_F(Vxview, SectionsShowTheNearestPointsOfTheirCorridor)
{
    const std::string options = "a.txt -size 32 -noLegend -by class -profile ";
    // Points of classes 3 and 9 are south and north of the line.
    EXPECT_EQ(colorsOf(view(options + "0 3 16 3 1.1")),
              (std::set<Pixel>{toPixel(lowVegetation), toPixel(white)}));
    EXPECT_EQ(colorsOf(view("-view profile 16 3 0 3 1.1 a.txt -size 32 -noLegend -by class")),
              (std::set<Pixel>{toPixel(water), toPixel(white)}));
    EXPECT_EQ(colorsOf(view(options + "0 3.5 16 3.5 1.9")),
              (std::set<Pixel>{toPixel(water), toPixel(white)}));
    // Slanted corridors are read as several boxes.
    succeed("vxpack -q a.txt");
    for (const char* input : {"a.txt", "a.vxl -s 1"})
        expectContains(succeed(std::string("vxview -f -profile 0 0 8 8 1 ") + input), {", 9 points, "});
    // The line ends before the points on the right.
    const Image image = view("a.txt -size 32 -noLegend -by class -profile 0 12.2 32 12.2 1");
    EXPECT_EQ(colorsOf(image, 18), std::set<Pixel>{toPixel(white)});
    std::vector<std::size_t> buildings;
    for (std::size_t y = 0; y < image.height(); ++y)
        for (std::size_t x = 0; x < image.width(); ++x)
            if (image.row(y)[x] == building)
                buildings.push_back(x);
    ASSERT_FALSE(buildings.empty());
    EXPECT_LE(buildings.back(), 4u) << "its distance along the line is 3.2 of 32";
    const Image side = view("a.txt -view side -size 64 -noLegend -by class");
    EXPECT_EQ(colorsOf(side).count(toPixel(water)), 1u) << "the nearest point is low";
}

TEST_F(Vxview, LegendsListWhatThePictureShows)
{
    const Image bare = view("a.txt -size 64 -by class -noLegend -c 0 16 0 8 -1 9");
    const Image image = view("a.txt -size 64 -by class -c 0 16 0 8 -1 9");
    ASSERT_GT(image.width(), bare.width() + 100);
    for (std::size_t y = 0; y < bare.height(); ++y)
        EXPECT_TRUE(std::ranges::equal(bare.row(y), image.row(y).first(bare.width()))) << y;
    const std::set<Pixel> colors = colorsOf(image, bare.width());
    for (const Color& shown : {ground, lowVegetation, water, highVegetation})
        EXPECT_EQ(colors.count(toPixel(shown)), 1u);
    EXPECT_EQ(colors.count(toPixel(building)), 0u) << "no building is in the box";
    // The colours of the survey are used by default, and elevations where all are the same.
    EXPECT_NE(succeed("vxview survey.vxl").find("survey.png: "), std::string::npos);
    LASFile file = randomLASFile(2, 2, 500, 1);
    for (LASFilePoint& point : file.points)
        point.red = point.green = point.blue = 7;
    writeFile(directory / "gray.las", file.build());
    EXPECT_GT(colorsOf(view("gray.las -noLegend")).size(), 20u);
}

TEST_F(Vxview, IgnoresBoundsOfAHeaderThatAreTooLarge)
{
    LASFile file = randomLASFile(1, 2, 3000, 2);
    writeFile(directory / "right.las", file.build());
    view("right.las -noLegend -by class");
    const std::string expected = readFile(directory / "out.png");
    file.max = {file.max[0] + 1e6, file.max[1] + 1e5, file.max[2]};
    writeFile(directory / "wrong.las", file.build());
    view("wrong.las -noLegend -by class");
    EXPECT_TRUE(readFile(directory / "out.png") == expected);
    for (const double bound : {1e300, infinity, std::nan("")}) {
        file.max[1] = bound;
        writeFile(directory / "hostile.las", file.build());
        const Result result = run("vxview hostile.las -o hostile.png");
        EXPECT_TRUE(result.status == 0 || (result.status == 1 && !exists("hostile.png"))) << result.status;
    }
}

TEST_F(Vxview, ReadsTheOverviewOfATileSet)
{
    for (const char* name : {"tiles/a.vxl", "tiles/b.vxl"})
        writeFile(directory / name, buildExampleSurvey());
    succeed("vxindex -q -o t.index tiles -overview o.vxl -createOverview -overviewFraction 0.0075");
    std::filesystem::remove_all(directory / "tiles");
    const std::string output = succeed("vxview t.index -o out.png -size 32");
    expectContains(output, {", 36 points, "}); // of 4800
    EXPECT_EQ(run("vxview t.index -o fine.png -size 512").status, 1) << "needs the tiles";
    EXPECT_FALSE(exists("fine.png"));
}

TEST_F(Vxview, WritesGeoTIFFFilesOfTheSamePixels)
{
    const Image image = view("survey.vxl -size 100 -noLegend -background 010203");
    succeed("vxview survey.vxl -size 100 -o out.tif");
    GDALAllRegister();
    GDALDatasetH file = GDALOpen((directory / "out.tif").c_str(), GA_ReadOnly);
    ASSERT_NE(file, nullptr);
    double transform[6] = {};
    EXPECT_EQ(GDALGetGeoTransform(file, transform), CE_None);
    EXPECT_DOUBLE_EQ(transform[0], 499999.94);
    EXPECT_DOUBLE_EQ(transform[3], 4100039.06);
    const auto columns = static_cast<std::size_t>(GDALGetRasterXSize(file)),
               rows = static_cast<std::size_t>(GDALGetRasterYSize(file));
    EXPECT_NEAR(transform[1] * static_cast<double>(columns), 179.82, 1e-6);
    EXPECT_DOUBLE_EQ(transform[5], -transform[1]);
    std::vector<Color> pixels(columns * rows);
    constexpr GDALColorInterp meanings[] = {GCI_RedBand, GCI_GreenBand, GCI_BlueBand, GCI_AlphaBand};
    for (int band = 0; band < 4; ++band)
        EXPECT_EQ(GDALGetRasterColorInterpretation(GDALGetRasterBand(file, band + 1)), meanings[band]);
    EXPECT_EQ(GDALDatasetRasterIO(file, GF_Read, 0, 0, static_cast<int>(columns), static_cast<int>(rows),
                                  pixels.data(), static_cast<int>(columns), static_cast<int>(rows), GDT_Byte,
                                  4, nullptr, 4, static_cast<int>(4 * columns), 1),
              CE_None);
    GDALClose(file);
    const std::size_t scale = image.width() / columns;
    ASSERT_EQ(image.width(), columns * scale);
    ASSERT_EQ(image.height(), rows * scale);
    for (std::size_t y = 0; y < rows; ++y)
        for (std::size_t x = 0; x < columns; ++x) {
            const Color expected = image.row(y * scale)[x * scale], found = pixels[y * columns + x];
            if (expected == Color{1, 2, 3})
                EXPECT_EQ(found.alpha, 0) << x << ' ' << y;
            else
                EXPECT_EQ(toPixel(found), toPixel(expected)) << x << ' ' << y;
        }
}

TEST_F(Vxview, DrawsOnATerminalWithoutAFile)
{
    const std::string output = succeed("vxview survey.vxl -show -size 40");
    expectContains(output, {"\u2580", "\nsurvey.vxl: 40 x "});
    EXPECT_FALSE(exists("survey.png"));
}

}} // namespace Quillmoran::Testing

#include "view/Viewer.h"

#include "files/OutputFile.h"
#include "files/QMFileSpec.h"
#include "files/QMFileUtils.h"
#include "geotiff/GeoTIFFWriter.h"
#include "text/Printable.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Utils.h"
#include "utils/sets/Make.h"
#include "utils/sets/NamedSource.h"
#include "view/Legend.h"
#include "view/PNGWriter.h"
#include "view/ViewOptions.h"
#include <vxunpack/Base.h>
#include <vxunpack/PersistentPointSourceManager.h>
#include <vxunpack/VX7PointReader.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <span>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace Quillmoran {

namespace {

constexpr char description[] = "Draws LiDAR files as pictures";

} // namespace

void Viewer::parse(int argc, const char* const* argv)
{
    const auto isWord = [&](int index, const char* word) {
        return index < argc && std::strcmp(argv[index], word) == 0;
    };
    for (int i = 0; i < argc; ++i) {
        const bool isProfile = (isWord(i, "-view") || isWord(i, "--view")) && isWord(i + 1, "profile");
        m_arguments.push_back(isProfile ? "-profile" : argv[i]);
        i += isProfile;
    }
    Program::parse(static_cast<int>(m_arguments.size()), m_arguments.data());
}

Viewer::Viewer() : Program("vxview", description)
{
    m_cmdLine.setExamples(
        "INPUT... [-o OUTPUT.png] [OPTION...]",
        {{"vxview survey.vxl", "writes survey.png"},
         {"vxview tiles.index -o country.tif", "writes a GeoTIFF"},
         {"vxview survey.laz -by class -o -", "writes a PNG file to standard output"},
         {"vxview survey.vxl -profile 0 0 100 50 4", "draws a cross-section, 4 units wide"}});
    static const std::string inputHelp =
        "file (" + Formats::listInputs() +
        "), list of files, index or directory.  May be repeated; several files become one cloud";
    m_cmdLine.addStringArray("i", "inputFile", inputHelp.c_str(), true, -1);
    m_cmdLine.setExtra("i");
    m_cmdLine.addString(
        "o", "outputFile",
        "name of output file, ending in .png, .tif or .tiff, or '-'.  By default the name of\n"
        "  the only input with the ending .png",
        false);
    m_cmdLine.addFlag("f", "force", "replace a file that exists, if the output is not named");
    m_cmdLine.addFlag(
        "show", nullptr,
        "draw on the terminal instead of a file: as a picture if it can show pictures, else with\n"
        "  coloured blocks");
    ViewOptions::add(m_cmdLine);
    Utils::addFilterOptions(m_cmdLine);
    Utils::addInputFormatOption(m_cmdLine);
    Utils::addDepthOption(m_cmdLine);
    Utils::addTXTPointReaderOptions(m_cmdLine);
}

void Viewer::checkOptions() const
{
    Utils::checkInputs(m_cmdLine);
    ViewOptions::check(m_cmdLine);
    const std::vector<std::string> inputs = Utils::getStrings(m_cmdLine, "inputFile");
    if (m_cmdLine.isPresent("outputFile") && m_cmdLine.getFlag("show"))
        m_cmdLine.usageError("-outputFile and -show exclude each other");
    if (m_cmdLine.isPresent("outputFile") || m_cmdLine.getFlag("show"))
        return;
    if (inputs.size() != 1 || QMFileUtils::isDirectory(inputs[0].c_str()))
        m_cmdLine.usageError("-outputFile is required for several inputs");
    if (Utils::isPipe(inputs[0].c_str()))
        m_cmdLine.usageError("-outputFile is required for points from a pipe");
}

bool Viewer::work()
{
    Utils::ignoreWriteSignals();
    Output output = chooseOutput();
    if (output.kind == Output::Terminal)
        m_graphics = detectTerminalGraphics(STDOUT_FILENO); // before other threads use the terminal
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    Scoped<PointSource> source;
    Utils::ProgressLine progress;
    const ViewedPoints points = openPoints(*files, source, progress);
    if (output.kind != Output::Terminal)
        Utils::refuseInputs(*files, output.name.c_str());
    const Picture picture = makePicture(points, getOptions(output), &progress);
    write(picture, points, output, progress);
    Utils::endProgressLine();
    printResult(picture, points, output);
    return true;
}

Viewer::Output Viewer::chooseOutput() const
{
    const std::vector<std::string> inputs = Utils::getStrings(m_cmdLine, "inputFile");
    Output output;
    if (m_cmdLine.getFlag("show")) {
        output.kind = Output::Terminal;
        return output;
    }
    if (!m_cmdLine.isPresent("outputFile")) {
        output.name = Utils::nameOutput(m_cmdLine, inputs[0], ".png");
        return output;
    }
    output.name = m_cmdLine.getString("outputFile");
    const QMFileSpec file(output.name.c_str());
    const bool isGeoTIFF = file.endsWith(".tif") || file.endsWith(".tiff");
    output.kind = isGeoTIFF ? Output::GeoTIFF : Output::PNG;
    if (isGeoTIFF && ViewOptions::get(m_cmdLine).view == View::Section)
        QM_THROW(ErrorCode::General, "a GeoTIFF shows the points from above: '%s'", output.name.c_str());
    if (!isGeoTIFF && !file.endsWith(".png") && !Utils::isPipe(output.name.c_str()))
        QM_THROW(ErrorCode::General, "the name of the output must end in '.png', '.tif' or '.tiff': '%s'",
                 output.name.c_str());
    const Utils::DataOutput opened = Utils::openOutput(output.name, !isGeoTIFF);
    output.name = opened.name;
    output.stream = opened.stream;
    return output;
}

ViewedPoints Viewer::openPoints(FilePointSourceManager& files, Scoped<PointSource>& source,
                                ProgressDelegate& progress) const
{
    files.setNamesErrors();
    files.getOpener().setOpenFullWaveformFiles(true); // their waveforms are not drawn
    Utils::handleRemoteOption(m_cmdLine, files.getOpener());
    Utils::setTextOptions(files.getOpener(), false, m_cmdLine, &progress);
    const std::vector<std::string> names = Utils::getStrings(m_cmdLine, "inputFile");
    for (const std::string& name : names)
        Utils::addInput(files, Utils::openInput(m_cmdLine, name), Utils::getDepth(m_cmdLine));
    if (files.getNumSources() == 0)
        QM_THROW(ErrorCode::General, "there are no points in the inputs");
    source = Utils::openInputs(files, m_cmdLine.getFlag("verbose") && !Utils::isQuiet());

    ViewedPoints points;
    points.name =
        files.getNumSources() == 1 ? files.getFilename(0) : std::to_string(files.getNumSources()) + " files";
    points.hasLevels = true;
    for (std::size_t i = 0; i < files.getNumSources(); ++i) {
        const PointSourceType type = files.getFileType(i);
        points.hasLevels = points.hasLevels && (type == POINT_SOURCE_VX7 || type == POINT_SOURCE_INDEX);
    }
    if (files.getNumSources() == 1 && files.getFileType(0) == POINT_SOURCE_INDEX)
        points.overviewFraction = make<PersistentPointSourceManager>(files.getFilename(0), &files.getOpener())
                                      ->getOverviewFraction();
    source = Utils::handleFilterOptions(m_cmdLine, source);
    points.source = source.get();
    points.isGeographic = CoordinateSystemName::parse(source->getWKT()).isGeographic;
    return points;
}

ViewOptions Viewer::getOptions(const Output& output) const
{
    ViewOptions options = ViewOptions::get(m_cmdLine);
    if (output.kind == Output::GeoTIFF && !m_cmdLine.isPresent("background"))
        options.background.alpha = 0; // other layers of a map are seen through it
    if (output.kind != Output::Terminal)
        return options;
    constexpr std::size_t ofTerminal = 720, ofBlocks = 160; // pixels
    if (!m_cmdLine.isPresent("size"))
        options.size = m_graphics == TerminalGraphics::Blocks ? ofBlocks : ofTerminal;
    if (m_graphics == TerminalGraphics::Blocks) {
        options.hasLegend = false; // its letters would be larger than the picture
        if (!m_cmdLine.isPresent("background"))
            options.background.alpha = 0;
    }
    return options;
}

void Viewer::write(const Picture& picture, const ViewedPoints& points, Output& output,
                   ProgressDelegate& progress) const
{
    if (output.kind == Output::GeoTIFF)
        return writeGeoTIFF(picture, *points.source, output, progress);
    const ViewOptions options = getOptions(output);
    const std::string title = std::filesystem::path(points.name).filename();
    const Image image = options.hasLegend ? drawPicture(picture, options.background,
                                                        LegendText::describe(*points.source, title))
                                          : drawPicture(picture, options.background);
    if (output.kind == Output::Terminal)
        show(image, output);
    else
        writePNG(image, output, progress);
}

void Viewer::writePNG(const Image& image, Output& output, ProgressDelegate& progress) const
{
    OutputFile file("PNG", OutputFile::SEQUENTIAL);
    if (output.stream)
        file.init(output.stream.get(), output.name.c_str());
    else
        file.init(output.name.c_str());
    file.create();
    const std::vector<std::uint8_t> bytes = encodePNG(image);
    file.checkCancelled(&progress, "writing PNG file");
    writeFully(file.open(), 0, bytes.data(), bytes.size());
    file.commit();
    output.size = static_cast<std::int64_t>(bytes.size());
}

void Viewer::writeGeoTIFF(const Picture& picture, const PointSource& source, Output& output,
                          ProgressDelegate& progress) const
{
    Picture cells = picture;
    cells.projection.pixelsPerCell = 1;
    const Image image = drawPicture(cells, getOptions(output).background);

    GeoTIFFLayout layout;
    layout.columns = image.width();
    layout.rows = image.height();
    layout.xMin = picture.projection.across.min;
    layout.yMax = picture.projection.up.max;
    layout.cellSize = picture.projection.cellWidth;
    layout.cellHeight = picture.projection.cellHeight;
    layout.type = GeoTIFFLayout::Colors;
    layout.bands = {"Red", "Green", "Blue", "Alpha"};
    if (const char* const wkt = source.getWKT())
        layout.wkt = wkt;
    GeoTIFFWriter file(output.name, layout, &progress);
    constexpr std::uint8_t Color::*parts[] = {&Color::red, &Color::green, &Color::blue, &Color::alpha};
    for (std::size_t row = 0; row < image.height(); row += GeoTIFFWriter::blockSize) {
        const std::size_t numRows = std::min(GeoTIFFWriter::blockSize, image.height() - row);
        const std::span<const Color> pixels =
            image.pixels().subspan(row * image.width(), numRows * image.width());
        std::vector<double> values(pixels.size());
        for (std::size_t band = 0; band < std::size(parts); ++band) {
            std::transform(pixels.begin(), pixels.end(), values.begin(),
                           [&](const Color& pixel) { return pixel.*parts[band]; });
            file.write(band, 0, row, image.width(), numRows, values.data());
        }
    }
    file.commit(getNumThreads());
    output.size = QMFileUtils::getSize(output.name.c_str());
}

void Viewer::show(const Image& image, Output& output) const
{
    constexpr std::size_t usual = 80, fewest = 20; // columns
    struct winsize size = {};
    std::size_t columns = usual;
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0)
        columns = std::max<std::size_t>(std::min<std::size_t>(size.ws_col, usual), fewest);
    const std::string text = encodeForTerminal(image, m_graphics, columns);
    Utils::endProgressLine();
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (text.empty() || text.back() != '\n')
        std::putchar('\n');
    output.size = static_cast<std::int64_t>(text.size());
    Utils::finishReport();
}

void Viewer::printResult(const Picture& picture, const ViewedPoints& points, const Output& output) const
{
    if (picture.numOutside != 0)
        Utils::warn(std::to_string(picture.numOutside) + " points of '" + points.name +
                    "' are not drawn: they are outside of the bounds of the file, or not numbers");
    if (picture.numWithoutValue != 0)
        Utils::warn(std::to_string(picture.numWithoutValue) + " points of '" + points.name +
                    "' are not drawn: their values are not numbers");
    if (Utils::isQuiet())
        return;
    const std::string name = output.kind == Output::Terminal ? points.name : output.name;
    const std::size_t scale = output.kind == Output::GeoTIFF ? picture.projection.pixelsPerCell : 1;
    std::printf("%s: %zu x %zu pixels, %llu points, %lld bytes, %s\n", printable(name).c_str(),
                picture.width() / scale, picture.height() / scale,
                static_cast<unsigned long long>(picture.numShown), static_cast<long long>(output.size),
                describeSpeed(static_cast<std::int64_t>(picture.numShown)).c_str());
}

} // namespace Quillmoran

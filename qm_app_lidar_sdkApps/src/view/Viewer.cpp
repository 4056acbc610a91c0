#include "view/Viewer.h"

#include "files/OutputFile.h"
#include "files/QMFileUtils.h"
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
#include <filesystem>
#include <strings.h>

namespace Quillmoran {

namespace {

constexpr char description[] = "Draws LiDAR files as pictures";

bool endsWith(const std::string& name, const char* ending)
{
    const std::size_t length = std::char_traits<char>::length(ending);
    return name.size() >= length && strcasecmp(name.c_str() + name.size() - length, ending) == 0;
}

bool isPipe(const std::string& name)
{
    std::error_code ignored;
    return name == "-" || std::filesystem::is_fifo(name, ignored);
}

} // namespace

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
    if (m_cmdLine.isPresent("outputFile"))
        return;
    if (inputs.size() != 1 || QMFileUtils::isDirectory(inputs[0].c_str()))
        m_cmdLine.usageError("-outputFile is required for several inputs");
    if (isPipe(inputs[0]))
        m_cmdLine.usageError("-outputFile is required for points from a pipe");
}

bool Viewer::work()
{
    Utils::ignoreWriteSignals();
    Output output = chooseOutput();
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    Scoped<PointSource> source;
    Utils::ProgressLine progress;
    const ViewedPoints points = open(*files, source, progress);
    Utils::refuseInputs(*files, output.name.c_str());
    const Picture picture = makePicture(points, ViewOptions::get(m_cmdLine), &progress);
    write(picture, points, output, progress);
    Utils::endProgressLine();
    printResult(picture, points, output);
    return true;
}

Viewer::Output Viewer::chooseOutput() const
{
    const std::vector<std::string> inputs = Utils::getStrings(m_cmdLine, "inputFile");
    Output output;
    if (!m_cmdLine.isPresent("outputFile")) {
        output.name = std::filesystem::path(inputs[0]).replace_extension(".png");
        if (QMFileUtils::exists(output.name.c_str()) && !m_cmdLine.getFlag("force"))
            QM_THROW(ErrorCode::General, "the output '%s' exists; -f replaces it", output.name.c_str());
        return output;
    }
    output.name = m_cmdLine.getString("outputFile");
    output.isGeoTIFF = endsWith(output.name, ".tif") || endsWith(output.name, ".tiff");
    if (output.isGeoTIFF && ViewOptions::get(m_cmdLine).view == View::Section)
        QM_THROW(ErrorCode::General, "a GeoTIFF shows the points from above: '%s'", output.name.c_str());
    if (!output.isGeoTIFF && !endsWith(output.name, ".png") && !isPipe(output.name))
        QM_THROW(ErrorCode::General, "the name of the output must end in '.png', '.tif' or '.tiff': '%s'",
                 output.name.c_str());
    const Utils::DataOutput opened = Utils::openOutput(output.name, true);
    output.name = opened.name;
    output.stream = opened.stream;
    return output;
}

ViewedPoints Viewer::open(FilePointSourceManager& files, Scoped<PointSource>& source,
                          ProgressDelegate& progress) const
{
    files.setNamesErrors();
    files.getOpener().setOpenFullWaveformFiles(true); // their waveforms are not drawn
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
    return points;
}

void Viewer::write(const Picture& picture, const ViewedPoints& points, Output& output,
                   ProgressDelegate& progress) const
{
    OutputFile file("PNG", OutputFile::SEQUENTIAL);
    if (output.stream)
        file.init(output.stream.get(), output.name.c_str());
    else
        file.init(output.name.c_str());
    const ViewOptions options = ViewOptions::get(m_cmdLine);
    const std::string title = std::filesystem::path(points.name).filename();
    const std::vector<std::uint8_t> bytes =
        encodePNG(options.hasLegend
                      ? drawPicture(picture, options.background, LegendText::describe(*points.source, title))
                      : drawPicture(picture, options.background));
    file.checkCancelled(&progress, "writing PNG file");
    writeFully(file.open(), 0, bytes.data(), bytes.size());
    file.commit();
    output.size = static_cast<std::int64_t>(bytes.size());
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
    std::printf("%s: %zu x %zu pixels, %llu points, %lld bytes, %s\n", output.name.c_str(), picture.width(),
                picture.height(), static_cast<unsigned long long>(picture.numShown),
                static_cast<long long>(output.size),
                describeSpeed(static_cast<std::int64_t>(picture.numShown)).c_str());
}

} // namespace Quillmoran

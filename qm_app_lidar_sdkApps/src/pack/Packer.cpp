#include "pack/Packer.h"

#include "common/coders/TransformUtils.h"
#include "files/QMFileUtils.h"
#include "las/header/LASRestore.h"
#include "model/ChannelNames.h"
#include "pack/DescriptionOptions.h"
#include "pack/OrderChooser.h"
#include "pack/PackOptions.h"
#include "rewrite/VX7Rewriter.h"
#include "text/Printable.h"
#include "utils/program/Batch.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Utils.h"
#include "utils/sets/Make.h"
#include "utils/sets/NamedSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/QuantizeFilter.h>
#include <vxunpack/TimeOrder.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <utility>

namespace Quillmoran {

namespace {

constexpr char description[] = "Encodes LiDAR files as VX7 files";

// A line for each kernel channel with its coding and its size.
void printPackReport(const std::vector<VX7PointWriter::ChannelSummary>& records, std::int64_t numPoints)
{
    std::printf("   %-20s %12s %8s %9s %12s %16s  %s\n", "Record", "Bytes", "a Point", "Subblock", "Scale",
                "Offset", "Transform");
    for (const VX7PointWriter::ChannelSummary& channel : records) {
        const double perPoint =
            numPoints == 0 ? 0 : static_cast<double>(channel.size) / static_cast<double>(numPoints);
        std::printf("   %-20s %12lld %8.3f %9u %12g %16.10g  %d (%s)\n", printable(channel.name).c_str(),
                    static_cast<long long>(channel.size), perPoint, channel.subblockSize, channel.scale,
                    channel.offset + 0.0, static_cast<int>(channel.transform),
                    TransformUtils::toString(channel.transform).c_str());
    }
}

// "'a.las'", "'a.las' and 3 others"
std::string describeInputs(const std::vector<std::string>& names)
{
    const std::string first = '\'' + names[0] + '\'';
    return names.size() == 1 ? first : first + " and " + std::to_string(names.size() - 1) + " others";
}

// Warns if the file does not keep the scale of a coordinate.
void warnOfLostScales(const std::vector<VX7PointWriter::ChannelSummary>& records, const PointInfo& layout,
                      const char* output)
{
    std::string names;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z}) {
        const ChannelInfo* channel = layout.getChannel(name);
        // The parts of a split channel have other names.
        const bool isKept = std::any_of(records.begin(), records.end(), [name](const auto& record) {
            return record.name == name && record.scale != 0;
        });
        if (channel && channel->getQuantization() != 0 && !isKept)
            names += std::string(names.empty() ? "" : ", ") + name;
    }
    if (!names.empty())
        Utils::warn(std::string("'") + output + "': the scale and offset of " + names +
                    " are not stored, since the file has these coordinates as floating-point numbers; LAS "
                    "output rounds "
                    "them to 0.001 unless -sc is given");
}

// The names of pipes need no ending.
} // namespace

Packer::Packer() : Program("vxpack", description)
{
    m_cmdLine.setExamples("INPUT... [-o OUTPUT.vxl | -od DIRECTORY] [OPTION...]",
                          {{"vxpack survey.laz", "writes survey.vxl"},
                           {"vxpack *.laz -o all.vxl", "joins files into one"},
                           {"vxpack tiles/ -od out/", "converts each file of a directory tree"}});
    static const std::string inputHelp =
        "file (" + Formats::listInputs() +
        "), list of files, index or directory.  May be repeated; several files become one cloud";
    m_cmdLine.addStringArray("i", "inputFile", inputHelp.c_str(), true, -1);
    m_cmdLine.setExtra("i");
    m_cmdLine.addString("o", "outputFile",
                        "name of output file, ending in .vxl.  By default the name of the only input with "
                        "this ending",
                        false);
    Utils::addInputFormatOption(m_cmdLine);
    Utils::addBatchOptions(m_cmdLine, "convert each file by itself to a .vxl file in this directory");
    Utils::addDepthOption(m_cmdLine);
    Utils::addTXTPointReaderOptions(m_cmdLine);
    Utils::addGPSWeekOption(m_cmdLine);
    Utils::addOutFieldsOption(m_cmdLine);
    DescriptionOptions::add(m_cmdLine);
    Utils::addWaveformOption(m_cmdLine);
    Utils::addFilterOptions(m_cmdLine);
    Utils::addSubsampleOption(m_cmdLine);
    Utils::addCropOption(m_cmdLine);
    m_cmdLine.addFloatArray(
        "quantize", nullptr,
        "round coordinates to these steps (x, y, z).  The only option that changes values", false, 3);
    m_cmdLine.addString(
        "order", nullptr,
        "order of the points: input (default), time, hilbert or auto.\n"
        "  'input' keeps the order, 'time' sorts by GPS time, which makes tiled surveys smaller, 'hilbert'\n"
        "  sorts along a curve that keeps neighbours together, so that boxes are read faster, and 'auto'\n"
        "  tries the three on samples and uses the one of the smallest file",
        false);
    m_cmdLine.setChoices("order", {"input", "time", "hilbert", "auto"});
    PackOptions::add(m_cmdLine);
}

void Packer::checkOptions() const
{
    Utils::checkQueryOptions(m_cmdLine);
    DescriptionOptions::check(m_cmdLine);
    Utils::checkInputs(m_cmdLine);
    const std::vector<std::string> inputs = Utils::getStrings(m_cmdLine, "inputFile");
    const bool isEach = m_cmdLine.isPresent("outputDirectory");
    if (isEach && m_cmdLine.isPresent("outputFile"))
        m_cmdLine.usageError("-outputFile and -outputDirectory exclude each other");
    if (!isEach && !m_cmdLine.isPresent("outputFile") &&
        (inputs.size() != 1 || QMFileUtils::isDirectory(inputs[0].c_str())))
        m_cmdLine.usageError("-outputFile or -outputDirectory is required for several inputs");
    if (!isEach && !m_cmdLine.isPresent("outputFile") && Utils::isPipe(inputs[0].c_str()))
        m_cmdLine.usageError("-outputFile is required for points from a pipe");
    if (const double* steps = m_cmdLine.getFloatArray("quantize"))
        if (std::any_of(steps, steps + 3, [](double step) { return !(step > 0) || std::isinf(step); }))
            m_cmdLine.usageError("the steps of -quantize must be numbers above 0");
}

bool Packer::work()
{
    Utils::ignoreWriteSignals();
    if (m_cmdLine.isPresent("outputDirectory"))
        return packEach();
    Task task;
    task.inputs = Utils::getStrings(m_cmdLine, "inputFile");
    const Utils::DataOutput output = Utils::openOutput(chooseOutput(task.inputs), false);
    task.output = output.name;
    task.stream = output.stream;
    {
        Utils::ProgressLine progress;
        pack(task, progress, m_cmdLine.getFlag("verbose") && !Utils::isQuiet());
    }
    printResult(task);
    return true;
}

std::string Packer::chooseOutput(const std::vector<std::string>& inputs) const
{
    if (m_cmdLine.isPresent("outputFile")) {
        const char* const output = m_cmdLine.getString("outputFile");
        if (Utils::getPointSourceType(output) != POINT_SOURCE_VX7 && !Utils::isPipe(output))
            QM_THROW(ErrorCode::General, "the name of the output must end in '.vxl': '%s'", output);
        return output;
    }
    return Utils::nameOutput(m_cmdLine, inputs[0], ".vxl");
}

void Packer::pack(Task& task, ProgressDelegate& progress, bool verbose) const
{
    EncodeOptions options = PackOptions::get(m_cmdLine);
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->setNamesErrors();
    Utils::handleWaveformOption(m_cmdLine, files->getOpener());
    Utils::handleRemoteOption(m_cmdLine, files->getOpener());
    addInputs(*files, task, progress);
    const DescriptionOptions description(m_cmdLine);
    Utils::MergeOptions merge = Utils::getMergeOptions(m_cmdLine);
    merge.givesCoordinateSystem = description.getWKT().has_value();
    merge.examinesOnlyFile = false; // the writer translates its coordinate system while it encodes the points
    const Scoped<PointSource> opened = Utils::openInputs(*files, verbose, merge);
    const auto* const file = dynamic_cast<const VX7PointReader*>(&NamedSource::unwrap(*opened));
    if (file && description.isPresent() && !changesPoints()) {
        copy(*file, description, task, progress);
        return;
    }
    const Scoped<PointSource> unsorted = applyFilters(description.apply(opened));

    const PointInfo layout = description.choose(Utils::getOutFields(m_cmdLine, *unsorted, true));
    if (!layout.hasValidXYZ()) // otherwise the readers would report it as a fault of the file
        QM_THROW(ErrorCode::InvalidArgument, "must have x, y, and z channels");
    PackOptions::resolveChannels(options, layout);
    const Scoped<PointSource> source = applyOrder(*unsorted, task, layout, options, progress);
    const auto writer = task.stream ? make<VX7PointWriter>(source.get(), task.stream.get())
                                    : make<VX7PointWriter>(source.get(), task.output.c_str());
    warnOfUnrestorable(*files, writer->getMetadata());
    writer->setMetadata(describe(writer->getMetadata(), description));
    writer->setOptions(options);
    task.numPoints =
        writer->write(Utils::getCropBox(m_cmdLine), Utils::getFraction(m_cmdLine), layout, &progress);
    task.size = writer->getFileSize();
    task.records = writer->getSummary();
    task.restart = writer->getRestart();
    if (files->getNumSources() == 1 && !merge.givesCoordinateSystem)
        Utils::warnOfUnknownCoordinateSystem(*opened, files->getFilename(0), Utils::warn);
    warnOfLostScales(task.records, layout, task.output.c_str());
    if (task.numPoints == 0)
        Utils::warnOfEmptyOutput(m_cmdLine, *source, task.output, Utils::getStrings(m_cmdLine, "filter"));
}

// Whether any option asks for other points, another order or another coding.
bool Packer::changesPoints() const
{
    constexpr const char* options[] = {"outFields",      "crop",         "subsample",     "filter",
                                       "quantize",       "gpsWeek",      "transform",     "smooth",
                                       "levels",         "subblockSize", "fileVersion",   "bandVersion",
                                       "pointsPerEntry", "indexVersion", "headerVersion", "prefer"};
    return std::any_of(std::begin(options), std::end(options),
                       [this](const char* option) { return m_cmdLine.isPresent(option); }) ||
           (m_cmdLine.isPresent("order") && std::strcmp(m_cmdLine.getString("order"), "input") != 0);
}

// The metadata of the output.
Metadata Packer::describe(Metadata metadata, const DescriptionOptions& description) const
{
    if (m_cmdLine.getFlag("dropWaveforms"))
        metadata = Utils::withoutWaveformRecords(std::move(metadata));
    description.apply(metadata);
    return metadata;
}

void Packer::copy(const VX7PointReader& file, const DescriptionOptions& description, Task& task,
                  ProgressDelegate& progress) const
{
    const std::string& name = task.inputs[0];
    RewriteOptions options;
    if (description.choosesChannels())
        options.channels = description.choose(file.getPointInfo());
    if (description.changesMetadata() || m_cmdLine.getFlag("dropWaveforms")) {
        options.metadata = naming(name, [&] {
            Metadata metadata;
            file.loadMetadata(metadata, false);
            return describe(std::move(metadata), description);
        });
    }
    options.wkt = description.getWKT();
    naming(name, [&] {
        VX7Rewriter rewriter(file, std::move(options));
        task.size = task.stream ? rewriter.write(task.stream.get(), &progress)
                                : rewriter.write(task.output.c_str(), &progress);
        task.records = rewriter.getSummary();
    });
    task.isCopy = true;
    task.numPoints = file.getNumPoints();
}

bool Packer::packEach() const
{
    const auto conversions = Utils::planConversions(
        Utils::getStrings(m_cmdLine, "inputFile"), Utils::getBatchDepth(m_cmdLine),
        m_cmdLine.getString("outputDirectory"), ".vxl", [](const char*) { return true; },
        m_cmdLine.getFlag("allowRemote"));
    const auto convert = [this](const Utils::Conversion& conversion, ProgressDelegate& progress) {
        Task task;
        task.inputs = {conversion.input};
        task.output = conversion.output;
        pack(task, progress, false);
        return Utils::Converted{task.numPoints, task.size};
    };
    const Utils::BatchResult result =
        Utils::convertAll(conversions, getNumThreads(), m_cmdLine.getFlag("force"), convert);
    return Utils::reportBatch(result, describeSpeed(result.sum.numPoints));
}

void Packer::addInputs(FilePointSourceManager& files, const Task& task, ProgressDelegate& delegate) const
{
    // A mosaic needs the bounds of its files, so text is scanned when it is opened. A single text file is
    // not: the writer needs only samples of it.
    std::vector<Utils::Input> inputs;
    for (const std::string& name : task.inputs) {
        Utils::refuseSameFile(name.c_str(), task.output.c_str());
        inputs.push_back(Utils::openInput(m_cmdLine, name));
    }
    const bool isMosaic = inputs.size() > 1 || inputs[0].type != POINT_SOURCE_TEXT;
    Utils::setTextOptions(files.getOpener(), isMosaic, m_cmdLine, &delegate);
    for (const Utils::Input& input : inputs)
        Utils::addInput(files, input, Utils::getDepth(m_cmdLine));
    if (files.getNumSources() == 0)
        QM_THROW(ErrorCode::General, "there are no files to read");
    Utils::refuseInputs(files, task.output.c_str());
}

void Packer::warnOfUnrestorable(FilePointSourceManager& files, const Metadata& metadata) const
{
    if (files.getNumSources() != 1 || metadata.has(LASRestore::key))
        return;
    const Scoped<PointSource> source(files.createPointSource(0));
    if (dynamic_cast<const LASPointReader*>(&NamedSource::unwrap(*source)))
        Utils::warn(
            std::string("'") + files.getFilename(0) +
            "': vxunpack -restore will not give back this file byte for byte, since it has more than 64 "
            "MiB besides its points, or offsets that are too large for its scale");
}

Scoped<PointSource> Packer::applyFilters(Scoped<PointSource> source) const
{
    source = Utils::handleFilterOptions(m_cmdLine, source);
    if (m_cmdLine.isPresent("quantize"))
        source = make<QuantizeFilter, PointSource>(source.get(), m_cmdLine.getFloatArray("quantize"));
    return source;
}

Scoped<PointSource> Packer::applyOrder(PointSource& source, const Task& task, const PointInfo& layout,
                                       const EncodeOptions& options, ProgressDelegate& progress) const
{
    const std::string name = m_cmdLine.isPresent("order") ? m_cmdLine.getString("order") : "input";
    if (name == "time" && !TimeOrder::findTime(source.getPointInfo()))
        QM_THROW(ErrorCode::NoSuchChannel, "cannot sort %s by time: no channel GPSTime or GPSTime_Adjusted",
                 describeInputs(task.inputs).c_str());
    for (const auto& [order, orderName] : OrderChooser::names)
        if (name == orderName)
            return PointOrder::sort(&source, order);
    OrderChooser chooser(source, {Utils::getCropBox(m_cmdLine), Utils::getFraction(m_cmdLine), layout},
                         options);
    const Order order = chooser.choose(&progress);
    if (!Utils::isQuiet()) {
        Utils::endProgressLine();
        const bool isEach = m_cmdLine.isPresent("outputDirectory");
        std::printf("%s%s\n", isEach ? (printable(task.output.c_str()) + ": ").c_str() : "",
                    chooser.describe().c_str());
    }
    return PointOrder::sort(&source, order);
}

void Packer::printResult(const Task& task) const
{
    if (Utils::isQuiet())
        return;
    std::printf("%lld points written, %lld bytes", static_cast<long long>(task.numPoints),
                static_cast<long long>(task.size));
    if (task.numPoints > 0)
        std::printf(", %.3f a point", static_cast<double>(task.size) / static_cast<double>(task.numPoints));
    std::printf("%s, %s\n", task.isCopy ? ", bands copied" : "", describeSpeed(task.numPoints).c_str());
    if (m_cmdLine.isPresent("quantize")) {
        const double* steps = m_cmdLine.getFloatArray("quantize");
        std::printf("coordinates were rounded to steps of %g, %g and %g: this file is not lossless\n",
                    steps[0], steps[1], steps[2]);
    }
    if (m_cmdLine.getFlag("verbose") && !task.restart.empty())
        std::printf("the points were read twice: %s\n", printable(task.restart).c_str());
    if (m_cmdLine.getFlag("verbose"))
        printPackReport(task.records, task.numPoints);
}

} // namespace Quillmoran

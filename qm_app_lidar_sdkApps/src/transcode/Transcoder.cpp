#include "transcode/Transcoder.h"

#include "files/QMFileUtils.h"
#include "las/header/LASRestore.h"
#include "model/ChannelNames.h"
#include "utils/program/Batch.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Summary.h"
#include "utils/program/Utils.h"
#include "utils/sets/LASTotals.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointWriter.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <strings.h>

namespace Quillmoran {

namespace {

constexpr char description[] = "Decodes VX7 files to LAS or Text files";

// The help text gives the default of the writers; this program uses more.
constexpr unsigned defaultChunckSize = 1048576;

bool equalsIgnoringCase(const char* a, const char* b)
{
    return strcasecmp(a, b) == 0;
}

// Whether the fields are channel names separated by commas. One letter per field is the documented form, in
// which a comma is an error.
bool hasNames(const char* fields)
{
    const std::string_view text = fields ? fields : "";
    std::size_t longest = 0;
    for (std::size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
        end = text.find(',', begin);
        longest = std::max(longest, std::min(end, text.size()) - begin);
    }
    return longest > 1 && text.find(',') != std::string_view::npos;
}

// Does the work. Errors of digests name the file and the option that ignores them. The texts of other errors
// are fixed.
template <class Work>
auto explaining(const char* input, Work work)
{
    try {
        return work();
    } catch (Error& error) {
        if (error.code() == ErrorCode::DigestDiffers)
            error(" path = %s  -noVerify ignores the digests.", input);
        throw;
    }
}

} // namespace

Transcoder::Transcoder() : Program("vxunpack", description, Syntax::Basic)
{
    Utils::addOutFieldsOption(m_cmdLine);
    m_cmdLine.addString("i", "inputFile", "name of input VX7 file.", true);
    m_cmdLine.addString("o", "outputFile", "name of output file", true);
    m_cmdLine.addString("of", "outputFormat", "Output format: TXT, LAS10, LAS11, LAS12.", false);
    m_cmdLine.setChoices("outputFormat", Formats::getOutputNames());
    Utils::addSubsampleOption(m_cmdLine);
    Utils::addCropOption(m_cmdLine);
    m_cmdLine.addFloatArray(
        "ofs", "offset",
        "Specify the offset from which the points will be specified (world coordinates:  x[0], "
        "y[0], z[0].  If not specified, Default is to use the origin of the bounding box",
        false, 3);
    m_cmdLine.addFloatArray(
        "sc", "scale",
        "Specify the scale-factor (x-scale, y-scale, z-scale).  Default is 0.001, 0.001, 0.001", false, 3);
    m_cmdLine.addUint("cs", "chunckSize", "Writer Chuncksize.  Default is 4096", false);
    m_cmdLine.addString("gps", nullptr,
                        "which GPS time LAS output holds: week, adjusted, or nonzero (the one that is not 0)",
                        false);
    m_cmdLine.setChoices("gps", {"week", "adjusted", "nonzero"});
    m_cmdLine.addFlag("restore", nullptr,
                      "write the LAS file that was packed: its header, records and extra bytes");
    m_cmdLine.addFlag("noVerify", nullptr, "do not compare the points with the digests of the input.");
    Utils::addBatchOptions(m_cmdLine, "decode each file of the input, a directory or a list, to a file in "
                                      "this directory");
    m_cmdLine.setAlternative("outputFile", "outputDirectory");
    Utils::addDepthOption(m_cmdLine);
    Utils::addInputFormatOption(m_cmdLine);
    m_cmdLine.addFlag("timing", nullptr, "print the time and the speed on standard error");
    // The usage text is fixed; the man page documents these.
    for (const char* option :
         {"gps", "restore", "noVerify", "outputDirectory", "force", "depth", "inputFormat", "timing"})
        m_cmdLine.setUndocumented(option);
}

void Transcoder::checkOptions() const
{
    if (m_cmdLine.isPresent("outputDirectory") && m_cmdLine.isPresent("outputFile"))
        m_cmdLine.usageError("-outputFile and -outputDirectory exclude each other");
}

bool Transcoder::work()
{
    Utils::ignoreWriteSignals();
    if (m_cmdLine.isPresent("outputDirectory"))
        return unpackEach();
    const char* const input = m_cmdLine.getString("inputFile");
    // Pipes are read only on request: these names are errors otherwise.
    const Utils::Input source = m_cmdLine.isPresent("if")
                                    ? Utils::openInput(m_cmdLine, input)
                                    : Utils::Input{input, Utils::getPointSourceType(input), {}};
    if (source.type != POINT_SOURCE_VX7)
        Formats::throwUnsupported(input);
    const char* const output = m_cmdLine.getString("outputFile");
    Task task = {source, output, OutputChoice(output, m_cmdLine.getString("outputFormat")), {}};
    if (task.output.type() == POINT_SOURCE_VX7) // this program decodes
        QM_THROW(ErrorCode::General, "unknown output format");
    if (task.output.type() != POINT_SOURCE_NULL) {
        if (task.outputFile.empty())
            QM_THROW(ErrorCode::General, "the name of the output file is empty");
        const Utils::DataOutput opened =
            Utils::openOutput(task.outputFile, task.output.type() == POINT_SOURCE_TEXT);
        task.outputFile = opened.name;
        task.standardOutput = opened.stream;
    }
    const bool verbose = m_cmdLine.getFlag("verbose");
    Utils::ConsoleProgress progress;
    unpack(task, verbose, progress);
    if (m_cmdLine.getFlag("timing"))
        printRun(stderr, task.numPoints, task.size);
    printTraffic();
    // This program does not declare "parse", so in verbose runs this lookup is a configuration error that
    // ends the run with status 1. The output is already complete.
    return !verbose || m_cmdLine.isPresent("parse");
}

void Transcoder::unpack(Task& task, bool verbose, ProgressDelegate& progress) const
{
    const char* const input = task.input.name.c_str();
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->getOpener().setVerifiesDigests(!m_cmdLine.getFlag("noVerify"));
    manager->addFile(input, task.input.type, task.input.io.get());
    const Scoped<PointSource> source = Utils::openInputs(*manager, verbose);

    const Bounds cropBox = Utils::getCropBox(m_cmdLine);
    const double fraction = Utils::getFraction(m_cmdLine);
    if (task.output.type() != POINT_SOURCE_NULL)
        Utils::refuseSameFile(input, task.outputFile.c_str());
    const PointInfo layout =
        chooseTime(task, Utils::getOutFields(m_cmdLine, *source, hasNames(m_cmdLine.getString("outFields"))));
    const Scoped<PointWriter> writer =
        task.output.createWriter(*source, task.outputFile, layout, task.standardOutput.get());
    configure(*writer);
    auto* const las = dynamic_cast<LASPointWriter*>(writer.get());
    if (m_cmdLine.getFlag("restore"))
        restore(task, las);
    if (las && !m_cmdLine.isPresent("crop") && fraction >= 1)
        las->setTotals([&] { return Utils::findTotals(*source, layout, progress); });
    if (las && m_cmdLine.isPresent("gps"))
        las->setPrefersNonzeroTime(equalsIgnoringCase(m_cmdLine.getString("gps"), "nonzero"));
    warnOfRounding(task, *source, layout);

    task.numPoints = explaining(input, [&] { return writer->write(cropBox, fraction, layout, &progress); });
    if (task.output.type() != POINT_SOURCE_NULL && !task.standardOutput)
        task.size = QMFileUtils::getSize(task.outputFile.c_str());
    if (auto* const console = dynamic_cast<Utils::ConsoleProgress*>(&progress)) {
        console->finish();
        if (!Utils::isQuiet())
            std::printf("%lld points written\n", task.numPoints);
    }
    if (las)
        Utils::warnOfLASOutput(*las, layout, task.outputFile,
                               m_cmdLine.getFlag("restore") ? "" : "; -restore keeps them", Utils::warn);
}

bool Transcoder::unpackEach() const
{
    const char* const format = m_cmdLine.getString("outputFormat");
    if (!format)
        QM_THROW(ErrorCode::General, "-od needs the format of the outputs: -of txt, las, laz or bpf");
    // "las" and "laz" are chosen by the endings of the names, so that the version is the writer's default.
    const bool byEnding = equalsIgnoringCase(format, "las") || equalsIgnoringCase(format, "laz");
    const std::string ending = byEnding ? equalsIgnoringCase(format, "las") ? ".las" : ".laz"
                                        : Formats::endingOf(OutputChoice("", format).type());
    const auto conversions = Utils::planConversions(
        {m_cmdLine.getString("inputFile")}, Utils::getBatchDepth(m_cmdLine),
        m_cmdLine.getString("outputDirectory"), ending.c_str(),
        [](const char* name) { return Utils::getPointSourceType(name) == POINT_SOURCE_VX7; },
        m_cmdLine.getFlag("allowRemote"));
    const auto convert = [&](const Utils::Conversion& conversion, ProgressDelegate& progress) {
        if (Utils::getPointSourceType(conversion.input.c_str()) != POINT_SOURCE_VX7)
            Formats::throwUnsupported(conversion.input.c_str());
        Task task = {{conversion.input, POINT_SOURCE_VX7, {}},
                     conversion.output,
                     OutputChoice(conversion.output.c_str(), byEnding ? nullptr : format),
                     {}};
        unpack(task, false, progress);
        return Utils::Converted{task.numPoints, task.size};
    };
    const Utils::BatchResult result =
        Utils::convertAll(conversions, getNumThreads(), m_cmdLine.getFlag("force"), convert);
    return Utils::reportBatch(result, describeSpeed(result.sum.numPoints));
}

// Configures the writer to give back the file that was packed.
void Transcoder::restore(const Task& task, LASPointWriter* writer) const
{
    if (!writer)
        QM_THROW(ErrorCode::General, "-restore is for LAS and LAZ output");
    if (m_cmdLine.isPresent("scale") || m_cmdLine.isPresent("offset"))
        QM_THROW(ErrorCode::General, "-restore writes the scale and offset of the file that was packed; "
                                     "-sc and -ofs cannot change them");
    writer->setRestores(true);
    if (!writer->getMetadata().has(LASRestore::key))
        Utils::warn('\'' + task.input.name +
                    "' has no record of a LAS file that was packed; the header of the output is new");
}

// Removes the time that "gps" does not choose.
PointInfo Transcoder::chooseTime(const Task& task, const PointInfo& layout) const
{
    if (!m_cmdLine.isPresent("gps"))
        return layout;
    if (!task.output.isLAS())
        QM_THROW(ErrorCode::General, "-gps is for LAS and LAZ output");
    const char* const choice = m_cmdLine.getString("gps");
    const bool week = equalsIgnoringCase(choice, "week");
    if (!week && !equalsIgnoringCase(choice, "adjusted")) {
        if (!equalsIgnoringCase(choice, "nonzero"))
            QM_THROW(ErrorCode::General, "unknown value '%s' of -gps, it is 'week', 'adjusted' or 'nonzero'",
                     choice);
        return layout;
    }
    const char* const kept = week ? ChannelNames::gpsTime : ChannelNames::gpsTimeAdjusted;
    const char* const dropped = week ? ChannelNames::gpsTimeAdjusted : ChannelNames::gpsTime;
    if (!layout.hasChannel(kept))
        QM_THROW(ErrorCode::General, "'%s' has no channel '%s'", task.input.name.c_str(), kept);
    PointInfo chosen;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (!layout.getChannel(i).isNamed(dropped))
            chosen.append(layout.getChannel(i));
    return chosen;
}

void Transcoder::configure(PointWriter& writer) const
{
    const double* const scale = m_cmdLine.getFloatArray("scale");
    const double* const offset = m_cmdLine.getFloatArray("offset");
    if (scale || offset)
        writer.setQuantization(scale, offset);
    writer.setChunckSize(m_cmdLine.isPresent("chunckSize") ? m_cmdLine.getUint("chunckSize")
                                                           : defaultChunckSize);
}

// LAS rounds coordinates that are not multiples of its scale.
void Transcoder::warnOfRounding(const Task& task, const PointSource& source, const PointInfo& layout) const
{
    if (task.output.isLAS() && !m_cmdLine.isPresent("scale"))
        Utils::warnOfRounding(source, layout, task.outputFile, "; -sc chooses another", Utils::warn);
}

} // namespace Quillmoran

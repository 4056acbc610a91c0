#include "transcode/Transcoder.h"

#include "model/ChannelNames.h"
#include "pdal/PDALFormats.h"
#include "utils/ConsoleProgress.h"
#include "utils/Program.h"
#include "utils/Summary.h"
#include "utils/ThreadPool.h"
#include "utils/Utils.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/TXTPointWriter.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <strings.h>

namespace Quillmoran {

namespace {

constexpr char description[] = "Decodes VX7 files to LAS or Text files";

// What the help text says is the writers' own default; runs of this program use more.
constexpr unsigned defaultChunckSize = 1048576;

bool equalsIgnoringCase(const char* a, const char* b)
{
    return strcasecmp(a, b) == 0;
}

} // namespace

Transcoder::Transcoder() : m_cmdLine("vxunpack", description, description, true)
{
    Utils::setVersion(m_cmdLine);
    Utils::addCommonOptions(m_cmdLine);
    Utils::addOutFieldsOption(m_cmdLine);
    m_cmdLine.addString("i", "inputFile", "name of input VX7 file.", true);
    m_cmdLine.addString("o", "outputFile", "name of output file", true);
    m_cmdLine.addString("of", "outputFormat", "Output format: TXT, LAS10, LAS11, LAS12.", false);
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
    m_cmdLine.setUndocumented("gps"); // the usage text is fixed; the man page has it
}

void Transcoder::parse(int argc, const char* const* argv)
{
    m_cmdLine.parse(argc, argv);
}

void Transcoder::run()
{
    Utils::ignoreWriteSignals();
    ThreadPool pool(m_cmdLine.isPresent("numThreads") ? m_cmdLine.getUint("numThreads") : 0);
    pool.execute([this] { transcode(); });
}

void Transcoder::transcode()
{
    const char* input = m_cmdLine.getString("inputFile");
    const bool verbose = m_cmdLine.getFlag("verbose");
    if (Utils::getPointSourceType(input) != POINT_SOURCE_VX7)
        QM_THROW(ErrorCode::General, "unsupported input file format '%s'", input);
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->addFile(input);
    m_outputFile = m_cmdLine.getString("outputFile");
    m_output = chooseOutput();
    if (m_output != Output::Null)
        separateOutputs();
    const Scoped<PointSource> source = Utils::openInputs(*manager, verbose);

    const Bounds cropBox = Utils::getCropBox(m_cmdLine);
    const double fraction = Utils::getFraction(m_cmdLine);
    if (m_output != Output::Null)
        Utils::refuseSameFile(input, m_outputFile.c_str());
    const PointInfo layout = chooseTime(Utils::getOutFields(m_cmdLine, *source));
    const Scoped<PointWriter> writer = createWriter(*source, layout);
    configure(*writer);
    warnOfRounding(*source, layout);

    Utils::ConsoleProgress progress;
    const long long count = writer->write(cropBox, fraction, layout, &progress);
    progress.finish();
    std::printf("\n%lld points written\n", count);
    if (const auto* las = dynamic_cast<const LASPointWriter*>(writer.get()))
        Utils::warnOfLASOutput(*las, m_cmdLine.getString("outputFile"));
    if (verbose)
        printOutputHeader();
}

// What is printed does not mix with the points when both go to standard output.
void Transcoder::separateOutputs()
{
    if (m_outputFile.empty())
        QM_THROW(ErrorCode::General, "the name of the output file is empty");
    if (!Utils::isStandardOutput(m_outputFile.c_str()))
        return;
    if (m_output == Output::Text) {
        m_standardOutput = Utils::divertStandardOutput(m_outputFile.c_str());
        return;
    }
    // A file that is not written in order is replaced by name, which must not be that of standard error.
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(m_outputFile, error);
    if (!error && std::filesystem::is_regular_file(path, error)) {
        m_outputFile = path;
        Utils::divertStandardOutput(m_outputFile.c_str());
    }
}

Transcoder::Output Transcoder::chooseOutput() const
{
    if (m_cmdLine.isPresent("outputFormat")) {
        const char* format = m_cmdLine.getString("outputFormat");
        if (equalsIgnoringCase(format, "txt"))
            return Output::Text;
        if (equalsIgnoringCase(format, "bpf"))
            return Output::BPF;
        for (const char* las : {"las10", "las11", "las12", "laz"})
            if (equalsIgnoringCase(format, las))
                return Output::LAS;
        QM_THROW(ErrorCode::General, "unsupported output format '%s'", format);
    }
    switch (Utils::getPointSourceType(m_cmdLine.getString("outputFile"))) {
    case POINT_SOURCE_TEXT:
        return Output::Text;
    case POINT_SOURCE_LAS:
    case POINT_SOURCE_LAZ:
        return Output::LAS;
    case POINT_SOURCE_BPF:
        return Output::BPF;
    case POINT_SOURCE_NULL:
        return Output::Null;
    default:
        QM_THROW(ErrorCode::General, "unknown output format");
    }
}

// Leaves out the time that "gps" does not choose.
PointInfo Transcoder::chooseTime(const PointInfo& layout) const
{
    if (!m_cmdLine.isPresent("gps"))
        return layout;
    if (m_output != Output::LAS)
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
        QM_THROW(ErrorCode::General, "'%s' has no channel '%s'", m_cmdLine.getString("inputFile"), kept);
    PointInfo chosen;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (!layout.getChannel(i).isNamed(dropped))
            chosen.append(layout.getChannel(i));
    return chosen;
}

bool Transcoder::prefersNonzeroTime() const
{
    return m_cmdLine.isPresent("gps") && equalsIgnoringCase(m_cmdLine.getString("gps"), "nonzero");
}

Scoped<PointWriter> Transcoder::createWriter(PointSource& source, const PointInfo& layout) const
{
    switch (m_output) {
    case Output::Text: {
        Scoped<TXTPointWriter> writer(TXTPointWriter::create());
        if (m_standardOutput)
            writer->init(&source, m_standardOutput.get(), layout);
        else
            writer->init(&source, m_outputFile.c_str(), layout);
        return Scoped<PointWriter>(writer.detach());
    }
    case Output::Null: {
        Scoped<NULLPointWriter> writer(NULLPointWriter::create());
        writer->init(&source);
        return Scoped<PointWriter>(writer.detach());
    }
    case Output::LAS: {
        Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(&source, m_outputFile.c_str(), getLASVersion());
        writer->setWriteLAZ(writesLAZ());
        writer->setPrefersNonzeroTime(prefersNonzeroTime());
        return Scoped<PointWriter>(writer.detach());
    }
    case Output::BPF:
        return Scoped<PointWriter>(createPDALPointWriter(&source, m_outputFile.c_str()));
    }
    QM_THROW(ErrorCode::General, "unknown output format");
}

int Transcoder::getLASVersion() const
{
    // The number behind "las", and behind "laz", which has none, 0: such files have always had an unset
    // version.
    constexpr std::size_t prefix = 3;
    return m_cmdLine.isPresent("outputFormat") ? std::atoi(m_cmdLine.getString("outputFormat") + prefix) : -1;
}

bool Transcoder::writesLAZ() const
{
    if (m_cmdLine.isPresent("outputFormat") && equalsIgnoringCase(m_cmdLine.getString("outputFormat"), "laz"))
        return true;
    return Utils::getPointSourceType(m_cmdLine.getString("outputFile")) == POINT_SOURCE_LAZ;
}

void Transcoder::configure(PointWriter& writer) const
{
    const bool hasScale = m_cmdLine.isPresent("scale");
    const bool hasOffset = m_cmdLine.isPresent("offset");
    if (hasScale || hasOffset)
        writer.setQuantization(hasScale ? m_cmdLine.getFloatArray("scale") : nullptr,
                               hasOffset ? m_cmdLine.getFloatArray("offset") : nullptr);
    writer.setChunckSize(m_cmdLine.isPresent("chunckSize") ? m_cmdLine.getUint("chunckSize")
                                                           : defaultChunckSize);
}

// Coordinates that are not multiples of a scale are not written as they are.
void Transcoder::warnOfRounding(const PointSource& source, const PointInfo& layout) const
{
    if (m_output != Output::LAS || m_cmdLine.isPresent("scale") || source.getNumPoints() == 0)
        return;
    std::string names;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z}) {
        const ChannelInfo* channel = layout.getChannel(name);
        if (channel && channel->getQuantization() == 0)
            names += std::string(names.empty() ? "" : ", ") + name;
    }
    if (!names.empty())
        Utils::warn("'" + m_outputFile + "': coordinates (" + names +
                    ") are rounded to 0.001, since the input has no scale for them; -sc chooses another");
}

void Transcoder::printOutputHeader() const
{
    // This program declares no "parse", so looking it up ends a verbose run with the parser's configuration
    // error and status 1. That is how verbose runs have always ended; the output is complete by now.
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    Utils::setTextOptions(*manager, true, m_cmdLine);
    const char* output = m_cmdLine.getString("outputFile");
    manager->addFile(output);
    const Scoped<PointSource> written(manager->createPointSource(0));
    Utils::printHeader(stdout, *written, output);
}

} // namespace Quillmoran

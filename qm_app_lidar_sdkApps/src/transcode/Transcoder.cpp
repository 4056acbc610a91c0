#include "transcode/Transcoder.h"

#include "las/header/LASRestore.h"
#include "model/ChannelNames.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Summary.h"
#include "utils/program/Utils.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointWriter.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
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

Transcoder::Transcoder() : Program("vxunpack", description)
{
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
    m_cmdLine.addFlag("restore", nullptr,
                      "write the LAS file that was packed: its header, records and extra bytes");
    m_cmdLine.addFlag("noVerify", nullptr, "do not compare the points with the digests of the input.");
    // The usage text is fixed; the man page documents these.
    for (const char* option : {"gps", "restore", "noVerify"})
        m_cmdLine.setUndocumented(option);
}

bool Transcoder::work()
{
    Utils::ignoreWriteSignals();
    const char* input = m_cmdLine.getString("inputFile");
    const bool verbose = m_cmdLine.getFlag("verbose");
    if (Utils::getPointSourceType(input) != POINT_SOURCE_VX7)
        QM_THROW(ErrorCode::General, "unsupported input file format '%s'", input);
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->getOpener().setVerifiesDigests(!m_cmdLine.getFlag("noVerify"));
    manager->addFile(input);
    m_outputFile = m_cmdLine.getString("outputFile");
    m_output.emplace(m_outputFile.c_str(), m_cmdLine.getString("outputFormat"));
    if (m_output->type() == POINT_SOURCE_VX7) // this program decodes
        QM_THROW(ErrorCode::General, "unknown output format");
    if (m_output->type() != POINT_SOURCE_NULL)
        separateOutputs();
    const Scoped<PointSource> source = Utils::openInputs(*manager, verbose);

    const Bounds cropBox = Utils::getCropBox(m_cmdLine);
    const double fraction = Utils::getFraction(m_cmdLine);
    if (m_output->type() != POINT_SOURCE_NULL)
        Utils::refuseSameFile(input, m_outputFile.c_str());
    const PointInfo layout =
        chooseTime(Utils::getOutFields(m_cmdLine, *source, hasNames(m_cmdLine.getString("outFields"))));
    const Scoped<PointWriter> writer =
        m_output->createWriter(*source, m_outputFile, layout, m_standardOutput.get());
    auto* const las = dynamic_cast<LASPointWriter*>(writer.get());
    if (m_cmdLine.getFlag("restore")) {
        if (!las)
            QM_THROW(ErrorCode::General, "-restore is for LAS and LAZ output");
        if (m_cmdLine.isPresent("scale") || m_cmdLine.isPresent("offset"))
            QM_THROW(ErrorCode::General, "-restore writes the scale and offset of the file that was packed; "
                                         "-sc and -ofs cannot change them");
        las->setRestores(true);
        if (!las->getMetadata().has(LASRestore::key))
            Utils::warn(std::string("'") + input +
                        "' has no record of a LAS file that was packed; the header of the output is new");
    }
    if (las && m_cmdLine.isPresent("gps"))
        las->setPrefersNonzeroTime(equalsIgnoringCase(m_cmdLine.getString("gps"), "nonzero"));
    configure(*writer);
    warnOfRounding(*source, layout);

    Utils::ConsoleProgress progress;
    const long long count =
        explaining(input, [&] { return writer->write(cropBox, fraction, layout, &progress); });
    progress.finish();
    std::printf("%lld points written\n", count);
    if (las)
        Utils::warnOfLASOutput(*las, layout, m_cmdLine.getString("outputFile"),
                               m_cmdLine.getFlag("restore") ? "" : "; -restore keeps them", Utils::warn);
    // This program does not declare "parse", so in verbose runs this lookup is a configuration error that
    // ends the run with status 1. The output is already complete.
    return !verbose || m_cmdLine.isPresent("parse");
}

// Keeps messages apart from points that are written to standard output.
void Transcoder::separateOutputs()
{
    if (m_outputFile.empty())
        QM_THROW(ErrorCode::General, "the name of the output file is empty");
    if (!Utils::isStandardOutput(m_outputFile.c_str()))
        return;
    if (m_output->type() == POINT_SOURCE_TEXT) {
        m_standardOutput = Utils::divertStandardOutput(m_outputFile.c_str());
        return;
    }
    // Other formats are written to a temporary file that then takes the name of the output. After the
    // diversion "/dev/stdout" would name standard error, so the name of the file is found before.
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(m_outputFile, error);
    if (!error && std::filesystem::is_regular_file(path, error)) {
        m_outputFile = path;
        Utils::divertStandardOutput(m_outputFile.c_str());
    }
}

// Removes the time that "gps" does not choose.
PointInfo Transcoder::chooseTime(const PointInfo& layout) const
{
    if (!m_cmdLine.isPresent("gps"))
        return layout;
    if (!m_output->isLAS())
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
void Transcoder::warnOfRounding(const PointSource& source, const PointInfo& layout) const
{
    if (m_output->isLAS() && !m_cmdLine.isPresent("scale"))
        Utils::warnOfRounding(source, layout, m_outputFile, "; -sc chooses another", Utils::warn);
}

} // namespace Quillmoran

#include "transcode/Transcoder.h"

#include "files/QMFileUtils.h"
#include "filters/MosaicFilter.h"
#include "framework/PercentProgressDelegate.h"
#include "las/LASPointWriter.h"
#include "pdal/PDALFormats.h"
#include "platform/Base.h"
#include "text/TXTPointReader.h"
#include "text/TXTPointWriter.h"
#include "utils/Summary.h"
#include "utils/ThreadPool.h"
#include "utils/Utils.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <strings.h>

namespace Quillmoran {

namespace {

constexpr char description[] = "Decodes VX7 files to LAS or Text files";

const char* describeOutFields()
{
    static const std::string text =
        std::string("Output specific fields.  By default output all those supported by "
                    "output format and are in the input file.\n"
                    "Parse format: \n") +
        Utils::fieldLetters;
    return text.c_str();
}

// What the help text says is the writers' own default; runs of this program use more.
constexpr unsigned defaultChunckSize = 1048576;

bool equalsIgnoringCase(const char* a, const char* b)
{
    return strcasecmp(a, b) == 0;
}

// A writer truncates its output when it begins; the input must not be that file.
void refuseSameFile(const char* input, const char* output)
{
    if (QMFileUtils::isSameFile(input, output))
        QM_THROW(-1, "the output '%s' is the input file", output);
}

} // namespace

Transcoder::Transcoder() : m_cmdLine("vxunpack", description, description, true)
{
    Utils::setVersion(m_cmdLine);
    Utils::addCommonOptions(m_cmdLine);
    m_cmdLine.addString("ofld", "outFields", describeOutFields(), false);
    m_cmdLine.addString("i", "inputFile", "name of input VX7 file.", true);
    m_cmdLine.addString("o", "outputFile", "name of output file", true);
    m_cmdLine.addString("of", "outputFormat", "Output format: TXT, LAS10, LAS11, LAS12.", false);
    m_cmdLine.addFloat(
        "s", "subsample",
        "subsample, taking every n-th point.  -s 2 leaves one half the file, -s 3 leaves one third.", false);
    m_cmdLine.addFloatArray(
        "c", "crop",
        "crop to specified box (world coordinates:  x-min, x-max, y-min, y-max, z-min, z-max).\n"
        "  A value of -inf (for a minimum) or +inf (maximum) means no-crop in that direction",
        false, 6);
    m_cmdLine.addFloatArray(
        "ofs", "offset",
        "Specify the offset from which the points will be specified (world coordinates:  x[0], "
        "y[0], z[0].  If not specified, Default is to use the origin of the bounding box",
        false, 3);
    m_cmdLine.addFloatArray(
        "sc", "scale",
        "Specify the scale-factor (x-scale, y-scale, z-scale).  Default is 0.001, 0.001, 0.001", false, 3);
    m_cmdLine.addUint("cs", "chunckSize", "Writer Chuncksize.  Default is 4096", false);
}

void Transcoder::parse(int argc, const char* const* argv)
{
    m_cmdLine.parse(argc, argv);
}

void Transcoder::run()
{
    ThreadPool pool(m_cmdLine.isPresent("numThreads") ? m_cmdLine.getUint("numThreads") : 0);
    pool.execute([this] { transcode(); });
}

Scoped<PointSource> Transcoder::openInput(FilePointSourceManager& manager) const
{
    const bool verbose = m_cmdLine.getFlag("verbose");
    for (std::size_t i = 0; verbose && i < manager.getNumSources(); ++i) {
        const Scoped<PointSource> source(manager.createPointSource(i));
        Utils::printHeader(stdout, *source, manager.getFilename(i));
    }
    if (manager.getNumSources() < 2)
        return Scoped<PointSource>(manager.createPointSource(0));
    Scoped<MosaicFilter> mosaic(MosaicFilter::create());
    mosaic->init(&manager);
    if (verbose)
        Utils::printHeader(stdout, *mosaic, nullptr);
    for (const std::string& warning : mosaic->getWarnings())
        std::printf("%s\n", warning.c_str());
    return Scoped<PointSource>(mosaic.detach());
}

void Transcoder::transcode()
{
    const char* input = m_cmdLine.getString("inputFile");
    const bool verbose = m_cmdLine.getFlag("verbose");
    if (Utils::getPointSourceType(input) != POINT_SOURCE_VX7)
        QM_THROW(-1, "unsupported input file format '%s'", input);
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->addFile(input);
    const Scoped<PointSource> source = openInput(*manager);

    const Bounds cropBox = getCropBox();
    const double fraction = getFraction();
    const Output output = chooseOutput();
    if (output != Output::Null)
        refuseSameFile(input, m_cmdLine.getString("outputFile"));
    const PointInfo layout = getLayout(*source);
    const Scoped<PointWriter> writer = createWriter(*source, layout);
    configure(*writer);

    PercentProgressDelegate delegate;
    const long long count = writer->write(cropBox, fraction, layout, &delegate);
    std::printf("\n%lld points written\n", count);
    if (verbose)
        printOutputHeader();
}

Bounds Transcoder::getCropBox() const
{
    Bounds box = Bounds::Huge();
    if (!m_cmdLine.isPresent("crop"))
        return box;
    std::size_t count = 0;
    const double* values = m_cmdLine.getFloatArray("crop", count);
    if (count >= 4) {
        box.x = {values[0], values[1]};
        box.y = {values[2], values[3]};
    }
    if (count >= 6)
        box.z = {values[4], values[5]};
    return box;
}

double Transcoder::getFraction() const
{
    return m_cmdLine.isPresent("subsample") ? 1.0 / m_cmdLine.getFloat("subsample") : 1.0;
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
        QM_THROW(-1, "unsupported output format '%s'", format);
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
        QM_THROW(-1, "unknown output format");
    }
}

PointInfo Transcoder::getLayout(const PointSource& source) const
{
    PointInfo layout;
    if (m_cmdLine.isPresent("outFields"))
        TXTPointReader::parseFormat(m_cmdLine.getString("outFields"), layout, source.getPointInfo());
    else
        layout.init(source.getPointInfo());
    return layout;
}

Scoped<PointWriter> Transcoder::createWriter(PointSource& source, const PointInfo& layout) const
{
    switch (chooseOutput()) {
    case Output::Text: {
        Scoped<TXTPointWriter> writer(TXTPointWriter::create());
        writer->init(&source, m_cmdLine.getString("outputFile"), layout);
        return Scoped<PointWriter>(writer.detach());
    }
    case Output::Null: {
        Scoped<NULLPointWriter> writer(NULLPointWriter::create());
        writer->init(&source);
        return Scoped<PointWriter>(writer.detach());
    }
    case Output::LAS: {
        Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(&source, m_cmdLine.getString("outputFile"), getLASVersion());
        writer->setWriteLAZ(writesLAZ());
        return Scoped<PointWriter>(writer.detach());
    }
    case Output::BPF:
        return Scoped<PointWriter>(createPDALPointWriter(&source, m_cmdLine.getString("outputFile")));
    }
    QM_THROW(-1, "unknown output format");
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

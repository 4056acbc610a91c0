#include "utils/sets/Formats.h"

#include "files/QMFileSpec.h"
#include "files/RemoteName.h"
#include "pdal/PDALFormats.h"
#include "utils/sets/Make.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/TXTPointReader.h>
#include <vxunpack/TXTPointWriter.h>
#include <vxunpack/VX7PointReader.h>
#include <vxunpack/VX7PointWriter.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace Quillmoran {

namespace {

PointSource* openText(const InputTarget& target)
{
    const SimpleFileOpener::Options& options = target.options;
    if (!options.text)
        Formats::throwNeedsColumns(target.name);
    TextOptions text = *options.text;
    if (text.layout.getNumChannels() == 0) {
        const std::optional<PointInfo> columns =
            target.io ? TXTPointReader::readHeader(target.io, target.name, text.skipLines)
                      : TXTPointReader::readHeader(target.name, text.skipLines);
        if (!columns)
            Formats::throwNeedsColumns(target.name);
        text.layout = *columns;
    }
    if (target.io)
        return make<TXTPointReader>(target.io, std::string(target.name), text).detach();
    return make<TXTPointReader>(target.name, text).detach();
}

PointSource* openLAS(const InputTarget& target)
{
    const SimpleFileOpener::Options& options = target.options;
    Scoped<LASPointReader> reader(LASPointReader::create());
    try {
        if (target.io)
            reader->init(target.io, target.name, options.opensWaveforms);
        else
            reader->init(target.name, options.opensWaveforms);
    } catch (Error& error) {
        if (error.code() == ErrorCode::Waveforms)
            error("  -dropWaveforms reads its points without them.");
        throw;
    }
    if (options.warn && reader->hasWaveforms())
        options.warn(std::string("the waveform packets of '") + target.name + "' are dropped");
    return reader.detach();
}

PointSource* openVX7(const InputTarget& target)
{
    auto reader = target.io ? make<VX7PointReader>(target.io) : make<VX7PointReader>(target.name);
    reader->setVerifiesDigests(target.options.verifiesDigests);
    return reader.detach();
}

// PDAL opens files by name. A descriptor has one, which is valid as long as the file is open.
PointSource* openBPF(const InputTarget& target)
{
    if (!target.io)
        return createPDALPointReader(target.name);
    const auto* const file = dynamic_cast<const FileIO::Imp*>(target.io);
    if (!file || file->descriptor() < 0)
        QM_THROW(ErrorCode::General, "cannot read '%s': BPF input needs a file", target.name);
    return createPDALPointReader(("/proc/self/fd/" + std::to_string(file->descriptor())).c_str());
}

PointWriter* createTextWriter(const OutputTarget& target)
{
    if (target.stream)
        return make<TXTPointWriter>(target.source, target.stream, target.layout).detach();
    return make<TXTPointWriter>(target.source, target.path, target.layout).detach();
}

PointWriter* createLASWriter(const OutputTarget& target)
{
    Scoped<LASPointWriter> writer(LASPointWriter::create());
    if (target.stream)
        writer->init(target.source, target.stream, target.path, target.lasVersion);
    else
        writer->init(target.source, target.path, target.lasVersion);
    writer->setWriteLAZ(target.compressed);
    return writer.detach();
}

PointWriter* createVX7Writer(const OutputTarget& target)
{
    if (target.stream)
        return make<VX7PointWriter>(target.source, target.stream).detach();
    return make<VX7PointWriter>(target.source, target.path).detach();
}

PointWriter* createBPFWriter(const OutputTarget& target)
{
    if (target.stream) // PDAL opens files by name
        QM_THROW(ErrorCode::OutputCreate, "Unable to create output %s. BPF output needs a seekable file",
                 target.path);
    return createPDALPointWriter(target.source, target.path);
}

PointWriter* createNullWriter(const OutputTarget& target)
{
    return make<NULLPointWriter>(target.source).detach();
}

} // namespace

// clang-format off
const std::array<Format, 8> Formats::table = {{
    {POINT_SOURCE_VX7,   ".vxl",   "VX7",   "Vexil LiDAR File",             true,  openVX7,  createVX7Writer,  {}},
    {POINT_SOURCE_LAS,   ".las",   "LAS",   "LAS File",                     true,  openLAS,  createLASWriter,  {"las10", "las11", "las12"}},
    {POINT_SOURCE_LAZ,   ".laz",   "LAZ",   "LAZ File",                     true,  openLAS,  createLASWriter,  {"laz"}},
    {POINT_SOURCE_BPF,   ".bpf",   "BPF",   "BPF File",                     true,  openBPF,  createBPFWriter,  {"bpf"}},
    {POINT_SOURCE_LIST,  ".list",  "list",  "List of LiDAR Files",          false, nullptr,  nullptr,          {}},
    {POINT_SOURCE_INDEX, ".index", "index", "Spatial Index of Lidar Files", false, nullptr,  nullptr,          {}},
    {POINT_SOURCE_NULL,  "null",   "null",  "Unknown File Type",            false, nullptr,  createNullWriter, {}},
    {POINT_SOURCE_TEXT,  "",       "text",  "Text LiDAR File",              false, openText, createTextWriter, {"txt"}},
}};
// clang-format on

std::vector<const char*> Formats::getOutputNames()
{
    std::vector<const char*> names;
    for (const Format& format : table)
        for (const char* name : format.outputNames)
            if (name)
                names.push_back(name);
    return names;
}

bool Format::matches(const char* fileName) const
{
    if (*pattern == '.')
        return QMFileSpec(std::string(RemoteName::withoutQuery(fileName)).c_str()).endsWith(pattern);
    return *pattern == '\0' || strcasecmp(fileName, pattern) == 0;
}

const Format& Formats::ofName(const char* fileName)
{
    if (!fileName)
        QM_THROW(ErrorCode::InvalidArgument, "path not given");
    return *std::find_if(table.begin(), table.end(),
                         [&](const Format& format) { return format.matches(fileName); });
}

const Format* Formats::ofType(PointSourceType type) noexcept
{
    const auto* const row =
        std::find_if(table.begin(), table.end(), [&](const Format& format) { return format.type == type; });
    return row == table.end() ? nullptr : row;
}

std::string Formats::endingOf(PointSourceType type)
{
    const Format* const format = ofType(type);
    return format && *format->pattern == '.' ? format->pattern : ".txt";
}

PointSourceType Formats::typeOfInput(const char* name)
{
    std::string names;
    for (const Format& format : table) {
        const bool isText = format.type == POINT_SOURCE_TEXT;
        if (*format.pattern != '.' && !isText)
            continue;
        const char* const known = isText ? format.outputNames[0] : format.pattern + 1;
        if (strcasecmp(name, known) == 0)
            return format.type;
        names += (names.empty() ? "" : isText ? " or " : ", ") + std::string(known);
    }
    QM_THROW(ErrorCode::General, "unknown input format '%s', it is %s", name, names.c_str());
}

PointSourceType Formats::typeOfContents(const IO& io)
{
    constexpr std::size_t lasFormatAt = 104; // the number of the point format
    constexpr unsigned lasCompressed = 0x80;
    unsigned char bytes[lasFormatAt + 1] = {};
    readFully(io, 0, bytes, sizeof bytes);
    const auto beginsWith = [&bytes](const char* magic) {
        return std::memcmp(bytes, magic, std::strlen(magic)) == 0;
    };
    if (beginsWith("LASF"))
        return (bytes[lasFormatAt] & lasCompressed) != 0 ? POINT_SOURCE_LAZ : POINT_SOURCE_LAS;
    return beginsWith("vxil")   ? POINT_SOURCE_VX7
           : beginsWith("BPF!") ? POINT_SOURCE_BPF
           : beginsWith("rtre") ? POINT_SOURCE_INDEX
                                : POINT_SOURCE_TEXT;
}

std::string Formats::listInputs()
{
    std::string names;
    for (const Format& format : table)
        if (format.open)
            names += (names.empty() ? "" : ", ") + std::string(format.name);
    return names;
}

void Formats::throwUnsupported(const char* fileName)
{
    QM_THROW(ErrorCode::General, "unsupported input file format '%s'", fileName);
}

void Formats::throwNeedsColumns(const char* fileName)
{
    QM_THROW(ErrorCode::General, "TXT file requires a format parse string '-parse': '%s'", fileName);
}

OutputChoice::OutputChoice(const char* path, const char* formatName) : m_format(&Formats::ofName(path))
{
    m_compressed = type() == POINT_SOURCE_LAZ;
    if (!formatName) {
        if (!m_format->createWriter)
            QM_THROW(ErrorCode::General, "unknown output format");
        return;
    }
    for (const Format& format : Formats::table)
        for (const char* name : format.outputNames)
            if (name && strcasecmp(formatName, name) == 0) {
                m_format = &format;
                m_compressed = m_compressed || type() == POINT_SOURCE_LAZ;
                // The number after "las". "laz" has no number: its version fields are 0.
                m_lasVersion = std::atoi(name + 3);
                return;
            }
    QM_THROW(ErrorCode::General, "unsupported output format '%s'", formatName);
}

Scoped<PointWriter> OutputChoice::createWriter(PointSource& source, const std::string& path,
                                               const PointInfo& layout, IO* stream) const
{
    return Scoped<PointWriter>(
        m_format->createWriter({&source, path.c_str(), layout, stream, m_lasVersion, m_compressed}));
}

} // namespace Quillmoran

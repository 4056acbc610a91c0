#include <vxunpack/FilePointSourceManager.h>

#include "files/QMFileUtils.h"
#include "pdal/PDALFormats.h"
#include "platform/Interrupt.h"
#include "text/LineReader.h"
#include "utils/NamedSource.h"
#include "utils/Program.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/TXTPointReader.h>
#include <vxunpack/VX7PointReader.h>

#include <cctype>
#include <cstring>
#include <string>
#include <string_view>
#include <strings.h>

namespace Quillmoran {

namespace {

struct Ending
{
    const char* text;
    PointSourceType type;
};

constexpr Ending endings[] = {
    {".vxl", POINT_SOURCE_VX7}, {".las", POINT_SOURCE_LAS},   {".laz", POINT_SOURCE_LAZ},
    {".bpf", POINT_SOURCE_BPF}, {".list", POINT_SOURCE_LIST}, {".index", POINT_SOURCE_INDEX},
};

[[noreturn]] void throwUnsupported(const char* name)
{
    QM_THROW(ErrorCode::General, "unsupported input file format '%s'", name);
}

[[noreturn]] void throwNeedsParse(const char* name)
{
    QM_THROW(ErrorCode::General, "TXT file requires a format parse string '-parse': '%s'", name);
}

// The list's name up to and including its last separator.
std::string directoryPrefix(const std::string& name)
{
    std::size_t separator = name.rfind('/');
    if (separator == std::string::npos)
        separator = name.rfind('\\');
    return separator == std::string::npos ? std::string() : name.substr(0, separator + 1);
}

bool isSeparator(char c)
{
    return c == '/' || c == '\\';
}

bool isRooted(std::string_view name)
{
    if (!name.empty() && isSeparator(name[0]))
        return true;
    return name.size() >= 3 && std::isalpha(static_cast<unsigned char>(name[0])) && name[1] == ':' &&
           isSeparator(name[2]);
}

std::string_view trimmed(std::string_view text)
{
    constexpr char whiteSpace[] = " \t\n\v\f\r";
    const std::size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

constexpr int maxListDepth = 16;
// A list that names another one many times, which does the same, and so on, multiplies without end. So the
// lists that lists name may add up to this much, each with its size and what it costs to open one.
constexpr std::int64_t maxNestedListBytes = 16 << 20;
constexpr std::int64_t nestedListBytes = 256;

class DepthGuard
{
public:
    explicit DepthGuard(int& depth) : m_depth(depth) { ++m_depth; }
    ~DepthGuard() { --m_depth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;

private:
    int& m_depth;
};

} // namespace

SimpleFileOpener* SimpleFileOpener::create()
{
    return new SimpleFileOpener;
}

PointSourceType SimpleFileOpener::getPointSourceType(const char* name)
{
    return getPointSourceType(QMFileSpec(name));
}

PointSourceType SimpleFileOpener::getPointSourceType(const QMFileSpec& file)
{
    for (const Ending& ending : endings)
        if (file.endsWith(ending.text))
            return ending.type;
    return strcasecmp(file.c_str(), "null") == 0 ? POINT_SOURCE_NULL : POINT_SOURCE_TEXT;
}

const char* SimpleFileOpener::getPointSourceTypeName(PointSourceType type)
{
    switch (type) {
    case POINT_SOURCE_TEXT:
        return "Text LiDAR File";
    case POINT_SOURCE_LAS:
        return "LAS File";
    case POINT_SOURCE_LAZ:
        return "LAZ File";
    case POINT_SOURCE_VX7:
        return "Vexil LiDAR File";
    case POINT_SOURCE_LIST:
        return "List of LiDAR Files";
    case POINT_SOURCE_INDEX:
        return "Spatial Index of Lidar Files";
    case POINT_SOURCE_BPF:
        return "BPF File";
    case POINT_SOURCE_NULL:
    case POINT_SOURCE_UNKNOWN:
        break;
    }
    return "Unknown File Type";
}

void SimpleFileOpener::setTextOptions(bool scanNow, const PointInfo& layout, std::size_t skipLines)
{
    TextOptions options;
    options.layout = layout;
    options.skipLines = skipLines;
    options.scanNow = scanNow;
    setTextOptions(options);
}

PointSource* SimpleFileOpener::openText(const char* path) const
{
    if (!m_textOptions)
        throwNeedsParse(path);
    TextOptions options = *m_textOptions;
    if (options.layout.getNumChannels() == 0) {
        const std::optional<PointInfo> columns = TXTPointReader::readHeader(path, options.skipLines);
        if (!columns)
            throwNeedsParse(path);
        options.layout = *columns;
    }
    Scoped<TXTPointReader> reader(TXTPointReader::create());
    reader->init(path, options);
    return reader.detach();
}

PointSource* SimpleFileOpener::openPointSource(const QMFileSpec& file) const
{
    const PointSourceType type = getPointSourceType(file);
    QMFileUtils::requireRegularFile(file);
    switch (type) {
    case POINT_SOURCE_TEXT:
        return openText(file.c_str());
    case POINT_SOURCE_LAS:
    case POINT_SOURCE_LAZ:
        return openLAS(file);
    case POINT_SOURCE_VX7: {
        Scoped<VX7PointReader> reader(VX7PointReader::create());
        reader->init(file.c_str());
        return reader.detach();
    }
    case POINT_SOURCE_BPF:
        return createPDALPointReader(file.c_str());
    default:
        throwUnsupported(file.c_str());
    }
}

PointSource* SimpleFileOpener::openLAS(const QMFileSpec& file) const
{
    Scoped<LASPointReader> reader(LASPointReader::create());
    try {
        reader->init(file.c_str(), m_openFullWaveform);
    } catch (Error& error) {
        if (error.code() == ErrorCode::Waveforms)
            error("  -dropWaveforms reads its points without them.");
        throw;
    }
    if (m_warnsOfWaveforms && reader->hasWaveforms()) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_warned.insert(file.c_str()).second)
            Utils::warn(std::string("the waveform packets of '") + file.c_str() + "' are dropped");
    }
    return reader.detach();
}

FilePointSourceManager::FilePointSourceManager() : m_opener(SimpleFileOpener::create())
{}

FilePointSourceManager* FilePointSourceManager::create()
{
    return new FilePointSourceManager;
}

void FilePointSourceManager::addFile(const char* name)
{
    try {
        add(name);
    } catch (Error& error) {
        if (m_namesErrors)
            nameFile(error, name);
        throw;
    }
}

void FilePointSourceManager::add(const char* name)
{
    switch (SimpleFileOpener::getPointSourceType(name)) {
    case POINT_SOURCE_NULL:
    case POINT_SOURCE_UNKNOWN:
        throwUnsupported(name);
    case POINT_SOURCE_LIST:
        addListFile(name);
        return;
    case POINT_SOURCE_TEXT:
        if (!m_opener->hasTextOptions())
            throwNeedsParse(name);
        break;
    default:
        break;
    }
    m_files.push_back({QMFileSpec(name), {}});
    setNumSources(m_files.size());
}

void FilePointSourceManager::addListFile(const char* name)
{
    QMFileUtils::requireRegularFile(name);
    const std::string prefix = directoryPrefix(name);
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(name, "r");

    // A list can name lists, itself among them.
    const DepthGuard guard(m_listDepth);
    if (m_listDepth > maxListDepth)
        QM_THROW(ErrorCode::General, "list files are nested too deeply: '%s'", name);
    if (m_listDepth > 1) {
        const std::int64_t bytes = file->size();
        if (bytes > maxNestedListBytes - nestedListBytes - m_nestedListBytes)
            QM_THROW(ErrorCode::General, "list files name too many list files: '%s'", name);
        m_nestedListBytes += bytes + nestedListBytes;
    }
    LineReader lines;
    lines.init(file.get(), name, nullptr);
    while (lines.next()) {
        const std::string_view entry = trimmed(lines.line());
        std::string path = isRooted(entry) ? std::string() : prefix;
        addFile(path.append(entry).c_str());
    }
}

void FilePointSourceManager::setTextOptions(bool scanNow, const PointInfo& layout, std::size_t skipLines)
{
    m_opener->setTextOptions(scanNow, layout, skipLines);
}

const char* FilePointSourceManager::getFilename(std::size_t index) const noexcept
{
    return index < m_files.size() ? m_files[index].file.c_str() : nullptr;
}

std::string FilePointSourceManager::getSourceName(std::size_t index) const
{
    return index < m_files.size() ? m_files[index].file.c_str() : PointSourceManager::getSourceName(index);
}

PointSource* FilePointSourceManager::openSource(const QMFileSpec& file) const
{
    if (SimpleFileOpener::getPointSourceType(file) != POINT_SOURCE_INDEX)
        return m_opener->openPointSource(file);
    const Scoped<PersistentPointSourceManager> tiles(PersistentPointSourceManager::create());
    tiles->init(file, m_opener.get());
    return openMosaic(*tiles, m_gpsWeek).detach();
}

PointSource* FilePointSourceManager::createPointSource(std::size_t index)
{
    if (index >= m_files.size())
        QM_THROW(ErrorCode::General);
    FileInfo& info = m_files[index];
    // Opening thousands of files takes long, before any operation asks its progress delegate.
    if (isInterrupted())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    if (!info.source) {
        try {
            info.source.reset(openSource(info.file));
        } catch (Error& error) {
            if (m_namesErrors)
                nameFile(error, info.file.c_str());
            throw;
        }
        if (m_namesErrors)
            info.source = NamedSource::wrap(info.source.get(), info.file.c_str());
    }
    info.source->retain();
    return info.source.get();
}

} // namespace Quillmoran

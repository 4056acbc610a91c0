#include <vxunpack/FilePointSourceManager.h>

#include "files/QMFileUtils.h"
#include "platform/Interrupt.h"
#include "text/LineReader.h"
#include "utils/sets/Formats.h"
#include "utils/sets/Make.h"
#include "utils/sets/NamedSource.h"
#include "utils/sets/TileSet.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <cctype>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <vector>

namespace Quillmoran {

namespace {

// The name of the list up to and including its last separator.
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
// Nested lists can multiply exponentially: each may name the next one many times. This limits the total size
// of all nested lists; each counts with its bytes plus a cost of opening it.
constexpr std::int64_t maxNestedListBytes = 16 << 20;
constexpr std::int64_t nestedListBytes = 256;

} // namespace

PointSourceType SimpleFileOpener::getPointSourceType(const char* name)
{
    return Formats::ofName(name).type;
}

const char* SimpleFileOpener::getPointSourceTypeName(PointSourceType type)
{
    const Format* const format = Formats::ofType(type);
    return format ? format->description : "Unknown File Type";
}

void SimpleFileOpener::dropWaveforms(std::function<void(const std::string&)> warn)
{
    struct Warned
    {
        std::mutex mutex;
        std::set<std::string> texts;
    };
    setOpenFullWaveformFiles(true);
    m_options.warn = [warn = std::move(warn), warned = std::make_shared<Warned>()](const std::string& text) {
        const std::lock_guard<std::mutex> lock(warned->mutex);
        if (warned->texts.insert(text).second)
            warn(text);
    };
}

PointSource* SimpleFileOpener::openPointSource(const char* path) const
{
    const Format& format = Formats::ofName(path);
    QMFileUtils::requireRegularFile(path);
    if (!format.open)
        Formats::throwUnsupported(path);
    return format.open(path, m_options);
}

struct FilePointSourceManager::Imp
{
    struct File
    {
        std::string name;
        Scoped<PointSource> source; // from first use on
    };

    template <class Work>
    auto named(const std::string& name, Work work) const
    {
        return namesErrors ? naming(name, work) : work();
    }

    // Adds a file, or the files of a list; `depth` is the number of lists that contain the name.
    void add(const std::string& name, int depth);
    void addList(const char* name, int depth);
    Scoped<PointSource> open(const std::string& name) const;

    std::vector<File> files;
    std::optional<int> gpsWeek;
    Scoped<SimpleFileOpener> opener{SimpleFileOpener::create()};
    bool namesErrors = false;
    std::int64_t nestedBytes = 0; // of all nested lists
};

void FilePointSourceManager::Imp::add(const std::string& name, int depth)
{
    named(name, [&] {
        const PointSourceType type = SimpleFileOpener::getPointSourceType(name.c_str());
        if (type == POINT_SOURCE_LIST)
            return addList(name.c_str(), depth + 1);
        if (type == POINT_SOURCE_NULL)
            Formats::throwUnsupported(name.c_str());
        if (type == POINT_SOURCE_TEXT && !opener->hasTextOptions())
            Formats::throwNeedsColumns(name.c_str());
        files.push_back({name, {}});
    });
}

void FilePointSourceManager::Imp::addList(const char* name, int depth)
{
    QMFileUtils::requireRegularFile(name);
    const std::string prefix = directoryPrefix(name);
    const auto file = make<FileIO::Imp>(name, "r");

    // A list can name lists, itself among them.
    if (depth > maxListDepth)
        QM_THROW(ErrorCode::General, "list files are nested too deeply: '%s'", name);
    if (depth > 1) {
        const std::int64_t bytes = file->size();
        if (bytes > maxNestedListBytes - nestedListBytes - nestedBytes)
            QM_THROW(ErrorCode::General, "list files name too many list files: '%s'", name);
        nestedBytes += bytes + nestedListBytes;
    }
    LineReader lines;
    lines.init(file.get(), name, nullptr);
    while (lines.next()) {
        const std::string_view entry = trimmed(lines.line());
        std::string path = isRooted(entry) ? std::string() : prefix;
        add(path.append(entry), depth);
    }
}

Scoped<PointSource> FilePointSourceManager::Imp::open(const std::string& name) const
{
    const Scoped<PointSource> source =
        SimpleFileOpener::getPointSourceType(name.c_str()) == POINT_SOURCE_INDEX
            ? openMosaic(*make<PersistentPointSourceManager>(name.c_str(), opener.get()), gpsWeek)
            : Scoped<PointSource>(opener->openPointSource(name.c_str()));
    return namesErrors ? NamedSource::wrap(source.get(), name) : source;
}

FilePointSourceManager::FilePointSourceManager() : m_imp(new Imp)
{}

FilePointSourceManager::~FilePointSourceManager() = default;

void FilePointSourceManager::addFile(const char* name)
{
    m_imp->files.resize(getNumSources()); // drops files of a list with an error
    m_imp->add(name ? name : "", 0);
    setNumSources(m_imp->files.size());
}

void FilePointSourceManager::addListFile(const char* name)
{
    m_imp->files.resize(getNumSources());
    m_imp->addList(name ? name : "", 1);
    setNumSources(m_imp->files.size());
}

SimpleFileOpener& FilePointSourceManager::getOpener() noexcept
{
    return *m_imp->opener;
}

void FilePointSourceManager::setGPSWeek(const std::optional<int>& week) noexcept
{
    m_imp->gpsWeek = week;
}

void FilePointSourceManager::setNamesErrors() noexcept
{
    m_imp->namesErrors = true;
}

const char* FilePointSourceManager::getFilename(std::size_t index) const noexcept
{
    return index < m_imp->files.size() ? m_imp->files[index].name.c_str() : nullptr;
}

std::string FilePointSourceManager::getSourceName(std::size_t index) const
{
    const char* const name = getFilename(index);
    return name ? name : PointSourceManager::getSourceName(index);
}

PointSource* FilePointSourceManager::createPointSource(std::size_t index)
{
    if (index >= m_imp->files.size())
        QM_THROW(ErrorCode::General);
    // Opening thousands of files takes long, and no operation has yet asked its progress delegate.
    if (isInterrupted())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    Imp::File& file = m_imp->files[index];
    if (!file.source)
        file.source = m_imp->named(file.name, [&] { return m_imp->open(file.name); });
    return Scoped<PointSource>(file.source).detach();
}

} // namespace Quillmoran

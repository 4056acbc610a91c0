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

struct FilePointSourceManager::Imp
{
    struct File
    {
        std::string name;
        Scoped<PointSource> source; // from first use on
    };

    void add(const char* name, FilePointSourceManager& manager);
    Scoped<PointSource> open(const std::string& name) const
    {
        if (SimpleFileOpener::getPointSourceType(name.c_str()) != POINT_SOURCE_INDEX)
            return Scoped<PointSource>(opener->openPointSource(name.c_str()));
        const auto tiles = make<PersistentPointSourceManager>(name.c_str(), opener.get());
        return openMosaic(*tiles, gpsWeek);
    }

    std::vector<File> files;
    std::optional<int> gpsWeek;
    Scoped<SimpleFileOpener> opener{SimpleFileOpener::create()};
    bool namesErrors = false;
    int listDepth = 0;            // of the list files being read
    std::int64_t nestedBytes = 0; // of all nested lists
};

FilePointSourceManager::FilePointSourceManager() : m_imp(new Imp)
{}

FilePointSourceManager::~FilePointSourceManager() = default;

FilePointSourceManager* FilePointSourceManager::create()
{
    return new FilePointSourceManager;
}

void FilePointSourceManager::addFile(const char* name)
{
    if (m_imp->namesErrors)
        naming(name, [&] { m_imp->add(name, *this); });
    else
        m_imp->add(name, *this);
    setNumSources(m_imp->files.size());
}

void FilePointSourceManager::Imp::add(const char* name, FilePointSourceManager& manager)
{
    const PointSourceType type = SimpleFileOpener::getPointSourceType(name);
    if (type == POINT_SOURCE_LIST)
        return manager.addListFile(name);
    if (type == POINT_SOURCE_NULL)
        Formats::throwUnsupported(name);
    if (type == POINT_SOURCE_TEXT && !opener->options().text)
        Formats::throwNeedsColumns(name);
    files.push_back({name, {}});
}

void FilePointSourceManager::addListFile(const char* name)
{
    QMFileUtils::requireRegularFile(name);
    const std::string prefix = directoryPrefix(name);
    const auto file = make<FileIO::Imp>(name, "r");

    // A list can name lists, itself among them.
    const DepthGuard guard(m_imp->listDepth);
    if (m_imp->listDepth > maxListDepth)
        QM_THROW(ErrorCode::General, "list files are nested too deeply: '%s'", name);
    if (m_imp->listDepth > 1) {
        const std::int64_t bytes = file->size();
        if (bytes > maxNestedListBytes - nestedListBytes - m_imp->nestedBytes)
            QM_THROW(ErrorCode::General, "list files name too many list files: '%s'", name);
        m_imp->nestedBytes += bytes + nestedListBytes;
    }
    LineReader lines;
    lines.init(file.get(), name, nullptr);
    while (lines.next()) {
        const std::string_view entry = trimmed(lines.line());
        std::string path = isRooted(entry) ? std::string() : prefix;
        addFile(path.append(entry).c_str());
    }
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
    if (!file.source) {
        const auto open = [&] { return m_imp->open(file.name); };
        file.source =
            m_imp->namesErrors ? NamedSource::wrap(naming(file.name, open).get(), file.name) : open();
    }
    return Scoped<PointSource>(file.source).detach();
}

} // namespace Quillmoran

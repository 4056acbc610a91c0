#include <vxunpack/FilePointSourceManager.h>

#include "files/QMFileUtils.h"
#include "files/RemoteName.h"
#include "platform/Interrupt.h"
#include "platform/OpenIO.h"
#include "servers/RemoteFile.h"
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

void refuseRemote(const char* name)
{
    if (RemoteName::isRemote(name))
        QM_THROW(ErrorCode::RemoteForbidden,
                 "'%s' is a remote file that another file names; -allowRemote reads such files", name);
}

bool isRooted(std::string_view name)
{
    if (RemoteName::isRemote(name))
        return true;
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
    const PointSourceType type = getPointSourceType(path);
    if (!m_options.allowsRemote)
        refuseRemote(path);
    return openPointSource(path, type, nullptr);
}

PointSource* SimpleFileOpener::openPointSource(const char* name, PointSourceType type, IO* io) const
{
    const Format* const format = Formats::ofType(type);
    if (!format || !format->open)
        Formats::throwUnsupported(name);
    if (!io && name && RemoteName::isRemote(name)) {
        const OpenIO remote(makeRemoteFile(name).get());
        return format->open({name, &*remote, m_options});
    }
    if (!io)
        QMFileUtils::requireRegularFile(name);
    return format->open({name, io, m_options});
}

struct FilePointSourceManager::Imp
{
    struct File
    {
        std::string name;
        PointSourceType type;
        Scoped<IO> io;              // null for the file of that name
        Scoped<PointSource> source; // from first use on
    };

    template <class Work>
    auto named(const std::string& name, Work work) const
    {
        return namesErrors ? naming(name, work) : work();
    }

    // Adds a file, or the files of a list; `depth` is the number of lists that contain the name.
    void add(const std::string& name, PointSourceType type, IO* io, int depth);
    void addList(const char* name, IO* io, int depth);
    Scoped<PointSource> open(const File& file) const;
    const File& get(std::size_t index) const
    {
        if (index >= files.size())
            QM_THROW(ErrorCode::General);
        return files[index];
    }

    std::vector<File> files;
    std::optional<int> gpsWeek;
    Scoped<SimpleFileOpener> opener{SimpleFileOpener::create()};
    bool namesErrors = false;
    std::int64_t nestedBytes = 0; // of all nested lists
};

void FilePointSourceManager::Imp::add(const std::string& name, PointSourceType type, IO* io, int depth)
{
    named(name, [&] {
        if (type == POINT_SOURCE_LIST && !io && RemoteName::isRemote(name))
            QM_THROW(ErrorCode::General, "cannot read '%s': a list must be a file", name.c_str());
        if (type == POINT_SOURCE_LIST)
            return addList(name.c_str(), io, depth + 1);
        if (depth != 0 && !opener->allowsRemote())
            refuseRemote(name.c_str());
        if (type == POINT_SOURCE_NULL)
            Formats::throwUnsupported(name.c_str());
        if (type == POINT_SOURCE_TEXT && !opener->hasTextOptions())
            Formats::throwNeedsColumns(name.c_str());
        if (type == POINT_SOURCE_INDEX && (io || RemoteName::isRemote(name)))
            QM_THROW(ErrorCode::General, "cannot read '%s': an index must be a file", name.c_str());
        files.push_back({name, type, Scoped<IO>::retained(io), {}});
    });
}

void FilePointSourceManager::Imp::addList(const char* name, IO* io, int depth)
{
    if (!io)
        QMFileUtils::requireRegularFile(name);
    const std::string prefix = io ? std::string() : directoryPrefix(name);
    const Scoped<IO> file = io ? Scoped<IO>::retained(io) : make<FileIO::Imp, IO>(name, "r");

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
        path.append(entry);
        add(path, SimpleFileOpener::getPointSourceType(path.c_str()), nullptr, depth);
    }
}

Scoped<PointSource> FilePointSourceManager::Imp::open(const File& file) const
{
    const char* const name = file.name.c_str();
    const Scoped<PointSource> source =
        file.type == POINT_SOURCE_INDEX
            ? openMosaic(*make<PersistentPointSourceManager>(name, opener.get()), gpsWeek)
            : Scoped<PointSource>(opener->openPointSource(name, file.type, file.io.get()));
    return namesErrors ? NamedSource::wrap(source.get(), file.name) : source;
}

FilePointSourceManager::FilePointSourceManager() : m_imp(new Imp)
{}

FilePointSourceManager::~FilePointSourceManager() = default;

void FilePointSourceManager::addFile(const char* name)
{
    const char* const given = name ? name : "";
    addFile(given, SimpleFileOpener::getPointSourceType(given), nullptr);
}

void FilePointSourceManager::addFile(const char* name, PointSourceType type, IO* io)
{
    m_imp->files.resize(getNumSources()); // drops files of a list with an error
    m_imp->add(name ? name : "", type, io, 0);
    setNumSources(m_imp->files.size());
}

void FilePointSourceManager::addListFile(const char* name)
{
    m_imp->files.resize(getNumSources());
    m_imp->addList(name ? name : "", nullptr, 1);
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

PointSourceType FilePointSourceManager::getFileType(std::size_t index) const
{
    return m_imp->get(index).type;
}

std::int64_t FilePointSourceManager::getFileSize(std::size_t index) const
{
    const Imp::File& file = m_imp->get(index);
    if (file.io)
        return file.io->size();
    if (RemoteName::isRemote(file.name))
        return OpenIO(makeRemoteFile(file.name.c_str()).get())->size();
    return QMFileUtils::getSize(file.name.c_str());
}

std::string FilePointSourceManager::getSourceName(std::size_t index) const
{
    const char* const name = getFilename(index);
    return name ? name : PointSourceManager::getSourceName(index);
}

PointSource* FilePointSourceManager::createPointSource(std::size_t index)
{
    m_imp->get(index);
    // Opening thousands of files takes long, and no operation has yet asked its progress delegate.
    if (isInterrupted())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    Imp::File& file = m_imp->files[index];
    if (!file.source)
        file.source = m_imp->named(file.name, [&] { return m_imp->open(file); });
    return Scoped<PointSource>(file.source).detach();
}

} // namespace Quillmoran

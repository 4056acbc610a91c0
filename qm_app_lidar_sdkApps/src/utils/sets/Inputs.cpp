#include "utils/sets/Inputs.h"

#include "files/QMFileUtils.h"
#include "files/RemoteName.h"
#include "files/Spool.h"
#include "utils/sets/Make.h"
#include <vxunpack/Base.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/PersistentPointSourceWriter.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <strings.h>
#include <vector>

namespace Quillmoran::Utils {

namespace {

using Add = std::function<void(const char* name)>;

void addFile(const Add& add, const char* name)
{
    const Format& format = Formats::ofName(name);
    if (format.isSelfDescribing)
        return add(name);
    if (format.type != POINT_SOURCE_LIST)
        return;
    const Scoped<FilePointSourceManager> listed(FilePointSourceManager::create());
    listed->addListFile(name);
    for (std::size_t i = 0; i < listed->getNumSources(); ++i)
        addFile(add, listed->getFilename(i));
}

// `path` holds the directories that are being walked, from the first one down. A link back to one of them
// would be followed until the depth is reached.
void walkFileSystem(const Add& add, const QMFileSpec& directory, int depth, std::vector<QMFileSpec>& path)
{
    std::vector<std::string> files;
    std::vector<std::string> directories;
    if (const int error = QMFileUtils::getContents(directory, files, directories))
        QM_THROW(static_cast<ErrorCode>(error), "could not get directory contents");
    std::sort(files.begin(), files.end(), [](const std::string& a, const std::string& b) {
        return strcasecmp(a.c_str(), b.c_str()) < 0;
    });
    for (const std::string& file : files)
        addFile(add, QMFileSpec(directory, file.c_str()).c_str());
    if (depth < 1)
        return;
    path.push_back(directory);
    for (const std::string& name : directories) {
        const QMFileSpec below(directory, name.c_str());
        if (std::none_of(path.begin(), path.end(),
                         [&](const QMFileSpec& above) { return QMFileUtils::isSameFile(above, below); }))
            walkFileSystem(add, below, depth - 1, path);
    }
    path.pop_back();
}

void addPath(const Add& add, const char* name, int depth)
{
    std::vector<QMFileSpec> path;
    if (QMFileUtils::isDirectory(name))
        walkFileSystem(add, name, depth, path);
    else
        addFile(add, name);
}

} // namespace

void addFiles(FilePointSourceManager& manager, const char* path, int depth)
{
    addPath([&](const char* name) { manager.addFile(name); }, path, depth);
}

void addFiles(PersistentPointSourceWriter& writer, const char* path, int depth)
{
    addPath([&](const char* name) { writer.add(name); }, path, depth);
}

void addInput(FilePointSourceManager& files, const char* name, int depth)
{
    if (QMFileUtils::isDirectory(name))
        return addFiles(files, name, depth);
    if (RemoteName::isRemote(name))
        return files.addFile(name);
    // A missing file without a known ending would otherwise be reported as text that needs a format.
    if (!QMFileUtils::exists(name)) {
        errno = ENOENT;
        QM_THROW_OS(name);
    }
    files.addFile(name);
}

bool isPipe(const char* name)
{
    std::error_code ignored;
    return std::strcmp(name, "-") == 0 || std::filesystem::is_fifo(name, ignored);
}

Input openInput(const char* name, const char* format)
{
    Input input{name, format ? Formats::typeOfInput(format) : SimpleFileOpener::getPointSourceType(name), {}};
    const bool mayBePoints = input.type != POINT_SOURCE_LIST && input.type != POINT_SOURCE_INDEX;
    if (!isPipe(name) || !(format || mayBePoints))
        return input;
    if (std::strcmp(name, "-") == 0)
        input.name = "standard input";
    input.io.reset(Spool::read(name, input.name.c_str()).detach());
    if (!format)
        input.type = Formats::typeOfContents(*input.io);
    return input;
}

void addInput(FilePointSourceManager& files, const Input& input, int depth)
{
    const char* const name = input.name.c_str();
    const bool isFile = QMFileUtils::exists(name) && !QMFileUtils::isDirectory(name);
    if (input.io || isFile || RemoteName::isRemote(name))
        files.addFile(name, input.type, input.io.get());
    else
        addInput(files, name, depth);
}

Scoped<PointSource> joinFiles(FilePointSourceManager& files, const MergeOptions& options, const Warn& warn)
{
    files.setGPSWeek(options.gpsWeek);
    if (!options.givesCoordinateSystem && (options.examinesOnlyFile || files.getNumSources() > 1))
        warnOfUnknownCoordinateSystems(files, warn);
    if (files.getNumSources() == 1 && !options.gpsWeek)
        return Scoped<PointSource>(
            files.createPointSource(0)); // an index compared its files when it was made
    const auto mosaic = make<MosaicFilter>(&files, options.gpsWeek);
    for (const std::string& warning : mosaic->getWarnings())
        warn(warning);
    compareCoordinateSystems(mosaic->getCoordinateSystems(), options, warn);
    return Scoped<PointSource>::retained(mosaic.get());
}

void refuseSameFile(const char* input, const char* output)
{
    if (QMFileUtils::isSameFile(input, output))
        QM_THROW(ErrorCode::General, "the output '%s' is the input file", output);
}

void refuseInputs(const FilePointSourceManager& files, const char* output)
{
    if (!QMFileUtils::exists(output)) // an index can have millions of tiles to compare it with
        return;
    for (std::size_t i = 0; i < files.getNumSources(); ++i) {
        const char* const name = files.getFilename(i);
        refuseSameFile(name, output);
        if (files.getFileType(i) != POINT_SOURCE_INDEX)
            continue;
        const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
        const auto index = make<PersistentPointSourceManager>(name, opener.get());
        for (std::size_t tile = 0; tile < index->getNumSources(); ++tile)
            refuseSameFile(index->getTileInfo(tile).path.c_str(), output);
        if (const TileInfo* overview = index->getOverviewInfo())
            refuseSameFile(overview->path.c_str(), output);
    }
}

} // namespace Quillmoran::Utils

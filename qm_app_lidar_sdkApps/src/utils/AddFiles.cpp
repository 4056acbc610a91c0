#include "files/QMFileUtils.h"
#include "utils/Utils.h"
#include <vxunpack/Base.h>
#include <vxunpack/PersistentPointSourceWriter.h>

#include <algorithm>
#include <string>
#include <strings.h>
#include <vector>

namespace Quillmoran::Utils {

namespace {

void addOne(FilePointSourceManager& manager, const char* name)
{
    manager.addFile(name);
}

void addOne(PersistentPointSourceWriter& writer, const char* name)
{
    writer.add(name);
}

template <class Target>
void addFile(Target& target, const char* name)
{
    switch (getPointSourceType(name)) {
    case POINT_SOURCE_LIST: {
        const Scoped<FilePointSourceManager> listed(FilePointSourceManager::create());
        listed->addListFile(name);
        for (std::size_t i = 0; i < listed->getNumSources(); ++i)
            addFile(target, listed->getFilename(i));
        return;
    }
    case POINT_SOURCE_LAS:
    case POINT_SOURCE_LAZ:
    case POINT_SOURCE_VX7:
    case POINT_SOURCE_BPF:
        return addOne(target, name);
    default:
        return;
    }
}

// `path` holds the directories that are being walked, from the first one down. A link back to one of them
// would lead round for as long as the depth allows.
template <class Target>
void walkFileSystem(Target& target, const QMFileSpec& directory, int depth, std::vector<QMFileSpec>& path)
{
    std::vector<std::string> files;
    std::vector<std::string> directories;
    if (const int error = QMFileUtils::getContents(directory, files, directories))
        QM_THROW(static_cast<ErrorCode>(error), "could not get directory contents");
    std::sort(files.begin(), files.end(), [](const std::string& a, const std::string& b) {
        return strcasecmp(a.c_str(), b.c_str()) < 0;
    });
    for (const std::string& file : files)
        addFile(target, QMFileSpec(directory, file.c_str()).c_str());
    if (depth < 1)
        return;
    path.push_back(directory);
    for (const std::string& name : directories) {
        const QMFileSpec below(directory, name.c_str());
        if (std::none_of(path.begin(), path.end(),
                         [&](const QMFileSpec& above) { return QMFileUtils::isSameFile(above, below); }))
            walkFileSystem(target, below, depth - 1, path);
    }
    path.pop_back();
}

template <class Target>
void addPath(Target& target, const char* name, int depth)
{
    std::vector<QMFileSpec> path;
    if (QMFileUtils::isDirectory(name))
        walkFileSystem(target, name, depth, path);
    else
        addFile(target, name);
}

} // namespace

void addFiles(FilePointSourceManager& manager, const char* path, int depth)
{
    addPath(manager, path, depth);
}

void addFiles(PersistentPointSourceWriter& writer, const char* path, int depth)
{
    addPath(writer, path, depth);
}

} // namespace Quillmoran::Utils

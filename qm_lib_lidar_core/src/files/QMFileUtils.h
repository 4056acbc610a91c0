// Operations on files by name. Failures of the system are OSError with the path, as in "No such file or
// directory path = a.vxl". Remote files (files/RemoteName.h) are taken to exist; they have no size and time here, and
// their names are resolved.
#pragma once

#include "files/QMFileSpec.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran::QMFileUtils {

struct Stats
{
    std::int64_t size = 0;             // bytes
    std::int64_t modificationTime = 0; // seconds since 1970
};

// All of these follow links.
bool exists(const QMFileSpec& file);
bool isDirectory(const QMFileSpec& file);
bool isSameFile(const QMFileSpec& a, const QMFileSpec& b);
std::int64_t getSize(const QMFileSpec& file);
Stats getStats(const QMFileSpec& file);

// Throws General "cannot read '%s': it is a pipe, not a regular file" (or a device, ...). Does not open the
// file, which could block. Follows links; not an error if there is no such file.
void requireRegularFile(const QMFileSpec& file);

// Appends the names in a directory, in no particular order; everything but a directory is a file. Returns 0
// or a value of errno.
int getContents(const QMFileSpec& directory, std::vector<std::string>& files,
                std::vector<std::string>& directories);

void deleteFile(const QMFileSpec& file);
// Renames a file within a file system and replaces a file with the new name.
void moveFile(const QMFileSpec& from, const QMFileSpec& to);

// The absolute path, with the links of its directory resolved, so that two names of a file compare equal. A
// link in the last component is not resolved. Nothing needs to exist.
QMFileSpec resolve(const QMFileSpec& file);

} // namespace Quillmoran::QMFileUtils

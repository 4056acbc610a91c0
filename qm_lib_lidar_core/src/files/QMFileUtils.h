// What programs do with files by name. Failures of the system are its own errors, with the path: "No such
// file or directory path = a.vxl".
#pragma once

#include "files/QMFileSpec.h"
#include "platform/Export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran::QMFileUtils {

struct Stats
{
    std::int64_t size = 0;             // bytes
    std::int64_t modificationTime = 0; // seconds since 1970
};

// Questions about what a name leads to; links are followed.
QM_API bool exists(const QMFileSpec& file);
QM_API bool isDirectory(const QMFileSpec& file);
QM_API bool isSameFile(const QMFileSpec& a, const QMFileSpec& b);
QM_API std::int64_t getSize(const QMFileSpec& file);
QM_API Stats getStats(const QMFileSpec& file);

// Throws -1 "cannot read '%s': it is a pipe, not a regular file" (or a device, ...) before anything opens it,
// as opening a pipe can block. Links are followed; a name that leads to nothing is no error.
QM_API void requireRegularFile(const QMFileSpec& file);

// Appends the names in a directory, in no particular order; what is not a directory is a file. Returns 0 or
// the number of the system's error.
QM_API int getContents(const QMFileSpec& directory, std::vector<std::string>& files,
                       std::vector<std::string>& directories);

// An empty file; a name that is taken is an error.
QM_API void createFile(const QMFileSpec& file);
// With the directories above it; one that is there already is none.
QM_API void createDirectory(const QMFileSpec& directory);
QM_API void deleteFile(const QMFileSpec& file);
// With all that it holds.
QM_API void deleteDirectory(const QMFileSpec& directory);
// Both replace a file of the new name.
QM_API void copyFile(const QMFileSpec& from, const QMFileSpec& to);
QM_API void moveFile(const QMFileSpec& from, const QMFileSpec& to);

// The absolute path, with the links of its directory resolved, so that two names of one file compare equal.
// A link that the file itself is stays. Nothing needs to exist.
QM_API QMFileSpec resolve(const QMFileSpec& file);

QM_API QMFileSpec getCurrentDirectory();
// TMPDIR or TEMP of the environment, else /tmp.
QM_API QMFileSpec getTemporaryDirectory();
// The running program's file; empty when the system does not tell.
QM_API QMFileSpec getProcessPath();
// The program that a shell would run for this name; empty when PATH has none.
QM_API QMFileSpec findProgram(const char* name);

} // namespace Quillmoran::QMFileUtils

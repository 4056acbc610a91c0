// What programs do with files by name. Failures of the system are its own errors, with the path: "No such
// file or directory path = a.vxl".
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

// Questions about what a name leads to; links are followed.
bool exists(const QMFileSpec& file);
bool isDirectory(const QMFileSpec& file);
bool isSameFile(const QMFileSpec& a, const QMFileSpec& b);
std::int64_t getSize(const QMFileSpec& file);
Stats getStats(const QMFileSpec& file);

// Throws -1 "cannot read '%s': it is a pipe, not a regular file" (or a device, ...) before anything opens it,
// as opening a pipe can block. Links are followed; a name that leads to nothing is no error.
void requireRegularFile(const QMFileSpec& file);

// Appends the names in a directory, in no particular order; what is not a directory is a file. Returns 0 or
// the number of the system's error.
int getContents(const QMFileSpec& directory, std::vector<std::string>& files,
                std::vector<std::string>& directories);

// An empty file; a name that is taken is an error.
void createFile(const QMFileSpec& file);
// With the directories above it; one that is there already is none.
void createDirectory(const QMFileSpec& directory);
void deleteFile(const QMFileSpec& file);
// With all that it holds.
void deleteDirectory(const QMFileSpec& directory);
// Both replace a file of the new name.
void copyFile(const QMFileSpec& from, const QMFileSpec& to);
void moveFile(const QMFileSpec& from, const QMFileSpec& to);

// The absolute path, with the links of its directory resolved, so that two names of one file compare equal.
// A link that the file itself is stays. Nothing needs to exist.
QMFileSpec resolve(const QMFileSpec& file);

QMFileSpec getCurrentDirectory();
// TMPDIR or TEMP of the environment, else /tmp.
QMFileSpec getTemporaryDirectory();
// The running program's file; empty when the system does not tell.
QMFileSpec getProcessPath();
// The program that a shell would run for this name; empty when PATH has none.
QMFileSpec findProgram(const char* name);

} // namespace Quillmoran::QMFileUtils

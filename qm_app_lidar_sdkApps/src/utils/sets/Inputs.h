// Adds what a user named, files, lists and directories, to sets of files, and joins the files of a set into
// one point cloud.
#pragma once

#include "utils/sets/Formats.h"
#include "utils/sets/Losses.h"

namespace Quillmoran {

class PersistentPointSourceWriter;

namespace Utils {

// Adds a file, or the files of a directory and of `depth` levels of directories below it: first the files of
// a directory in the order of their names, ignoring case, then its directories. A list adds the files that it
// names. Text files, indexes and the null name are skipped. A directory that cannot be read is the system's
// error "could not get directory contents".
void addFiles(FilePointSourceManager& manager, const char* path, int depth);
void addFiles(PersistentPointSourceWriter& writer, const char* path, int depth);

// The same for a name that must exist, where a single file may be of any format.
void addInput(FilePointSourceManager& files, const char* name, int depth);

// Whether a name is "-" or that of a named pipe.
bool isPipe(const char* name);

// A file or a directory that a user named, or a pipe.
struct Input
{
    std::string name; // in messages
    PointSourceType type;
    Scoped<IO> io; // of a pipe: a temporary file with its contents
};

// Opens pipes: "-" is standard input, which is called "standard input"; other names may be those of named pipes.
// A pipe is read to its end; see Spool::read(). `format`, which may be null, is the name of the format of the
// file or pipe. By default files are recognised by their names, and pipes by their first bytes, but not if
// their names are those of lists and indexes: these are refused when they are read.
Input openInput(const char* name, const char* format);
// addInput() for an opened input. The files of a directory are recognised by their names.
void addInput(FilePointSourceManager& files, const Input& input, int depth);

// The file, or the mosaic of several; with a GPS week always a mosaic. Warns of differences between the
// files.
Scoped<PointSource> joinFiles(FilePointSourceManager& files, const MergeOptions& options, const Warn& warn);

// A writer truncates its output, which therefore must not be an input: throws General "the output '%s' is the
// input file".
void refuseSameFile(const char* input, const char* output);
// The same for all files of a set, including the tiles of an index.
void refuseInputs(const FilePointSourceManager& files, const char* output);

} // namespace Utils

} // namespace Quillmoran

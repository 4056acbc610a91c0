// Temporary copies of streams that cannot seek. A pipe is read into one before its points are read, and a
// format that is not written in order is written to one before it goes to a pipe. The files have no names: an
// unlinked file is reachable only through its descriptor, and is removed when the process is killed.
#pragma once

#include <vxunpack/FileIO.h>

namespace Quillmoran::Spool {

// An empty file for reading and writing in the directory TMPDIR, or else /tmp. It is open and stays open
// until it is destroyed. Its errors name the directory.
Scoped<FileIO::Imp> create();

// The contents of a pipe or device, read to its end; "-" is standard input. Standard input that is a regular
// file at its beginning is not copied. Like create(), the result stays open. `name` is for messages. Throws
// Cancelled "operation cancelled." after a signal that PercentProgressDelegate handles, OSError if the stream
// cannot be read, and General "cannot copy '%s' to a temporary file: %s" if the copy cannot be written.
Scoped<FileIO::Imp> read(const char* path, const char* name);

// Writes all bytes of one open file to the beginning of another.
void copy(const IO& from, const IO& to);

} // namespace Quillmoran::Spool

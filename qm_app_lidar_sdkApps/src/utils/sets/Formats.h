// The file formats, one row each: how names are recognised, how a file is opened and how one is written. The
// opener, the programs' choice of a writer, their help texts and the tests of the man pages read this table,
// so a new format is one row here and one folder with its reader and writer.
#pragma once

#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/PointWriter.h>

#include <array>
#include <string>
#include <vector>

namespace Quillmoran {

class IO;

// What is read, and how.
struct InputTarget
{
    const char* name; // the path of the file, or the name of `io` in messages
    IO* io;           // null: the file of that path
    const SimpleFileOpener::Options& options;
};

// What is written, and where.
struct OutputTarget
{
    PointSource* source;
    const char* path;        // or the name of the stream in messages
    const PointInfo& layout; // the columns of text
    IO* stream;              // null, or written in place of the path
    int lasVersion;          // see LASPointWriter
    bool compressed;         // LAZ in place of LAS
};

struct Format
{
    PointSourceType type;
    // How names are recognised, ignoring case: ".x" is an ending, "x" a whole name, "" every other name.
    const char* pattern;
    const char* name;        // short, for help texts
    const char* description; // of the type
    // Files of this format need no options, so they are taken from directories and lists of a walk.
    bool isSelfDescribing;
    // New counts. Null if the format cannot be opened or written.
    PointSource* (*open)(const InputTarget& target);
    PointWriter* (*createWriter)(const OutputTarget& target);
    // The values of the option -outputFormat that select this format; null after the last.
    std::array<const char*, 4> outputNames;

    bool matches(const char* fileName) const;
};

namespace Formats {

// All rows; a name belongs to the first one that matches.
extern const std::array<Format, 8> table;

const Format& ofName(const char* fileName);
// Null for an unknown type.
const Format* ofType(PointSourceType type) noexcept;

// The ending of the names of files: ".las", ".txt".
std::string endingOf(PointSourceType type);

// The format with a name that a user gave: an ending without its dot, or "txt". Throws General "unknown input
// format '%s', it is ...".
PointSourceType typeOfInput(const char* name);
// The format by the first bytes of an open file; text unless they are those of another format.
PointSourceType typeOfContents(const IO& io);

// The names of the formats of points that can be opened: "VX7, LAS, ...".
std::string listInputs();
// The values of the option -outputFormat.
std::vector<const char*> getOutputNames();

[[noreturn]] void throwUnsupported(const char* fileName);
[[noreturn]] void throwNeedsColumns(const char* fileName);

} // namespace Formats

// The format of an output: by the name of the format if there is one, otherwise by the name of the file.
class OutputChoice
{
public:
    // `formatName` may be null. Throws General "unsupported output format '%s'" if it is unknown, or "unknown
    // output format" if the format that the file's name implies cannot be written.
    OutputChoice(const char* path, const char* formatName);

    PointSourceType type() const noexcept { return m_format->type; }
    bool isLAS() const noexcept { return type() == POINT_SOURCE_LAS || type() == POINT_SOURCE_LAZ; }
    // The writer, with a count of 1. `stream` and `layout` as in OutputTarget.
    Scoped<PointWriter> createWriter(PointSource& source, const std::string& path, const PointInfo& layout,
                                     IO* stream = nullptr) const;

private:
    const Format* m_format;
    int m_lasVersion = -1;
    bool m_compressed = false;
};

} // namespace Quillmoran

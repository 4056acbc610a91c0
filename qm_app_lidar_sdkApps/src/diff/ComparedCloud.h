// One of the two inputs of vxdiff: a file, the files of a list or directory, or the tiles of an index.
#pragma once

#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/Metadata.h>

#include <cstdint>
#include <string>

namespace Quillmoran {

class ProgressDelegate;
class QMCmdLine;

struct ComparedCloud
{
    std::string name;
    Scoped<FilePointSourceManager> files;
    Scoped<PointSource> source;
    Metadata metadata; // without the records that writers add for themselves

    // Opens an input with the options "inputFormat", "parse", "skip", "lenient", "dropWaveforms" and "depth". The delegate
    // must outlive the source; it can cancel the scan of a text file. Throws General "there are no files to
    // read in '%s'" and what opening throws.
    ComparedCloud(const std::string& input, const QMCmdLine& options, ProgressDelegate& cancellation);

    // Of the files, in bytes.
    std::int64_t getSize() const;
};

} // namespace Quillmoran

// Turns the names that a user gives into point sources: SimpleFileOpener classifies a name by its ending and
// opens the matching reader; FilePointSourceManager is the ordered set of input files, opened on first use.
#pragma once

#include <vxunpack/PersistentPointSourceManager.h>
#include <vxunpack/TXTPointReader.h>

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Quillmoran {

enum PointSourceType : int
{
    POINT_SOURCE_UNKNOWN = 0,
    POINT_SOURCE_TEXT = 1,
    POINT_SOURCE_LAS = 2,
    POINT_SOURCE_LAZ = 3,
    POINT_SOURCE_VX7 = 4,
    POINT_SOURCE_NULL = 5,
    POINT_SOURCE_LIST = 6,
    POINT_SOURCE_INDEX = 7,
    POINT_SOURCE_BPF = 8
};

class SimpleFileOpener final : public PersistentPointSourceManager::FileOpener
{
public:
    static SimpleFileOpener* create();

    // By the name alone, in any case of letters; what ends in nothing known is text.
    static PointSourceType getPointSourceType(const char* name);
    static PointSourceType getPointSourceType(const QMFileSpec& file);
    static const char* getPointSourceTypeName(PointSourceType type);

    // How text files are read. Without columns each file must name its own in a header line.
    void setTextOptions(const TextOptions& options) { m_textOptions = options; }
    void setTextOptions(bool scanNow, const PointInfo& layout, std::size_t skipLines);
    bool hasTextOptions() const noexcept { return m_textOptions.has_value(); }

    // Whether LAS files with waveforms are opened for the rest of what they hold. They are refused at first.
    bool willOpenFullWaveformFiles() const noexcept { return m_openFullWaveform; }
    void setOpenFullWaveformFiles(bool open) noexcept { m_openFullWaveform = open; }
    // Opens them, too, and warns once per file that its waveform packets are dropped.
    void dropWaveforms() noexcept { m_openFullWaveform = m_warnsOfWaveforms = true; }

    // A new count of a source. Errors -1: "TXT file requires a format parse string '-parse': '%s'",
    // "unsupported input file format '%s'"; those of the reader.
    PointSource* openPointSource(const QMFileSpec& file) const override;

private:
    PointSource* openText(const char* path) const;

    SimpleFileOpener() = default;
    PointSource* openLAS(const QMFileSpec& file) const;

    std::optional<TextOptions> m_textOptions;
    bool m_openFullWaveform = false;
    bool m_warnsOfWaveforms = false;
    mutable std::mutex m_mutex;
    mutable std::set<std::string> m_warned; // files, by name
};

class FilePointSourceManager final : public PointSourceManager
{
public:
    static FilePointSourceManager* create();

    // Errors -1: "unsupported input file format '%s'", "TXT file requires a format parse string '-parse':
    // '%s'" unless setTextOptions() was called before.
    void addFile(const char* name);
    // One name per line, each added as a file; a relative one is taken from the list's own directory. There
    // are no comments and no empty lines.
    void addListFile(const char* name);
    void setTextOptions(const TextOptions& options) { m_opener->setTextOptions(options); }
    void setTextOptions(bool scanNow, const PointInfo& layout, std::size_t skipLines);

    // As those of the opener of the files.
    void setOpenFullWaveformFiles(bool open) noexcept { m_opener->setOpenFullWaveformFiles(open); }
    void dropWaveforms() noexcept { m_opener->dropWaveforms(); }
    // Indexes that were made without a GPS week are read with this one (see MergeRules.h).
    void setGPSWeek(const std::optional<int>& week) noexcept { m_gpsWeek = week; }
    // From now on errors of files that are added, opened or read name the file; sources are NamedSources.
    void setNamesErrors() noexcept { m_namesErrors = true; }

    // Null for an index past the end.
    const char* getFilename(std::size_t index) const noexcept;
    std::string getSourceName(std::size_t index) const override;
    // The source of a tile-set index is the mosaic of its tiles.
    PointSource* createPointSource(std::size_t index) override;

private:
    struct FileInfo
    {
        QMFileSpec file;
        Scoped<PointSource> source; // from first use on
    };

    FilePointSourceManager();

    void add(const char* name);
    PointSource* openSource(const QMFileSpec& file) const;

    std::vector<FileInfo> m_files;
    std::optional<int> m_gpsWeek;
    Scoped<SimpleFileOpener> m_opener;
    bool m_namesErrors = false;
    int m_listDepth = 0;                // of the list files being read
    std::int64_t m_nestedListBytes = 0; // of all lists that were named by lists
};

} // namespace Quillmoran

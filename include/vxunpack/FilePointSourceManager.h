// Turns file names into point sources: SimpleFileOpener classifies a name by its ending and opens the
// matching reader; FilePointSourceManager is an ordered set of input files, opened on first use. A name can be
// that of a remote file: a URL (http, https, s3, gs, az) or a path of a virtual file system of GDAL.
#pragma once

#include <vxunpack/IO.h>
#include <vxunpack/PersistentPointSourceManager.h>
#include <vxunpack/TXTPointReader.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

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

// Thread-safe once it is configured.
class QM_API SimpleFileOpener final : public PersistentPointSourceManager::FileOpener
{
public:
    static SimpleFileOpener* create() { return new SimpleFileOpener; }

    // The type that the ending of a name implies, ignoring case; text if the ending is unknown.
    static PointSourceType getPointSourceType(const char* name);
    static const char* getPointSourceTypeName(PointSourceType type);

    // Without text options, text files are refused. If the layout is empty, each file must name its columns
    // in a header line.
    void setTextOptions(const TextOptions& options) { m_options.text = options; }
    void setTextOptions(bool scanNow, const PointInfo& layout, std::size_t skipLines)
    {
        m_options.text = TextOptions{layout, skipLines, scanNow};
    }
    bool hasTextOptions() const noexcept { return m_options.text.has_value(); }

    // Whether LAS files with waveforms are opened, without their waveform packets; otherwise they are
    // refused, which is the default.
    bool willOpenFullWaveformFiles() const noexcept { return m_options.opensWaveforms; }
    void setOpenFullWaveformFiles(bool open) noexcept { m_options.opensWaveforms = open; }
    // Whether readers of .vxl files compare what they read with the digests of the file; the default.
    void setVerifiesDigests(bool verifies) noexcept { m_options.verifiesDigests = verifies; }
    // Whether files that are named by a list or an index may be remote; by default only files that the caller
    // names are.
    void setAllowsRemote(bool allows) noexcept { m_options.allowsRemote = allows; }
    bool allowsRemote() const noexcept { return m_options.allowsRemote; }
    // Opens LAS files with waveforms, and calls `warn` with a message once per file.
    void dropWaveforms(std::function<void(const std::string&)> warn);

    struct Options
    {
        std::optional<TextOptions> text;
        bool opensWaveforms = false;
        bool verifiesDigests = true;
        bool allowsRemote = false;
        std::function<void(const std::string&)> warn; // of dropped waveforms; may be empty
    };

    // The file of a name that a list or an index has. Returns a source with a count of 1. Throws General "TXT
    // file requires a format parse string '-parse': '%s'" or "unsupported input file format '%s'", RemoteForbidden
    // "'%s' is a remote file that another file names; -allowRemote reads such files", and the errors of the
    // reader.
    PointSource* openPointSource(const char* path) const override;
    // The same for a name that the caller has, and a type that the name need not imply. `io`, which may be null,
    // is read in place of the file of that name.
    PointSource* openPointSource(const char* name, PointSourceType type, IO* io) const;

private:
    SimpleFileOpener() = default;

    Options m_options;
};

class QM_API FilePointSourceManager final : public PointSourceManager
{
public:
    static FilePointSourceManager* create() { return new FilePointSourceManager; }

    // Throws General "unsupported input file format '%s'", or "TXT file requires a format parse string
    // '-parse': '%s'" unless the opener has text options.
    void addFile(const char* name);
    // The same for a file of a type that its name need not imply. `io`, which may be null, is retained and
    // read in place of the file of that name; names in such a list are relative to the current directory. It
    // must be open and stay open. Throws General "cannot read '%s': an index must be a file" for an index.
    void addFile(const char* name, PointSourceType type, IO* io);
    // One name per line, each added as a file. Relative names are relative to the directory of the list.
    // Comments and empty lines are not supported. A list with an error adds nothing.
    void addListFile(const char* name);

    SimpleFileOpener& getOpener() noexcept;
    void setTextOptions(bool scanNow, const PointInfo& layout, std::size_t skipLines)
    {
        getOpener().setTextOptions(scanNow, layout, skipLines);
    }
    // The GPS week that converts the week times of indexes that were made without one.
    void setGPSWeek(const std::optional<int>& week) noexcept;
    // From now on, errors in adding, opening or reading a file name that file.
    void setNamesErrors() noexcept;

    // Null for an index past the end.
    const char* getFilename(std::size_t index) const noexcept;
    // Both throw General for an index past the end.
    PointSourceType getFileType(std::size_t index) const;
    std::int64_t getFileSize(std::size_t index) const; // bytes
    std::string getSourceName(std::size_t index) const override;
    // The source of a tile-set index is the mosaic of its tiles.
    PointSource* createPointSource(std::size_t index) override;

private:
    struct QM_HIDDEN Imp;

    FilePointSourceManager();
    ~FilePointSourceManager() override;

    const std::unique_ptr<Imp> m_imp;
};

} // namespace Quillmoran

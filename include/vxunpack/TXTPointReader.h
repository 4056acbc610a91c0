// Points from a plain text table: one point per line, fields separated by white space or commas, "#" before a
// comment. The file does not tell what its columns are; the user does, with field letters (see FieldFormat.h)
// or a layout. The programs read text input with it. Used by one thread at a time.
#pragma once

#include <vxunpack/IO.h>
#include <vxunpack/PointSource.h>
#include <vxunpack/TextOptions.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Quillmoran {

class QM_API TXTPointReader final : public PointReader
{
public:
    static TXTPointReader* create();

    // The file's columns are the channels of the layout, in order; those named "@Skip" are read over and do
    // not appear in getPointInfo(). The first `skipLines` lines are passed over. `scanNow` reads the whole
    // file once for its count and bounds; otherwise the count is unknown at first. Errors InvalidArgument: "io is
    // NULL", "format string not given"; with `scanNow` also those of the file's text. A reader whose init()
    // throws is unchanged.
    void init(IO* io, const PointInfo& layout, std::size_t skipLines, bool scanNow);
    void init(const char* path, const PointInfo& layout, std::size_t skipLines, bool scanNow);
    void init(IO* io, const char* format, std::size_t skipLines, bool scanNow);
    void init(const char* path, const char* format, std::size_t skipLines, bool scanNow);

    // The same with all options. Errors in the text begin with the file's name, the line and the column:
    // "points.txt:17:9: 70000 does not fit Intensity (0 to 65535)". Without a name they have fixed texts, see
    // TXTPointIterator, unless the options are strict.
    void init(IO* io, const std::string& name, const TextOptions& options);
    void init(const char* path, const TextOptions& options);

    // The columns that the first line after the skipped ones names, as TXTPointWriter writes it (see
    // FieldFormat::parseHeader); nothing for another line.
    static std::optional<PointInfo> readHeader(const char* path, std::size_t skipLines);

    // See FieldFormat.h.
    static void parseFormat(const char* format, PointInfo& out);
    static void parseFormat(const char* format, PointInfo& out, const PointInfo& known);
    static void parseQuantization(const char* text, PointInfo& layout);

    // Reads the whole file for its count and bounds unless they are known. getBounds() does the same, as
    // there are no unknown bounds, and can therefore throw what a bad file gives; getNumPoints() never reads.
    void initBoundsAndNumPoints() const;

    std::int64_t getNumPoints() const override { return m_extent.numPoints; }
    const Bounds& getBounds() const override;
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // The lines of the file, as every query reads them all; estimated from the file's size while the file has
    // not been read.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // More channels than the file has columns is -1, a channel that the file lacks NoSuchChannel, one of another type
    // ChannelType.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;
    const char* getFileFormatString() const override { return "TXT 1.0"; }

private:
    struct Extent
    {
        std::int64_t numPoints = unknownNumPoints;
        Bounds bounds = Bounds::Huge();
        double lines = 0;
    };

    TXTPointReader() = default;

    static Extent scan(IO* io, const std::string& name, const TextOptions& options);
    static Extent estimate(IO* io);

    Scoped<IO> m_io;
    std::string m_name; // of the file; empty for messages without a place
    TextOptions m_options;
    mutable Extent m_extent; // of the points, once they were read
};

} // namespace Quillmoran

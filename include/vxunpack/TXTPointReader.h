// Reads points from a plain text table: one point per line, fields separated by white space or commas; "#"
// starts a comment. The file does not describe its columns; the user does, with field letters or a layout.
//
// Field letters, one per column, as in "xyzi": x y z coordinates, i Intensity, r ReturnNum, n NumReturns,
// d ScanDir, e EdgeFlightLine, a ScanAngle, c ClassId, p SourceId, u UserData, t GPSTime, T GPSTime_Adjusted,
// R G B colours, s a column to skip.
#pragma once

#include <vxunpack/IO.h>
#include <vxunpack/PointSource.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Quillmoran {

struct TextOptions
{
    PointInfo layout;          // the columns; those named "@Skip" are skipped
    std::size_t skipLines = 0; // lines before the table
    // Reads the whole file in init() for its number of points and bounds.
    bool scanNow = false;
    // Rejects input that is otherwise accepted: a value outside the range of its channel, decimals in an
    // integer column, text after a number, fields after the last column, a NUL in a line.
    bool strict = false;
    // Can cancel the reading in init() and getBounds(). May be null; must outlive the reader.
    ProgressDelegate* cancellation = nullptr;
};

// Used by one thread at a time. Before init() every query throws InvalidArgument "io is NULL".
class QM_API TXTPointReader final : public PointReader
{
public:
    static TXTPointReader* create();

    // Sets the file by its name, or as an IO, which is retained. With TextOptions, errors in the text begin
    // with the file's name, the line and the column, as in "points.txt:17:9: 70000 does not fit Intensity (0
    // to 65535)". Without options or without a name the messages are fixed, unless the options are strict. A
    // reader whose init() throws is unchanged. Throws InvalidArgument "io is NULL", "path not given", "format
    // string not given", "'%c' is not a supported format token"; with `scanNow` also the errors of
    // createIterator() and TextRead for a malformed line.
    void init(IO* io, const PointInfo& layout, std::size_t skipLines, bool scanNow);
    void init(const char* path, const PointInfo& layout, std::size_t skipLines, bool scanNow);
    void init(IO* io, const char* format, std::size_t skipLines, bool scanNow);
    void init(const char* path, const char* format, std::size_t skipLines, bool scanNow);
    void init(IO* io, const std::string& name, const TextOptions& options);
    void init(const char* path, const TextOptions& options);

    // The columns that a header line names, such as TXTPointWriter writes: "# X Y Z Intensity". Reads the
    // line after `skipLines` lines; returns nothing if it is not a header line.
    static std::optional<PointInfo> readHeader(const char* path, std::size_t skipLines);
    static std::optional<PointInfo> readHeader(IO* io, const std::string& name, std::size_t skipLines);

    // The layout that field letters describe; the second form takes the channels from `known`. Throws
    // InvalidArgument for an unknown letter, a null text or a channel that `known` does not have; `out` is
    // then unchanged.
    static void parseFormat(const char* format, PointInfo& out);
    static void parseFormat(const char* format, PointInfo& out, const PointInfo& known);
    // Sets quantizations, as in "xy@0.01,z@0.001,t@1e-6". Throws InvalidArgument for malformed text.
    static void parseQuantization(const char* text, PointInfo& layout);

    // Reads the whole file for its number of points and bounds, unless they are known. getBounds() does the
    // same; getNumPoints() does not. Errors are those of init() with `scanNow`.
    void initBoundsAndNumPoints() const;

    std::int64_t getNumPoints() const override { return m_extent.numPoints; }
    const Bounds& getBounds() const override;
    // The number of lines, since every query reads all of them; an estimate while the number is unknown.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Throws General for more channels than the file has columns, NoSuchChannel for a channel that it does
    // not have, ChannelType for a channel of another type.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;
    // At the beginning of a line.
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override;
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
    std::string m_name; // of the file; empty for messages without a location
    TextOptions m_options;
    mutable Extent m_extent; // of the points; the lines are an estimate until they are read
};

} // namespace Quillmoran

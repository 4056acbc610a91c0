// Point clouds in a few lines: open a file by name, read blocks of points, write a file.
//
//   vx::Cloud cloud = vx::open("tiles.index");
//   const vx::Query query = {.box = {0, 100, 0, 100}, .channels = {"X", "Y", "Z", "ClassId"}};
//   for (const vx::Block& block : cloud.read(query))
//       use(block.x(), block.column<std::uint8_t>("ClassId"));
//   vx::write("out.vxl", cloud, {.threads = 4});
//
// All failures throw vx::Error; code() gives the reason. A channel is identified by its own name, or by its
// LAS or PDAL name ("Classification", "return_number"), ignoring case. Coordinates are in the units of the
// cloud's coordinate system. Memory does not grow with the number of points, except where noted.
#pragma once

#include <vxunpack/Base.h>
#include <vxunpack/DataType.h>
#include <vxunpack/Export.h>
#include <vxunpack/Metadata.h>
#include <vxunpack/Object.h>
#include <vxunpack/PointData.h>
#include <vxunpack/PointSource.h>

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <ranges>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace vx {

using Quillmoran::DataType;
using Quillmoran::Error;
using Quillmoran::ErrorCode;

// A C++ type that samples can have: an integer of 1, 2, 4 or 8 bytes, float or double.
template <class T>
concept Sample =
    (std::integral<T> && !std::same_as<T, bool>) || std::same_as<T, float> || std::same_as<T, double>;

template <Sample T>
constexpr DataType dataTypeOf() noexcept
{
    constexpr unsigned kind = std::is_floating_point_v<T> ? 3 : std::is_signed_v<T> ? 1 : 0;
    return static_cast<DataType>(sizeof(T) << 8 | kind);
}

// A closed box; unbounded by default.
struct Box
{
    static constexpr double infinity = std::numeric_limits<double>::infinity();

    double xMin = -infinity, xMax = infinity;
    double yMin = -infinity, yMax = infinity;
    double zMin = -infinity, zMax = infinity;
};

// The points and channels to read. Points within half a coordinate step of the box belong to it.
struct Query
{
    Box box = {};
    double fraction = 1;                    // keeps an even sample: 1 all points, 0.1 every tenth
    std::vector<std::string> channels = {}; // empty: all. X, Y and Z are always read
};

// A column of a layout.
struct Channel
{
    std::string name;
    DataType type = Quillmoran::FLOAT64;
    double scale = 0; // the step between two values, 0 for none
};

// Consecutive points, column by column. A view: valid until its Reader advances or is destroyed.
class QM_API Block
{
public:
    std::size_t size() const noexcept { return m_size; } // points

    std::span<const double> x() const noexcept { return {m_data->getX(), m_size}; }
    std::span<const double> y() const noexcept { return {m_data->getY(), m_size}; }
    std::span<const double> z() const noexcept { return {m_data->getZ(), m_size}; }
    // The samples of a channel. Errors: InvalidArgument for an unknown channel, ChannelType for one whose
    // samples are not of type T.
    template <Sample T>
    std::span<const T> column(const std::string& channel) const
    {
        return {static_cast<const T*>(find(channel, dataTypeOf<T>())), m_size};
    }

    // The block as a PointData, for the other classes of the library.
    const Quillmoran::PointData& data() const noexcept { return *m_data; }

protected:
    friend class Reader;

    const void* find(const std::string& channel, DataType type) const;

    Quillmoran::PointData* m_data = nullptr;
    const Quillmoran::PointInfo* m_layout = nullptr;
    std::size_t m_size = 0;
};

// A block to be filled.
class QM_API MutableBlock : public Block
{
public:
    MutableBlock(Quillmoran::PointData& data, const Quillmoran::PointInfo& layout, std::size_t size) noexcept;

    std::span<double> x() const noexcept { return {m_data->getX(), m_size}; }
    std::span<double> y() const noexcept { return {m_data->getY(), m_size}; }
    std::span<double> z() const noexcept { return {m_data->getZ(), m_size}; }
    // As Block::column().
    template <Sample T>
    std::span<T> column(const std::string& channel) const
    {
        return {static_cast<T*>(const_cast<void*>(find(channel, dataTypeOf<T>()))), m_size};
    }
    // The samples of a channel of any type. Errors: InvalidArgument for an unknown channel.
    void* samples(const std::string& channel) const;
};

// The blocks of one query, read one after another; a range that can be iterated once, by one thread at a
// time. Errors in the data are thrown when their block is read.
class QM_API Reader
{
public:
    class iterator
    {
    public:
        using value_type = Block;
        using difference_type = std::ptrdiff_t;

        explicit iterator(Reader* reader) noexcept : m_reader(reader) {}

        const Block& operator*() const noexcept { return m_reader->m_block; }
        const Block* operator->() const noexcept { return &m_reader->m_block; }
        iterator& operator++()
        {
            m_reader->advance();
            return *this;
        }
        void operator++(int) { m_reader->advance(); }
        bool operator==(std::default_sentinel_t) const noexcept { return m_reader->m_block.size() == 0; }

    private:
        Reader* m_reader;
    };

    // Reads the first block.
    iterator begin()
    {
        advance();
        return iterator(this);
    }
    std::default_sentinel_t end() const noexcept { return {}; }

private:
    friend class Cloud;

    Reader(Quillmoran::Scoped<Quillmoran::PointIterator> points,
           std::unique_ptr<Quillmoran::PointInfo> layout);
    void advance();

    Quillmoran::Scoped<Quillmoran::PointIterator> m_points;
    std::unique_ptr<Quillmoran::PointInfo> m_layout;
    std::unique_ptr<Quillmoran::PointData> m_data;
    Block m_block;
};

// The caller's samples of one channel, one per point. They are not copied and must outlive the cloud.
class Column
{
public:
    // `samples` is a contiguous range, such as std::vector or std::span.
    template <std::ranges::contiguous_range Samples>
    Column(std::string name, const Samples& samples, double scale = 0)
        : channel{std::move(name), dataTypeOf<std::ranges::range_value_t<Samples>>(), scale},
          data(std::ranges::data(samples)),
          size(std::ranges::size(samples))
    {}

    Channel channel;
    const void* data;
    std::size_t size;
};

// A point cloud. A handle, cheap to copy; copies share one source. Const methods may be called from any
// thread.
class QM_API Cloud
{
public:
    // A source of any kind, including the caller's own classes.
    explicit Cloud(Quillmoran::Scoped<Quillmoran::PointSource> source);
    // The caller's columns, all of the same length; X, Y and Z are required and must be doubles. Errors:
    // InvalidArgument.
    static Cloud fromColumns(std::vector<Column> columns);
    // Points that `fill` generates: fill(first, block) fills the block with points first, first + 1, ... It
    // is called for consecutive blocks from 0 on, more than once for the same points, and must give the same
    // samples each time. X, Y and Z are required and must be doubles.
    static Cloud generate(std::uint64_t numPoints, std::vector<Channel> channels,
                          std::function<void(std::uint64_t first, const MutableBlock& block)> fill,
                          const Box& bounds = {});

    std::optional<std::uint64_t> numPoints() const; // none if unknown: text that has not been read yet
    Box bounds() const;
    std::vector<Channel> channels() const;
    std::string coordinateSystem() const; // WKT; empty if unknown
    Quillmoran::Metadata metadata() const;

    // Errors: InvalidArgument for an unknown channel; those of the source.
    Reader read(const Query& query = {}) const;

    // The underlying source; valid as long as any copy of this cloud exists.
    Quillmoran::PointSource& source() const noexcept { return *m_source; }

private:
    Quillmoran::Scoped<Quillmoran::PointSource> m_source;
};

struct OpenOptions
{
    // Text files: a letter or a name per column ("xyzi", "X,Y,Z,Intensity"); empty: given by the first line.
    std::string textFormat = {};
    std::size_t skipLines = 0;       // at the beginning of text files
    bool dropWaveforms = false;      // reads LAS files without their waveforms, which otherwise are an Error
    std::optional<int> gpsWeek = {}; // converts week time to adjusted standard time in joined files
    // Receives warnings of differences between joined files, and of data that is not read. Empty: no
    // warnings.
    std::function<void(const std::string&)> warning = {};
};

// Opens .vxl, .las, .laz, .bpf, text, .list (a file per line) and .index files by their endings, or the files
// of a directory. Several files become one cloud. Points are read only when they are requested.
QM_API Cloud open(const std::string& path, const OpenOptions& options = {});
QM_API Cloud open(const std::vector<std::string>& paths, const OpenOptions& options = {});

struct WriteOptions
{
    Query query = {};        // the points and channels to write
    unsigned threads = 0;    // the maximum; 0: one per core
    std::string format = {}; // "vxl", "las", "laz", "bpf", "txt" or "null"; empty: by the path's ending
    std::optional<std::array<double, 3>> scale = {};  // of X, Y and Z; by default that of the cloud
    std::optional<std::array<double, 3>> offset = {}; // likewise
    // Called with the fraction done, 0 to 1, on any thread. If it returns false, write() throws Cancelled.
    std::function<bool(double)> progress = {};
    // Receives warnings of data that the format cannot hold. Empty: no warnings.
    std::function<void(const std::string&)> warning = {};
};

// Writes a cloud and returns the number of points. The file is complete or absent: after an error, an
// existing file at the path is unchanged. .vxl output reads the cloud twice.
QM_API std::uint64_t write(const std::string& path, const Cloud& cloud, const WriteOptions& options = {});

// Limits the threads that the library uses in this process, for the lifetime of the object.
class QM_API ThreadLimit
{
public:
    explicit ThreadLimit(unsigned threads); // at least 1
    ~ThreadLimit();
    ThreadLimit(const ThreadLimit&) = delete;
    ThreadLimit& operator=(const ThreadLimit&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace vx

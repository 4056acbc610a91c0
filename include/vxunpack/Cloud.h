// Point clouds in a few lines: open a file by name, read blocks of points, write a file.
//
//   vx::Cloud cloud = vx::open("tiles.index");
//   const vx::Query query = {.box = {0, 100, 0, 100}, .channels = {"X", "Y", "Z", "ClassId"}};
//   for (const vx::Block& block : cloud.read(query))
//       use(block.x(), block.column<std::uint8_t>("ClassId"));
//   vx::write("out.vxl", cloud, {.threads = 4});
//
// All failures are exceptions of type vx::Error; code() is the reason. A channel is named by its own name, or
// by its LAS or PDAL name ("Classification", "return_number"), ignoring case. Coordinates are in the units of
// the cloud's coordinate system. Memory does not grow with the number of points, except as stated.
#pragma once

#if __cplusplus < 201709L // g++ 10 with -std=c++20
#error "vxunpack/Cloud.h needs C++20 (-std=c++20)"
#endif

#include <vxunpack/Base.h>
#include <vxunpack/DataType.h>
#include <vxunpack/Export.h>
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/Metadata.h>
#include <vxunpack/Object.h>
#include <vxunpack/PointData.h>
#include <vxunpack/PointOrder.h>
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
using Quillmoran::Order;

// The types of samples.
using Quillmoran::FLOAT32;
using Quillmoran::FLOAT64;
using Quillmoran::SINT16;
using Quillmoran::SINT32;
using Quillmoran::SINT64;
using Quillmoran::SINT8;
using Quillmoran::UINT16;
using Quillmoran::UINT32;
using Quillmoran::UINT64;
using Quillmoran::UINT8;

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

// The points and channels to read. The box is widened by half a step of the
// coordinates, so that rounded coordinates on its border are included.
struct Query
{
    Box box = {};
    double fraction = 1; // above 0 and up to 1: keeps an even sample, 0.1 every tenth point
    std::vector<std::string> channels = {}; // empty: all. X, Y and Z are always read
};

// A column of a layout.
struct Channel
{
    std::string name;
    DataType type = Quillmoran::FLOAT64;
    // The step of which all values are multiples, 0 for none. Text and LAS output round other values.
    double scale = 0;
    // The significant bits of integers, 0 for all. LAS output needs a newer point format if ReturnNum or
    // NumReturns have more than 3.
    int bits = 0;
};

// The channel that a user means by `name`: its own name, or its LAS or PDAL name ("Classification",
// "return_number"), ignoring case. Null if there is none.
QM_API const Channel* findChannel(const std::vector<Channel>& channels, const std::string& name);

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

    Block() = default;

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

// The blocks of one query: a single-pass range, for one thread at a time. A second loop continues after
// the block at which the first one stopped. Errors in the data are thrown when their block is read. A
// Reader keeps the source; moving it invalidates its iterators.
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

    // The channels of the query, in the order of the columns.
    std::vector<Channel> channels() const;
    // Reads the next points into the caller's arrays instead of a block: up to `count` samples per channel.
    // `arrays` has one pointer per channel. Returns the number of points; 0 at the end. Errors:
    // InvalidArgument for another number of arrays; those in the data.
    std::size_t fill(std::span<void* const> arrays, std::size_t count);

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

// The caller's samples of one channel, one per point. They are not copied and must outlive all copies of
// the cloud and its Readers. The name is the channel's own, such as "X" or "ClassId".
class Column
{
public:
    // `samples` is a contiguous range, such as a std::vector that is not temporary, or a std::span.
    template <std::ranges::contiguous_range Samples>
    requires std::ranges::borrowed_range<Samples> Column(std::string name, Samples&& samples,
                                                         double scale = 0)
        : channel{std::move(name), dataTypeOf<std::ranges::range_value_t<Samples>>(), scale},
          data(std::ranges::data(samples)),
          size(std::ranges::size(samples))
    {}

    Channel channel;
    const void* data;
    std::size_t size;
};

// A point cloud. A handle, cheap to copy; copies share one source. Const methods may be called from any
// thread; a source of the caller's own class must allow that. A moved-from cloud can only be assigned or
// destroyed.
class QM_API Cloud
{
public:
    // A source of any kind, including the caller's own classes.
    explicit Cloud(Quillmoran::Scoped<Quillmoran::PointSource> source);
    // The same, for a source that reads these files: write() refuses to replace one of them.
    Cloud(Quillmoran::Scoped<Quillmoran::PointSource> source,
          Quillmoran::Scoped<Quillmoran::FilePointSourceManager> files);
    // The caller's columns, all of the same length; X, Y and Z are required and must be doubles. The bits of
    // ReturnNum and NumReturns are those of their largest samples, at least 3. Errors: InvalidArgument.
    static Cloud fromColumns(std::vector<Column> columns);
    // Points that `fill` generates: fill(first, block) fills all channels of the block with points first,
    // first + 1, ... Each reading of the cloud calls it for consecutive blocks from 0 on, including points
    // outside the box of the query; it must give the same samples each time. Readers in several threads
    // call it at the same time. Its exceptions are passed on. X, Y and Z are required and must be
    // doubles. `bounds`, if they are given, must hold all points.
    static Cloud generate(std::uint64_t numPoints, const std::vector<Channel>& channels,
                          std::function<void(std::uint64_t first, const MutableBlock& block)> fill,
                          const Box& bounds = {});
    // The same. With `inAnyOrder`, `fill` can be called for any consecutive points, in any order. Writers of
    // .vxl files then sample the points, and read them once instead of twice.
    static Cloud generate(std::uint64_t numPoints, const std::vector<Channel>& channels,
                          std::function<void(std::uint64_t first, const MutableBlock& block)> fill,
                          const Box& bounds, bool inAnyOrder);

    std::optional<std::uint64_t> numPoints() const; // none if unknown: text that has not been read yet
    Box bounds() const;
    std::vector<Channel> channels() const;
    std::string coordinateSystem() const; // WKT; empty if unknown
    Quillmoran::Metadata metadata() const;

    // Errors: InvalidArgument for an unknown channel; those of the source.
    Reader read(const Query& query = {}) const;
    // The same. `progress` is called with the fraction done, 0 to 1, while blocks are read; if it returns
    // false, reading throws Cancelled. NaN if the source cannot estimate its work.
    Reader read(const Query& query, std::function<bool(double)> progress) const;

    // The same points with another coordinate system, in any notation that GDAL knows: "EPSG:25832", WKT.
    // Points are not transformed. Errors: InvalidArgument if the text is not understood.
    Cloud withCoordinateSystem(const std::string& system) const;

    // The underlying source; valid as long as any copy of this cloud exists.
    Quillmoran::PointSource& source() const noexcept { return *m_source; }
    // The opened files; null if there are none.
    const Quillmoran::FilePointSourceManager* files() const noexcept { return m_files.get(); }

private:
    Quillmoran::Scoped<Quillmoran::PointSource> m_source;
    Quillmoran::Scoped<Quillmoran::FilePointSourceManager> m_files;
};

struct OpenOptions
{
    // Text files: a letter or a name per column ("xyzi", "X,Y,Z,Intensity"); empty: given by the first
    // line.
    std::string textFormat = {};
    std::size_t skipLines = 0;  // at the beginning of text files
    bool dropWaveforms = false; // reads LAS files without their waveforms, which otherwise are an Error
    // Compares what is read from .vxl files with their digests, if they have any. Otherwise damage that still
    // decodes gives wrong points.
    bool verifiesDigests = true;
    bool allowsRemote = false;       // reads remote files that a list or an index names
    std::optional<int> gpsWeek = {}; // converts week time to adjusted standard time in joined files
    // Called with a message for differences between joined files, and for data that is not read. Empty:
    // no warnings.
    std::function<void(const std::string&)> warning = {};
};

// Opens .vxl, .las, .laz, .bpf, text, .list (a file per line) and .index files by their endings, or the
// files of a directory. Files of points can be remote: "https://...", "s3://...", or a path of a virtual file
// system of GDAL ("/vsicurl/..."). Several files become one cloud. Points are read only when they are requested.
QM_API Cloud open(const std::string& path, const OpenOptions& options = {});
QM_API Cloud open(const std::vector<std::string>& paths, const OpenOptions& options = {});

struct WriteOptions
{
    Query query = {};     // the points and channels to write
    unsigned threads = 0; // the maximum; 0: one per core
    std::string format =
        {}; // "vxl", "las", "laz", "bpf", "txt" or "null" (no output); empty: the path's ending
    // Of X, Y and Z; by default those of the cloud. LAS and LAZ output rounds coordinates to the scale, BPF
    // output stores multiples of it in single precision. .vxl output uses it only where that is exact; text
    // output ignores it.
    std::optional<std::array<double, 3>> scale = {};
    std::optional<std::array<double, 3>> offset = {};
    // Sorts the points, on disk if they are many. Order::Time needs GPS times: NoSuchChannel without them.
    Order order = Order::Input;
    // LAS and LAZ output gives back the LAS file that the cloud was read from or packed from: see
    // LASPointWriter::setRestores(). InvalidArgument for other formats.
    bool restores = false;
    // Called with the fraction done, 0 to 1. If it returns false, write() throws Cancelled. Exceptions of
    // both functions are passed on.
    std::function<bool(double)> progress = {};
    // Called with a message for data that the format cannot hold. Empty: no warnings.
    std::function<void(const std::string&)> warning = {};
};

// Writes a cloud and returns the number of points. The file is complete or absent: after an error, an
// existing file at the path is unchanged. .vxl output reads the cloud twice. Errors: InvalidArgument for
// a path without a known ending (.vxl, .las, .laz, .bpf, .txt, .csv, .xyz) unless the format is given;
// General for an input of the cloud.
QM_API std::uint64_t write(const std::string& path, const Cloud& cloud, const WriteOptions& options = {});

// Limits the threads that the library uses in this process, for the lifetime of the object.
class QM_API ThreadLimit
{
public:
    explicit ThreadLimit(unsigned threads); // 0: one per core
    ~ThreadLimit();
    ThreadLimit(const ThreadLimit&) = delete;
    ThreadLimit& operator=(const ThreadLimit&) = delete;

private:
    struct QM_HIDDEN Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace vx

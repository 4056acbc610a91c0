// Reading points into arrays.
#include "Bindings.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <sys/mman.h>
#include <unistd.h>

namespace vx::python {

using namespace Quillmoran;

namespace {

struct Free
{
    void operator()(void* data) const noexcept { std::free(data); }
};

// An array of one channel that grows in place: large ones are moved by changing page tables, without a copy.
// Memory after the last sample is not touched and so not used.
class ColumnArray
{
public:
    explicit ColumnArray(DataType type) : m_sampleSize(DataTypeUtils::getSize(type)) {}

    void resize(std::size_t capacity)
    {
        void* const old = m_data.release();
        const std::size_t size = std::max<std::size_t>(capacity, 1) * m_sampleSize;
        void* const data = std::realloc(old, size);
        if (!data) {
            m_data.reset(old);
            throw std::bad_alloc();
        }
        m_data.reset(data);
        useLargePages(size);
    }
    unsigned char* at(std::size_t index) const noexcept
    {
        return static_cast<unsigned char*>(m_data.get()) + index * m_sampleSize;
    }
    // The first `count` samples as an array that owns them; a new resize() must follow.
    py::array release(const py::dtype& type, std::size_t count)
    {
        resize(count);
        void* const data = m_data.get();
        const py::capsule owner(data, [](void* array) { std::free(array); });
        static_cast<void>(m_data.release());
        return {type, {static_cast<py::ssize_t>(count)}, {}, data, owner};
    }

private:
    // Fewer page faults, as for NumPy's own arrays.
    void useLargePages([[maybe_unused]] std::size_t size) const noexcept
    {
#ifdef MADV_HUGEPAGE
        constexpr std::size_t minSize = std::size_t(1) << 22;
        if (size < minSize)
            return;
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t skipped = (page - reinterpret_cast<std::uintptr_t>(m_data.get()) % page) % page;
        madvise(at(0) + skipped, size - skipped, MADV_HUGEPAGE);
#endif
    }

    std::size_t m_sampleSize;
    std::unique_ptr<void, Free> m_data;
};

// The points of one query, read step by step. Used by one thread at a time.
class QueryReader
{
public:
    QueryReader(const PythonCloud& cloud, const BoxTuple& box, double fraction,
                const std::vector<std::string>& channels, unsigned threads, py::object progress)
        : m_cloud(cloud), m_progress(std::move(progress))
    {
        const Released released;
        if (threads != 0)
            m_limit = std::make_unique<ThreadLimit>(threads);
        m_reader.emplace(cloud.cloud.read({toBox(box), fraction, channels},
                                          [this](double done) { return m_progress(done); }));
        m_channels = m_reader->channels();
        for (const Channel& channel : m_channels)
            m_columns.emplace_back(channel.type);
    }
    ~QueryReader() { close(); }
    QueryReader(const QueryReader&) = delete;
    QueryReader& operator=(const QueryReader&) = delete;

    // Ends decoding, also of blocks that are decoded ahead.
    void close()
    {
        const Released released;
        m_reader.reset();
        m_limit.reset();
    }

    // Reads up to `count` points after those that were read since the last call of take(). Returns their
    // number; 0 at the end. `expected` is the number of points that the arrays will probably hold.
    std::size_t fill(std::size_t count, std::size_t expected)
    {
        std::size_t added = 0;
        try {
            const Released released;
            added = fillColumns(count, expected);
        } catch (const Error&) {
            m_progress.rethrow();
            throw;
        }
        m_progress.check(); // the last block is not followed by a chance to stop
        return added;
    }

    // The points that were read, as one array per channel; later points go to new arrays.
    py::list take()
    {
        py::list columns;
        for (std::size_t i = 0; i < m_columns.size(); ++i) {
            const auto [name, type, scale] = toTuple(m_channels[i]);
            columns.append(py::make_tuple(name, m_columns[i].release(py::dtype(type), m_numPoints), scale));
        }
        m_capacity = m_numPoints = 0;
        return columns;
    }

private:
    std::size_t fillColumns(std::size_t count, std::size_t expected)
    {
        if (!m_reader)
            return 0;
        if (m_numPoints == m_capacity || m_capacity == 0) {
            const std::size_t grown = std::max({m_capacity + m_capacity / 2, m_numPoints + count, expected});
            for (ColumnArray& column : m_columns)
                column.resize(grown);
            m_capacity = grown;
        }
        std::vector<void*> arrays;
        for (const ColumnArray& column : m_columns)
            arrays.push_back(column.at(m_numPoints));
        const std::size_t added = m_reader->fill(arrays, std::min(count, m_capacity - m_numPoints));
        m_numPoints += added;
        return added;
    }

    const PythonCloud m_cloud; // keeps its arrays
    Progress m_progress;
    std::unique_ptr<ThreadLimit> m_limit;
    std::optional<vx::Reader> m_reader;
    std::vector<Channel> m_channels;
    std::vector<ColumnArray> m_columns;
    std::size_t m_capacity = 0;  // points
    std::size_t m_numPoints = 0; // since take()
};

} // namespace

void bindReader(py::module_& module)
{
    py::class_<QueryReader>(module, "Reader")
        .def(py::init<const PythonCloud&, const BoxTuple&, double, const std::vector<std::string>&, unsigned,
                      py::object>())
        .def("fill", &QueryReader::fill)
        .def("take", &QueryReader::take)
        .def("close", &QueryReader::close);
}

} // namespace vx::python

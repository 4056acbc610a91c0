#include <vxunpack/Cloud.h>

#include "pdal/PDALFormats.h"
#include "sdk/Queries.h"
#include "utils/ThreadPool.h"
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/TXTPointWriter.h>
#include <vxunpack/VX7PointWriter.h>

#include <atomic>

namespace vx {

using namespace Quillmoran;

namespace {

class Callbacks final : public ProgressDelegate
{
public:
    explicit Callbacks(const WriteOptions& options) : m_options(options) {}

    void reportProgress(double fraction, const char*) override
    {
        if (m_options.progress && !m_options.progress(fraction))
            m_isCancelled = true;
    }
    bool getCancelled() override { return m_isCancelled; }
    void displayWarning(const char* text) override
    {
        if (m_options.warning)
            m_options.warning(text);
    }

private:
    const WriteOptions& m_options;
    std::atomic<bool> m_isCancelled = false;
};

// A path with the ending that names the format.
std::string formatName(const std::string& path, const std::string& format)
{
    if (format.empty())
        return path;
    return format == "null" ? format : "a." + format;
}

Scoped<PointWriter> createWriter(PointSource& source, const PointInfo& layout, const std::string& path,
                                 const std::string& format)
{
    const PointSourceType type = SimpleFileOpener::getPointSourceType(formatName(path, format).c_str());
    switch (type) {
    case POINT_SOURCE_VX7: {
        Scoped<VX7PointWriter> writer(VX7PointWriter::create());
        writer->init(&source, path.c_str());
        return Scoped<PointWriter>(writer.detach());
    }
    case POINT_SOURCE_LAS:
    case POINT_SOURCE_LAZ: {
        Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(&source, path.c_str(), -1);
        writer->setWriteLAZ(type == POINT_SOURCE_LAZ);
        return Scoped<PointWriter>(writer.detach());
    }
    case POINT_SOURCE_TEXT: {
        Scoped<TXTPointWriter> writer(TXTPointWriter::create());
        writer->init(&source, path.c_str(), layout);
        return Scoped<PointWriter>(writer.detach());
    }
    case POINT_SOURCE_BPF:
        return Scoped<PointWriter>(createPDALPointWriter(&source, path.c_str()));
    case POINT_SOURCE_NULL: {
        Scoped<NULLPointWriter> writer(NULLPointWriter::create());
        writer->init(&source);
        return Scoped<PointWriter>(writer.detach());
    }
    default:
        QM_THROW(ErrorCode::InvalidArgument, "unsupported output format '%s'", path.c_str());
    }
}

} // namespace

struct ThreadLimit::Impl
{
    ThreadPool pool;
};

ThreadLimit::ThreadLimit(unsigned threads) : m_impl(new Impl{ThreadPool(threads)})
{}
ThreadLimit::~ThreadLimit() = default;

std::uint64_t write(const std::string& path, const Cloud& cloud, const WriteOptions& options)
{
    checkFraction(options.query.fraction);
    const Bounds bounds = toBounds(options.query.box);
    PointSource& source = cloud.source();
    const PointInfo layout = chooseChannels(source.getPointInfo(), options.query.channels);
    const Scoped<PointWriter> writer = createWriter(source, layout, path, options.format);
    if (options.scale || options.offset)
        writer->setQuantization(options.scale ? options.scale->data() : nullptr,
                                options.offset ? options.offset->data() : nullptr);
    Callbacks callbacks(options);
    std::int64_t count = 0;
    ThreadPool pool(options.threads);
    pool.execute([&] { count = writer->write(bounds, options.query.fraction, layout, &callbacks); });
    return static_cast<std::uint64_t>(count);
}

} // namespace vx

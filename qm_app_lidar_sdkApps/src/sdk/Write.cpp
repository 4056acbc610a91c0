#include <vxunpack/Cloud.h>

#include "files/QMFileSpec.h"
#include "sdk/Callbacks.h"
#include "sdk/Queries.h"
#include "utils/sets/Formats.h"
#include "utils/sets/Inputs.h"
#include "utils/sets/Losses.h"
#include "utils/sets/ThreadLimit.h"
#include <vxunpack/LASPointWriter.h>

namespace vx {

using namespace Quillmoran;

namespace {

// A file name that the table of formats recognises as the format to write. Unlike the programs, which write
// text to any other name, this takes text only by its own endings, so that a mistyped name is an error.
std::string nameForFormat(const std::string& path, const std::string& format)
{
    std::string name = format.empty() ? path : format == "null" ? format : "x." + format;
    const QMFileSpec file(name.c_str());
    if (Formats::ofName(name.c_str()).type == POINT_SOURCE_TEXT && !file.endsWith(".txt") &&
        !file.endsWith(".csv") && !file.endsWith(".xyz"))
        QM_THROW(ErrorCode::InvalidArgument, "unsupported output format '%s'", name.c_str());
    return name;
}

} // namespace

struct ThreadLimit::Impl
{
    Quillmoran::ThreadLimit limit;
};

ThreadLimit::ThreadLimit(unsigned threads) : m_impl(new Impl{Quillmoran::ThreadLimit(threads)})
{}
ThreadLimit::~ThreadLimit() = default;

std::uint64_t write(const std::string& path, const Cloud& cloud, const WriteOptions& options)
{
    checkFraction(options.query.fraction);
    const Bounds bounds = toBounds(options.query.box);
    if (cloud.files())
        Utils::refuseInputs(*cloud.files(), path.c_str());
    const Scoped<PointSource> sorted = PointOrder::sort(&cloud.source(), options.order);
    PointSource& source = *sorted;
    const PointInfo layout = chooseChannels(source.getPointInfo(), options.query.channels);
    const OutputChoice output(nameForFormat(path, options.format).c_str(), nullptr);
    const Scoped<PointWriter> writer = output.createWriter(source, path, layout);
    auto* const las = dynamic_cast<LASPointWriter*>(writer.get());
    if (options.restores) {
        if (!las)
            QM_THROW(ErrorCode::InvalidArgument, "only LAS and LAZ files can be restored");
        las->setRestores(true);
    }
    if (options.scale || options.offset)
        writer->setQuantization(options.scale ? options.scale->data() : nullptr,
                                options.offset ? options.offset->data() : nullptr);
    const auto warn = options.warning ? options.warning : [](const std::string&) {};
    if (output.isLAS() && !options.scale)
        Utils::warnOfRounding(source, layout, path, "", warn);
    Callbacks callbacks(options.progress, options.warning);
    std::int64_t count = 0;
    Quillmoran::ThreadLimit limit(options.threads);
    limit.execute([&] { count = writer->write(bounds, options.query.fraction, layout, &callbacks); });
    if (las)
        Utils::warnOfLASOutput(*las, PointInfo(), path, "", warn); // the writer has named the channels
    return static_cast<std::uint64_t>(count);
}

} // namespace vx

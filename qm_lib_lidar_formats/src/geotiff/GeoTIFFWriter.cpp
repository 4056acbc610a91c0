#include "geotiff/GeoTIFFWriter.h"

#include "files/OutputFile.h"
#include "files/Spool.h"
#include "platform/LoadableModule.h"
#include "platform/OpenIO.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>

namespace Quillmoran {

namespace {

namespace fs = std::filesystem;

// A directory that is removed with its files. GDAL writes files by name, and others beside them.
class WorkDirectory
{
public:
    explicit WorkDirectory(const fs::path& output)
    {
        // A pipe or a device has no directory for files.
        std::error_code ignored;
        const bool isFile = !fs::exists(output, ignored) || fs::is_regular_file(output, ignored);
        m_path = isFile ? fs::absolute(output).parent_path() : fs::temp_directory_path();
        m_path /= ".geotiff.XXXXXX";
        std::string name = m_path.string();
        if (!::mkdtemp(name.data()))
            QM_THROW_OS(output.c_str());
        m_path = name;
    }
    ~WorkDirectory()
    {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;

    std::string operator/(const char* name) const { return m_path / name; }

private:
    fs::path m_path;
};

GeoTIFFFile* createFile(const std::string& path, const std::string& output, const GeoTIFFLayout& layout)
{
    const auto create = LoadableModule::find<decltype(qmCreateGeoTIFF)>(SRS_MODULE, "qmCreateGeoTIFF");
    if (!create)
        QM_THROW(ErrorCode::General, "the module for GeoTIFF files, '%s', is not installed", SRS_MODULE);
    std::string error;
    GeoTIFFFile* const file = create(path.c_str(), layout, error);
    if (!file)
        QM_THROW(ErrorCode::OutputCreate, "cannot create '%s': %s", output.c_str(), error.c_str());
    return file;
}

// Passed through GDAL, which exceptions must not leave.
struct Progress
{
    static bool isWanted(double fraction, void* context) noexcept
    {
        auto* const self = static_cast<Progress*>(context);
        if (!self->delegate)
            return true;
        try {
            self->delegate->reportProgress(fraction, "writing GeoTIFF file");
            return !self->delegate->getCancelled();
        } catch (...) {
            self->exception = std::current_exception();
            return false;
        }
    }

    ProgressDelegate* delegate;
    std::exception_ptr exception;
};

} // namespace

struct GeoTIFFWriter::Private
{
    Private(const std::string& path, const GeoTIFFLayout& layout, ProgressDelegate* progress)
        : output("GeoTIFF", OutputFile::SEQUENTIAL),
          delegate(progress),
          type(layout.type),
          directory(path),
          file(createFile(*directory / "cells.tif", path, layout))
    {
        output.init(path.c_str());
        if (delegate && file->lacksCoordinateSystem())
            delegate->warning("'%s' has no coordinate system: that of the points is not understood",
                              path.c_str());
    }

    [[noreturn]] void throwFailed() const
    {
        QM_THROW(ErrorCode::Write, "cannot write '%s': %s", output.path(), file->error());
    }

    OutputFile output;
    ProgressDelegate* const delegate;
    const GeoTIFFLayout::SampleType type;
    std::optional<WorkDirectory> directory; // until commit(), as the file
    std::unique_ptr<GeoTIFFFile> file;
};

GeoTIFFWriter::GeoTIFFWriter(const std::string& path, const GeoTIFFLayout& layout, ProgressDelegate* delegate)
    : m_private(new Private(path, layout, delegate))
{}

GeoTIFFWriter::~GeoTIFFWriter() = default;

void GeoTIFFWriter::write(std::size_t band, std::size_t column, std::size_t row, std::size_t columns,
                          std::size_t rows, const double* values)
{
    if (m_private->type == GeoTIFFLayout::Counts &&
        std::any_of(values, values + columns * rows, [](double number) { return number > UINT32_MAX; }))
        QM_THROW(ErrorCode::NotRepresentable, "a cell of '%s' has more than 2^32 points",
                 m_private->output.path());
    if (!m_private->file->write(band, column, row, columns, rows, values))
        m_private->throwFailed();
}

void GeoTIFFWriter::commit(unsigned numThreads)
{
    const std::string optimized = *m_private->directory / "optimized.tif";
    Progress progress{m_private->delegate, nullptr};
    if (!m_private->file->copyTo(optimized.c_str(), numThreads, Progress::isWanted, &progress)) {
        if (progress.exception)
            std::rethrow_exception(progress.exception);
        m_private->output.checkCancelled(m_private->delegate, "writing GeoTIFF file");
        m_private->throwFailed();
    }
    m_private->file.reset();
    const Scoped<FileIO::Imp> copy(FileIO::create());
    copy->init(optimized.c_str(), "r");
    const OpenIO opened(copy.get());
    Spool::copy(*copy, m_private->output.open());
    m_private->directory.reset();
    m_private->output.commit();
}

} // namespace Quillmoran

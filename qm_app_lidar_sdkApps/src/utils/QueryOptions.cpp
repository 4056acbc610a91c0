#include "cli/QMCmdLine.h"
#include "files/QMFileUtils.h"
#include "filters/MosaicFilter.h"
#include "platform/Base.h"
#include "text/FieldFormat.h"
#include "utils/Summary.h"
#include "utils/Utils.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

namespace Quillmoran::Utils {

namespace {

const char* describeOutFields()
{
    static const std::string text =
        std::string("Output specific fields.  By default output all those supported by "
                    "output format and are in the input file.\n"
                    "Parse format: \n") +
        fieldLetters;
    return text.c_str();
}

} // namespace

void addOutFieldsOption(QMCmdLine& cmdLine)
{
    cmdLine.addString("ofld", "outFields", describeOutFields(), false);
}

void addSubsampleOption(QMCmdLine& cmdLine)
{
    cmdLine.addFloat(
        "s", "subsample",
        "subsample, taking every n-th point.  -s 2 leaves one half the file, -s 3 leaves one third.", false);
}

void addCropOption(QMCmdLine& cmdLine)
{
    cmdLine.addFloatArray(
        "c", "crop",
        "crop to specified box (world coordinates:  x-min, x-max, y-min, y-max, z-min, z-max).\n"
        "  A value of -inf (for a minimum) or +inf (maximum) means no-crop in that direction",
        false, 6);
}

PointInfo getOutFields(const QMCmdLine& cmdLine, const PointSource& source)
{
    PointInfo layout = source.getPointInfo();
    if (cmdLine.isPresent("outFields"))
        FieldFormat::parse(cmdLine.getString("outFields"), layout, source.getPointInfo());
    return layout;
}

PointInfo getOutColumns(const QMCmdLine& cmdLine, const PointSource& source)
{
    PointInfo layout = source.getPointInfo();
    if (cmdLine.isPresent("outFields"))
        FieldFormat::parseColumns(cmdLine.getString("outFields"), layout, source.getPointInfo());
    return layout;
}

double getFraction(const QMCmdLine& cmdLine)
{
    return cmdLine.isPresent("subsample") ? 1.0 / cmdLine.getFloat("subsample") : 1.0;
}

Bounds getCropBox(const QMCmdLine& cmdLine)
{
    Bounds box = Bounds::Huge();
    if (!cmdLine.isPresent("crop"))
        return box;
    std::size_t count = 0;
    const double* values = cmdLine.getFloatArray("crop", count);
    if (count >= 4) {
        box.x = {values[0], values[1]};
        box.y = {values[2], values[3]};
    }
    if (count >= 6)
        box.z = {values[4], values[5]};
    return box;
}

void addDepthOption(QMCmdLine& cmdLine)
{
    cmdLine.addUint("d", "depth", "levels of directories below a given one to look into.  Default is 0",
                    false);
}

void addInput(FilePointSourceManager& files, const char* name, const QMCmdLine& cmdLine)
{
    if (QMFileUtils::isDirectory(name)) {
        constexpr unsigned deepest = 1000; // no file system goes further
        addFiles(files, name, static_cast<int>(std::min(cmdLine.getUint("depth"), deepest)));
        return;
    }
    // A name of no known ending would otherwise be taken for a text file that needs a format.
    if (!QMFileUtils::exists(name)) {
        errno = ENOENT;
        QM_THROW_OS(name);
    }
    files.addFile(name);
}

Scoped<PointSource> openInputs(FilePointSourceManager& files, bool verbose)
{
    for (std::size_t i = 0; verbose && i < files.getNumSources(); ++i) {
        const Scoped<PointSource> source(files.createPointSource(i));
        printHeader(stdout, *source, files.getFilename(i));
    }
    if (files.getNumSources() < 2)
        return Scoped<PointSource>(files.createPointSource(0));
    Scoped<MosaicFilter> mosaic(MosaicFilter::create());
    mosaic->init(&files);
    if (verbose)
        printHeader(stdout, *mosaic, nullptr);
    for (const std::string& warning : mosaic->getWarnings())
        std::printf("%s\n", warning.c_str());
    return Scoped<PointSource>(mosaic.detach());
}

void refuseSameFile(const char* input, const char* output)
{
    if (QMFileUtils::isSameFile(input, output))
        QM_THROW(-1, "the output '%s' is the input file", output);
}

void refuseInputs(const FilePointSourceManager& files, const char* output)
{
    for (std::size_t i = 0; i < files.getNumSources(); ++i) {
        const char* const name = files.getFilename(i);
        refuseSameFile(name, output);
        if (getPointSourceType(name) != POINT_SOURCE_INDEX)
            continue;
        const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
        const Scoped<PersistentPointSourceManager> index(PersistentPointSourceManager::create());
        index->init(name, opener.get());
        for (std::size_t tile = 0; tile < index->getNumSources(); ++tile)
            refuseSameFile(index->getTileInfo(tile).path.c_str(), output);
        if (const TileInfo* overview = index->getOverviewInfo())
            refuseSameFile(overview->path.c_str(), output);
    }
}

} // namespace Quillmoran::Utils

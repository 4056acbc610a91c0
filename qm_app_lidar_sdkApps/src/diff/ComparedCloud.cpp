#include "diff/ComparedCloud.h"

#include "cli/QMCmdLine.h"
#include "files/QMFileUtils.h"
#include "utils/program/Program.h"
#include "utils/program/Utils.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

namespace {

// Records that the writers of compressed files add for themselves.
constexpr const char* ownRecords[] = {"PreCompressionPointCount", "TextDecimals"};

} // namespace

ComparedCloud::ComparedCloud(const std::string& input, const QMCmdLine& options,
                             ProgressDelegate& cancellation)
    : name(input), files(FilePointSourceManager::create())
{
    // A mosaic needs the bounds of its files, so text is scanned when it is opened.
    const bool isMosaic = Utils::getPointSourceType(input.c_str()) != POINT_SOURCE_TEXT;
    Utils::setTextOptions(files->getOpener(), isMosaic, options, &cancellation);
    Utils::handleWaveformOption(options, files->getOpener());
    files->setNamesErrors();
    Utils::addInput(*files, input.c_str(), Utils::getDepth(options));
    if (files->getNumSources() == 0)
        QM_THROW(ErrorCode::General, "there are no files to read in '%s'", input.c_str());
    source = Utils::joinFiles(*files, {}, Utils::warn);
    source->loadMetadata(metadata, false);
    for (const char* key : ownRecords)
        metadata.removeAll(key);
    if (options.getFlag("dropWaveforms"))
        metadata = Utils::withoutWaveformRecords(metadata);
}

std::int64_t ComparedCloud::getSize() const
{
    std::int64_t size = 0;
    for (std::size_t i = 0; i < files->getNumSources(); ++i)
        size += QMFileUtils::getSize(files->getFilename(i));
    return size;
}

} // namespace Quillmoran

#include "diff/ComparedCloud.h"

#include "cli/QMCmdLine.h"
#include "framework/MetadataKeys.h"
#include "utils/program/Program.h"
#include "utils/program/Utils.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

namespace {

// Records that the programs add for themselves.
constexpr const char* ownRecords[] = {"PreCompressionPointCount", "TextDecimals", MetadataKeys::pointOrder};

} // namespace

ComparedCloud::ComparedCloud(const std::string& input, const QMCmdLine& options,
                             ProgressDelegate& cancellation)
    : files(FilePointSourceManager::create())
{
    const Utils::Input opened = Utils::openInput(options, input);
    name = opened.name;
    // A mosaic needs the bounds of its files, so text is scanned when it is opened.
    const bool isMosaic = opened.type != POINT_SOURCE_TEXT;
    Utils::setTextOptions(files->getOpener(), isMosaic, options, &cancellation);
    Utils::handleWaveformOption(options, files->getOpener());
    Utils::handleRemoteOption(options, files->getOpener());
    files->setNamesErrors();
    Utils::addInput(*files, opened, Utils::getDepth(options));
    if (files->getNumSources() == 0)
        QM_THROW(ErrorCode::General, "there are no files to read in '%s'", name.c_str());
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
        size += files->getFileSize(i);
    return size;
}

} // namespace Quillmoran

#include <vxunpack/Cloud.h>

#include "files/QMFileUtils.h"
#include "text/FieldFormat.h"
#include "utils/Utils.h"
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/MosaicFilter.h>

namespace vx {

using namespace Quillmoran;

Cloud open(const std::string& path, const OpenOptions& options)
{
    return open(std::vector{path}, options);
}

Cloud open(const std::vector<std::string>& paths, const OpenOptions& options)
{
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->setNamesErrors();
    TextOptions text;
    if (!options.textFormat.empty())
        FieldFormat::parseColumns(options.textFormat.c_str(), text.layout);
    text.skipLines = options.skipLines;
    text.strict = true;
    files->setTextOptions(text);
    if (options.dropWaveforms)
        files->dropWaveforms();
    files->setGPSWeek(options.gpsWeek);
    for (const std::string& path : paths)
        if (QMFileUtils::isDirectory(path.c_str()))
            Utils::addFiles(*files, path.c_str(), 0);
        else
            files->addFile(path.c_str());
    if (files->getNumSources() == 0)
        QM_THROW(ErrorCode::InvalidArgument, "there is no file to open%s%s", paths.empty() ? "" : " in ",
                 paths.empty() ? "" : paths.front().c_str());
    if (files->getNumSources() == 1 && !options.gpsWeek)
        return Cloud(Scoped<PointSource>(files->createPointSource(0)));
    Scoped<MosaicFilter> mosaic(MosaicFilter::create());
    mosaic->init(files.get(), options.gpsWeek);
    if (options.warning)
        for (const std::string& warning : mosaic->getWarnings())
            options.warning(warning);
    return Cloud(Scoped<PointSource>(mosaic.detach()));
}

} // namespace vx

#include <vxunpack/Cloud.h>

#include "text/FieldFormat.h"
#include "utils/sets/Inputs.h"
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
    files->getOpener().setTextOptions(text);
    if (options.dropWaveforms)
        files->getOpener().dropWaveforms(options.warning ? options.warning : [](const std::string&) {});
    for (const std::string& path : paths)
        Utils::addInput(*files, path.c_str(), 0);
    if (files->getNumSources() == 0)
        QM_THROW(ErrorCode::InvalidArgument, "there is no file to open%s%s", paths.empty() ? "" : " in ",
                 paths.empty() ? "" : paths.front().c_str());
    const Scoped<PointSource> source = Utils::joinFiles(*files, options.gpsWeek);
    if (const auto* mosaic = dynamic_cast<const MosaicFilter*>(source.get()); mosaic && options.warning)
        for (const std::string& warning : mosaic->getWarnings())
            options.warning(warning);
    return Cloud(source);
}

} // namespace vx

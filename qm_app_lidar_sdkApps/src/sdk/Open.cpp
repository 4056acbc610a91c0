#include <vxunpack/Cloud.h>

#include "text/FieldFormat.h"
#include "utils/sets/Inputs.h"
#include <vxunpack/FilePointSourceManager.h>

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
    const auto warn = options.warning ? options.warning : [](const std::string&) {};
    files->getOpener().setTextOptions(text);
    files->getOpener().setVerifiesDigests(options.verifiesDigests);
    files->getOpener().setAllowsRemote(options.allowsRemote);
    if (options.dropWaveforms)
        files->getOpener().dropWaveforms(warn);
    for (const std::string& path : paths)
        Utils::addInput(*files, path.c_str(), 0);
    if (files->getNumSources() == 0)
        QM_THROW(ErrorCode::InvalidArgument, "there is no file to open%s%s", paths.empty() ? "" : " in ",
                 paths.empty() ? "" : paths.front().c_str());
    return Cloud(Utils::joinFiles(*files, {.gpsWeek = options.gpsWeek}, warn), files);
}

} // namespace vx

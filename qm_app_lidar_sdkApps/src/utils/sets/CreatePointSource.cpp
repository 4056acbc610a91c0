#include "files/QMFileUtils.h"
#include "utils/sets/Formats.h"

#include <memory>
#include <mutex>
#include <set>

namespace Quillmoran {

SimpleFileOpener* SimpleFileOpener::create()
{
    return new SimpleFileOpener;
}

PointSourceType SimpleFileOpener::getPointSourceType(const char* name)
{
    return Formats::ofName(name).type;
}

const char* SimpleFileOpener::getPointSourceTypeName(PointSourceType type)
{
    const Format* const format = Formats::ofType(type);
    return format ? format->description : "Unknown File Type";
}

void SimpleFileOpener::dropWaveforms(std::function<void(const std::string&)> warn)
{
    struct Warned
    {
        std::mutex mutex;
        std::set<std::string> texts;
    };
    setOpenFullWaveformFiles(true);
    m_options.warn = [warn = std::move(warn), warned = std::make_shared<Warned>()](const std::string& text) {
        const std::lock_guard<std::mutex> lock(warned->mutex);
        if (warned->texts.insert(text).second)
            warn(text);
    };
}

PointSource* SimpleFileOpener::openPointSource(const char* path) const
{
    const Format& format = Formats::ofName(path);
    QMFileUtils::requireRegularFile(path);
    if (!format.open)
        Formats::throwUnsupported(path);
    return format.open(path, m_options);
}

} // namespace Quillmoran

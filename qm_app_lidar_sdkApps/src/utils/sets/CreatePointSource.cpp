#include "utils/sets/Formats.h"

#include "files/QMFileUtils.h"

#include <mutex>
#include <set>

namespace Quillmoran {

struct SimpleFileOpener::Imp
{
    OpenOptions options;
    std::mutex mutex;
    std::set<std::string> warnings; // that were given
};

SimpleFileOpener::SimpleFileOpener() : m_imp(new Imp)
{}

SimpleFileOpener::~SimpleFileOpener() = default;

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

void SimpleFileOpener::setTextOptions(const TextOptions& options)
{
    m_imp->options.text = options;
}

void SimpleFileOpener::setTextOptions(bool scanNow, const PointInfo& layout, std::size_t skipLines)
{
    TextOptions options;
    options.layout = layout;
    options.skipLines = skipLines;
    options.scanNow = scanNow;
    setTextOptions(options);
}

bool SimpleFileOpener::hasTextOptions() const noexcept
{
    return m_imp->options.text.has_value();
}

bool SimpleFileOpener::willOpenFullWaveformFiles() const noexcept
{
    return m_imp->options.opensWaveforms;
}

void SimpleFileOpener::setOpenFullWaveformFiles(bool open) noexcept
{
    m_imp->options.opensWaveforms = open;
}

void SimpleFileOpener::dropWaveforms(std::function<void(const std::string&)> warn)
{
    setOpenFullWaveformFiles(true);
    m_imp->options.warn = [imp = m_imp.get(), warn = std::move(warn)](const std::string& text) {
        const std::lock_guard<std::mutex> lock(imp->mutex);
        if (imp->warnings.insert(text).second)
            warn(text);
    };
}

PointSource* SimpleFileOpener::openPointSource(const char* path) const
{
    const Format& format = Formats::ofName(path);
    QMFileUtils::requireRegularFile(path);
    if (!format.open)
        Formats::throwUnsupported(path);
    return format.open(path, m_imp->options);
}

} // namespace Quillmoran

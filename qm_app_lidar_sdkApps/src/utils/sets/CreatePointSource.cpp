#include "files/QMFileUtils.h"
#include "utils/sets/Formats.h"

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

PointSource* SimpleFileOpener::openPointSource(const char* path) const
{
    const Format& format = Formats::ofName(path);
    QMFileUtils::requireRegularFile(path);
    if (!format.open)
        Formats::throwUnsupported(path);
    return format.open(path, m_options);
}

} // namespace Quillmoran

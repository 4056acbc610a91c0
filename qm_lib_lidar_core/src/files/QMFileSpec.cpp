#include "files/QMFileSpec.h"

#include <cstring>
#include <strings.h>

namespace Quillmoran {

QMFileSpec::QMFileSpec(const QMFileSpec& directory, const char* name) : m_path(name)
{
    if (isAbsolute() || directory.empty())
        return;
    const char* separator = directory.m_path.back() == '/' ? "" : "/";
    m_path = directory.m_path + separator + name;
}

std::string QMFileSpec::dirname() const
{
    const std::size_t slash = m_path.rfind('/');
    if (slash == std::string::npos)
        return {};
    return m_path.substr(0, slash == 0 ? 1 : slash);
}

std::string QMFileSpec::basename() const
{
    const std::size_t slash = m_path.rfind('/');
    return slash == std::string::npos ? m_path : m_path.substr(slash + 1);
}

std::string QMFileSpec::getSuffix() const
{
    const std::string name = basename();
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

bool QMFileSpec::endsWith(const char* ending) const noexcept
{
    const std::size_t length = std::strlen(ending);
    return m_path.size() >= length && strcasecmp(m_path.c_str() + m_path.size() - length, ending) == 0;
}

} // namespace Quillmoran

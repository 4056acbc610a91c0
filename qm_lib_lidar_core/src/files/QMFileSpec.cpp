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

std::size_t QMFileSpec::findSuffix() const noexcept
{
    const std::size_t slash = m_path.rfind('/');
    const std::size_t name = slash == std::string::npos ? 0 : slash + 1;
    const std::size_t dot = m_path.rfind('.');
    const bool isSuffix =
        dot != std::string::npos && dot > name && m_path.compare(name, dot - name, ".") != 0;
    return isSuffix ? dot : m_path.size();
}

std::string QMFileSpec::getSuffix() const
{
    const std::size_t dot = findSuffix();
    return dot == m_path.size() ? std::string() : m_path.substr(dot + 1);
}

QMFileSpec QMFileSpec::replaceSuffix(const char* suffix) const
{
    return QMFileSpec((m_path.substr(0, findSuffix()) + '.' + suffix).c_str());
}

QMFileSpec QMFileSpec::removeSuffix() const
{
    return QMFileSpec(m_path.substr(0, findSuffix()).c_str());
}

bool QMFileSpec::endsWith(const char* ending) const noexcept
{
    const std::size_t length = std::strlen(ending);
    return m_path.size() >= length && strcasecmp(m_path.c_str() + m_path.size() - length, ending) == 0;
}

} // namespace Quillmoran

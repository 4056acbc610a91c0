#include "files/PartialFile.h"

#include "files/QMFileUtils.h"
#include "platform/Base.h"

#include <filesystem>
#include <string>
#include <unistd.h>

namespace Quillmoran {

PartialFile::PartialFile(const QMFileSpec& final) : m_final(final)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (fs::is_symlink(final.c_str(), error)) {
        const fs::path target = fs::canonical(final.c_str(), error);
        if (!error)
            m_final = QMFileSpec(target.c_str());
    }
    const fs::file_status status = fs::status(m_final.c_str(), error);
    m_isDirect = fs::exists(status) && !fs::is_regular_file(status);
    if (fs::is_regular_file(status) && ::access(m_final.c_str(), W_OK) != 0)
        QM_THROW_OS(final.c_str());
    const std::string beside = m_final.c_str() + ('.' + std::to_string(::getpid())) + ".part";
    m_path = m_isDirect ? m_final : QMFileSpec(beside.c_str());
}

PartialFile::~PartialFile()
{
    if (!m_isFinished && !m_isDirect)
        ::unlink(m_path.c_str());
}

void PartialFile::finish()
{
    if (!m_isDirect)
        QMFileUtils::moveFile(m_path, m_final);
    m_isFinished = true;
}

} // namespace Quillmoran

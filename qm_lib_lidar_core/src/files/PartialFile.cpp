#include "files/PartialFile.h"

#include "files/QMFileUtils.h"
#include "platform/Base.h"
#include "platform/FileIO.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran {

namespace {

namespace fs = std::filesystem;

constexpr unsigned newFilePermissions = 0644;

// Where a chain of links leads that ends at nothing.
QMFileSpec followLinks(const QMFileSpec& link)
{
    constexpr int mostLinks = 40;
    fs::path path = link.c_str();
    std::error_code error;
    for (int i = 0; i < mostLinks && fs::is_symlink(path, error); ++i) {
        const fs::path target = fs::read_symlink(path, error);
        if (error)
            break;
        path = path.parent_path() / target;
    }
    return path.c_str();
}

// The name with the suffix, cut so that the system takes it.
fs::path besideName(const fs::path& file, unsigned attempt)
{
    std::string suffix = '.' + std::to_string(::getpid());
    if (attempt != 0)
        suffix += '-' + std::to_string(attempt);
    suffix += ".part";
    return file.parent_path() / (file.filename().string().substr(0, NAME_MAX - suffix.size()) + suffix);
}

} // namespace

PartialFile::PartialFile(const QMFileSpec& final) : m_path(final)
{
    std::error_code error;
    const fs::file_status status = fs::status(final.c_str(), error);
    const bool exists = fs::exists(status);
    const bool isUnknown = status.type() == fs::file_type::none;
    if (isUnknown || fs::is_directory(status))
        errno = isUnknown ? error.value() : EISDIR;
    if (isUnknown || fs::is_directory(status) || (exists && ::access(final.c_str(), W_OK) != 0))
        QM_THROW_OS(final.c_str());
    const fs::path target = exists ? fs::canonical(final.c_str(), error) : fs::path();
    m_final = exists && !error ? QMFileSpec(target.c_str()) : followLinks(final);
    const unsigned permissions =
        exists ? static_cast<unsigned>(status.permissions() & fs::perms::all) : newFilePermissions;
    // A file that has lost its name is reached through its descriptor's alone.
    m_isDirect = exists && (!fs::is_regular_file(status) || error);
    if (m_isDirect || createBeside(permissions))
        return;
    if (!exists || errno != EACCES)
        QM_THROW_OS(final.c_str()); // the user knows the file by its final name
    m_path = final;
    m_isDirect = true;
}

bool PartialFile::createBeside(unsigned permissions)
{
    for (unsigned attempt = 0;; ++attempt) {
        // Another writer of this process, one in another container or one that was killed can have the name.
        m_path = QMFileSpec(besideName(m_final.c_str(), attempt).c_str());
        const int descriptor =
            ::open64(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, newFilePermissions);
        if (descriptor < 0 && errno == EEXIST)
            continue;
        if (descriptor < 0)
            return false;
        if (permissions != newFilePermissions)
            ::fchmod(descriptor, permissions); // as far as the file system has them
        ::close(descriptor);
        return true;
    }
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

void PartialFile::finishWithoutFile()
{
    if (!m_isDirect && QMFileUtils::exists(m_final))
        QMFileUtils::deleteFile(m_final);
}

} // namespace Quillmoran

#include "files/PartialFile.h"

#include "files/QMFileUtils.h"
#include <vxunpack/Base.h>

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

constexpr mode_t newFilePermissions = 0666; // less the umask
constexpr mode_t ownerPermissions = 0600;

// The target of a chain of links that does not exist.
QMFileSpec followLinks(const QMFileSpec& link)
{
    constexpr int maxLinks = 40;
    fs::path path = link.c_str();
    std::error_code error;
    for (int i = 0; i < maxLinks && fs::is_symlink(path, error); ++i) {
        const fs::path target = fs::read_symlink(path, error);
        if (error)
            break;
        path = path.parent_path() / target;
    }
    return path.c_str();
}

// The name with a suffix, truncated to the maximum length of a name.
fs::path temporaryName(const fs::path& file, unsigned attempt)
{
    std::string suffix = '.' + std::to_string(::getpid());
    if (attempt != 0)
        suffix += '-' + std::to_string(attempt);
    suffix += ".part";
    return file.parent_path() / (file.filename().string().substr(0, NAME_MAX - suffix.size()) + suffix);
}

// Sets owner, group and permissions to those of the replaced file, as far as the system allows. Until then
// only the creator can access the file.
void copyPermissions(int descriptor, const struct stat64& replaced)
{
    struct stat64 own;
    if (fstat64(descriptor, &own) != 0)
        return;
    constexpr auto same = static_cast<uid_t>(-1);
    [[maybe_unused]] const int changed =
        own.st_uid == replaced.st_uid ? 0 : ::fchown(descriptor, replaced.st_uid, same);
    const bool hasGroup = own.st_gid == replaced.st_gid || ::fchown(descriptor, same, replaced.st_gid) == 0;
    mode_t permissions = replaced.st_mode & 0777;
    if (!hasGroup) {
        // The group differs, so group and others get the permissions that both groups had.
        const mode_t both = permissions >> 3 & permissions & 7;
        permissions = (permissions & 0700) | both << 3 | both;
    }
    ::fchmod(descriptor, permissions);
}

} // namespace

PartialFile::PartialFile(const QMFileSpec& final, const char* mode)
    : m_given(final), m_path(final), m_io(FileIO::create())
{
    if (*final.c_str() == '\0')
        QM_THROW(ErrorCode::InvalidArgument, "path not given");
    struct stat64 status = {};
    const bool exists = stat64(final.c_str(), &status) == 0;
    if (!exists && errno != ENOENT && errno != ENOTDIR)
        QM_THROW_OS(final.c_str());
    if (exists && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        QM_THROW_OS(final.c_str());
    }
    if (exists && ::access(final.c_str(), W_OK) != 0)
        QM_THROW_OS(final.c_str());
    std::error_code error;
    const fs::path target = exists ? fs::canonical(final.c_str(), error) : fs::path();
    m_final = exists && !error ? QMFileSpec(target.c_str()) : followLinks(final);
    // An unlinked file is reachable only through its descriptors.
    m_isDirect = exists && (!S_ISREG(status.st_mode) || error);
    if (!m_isDirect && createTemporary(exists ? &status : nullptr))
        return;
    if (!m_isDirect && (!exists || errno != EACCES))
        QM_THROW_OS(final.c_str()); // users know the final name
    m_isDirect = true;
    m_path = final;
    const bool isPipe = exists && S_ISFIFO(status.st_mode); // "+" would not wait for its reader
    m_io->init(final.c_str(), isPipe ? "w" : mode);
}

bool PartialFile::createTemporary(const struct stat64* replaced)
{
    const mode_t permissions = replaced ? replaced->st_mode & ownerPermissions : newFilePermissions;
    for (unsigned attempt = 0;; ++attempt) {
        // Another writer, also one that was killed or runs in another container, may have used the name.
        m_path = QMFileSpec(temporaryName(m_final.c_str(), attempt).c_str());
        const int descriptor =
            ::open64(m_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, permissions);
        if (descriptor < 0 && errno == EEXIST)
            continue;
        if (descriptor < 0)
            return false;
        struct stat64 own = {};
        if (fstat64(descriptor, &own) == 0) {
            m_device = own.st_dev;
            m_inode = own.st_ino;
        }
        if (replaced)
            copyPermissions(descriptor, *replaced);
        try {
            m_io->adopt(descriptor, m_given.c_str(), FileIO::Imp::POSITIONAL);
        } catch (...) { // out of memory; no destructor will remove the file
            ::close(descriptor);
            ::unlink(m_path.c_str());
            throw;
        }
        return true;
    }
}

PartialFile::~PartialFile()
{
    if (!m_isFinished && !m_isDirect)
        ::unlink(m_path.c_str());
}

// Seeking on a device has no side effect. A pipe is not opened, which could block.
bool PartialFile::canSeek() const
{
    struct stat64 status;
    if (!m_isDirect || stat64(m_path.c_str(), &status) != 0 || S_ISREG(status.st_mode))
        return true;
    if (!S_ISCHR(status.st_mode))
        return S_ISBLK(status.st_mode);
    const int descriptor = ::open64(m_path.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const bool cannot = descriptor >= 0 && ::lseek64(descriptor, 0, SEEK_CUR) < 0 && errno == ESPIPE;
    if (descriptor >= 0)
        ::close(descriptor);
    return !cannot;
}

// Another file or a link with the temporary name must not become the output.
void PartialFile::requireOwnFile() const
{
    struct stat64 status;
    if (lstat64(m_path.c_str(), &status) != 0)
        QM_THROW_OS(m_given.c_str());
    if (status.st_dev != m_device || status.st_ino != m_inode)
        QM_THROW(ErrorCode::Write, "another file has taken the place of the temporary file path = %s",
                 m_path.c_str());
}

void PartialFile::finish()
{
    if (!m_isDirect) {
        requireOwnFile();
        try {
            QMFileUtils::moveFile(m_path, m_final);
        } catch (const Error& error) {
            errno = error.error();
            QM_THROW_OS(m_given.c_str());
        }
    }
    m_isFinished = true;
}

} // namespace Quillmoran

#include "utils/Program.h"

#include "text/Printable.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran::Utils {

namespace {

// A program can be started without its standard streams. A file opened then would take the place of one, and
// have progress and messages written into it. What takes the place here cannot be used for what the stream is
// for, so that a report that is lost is noticed.
void occupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(stream, F_GETFD) < 0 && errno == EBADF)
            ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY); // takes the lowest number
}

// The progress line has no end yet; on a terminal the message would stand behind it.
void endProgressLine()
{
    if (isatty(STDOUT_FILENO))
        std::putchar('\n');
    std::fflush(stdout);
}

// Also when there is no memory left to escape the text.
void printError(const char* text)
{
    try {
        std::fprintf(stderr, "Error: %s\n", printable(text).c_str());
    } catch (const std::bad_alloc&) {
        std::fputs("Error: ", stderr);
        for (; *text != '\0'; ++text)
            std::fputc(static_cast<unsigned char>(*text) < ' ' || *text == '\x7f' ? '?' : *text, stderr);
        std::fputc('\n', stderr);
    }
}

} // namespace

int runProgram(const std::function<bool()>& run)
{
    occupyStandardStreams();
    try {
        return run() ? 0 : 1;
    } catch (const std::exception& error) {
        endProgressLine();
        printError(error.what());
    } catch (...) {
        endProgressLine();
        std::fprintf(stderr, "unknown exception\n");
    }
    return 1;
}

void warn(const std::string& text)
{
    endProgressLine();
    std::fprintf(stderr, "Warning: %s\n", printable(text).c_str());
}

void ignoreWriteSignals()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

bool isStandardOutput(const char* path)
{
    struct stat64 file, output;
    const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_RDONLY && stat64(path, &file) == 0 &&
           fstat64(STDOUT_FILENO, &output) == 0 && file.st_dev == output.st_dev &&
           file.st_ino == output.st_ino;
}

Scoped<IO> divertStandardOutput(const char* name)
{
    std::fflush(stdout);
    Scoped<FileIO::Imp> io(FileIO::create());
    const int descriptor = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (descriptor < 0)
        QM_THROW_OS(name);
    io->adopt(descriptor, name, FileIO::Imp::SEQUENTIAL);
    if (::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        QM_THROW_OS(name);
    return Scoped<IO>(io.detach());
}

void finishReport()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        QM_THROW(ErrorCode::General, "cannot write the report");
}

} // namespace Quillmoran::Utils

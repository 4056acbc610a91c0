#include "utils/Program.h"

#include "platform/Base.h"
#include "text/Printable.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
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

} // namespace

int runProgram(const std::function<bool()>& run)
{
    occupyStandardStreams();
    try {
        return run() ? 0 : 1;
    } catch (const std::exception& error) {
        endProgressLine();
        std::fprintf(stderr, "Error: %s\n", printable(error.what()).c_str());
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

void ignoreBrokenPipes()
{
    std::signal(SIGPIPE, SIG_IGN);
}

void finishReport()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        QM_THROW(-1, "cannot write the report");
}

} // namespace Quillmoran::Utils

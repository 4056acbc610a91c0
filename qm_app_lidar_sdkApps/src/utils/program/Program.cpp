#include "utils/program/Program.h"

#include "remote/Traffic.h"
#include "text/Printable.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Utils.h"
#include "utils/sets/ThreadLimit.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran {

namespace {

bool isQuietRun = false;

} // namespace

Program::Program(const char* name, const char* description, Syntax syntax, int status)
    : m_cmdLine(name, description, description, true), m_syntax(syntax)
{
    m_cmdLine.setErrorStatus(status);
    Utils::setVersion(m_cmdLine);
    Utils::addCommonOptions(m_cmdLine);
    m_cmdLine.addFlag("q", "quiet", "print nothing but errors");
    m_cmdLine.addFlag("allowRemote", nullptr, "read remote files that a list or an index names");
    if (syntax == Syntax::Basic) {
        for (const char* option : {"quiet", "allowRemote"}) // the usage text is fixed
            m_cmdLine.setUndocumented(option);
        return;
    }
    m_cmdLine.setStrictNumbers();
    m_cmdLine.setExtendedSyntax();
}

void Program::parse(int argc, const char* const* argv)
{
    if (m_syntax == Syntax::Extended)
        Utils::nameArguments(m_cmdLine);
    m_cmdLine.parse(argc, argv);
    isQuietRun = m_cmdLine.getFlag("quiet");
    checkOptions();
}

unsigned Program::getNumThreads() const
{
    return ThreadLimit::resolve(m_cmdLine.getUint("numThreads"));
}

std::string Program::describeSpeed(std::int64_t numPoints) const
{
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count();
    char text[80];
    std::snprintf(text, sizeof text, "%.3f s, %.0f points/s", seconds,
                  static_cast<double>(numPoints) / seconds);
    return text;
}

void Program::printRun(std::FILE* stream, std::int64_t numPoints, std::int64_t numBytes) const
{
    std::fprintf(stream, "%lld points, %lld bytes, %s\n", static_cast<long long>(numPoints),
                 static_cast<long long>(numBytes), describeSpeed(numPoints).c_str());
}

void Program::printTraffic()
{
    const Traffic traffic = Traffic::total();
    if (m_hasPrintedTraffic || traffic.requests == 0 || !m_cmdLine.getFlag("verbose"))
        return;
    m_hasPrintedTraffic = true;
    Utils::endProgressLine();
    std::fprintf(stderr, "remote: %lld requests, %lld bytes\n", static_cast<long long>(traffic.requests),
                 static_cast<long long>(traffic.bytes));
}

bool Program::run()
{
    bool succeeded = false;
    ThreadLimit(m_cmdLine.getUint("numThreads")).execute([&] { succeeded = work(); });
    printTraffic();
    return succeeded;
}

namespace Utils {

namespace {

// A program can be started with closed standard streams. The first file that it opens would then get the
// descriptor of one, and progress and messages would be written into the file. The descriptors opened here
// have the wrong direction, so that using the stream is an error and a lost report is noticed.
void occupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(stream, F_GETFD) < 0 && errno == EBADF)
            ::open("/dev/null",
                   stream == STDIN_FILENO ? O_WRONLY : O_RDONLY); // gets the lowest free descriptor
}

// The former standard output, once divertStandardOutput() was called.
Scoped<FileIO::Imp>& divertedOutput()
{
    static Scoped<FileIO::Imp> output;
    return output;
}

// Whether nobody reads a report that was printed.
bool isReportUnread()
{
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    return std::ferror(stdout) && ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

// Whether the run failed because the reader of standard output, such as "head", has seen enough.
bool isReaderGone()
{
    return divertedOutput() ? divertedOutput()->isBrokenPipe() : isReportUnread();
}

// Ends the process as the signal would have ended it, but after everything was cleaned up. Returns the status
// of shells for it if the signal is blocked.
int endByBrokenPipe()
{
    constexpr int signalStatus = 128;
    endProgressLine();
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
    return signalStatus + SIGPIPE;
}

constexpr char standardOutputName[] = "standard output";

// Whether the path names the file that is standard output, as /dev/stdout does.
bool isStandardOutput(const char* path)
{
    struct stat64 file, output;
    const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_RDONLY && stat64(path, &file) == 0 &&
           fstat64(STDOUT_FILENO, &output) == 0 && file.st_dev == output.st_dev &&
           file.st_ino == output.st_ino;
}

// Redirects what the program prints to standard error. Returns a sequential IO that writes to the former
// standard output.
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
    divertedOutput() = io;
    return Scoped<IO>::retained(io.get());
}

} // namespace

bool isQuiet() noexcept
{
    return isQuietRun;
}

// Also works if there is no memory left to escape the text.
void printError(const char* text)
{
    endProgressLine();
    try {
        std::fprintf(stderr, "Error: %s\n", printable(text).c_str());
    } catch (const std::bad_alloc&) {
        std::fputs("Error: ", stderr);
        for (; *text != '\0'; ++text)
            std::fputc(static_cast<unsigned char>(*text) < ' ' || *text == '\x7f' ? '?' : *text, stderr);
        std::fputc('\n', stderr);
    }
}

int runProgram(const std::function<bool()>& run, int errorStatus)
{
    occupyStandardStreams();
    try {
        return run() ? 0 : 1;
    } catch (const std::exception& error) {
        if (isReaderGone())
            return endByBrokenPipe();
        printError(error.what());
    } catch (...) {
        endProgressLine();
        std::fprintf(stderr, "unknown exception\n");
    }
    return errorStatus;
}

void warn(const std::string& text)
{
    if (isQuiet())
        return;
    endProgressLine();
    std::fprintf(stderr, "Warning: %s\n", printable(text).c_str());
}

void ignoreWriteSignals()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

DataOutput openOutput(const std::string& name, bool inOrder)
{
    if (name == "-")
        return {standardOutputName, divertStandardOutput(standardOutputName)};
    if (!isStandardOutput(name.c_str()))
        return {name, {}};
    // Formats that are not written in order are written to a temporary file that then takes the name of the
    // output. After the diversion "/dev/stdout" would name standard error, so the name of the file is found
    // before.
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(name, error);
    const bool isFile = !error && std::filesystem::is_regular_file(path, error);
    Scoped<IO> stream = divertStandardOutput(name.c_str());
    if (isFile && !inOrder)
        return {path, {}};
    return {name, stream};
}

void finishReport()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        QM_THROW(ErrorCode::General, "cannot write the report");
}

} // namespace Utils

} // namespace Quillmoran

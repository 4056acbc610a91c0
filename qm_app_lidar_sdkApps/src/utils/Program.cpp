#include "utils/Program.h"

#include <cstdio>
#include <exception>
#include <unistd.h>

namespace Quillmoran::Utils {

namespace {

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
    try {
        return run() ? 0 : 1;
    } catch (const std::exception& error) {
        endProgressLine();
        std::fprintf(stderr, "Error: %s\n", error.what());
    } catch (...) {
        endProgressLine();
        std::fprintf(stderr, "unknown exception\n");
    }
    return 1;
}

} // namespace Quillmoran::Utils

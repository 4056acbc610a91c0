#include "transcode/Transcoder.h"

#include <cstdio>
#include <exception>
#include <unistd.h>

namespace {

// The progress line has no end yet; on a terminal the message would stand behind it.
void endProgressLine()
{
    if (isatty(STDOUT_FILENO))
        std::putchar('\n');
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        Quillmoran::Transcoder transcoder;
        transcoder.parse(argc, argv);
        transcoder.run();
        return 0;
    } catch (const std::exception& error) {
        endProgressLine();
        std::fprintf(stderr, "Error: %s\n", error.what());
    } catch (...) {
        endProgressLine();
        std::fprintf(stderr, "unknown exception\n");
    }
    return 1;
}

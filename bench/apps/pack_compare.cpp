// Compares the writing of .vxl files with LASzip, from LAS and LAZ files; scripts/bench_encode.sh runs it.
//
//   pack_compare sizes DIRECTORY FILE ...
//   pack_compare speeds DIRECTORY ROUNDS FILE ...
//
// The other commands are the pieces that speeds measures, each in a process of its own. It does no such work
// itself: a process that has ever been large makes its children look large.
#include "apps/SizeTable.h"
#include "apps/SpeedTable.h"
#include "support/Encoders.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace Quillmoran::Benchmarks {
namespace {

bool runCommand(const std::vector<std::string>& words)
{
    const std::string& command = words[0];
    const auto from = [&](int first) { return std::vector<std::string>(words.begin() + first, words.end()); };
    if (command == "sizes" && words.size() >= 3) {
        printSizes(from(2), words[1]);
        return true;
    }
    if (command == "speeds" && words.size() >= 4 && std::atoi(words[2].c_str()) > 0) {
        printSpeeds(from(3), std::atoi(words[2].c_str()), words[1]);
        return true;
    }
    if (command == "vxl" && words.size() == 4) {
        packVXL(words[1], words[2], static_cast<unsigned>(std::atoi(words[3].c_str())));
        return true;
    }
    if (command == "laz" && words.size() == 3) {
        compressLAZ(words[1], words[2]);
        return true;
    }
    if (command == "verify" && words.size() == 3) {
        requireSamePoints(words[1], words[2]);
        return true;
    }
    return false;
}

} // namespace
} // namespace Quillmoran::Benchmarks

int main(int argc, char** argv)
{
    try {
        if (argc >= 2 && Quillmoran::Benchmarks::runCommand({argv + 1, argv + argc}))
            return 0;
        std::fprintf(stderr, "usage: pack_compare sizes DIRECTORY FILE ...\n"
                             "       pack_compare speeds DIRECTORY ROUNDS FILE ...\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
    }
    return 1;
}

// Writes the sample files, from which fuzzing starts: make_seeds DIRECTORY writes DIRECTORY/TARGET/NAME.
#include "support/SampleFiles.h"
#include "support/TemporaryDirectory.h"

#include <cstdio>

int main(int argc, char** argv)
{
    using namespace Quillmoran::Testing;
    if (argc != 2) {
        std::fprintf(stderr, "make_seeds DIRECTORY\n");
        return 1;
    }
    for (const SampleFile& file : sampleFiles()) {
        const std::filesystem::path folder = std::filesystem::path(argv[1]) / file.target;
        std::filesystem::create_directories(folder);
        writeFile(folder / file.name, file.make());
    }
    return 0;
}

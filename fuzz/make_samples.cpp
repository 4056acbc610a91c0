// Writes the files that are made by code: make_samples DIRECTORY writes DIRECTORY/survey.vxl, which is the file
// in examples, and DIRECTORY/TARGET/NAME, from which fuzzing starts.
#include "support/ExampleSurvey.h"
#include "support/SampleFiles.h"
#include "support/TemporaryDirectory.h"

#include <cstdio>

int main(int argc, char** argv)
{
    using namespace Quillmoran::Testing;
    if (argc != 2) {
        std::fprintf(stderr, "make_samples DIRECTORY\n");
        return 1;
    }
    const std::filesystem::path directory = argv[1];
    for (const SampleFile& file : sampleFiles()) {
        std::filesystem::create_directories(directory / file.target);
        writeFile(directory / file.target / file.name, file.make());
    }
    writeFile(directory / "survey.vxl", buildExampleSurvey());
    return 0;
}

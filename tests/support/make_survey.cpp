// Writes survey.vxl, the file that the README works with: make_survey PATH
#include "support/ExampleSurvey.h"

#include <cstdio>
#include <exception>
#include <fstream>

int main(int argc, char** argv)
{
    try {
        if (argc != 2) {
            std::fprintf(stderr, "usage: make_survey PATH\n");
            return 1;
        }
        const auto bytes = Quillmoran::Testing::buildExampleSurvey();
        std::ofstream file(argv[1], std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        file.close();
        return file ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}

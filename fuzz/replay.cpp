// Runs stored inputs through a target: replay TARGET PATH ..., of files, folders and .zip archives.
#include "support/FuzzTarget.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <cstdio>

using namespace Quillmoran::Fuzz;

namespace {

void replay(const char* target, const std::string& path)
{
    GByte* data = nullptr;
    vsi_l_offset size = 0;
    if (!VSIIngestFile(nullptr, path.c_str(), &data, &size, -1))
        throw Finding("cannot read the file");
    // A copy of the exact size, so that sanitizers detect a read past the end.
    const std::vector<std::uint8_t> bytes(data, data + size);
    VSIFree(data);
    handlesInput(target, bytes);
}

std::vector<std::string> filesOf(const std::string& path)
{
    const std::string root = path.ends_with(".zip") ? "/vsizip/" + path : path;
    const CPLStringList names(VSIReadDirRecursive(root.c_str()));
    std::vector<std::string> files;
    for (int i = 0; i < names.size(); ++i)
        files.push_back(root + '/' + names[i]);
    return names.List() ? files : std::vector{path};
}

} // namespace

int main(int argc, char** argv)
{
    std::size_t numInputs = 0;
    for (int i = 2; i < argc; ++i) {
        for (const std::string& file : filesOf(argv[i])) {
            std::fprintf(stderr, "%s\n", file.c_str()); // first, in case the input crashes the process
            try {
                replay(argv[1], file);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "ERROR: %s\n", error.what());
                return 1;
            }
            ++numInputs;
        }
    }
    std::printf("%zu inputs\n", numInputs);
    return numInputs == 0; // an empty corpus tests nothing
}

// Runs stored inputs through a target: replay TARGET PATH ..., of files, folders and .zip archives.
#include "support/FuzzTarget.h"

#include <cpl_conv.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

using Quillmoran::Fuzz::Finding;

void replay(const char* target, const std::string& path)
{
    GByte* data = nullptr;
    vsi_l_offset size = 0;
    if (!VSIIngestFile(nullptr, path.c_str(), &data, &size, -1))
        throw Finding("cannot read the file");
    // A copy of the exact size, so that sanitizers detect a read past the end.
    const std::vector<std::uint8_t> bytes(data, data + size);
    VSIFree(data);
    // Log the name first, in case the input crashes the process.
    std::fprintf(stderr, "%s\n", CPLGetFilename(path.c_str()));
    Quillmoran::Fuzz::handlesInput(target, bytes);
}

std::vector<std::string> filesOf(const std::string& path)
{
    const std::string root = path.ends_with(".zip") ? "/vsizip/" + path : path;
    const std::unique_ptr<char*, void (*)(char**)> names(VSIReadDirRecursive(root.c_str()), CSLDestroy);
    if (!names)
        return {path};
    std::vector<std::string> files;
    for (char** name = names.get(); *name; ++name)
        files.push_back(root + '/' + *name);
    return files;
}

} // namespace

int main(int argc, char** argv)
{
    std::size_t numInputs = 0;
    for (int i = 2; i < argc; ++i) {
        for (const std::string& file : filesOf(argv[i])) {
            try {
                replay(argv[1], file);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "ERROR: %s: %s\n", file.c_str(), error.what());
                return 1;
            }
            ++numInputs;
        }
    }
    std::printf("%zu inputs\n", numInputs);
    return numInputs == 0; // an empty corpus tests nothing
}

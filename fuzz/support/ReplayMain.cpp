// Runs stored inputs through a target: the tests replay the corpus and past findings.
//
//   replay_TARGET FILE-OR-DIRECTORY ...
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::size_t numInputs = 0;

void replay(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file)
        throw std::runtime_error("cannot read " + path.string());
    // Log the name first, in case the input crashes the process.
    std::fprintf(stderr, "%s\n", path.filename().c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++numInputs;
}

} // namespace

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            replay(argv[i]);
            continue;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(argv[i]))
            replay(entry.path());
    }
    std::printf("%zu inputs\n", numInputs);
    return numInputs == 0; // an empty corpus tests nothing
}

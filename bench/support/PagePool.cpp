#include "support/PagePool.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

namespace Quillmoran::Benchmarks {

void refreshPages(const std::string& directory, std::uint64_t bytes)
{
    const std::filesystem::path path = std::filesystem::path(directory) / "pages";
    const std::vector<char> zeros(std::size_t{1} << 18);
    {
        std::ofstream file(path, std::ios::binary);
        for (std::uint64_t left = bytes; left != 0 && file;) {
            const std::uint64_t count = std::min<std::uint64_t>(left, zeros.size());
            file.write(zeros.data(), static_cast<std::streamsize>(count));
            left -= count;
        }
    }
    std::filesystem::remove(path);
}

} // namespace Quillmoran::Benchmarks

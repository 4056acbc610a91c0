// Writes points from arrays of the program: .vxl, .las, .laz, .bpf or text, by the ending of the name.
//
//   write_columns OUTPUT
#include <vxunpack/vxunpack.h>

#include <cmath>
#include <cstdio>
#include <vector>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: write_columns OUTPUT\n");
        return 1;
    }
    constexpr int width = 1000; // points along each side of a wavy square
    std::vector<double> x, y, z;
    std::vector<std::uint16_t> intensity;
    for (int row = 0; row < width; ++row) {
        for (int column = 0; column < width; ++column) {
            x.push_back(column * 0.25);
            y.push_back(row * 0.25);
            z.push_back(std::round(100 * std::sin(column * 0.01) * std::cos(row * 0.01)) * 0.01);
            intensity.push_back(static_cast<std::uint16_t>(column ^ row));
        }
    }
    try {
        const vx::Cloud cloud = vx::Cloud::fromColumns(
            {{"X", x, 0.25}, {"Y", y, 0.25}, {"Z", z, 0.01}, {"Intensity", intensity}});
        const auto progress = [](double fraction) {
            std::fprintf(stderr, "\r%3.0f %%", 100 * fraction);
            return true; // false cancels
        };
        const auto warning = [](const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); };
        const auto count =
            vx::write(argv[1], cloud, {.threads = 2, .progress = progress, .warning = warning});
        std::printf("\n%llu points written\n", static_cast<unsigned long long>(count));
    } catch (const vx::Error& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
    return 0;
}

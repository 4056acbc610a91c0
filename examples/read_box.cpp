// Prints the points of a file, list, directory or tile-set index that lie in a box.
//
//   read_box INPUT XMIN XMAX YMIN YMAX
#include <vxunpack/vxunpack.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 6) {
        std::fprintf(stderr, "usage: read_box INPUT XMIN XMAX YMIN YMAX\n");
        return 1;
    }
    try {
        const vx::Cloud cloud = vx::open(argv[1]);
        const vx::Box box = {std::atof(argv[2]), std::atof(argv[3]), std::atof(argv[4]), std::atof(argv[5])};
        // Only the channels named here are decoded.
        for (const vx::Block& block :
             cloud.read({.box = box, .channels = {"X", "Y", "Z", "Classification"}})) {
            const auto classes = block.column<std::uint8_t>("Classification");
            for (std::size_t i = 0; i < block.size(); ++i)
                std::printf("%.2f %.2f %.2f %d\n", block.x()[i], block.y()[i], block.z()[i], classes[i]);
        }
    } catch (const vx::Error& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
    return 0;
}

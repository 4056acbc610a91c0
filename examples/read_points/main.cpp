// The library from another project: prints the points of a file that lie in a box.
//
//   read_points FILE XMIN XMAX YMIN YMAX
#include <decode/VX7PointReader.h>
#include <framework/PointIterator.h>
#include <model/ChannelNames.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

using namespace Quillmoran;

int main(int argc, char** argv)
{
    if (argc != 6) {
        std::fprintf(stderr, "usage: read_points FILE XMIN XMAX YMIN YMAX\n");
        return 1;
    }
    try {
        const Scoped<VX7PointReader> reader(VX7PointReader::create());
        reader->init(argv[1]);

        Bounds box = Bounds::Huge();
        box.x = {std::atof(argv[2]), std::atof(argv[3])};
        box.y = {std::atof(argv[4]), std::atof(argv[5])};
        const double allPoints = 1.0;

        // Only the channels that are asked for are decoded.
        const char* const wanted[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z,
                                      ChannelNames::classId};
        PointInfo layout;
        layout.init(reader->getPointInfo(), wanted, 4);

        PointData block;
        block.init(layout, 1000);
        const Scoped<PointIterator> points(reader->createIterator(box, allPoints, layout, nullptr));
        while (const std::size_t count = points->getNextPoints(block)) {
            const auto* classes =
                static_cast<const unsigned char*>(block.getChannel(ChannelNames::classId)->getData());
            for (std::size_t i = 0; i < count; ++i)
                std::printf("%.2f %.2f %.2f %d\n", block.getX()[i], block.getY()[i], block.getZ()[i],
                            classes[i]);
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}

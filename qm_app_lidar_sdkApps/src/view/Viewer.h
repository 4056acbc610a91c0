// vxview: draws a point cloud.
#pragma once

#include "utils/program/Program.h"
#include "view/Picture.h"
#include "view/TerminalPicture.h"
#include <vxunpack/FilePointSourceManager.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

class Viewer final : public Program
{
public:
    Viewer();

    // "-view profile X0 Y0 X1 Y1 WIDTH" is the option -profile, since the arguments of an option have a fixed number.
    void parse(int argc, const char* const* argv);

private:
    // Where the picture goes.
    struct Output
    {
        enum Kind
        {
            PNG,
            GeoTIFF,
            Terminal
        };

        Kind kind = PNG;
        std::string name;
        Scoped<IO> stream;     // standard output; null for a file
        std::int64_t size = 0; // bytes
    };

    void checkOptions() const override;
    bool work() override;

    Output chooseOutput() const;
    ViewedPoints openPoints(FilePointSourceManager& files, Scoped<PointSource>& source,
                            ProgressDelegate& progress) const;
    void writePNG(const Image& image, Output& output, ProgressDelegate& progress) const;
    void writeGeoTIFF(const Picture& picture, const PointSource& source, Output& output,
                      ProgressDelegate& progress) const;
    void show(const Image& image, Output& output) const;
    void write(const Picture& picture, const ViewedPoints& points, Output& output,
               ProgressDelegate& progress) const;
    ViewOptions getOptions(const Output& output) const;
    void printResult(const Picture& picture, const ViewedPoints& points, const Output& output) const;

    std::vector<const char*> m_arguments; // as they are parsed
    TerminalGraphics m_graphics = TerminalGraphics::Blocks;
};

} // namespace Quillmoran

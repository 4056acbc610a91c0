// vxview: draws a point cloud.
#pragma once

#include "utils/program/Program.h"
#include "view/Picture.h"
#include <vxunpack/FilePointSourceManager.h>

#include <string>
#include <vector>

namespace Quillmoran {

class Viewer final : public Program
{
public:
    Viewer();

private:
    // An output and what is written to it.
    struct Output
    {
        std::string name;
        Scoped<IO> stream; // standard output; null for a file
        bool isGeoTIFF = false;
        std::int64_t size = 0; // bytes
    };

    void checkOptions() const override;
    bool work() override;

    Output chooseOutput() const;
    ViewedPoints open(FilePointSourceManager& files, Scoped<PointSource>& source,
                      ProgressDelegate& progress) const;
    void write(const Picture& picture, const ViewedPoints& points, Output& output,
               ProgressDelegate& progress) const;
    void printResult(const Picture& picture, const ViewedPoints& points, const Output& output) const;
};

} // namespace Quillmoran

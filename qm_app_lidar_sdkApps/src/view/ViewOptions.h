// The options of vxview that say what is drawn, and how.
#pragma once

#include "view/Image.h"
#include "view/Projection.h"
#include <vxunpack/Bounds.h>

#include <optional>
#include <string>

namespace Quillmoran {

class QMCmdLine;

struct ViewOptions
{
    View view = View::Top;
    std::optional<Corridor> profile; // of a section; none is seen from the south, as a whole
    std::optional<std::string> by;   // a quantity
    Bounds box = Bounds::Huge();
    std::optional<double> fraction; // of the points
    std::size_t size = 1024;        // pixels of the longer side
    Color background = {255, 255, 255};
    bool hasLegend = true;

    static void add(QMCmdLine& cmdLine);
    // Usage errors for values that mean nothing.
    static void check(const QMCmdLine& cmdLine);
    static ViewOptions get(const QMCmdLine& cmdLine);
};

} // namespace Quillmoran

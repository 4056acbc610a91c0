// A layer of a raster: a statistic of one channel over the points of each cell, of all points or of some.
#pragma once

#include <vxunpack/Export.h>

#include <string>
#include <vector>

namespace Quillmoran {

struct QM_API RasterLayer
{
    enum class Statistic
    {
        Count, // of points; the channel has no effect
        Minimum,
        Maximum,
        Mean
    };
    // A cloud without return numbers has single returns, which are first and last ones.
    enum class Returns
    {
        All,
        First,
        Last
    };

    Statistic statistic = Statistic::Count;
    std::string channel = "Z"; // its own name, or that of LAS or PDAL
    Returns returns = Returns::All;
    std::vector<int> classes = {}; // of the points, 0 to 255; empty: all
    std::string name = {};         // of the band; empty: as toString()

    // The layer of a text, which becomes its name:
    //
    //   STATISTIC[:CHANNEL][@first|@last][@class=N,...]     STATISTIC is count, min, max or mean
    //   ground                                              as mean:Z@last@class=2
    //
    // such as "max", "mean:Intensity@first" or "min:Z@class=2,9". Throws InvalidArgument for other texts.
    static RasterLayer parse(const std::string& text);
    // In that notation, with the channel unless it is a count.
    std::string toString() const;

    bool operator==(const RasterLayer&) const = default;
};

} // namespace Quillmoran

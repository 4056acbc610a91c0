#include "apps/CompareRows.h"

namespace Quillmoran::Benchmarks {

namespace {

constexpr Program laszip = Program::laszip;
constexpr Program pdal = Program::pdal;
constexpr Program vxunpack = Program::vxunpack;
constexpr Program vxpack = Program::vxpack;

constexpr Quantity speed = Quantity::speed;
constexpr Quantity wall = Quantity::wall;
constexpr Quantity overNull = Quantity::overNull;
constexpr Quantity peak = Quantity::peak;

// clang-format off
constexpr Row wholeRunRows[] = {
    {"LASzip decode",     laszip,   1, "decode {laz} {points}"},
    {"LASzip window",     laszip,   1, "window {laz} {minX} {maxX} {minY} {maxY} {inside}"},
    {"LASzip encode",     laszip,   1, "encode {las} {out}/laszip.laz"},
    {"PDAL to text",      pdal,     1, "translate {sample.laz} {out}/pdal.txt --writers.text.keep_unspecified=false"
                                " --writers.text.order={columns}"},
    {"PDAL to LAS",       pdal,     1, "translate {laz} {out}/pdal.las --writers.las.forward=all"},
    {"PDAL to LAZ",       pdal,     1, "translate {laz} {out}/pdal.laz --writers.las.forward=all"},
    {"null, 1 thread",    vxunpack, 1, "-i {vxl} -o null -j 1"},
    {"null, 2 threads",   vxunpack, 2, "-i {vxl} -o null -j 2"},
    {"null, all cores",   vxunpack, allCores, "-i {vxl} -o null"},
    {"text, 1 thread",    vxunpack, 1, "-i {vxl} -o {out}/own.txt -j 1"},
    {"text, 2 threads",   vxunpack, 2, "-i {vxl} -o {out}/own.txt -j 2"},
    {"text, all cores",   vxunpack, allCores, "-i {vxl} -o {out}/own.txt"},
    {"LAS, 1 thread",     vxunpack, 1, "-i {vxl} -o {out}/own.las -j 1"},
    {"LAS, 2 threads",    vxunpack, 2, "-i {vxl} -o {out}/own.las -j 2"},
    {"LAS, all cores",    vxunpack, allCores, "-i {vxl} -o {out}/own.las"},
    {"LAZ, 1 thread",     vxunpack, 1, "-i {vxl} -o {out}/own.laz -j 1"},
    {"LAZ, 2 threads",    vxunpack, 2, "-i {vxl} -o {out}/own.laz -j 2"},
    {"LAZ, all cores",    vxunpack, allCores, "-i {vxl} -o {out}/own.laz"},
    {"text, to a void",   vxunpack, 2, "-i {vxl} -o /dev/null -of txt -j 2"},
    {"LAS, to a void",    vxunpack, 2, "-i {vxl} -o /dev/null -of las12 -j 2"},
    {"window of 1 %",     vxunpack, 1, "-i {vxl} -o null -j 1 -c {minX} {maxX} {minY} {maxY} -inf +inf"},
    {"null, spatial",     vxunpack, 1, "-i {spatial} -o null -j 1"},
    {"window, spatial",   vxunpack, 1, "-i {spatial} -o null -j 1 -c {minX} {maxX} {minY} {maxY} -inf +inf"},
    {"preview, 1 in 64",  vxunpack, 1, "-i {vxl} -o null -j 1 -s 64"},
    {"every 4th point",   vxunpack, 1, "-i {vxl} -o null -j 1 -s 4"},
    {"X, Y, Z only",      vxunpack, 1, "-i {vxl} -o null -j 1 -ofld xyz"},
    {"encode, 1 thread",  vxpack,   1, "-i {las} -o {out}/own.vxl -j 1"},
    {"encode, 2 threads", vxpack,   2, "-i {las} -o {out}/own.vxl -j 2"},
};

// Floors are for 1 million points: the start of a program is a large part of the short runs there.
constexpr Goal wholeRunGoals[] = {
    // row               quantity  peer              goal         floor
    {"null, 1 thread",    speed,    "LASzip decode",  {0.70},      {0.50}},
    {"null, 2 threads",   speed,    "LASzip decode",  {1.35},      {0.90}},
    {"null, 2 threads",   speed,    "null, 1 thread", {1.90},      {1.15}},
    {"null, all cores",   speed,    "null, 1 thread", {0.90, 0.90}, {0.50, 0.50}},
    {"text, 1 thread",    overNull, "LASzip decode",  {0.35},      {0.90}},
    {"text, 2 threads",   speed,    "PDAL to text",   {12.0},      {6.0}},
    {"text, 1 thread",    peak,     {},               {24, 16},    {}},
    {"text, 2 threads",   peak,     {},               {24, 16},    {}},
    {"text, all cores",   peak,     {},               {24, 16},    {}},
    {"LAS, 1 thread",     wall,     "null, 1 thread", {1.08},      {1.50}},
    {"LAS, 2 threads",    wall,     "null, 2 threads", {1.08},     {1.60}},
    {"LAS, 1 thread",     peak,     {},               {24, 16},    {}},
    {"LAS, 2 threads",    peak,     {},               {24, 16},    {}},
    {"LAS, all cores",    peak,     {},               {24, 16},    {}},
    {"LAZ, 1 thread",     speed,    "PDAL to LAZ",    {1.00},      {1.00}},
    {"LAZ, 2 threads",    speed,    "PDAL to LAZ",    {2.00},      {1.30}},
    // What files cost on a machine whose memory others share, these do not.
    {"text, to a void",   speed,    "PDAL to text",   {},          {8.0}},
    {"LAS, to a void",    wall,     "null, 2 threads", {},         {1.40}},
    {"window of 1 %",     wall,     "LASzip window",  {1.50},      {1.00}},
    {"window, spatial",   wall,     "null, spatial",  {0.03},      {0.20}},
    {"window, spatial",   wall,     "LASzip window",  {1.50},      {0.80}},
    {"preview, 1 in 64",  wall,     "null, 1 thread", {0.03},      {0.10}},
    {"every 4th point",   wall,     "null, 1 thread", {0.30},      {0.50}},
    {"X, Y, Z only",      wall,     "null, 1 thread", {0.55},      {0.90}},
    {"encode, 1 thread",  speed,    "LASzip encode",  {0.40},      {0.22}},
    {"encode, 2 threads", speed,    "LASzip encode",  {0.75},      {0.38}},
};

constexpr Row startUpRows[] = {
    {"LASzip decode",     laszip,   1, "decode {laz} {points}"},
    {"null, 1 thread",    vxunpack, 1, "-i {vxl} -o null -j 1"},
    {"null, all cores",   vxunpack, allCores, "-i {vxl} -o null"},
};

constexpr Goal startUpGoals[] = {
    {"null, all cores",   wall,     "LASzip decode",  {1.10},      {1.80}},
};
// clang-format on

} // namespace

const RowTable wholeRuns = {wholeRunRows, wholeRunGoals, 3, 9.5e6, 1};
const RowTable startUp = {startUpRows, startUpGoals, 1, 5e4, 4};

} // namespace Quillmoran::Benchmarks

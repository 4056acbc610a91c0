#include "apps/CompareInput.h"

#include "files/QMFileUtils.h"
#include "support/ChildProcess.h"
#include "support/LASzipReads.h"
#include <vxunpack/Base.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace Quillmoran::Benchmarks {

namespace {

constexpr double windowShare = 0.01; // of the area, and of the points

std::string toText(double coordinate)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.6f", coordinate);
    return text;
}

} // namespace

std::string programPath(const char* name)
{
    return QMFileUtils::getProcessPath().dirname() + "/" + name;
}

void describePoints(const std::string& las, const std::string& description)
{
    const std::int64_t numPoints = decodeWithLASzip(las);
    const Window window = findWindow(las, windowShare);
    std::ofstream file(description);
    file << numPoints << ' ' << countInWindow(las, window) << ' ' << toText(window.minX) << ' '
         << toText(window.maxX) << ' ' << toText(window.minY) << ' ' << toText(window.maxY) << '\n';
    if (!file.flush())
        QM_THROW(ErrorCode::General, "%s cannot be written", description.c_str());
}

Input prepareInput(const std::string& las)
{
    Input input;
    input.stem = las.substr(0, las.rfind(".las"));
    const std::string vxl = input.stem + ".vxl";
    const std::string laz = input.stem + ".laz";
    const std::string spatial = input.stem + "_spatial.vxl";
    runProgram({programPath("vxpack"), "-i", las, "-o", vxl});
    runAgain({"verify", las, vxl});
    runProgram({programPath("vxpack"), "-i", las, "-o", spatial, "-order", "hilbert"});
    runAgain({"twin", las, laz});
    runAgain({"verify", las, laz});

    const std::string description = input.stem + ".window";
    runAgain({"describe", las, description});
    std::ifstream file(description);
    if (!(file >> input.numPoints >> input.numInWindow >> input.minX >> input.maxX >> input.minY >>
          input.maxY))
        QM_THROW(ErrorCode::General, "%s is not as expected", description.c_str());
    const std::string numInside = std::to_string(input.numInWindow);
    const std::string inside = input.stem + "_window.las";
    runAgain({"window", laz, input.minX, input.maxX, input.minY, input.maxY, numInside});
    for (const std::string& packed : {vxl, spatial}) {
        runProgram({programPath("vxunpack"), "-i", packed, "-o", inside, "-c", input.minX, input.maxX,
                    input.minY, input.maxY, "-inf", "+inf"});
        runAgain({"decode", inside, numInside});
    }
    QMFileUtils::deleteFile(inside.c_str());

    input.vxlBytes = static_cast<double>(QMFileUtils::getSize(vxl.c_str()));
    input.lazBytes = static_cast<double>(QMFileUtils::getSize(laz.c_str()));
    return input;
}

} // namespace Quillmoran::Benchmarks

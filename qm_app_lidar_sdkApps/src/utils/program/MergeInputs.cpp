#include "cli/QMCmdLine.h"
#include "utils/program/Program.h"
#include "utils/program/Summary.h"
#include "utils/program/Utils.h"
#include "utils/sets/Inputs.h"
#include <vxunpack/Base.h>

#include <cstdio>
#include <cstring>

namespace Quillmoran::Utils {

namespace {

constexpr unsigned maxGPSWeek = 99999; // about 1,900 years

} // namespace

void addGPSWeekOption(QMCmdLine& cmdLine)
{
    cmdLine.addUint("gpsWeek", nullptr,
                    "GPS week (0 began on 1980-01-06) in which all week times were taken.  Converts them to "
                    "adjusted standard time, which files with both kinds need",
                    false);
}

MergeOptions getMergeOptions(const QMCmdLine& cmdLine)
{
    MergeOptions options;
    if (cmdLine.isPresent("gpsWeek")) {
        const unsigned week = cmdLine.getUint("gpsWeek");
        if (week > maxGPSWeek)
            QM_THROW(ErrorCode::General, "bad GPS week %u", week);
        options.gpsWeek = static_cast<int>(week);
    }
    options.requiresSameCoordinateSystem =
        cmdLine.isPresent("srs") && std::strcmp(cmdLine.getString("srs"), "same") == 0;
    return options;
}

Scoped<PointSource> openInputs(FilePointSourceManager& files, bool verbose, const MergeOptions& options)
{
    files.setGPSWeek(options.gpsWeek);
    for (std::size_t i = 0; verbose && i < files.getNumSources(); ++i) {
        const Scoped<PointSource> source(files.createPointSource(i));
        printHeader(stdout, *source, files.getFilename(i));
    }
    Scoped<PointSource> joined = joinFiles(files, options, warn);
    if (verbose && (files.getNumSources() > 1 || options.gpsWeek))
        printHeader(stdout, *joined, nullptr);
    return joined;
}

} // namespace Quillmoran::Utils

// Suppresses the messages of GDAL and PROJ while it exists, and PROJ's network access even if the environment
// enables it.
#pragma once

#include <cpl_error.h>
#include <gdal_version.h>
#include <ogr_srs_api.h>

namespace Quillmoran {

class QuietLibraries
{
public:
    QuietLibraries()
    {
        CPLPushErrorHandler(CPLQuietErrorHandler);
#if GDAL_VERSION_NUM >= GDAL_COMPUTE_VERSION(3, 4, 0)
        OSRSetPROJEnableNetwork(0);
#endif
    }
    ~QuietLibraries()
    {
        CPLPopErrorHandler();
    }
    QuietLibraries(const QuietLibraries&) = delete;
    QuietLibraries& operator=(const QuietLibraries&) = delete;
};

} // namespace Quillmoran

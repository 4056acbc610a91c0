// A loadable module of its own: the library that understands coordinate systems takes several times as long
// to load as a small file takes to decode, and only verbose runs need it.
#include "wkt/PrettyWKT.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <cstring>
#include <ogr_spatialref.h>

char* qmPrettyWKT(const char* wkt)
{
    OGRSpatialReference reference;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    char* pretty = nullptr;
    const bool understood =
        reference.SetFromUserInput(wkt) == OGRERR_NONE && reference.exportToPrettyWkt(&pretty) == OGRERR_NONE;
    CPLPopErrorHandler();
    char* copy = understood ? strdup(pretty) : nullptr;
    CPLFree(pretty);
    return copy;
}

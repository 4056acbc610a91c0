// The functions that RemoteFile calls in the modules.
#pragma once

#include "remote/RangeSource.h"

#include <vxunpack/Export.h>

extern "C" {

// A file of HTTP or HTTPS, owned by the caller.
QM_API Quillmoran::RangeSource* qmMakeHTTPSource(const char* url,
                                                 const Quillmoran::RangeSource::Environment& environment);
// A file of a virtual file system of GDAL, owned by the caller.
QM_API Quillmoran::RangeSource* qmMakeVSISource(const char* path,
                                                const Quillmoran::RangeSource::Environment& environment);
}

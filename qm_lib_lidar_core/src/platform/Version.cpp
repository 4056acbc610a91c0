#include "platform/Version.h"

#include "platform/Stream.h"
#include <vxunpack/FileIO.h>

#include <cstring>

namespace Quillmoran {

bool Version::getVexilFileVersion(const unsigned char* preamble, int& generation, bool& raster)
{
    generation = 0;
    raster = false;
    if (std::memcmp(preamble, "vxil", 4) != 0)
        return false;
    const int format = preamble[4];
    const int major = preamble[5];
    raster = format >= 1 && format <= 3;
    generation = !raster ? format : format < 3 ? 2 : major < 4 ? 3 : 4;
    return true;
}

bool Version::getVexilFileVersion(IO* io, int& generation, bool& raster)
{
    unsigned char preamble[preambleSize];
    StreamReader stream; // closes the file on all paths
    stream.init(io, true, preambleSize);
    if (stream.read(preamble, sizeof preamble) != sizeof preamble)
        QM_THROW(ErrorCode::FileProbe, "bad read -- file header");
    return getVexilFileVersion(preamble, generation, raster);
}

bool Version::getVexilFileVersion(const char* path, int& generation, bool& raster)
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(path, "rb");
    return getVexilFileVersion(file.get(), generation, raster);
}

} // namespace Quillmoran

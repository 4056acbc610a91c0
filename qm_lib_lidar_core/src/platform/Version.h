// The version of the library, and the probe that tells whether a file is one of ours.
#pragma once

namespace Quillmoran {

class IO;

class Version
{
public:
    static int getSDKMajorVersion();
    static int getSDKMinorVersion();
    static int getSDKVersionAge();
    static int getSDKBuildNumber();
    static const char* getSDKVersionString(); // "1.1.4.4709"
    static const char* getSDKBuildDate();

    static constexpr int preambleSize = 16; // bytes

    // Looks at the first 16 bytes of a file. False, generation 0, when the magic is another one; else the
    // generation of the format. `raster` tells generations before the LiDAR format. A store or file that is
    // shorter is FileProbe "bad read -- file header".
    static bool getVexilFileVersion(const unsigned char* preamble, int& generation, bool& raster);
    static bool getVexilFileVersion(IO* io, int& generation, bool& raster);
    static bool getVexilFileVersion(const char* path, int& generation, bool& raster);
};

} // namespace Quillmoran

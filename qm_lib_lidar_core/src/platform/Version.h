// The version of the library, and the detection of .vxl files.
#pragma once

namespace Quillmoran {

class IO;

class Version
{
public:
    static constexpr int getSDKMajorVersion() { return 1; }
    static constexpr int getSDKMinorVersion() { return 1; }
    static constexpr int getSDKVersionAge() { return 4; }
    static constexpr int getSDKBuildNumber() { return 4709; }
    static constexpr const char* getSDKVersionString() { return "1.1.4.4709"; }
    static constexpr const char* getSDKBuildDate() { return "Dec 21 2017"; }

    static constexpr int preambleSize = 16; // bytes

    // Checks the first 16 bytes of a file. False, with generation 0, for another magic; else the generation
    // of the format. `raster` is set for generations before the LiDAR format. FileProbe "bad read -- file
    // header" if the file is shorter.
    static bool getVexilFileVersion(const unsigned char* preamble, int& generation, bool& raster);
    static bool getVexilFileVersion(IO* io, int& generation, bool& raster);
    static bool getVexilFileVersion(const char* path, int& generation, bool& raster);
};

} // namespace Quillmoran

// What a LAS writer puts in front of the points: the header and the variable length records, made from the
// layout, the metadata and the coordinate system of what is written.
#pragma once

#include "las/LASHeader.h"
#include <vxunpack/Metadata.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <vector>

namespace Quillmoran {

struct LASFileHead
{
    // What the file is to be.
    struct Request
    {
        int version = -1; // 10 * major + minor, whatever that is; -1 chooses by the layout
        bool compressed = false;
        bool overrideProjection = false; // the coordinate system is `wkt`, whatever the metadata has
        const double* scale = nullptr;   // of X, Y and Z
        const double* offset = nullptr;
        const char* wkt = nullptr; // may stay null
    };

    LASHeader header;
    bool losesCoordinateSystem = false; // there is one that the file cannot hold
    std::vector<unsigned char> records; // the variable length records as they stand in the file

    // Counts and bounds are left at what the metadata says. The coordinate system is that of the metadata's
    // projection records where there are any, else `wkt`: as WKT from LAS 1.4 on, translated to GeoTIFF keys
    // before.
    static LASFileHead make(const PointInfo& layout, const Metadata& metadata, const Request& request);

    // The point format for a layout, and the first LAS version that has it (10 * major + minor).
    static LASPointFormat chooseFormat(const PointInfo& layout);
    static int chooseVersion(const PointInfo& layout);

private:
    void setIdentity(int version);
    bool copyProjection(const Metadata& metadata);
    void addCoordinateSystem(const char* wkt);
    void addGeoTIFFKeys(const char* wkt);
    // False if the value is too long for a record.
    bool addRecord(const char* userID, std::uint16_t recordID, const char* description, const void* value,
                   std::size_t length);
    void appendRecord(const std::vector<unsigned char>& record);
    void setEncoding(LASHeader::GlobalEncoding bit, bool on);
};

} // namespace Quillmoran

// What a LAS writer writes before the points: the header and the VLRs, made from the layout, the metadata and
// the coordinate system of the points.
#pragma once

#include "las/header/LASHeader.h"
#include <vxunpack/Metadata.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <vector>

namespace Quillmoran {

struct LASFileHead
{
    struct Request
    {
        int version = -1; // 10 * major + minor, any value; -1: by the layout
        bool compressed = false;
        bool overrideProjection = false; // uses `wkt` and not the projection VLRs of the metadata
        const double* scale = nullptr;   // of X, Y and Z
        const double* offset = nullptr;
        const char* wkt = nullptr; // optional
    };

    LASHeader header;
    bool losesCoordinateSystem = false; // the file cannot hold the coordinate system
    std::vector<unsigned char> records; // the VLRs as they are in the file

    // Counts and bounds are 0. The coordinate system is that of the metadata's projection VLRs if there are
    // any, else `wkt`: as WKT in LAS 1.4, translated to GeoTIFF keys in earlier versions.
    static LASFileHead make(const PointInfo& layout, const Metadata& metadata, const Request& request);

    // The point format for a layout, and the version that is written for it (10 * major + minor).
    static LASPointFormat chooseFormat(const PointInfo& layout);
    static int chooseVersion(const PointInfo& layout);

private:
    void setIdentity(int version);
    bool copyProjection(const Metadata& metadata);
    void addCoordinateSystem(const char* wkt);
    void addGeoTIFFKeys(const char* wkt);
    // False if the value is too long for a VLR.
    bool addRecord(const char* userID, std::uint16_t recordID, const char* description, const void* value,
                   std::size_t length);
    void appendRecord(const std::vector<unsigned char>& record);
    void setEncoding(LASHeader::GlobalEncoding bit, bool on);
};

} // namespace Quillmoran

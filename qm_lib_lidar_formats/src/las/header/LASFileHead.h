// What a LAS writer writes before the points: the header and the VLRs, made from the layout, the metadata and
// the coordinate system of the points.
#pragma once

#include "las/header/LASHeader.h"
#include "las/points/LASExtraBytes.h"
#include <vxunpack/Metadata.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <string>
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
        bool restores = false;     // see makeRestoredHead()
    };

    LASHeader header;
    bool losesCoordinateSystem = false; // the file cannot hold the coordinate system
    std::vector<unsigned char> records; // the VLRs, and padding, as they are in the file
    // Keys of metadata records with VLRs that the file does not have.
    std::vector<std::string> leftOut;

    // Only of restored files.
    std::vector<LASExtraField> extraFields; // of the channels that are not in the point format
    std::vector<unsigned char> block;       // of a header that `header` replaces in part; empty: in whole
    bool hasForeignChunkIndex = false;      // a kept VLR describes the chunks of another compressed file
    bool keepsCounts = false;               // the counts and bounds of the header hold for all points
    std::vector<unsigned char> gap;         // between the points and the EVLRs
    std::vector<unsigned char> extended;    // the EVLRs, and bytes after them

    // Counts and bounds are 0. The coordinate system is that of the metadata's projection VLRs if there are
    // any, else `wkt`: as WKT in LAS 1.4, translated to GeoTIFF keys in earlier versions.
    static LASFileHead make(const PointInfo& layout, const Metadata& metadata, const Request& request);

    // The header block as it is in the file.
    std::vector<unsigned char> writeHeader(const LASHeader& completed) const
    {
        return block.empty() ? completed.write() : completed.writeOver(block);
    }

    // The point format for a layout, and the version that is written for it (10 * major + minor).
    static LASPointFormat chooseFormat(const PointInfo& layout);
    static int chooseVersion(const PointInfo& layout);

    // The steps of make().

    // Sets version, sizes, software and date.
    void setIdentity(int version);
    // Whether there are projection VLRs that the point format can have.
    bool copyProjection(const Metadata& metadata);
    void addCoordinateSystem(const char* wkt);
    // False if the value is too long for a VLR.
    bool addRecord(const char* userID, std::uint16_t recordID, const char* description, const void* value,
                   std::size_t length);
    void appendRecord(const std::vector<unsigned char>& record);
    void setEncoding(LASHeader::GlobalEncoding bit, bool on);

private:
    // Adds the VLRs that the file does not have, but those of the coordinate system, to `leftOut`.
    void listOthers(const Metadata& metadata);
    void addGeoTIFFKeys(const char* wkt);
};

} // namespace Quillmoran

// An open .vxl file of which JavaScript adds the bytes.
//
// Every function may throw BytesMissing: it has then done nothing, and is called again when these bytes are
// added.
#pragma once

#include "RangeFile.h"
#include <vxunpack/Bounds.h>
#include <vxunpack/Metadata.h>
#include <vxunpack/PointData.h>
#include <vxunpack/VX7PointReader.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

class Session
{
public:
    struct PointRange // as indices at a level
    {
        std::int64_t start;
        std::int64_t length;
    };

    explicit Session(std::int64_t fileSize) : m_file(RangeFile::create(fileSize)) {}

    RangeFile& getFile() noexcept { return *m_file; }

    // Called before the following functions. Also reads the metadata and compares all descriptions with their
    // digest. The bytes that it reads stay in memory. Throws the errors of the reader.
    void open();
    const VX7PointReader& getReader() const noexcept { return *m_reader; }
    const Metadata& getMetadata() const noexcept { return m_metadata; }
    // The error of reading the metadata, which is then empty or incomplete; otherwise empty.
    const std::string& getMetadataFailure() const noexcept { return m_metadataFailure; }
    std::uint32_t getNumLevels() const;

    // The ranges of points of a level that can be in a box. Throws InvalidArgument for an unknown level, and
    // the errors of the index.
    std::vector<PointRange> findRanges(std::uint32_t level, const Bounds& box) const;

    // Decodes these ranges, which are sorted and disjoint, drops the points outside the box, and returns the
    // number of points. X, Y and Z are decoded, and after them the channels with these indices. With
    // `verifies`, blocks of level 0 that are decoded completely are compared with their digests. Throws
    // InvalidArgument for ranges outside the level, NoSuchChannel, and the errors of the reader.
    std::size_t decode(std::uint32_t level, const std::vector<PointRange>& ranges, const Bounds& box,
                       const std::vector<std::size_t>& channels, bool verifies);
    // The points that were decoded last.
    const PointData& getPoints() const noexcept { return m_points; }

private:
    void checkLevel(std::uint32_t level) const;
    PointInfo chooseLayout(const std::vector<std::size_t>& channels) const;

    const Scoped<RangeFile> m_file;
    Scoped<VX7PointReader> m_reader; // null until open() succeeds
    Metadata m_metadata;
    std::string m_metadataFailure;
    PointData m_points;
};

} // namespace Quillmoran

// Delivers the points of one query of a LAS or LAZ file: reads its records in order, a slice at a time, and
// unpacks the wanted channels of the points that the box and the sampling keep. With several threads the chunks
// of a LAZ file are decoded ahead.
#pragma once

#include "las/LASReadAhead.h"
#include "las/points/LASExtraBytes.h"
#include "las/points/LASRecordReader.h"
#include "las/points/LASUnpacker.h"
#include "platform/OpenIO.h"
#include <vxunpack/PointIterator.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class LASPointIterator final : public PointIterator
{
public:
    // The file that is read.
    struct File
    {
        IO* io; // retained
        const LASHeader& header;
        const LASzipChunks& chunks;
        const PointInfo& channels;
        const std::vector<LASExtraField>& extraFields;
        std::vector<bool> wantedChunks; // of the table; empty: all
    };

    // See LASPointReader::createIterator for the errors.
    LASPointIterator(File file, const Bounds& bounds, double fraction, const PointInfo& layout,
                     ProgressDelegate* delegate);
    // A sample of the points from the one with this index on. Compressed points need a chunk table.
    LASPointIterator(File file, std::uint64_t first, const PointInfo& layout);

    // Checks the delegate once per slice, and throws Cancelled "operation cancelled." if it asks to stop.
    std::size_t getNextPoints(PointData& buffer) override;

private:
    LASPointIterator(File&& file, const PointInfo& layout);

    void chooseSlice(std::size_t maxPoints);
    bool refill();
    bool nextSlice();
    void openReader();
    // Continues at the next chunk that is wanted; returns the end of the wanted chunks from there on.
    std::uint64_t skipUnwanted();
    void readSlice(std::size_t count);
    void takeAhead();
    void copyRun(PointData& buffer, std::size_t filled, std::size_t first, std::size_t count) const;

    const OpenIO m_io;
    const LASHeader m_header;
    const LASzipChunks m_chunks;
    const std::vector<bool> m_wantedChunks;
    const PointInfo m_layout;
    const LASUnpacker m_unpacker;
    std::uint64_t m_numPoints = 0;
    std::uint64_t m_next = 0; // point to read

    // The current slice, or what was taken of it.
    std::size_t m_sliceSize = 0; // points
    std::size_t m_sliceLeft = 0; // points that are decoded ahead and not taken
    const double* m_coordinates[3] = {};
    std::size_t m_cursor = 0;
    std::size_t m_fill = 0;

    // Read here,
    std::unique_ptr<LASRecordReader> m_reader;
    std::vector<unsigned char> m_records;
    std::vector<double> m_ownCoordinates[3];
    // or ahead; null when it is not suitable or has failed.
    std::unique_ptr<LASReadAhead> m_ahead;
    LASReadAhead::Run m_run{};
};

} // namespace Quillmoran

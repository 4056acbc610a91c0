// For tests of BPF files: a parser of uncompressed files, independent of the code under test, and functions
// that read sources to columns of doubles.
#pragma once

#include "platform/ByteOrder.h"
#include "support/SetOfSources.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

using Columns = std::map<std::string, std::vector<double>>;

struct BPFTestFile
{
    int numPoints = 0, coordinateKind = 0, zone = 0;
    std::vector<std::string> labels;
    std::vector<double> offsets, minima, maxima;
    Columns columns; // by label

    static BPFTestFile parse(const std::string& bytes)
    {
        const auto integer = [&](std::size_t at) { return loadLittleEndian<std::int32_t>(&bytes.at(at)); };
        const auto real = [&](std::size_t at) { return loadLittleEndian<double>(&bytes.at(at)); };
        BPFTestFile file;
        if (bytes.substr(0, 8) != "BPF!0003" || bytes.at(13) != 1 || bytes[14] != 0)
            throw std::runtime_error("not an uncompressed BPF file, point by point");
        const auto count = static_cast<std::size_t>(static_cast<unsigned char>(bytes[12]));
        file.numPoints = integer(16);
        file.coordinateKind = integer(20);
        file.zone = integer(24);
        const auto points = static_cast<std::size_t>(file.numPoints);
        for (std::size_t d = 0; d < count; ++d) {
            file.offsets.push_back(real(176 + 8 * d));
            file.minima.push_back(real(176 + 8 * (count + d)));
            file.maxima.push_back(real(176 + 8 * (2 * count + d)));
            file.labels.push_back(bytes.substr(176 + 24 * count + 32 * d, 32).c_str());
            auto& column = file.columns[file.labels.back()];
            for (std::size_t p = 0; p < points; ++p) {
                const std::size_t at = static_cast<std::size_t>(integer(8)) + 4 * (p * count + d);
                column.push_back(static_cast<double>(loadLittleEndian<float>(&bytes.at(at))) +
                                 file.offsets[d]);
            }
        }
        file.transform(
            [&](int row, int column) { return real(32 + static_cast<std::size_t>(row * 4 + column) * 8); });
        return file;
    }

private:
    template <class Matrix>
    void transform(Matrix m)
    {
        for (std::size_t p = 0; p < columns["X"].size(); ++p) {
            const double x = columns["X"][p], y = columns["Y"][p], z = columns["Z"][p];
            const auto row = [&](int i) { return x * m(i, 0) + y * m(i, 1) + z * m(i, 2) + m(i, 3); };
            const double w = row(3);
            columns["X"][p] = row(0) / w;
            columns["Y"][p] = row(1) / w;
            columns["Z"][p] = row(2) / w;
        }
    }
};

// The result of a query, by channel.
inline Columns readColumns(const PointSource& source, const PointInfo& layout,
                           const Bounds& box = Bounds::Huge(), double fraction = 1,
                           ProgressDelegate* delegate = nullptr)
{
    Columns columns;
    for (const auto& row : readRows(source, layout, box, fraction, 1000, delegate))
        for (std::size_t c = 0; c < row.size(); ++c)
            columns[layout.getChannel(c).getName()].push_back(row[c]);
    return columns;
}

inline Columns readColumns(const PointSource& source)
{
    return readColumns(source, source.getPointInfo());
}

} // namespace Quillmoran::Testing

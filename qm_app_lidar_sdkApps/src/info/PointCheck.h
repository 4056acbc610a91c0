// Compares all points of a source with its description: the number of points, their bounds and, in compressed
// files, the index. Memory use is constant.
#pragma once

#include <vxunpack/PointSource.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Quillmoran {

class PointCheck
{
public:
    explicit PointCheck(const PointSource& source);

    // Adds the next points, in the order of the file, with any layout.
    void add(const PointData& block, std::size_t count);
    // After the last point: queries a few boxes and compares the numbers of points with those counted in the
    // boxes.
    void finish(ProgressDelegate* delegate);
    // The work of finish(), as PointSource::getTotalWork() counts it.
    double getWork() const;

    long long getNumPoints() const noexcept { return m_numPoints; }
    std::size_t getNumQueries() const noexcept { return m_boxes.size(); }
    // One sentence each; empty for a sound file.
    const std::vector<std::string>& getProblems() const noexcept { return m_problems; }

private:
    struct CountedBox
    {
        Bounds box;
        Bounds wide; // the box as widened by queries
        long long numPoints = 0;
    };

    void chooseBoxes();
    void checkBox(const CountedBox& counted, ProgressDelegate* delegate);
    void addProblem(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const PointSource& m_source;
    PointInfo m_xyz;
    Bounds m_allowed;
    long long m_numPoints = 0;
    long long m_numOutside = 0;
    struct
    {
        long long index = 0;
        double x = 0, y = 0, z = 0;
    } m_firstOutside;
    std::vector<CountedBox> m_boxes;
    std::vector<std::string> m_problems;
};

} // namespace Quillmoran

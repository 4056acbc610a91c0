// Chooses the order of the points that makes the smallest file: encodes samples of the points in each order and
// compares the sizes.
//
// The effect of an order depends on the density of the points, and on how flight lines and tiles divide them,
// so a sample is all points of a square, in the order of the source. The squares have about the same number
// of points, and are where the points are. A small cloud is its own sample.
#pragma once

#include <vxunpack/EncodeOptions.h>
#include <vxunpack/PointOrder.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {

class OrderChooser
{
public:
    static constexpr std::pair<Order, const char*> names[] = {
        {Order::Input, "input"}, {Order::Time, "time"}, {Order::Hilbert, "hilbert"}};

    struct Limits
    {
        std::size_t points = 1 << 20; // of all samples
        std::size_t bytes = 32 << 20; // memory of the samples
        std::size_t samples = 4;
    };
    // The points and channels of the file.
    struct Query
    {
        Bounds bounds;
        double fraction;
        PointInfo layout;
    };

    OrderChooser(PointSource& source, const Query& query, const EncodeOptions& options)
        : m_source(source), m_query(query), m_options(options)
    {}
    void setLimits(const Limits& limits) { m_limits = limits; }

    // The order of the smallest file, or Input if sorting makes the file less than 1 % smaller. Throws the errors of the source and
    // of VX7PointWriter. The delegate may be null; it gets no warnings.
    Order choose(ProgressDelegate* delegate);
    // The result of choose() and the reason, as in
    // "order: time (estimated 826 kB; input 1,010 kB, hilbert 1,193 kB)"
    std::string describe() const;

private:
    class Sample;
    struct Estimate
    {
        Order order;
        double size; // bytes of the file
    };
    struct Size // bytes
    {
        double file = 0, channels = 0;
    };

    std::vector<Sample> readSamples(ProgressDelegate* delegate);
    std::vector<Bounds> chooseSquares(double pointsOfEach, ProgressDelegate* delegate);
    Size measure(PointSource& source, const Query& query, Order order, double numPoints,
                 ProgressDelegate* delegate) const;

    PointSource& m_source;
    const Query m_query;
    const EncodeOptions m_options;
    Limits m_limits;
    double m_numPoints = 0;            // estimated, of the query
    std::vector<Estimate> m_estimates; // Input first; without Time if there are no GPS times
    Order m_chosen = Order::Input;
};

} // namespace Quillmoran

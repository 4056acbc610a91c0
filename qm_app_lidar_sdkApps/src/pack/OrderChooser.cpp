#include "pack/OrderChooser.h"

#include "model/ChannelNames.h"
#include "sdk/GeneratedSource.h"
#include "utils/sets/Make.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/TimeOrder.h>
#include <vxunpack/VX7PointWriter.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>

namespace Quillmoran {

namespace {

constexpr const char* activity = "choosing the order of the points";
// A gain of less is not worth the time of sorting.
constexpr double minGain = 0.01;
constexpr std::size_t densityPoints = 1 << 18; // read for the size of the squares
constexpr std::size_t blockPoints = 16384;
constexpr double spareCapacity = 1.25; // of a sample, since the number of points in a square is estimated

// An output that is only measured.
class MeasuringIO final : public IO
{
public:
    void open() override {}
    void close() override {}
    std::size_t pread(std::int64_t, void*, std::size_t) const override { return 0; }
    std::size_t pwrite(std::int64_t offset, const void*, std::size_t count) const override
    {
        const std::int64_t end = offset + static_cast<std::int64_t>(count);
        std::int64_t size = m_size;
        while (size < end && !m_size.compare_exchange_weak(size, end)) {
        }
        return count;
    }
    std::int64_t size() const override { return m_size; }
    void truncate(std::int64_t length) override { m_size = length; }
    void unlink() override {}

private:
    mutable std::atomic<std::int64_t> m_size = 0;
};

// Reports one of several steps as work on `points` points, and shows no warnings: writing the file repeats them.
class Step final : public ProgressDelegate
{
public:
    Step(ProgressDelegate* whole, double points) : m_whole(whole), m_points(points) {}
    ~Step() override { reportProgress(1, activity); }

    void reportProgress(double fraction, const char*) override
    {
        fraction = std::min(fraction, 1.0);
        if (!m_whole || !(fraction > m_reported))
            return;
        m_whole->updateCompleted((fraction - m_reported) * m_points, activity);
        m_reported = fraction;
    }
    bool getCancelled() override { return m_whole && m_whole->getCancelled(); }

private:
    ProgressDelegate* m_whole;
    double m_points;
    double m_reported = 0; // fraction
};

// "1,010 kB"
std::string formatKilobytes(double bytes)
{
    std::string digits = std::to_string(std::llround(bytes / 1000));
    for (std::size_t end = digits.size(); end > 3; end -= 3)
        digits.insert(end - 3, 1, ',');
    return digits + " kB";
}

Bounds intersection(const Bounds& a, const Bounds& b)
{
    const auto both = [](const Bounds::Range& one, const Bounds::Range& other) {
        return Bounds::Range{std::max(one.min, other.min), std::min(one.max, other.max)};
    };
    return {both(a.x, b.x), both(a.y, b.y), both(a.z, b.z)};
}

} // namespace

// The points of a square, in memory.
class OrderChooser::Sample
{
public:
    Sample(const Bounds& square, const PointInfo& layout, std::size_t capacity)
        : m_square(square), m_layout(layout), m_points(std::make_shared<PointData>())
    {
        m_points->init(layout, capacity);
    }

    // Appends the points of a block that are in the square, up to the capacity.
    void append(const PointData& block, std::size_t count)
    {
        const auto isInside = [&](std::size_t i) {
            return m_square.contains(block.getX()[i], block.getY()[i], 0);
        };
        for (std::size_t first = 0; first < count;) {
            std::size_t end = first;
            while (end < count && isInside(end))
                ++end;
            const std::size_t taken = std::min(end - first, m_points->getNumSamples() - m_count);
            if (taken != 0)
                PointData::copy(*m_points, m_count, block, first, taken);
            m_count += taken;
            first = end + 1; // the point that ended the range is outside
        }
    }

    const Bounds& getSquare() const { return m_square; }
    std::size_t getNumPoints() const { return m_count; }
    Scoped<PointSource> toSource() const
    {
        const auto fill = [points = m_points, layout = m_layout](std::uint64_t first,
                                                                 const vx::MutableBlock& block) {
            for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
                const ChannelData& from = points->getChannel(i);
                const std::size_t size = DataTypeUtils::getSize(from.getDataType());
                std::memcpy(block.samples(from.getName()),
                            static_cast<const unsigned char*>(from.getData()) + first * size,
                            block.size() * size);
            }
        };
        return Scoped<PointSource>(GeneratedSource::create(m_layout, m_count, m_square, fill, false));
    }

private:
    Bounds m_square; // unbounded in Z
    PointInfo m_layout;
    std::shared_ptr<PointData> m_points;
    std::size_t m_count = 0;
};

Order OrderChooser::choose(ProgressDelegate* delegate)
{
    m_estimates = {{Order::Input, 0}};
    if (TimeOrder::findTime(m_source.getPointInfo()))
        m_estimates.push_back({Order::Time, 0});
    m_estimates.push_back({Order::Hilbert, 0});

    const std::vector<Sample> samples = readSamples(delegate);
    double sampled = 0; // points
    for (const Sample& sample : samples)
        sampled += static_cast<double>(sample.getNumPoints());
    for (Estimate& estimate : m_estimates) {
        if (sampled == 0) {
            estimate.size = measure(m_source, m_query, estimate.order, m_numPoints, delegate).file;
            continue;
        }
        Size size;
        double channels = 0;
        for (const Sample& sample : samples) {
            const Query all{Bounds::Huge(), 1, m_query.layout};
            const auto count = static_cast<double>(sample.getNumPoints());
            size = measure(*sample.toSource(), all, estimate.order, count, delegate);
            channels += size.channels;
        }
        estimate.size = channels * m_numPoints / sampled + (size.file - size.channels);
    }
    const auto best = std::min_element(m_estimates.begin(), m_estimates.end(),
                                       [](const Estimate& a, const Estimate& b) { return a.size < b.size; });
    m_chosen = best->size < (1 - minGain) * m_estimates[0].size ? best->order : Order::Input;
    return m_chosen;
}

std::string OrderChooser::describe() const
{
    std::string chosen, others;
    bool hasTime = false;
    for (const Estimate& estimate : m_estimates) {
        const std::string size = formatKilobytes(estimate.size);
        const char* const name = names[static_cast<std::size_t>(estimate.order)].second;
        hasTime |= estimate.order == Order::Time;
        if (estimate.order == m_chosen)
            chosen = std::string(name) + " (estimated " + size;
        else
            others += std::string(others.empty() ? "; " : ", ") + name + ' ' + size;
    }
    const auto isSmaller = [this](const Estimate& each) { return each.size < m_estimates[0].size; };
    const bool isTie =
        m_chosen == Order::Input && std::any_of(m_estimates.begin(), m_estimates.end(), isSmaller);
    return "order: " + chosen + others + (hasTime ? "" : "; no GPS times") +
           (isTie ? "; sorting gains less than 1 %)" : ")");
}

// None if all points are to be measured.
std::vector<OrderChooser::Sample> OrderChooser::readSamples(ProgressDelegate* delegate)
{
    PointInfo layout = m_query.layout;
    const ChannelInfo* const time = TimeOrder::findTime(m_source.getPointInfo());
    if (time && !layout.hasChannel(time->getName()))
        layout.append(*time);
    const std::size_t capacity = std::min(m_limits.points, m_limits.bytes / layout.getPointSize());
    const auto numOrders = static_cast<double>(m_estimates.size());
    m_numPoints = m_source.estimatePoints(m_query.bounds, std::min(m_query.fraction, 1.0));
    if (delegate)
        delegate->setTotal(m_numPoints * numOrders);
    if (m_numPoints <= static_cast<double>(capacity))
        return {};

    if (delegate)
        delegate->setTotal(2 * m_numPoints + static_cast<double>(capacity) * numOrders);
    const std::size_t capacityOfEach = std::max<std::size_t>(capacity / m_limits.samples, 1);
    std::vector<Sample> samples;
    for (const Bounds& square : chooseSquares(static_cast<double>(capacityOfEach) / spareCapacity, delegate))
        samples.emplace_back(square, layout, capacityOfEach);
    if (m_numPoints <= static_cast<double>(capacity))
        return {};

    // Sources with an index read only the squares.
    std::vector<Bounds> queries;
    double work = 0;
    for (const Sample& sample : samples) {
        queries.push_back(intersection(m_query.bounds, sample.getSquare()));
        work += m_source.getTotalWork(queries.back(), m_query.fraction);
    }
    if (const double whole = m_source.getTotalWork(m_query.bounds, m_query.fraction); work >= whole) {
        queries = {m_query.bounds};
        work = whole;
    }
    PointData block;
    block.init(layout, layout.getBlockPoints(blockPoints));
    Step step(delegate, m_numPoints);
    step.setTotal(work);
    for (std::size_t i = 0; i < queries.size(); ++i) {
        const Scoped<PointIterator> points(
            m_source.createIterator(queries[i], m_query.fraction, layout, &step));
        while (const std::size_t count = points->getNextPoints(block)) {
            if (step.getCancelled())
                QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
            for (std::size_t j = 0; j < samples.size(); ++j)
                if (queries.size() == 1 || i == j)
                    samples[j].append(block, count);
        }
    }
    return samples;
}

// Squares with about this number of points, around points that are spread evenly over the source. Finds the
// number of points, too, which differs from the expected one if a filter drops some.
std::vector<Bounds> OrderChooser::chooseSquares(double pointsOfEach, ProgressDelegate* delegate)
{
    PointInfo layout;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z})
        layout.append(*m_source.getChannel(name));
    PointData evenly;
    evenly.init(layout, densityPoints);
    Step step(delegate, m_numPoints);
    const bool isCounted = m_source.getNumPoints() != PointSource::unknownNumPoints;
    const double expected = m_source.estimatePoints(m_query.bounds, 1);
    const std::size_t seen = m_source.read(m_query.bounds, evenly, &step);
    m_numPoints = isCounted ? m_numPoints * std::min(1.0, static_cast<double>(seen) /
                                                              std::min(expected, double{densityPoints}))
                            : static_cast<double>(seen) * std::min(m_query.fraction, 1.0);

    std::vector<std::size_t> finite;
    for (std::size_t i = 0; i < std::min(seen, densityPoints); ++i)
        if (std::isfinite(evenly.getX()[i]) && std::isfinite(evenly.getY()[i]))
            finite.push_back(i);
    std::vector<Bounds> squares;
    std::vector<double> distances(finite.size());
    const auto near = static_cast<std::size_t>(std::min(pointsOfEach / m_numPoints, 1.0) *
                                               static_cast<double>(finite.size()));
    for (std::size_t i = 0; i < m_limits.samples && near < finite.size(); ++i) {
        const std::size_t centre = finite[(2 * i + 1) * finite.size() / (2 * m_limits.samples)];
        const double x = evenly.getX()[centre], y = evenly.getY()[centre];
        for (std::size_t j = 0; j < finite.size(); ++j)
            distances[j] =
                std::max(std::fabs(evenly.getX()[finite[j]] - x), std::fabs(evenly.getY()[finite[j]] - y));
        std::nth_element(distances.begin(), distances.begin() + static_cast<std::ptrdiff_t>(near),
                         distances.end());
        Bounds square = Bounds::Huge();
        square.x = {x - distances[near], x + distances[near]};
        square.y = {y - distances[near], y + distances[near]};
        squares.push_back(square);
    }
    return squares;
}

OrderChooser::Size OrderChooser::measure(PointSource& source, const Query& query, Order order,
                                         double numPoints, ProgressDelegate* delegate) const
{
    const Scoped<MeasuringIO> output(new MeasuringIO);
    const Scoped<PointSource> sorted = PointOrder::sort(&source, order);
    const auto writer = make<VX7PointWriter>(sorted.get(), output.get());
    writer->setQuantization(m_source.getScale(), m_source.getOffset());
    writer->setOptions(m_options);
    Step step(delegate, numPoints);
    writer->write(query.bounds, query.fraction, query.layout, &step);
    Size size;
    size.file = static_cast<double>(writer->getFileSize());
    for (const VX7PointWriter::ChannelSummary& channel : writer->getSummary())
        size.channels += static_cast<double>(channel.size);
    return size;
}

} // namespace Quillmoran

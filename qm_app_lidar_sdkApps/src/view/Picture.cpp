#include "view/Picture.h"

#include "utils/sets/PointScan.h"
#include "view/GapFilling.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

// More points are hardly visible: the distance of these is about three cells. They would take twice the time to decode.
constexpr double pointsPerCell = 0.09;
// It does not pay to leave out some of so few points.
constexpr double fewPoints = 65536;

bool isFinite(const Bounds::Range& range)
{
    return std::isfinite(range.min) && std::isfinite(range.max);
}

// In pixels. The more points there are, the smaller are the dots of a section.
std::size_t chooseDotRadius(const CellPoints& points)
{
    constexpr double crowded = 1.0 / 16; // points per cell
    const auto numCells = static_cast<double>(points.cells.size());
    const auto scale = static_cast<std::size_t>(std::sqrt(numCells) / 1000) + 1;
    return static_cast<double>(points.numShown) < numCells * crowded ? scale : scale - 1;
}

class PictureMaker
{
public:
    PictureMaker(const ViewedPoints& points, const ViewOptions& options, ProgressDelegate* delegate)
        : m_points(points), m_source(*points.source), m_options(options), m_delegate(delegate)
    {}

    Picture make();

private:
    void setBounds();
    void project();
    double chooseFraction() const;
    double countPoints() const;
    CellPoints read();
    bool shrink(const CellPoints& found);

    const ViewedPoints& m_points;
    const PointSource& m_source;
    const ViewOptions& m_options;
    ProgressDelegate* const m_delegate;

    Bounds m_bounds; // of the points that may be drawn
    Picture m_picture;
};

void PictureMaker::setBounds()
{
    m_bounds = m_source.getBounds();
    if (m_source.getNumPoints() == 0)
        QM_THROW(ErrorCode::General, "'%s' has no points", m_points.name.c_str());
    if (!isFinite(m_bounds.x) || !isFinite(m_bounds.y) || !isFinite(m_bounds.z)) {
        const char* const names[] = {"X", "Y", "Z"};
        PointInfo layout;
        layout.init(m_source.getPointInfo(), names, std::size(names));
        m_bounds = Bounds();
        scanPoints(m_source, Bounds::Huge(), layout, m_delegate,
                   [&](const PointData& block, std::size_t count) {
                       for (std::size_t i = 0; i < count; ++i) {
                           m_bounds.x.grow(block.getX()[i]);
                           m_bounds.y.grow(block.getY()[i]);
                           m_bounds.z.grow(block.getZ()[i]);
                       }
                   });
    }
    const auto restrict = [&](Bounds::Range& range, const Bounds::Range& wanted) {
        range = {std::max(range.min, wanted.min), std::min(range.max, wanted.max)};
        if (!(range.min <= range.max))
            QM_THROW(ErrorCode::General, "no points of '%s' are in the box", m_points.name.c_str());
    };
    restrict(m_bounds.x, m_options.box.x);
    restrict(m_bounds.y, m_options.box.y);
    restrict(m_bounds.z, m_options.box.z);
}

// The number of points in the picture if all are read.
double PictureMaker::countPoints() const
{
    Bounds box = m_options.box;
    const Projection& projection = m_picture.projection;
    double share = 1;
    if (projection.view == View::Section && m_options.profile) {
        const Bounds around = boxOf(projection);
        box.x = {std::max(box.x.min, around.x.min), std::min(box.x.max, around.x.max)};
        box.y = {std::max(box.y.min, around.y.min), std::min(box.y.max, around.y.max)};
        const double area = lengthOf(around.x) * lengthOf(around.y);
        if (std::isfinite(area) && area > 0)
            share = std::min(1.0, projection.corridor.length() * projection.corridor.width / area);
    }
    return m_source.estimatePoints(box, share);
}

void PictureMaker::project()
{
    Projection projection;
    projection.view = m_options.view;
    projection.across = m_bounds.x;
    projection.up = m_bounds.y;
    if (projection.view == View::Section) {
        // The whole cloud from the south is a section along its southern border.
        constexpr double infinity = std::numeric_limits<double>::infinity();
        projection.corridor = m_options.profile.value_or(
            Corridor{m_bounds.x.min, m_bounds.y.min, std::max(m_bounds.x.max, m_bounds.x.min + 1e-9),
                     m_bounds.y.min, infinity});
        projection.across = {0, m_options.profile ? projection.corridor.length() : lengthOf(m_bounds.x)};
        const double margin = lengthOf(m_bounds.z) * 0.03;
        projection.up = {m_bounds.z.min - margin, m_bounds.z.max + margin};
    }
    m_picture.projection = projection;
    divide(m_picture.projection, m_options.size, countPoints(), m_points.isGeographic, m_points.name);
}

// Powers of two are the levels of a file, and of an overview.
double PictureMaker::chooseFraction() const
{
    if (m_options.fraction)
        return std::min(*m_options.fraction, 1.0);
    const double wanted = static_cast<double>(m_picture.projection.numCells()) * pointsPerCell;
    const double numPoints = countPoints();
    const auto level = [&](double finest) {
        const double spare = numPoints * finest / std::max(wanted, fewPoints);
        return spare > 1 ? std::ldexp(finest, -static_cast<int>(std::log2(spare))) : finest;
    };
    if (m_points.overviewFraction > 0 && numPoints * m_points.overviewFraction >= wanted)
        return level(m_points.overviewFraction);
    return m_points.hasLevels ? level(1) : 1;
}

CellPoints PictureMaker::read()
{
    m_picture.fraction = chooseFraction();
    CellQuery query;
    query.box = m_options.box;
    query.fraction = m_picture.fraction;
    query.usesBoxes = m_points.hasLevels;
    query.activity = m_points.hasLevels ? "drawing points" : "drawing all points: the file has no levels";
    return readCells(m_source, m_picture.projection, m_picture.quantity, query, m_delegate);
}

// Whether the points need much less space than was expected: the header of a file can be wrong, and a corridor can
// have only a part of the heights. The bounds are then those of the points.
bool PictureMaker::shrink(const CellPoints& found)
{
    constexpr double much = 0.6;
    bool isSmaller = false;
    const auto shrinkTo = [&](Bounds::Range& range, const Bounds::Range& seen) {
        const double before = lengthOf(range);
        const Bounds::Range both = {std::max(range.min, seen.min), std::min(range.max, seen.max)};
        if (!(both.min <= both.max) || !(lengthOf(both) < much * before))
            return;
        range = both;
        isSmaller = true;
    };
    if (m_options.view == View::Section) {
        // A part of the points may not have the highest one.
        const double margin = m_picture.fraction < 1 ? lengthOf(found.up) * 0.05 : 0;
        shrinkTo(m_bounds.z, {found.up.min - margin, found.up.max + margin});
    } else if (m_picture.fraction == 1 && m_options.box == Bounds::Huge()) {
        shrinkTo(m_bounds.x, found.across);
        shrinkTo(m_bounds.y, found.up);
    }
    return isSmaller;
}

Picture PictureMaker::make()
{
    m_picture.quantity = m_options.by ? Quantity::parse(*m_options.by, m_source.getPointInfo(), m_points.name)
                                      : Quantity::choose(m_source.getPointInfo());
    setBounds();
    project();
    CellPoints found = read();
    if (shrink(found)) {
        project();
        found = read();
    }
    if (!m_options.by && found.hasOneColor && m_picture.quantity.kind == Quantity::Colors) {
        m_picture.quantity = {};
        found = read();
    }
    if (found.numShown == 0)
        QM_THROW(ErrorCode::General, "no points of '%s' are in the picture", m_points.name.c_str());
    m_picture.numShown = found.numShown;
    m_picture.numWithoutValue = found.numWithoutValue;
    if (m_options.view == View::Top && m_options.box == Bounds::Huge())
        m_picture.numOutside = found.numRead - found.numShown;

    const bool isDensity = m_picture.quantity.kind == Quantity::Density;
    if (!isDensity) // of the points, without the cells between them
        m_picture.shading = chooseShading(m_picture.quantity, found);
    const bool isExact = m_picture.quantity.kind == Quantity::Colors || m_picture.quantity.isNominal();
    if (m_options.view == View::Section)
        growPoints(found.cells, chooseDotRadius(found));
    else
        fillGaps(found.cells, isExact ? Filling::Nearest : Filling::Mean);
    if (isDensity) {
        computeDensity(found.cells, m_picture.projection, m_picture.fraction);
        m_picture.shading = chooseShading(m_picture.quantity, found);
    }
    m_picture.cells = std::move(found.cells);
    return std::move(m_picture);
}

} // namespace

Picture makePicture(const ViewedPoints& points, const ViewOptions& options, ProgressDelegate* delegate)
{
    return PictureMaker(points, options, delegate).make();
}

} // namespace Quillmoran

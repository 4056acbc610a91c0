#include "utils/sets/NamedSource.h"

namespace Quillmoran {

void nameFile(Error& error, const std::string& file)
{
    const std::string text = error.what();
    const bool isNamed = text.find(" path = ") != std::string::npos || text.rfind(file + ':', 0) == 0 ||
                         text.find('\'' + file + '\'') != std::string::npos;
    if (error.code() != ErrorCode::Cancelled && !isNamed)
        error(" path = %s", file.c_str());
}

class NamedSource::Iterator final : public PointIterator
{
public:
    Iterator(PointIterator* points, const std::string& file) : m_points(points), m_file(file) {}

    std::size_t getNextPoints(PointData& buffer) override
    {
        return naming(m_file, [&] { return m_points->getNextPoints(buffer); });
    }

private:
    Scoped<PointIterator> m_points;
    const std::string m_file;
};

Scoped<PointSource> NamedSource::wrap(PointSource* source, const std::string& file)
{
    Scoped<NamedSource> named(new NamedSource(file));
    named->init(source);
    return Scoped<PointSource>(named.detach());
}

const PointSource& NamedSource::unwrap(const PointSource& source)
{
    const auto* named = dynamic_cast<const NamedSource*>(&source);
    return named ? *named->getSrc() : source;
}

void NamedSource::loadMetadata(Metadata& into, bool sanitize) const
{
    naming(m_file, [&] { getSrc()->loadMetadata(into, sanitize); });
}

const Bounds& NamedSource::getBounds() const
{
    return naming(m_file, [&]() -> const Bounds& { return getSrc()->getBounds(); });
}

PointIterator* NamedSource::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                           ProgressDelegate* delegate) const
{
    return naming(m_file, [&] {
        return new Iterator(getSrc()->createIterator(bounds, fraction, layout, delegate), m_file);
    });
}

PointIterator* NamedSource::createSampleIterator(double position, const PointInfo& layout) const
{
    return naming(m_file, [&]() -> PointIterator* {
        PointIterator* const points = getSrc()->createSampleIterator(position, layout);
        return points ? new Iterator(points, m_file) : nullptr;
    });
}

} // namespace Quillmoran

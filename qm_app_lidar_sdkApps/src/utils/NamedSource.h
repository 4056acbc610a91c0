// Errors of a point source that name its file.
#pragma once

#include <vxunpack/PointSource.h>

#include <string>

namespace Quillmoran {

class Error;

// Appends " path = FILE" to an error that names no file. A cancelled operation is left as it is.
void nameFile(Error& error, const std::string& file);

// Shows the wrapped source as it is; its errors, those of its iterators included, name the file.
class NamedSource final : public PointFilter
{
public:
    // Retains the source.
    static Scoped<PointSource> wrap(PointSource* source, const std::string& file);
    // The source itself for one that is not wrapped.
    static const PointSource& unwrap(const PointSource& source);

    void loadMetadata(Metadata& into, bool sanitize) const override;
    const Bounds& getBounds() const override;
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    class Iterator;

    explicit NamedSource(const std::string& file) : m_file(file) {}

    const std::string m_file;
};

} // namespace Quillmoran

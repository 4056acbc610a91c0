// Adds the name of the file to the errors of a point source.
#pragma once

#include <vxunpack/Base.h>
#include <vxunpack/PointSource.h>

#include <string>

namespace Quillmoran {

// Appends " path = FILE" to an error that names no file. Cancelled is left unchanged.
void nameFile(Error& error, const std::string& file);

// Does the work; its errors name the file.
template <class Work>
auto naming(const std::string& file, Work work) -> decltype(work())
{
    try {
        return work();
    } catch (Error& error) {
        nameFile(error, file);
        throw;
    }
}

// Forwards to the wrapped source; errors of the source and its iterators name the file.
class NamedSource final : public PointFilter
{
public:
    // Retains the source.
    static Scoped<PointSource> wrap(PointSource* source, const std::string& file);
    // The wrapped source, or the source itself if it is not wrapped.
    static const PointSource& unwrap(const PointSource& source);

    void loadMetadata(Metadata& into, bool sanitize) const override;
    const Bounds& getBounds() const override;
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override;

private:
    class Iterator;

    explicit NamedSource(const std::string& file) : m_file(file) {}

    const std::string m_file;
};

} // namespace Quillmoran

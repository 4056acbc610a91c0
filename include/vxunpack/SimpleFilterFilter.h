// Passes the points whose value in one integer channel is, or is not, in a set: for example the ground points
// of a survey, or all flight lines but one. The description is the source's own, including its number of
// points. Set up the values first: createIterator() only reads them and may then be called from any thread.
#pragma once

#include <vxunpack/PointSource.h>

#include <set>
#include <string>

namespace Quillmoran {

class QM_API SimpleFilterFilter final : public PointFilter
{
public:
    static SimpleFilterFilter* create() { return new SimpleFilterFilter; }

    // Retains the source. `include` keeps the points that have one of the values; false keeps the others.
    // Throws InvalidArgument "the point source does not have channel: '%s'".
    void init(PointSource* source, const char* channelName, bool include);
    // Without the counts and bounds of all points.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // A value that the channel's type cannot hold is converted to that type: 300 matches 44 in a UINT8
    // channel. Existing iterators keep the values they were made with.
    void addValue(int value) { m_values.insert(value); }

    // The layout need not have the channel. Throws General "unsupported datatype" unless the channel is an
    // integer of at most 32 bits, and InvalidArgument before init().
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    template <class T>
    class QM_HIDDEN Iterator;

    SimpleFilterFilter() = default;

    std::string m_channelName;
    bool m_include = true;
    std::set<int> m_values;
};

} // namespace Quillmoran

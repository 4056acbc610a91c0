// Passes on the points whose value in one integer channel is, or is not, one of a set: the ground points of a
// survey, all flight lines but one. It stands between a source and a writer and shows the source's own
// description, the number of points included. The values are set up first; createIterator() only reads them.
#pragma once

#include <vxunpack/PointSource.h>

#include <set>
#include <string>

namespace Quillmoran {

class QM_API SimpleFilterFilter final : public PointFilter
{
public:
    static SimpleFilterFilter* create();

    // `include` keeps the points that have one of the values, otherwise the others are kept. InvalidArgument "the point
    // source does not have channel: '%s'".
    void init(PointSource* source, const char* channelName, bool include);
    // A value that the channel's type cannot hold is converted to that type, so it matches what it becomes:
    // 300 is 44 in a channel of UINT8. Iterators keep the values that were there when they were made.
    void addValue(int value) { m_values.insert(value); }

    // The channel need not be part of the layout. It must be an integer of at most 32 bits: -1 "unsupported
    // datatype".
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    template <class T>
    class Iterator;

    SimpleFilterFilter() = default;

    std::string m_channelName;
    bool m_include = true;
    std::set<int> m_values;
};

} // namespace Quillmoran

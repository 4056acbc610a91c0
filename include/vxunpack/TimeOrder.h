// Delivers a source's points in the order of their GPS times, as the scanner recorded them: the pieces of a
// flight line that was cut into tiles are joined again. Points with the same time keep the source's order,
// and points whose time is NaN come last. PointOrder describes memory, errors and threads.
#pragma once

#include <vxunpack/PointOrder.h>

namespace Quillmoran {

class QM_API TimeOrder final : public PointOrder
{
public:
    static TimeOrder* create() { return new TimeOrder; }

    // The channel that sorts the points of a layout: GPSTime_Adjusted or, without it, GPSTime. Null if the
    // layout has neither.
    static const ChannelInfo* findTime(const PointInfo& layout);

    // Retains the source. Throws InvalidArgument for null, and NoSuchChannel "sorting by time needs a channel
    // GPSTime or GPSTime_Adjusted" for a source without GPS times. Queries need not include the channel.
    void init(PointSource* source);

private:
    TimeOrder() = default;
    ~TimeOrder() override;

    Keys makeKeys(const Bounds& bounds, PointInfo& layout) const override;
    const char* getOrderName() const override { return "time"; }
};

} // namespace Quillmoran

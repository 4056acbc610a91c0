#include <vxunpack/TimeOrder.h>

#include "filters/SampleKeys.h"
#include "model/ChannelNames.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

TimeOrder::~TimeOrder() = default;

const ChannelInfo* TimeOrder::findTime(const PointInfo& layout)
{
    const ChannelInfo* adjusted = layout.getChannel(ChannelNames::gpsTimeAdjusted);
    return adjusted ? adjusted : layout.getChannel(ChannelNames::gpsTime);
}

void TimeOrder::init(PointSource* source)
{
    if (source && !findTime(source->getPointInfo()))
        QM_THROW(ErrorCode::NoSuchChannel, "sorting by time needs a channel %s or %s", ChannelNames::gpsTime,
                 ChannelNames::gpsTimeAdjusted);
    PointOrder::init(source);
}

PointOrder::Keys TimeOrder::makeKeys(const Bounds&, PointInfo& layout) const
{
    const ChannelInfo& time = *findTime(getSrc()->getPointInfo());
    if (!layout.hasChannel(time.getName()))
        layout.append(time);
    const auto index = static_cast<std::size_t>(layout.getChannelIndex(time.getName()));
    return [index](std::uint64_t* keys, const PointData& block, std::size_t count) {
        const ChannelData& channel = block.getChannel(index);
        getSampleKeys(keys, channel.getData(), channel.getDataType(), count);
    };
}

} // namespace Quillmoran

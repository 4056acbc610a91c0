#include "utils/sets/LASTotals.h"

#include "model/ChannelNames.h"
#include "utils/sets/NamedSource.h"
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/VX7PointReader.h>

namespace Quillmoran::Utils {

namespace {

// Cancels only, since this pass is not part of the total work.
class Cancellation final : public ProgressDelegate
{
public:
    explicit Cancellation(ProgressDelegate& delegate) : m_delegate(delegate) {}

    void reportProgress(double, const char*) override {}
    bool getCancelled() override { return m_delegate.getCancelled(); }

private:
    ProgressDelegate& m_delegate;
};

} // namespace

std::optional<LASPointWriter::Totals> findTotals(const PointSource& source, const PointInfo& layout,
                                                 ProgressDelegate& delegate)
{
    const auto* const reader = dynamic_cast<const VX7PointReader*>(&NamedSource::unwrap(source));
    if (!reader)
        return std::nullopt;
    LASPointWriter::Totals totals;
    totals.numPoints = static_cast<std::uint64_t>(reader->getNumPoints());
    totals.bounds = reader->getBounds();
    if (!layout.hasChannel(ChannelNames::returnNum))
        return totals;
    for (const ChannelInfo* channel :
         {layout.getChannel(ChannelNames::returnNum), reader->getChannel(ChannelNames::returnNum)})
        if (!channel || channel->getDataType() != UINT8)
            return std::nullopt;
    Cancellation cancellation(delegate);
    totals.countsByReturn = reader->countValues(ChannelNames::returnNum, &cancellation);
    return totals;
}

} // namespace Quillmoran::Utils

#include "decode/bands/SubbandSource.h"

#include "common/coders/KernelTypes.h"
#include "decode/bands/SubbandReader.h"
#include "decode/lifting/PipelineStage.h"

namespace Quillmoran {

namespace {

template <template <class> class Source, class... Arguments>
std::unique_ptr<SubbandSource> createTyped(DataType type, Arguments&&... arguments)
{
    return visitKernelType(type, ErrorCode::General, [&](auto zero) -> std::unique_ptr<SubbandSource> {
        return std::make_unique<Source<decltype(zero)>>(std::forward<Arguments>(arguments)...);
    });
}

} // namespace

SubbandSource::SubbandSource(DataType type, TransformType transform, std::size_t blockSize,
                             std::int64_t numSamples)
    : m_dataType(type), m_transform(transform), m_blockSize(blockSize), m_numSamples(numSamples)
{}

SubbandSource::~SubbandSource() = default;

std::unique_ptr<SubbandSource>
SubbandSource::createSubbandReader(SubblockReader& reader, const BandRanges& ranges, std::int64_t numSamples)
{
    return createTyped<SubbandReaderImp>(reader.getFormat().type, reader, ranges, numSamples);
}

std::unique_ptr<SubbandSource> SubbandSource::createPipeStage(std::size_t blockSize,
                                                              std::unique_ptr<SubbandSource> low,
                                                              std::unique_ptr<SubbandSource> high)
{
    const DataType type = low->getDataType();
    return createTyped<PipelineStageImp>(type, blockSize, std::move(low), std::move(high));
}

} // namespace Quillmoran

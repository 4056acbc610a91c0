#include "decode/bands/SubbandSource.h"

#include "decode/bands/SubbandReader.h"
#include "decode/lifting/PipelineStage.h"
#include <vxunpack/Base.h>

#include <algorithm>

namespace Quillmoran {

namespace {

template <template <class> class Source, class... Arguments>
std::unique_ptr<SubbandSource> createTyped(DataType type, Arguments&&... arguments)
{
    switch (type) {
    case SINT16:
        return std::make_unique<Source<std::int16_t>>(std::forward<Arguments>(arguments)...);
    case SINT32:
        return std::make_unique<Source<std::int32_t>>(std::forward<Arguments>(arguments)...);
    case SINT64:
        return std::make_unique<Source<std::int64_t>>(std::forward<Arguments>(arguments)...);
    case FLOAT32:
        return std::make_unique<Source<float>>(std::forward<Arguments>(arguments)...);
    case FLOAT64:
        return std::make_unique<Source<double>>(std::forward<Arguments>(arguments)...);
    default:
        QM_THROW(ErrorCode::General, "unkown datatype");
    }
}

} // namespace

SubbandSource::SubbandSource(DataType type, TransformType transform, const char* name, unsigned level,
                             bool isHigh, std::size_t blockSize, std::int64_t numSamples)
    : m_dataType(type),
      m_transform(transform),
      m_name(name),
      m_level(level),
      m_isHigh(isHigh),
      m_blockSize(blockSize),
      m_numSamples(numSamples)
{}

SubbandSource::~SubbandSource() = default;

std::unique_ptr<SubbandSource> SubbandSource::createSubbandReader(SubblockReader& reader, unsigned level,
                                                                  bool isHigh, const BandStretches& stretches,
                                                                  std::int64_t numSamples)
{
    return createTyped<SubbandReaderImp>(reader.getDataType(), reader, level, isHigh, stretches, numSamples);
}

std::unique_ptr<SubbandSource> SubbandSource::createPipeStage(std::size_t blockSize,
                                                              std::unique_ptr<SubbandSource> low,
                                                              std::unique_ptr<SubbandSource> high)
{
    const DataType type = low->getDataType();
    return createTyped<PipelineStageImp>(type, blockSize, std::move(low), std::move(high));
}

} // namespace Quillmoran

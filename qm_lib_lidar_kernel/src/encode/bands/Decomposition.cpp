#include "encode/bands/Decomposition.h"

#include "encode/bands/SubbandWriter.h"
#include "encode/lifting/ForwardPipelineStage.h"
#include <vxunpack/Base.h>

#include <cstdint>

namespace Quillmoran {

namespace {

template <class T>
class DecompositionImp final : public Decomposition
{
public:
    DecompositionImp(DataType type, TransformType transform, std::size_t numLevels)
        : m_stages(numLevels - 1, ForwardPipelineStage<T>(type, transform))
    {}

    void put(const void* samples, std::size_t count, bool last, std::vector<SubbandWriter>& bands) override
    {
        const T* low = static_cast<const T*>(samples);
        std::size_t band = bands.size();
        for (ForwardPipelineStage<T>& stage : m_stages) {
            stage.push(low, count, last);
            bands[--band].put(stage.high().data(), stage.high().size());
            low = stage.low().data();
            count = stage.low().size();
        }
        bands[0].put(low, count);
    }

private:
    std::vector<ForwardPipelineStage<T>> m_stages; // from the finest
};

} // namespace

Decomposition::~Decomposition() = default;

std::unique_ptr<Decomposition> Decomposition::create(DataType type, TransformType transform,
                                                     std::size_t numLevels)
{
    switch (type) {
    case SINT16:
        return std::make_unique<DecompositionImp<std::int16_t>>(type, transform, numLevels);
    case SINT32:
        return std::make_unique<DecompositionImp<std::int32_t>>(type, transform, numLevels);
    case SINT64:
        return std::make_unique<DecompositionImp<std::int64_t>>(type, transform, numLevels);
    case FLOAT32:
        return std::make_unique<DecompositionImp<float>>(type, transform, numLevels);
    case FLOAT64:
        return std::make_unique<DecompositionImp<double>>(type, transform, numLevels);
    default:
        QM_THROW(ErrorCode::InvalidArgument, "unkown datatype");
    }
}

} // namespace Quillmoran

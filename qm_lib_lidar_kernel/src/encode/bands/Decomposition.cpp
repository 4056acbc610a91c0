#include "encode/bands/Decomposition.h"

#include "common/coders/KernelTypes.h"
#include "encode/bands/SubbandWriter.h"
#include "encode/lifting/ForwardPipelineStage.h"

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
    std::vector<ForwardPipelineStage<T>> m_stages; // the finest first
};

} // namespace

std::unique_ptr<Decomposition> Decomposition::create(DataType type, TransformType transform,
                                                     std::size_t numLevels)
{
    return visitKernelType(
        type, ErrorCode::InvalidArgument, [&](auto zero) -> std::unique_ptr<Decomposition> {
            return std::make_unique<DecompositionImp<decltype(zero)>>(type, transform, numLevels);
        });
}

} // namespace Quillmoran

// The forward transform of a channel over a stream of kernel samples: a chain of ForwardPipelineStages, one
// per level, that writes the samples of the bands as soon as they are final.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace Quillmoran {

class SubbandWriter;

class Decomposition
{
public:
    // Throws InvalidArgument "unkown datatype" if the type is not a kernel type.
    static std::unique_ptr<Decomposition> create(DataType type, TransformType transform,
                                                 std::size_t numLevels);

    virtual ~Decomposition() = default;
    Decomposition(const Decomposition&) = delete;
    Decomposition& operator=(const Decomposition&) = delete;

    // Takes the next samples and writes the final ones to `bands`, one per level: the low band of the
    // coarsest level, then the high bands from the coarsest level to the finest. `last`: no samples follow.
    virtual void put(const void* samples, std::size_t count, bool last,
                     std::vector<SubbandWriter>& bands) = 0;

protected:
    Decomposition() = default;
};

} // namespace Quillmoran

// The forward transform of a channel over a stream of kernel samples: a chain of ForwardPipelineStages, one a level,
// that hands its bands out as they are finished.
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
    // InvalidArgument "unkown datatype" for what is no kernel type.
    static std::unique_ptr<Decomposition> create(DataType type, TransformType transform,
                                                 std::size_t numLevels);

    virtual ~Decomposition();
    Decomposition(const Decomposition&) = delete;
    Decomposition& operator=(const Decomposition&) = delete;

    // Takes the next samples and puts what is finished into `bands`, of which there are as many as levels:
    // the low band of the coarsest level, then the high bands from there on. `last` tells that no samples
    // follow.
    virtual void put(const void* samples, std::size_t count, bool last,
                     std::vector<SubbandWriter>& bands) = 0;

protected:
    Decomposition() = default;
};

} // namespace Quillmoran

#include "common/coders/TransformUtils.h"

#include <vxunpack/Base.h>

#include <algorithm>
#include <iterator>

namespace Quillmoran::TransformUtils {

namespace {

struct Transform
{
    TransformType code;
    Coder coder;
    int order; // of the lifting steps
    bool hasUpdate;
    const char* name;
};

constexpr Transform transforms[] = {
    {1, Coder::MQ, 1, true, "MQ, order 1 lifting"},
    {3, Coder::MQ, 3, true, "MQ, order 3 lifting"},
    {10, Coder::MQ, 0, false, "MQ, no lifting"},
    {11, Coder::MQ, 1, false, "MQ, order 1 prediction"},
    {13, Coder::MQ, 3, false, "MQ, order 3 prediction"},
    {61, Coder::Deflate, 1, true, "deflate, order 1 lifting"},
    {63, Coder::Deflate, 3, true, "deflate, order 3 lifting"},
    {70, Coder::Deflate, 0, false, "deflate, no lifting"},
    {71, Coder::Deflate, 1, false, "deflate, order 1 prediction"},
    {73, Coder::Deflate, 3, false, "deflate, order 3 prediction"},
    {81, Coder::Arithmetic, 1, true, "arithmetic, order 1 lifting"},
    {83, Coder::Arithmetic, 3, true, "arithmetic, order 3 lifting"},
    {90, Coder::Arithmetic, 0, false, "arithmetic, no lifting"},
    {91, Coder::Arithmetic, 1, false, "arithmetic, order 1 prediction"},
    {93, Coder::Arithmetic, 3, false, "arithmetic, order 3 prediction"},
};

const Transform& find(TransformType type)
{
    const auto* found = std::find_if(std::begin(transforms), std::end(transforms),
                                     [type](const Transform& transform) { return transform.code == type; });
    if (found == std::end(transforms))
        QM_THROW(ErrorCode::General, "bad transform type");
    return *found;
}

} // namespace

Coder getCoder(TransformType type)
{
    return find(type).coder;
}

const char* toString(TransformType type)
{
    return find(type).name;
}

int getHeadroom(TransformType type)
{
    const int order = find(type).order;
    return order == 0 ? 0 : order == 1 ? 3 : 6;
}

bool isInteger(TransformType type)
{
    return find(type).coder != Coder::Deflate;
}

bool isFloatingPoint(TransformType type)
{
    return find(type).coder == Coder::Deflate;
}

bool isWavelet(TransformType type)
{
    return find(type).order != 0;
}

bool hasUpdate(TransformType type)
{
    return find(type).hasUpdate;
}

std::size_t getPadding(TransformType type)
{
    return find(type).order == 3 ? 2 : 1;
}

} // namespace Quillmoran::TransformUtils

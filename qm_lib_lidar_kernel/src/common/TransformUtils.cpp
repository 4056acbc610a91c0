#include "common/TransformUtils.h"

#include "platform/Base.h"

#include <algorithm>
#include <iterator>

namespace Quillmoran::TransformUtils {

namespace {

struct Transform
{
    TransformType code;
    Coder coder;
    int order; // of the lifting steps
};

constexpr Transform transforms[] = {
    {1, Coder::MQ, 1},          {3, Coder::MQ, 3},          {10, Coder::MQ, 0},
    {11, Coder::MQ, 1},         {13, Coder::MQ, 3},         {61, Coder::Deflate, 1},
    {63, Coder::Deflate, 3},    {70, Coder::Deflate, 0},    {71, Coder::Deflate, 1},
    {73, Coder::Deflate, 3},    {81, Coder::Arithmetic, 1}, {83, Coder::Arithmetic, 3},
    {90, Coder::Arithmetic, 0}, {91, Coder::Arithmetic, 1}, {93, Coder::Arithmetic, 3},
};

const Transform& find(TransformType type)
{
    const auto* found = std::find_if(std::begin(transforms), std::end(transforms),
                                     [type](const Transform& transform) { return transform.code == type; });
    if (found == std::end(transforms))
        QM_THROW(-1, "bad transform type");
    return *found;
}

} // namespace

Coder getCoder(TransformType type)
{
    return find(type).coder;
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

std::size_t getPadding(TransformType type)
{
    return find(type).order == 3 ? 2 : 1;
}

} // namespace Quillmoran::TransformUtils

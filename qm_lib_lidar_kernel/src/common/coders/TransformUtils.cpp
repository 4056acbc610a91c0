#include "common/coders/TransformUtils.h"

#include "common/coders/Coder.h"
#include "common/lifting/LiftingScheme.h"
#include <vxunpack/Base.h>

#include <optional>

namespace Quillmoran::TransformUtils {

namespace {

struct Transform
{
    const Coder& coder;
    const LiftingScheme& lifting;
};

std::optional<Transform> search(TransformType type) noexcept
{
    for (const Coder& coder : Coder::all())
        for (const LiftingScheme& lifting : liftingSchemes)
            if (coder.base + lifting.code == type)
                return Transform{coder, lifting};
    return std::nullopt;
}

Transform find(TransformType type)
{
    const auto found = search(type);
    if (!found)
        QM_THROW(ErrorCode::General, "bad transform type");
    return *found;
}

} // namespace

bool isKnown(TransformType type) noexcept
{
    return search(type).has_value();
}

const Coder& getCoder(TransformType type)
{
    return find(type).coder;
}

const LiftingScheme& getLifting(TransformType type)
{
    return find(type).lifting;
}

std::string toString(TransformType type)
{
    const Transform transform = find(type);
    return std::string(transform.coder.name) + ", " + transform.lifting.name;
}

int getHeadroom(TransformType type)
{
    return getLifting(type).getHeadroom();
}

bool isInteger(TransformType type)
{
    return !isFloatingPoint(type);
}

bool isFloatingPoint(TransformType type)
{
    return getCoder(type).isFloatingPoint;
}

bool isWavelet(TransformType type)
{
    return getLifting(type).order != 0;
}

bool hasUpdate(TransformType type)
{
    return getLifting(type).hasUpdate;
}

std::size_t getPadding(TransformType type)
{
    return getLifting(type).getPadding();
}

} // namespace Quillmoran::TransformUtils

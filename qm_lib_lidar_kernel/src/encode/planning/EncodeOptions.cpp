#include <vxunpack/EncodeOptions.h>

#include "common/coders/TransformUtils.h"
#include "encode/coders/SubblockWriter.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

namespace {

constexpr std::uint32_t maxSubblock = 1u << 20; // samples
constexpr std::uint32_t maxLevels = 64;         // a level halves a 64-bit number of points
constexpr int maxRawPlanes = 64;

void checkRange(const char* what, std::int64_t value, std::int64_t low, std::int64_t high)
{
    if (value < low || value > high)
        QM_THROW(ErrorCode::InvalidArgument, "%s must be %lld to %lld", what, static_cast<long long>(low),
                 static_cast<long long>(high));
}

void checkChoice(const ChannelChoice& choice)
{
    if (choice.transform)
        TransformUtils::getCoder(*choice.transform);
    if (choice.subblockSize)
        checkRange("the subblock size", *choice.subblockSize, SubblockWriter::smallestSubblock, maxSubblock);
}

} // namespace

void EncodeOptions::check() const
{
    checkRange("the file version", versions.file, 1, 4);
    checkRange("the version of the wavelet header", versions.header, 1, 2);
    checkRange("the version of the index", versions.index, 1, 2);
    checkRange("the version of the subbands", versions.band, 1, 3);
    checkChoice(all);
    for (const auto& [name, choice] : byChannel)
        checkChoice(choice);
    if (numLevels)
        checkRange("the number of levels", *numLevels, 1, maxLevels);
    if (pointsPerEntry)
        checkRange("the number of points per index entry", *pointsPerEntry, 1, INT32_MAX);
    if (rawPlanes)
        checkRange("the number of raw planes", *rawPlanes, 0, maxRawPlanes);
}

} // namespace Quillmoran

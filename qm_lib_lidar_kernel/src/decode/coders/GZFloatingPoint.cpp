// Reads subblocks of floating-point samples: their big-endian bytes as one raw deflate stream.
//
// The counterpart is encode/coders/GZFloatingPointWriter.cpp.
#include "common/coders/KernelTypes.h"
#include "decode/coders/Inflate.h"
#include "decode/coders/SubblockReader.h"
#include "platform/ByteOrder.h"

#include <memory>

namespace Quillmoran {

namespace {

template <class T>
class GZFloatingPoint final : public SubblockReader
{
public:
    using SubblockReader::SubblockReader;

    void init() override
    {
        SubblockReader::init(getMaxDeflatedSize(std::uint64_t{getFormat().subblockSize} * sizeof(T)));
    }

    void decode(const CodedSubblock& subblock) const override
    {
        inflateRaw(subblock.payload, static_cast<std::size_t>(subblock.header.payloadLength),
                   subblock.samples, subblock.count * sizeof(T));

        auto* const samples = static_cast<T*>(subblock.samples);
        const auto* const bytes = static_cast<const std::uint8_t*>(subblock.samples);
        for (std::size_t i = 0; i < subblock.count; ++i)
            samples[i] = loadBigEndian<T>(bytes + i * sizeof(T));
    }
};

} // namespace

std::unique_ptr<SubblockReader> createGZReader(const SubblockFormat& format)
{
    return createCoder<SubblockReader, GZFloatingPoint, std::is_floating_point>(format);
}

} // namespace Quillmoran

// The entropy decoder of each kind of subblock reader, with headers and payloads that no container has
// checked.
#include "decode/coders/SubblockReader.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/InputReader.h"
#include <vxunpack/Base.h>

#include <array>
#include <vector>

namespace Quillmoran::Fuzz {

namespace {

using Testing::ByteStore;
using Samples = std::vector<std::uint8_t>;

constexpr std::array<DataType, 6> types = {SINT16, SINT32, SINT64, FLOAT32, FLOAT64, UINT16};
constexpr std::array<TransformType, 8> transforms = {1, 3, 10, 11, 13, 70, 90, 91};
constexpr std::size_t maxSubblocks = 8;

struct Streams
{
    Scoped<ByteStore> headerStore, dataStore;
    StreamReader headers, data;

    Streams(Input headerBytes, Input dataBytes)
        : headerStore(ByteStore::create({headerBytes.begin(), headerBytes.end()})),
          dataStore(ByteStore::create({dataBytes.begin(), dataBytes.end()}))
    {
        constexpr std::size_t buffer = 64; // small, so that fields cross its end
        headers.init(headerStore.get(), true, buffer);
        data.init(dataStore.get(), true, buffer);
    }
};

// Loads subblocks until the headers end; the first `skipped` of them are skipped.
Samples decode(const SubblockFormat& format, Input headerBytes, Input dataBytes, std::size_t skipped)
{
    const auto reader = SubblockReader::create(format);
    reader->init();
    Streams streams(headerBytes, dataBytes);
    const std::size_t bytes = format.subblockSize * DataTypeUtils::getSize(format.type);
    Samples samples;
    std::size_t zeros = reader->skipSubblocks(skipped, streams.headers, streams.data, 0);
    for (std::size_t i = skipped; i < maxSubblocks; ++i) {
        if (zeros == 0 && streams.headers.remaining() == 0)
            break;
        Samples block(bytes, 0xAA);
        zeros = reader->loadSubblock(streams.headers, streams.data, block.data(), format.subblockSize, zeros);
        samples.insert(samples.end(), block.begin(), block.end());
    }
    return samples;
}

// Decodes the band whole and with subblocks skipped: samples that both deliver must agree.
void readAnything(const SubblockFormat& format, std::size_t skipped, Input headers, Input data)
{
    const Samples whole = decode(format, headers, data, 0);
    const std::size_t passed =
        std::min(skipped * format.subblockSize * DataTypeUtils::getSize(format.type), whole.size());
    const Samples rest = decode(format, headers, data, skipped);
    require(std::equal(whole.begin() + static_cast<std::ptrdiff_t>(passed), whole.end(), rest.begin(),
                       rest.end()),
            "subblocks differ if those before them are skipped");
}

} // namespace

std::uint64_t runSubblocks(Input input)
{
    InputReader reader(input);
    SubblockFormat format;
    format.type = types[reader.take<std::uint8_t>() % types.size()];
    format.transform = transforms[reader.take<std::uint8_t>() % transforms.size()];
    format.subblockSize = 1 + reader.below(512);
    const auto choices = reader.take<std::uint8_t>();
    format.perPlaneLengths = (choices & 1) != 0;
    const std::size_t skipped = choices >> 1 & 7;
    const Input headers = reader.takeBytes(reader.take<std::uint8_t>());
    readAnything(format, skipped, headers, reader.rest());
    return 2 * maxSubblocks * format.subblockSize;
}

} // namespace Quillmoran::Fuzz

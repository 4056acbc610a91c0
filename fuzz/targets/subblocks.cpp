// The entropy decoder of each kind of subblock reader, with headers and payloads that no container has
// checked.
#include "decode/coders/SubblockReader.h"
#include "support/FuzzTarget.h"

namespace Quillmoran::Fuzz {

namespace {

using Samples = std::vector<std::uint8_t>;

constexpr DataType types[] = {SINT16, SINT32, SINT64, FLOAT32, FLOAT64, UINT16};
constexpr TransformType transforms[] = {1, 3, 10, 11, 13, 70, 90, 91};
constexpr std::size_t maxSubblocks = 8;

// Loads subblocks until the headers end; the first `skipped` of them are skipped.
Samples decode(const SubblockFormat& format, Input headerBytes, Input dataBytes, std::size_t skipped)
{
    const auto reader = SubblockReader::create(format);
    reader->init();
    InputStream headers(headerBytes), data(dataBytes);
    Samples samples;
    std::size_t zeros = reader->skipSubblocks(skipped, headers, data, 0);
    for (std::size_t i = skipped; i < maxSubblocks; ++i) {
        if (zeros == 0 && headers.remaining() == 0)
            break;
        Samples block(format.subblockSize * DataTypeUtils::getSize(format.type), 0xAA);
        zeros = reader->loadSubblock(headers, data, block.data(), format.subblockSize, zeros);
        samples.insert(samples.end(), block.begin(), block.end());
    }
    return samples;
}

} // namespace

// Decodes the band whole and with subblocks skipped: samples that both deliver must agree.
std::uint64_t runSubblocks(Input input)
{
    InputReader reader(input);
    SubblockFormat format;
    format.type = types[reader.take<std::uint8_t>() % std::size(types)];
    format.transform = transforms[reader.take<std::uint8_t>() % std::size(transforms)];
    format.subblockSize = 1 + reader.take<std::uint16_t>() % 512u;
    const auto choices = reader.take<std::uint8_t>();
    format.perPlaneLengths = (choices & 1) != 0;
    const std::size_t skipped = choices >> 1 & 7;
    const Input headers = reader.takeBytes(reader.take<std::uint8_t>());
    Samples whole = decode(format, headers, reader.rest(), 0);
    const std::size_t bytes = skipped * format.subblockSize * DataTypeUtils::getSize(format.type);
    whole.erase(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(std::min(bytes, whole.size())));
    require(decode(format, headers, reader.rest(), skipped) == whole,
            "subblocks differ if those before them are skipped");
    return 2 * maxSubblocks * format.subblockSize;
}

} // namespace Quillmoran::Fuzz

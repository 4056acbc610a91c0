// The serialised metadata. Records that can be read are written and read again, and make the head of a restored
// LAS file.
#include "las/header/LASFileHead.h"
#include "support/FuzzTarget.h"
#include <vxunpack/Metadata.h>

namespace Quillmoran::Fuzz {

namespace {

Metadata read(Input input)
{
    InputStream stream(input);
    Metadata metadata;
    metadata.read(stream);
    return metadata;
}

std::vector<std::uint8_t> write(const Metadata& metadata)
{
    return writtenBytes([&](StreamWriter& stream) { metadata.write(stream); });
}

} // namespace

std::uint64_t runMetadata(Input input)
{
    Metadata metadata = read(input);
    static const std::unique_ptr<std::FILE, int (*)(std::FILE*)> nowhere(std::fopen("/dev/null", "w"),
                                                                         std::fclose);
    metadata.dump(nowhere.get());
    const std::vector<std::uint8_t> written = write(metadata);
    require(write(read(written)) == written, "records do not come back");
    metadata.sort();
    const double scale[] = {1, 1, 1};
    LASFileHead::Request request;
    request.scale = request.offset = scale;
    request.restores = true;
    succeeds([&] { LASFileHead::make(layoutXYZ(), metadata, request); });
    return 0;
}

} // namespace Quillmoran::Fuzz

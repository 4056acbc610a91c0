// The serialised metadata. Records that can be read are written and read again.
#include "support/ByteStore.h"
#include "support/FuzzTarget.h"
#include <vxunpack/Base.h>
#include <vxunpack/Metadata.h>

#include <cstdio>
#include <memory>

namespace Quillmoran::Fuzz {

namespace {

using Testing::ByteStore;

Metadata read(ByteStore& store)
{
    StreamReader stream;
    stream.init(&store, true, 64);
    Metadata metadata;
    metadata.read(stream);
    stream.close();
    return metadata;
}

std::vector<std::uint8_t> write(const Metadata& metadata)
{
    return Testing::writtenBytes([&](StreamWriter& stream) { metadata.write(stream); });
}

} // namespace

std::uint64_t runMetadata(Input input)
{
    const Scoped<ByteStore> store(ByteStore::create({input.begin(), input.end()}));
    Metadata metadata = read(*store);
    static const std::unique_ptr<std::FILE, int (*)(std::FILE*)> nowhere(std::fopen("/dev/null", "w"),
                                                                         std::fclose);
    metadata.dump(nowhere.get());

    const std::vector<std::uint8_t> written = write(metadata);
    const Scoped<ByteStore> again(ByteStore::create(written));
    require(write(read(*again)) == written, "records do not come back");
    const std::size_t count = metadata.getNumRecords();
    metadata.sort();
    if (count != 0)
        metadata.remove(std::string(metadata.getKey(0)).c_str());
    require(metadata.getNumRecords() < count || count == 0, "a record stays when it is removed");
    return 0;
}

} // namespace Quillmoran::Fuzz

// All points of a source at once, and compressed files from memory, for comparing.
#pragma once

#include "support/ByteStore.h"
#include "support/SubblockEncoder.h"
#include <vxunpack/VX7PointReader.h>
#include <vxunpack/VX7PointWriter.h>

#include <cstddef>
#include <cstring>
#include <vector>

namespace Quillmoran::Testing {

inline Scoped<VX7PointReader> openFile(const Bytes& bytes)
{
    const Scoped<ByteStore> store(ByteStore::create(bytes));
    Scoped<VX7PointReader> reader(VX7PointReader::create());
    reader->init(store.get());
    return reader;
}

struct Query
{
    Bounds bounds = Bounds::Huge();
    double fraction = 1.0;
};

// A compressed file of the points of a query.
inline Bytes packWith(PointSource& source, const EncodeOptions& options = {}, const Query& query = {},
                      ProgressDelegate* delegate = nullptr)
{
    const auto store = ByteStore::make();
    const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
    writer->init(&source, store.get());
    writer->setOptions(options);
    writer->write(query.bounds, query.fraction, source.getPointInfo(), delegate);
    return store->bytes();
}

// All points of a query, as the bytes of each channel.
struct Points
{
    std::size_t count = 0;
    std::vector<Bytes> channels;

    template <class T>
    std::vector<T> values(std::size_t channel) const
    {
        std::vector<T> samples(count);
        if (count != 0)
            std::memcpy(samples.data(), channels[channel].data(), count * sizeof(T));
        return samples;
    }
    bool operator==(const Points& other) const { return count == other.count && channels == other.channels; }
};

inline Points readAll(const PointSource& source, const Bounds& bounds = Bounds::Huge(), double fraction = 1.0,
                      std::size_t blockSize = 1000)
{
    const PointInfo layout = source.getPointInfo();
    const Scoped<PointIterator> iterator(source.createIterator(bounds, fraction, layout, nullptr));
    PointData block;
    block.init(layout, blockSize);
    Points points;
    points.channels.resize(layout.getNumChannels());
    while (const std::size_t count = iterator->getNextPoints(block)) {
        points.count += count;
        for (std::size_t i = 0; i < points.channels.size(); ++i) {
            const ChannelData& channel = block.getChannel(i);
            const auto* bytes = static_cast<const std::uint8_t*>(channel.getData());
            const std::size_t size = count * DataTypeUtils::getSize(channel.getDataType());
            points.channels[i].insert(points.channels[i].end(), bytes, bytes + size);
        }
    }
    return points;
}

} // namespace Quillmoran::Testing

#include "index/DiskRTree.h"

#include "platform/OpenIO.h"
#include "platform/Stream.h"
#include <vxunpack/Base.h>

#include <map>
#include <vector>

namespace Quillmoran {

namespace {

constexpr ErrorCode readError = ErrorCode::IndexRead;

// A subtree is contiguous, so that the next branch of a query is often in the same few records.
constexpr std::size_t streamBytes = 4096;

} // namespace

class DiskRTree::DiskIterator final : public RTree::Iterator
{
public:
    explicit DiskIterator(const DiskRTree* tree) : m_tree(Scoped<const DiskRTree>::retained(tree))
    {
        m_reader.init(m_tree->m_range.get(), false, streamBytes);
        rewind();
    }

    void rewind() override
    {
        m_path.assign(1, Step{m_tree->m_root, 0});
        m_loaded = 1;
    }

private:
    struct Step
    {
        Branch branch;
        std::size_t next; // index of the node to look at
    };

    bool advance(const Bounds* query, std::int64_t& value) override;
    Branch readChild(std::int64_t position);

    Scoped<const DiskRTree> m_tree;
    StreamReader m_reader;
    std::vector<Step> m_path; // from the root down; up to the level of the root + 1 steps
    std::size_t m_loaded = 0; // branches since rewind()
};

bool DiskRTree::DiskIterator::advance(const Bounds* query, std::int64_t& value)
{
    while (!m_path.empty()) {
        Step& step = m_path.back();
        if (step.next == step.branch.count) {
            m_path.pop_back();
            continue;
        }
        const Record::Node& node = step.branch.nodes[step.next];
        const bool isLeaf = m_path.size() == m_tree->m_preamble.level + std::size_t{1};
        if (query && !node.box.meets(*query)) {
            ++step.next;
        } else if (isLeaf) {
            ++step.next;
            value = node.payload;
            return true;
        } else {
            // If reading a child throws, the next call reads it again: damage is never skipped.
            const Branch child = readChild(node.payload);
            ++step.next;
            m_path.push_back({child, 0});
        }
    }
    return false;
}

// A cycle would end at the leaf level, but the number of visits grows exponentially with the level, as it
// does with branches that have two parents. Both are rejected.
DiskRTree::Branch DiskRTree::DiskIterator::readChild(std::int64_t position)
{
    bool damaged = position < m_tree->m_root.position || m_loaded >= m_tree->m_maxBranches;
    for (const Step& above : m_path)
        damaged = damaged || above.branch.position == position;
    if (damaged)
        QM_THROW(readError, "bad read -- node count");
    m_reader.open(streamBytes);
    m_reader.seek(position, StreamReader::SEEK_FROM_START);
    Branch child;
    child.position = position;
    child.read(m_reader, m_tree->m_preamble.axes);
    ++m_loaded;
    return child;
}

DiskRTree* DiskRTree::create()
{
    return new DiskRTree;
}

void DiskRTree::init(StreamReader& reader, std::int64_t length)
{
    m_preamble = Preamble();
    m_root = Branch();
    constexpr std::int64_t preambleLength = preambleBytes;
    if (length < preambleLength)
        QM_THROW(readError, "bad read -- count");
    const std::int64_t start = reader.tell();
    Preamble preamble;
    preamble.read(reader);

    m_range.reset(BoundedIO::create(IO::Location(reader.getIO(), start, length)));
    // One more than whole records, since the padding of the last record may be missing.
    m_maxBranches = static_cast<std::size_t>((m_range->size() - start) / recordBytes) + 1;
    StreamReader rootReader;
    rootReader.init(m_range.get(), true, recordBytes);
    Branch root;
    root.position = start + preambleLength;
    rootReader.seek(root.position, StreamReader::SEEK_FROM_START);
    root.read(rootReader, preamble.axes);
    m_preamble = preamble;
    m_root = root;
    reader.seek(length - preambleLength, StreamReader::SEEK_FROM_CURRENT);
}

Bounds DiskRTree::getBounds() const
{
    if (m_preamble.count == 0 || m_root.count == 0)
        QM_THROW(ErrorCode::IndexEmpty, "invalid index -- zero points");
    Bounds all;
    for (std::size_t i = 0; i < m_root.count; ++i)
        all.grow(m_root.nodes[i].box);
    return all;
}

RTree::Iterator* DiskRTree::createIterator() const
{
    return new DiskIterator(this);
}

void DiskRTree::copyTo(StreamWriter& writer) const
{
    const OpenIO file(m_range.get());
    std::int64_t at = m_root.position - std::int64_t{preambleBytes};
    const std::int64_t shift = writer.tell() - at;
    const auto copyUpTo = [&](std::int64_t end) {
        if (!writer.copy(m_range.get(), at, end - at))
            QM_THROW(readError, "bad read -- node bounds");
        at = end;
    };
    // The levels of branches with children, by position. Only children that are still to come wait here.
    std::map<std::int64_t, unsigned> parents;
    if (m_preamble.level != 0 && shift != 0)
        parents.emplace(m_root.position, m_preamble.level);
    while (!parents.empty()) {
        const auto [position, level] = *parents.begin();
        parents.erase(parents.begin());
        if (position < at)
            QM_THROW(readError, "bad read -- node count");
        copyUpTo(position);
        unsigned char bytes[recordBytes];
        const std::size_t got = readFully(*file, position, bytes, sizeof bytes);
        const std::size_t size = got == 0 ? 1 : 1 + bytes[0] * nodeBytes; // without padding
        if (size > got)
            QM_THROW(readError, "bad read -- node count");
        for (std::size_t payload = nodeBytes - 3; payload < size; payload += nodeBytes) {
            const auto child = loadBigEndian<std::uint32_t>(bytes + payload);
            const std::int64_t moved = child + shift;
            if (moved < 0 || moved > UINT32_MAX)
                QM_THROW(ErrorCode::IndexWrite, "the index is too far from the beginning of the file");
            storeBigEndian(bytes + payload, static_cast<std::uint32_t>(moved));
            if (level > 1 && !parents.emplace(child, level - 1).second)
                QM_THROW(readError, "bad read -- node count"); // two parents
        }
        writer.write(bytes, size);
        at += static_cast<std::int64_t>(size);
    }
    copyUpTo(m_range->size());
}

} // namespace Quillmoran

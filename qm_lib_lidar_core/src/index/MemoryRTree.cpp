#include "index/MemoryRTree.h"

#include "platform/Stream.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

namespace Quillmoran {

namespace {

constexpr ErrorCode readError = ErrorCode::IndexRead;
constexpr ErrorCode writeError = ErrorCode::IndexWrite;
constexpr double infinity = std::numeric_limits<double>::infinity();

// The minimum number of nodes of a branch below the root. It keeps the depth logarithmic, even for equal
// boxes: 2^64 values need 32 levels.
constexpr std::size_t minNodes = 4;

// Unbounded boxes give infinities and NaN; as an infinity a NaN ranks last.
double orInfinity(double value)
{
    return std::isnan(value) ? infinity : value;
}

double volume(const Bounds& box)
{
    return orInfinity((box.x.max - box.x.min) * (box.y.max - box.y.min) * (box.z.max - box.z.min));
}

// A quarter of the total length of the edges. Unlike the volume it distinguishes flat boxes.
double margin(const Bounds& box)
{
    return (box.x.max - box.x.min) + (box.y.max - box.y.min) + (box.z.max - box.z.min);
}

// A sort key, which must not be NaN.
double center(const Bounds::Range& range)
{
    const double middle = range.min / 2 + range.max / 2;
    return std::isnan(middle) ? 0 : middle;
}

} // namespace

struct MemoryRTree::Branch
{
    struct Node
    {
        Bounds box;
        std::int64_t value = 0;        // in a leaf
        std::unique_ptr<Branch> child; // elsewhere
    };
    using Overflow = std::array<Node, maxNodes + 1>;
    using Order = std::array<std::size_t, maxNodes + 1>; // indices into an Overflow
    // A split of the nodes of a full branch and one more: the first `size` of `order` are one part.
    struct Cut
    {
        Order order;
        std::size_t size;
        double cost;
    };

    explicit Branch(int level) : m_level(level) {}

    bool isLeaf() const { return m_level == 0; }
    Bounds bounds() const;
    std::size_t countBranches() const;
    bool isConsistent() const;

    // Adds an entry to the subtree. Returns the new sibling if this branch was split, else null.
    std::unique_ptr<Branch> insert(Node&& added);
    // Removes one entry. Branches with too few nodes are moved to `dissolved` with all their values.
    bool remove(const Bounds* box, std::int64_t value, std::vector<std::unique_ptr<Branch>>& dissolved);
    void save(StreamWriter& writer, const Axis axes[3]) const;

    void add(Node&& node) { m_nodes[m_count++] = std::move(node); }
    void erase(std::size_t index);
    std::size_t choose(const Bounds& box) const;
    std::unique_ptr<Branch> split(Node&& extra);
    static Cut findCut(const Overflow& nodes);

    int m_level; // 0 = leaf
    std::size_t m_count = 0;
    std::array<Node, maxNodes> m_nodes;
};

// Starts with an empty box to keep NaN out: growing ignores a NaN, but a box with a NaN would keep it.
Bounds MemoryRTree::Branch::bounds() const
{
    Bounds all;
    for (std::size_t i = 0; i < m_count; ++i)
        all.grow(m_nodes[i].box);
    return all;
}

std::size_t MemoryRTree::Branch::countBranches() const
{
    std::size_t count = 1;
    for (std::size_t i = 0; !isLeaf() && i < m_count; ++i)
        count += m_nodes[i].child->countBranches();
    return count;
}

bool MemoryRTree::Branch::isConsistent() const
{
    for (std::size_t i = 0; !isLeaf() && i < m_count; ++i) {
        const Branch& child = *m_nodes[i].child;
        if (child.m_level != m_level - 1 || child.m_count < minNodes || child.bounds() != m_nodes[i].box ||
            !child.isConsistent())
            return false;
    }
    return true;
}

void MemoryRTree::Branch::erase(std::size_t index)
{
    Node* const gap = m_nodes.data() + index;
    std::move(gap + 1, m_nodes.data() + m_count, gap);
    m_nodes[--m_count] = Node();
}

// The node whose volume grows least; of equal nodes the smallest, then the first.
std::size_t MemoryRTree::Branch::choose(const Bounds& box) const
{
    std::size_t best = 0;
    double bestVolume = infinity;
    double bestEnlargement = infinity;
    for (std::size_t i = 0; i < m_count; ++i) {
        Bounds both = m_nodes[i].box;
        both.grow(box);
        const double own = volume(m_nodes[i].box);
        const double enlargement = orInfinity(volume(both) - own);
        if (enlargement < bestEnlargement || (enlargement == bestEnlargement && own < bestVolume)) {
            best = i;
            bestVolume = own;
            bestEnlargement = enlargement;
        }
    }
    return best;
}

std::unique_ptr<MemoryRTree::Branch> MemoryRTree::Branch::insert(Node&& added)
{
    if (!isLeaf()) {
        Node& node = m_nodes[choose(added.box)];
        node.box.grow(added.box);
        std::unique_ptr<Branch> sibling = node.child->insert(std::move(added));
        if (!sibling)
            return nullptr;
        node.box = node.child->bounds();
        added = Node{sibling->bounds(), 0, std::move(sibling)};
    }
    if (m_count == maxNodes)
        return split(std::move(added));
    add(std::move(added));
    return nullptr;
}

std::unique_ptr<MemoryRTree::Branch> MemoryRTree::Branch::split(Node&& extra)
{
    auto sibling = std::make_unique<Branch>(m_level);
    Overflow nodes;
    std::move(m_nodes.begin(), m_nodes.end(), nodes.begin());
    nodes.back() = std::move(extra);
    const Cut cut = findCut(nodes);
    m_count = 0;
    for (std::size_t i = 0; i < nodes.size(); ++i)
        (i < cut.size ? *this : *sibling).add(std::move(nodes[cut.order[i]]));
    return sibling;
}

// Sorts the nodes along each axis and splits them where the sum of the margins of both parts is smallest, as
// part of the R*-tree's split (1990) does. Volumes would not do, since those of all flat boxes are 0.
MemoryRTree::Branch::Cut MemoryRTree::Branch::findCut(const Overflow& nodes)
{
    Order order;
    std::iota(order.begin(), order.end(), std::size_t{0});
    Cut best{order, nodes.size() / 2, infinity};
    for (const auto axis : {&Bounds::x, &Bounds::y, &Bounds::z}) {
        std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return std::pair(center(nodes[a].box.*axis), a) < std::pair(center(nodes[b].box.*axis), b);
        });
        for (std::size_t size = minNodes; size <= nodes.size() - minNodes; ++size) {
            Bounds parts[2];
            for (std::size_t i = 0; i < nodes.size(); ++i)
                parts[i < size ? 0 : 1].grow(nodes[order[i]].box);
            const double cost = margin(parts[0]) + margin(parts[1]);
            if (cost < best.cost)
                best = {order, size, cost};
        }
    }
    return best;
}

bool MemoryRTree::Branch::remove(const Bounds* box, std::int64_t value,
                                 std::vector<std::unique_ptr<Branch>>& dissolved)
{
    for (std::size_t i = 0; i < m_count; ++i) {
        Node& node = m_nodes[i];
        if (isLeaf()) {
            if (node.value != value || (box && node.box != *box))
                continue;
            erase(i);
            return true;
        }
        if ((box && !node.box.contains(*box)) || !node.child->remove(box, value, dissolved))
            continue;
        if (node.child->m_count < minNodes) {
            dissolved.push_back(std::move(node.child));
            erase(i);
        } else {
            node.box = node.child->bounds();
        }
        return true;
    }
    return false;
}

// A subtree directly follows its branch, so that the positions of the children are known before they are
// written.
void MemoryRTree::Branch::save(StreamWriter& writer, const Axis axes[3]) const
{
    Record record;
    record.count = m_count;
    auto position = static_cast<std::uint64_t>(writer.tell()) + recordBytes;
    for (std::size_t i = 0; i < m_count; ++i) {
        const Node& node = m_nodes[i];
        const std::uint64_t payload = isLeaf() ? static_cast<std::uint64_t>(node.value) : position;
        if (payload > UINT32_MAX)
            QM_THROW(writeError, "the rtree is too big");
        record.nodes[i] = {node.box, static_cast<std::uint32_t>(payload)};
        if (!isLeaf())
            position += node.child->countBranches() * recordBytes;
    }
    record.write(writer, axes);
    for (std::size_t i = 0; !isLeaf() && i < m_count; ++i)
        m_nodes[i].child->save(writer, axes);
}

class MemoryRTree::MemoryIterator final : public RTree::Iterator
{
public:
    explicit MemoryIterator(const MemoryRTree* tree) : m_tree(Scoped<const MemoryRTree>::retained(tree))
    {
        rewind();
    }

    void rewind() override { m_path.assign(1, Step{m_tree->m_root.get(), 0}); }

private:
    struct Step
    {
        const Branch* branch;
        std::size_t next; // index of the node to look at
    };

    bool advance(const Bounds* query, std::int64_t& value) override
    {
        while (!m_path.empty()) {
            Step& step = m_path.back();
            if (step.next == step.branch->m_count) {
                m_path.pop_back();
                continue;
            }
            const Branch::Node& node = step.branch->m_nodes[step.next++];
            if (query && !node.box.meets(*query))
                continue;
            if (!node.child) {
                value = node.value;
                return true;
            }
            m_path.push_back({node.child.get(), 0});
        }
        return false;
    }

    Scoped<const MemoryRTree> m_tree;
    std::vector<Step> m_path; // from the root down
};

MemoryRTree* MemoryRTree::create()
{
    return new MemoryRTree;
}

MemoryRTree::MemoryRTree() : m_root(std::make_unique<Branch>(0))
{}

MemoryRTree::~MemoryRTree() = default;

void MemoryRTree::insert(const Bounds& bounds, std::int64_t value)
{
    std::unique_ptr<Branch> sibling = m_root->insert({bounds, value, nullptr});
    ++m_count;
    if (!sibling)
        return;
    auto root = std::make_unique<Branch>(m_root->m_level + 1);
    for (auto* half : {&m_root, &sibling})
        root->add({(*half)->bounds(), 0, std::move(*half)});
    m_root = std::move(root);
}

bool MemoryRTree::removeEntry(const Bounds* bounds, std::int64_t value)
{
    std::vector<std::unique_ptr<Branch>> dissolved;
    if (!m_root->remove(bounds, value, dissolved))
        return false;
    --m_count;
    while (!m_root->isLeaf() && m_root->m_count == 1)
        m_root = std::move(m_root->m_nodes[0].child);
    while (!dissolved.empty()) {
        const std::unique_ptr<Branch> branch = std::move(dissolved.back());
        dissolved.pop_back();
        for (std::size_t i = 0; i < branch->m_count; ++i) {
            Branch::Node& node = branch->m_nodes[i];
            if (!branch->isLeaf()) {
                dissolved.push_back(std::move(node.child));
                continue;
            }
            insert(node.box, node.value);
            --m_count; // it was counted all the time
        }
    }
    return true;
}

void MemoryRTree::clear()
{
    m_root = std::make_unique<Branch>(0);
    m_count = 0;
}

Bounds MemoryRTree::getBounds() const
{
    if (m_count == 0)
        QM_THROW(ErrorCode::IndexEmpty, "invalid index -- zero points");
    return m_root->bounds();
}

RTree::Iterator* MemoryRTree::createIterator() const
{
    return new MemoryIterator(this);
}

void MemoryRTree::save(StreamWriter& writer, const double scale[3]) const
{
    const Bounds bounds = m_count != 0 ? getBounds() : Bounds{{0, 0}, {0, 0}, {0, 0}};
    Preamble preamble;
    bool fits = m_count <= UINT32_MAX;
    const double offset[] = {bounds.x.min, bounds.y.min, bounds.z.min};
    for (std::size_t i = 0; i < 3; ++i) {
        preamble.axes[i] = {scale[i], offset[i]};
        fits = fits && scale[i] > 0 && scale[i] < infinity;
    }
    if (!fits)
        QM_THROW(writeError, "the rtree is too big");
    preamble.level = static_cast<std::uint8_t>(m_root->m_level);
    preamble.count = static_cast<std::uint32_t>(m_count);
    preamble.write(writer);
    m_root->save(writer, preamble.axes);
}

void MemoryRTree::load(StreamReader& reader, std::int64_t length)
{
    std::uint32_t count = 0;
    constexpr std::int64_t countBytes = sizeof count;
    constexpr std::size_t boxBytes = 6 * sizeof(double);
    if (length < countBytes || !reader.get_be(count))
        QM_THROW(readError, "bad read -- count");
    const std::int64_t rest = length - countBytes;
    if (count > std::min(static_cast<std::uint64_t>(rest), reader.remaining()) / boxBytes)
        QM_THROW(readError, "bad read -- index bounds");
    const Scoped<MemoryRTree> loaded(create());
    for (std::uint32_t i = 0; i < count; ++i) {
        double box[6];
        for (double& bound : box)
            if (!reader.get_be(bound))
                QM_THROW(readError, "bad read -- index bounds");
        loaded->insert({{box[0], box[1]}, {box[2], box[3]}, {box[4], box[5]}}, i);
    }
    m_root.swap(loaded->m_root);
    m_count = loaded->m_count;
    reader.seek(rest - static_cast<std::int64_t>(count * boxBytes), StreamReader::SEEK_FROM_CURRENT);
}

bool MemoryRTree::checkBounds() const
{
    return (m_root->isLeaf() || m_root->m_count >= 2) && m_root->isConsistent();
}

} // namespace Quillmoran

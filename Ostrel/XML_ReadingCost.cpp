#include "Ostrel/XML_ReadingCost.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <pugixml.hpp>

#include "Ostrel/XML_Data.h"

namespace {

std::uint64_t add_saturating(std::uint64_t a, std::uint64_t b)
{
    return a > UINT64_MAX - b ? UINT64_MAX : a + b;
}

// The walk over either kind of tree; Tree gives its nodes (Node, valid when not null), whether a
// node is an element, the index that find gives its name, its number of attributes, and the first
// child and next sibling.
template <typename Tree>
XmlReadingCost reading_cost(const Tree& tree, const XmlReadingStep* steps, int count)
{
    using Node = typename Tree::Node;
    XmlReadingCost cost;
    const Node root = tree.root();
    if (!tree.valid(root))
        return cost;

    // The names that readers read, each with a slot in every open element's frame; a step's
    // parent that no step reads is never reached (but for the document element's steps).
    const int kNever = -2;
    const int kDocumentElement = -1;
    std::vector<const char*> names;
    auto find_name = [&](const char* name) {
        for (std::size_t i = 0; i < names.size(); ++i)
            if (std::strcmp(names[i], name) == 0)
                return static_cast<int>(i);
        return kNever;
    };
    std::vector<int> child_of_step(static_cast<std::size_t>(count));
    for (int s = 0; s < count; ++s) {
        int index = find_name(steps[s].child);
        if (index == kNever) {
            index = static_cast<int>(names.size());
            names.push_back(steps[s].child);
        }
        child_of_step[static_cast<std::size_t>(s)] = index;
    }
    std::vector<int> parent_of_step(static_cast<std::size_t>(count));
    for (int s = 0; s < count; ++s)
        parent_of_step[static_cast<std::size_t>(s)] = steps[s].parent == nullptr ? kDocumentElement
                                                                                 : find_name(steps[s].parent);
    const std::size_t width = names.size();

    // One frame per open element. Per name, in two flat arrays: the summed cost of the
    // descendants of that name, and the cost of the first child of that name (0: none, as every
    // element read costs at least 1).
    struct Frame {
        Node node;
        int name;
        std::uint64_t attributes;
        std::uint64_t below;     // nodes in the subtree, the element itself not counted
        std::uint64_t children;  // child nodes
    };
    std::vector<Frame> frames;
    // The arrays keep their size as the walk goes up and down: the open frames use the first
    // frames.size() * width entries.
    std::vector<std::uint64_t> below_cost;
    std::vector<std::uint64_t> first_cost;

    auto enter = [&](Node n, int name) {
        const std::uint64_t attributes = tree.attribute_count(n);
        cost.nodes = add_saturating(cost.nodes, 1 + attributes);
        const std::size_t base = frames.size() * width;
        frames.push_back(Frame{n, name, attributes, 0, 0});
        if (below_cost.size() < base + width) {
            below_cost.resize(base + width);
            first_cost.resize(base + width);
        }
        std::fill_n(below_cost.begin() + static_cast<std::ptrdiff_t>(base), width, 0);
        std::fill_n(first_cost.begin() + static_cast<std::ptrdiff_t>(base), width, 0);
    };
    enter(root, kDocumentElement);
    Node next = tree.first_child(root);
    for (;;) {
        if (tree.valid(next)) {
            if (tree.is_element(next)) {
                enter(next, tree.name_index(next, find_name));
                next = tree.first_child(next);
            } else {
                cost.nodes = add_saturating(cost.nodes, 1);
                ++frames.back().below;
                ++frames.back().children;
                next = tree.next_sibling(next);
            }
            continue;
        }

        // The element on top is done: what reading it costs, by the steps that read from it.
        const Frame done = frames.back();
        const std::size_t base = (frames.size() - 1) * width;
        std::uint64_t own = 1 + done.attributes;
        if (done.name != kNever) {
            for (int s = 0; s < count; ++s) {
                if (parent_of_step[static_cast<std::size_t>(s)] != done.name)
                    continue;
                const std::size_t slot = base + static_cast<std::size_t>(child_of_step[static_cast<std::size_t>(s)]);
                own = steps[s].any_depth ? add_saturating(own, add_saturating(done.below, below_cost[slot]))
                                         : add_saturating(own, add_saturating(done.children, first_cost[slot]));
            }
        }
        frames.pop_back();
        if (frames.empty()) {
            cost.work = own;
            return cost;
        }

        Frame& parent = frames.back();
        const std::size_t parent_base = (frames.size() - 1) * width;
        parent.below = add_saturating(parent.below, 1 + done.below);
        ++parent.children;
        for (std::size_t i = 0; i < width; ++i)
            below_cost[parent_base + i] = add_saturating(below_cost[parent_base + i], below_cost[base + i]);
        if (done.name >= 0) {
            const std::size_t slot = parent_base + static_cast<std::size_t>(done.name);
            below_cost[slot] = add_saturating(below_cost[slot], own);
            if (first_cost[slot] == 0)
                first_cost[slot] = own;
        }
        next = tree.next_sibling(done.node);
    }
}

struct ParserTree {
    using Node = pugi::xml_node;
    pugi::xml_node top;
    Node root() const { return top; }
    static bool valid(Node n) { return static_cast<bool>(n); }
    static bool is_element(Node n) { return n.type() == pugi::node_element; }
    template <typename Find>
    static int name_index(Node n, Find& find)
    {
        return find(n.name());
    }
    static std::uint64_t attribute_count(Node n)
    {
        std::uint64_t count = 0;
        for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute())
            ++count;
        return count;
    }
    static Node first_child(Node n) { return n.first_child(); }
    static Node next_sibling(Node n) { return n.next_sibling(); }
};

// Every node of a compact tree is an element; its names are looked up once each.
struct CompactTreeNodes {
    using Node = std::uint32_t;
    const oxml::CompactTree& tree;
    mutable std::vector<int> indexes;  // by name, once found; kUnknown before
    static constexpr int kUnknown = INT32_MIN;
    static Node root() { return 0; }
    static bool valid(Node n) { return n != oxml::CompactTree::kNone; }
    static bool is_element(Node) { return true; }
    template <typename Find>
    int name_index(Node n, Find& find) const
    {
        const std::uint32_t name = tree.element(n).name;
        if (name >= indexes.size())
            indexes.resize(name + 1, kUnknown);
        if (indexes[name] == kUnknown)
            indexes[name] = find(tree.name_of(n));
        return indexes[name];
    }
    std::uint64_t attribute_count(Node n) const { return tree.attributes_end(n) - tree.attributes_begin(n); }
    Node first_child(Node n) const { return n + 1 < tree.element(n).end ? n + 1 : oxml::CompactTree::kNone; }
    Node next_sibling(Node n) const
    {
        const std::uint32_t parent = tree.element(n).parent;
        const std::uint32_t after = tree.element(n).end;
        return parent != oxml::CompactTree::kNone && after < tree.element(parent).end ? after
                                                                                      : oxml::CompactTree::kNone;
    }
};

} // namespace

XmlReadingCost xml_reading_cost(const COXMLDocument* document, const XmlReadingStep* steps, int count)
{
    if (document == nullptr || count < 0 || (steps == nullptr && count > 0))
        return XmlReadingCost();
    const COXMLDocumentData& data = *COXMLDocumentData::of(document);
    if (data.compact)
        return reading_cost(CompactTreeNodes{*data.compact, {}}, steps, count);
    return reading_cost(ParserTree{data.root()}, steps, count);
}

#ifndef VELLUMENT_OSTREL_XML_DATA_H
#define VELLUMENT_OSTREL_XML_DATA_H

// The private state of a document of the XML interface, shared by the files that implement it.

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include <pugixml.hpp>

#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_WellFormed.h"

namespace oxml {

const char kPendingHolderName[] = "vellument-pending-elements";

// Eight bytes at a time: every text crossing the interface is checked.
inline bool is_ascii(const char* p, std::size_t n)
{
    std::uint64_t high = 0;
    for (; n >= 8; p += 8, n -= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        high |= word;
    }
    for (; n > 0; ++p, --n)
        high |= static_cast<unsigned char>(*p);
    return (high & 0x8080808080808080ull) == 0;
}

inline bool is_ascii(const char* text)
{
    return is_ascii(text, std::strlen(text));
}

// Two names alike, byte for byte. Names are short: a loop in place beats a call to strcmp.
inline bool same_name(const char* a, const char* b)
{
    for (; *a == *b; ++a, ++b)
        if (*a == '\0')
            return true;
    return false;
}

// Text coming in from a caller is ANSI; the tree holds UTF-8. ASCII needs no conversion.
class InText {
public:
    explicit InText(const char* ansi)
    {
        if (ansi == nullptr) {
            ptr_ = "";
        } else if (is_ascii(ansi)) {
            ptr_ = ansi;
        } else {
            buffer_ = Ostrel::Format::AnsiToUtf8(ansi, std::strlen(ansi));
            ptr_ = buffer_.c_str();
        }
    }
    const char* c_str() const { return ptr_; }
    bool ascii() const { return buffer_.empty(); }

private:
    const char* ptr_;
    std::string buffer_;
};

// An XML name, checked in UTF-8: anything else would save into a file that doesn't load.
inline bool is_valid_name(const char* name)
{
    if (name == nullptr)
        return false;
    InText utf8(name);
    return oxml::is_xml_name(utf8.c_str());
}

// A node of a document read into a compact tree: an element of it, or one of its attributes.
// It has no parser node, so the operations that change a tree find nothing to change on it.
class CompactNode : public COXMLNode {
public:
    CompactNode(COXMLDocumentData* owner, std::uint32_t index, bool is_attribute)
        : COXMLNode(owner, nullptr, is_attribute), index_(index)
    {
    }
    std::uint32_t index() const { return index_; }

private:
    std::uint32_t index_;  // of the element or the attribute in the tree
};

// The node objects of a compact tree's elements, made together in one block.
class CompactElements {
public:
    CompactElements() = default;
    CompactElements(const CompactElements&) = delete;
    CompactElements& operator=(const CompactElements&) = delete;
    ~CompactElements()
    {
        for (std::size_t i = 0; i < count_; ++i)
            nodes_[i].~CompactNode();
        ::operator delete(nodes_);
    }
    void make(COXMLDocumentData* owner, std::uint32_t count)
    {
        nodes_ = static_cast<CompactNode*>(::operator new(sizeof(CompactNode) * count));
        for (; count_ < count; ++count_)
            new (&nodes_[count_]) CompactNode(owner, static_cast<std::uint32_t>(count_), false);
    }
    CompactNode* at(std::uint32_t i) const { return &nodes_[i]; }

private:
    CompactNode* nodes_ = nullptr;
    std::size_t count_ = 0;
};

} // namespace oxml

struct COXMLNodeList::Items {
    std::vector<COXMLNode*> nodes;
    // A short list whose length is known when it is made stands here instead, and nodes stays
    // empty: the readers make many lists of a few elements each.
    static constexpr std::size_t kFew = 6;
    std::size_t few_count = 0;
    COXMLNode* few[kFew];

    std::size_t size() const { return few_count != 0 ? few_count : nodes.size(); }
    COXMLNode* at(std::size_t i) const { return few_count != 0 ? few[i] : nodes[i]; }
};

// ---------------------------------------------------------------------------------------------
// The document's private state: the parser's tree, the node objects handed out, the holder of
// elements not yet attached, the text ring and the last error.

struct COXMLDocumentData {
    pugi::xml_document doc;
    std::string source;  // the parsed bytes; the tree points into them
    COXMLDocument* self = nullptr;
    pugi::xml_node holder;

    int error_code = 0;
    std::string error_text;

    // Set while every text in the tree is known to be ASCII, so none needs checking on the way out.
    bool all_ascii = false;
    // Set when some element may lie in a namespace, which name tests of XPath then have to heed.
    bool namespaces = false;

    // Setting an attribute has to find one of the same name first. A scan of a large element's
    // attributes would make writing them quadratic, so the large element last used keeps an index.
    static constexpr std::size_t kScanAttributes = 16;
    pugi::xml_node_struct* indexed_node = nullptr;
    std::unordered_map<std::string, pugi::xml_attribute_struct*> attribute_index;

    // Records read an element's attributes mostly in the order they were written, so a scan starts
    // after the attribute last found on the same element and wraps round: one step a lookup
    // instead of a scan from the first. An element never holds a name twice, so where the scan
    // starts doesn't change what it finds; attributes are never removed, so the hint stays valid.
    pugi::xml_node_struct* hint_node = nullptr;
    pugi::xml_attribute_struct* hint_next = nullptr;  // null: start at the first attribute

    // The attribute of that name; with may_index, a large element is indexed on the way.
    pugi::xml_attribute find_attribute(pugi::xml_node n, const char* utf8_name, bool may_index)
    {
        if (n.internal_object() != indexed_node) {
            const bool hinted = n.internal_object() == hint_node && hint_next != nullptr;
            const pugi::xml_attribute start = hinted ? pugi::xml_attribute(hint_next) : n.first_attribute();
            // The first byte settles most names of a record without a call.
            const char wanted = utf8_name[0];
            std::size_t scanned = 0;
            pugi::xml_attribute a = start;
            bool wrapped = false;
            while (scanned < kScanAttributes || !may_index) {
                if (!a) {
                    if (wrapped || !hinted)
                        return a;
                    wrapped = true;
                    a = n.first_attribute();
                }
                if (wrapped && a == start)
                    return pugi::xml_attribute();
                const char* name = a.name();
                if (name[0] == wanted && oxml::same_name(name, utf8_name)) {
                    hint_node = n.internal_object();
                    hint_next = a.next_attribute().internal_object();
                    return a;
                }
                a = a.next_attribute();
                ++scanned;
            }
            indexed_node = n.internal_object();
            attribute_index.clear();
            for (a = n.first_attribute(); a; a = a.next_attribute())
                attribute_index.emplace(a.name(), a.internal_object());
        }
        auto found = attribute_index.find(utf8_name);
        return found == attribute_index.end() ? pugi::xml_attribute() : pugi::xml_attribute(found->second);
    }

    // The names on the element last written to, as a filter of 64 bits: a name whose bits are not
    // all set is not there, and is appended without a scan. Writers set a new element's attributes
    // one after the other, so the scan for a name already there, quadratic per element, is saved.
    pugi::xml_node_struct* filter_node = nullptr;
    std::uint64_t filter_bits = 0;

    static std::uint64_t name_bits(const char* name)
    {
        std::uint32_t h = 2166136261u;
        for (; *name != '\0'; ++name)
            h = (h ^ static_cast<unsigned char>(*name)) * 16777619u;
        return (std::uint64_t(1) << (h & 63)) | (std::uint64_t(1) << ((h >> 6) & 63));
    }

    // The attribute of that name to write to: the one there, or a new one at the end.
    pugi::xml_attribute attribute_for_writing(pugi::xml_node n, const char* utf8_name)
    {
        pugi::xml_node_struct* const key = n.internal_object();
        if (key != indexed_node && key != filter_node) {
            filter_node = nullptr;
            std::uint64_t bits = 0;
            std::size_t scanned = 0;
            for (pugi::xml_attribute a = n.first_attribute(); a && scanned <= kScanAttributes;
                 a = a.next_attribute(), ++scanned)
                bits |= name_bits(a.name());
            // A large element is left to the index that find_attribute keeps.
            if (scanned <= kScanAttributes) {
                filter_node = key;
                filter_bits = bits;
            }
        }
        if (key == filter_node) {
            const std::uint64_t bits = name_bits(utf8_name);
            if ((filter_bits & bits) != bits)
                return append_attribute(n, utf8_name);
        }
        if (pugi::xml_attribute a = find_attribute(n, utf8_name, true))
            return a;
        return append_attribute(n, utf8_name);
    }

    pugi::xml_attribute append_attribute(pugi::xml_node n, const char* utf8_name)
    {
        pugi::xml_attribute a = n.append_attribute(utf8_name);
        if (a && n.internal_object() == indexed_node)
            attribute_index.emplace(utf8_name, a.internal_object());
        if (a && n.internal_object() == filter_node)
            filter_bits |= name_bits(utf8_name);
        return a;
    }

    // The names that the records' element writer shares among its attributes (XML_ElementWriter.cpp).
    std::shared_ptr<void> shared_names;

    // Text given out in ANSI lives here until it has been overwritten 16 calls later.
    static constexpr unsigned kRingSize = 16;
    std::string ring[kRingSize];
    unsigned ring_next = 0;

    // Open-addressing table from the parser's struct pointer to its node object.
    struct Slot {
        const void* key;
        COXMLNode* node;
    };
    std::vector<Slot> table;
    std::size_t table_count = 0;

    // Node objects are made in chunks and live until the document dies.
    static constexpr std::size_t kChunkNodes = 256;
    struct Chunk {
        alignas(COXMLNode) unsigned char bytes[kChunkNodes * sizeof(COXMLNode)];
    };
    std::vector<std::unique_ptr<Chunk>> chunks;
    std::size_t last_chunk_used = kChunkNodes;

    // A document read only by the records' reader: the tree answers the reading operations,
    // and the parser's document stays empty.
    std::unique_ptr<oxml::CompactTree> compact;
    oxml::CompactElements compact_elements;
    std::unordered_map<std::uint32_t, std::unique_ptr<oxml::CompactNode>> compact_attributes;

    // Takes the tree over; its elements get their node objects.
    void adopt(std::unique_ptr<oxml::CompactTree> tree);

    static constexpr std::uint32_t kNotCompact = oxml::CompactTree::kNone;
    static constexpr std::uint32_t kCompactDocument = oxml::CompactTree::kNone - 1;
    // The element of the compact tree that a node stands for, kCompactDocument for the document
    // itself, kNotCompact when the node is no part of a compact tree. Attribute nodes are asked
    // through compact_attribute_of.
    std::uint32_t compact_element_of(const COXMLNode* n) const
    {
        if (!compact)
            return kNotCompact;
        if (n == self)
            return kCompactDocument;
        if (n->handle_ != nullptr || n->is_attribute_)
            return kNotCompact;
        return static_cast<const oxml::CompactNode*>(n)->index();
    }
    std::uint32_t compact_attribute_of(const COXMLNode* n) const
    {
        if (!compact || n->handle_ != nullptr || !n->is_attribute_)
            return kNotCompact;
        return static_cast<const oxml::CompactNode*>(n)->index();
    }

    // The reading operations on a node of the compact tree (see compact_element_of).
    const char* compact_get_attribute(std::uint32_t element, const char* name);
    const char* compact_node_name(std::uint32_t element);
    std::shared_ptr<COXMLNamedNodeMap> compact_attributes_of(std::uint32_t element);
    COXMLNode* compact_child(std::uint32_t element, const char* name);
    std::shared_ptr<COXMLNodeList> compact_children(std::uint32_t element, const char* name);
    std::shared_ptr<COXMLNodeList> compact_elements_by_tag(std::uint32_t element, const char* name);
    // Records read an element's attributes mostly in the order written: each search starts after
    // the one last found on the same element.
    std::uint32_t compact_hint_element = kNotCompact;
    std::uint32_t compact_hint_next = 0;

    // The tree's index of a name asked for in the interface's code page, kNotCompact when no
    // element or attribute has it.
    std::uint32_t compact_name_index(const char* name);
    // Callers ask with a few constant names: each is looked up in the tree once, and after that
    // known by where it stands, as long as the text there is still the same.
    struct AskedName {
        const char* at = nullptr;
        std::uint32_t index = kNotCompact;
        std::uint32_t length = 0;
        alignas(16) char text[48] = {};  // the name, zeros after it
    };
    static constexpr std::size_t kAskedNames = 256;
    std::unique_ptr<AskedName[]> asked_names;

    // The readers' tables of names, each resolved once: for each name index of the tree, the
    // table's entry that has it, or kNoEntry.
    struct NameTable {
        const char* const* names;
        std::size_t count;
        std::vector<std::uint8_t> entry_of;
    };
    static constexpr std::uint8_t kNoEntry = 0xFF;
    std::vector<NameTable> name_tables;
    const NameTable& name_table(const oxml::AttributeNames& table);
    // get_attributes on an element of the compact tree.
    void compact_get_attributes(std::uint32_t element, const oxml::AttributeNames& table, const char** values);

    ~COXMLDocumentData()
    {
        for (std::size_t c = 0; c < chunks.size(); ++c) {
            std::size_t count = (c + 1 == chunks.size()) ? last_chunk_used : kChunkNodes;
            COXMLNode* nodes = reinterpret_cast<COXMLNode*>(chunks[c]->bytes);
            for (std::size_t i = 0; i < count; ++i)
                nodes[i].~COXMLNode();
        }
    }

    static std::size_t hash(const void* key)
    {
        std::uintptr_t v = reinterpret_cast<std::uintptr_t>(key);
        v ^= v >> 17;
        v *= static_cast<std::uintptr_t>(0x9E3779B97F4A7C15ull);
        return static_cast<std::size_t>(v ^ (v >> 29));
    }

    void grow_table()
    {
        std::vector<Slot> old;
        old.swap(table);
        table.assign(old.empty() ? 256 : old.size() * 2, Slot{nullptr, nullptr});
        std::size_t mask = table.size() - 1;
        for (const Slot& s : old) {
            if (s.key == nullptr)
                continue;
            std::size_t i = hash(s.key) & mask;
            while (table[i].key != nullptr)
                i = (i + 1) & mask;
            table[i] = s;
        }
    }

    COXMLNode* make_node(void* handle, bool is_attribute)
    {
        if (last_chunk_used == kChunkNodes) {
            chunks.emplace_back(new Chunk);
            last_chunk_used = 0;
        }
        void* place = chunks.back()->bytes + last_chunk_used * sizeof(COXMLNode);
        COXMLNode* node = new (place) COXMLNode(this, handle, is_attribute);
        ++last_chunk_used;
        return node;
    }

    // Elements that createElement made have their node objects at once, but enter the table only
    // when a lookup first needs it: a document built to be saved is never searched, and a table
    // the size of the tree costs a cache miss for every element.
    std::vector<Slot> unindexed;

    COXMLNode* new_element_node(void* handle)
    {
        COXMLNode* node = make_node(handle, false);
        unindexed.push_back(Slot{handle, node});
        return node;
    }

    void index_new_elements()
    {
        std::vector<Slot> fresh;
        fresh.swap(unindexed);
        while ((table_count + fresh.size() + 1) * 2 > table.size())
            grow_table();
        const std::size_t mask = table.size() - 1;
        for (const Slot& s : fresh) {
            std::size_t i = hash(s.key) & mask;
            while (table[i].key != nullptr)
                i = (i + 1) & mask;
            table[i] = s;
        }
        table_count += fresh.size();
    }

    // The one node object of a parser struct, made on first use.
    COXMLNode* lookup(void* handle, bool is_attribute)
    {
        if (!unindexed.empty())
            index_new_elements();
        if ((table_count + 1) * 2 > table.size())
            grow_table();
        std::size_t mask = table.size() - 1;
        std::size_t i = hash(handle) & mask;
        while (table[i].key != nullptr) {
            if (table[i].key == handle)
                return table[i].node;
            i = (i + 1) & mask;
        }
        COXMLNode* node = make_node(handle, is_attribute);
        table[i] = Slot{handle, node};
        ++table_count;
        return node;
    }

    // The node objects of many elements of the tree, none the document itself, appended to out.
    // The table is grown first, so that the slot of an element further on can be fetched into
    // the cache while the present one is looked up: the table is large and each slot a miss.
    void wrap_elements(const std::vector<pugi::xml_node_struct*>& elements, std::vector<COXMLNode*>& out)
    {
        if (!unindexed.empty())
            index_new_elements();
        while ((table_count + elements.size() + 1) * 2 > table.size())
            grow_table();
        out.reserve(out.size() + elements.size());
        const std::size_t ahead = 8;
        const std::size_t mask = table.size() - 1;
        for (std::size_t i = 0; i < elements.size(); ++i) {
            if (i + ahead < elements.size())
                __builtin_prefetch(&table[hash(elements[i + ahead]) & mask]);
            out.push_back(lookup(elements[i], false));
        }
    }

    COXMLNode* wrap(pugi::xml_node n)
    {
        if (!n)
            return nullptr;
        if (n == doc)
            return self;
        return lookup(n.internal_object(), false);
    }

    COXMLNode* wrap(pugi::xml_attribute a)
    {
        if (!a)
            return nullptr;
        return lookup(a.internal_object(), true);
    }

    COXMLNode* wrap(const pugi::xpath_node& x)
    {
        return x.attribute() ? wrap(x.attribute()) : wrap(x.node());
    }

    static pugi::xml_node node_of(const COXMLNode* n)
    {
        return n->is_attribute_ ? pugi::xml_node() : pugi::xml_node(static_cast<pugi::xml_node_struct*>(n->handle_));
    }

    static pugi::xml_attribute attribute_of(const COXMLNode* n)
    {
        return n->is_attribute_ ? pugi::xml_attribute(static_cast<pugi::xml_attribute_struct*>(n->handle_))
                                : pugi::xml_attribute();
    }

    // UTF-8 text of the tree to ANSI for the caller; ASCII goes out as it stands.
    const char* out(const char* utf8)
    {
        if (utf8 == nullptr)
            return "";
        if (all_ascii || oxml::is_ascii(utf8))
            return utf8;
        std::string& slot = ring[ring_next];
        ring_next = (ring_next + 1) % kRingSize;
        slot = Ostrel::Format::Utf8ToAnsi(utf8, std::strlen(utf8));
        return slot.c_str();
    }

    bool has_pending() const { return holder && holder.first_child(); }

    // The first element child of the document that is not the holder.
    pugi::xml_node root() const
    {
        for (pugi::xml_node c = doc.first_child(); c; c = c.next_sibling())
            if (c.type() == pugi::node_element && c != holder)
                return c;
        return pugi::xml_node();
    }

    // The top of the unattached subtree that holds n, or null when n is in the document proper.
    pugi::xml_node pending_top(pugi::xml_node n) const
    {
        if (!has_pending())
            return pugi::xml_node();
        for (; n; n = n.parent()) {
            pugi::xml_node p = n.parent();
            if (p == holder)
                return n;
            if (!p || p == doc)
                break;
        }
        return pugi::xml_node();
    }

    // An XPath result is seen from a context when both lie in the same tree: the document, or
    // the same unattached subtree. The holder itself is never seen.
    bool visible(const pugi::xpath_node& x, pugi::xml_node context_top) const
    {
        pugi::xml_node n = x.attribute() ? x.parent() : x.node();
        if (holder && n == holder)
            return false;
        return pending_top(n) == context_top;
    }

    // An element in a namespace: a name test of XPath without a prefix doesn't match it.
    static bool in_namespace(pugi::xml_node n)
    {
        if (std::strchr(n.name(), ':') != nullptr)
            return true;
        for (; n && n.type() == pugi::node_element; n = n.parent())
            if (pugi::xml_attribute a = n.attribute("xmlns"))
                return *a.value() != '\0';
        return false;
    }

    // Whether an element found by a name test of XPath without a prefix really matches it.
    bool matches_plain_name(pugi::xml_node n) const { return !namespaces || !in_namespace(n); }

    pugi::xml_node pending_holder()
    {
        if (!holder)
            holder = doc.append_child(oxml::kPendingHolderName);
        return holder;
    }

    void set_error(int code, const std::string& text)
    {
        error_code = code;
        error_text = text;
    }

    static const COXMLDocumentData* of(const COXMLDocument* document)
    {
        return static_cast<const COXMLNode*>(document)->owner_;
    }
    static COXMLDocumentData* owner_of(const COXMLNode* node) { return node->owner_; }
};

#endif

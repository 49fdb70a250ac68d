#include <vellument/Ostrel_XML.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include <pugixml.hpp>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_Build.h"
#include "Ostrel/XML_Nesting.h"
#include "Ostrel/XML_WellFormed.h"
#include "toolkit/CkXmlDocument.h"

namespace {

// Larger files are refused rather than read into memory.
const std::size_t kMaxFileSize = std::size_t(1) << 30;

// Deeper trees are saved without indentation: indenting costs depth squared in tabs.
const unsigned kMaxIndentDepth = 100;

// How long a declaration we look into for its encoding.
const std::size_t kMaxDeclarationLength = 1024;

// Codes of failures that are not system errors.
const int kCodeInvalidArgument = static_cast<int>(Ostrel::Error::INVALID_PARAMETER);

const char kPendingHolderName[] = "vellument-pending-elements";

// Eight bytes at a time: every text crossing the interface is checked.
bool is_ascii(const char* p, std::size_t n)
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

bool is_ascii(const char* text)
{
    return is_ascii(text, std::strlen(text));
}

// The simple name of a path "./Name" or "Name" that walking the children answers as XPath
// would, or null for anything else. Operator names are left to XPath.
const char* simple_child_name(const char* xpath)
{
    const char* name = (xpath[0] == '.' && xpath[1] == '/') ? xpath + 2 : xpath;
    const char* p = name;
    if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || *p == '_'))
        return nullptr;
    for (++p; *p; ++p)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') || *p == '_'))
            return nullptr;
    if (std::strcmp(name, "and") == 0 || std::strcmp(name, "or") == 0 || std::strcmp(name, "div") == 0 ||
        std::strcmp(name, "mod") == 0)
        return nullptr;
    return name;
}

// True when the last step of a path tests an element name without a prefix ("//Task[@N='1']",
// "./Copy"). Only such a test has to pass over elements in a namespace; the library's queries
// are all of one step, so earlier steps are not looked at.
bool last_step_is_plain_name(const char* xpath)
{
    std::string outside;  // the path without its predicates and literals
    int depth = 0;
    char quote = 0;
    for (const char* p = xpath; *p; ++p) {
        if (quote != 0) {
            if (*p == quote)
                quote = 0;
        } else if (*p == '"' || *p == '\'') {
            quote = *p;
        } else if (*p == '[') {
            ++depth;
        } else if (*p == ']') {
            --depth;
        } else if (depth == 0) {
            outside.push_back(*p);
        }
    }
    std::string step = outside.substr(outside.find_last_of('/') + 1);
    const std::string::size_type axis = step.find("::");
    if (axis != std::string::npos) {
        const std::string name = step.substr(0, axis);
        if (name != "child" && name != "descendant" && name != "descendant-or-self" && name != "self")
            return false;
        step.erase(0, axis + 2);
    }
    return simple_child_name(step.c_str()) != nullptr;
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
bool is_valid_name(const char* name)
{
    if (name == nullptr)
        return false;
    InText utf8(name);
    return oxml::is_xml_name(utf8.c_str());
}

// A value XML 1.0 can hold: the control characters that it can't, even as references, become '?'.
bool needs_control_replacement(const char* text)
{
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p)
        if (*p < 0x20 && *p != '\t' && *p != '\n' && *p != '\r')
            return true;
    return false;
}

std::string replace_controls(const char* text)
{
    std::string out(text);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r')
            c = '?';
    return out;
}

void copy_text(char* buffer, int size, const std::string& text)
{
    if (buffer == nullptr || size <= 0)
        return;
    std::size_t n = text.size();
    if (n > static_cast<std::size_t>(size - 1))
        n = static_cast<std::size_t>(size - 1);
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
}

void report(int* code_out, char* text_out, int text_size, int code, const std::string& text)
{
    if (code_out != nullptr)
        *code_out = code;
    copy_text(text_out, text_size, text);
}

struct StringWriter : pugi::xml_writer {
    std::string out;
    void write(const void* data, std::size_t size) override { out.append(static_cast<const char*>(data), size); }
};

bool equals_no_case(const std::string& a, const char* b)
{
    return Ostrel::Format::EqualsNoCaseAscii(a, b);
}

// The encoding named by an XML declaration at the very start of the bytes, or "".
std::string declared_encoding(const std::string& bytes)
{
    if (bytes.compare(0, 5, "<?xml") != 0)
        return std::string();
    std::size_t end = bytes.find("?>", 5);
    if (end == std::string::npos || end > kMaxDeclarationLength)
        return std::string();
    std::size_t pos = bytes.find("encoding", 5);
    if (pos == std::string::npos || pos > end)
        return std::string();
    pos += 8;
    auto skip_blanks = [&]() {
        while (pos < end && (bytes[pos] == ' ' || bytes[pos] == '\t' || bytes[pos] == '\r' || bytes[pos] == '\n'))
            ++pos;
    };
    skip_blanks();
    if (pos >= end || bytes[pos] != '=')
        return std::string();
    ++pos;
    skip_blanks();
    if (pos >= end || (bytes[pos] != '"' && bytes[pos] != '\''))
        return std::string();
    char quote = bytes[pos++];
    std::size_t close = bytes.find(quote, pos);
    if (close == std::string::npos || close > end)
        return std::string();
    return bytes.substr(pos, close - pos);
}

bool is_ansi_encoding(const std::string& name)
{
    static const char* const names[] = {"windows-1252", "cp1252", "iso-8859-1", "latin1", "iso_8859-1", "us-ascii"};
    for (const char* n : names)
        if (equals_no_case(name, n))
            return true;
    return false;
}

} // namespace

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
    static const std::size_t kScanAttributes = 16;
    pugi::xml_node_struct* indexed_node = nullptr;
    std::unordered_map<std::string, pugi::xml_attribute_struct*> attribute_index;

    // The attribute of that name; with may_index, a large element is indexed on the way.
    pugi::xml_attribute find_attribute(pugi::xml_node n, const char* utf8_name, bool may_index)
    {
        if (n.internal_object() != indexed_node) {
            // The first byte settles most names of a record without a call.
            const char first = utf8_name[0];
            std::size_t scanned = 0;
            pugi::xml_attribute a = n.first_attribute();
            for (; a && (scanned < kScanAttributes || !may_index); a = a.next_attribute(), ++scanned) {
                const char* name = a.name();
                if (name[0] == first && std::strcmp(name, utf8_name) == 0)
                    return a;
            }
            if (!a)
                return a;
            indexed_node = n.internal_object();
            attribute_index.clear();
            for (a = n.first_attribute(); a; a = a.next_attribute())
                attribute_index.emplace(a.name(), a.internal_object());
        }
        auto found = attribute_index.find(utf8_name);
        return found == attribute_index.end() ? pugi::xml_attribute() : pugi::xml_attribute(found->second);
    }

    pugi::xml_attribute append_attribute(pugi::xml_node n, const char* utf8_name)
    {
        pugi::xml_attribute a = n.append_attribute(utf8_name);
        if (a && n.internal_object() == indexed_node)
            attribute_index.emplace(utf8_name, a.internal_object());
        return a;
    }

    // Text given out in ANSI lives here until it has been overwritten 16 calls later.
    static const unsigned kRingSize = 16;
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
    static const std::size_t kChunkNodes = 256;
    struct Chunk {
        alignas(COXMLNode) unsigned char bytes[kChunkNodes * sizeof(COXMLNode)];
    };
    std::vector<std::unique_ptr<Chunk>> chunks;
    std::size_t last_chunk_used = kChunkNodes;

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

    // The one node object of a parser struct, made on first use.
    COXMLNode* lookup(void* handle, bool is_attribute)
    {
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
        if (all_ascii || is_ascii(utf8))
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
            holder = doc.append_child(kPendingHolderName);
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
};

// ---------------------------------------------------------------------------------------------
// Lists

struct COXMLNodeList::Items {
    std::vector<COXMLNode*> nodes;
};

COXMLNodeList::COXMLNodeList() : items_(new Items) {}

COXMLNodeList::~COXMLNodeList() = default;

int COXMLNodeList::length()
{
    std::size_t n = items_->nodes.size();
    return n > static_cast<std::size_t>(INT32_MAX) ? INT32_MAX : static_cast<int>(n);
}

COXMLNode* COXMLNodeList::item(int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= items_->nodes.size())
        return nullptr;
    return items_->nodes[static_cast<std::size_t>(index)];
}

COXMLNamedNodeMap::COXMLNamedNodeMap() = default;

COXMLNamedNodeMap::~COXMLNamedNodeMap() = default;

// ---------------------------------------------------------------------------------------------
// Nodes

COXMLNode::COXMLNode(COXMLDocumentData* owner, void* handle, bool is_attribute)
    : owner_(owner), handle_(handle), is_attribute_(is_attribute)
{
}

COXMLNode::~COXMLNode() = default;

COXMLNode* COXMLNode::appendChild(COXMLNode* child, bool /*flag*/) const
{
    if (child == nullptr || child->owner_ != owner_ || child->is_attribute_ || is_attribute_ || child == this)
        return nullptr;
    COXMLDocumentData& d = *owner_;
    pugi::xml_node parent = COXMLDocumentData::node_of(this);
    pugi::xml_node moved = COXMLDocumentData::node_of(child);
    if (!parent || !moved || moved == d.doc || moved == d.holder || (d.holder && parent == d.holder))
        return nullptr;
    if (parent == d.doc && moved.type() == pugi::node_element) {
        // A document holds one root element; a second would save into a file that isn't XML.
        pugi::xml_node root = d.root();
        if (root && root != moved) {
            VLOG(2, "[OstrelXML] appendChild: the document already has the root element %s\n", d.out(root.name()));
            return nullptr;
        }
    }
    // Refused by the parser when the child is an ancestor of the parent.
    if (!parent.append_move(moved))
        return nullptr;
    return child;
}

void COXMLNode::setAttribute(const char* name, const char* value) const
{
    if (is_attribute_ || name == nullptr)
        return;
    COXMLDocumentData& d = *owner_;
    pugi::xml_node n = COXMLDocumentData::node_of(this);
    // The document has no attributes of its own, and its root element is not changed through it.
    if (!n || n.type() != pugi::node_element)
        return;
    if (!is_valid_name(name)) {
        VLOG(2, "[OstrelXML] setAttribute: \"%s\" is not an XML name; not set\n", name);
        return;
    }
    InText uname(name);
    std::string replaced;
    if (value != nullptr && needs_control_replacement(value)) {
        replaced = replace_controls(value);
        value = replaced.c_str();
    }
    InText uvalue(value);
    if (!uname.ascii() || !uvalue.ascii())
        d.all_ascii = false;
    if (std::strncmp(uname.c_str(), "xmlns", 5) == 0)
        d.namespaces = true;
    pugi::xml_attribute a = d.find_attribute(n, uname.c_str(), true);
    if (!a)
        a = d.append_attribute(n, uname.c_str());
    a.set_value(uvalue.c_str());
}

const char* COXMLNode::getAttribute(const char* name) const
{
    if (is_attribute_ || name == nullptr)
        return "";
    COXMLDocumentData& d = *owner_;
    pugi::xml_node n = COXMLDocumentData::node_of(this);
    if (n == d.doc)
        n = d.root();
    if (!n)
        return "";
    if (is_ascii(name))
        return d.out(d.find_attribute(n, name, false).value());
    InText uname(name);
    return d.out(d.find_attribute(n, uname.c_str(), false).value());
}

const char* COXMLNode::nodeName() const
{
    if (is_attribute_)
        return owner_->out(COXMLDocumentData::attribute_of(this).name());
    pugi::xml_node n = COXMLDocumentData::node_of(this);
    if (n == owner_->doc)
        return "#document";
    return owner_->out(n.name());
}

const char* COXMLNode::getText() const
{
    if (is_attribute_)
        return owner_->out(COXMLDocumentData::attribute_of(this).value());
    pugi::xml_node n = COXMLDocumentData::node_of(this);
    switch (n.type()) {
    case pugi::node_element:
        return owner_->out(n.text().get());
    case pugi::node_pcdata:
    case pugi::node_cdata:
        return owner_->out(n.value());
    default:
        return "";
    }
}

std::shared_ptr<COXMLNamedNodeMap> COXMLNode::attributes()
{
    std::shared_ptr<COXMLNamedNodeMap> list = std::make_shared<COXMLNamedNodeMap>();
    if (is_attribute_)
        return list;
    COXMLDocumentData& d = *owner_;
    pugi::xml_node n = COXMLDocumentData::node_of(this);
    if (n == d.doc)
        n = d.root();
    for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute())
        list->items_->nodes.push_back(d.wrap(a));
    return list;
}

COXMLNode* COXMLNode::selectSingleNode(const char* xpath) const
{
    if (xpath == nullptr || is_attribute_)
        return nullptr;
    COXMLDocumentData& d = *owner_;
    pugi::xml_node context = COXMLDocumentData::node_of(this);
    if (const char* name = simple_child_name(xpath)) {
        if (context != d.holder) {
            for (pugi::xml_node c = context.first_child(); c; c = c.next_sibling())
                if (c.type() == pugi::node_element && c != d.holder && std::strcmp(c.name(), name) == 0 &&
                    d.matches_plain_name(c))
                    return d.wrap(c);
            return nullptr;
        }
    }
    try {
        InText text(xpath);
        pugi::xpath_query query(text.c_str());
        if (!query || query.return_type() != pugi::xpath_type_node_set)
            return nullptr;
        pugi::xml_node context_top = d.pending_top(context);
        const bool plain_name = d.namespaces && last_step_is_plain_name(text.c_str());
        auto seen = [&](const pugi::xpath_node& x) {
            return d.visible(x, context_top) && (!plain_name || x.attribute() || d.matches_plain_name(x.node()));
        };
        pugi::xpath_node first = query.evaluate_node(context);
        if (!first || seen(first))
            return d.wrap(first);
        // The first match lies in another tree (see visible) or in a namespace: look further.
        pugi::xpath_node_set set = query.evaluate_node_set(context);
        set.sort();
        for (const pugi::xpath_node& x : set)
            if (seen(x))
                return d.wrap(x);
    } catch (const std::exception& e) {
        VLOG(2, "[OstrelXML] selectSingleNode(\"%s\") failed: %s\n", xpath, e.what());
    }
    return nullptr;
}

std::shared_ptr<COXMLNodeList> COXMLNode::selectNodes(const char* xpath, bool /*flag*/)
{
    if (xpath == nullptr || is_attribute_)
        return std::shared_ptr<COXMLNodeList>();
    COXMLDocumentData& d = *owner_;
    pugi::xml_node context = COXMLDocumentData::node_of(this);
    // The children a record reads are found by walking them: compiling XPath costs far more.
    if (const char* name = simple_child_name(xpath)) {
        if (context != d.holder) {
            std::shared_ptr<COXMLNodeList> list;
            for (pugi::xml_node c = context.first_child(); c; c = c.next_sibling()) {
                if (c.type() != pugi::node_element || c == d.holder || std::strcmp(c.name(), name) != 0 ||
                    !d.matches_plain_name(c))
                    continue;
                if (!list)
                    list = std::make_shared<COXMLNodeList>();
                list->items_->nodes.push_back(d.wrap(c));
            }
            return list;
        }
    }
    try {
        InText text(xpath);
        pugi::xpath_query query(text.c_str());
        if (!query || query.return_type() != pugi::xpath_type_node_set)
            return std::shared_ptr<COXMLNodeList>();
        pugi::xpath_node_set set = query.evaluate_node_set(context);
        set.sort();
        pugi::xml_node context_top = d.pending_top(context);
        const bool plain_name = d.namespaces && last_step_is_plain_name(text.c_str());
        std::shared_ptr<COXMLNodeList> list = std::make_shared<COXMLNodeList>();
        list->items_->nodes.reserve(set.size());
        for (const pugi::xpath_node& x : set)
            if (d.visible(x, context_top) && (!plain_name || x.attribute() || d.matches_plain_name(x.node())))
                list->items_->nodes.push_back(d.wrap(x));
        if (list->items_->nodes.empty())
            return std::shared_ptr<COXMLNodeList>();
        return list;
    } catch (const std::exception& e) {
        VLOG(2, "[OstrelXML] selectNodes(\"%s\") failed: %s\n", xpath, e.what());
    }
    return std::shared_ptr<COXMLNodeList>();
}

std::shared_ptr<COXMLNodeList> COXMLNode::getElementsByTagName(const char* name)
{
    std::shared_ptr<COXMLNodeList> list = std::make_shared<COXMLNodeList>();
    if (name == nullptr || is_attribute_)
        return list;
    COXMLDocumentData& d = *owner_;
    pugi::xml_node start = COXMLDocumentData::node_of(this);
    InText uname(name);
    const char* wanted = uname.c_str();
    bool any = std::strcmp(wanted, "*") == 0;
    std::vector<COXMLNode*>& out = list->items_->nodes;

    // Pre-order walk without recursion, so that depth costs no stack.
    pugi::xml_node n = start.first_child();
    while (n) {
        bool skip = (n == d.holder);
        if (!skip && n.type() == pugi::node_element) {
            if (any || std::strcmp(n.name(), wanted) == 0)
                out.push_back(d.wrap(n));
            if (n.first_child()) {
                n = n.first_child();
                continue;
            }
        }
        while (n && n != start && !n.next_sibling())
            n = n.parent();
        if (!n || n == start)
            break;
        n = n.next_sibling();
    }
    return list;
}

// ---------------------------------------------------------------------------------------------
// Documents

COXMLDocument::COXMLDocument(COXMLDocumentData* data)
    : COXMLNode(data, data->doc.internal_object(), false), data_(data)
{
    data->self = this;
}

COXMLDocument::~COXMLDocument()
{
    delete data_;
}

COXMLDocument* COXMLDocument::createDocument()
{
    return new COXMLDocument(new COXMLDocumentData);
}

COXMLDocument* COXMLDocument::createNewDocument(CkXml* root)
{
    // The toolkit tree becomes a document of its own; the handle is consumed either way.
    return ckxml_to_document(root);
}

namespace {

// Checks UTF-8 bytes for well-formedness and parses them into the data of a new document, or
// null on failure. The bytes are kept: the tree points into them.
std::unique_ptr<COXMLDocumentData> parse_document(std::string bytes, int* errorCode, char* errorText,
                                                  int errorTextSize)
{
    oxml::WellFormedResult check;
    if (!oxml::check_well_formed(bytes.data(), bytes.size(), check)) {
        report(errorCode, errorText, errorTextSize, check.code, check.message);
        return nullptr;
    }
    // The parser does only the work that the text calls for: the same tree comes out, sooner.
    unsigned flags = pugi::parse_minimal;
    if (check.cdata)
        flags |= pugi::parse_cdata;
    if (check.references)
        flags |= pugi::parse_escapes;
    if (check.carriage_returns)
        flags |= pugi::parse_eol;
    if (check.attribute_white_space)
        flags |= pugi::parse_wconv_attribute;
    std::unique_ptr<COXMLDocumentData> data(new COXMLDocumentData);
    data->source = std::move(bytes);
    pugi::xml_parse_result result =
        data->doc.load_buffer_inplace(&data->source[0], data->source.size(), flags, pugi::encoding_utf8);
    if (!result || !data->root()) {
        // Not expected after the check; said as well as the parser can.
        report(errorCode, errorText, errorTextSize, OXML_E_SYNTAX,
               std::string(result.description()) + " at offset " + std::to_string(result.offset));
        return nullptr;
    }
    data->all_ascii = check.ascii;
    data->namespaces = check.namespaces;
    return data;
}

} // namespace

COXMLDocument* COXMLDocument::load(const char* path, int* errorCode, char* errorText, int errorTextSize)
{
    if (path == nullptr) {
        report(errorCode, errorText, errorTextSize, kCodeInvalidArgument, "No file name given");
        return nullptr;
    }
    try {
        std::string bytes;
        if (!Ostrel::FileSystem::ReadFile(path, bytes, kMaxFileSize)) {
            unsigned long error = Ostrel::Error::GetLastError();
            if (error == Ostrel::Error::FILE_NOT_FOUND || error == Ostrel::Error::PATH_NOT_FOUND) {
                Ostrel::Error::SetLastError(Ostrel::Error::FILE_NOT_FOUND);
                report(errorCode, errorText, errorTextSize, static_cast<int>(Ostrel::Error::FILE_NOT_FOUND),
                       std::string("File not found: ") + path);
            } else {
                if (error == Ostrel::Error::SUCCESS)
                    error = Ostrel::Error::READ_FAULT;
                report(errorCode, errorText, errorTextSize, static_cast<int>(error),
                       std::string("Error reading file ") + path + ": " + Ostrel::Error::GetErrorText(error));
            }
            return nullptr;
        }
        if (bytes.size() >= 3 && std::memcmp(bytes.data(), "\xEF\xBB\xBF", 3) == 0) {
            bytes.erase(0, 3);
        } else {
            oxml::WellFormedResult wide;
            std::string utf8;
            if (!oxml::wide_to_utf8(bytes, utf8, wide)) {
                report(errorCode, errorText, errorTextSize, wide.code, wide.message);
                return nullptr;
            }
            if (!utf8.empty())
                bytes.swap(utf8);
            else if (is_ansi_encoding(declared_encoding(bytes)))
                // Files written on Windows may be in the code page; the tree holds UTF-8.
                bytes = Ostrel::Format::AnsiToUtf8(bytes);
        }
        std::unique_ptr<COXMLDocumentData> data = parse_document(std::move(bytes), errorCode, errorText, errorTextSize);
        return data ? new COXMLDocument(data.release()) : nullptr;
    } catch (const std::bad_alloc&) {
        report(errorCode, errorText, errorTextSize, static_cast<int>(Ostrel::Error::NOT_ENOUGH_MEMORY),
               std::string("Out of memory loading ") + path);
    }
    return nullptr;
}

COXMLDocument* COXMLDocument::loadXML(const char* text, int* errorCode, char* errorText, int errorTextSize)
{
    if (text == nullptr) {
        report(errorCode, errorText, errorTextSize, kCodeInvalidArgument, "No XML text given");
        return nullptr;
    }
    try {
        std::size_t length = std::strlen(text);
        std::string bytes;
        if (length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) {
            // A byte order mark says UTF-8 whatever the interface's code page.
            bytes.assign(text + 3, length - 3);
        } else {
            // Text in memory comes in the code page like all text of this interface; a
            // declaration inside it names the encoding it had before it was handed over.
            bytes = Ostrel::Format::AnsiToUtf8(text, length);
        }
        std::unique_ptr<COXMLDocumentData> data = parse_document(std::move(bytes), errorCode, errorText, errorTextSize);
        return data ? new COXMLDocument(data.release()) : nullptr;
    } catch (const std::bad_alloc&) {
        report(errorCode, errorText, errorTextSize, static_cast<int>(Ostrel::Error::NOT_ENOUGH_MEMORY),
               "Out of memory parsing XML text");
    }
    return nullptr;
}

int COXMLDocument::save(const char* path) const
{
    COXMLDocumentData& d = *data_;
    if (path == nullptr) {
        d.set_error(kCodeInvalidArgument, "No file name given");
        return 0;
    }
    if (!d.root()) {
        // A file without a root element would not load again.
        d.set_error(static_cast<int>(pugi::status_no_document_element),
                    std::string("Error writing file ") + path + ": the document has no root element");
        VLOG(2, "[OstrelXML] %s\n", d.error_text.c_str());
        return 0;
    }
    try {
        // Indentation grows with depth squared; a pathologically deep tree is written flat.
        unsigned depth = 0;
        unsigned max_depth = 0;
        pugi::xml_node start = d.doc;
        pugi::xml_node n = start.first_child();
        while (n && max_depth <= kMaxIndentDepth) {
            if (n != d.holder && n.first_child()) {
                n = n.first_child();
                if (++depth > max_depth)
                    max_depth = depth;
                continue;
            }
            while (n != start && !n.next_sibling()) {
                n = n.parent();
                --depth;
            }
            if (n == start)
                break;
            n = n.next_sibling();
        }
        unsigned flags = max_depth > kMaxIndentDepth ? pugi::format_raw : pugi::format_indent;

        StringWriter writer;
        writer.out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
        for (pugi::xml_node c = d.doc.first_child(); c; c = c.next_sibling()) {
            if (c == d.holder || c.type() == pugi::node_declaration)
                continue;
            c.print(writer, "\t", flags, pugi::encoding_utf8, 0);
        }
        if (flags == pugi::format_raw)
            writer.out += '\n';

        if (!Ostrel::FileSystem::WriteFileAtomic(path, writer.out.data(), writer.out.size())) {
            unsigned long error = Ostrel::Error::GetLastError();
            if (error == Ostrel::Error::SUCCESS)
                error = Ostrel::Error::WRITE_FAULT;
            d.set_error(static_cast<int>(error),
                        std::string("Error writing file ") + path + ": " + Ostrel::Error::GetErrorText(error));
            VLOG(2, "[OstrelXML] %s\n", d.error_text.c_str());
            return 0;
        }
    } catch (const std::bad_alloc&) {
        d.set_error(static_cast<int>(Ostrel::Error::NOT_ENOUGH_MEMORY),
                    std::string("Error writing file ") + path + ": out of memory");
        return 0;
    }
    return 1;
}

void COXMLDocument::getXMLError(int* errorCode, char* errorText, int errorTextSize) const
{
    report(errorCode, errorText, errorTextSize, data_->error_code, data_->error_text);
}

void COXMLDocument::clearXMLError() const
{
    data_->error_code = 0;
    data_->error_text.clear();
}

COXMLNode* COXMLDocument::createElement(const char* name)
{
    if (!is_valid_name(name)) {
        VLOG(2, "[OstrelXML] createElement: \"%s\" is not an XML name\n", name ? name : "(null)");
        return nullptr;
    }
    InText uname(name);
    if (!uname.ascii())
        data_->all_ascii = false;
    return data_->wrap(data_->pending_holder().append_child(uname.c_str()));
}

COXMLNode* COXMLDocument::getDocumentElement()
{
    return data_->wrap(data_->root());
}

// ---------------------------------------------------------------------------------------------
// Building a document from outside text

namespace oxml {

TreeBuilder::TreeBuilder() : document_(COXMLDocument::createDocument()), current_(nullptr) {}

TreeBuilder::~TreeBuilder() = default;

void TreeBuilder::open(const std::string& name)
{
    COXMLDocumentData& d = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document_.get()));
    pugi::xml_node parent = current_ != nullptr ? pugi::xml_node(static_cast<pugi::xml_node_struct*>(current_)) : d.doc;
    if (current_ == nullptr && d.root())
        return;  // one root only
    current_ = parent.append_child(name.c_str()).internal_object();
}

void TreeBuilder::attribute(const std::string& name, const std::string& value)
{
    if (current_ == nullptr)
        return;
    COXMLDocumentData& d = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document_.get()));
    pugi::xml_node n(static_cast<pugi::xml_node_struct*>(current_));
    if (name.compare(0, 5, "xmlns") == 0)
        d.namespaces = true;
    pugi::xml_attribute a = d.find_attribute(n, name.c_str(), true);
    if (!a)
        a = d.append_attribute(n, name.c_str());
    a.set_value(value.c_str());
}

void TreeBuilder::text(const std::string& utf8)
{
    if (current_ == nullptr || utf8.find_first_not_of(" \t\r\n") == std::string::npos)
        return;
    pugi::xml_node n(static_cast<pugi::xml_node_struct*>(current_));
    pugi::xml_node last = n.last_child();
    if (last && last.type() == pugi::node_pcdata)
        last.set_value((std::string(last.value()) + utf8).c_str());
    else
        n.append_child(pugi::node_pcdata).set_value(utf8.c_str());
}

void TreeBuilder::close()
{
    if (current_ == nullptr)
        return;
    pugi::xml_node parent = pugi::xml_node(static_cast<pugi::xml_node_struct*>(current_)).parent();
    current_ = parent.type() == pugi::node_element ? parent.internal_object() : nullptr;
}

COXMLDocument* TreeBuilder::finish()
{
    if (!document_ || !COXMLDocumentData::of(document_.get())->root())
        return nullptr;
    current_ = nullptr;
    return document_.release();
}

} // namespace oxml

// ---------------------------------------------------------------------------------------------
// Nesting check

const char* xml_find_self_nested_element(const COXMLDocument* document, const char* const* names, int count)
{
    if (document == nullptr || names == nullptr || count <= 0)
        return nullptr;
    // One walk without recursion; open[i] counts the elements named names[i] around the present node.
    std::vector<int> open(static_cast<std::size_t>(count), 0);
    std::vector<int> entered;  // per level: index into names, or -1
    // Called once per node on a large tree: the cheap name test comes first, the type test only
    // for a name that matches (a processing instruction may carry one).
    auto index_of = [&](pugi::xml_node n) {
        const char* name = n.name();
        if (*name == '\0')
            return -1;
        // Two bytes settle almost every node; a string compare per name per node showed.
        for (int i = 0; i < count; ++i)
            if (name[0] == names[i][0] && name[1] == names[i][1] && std::strcmp(name, names[i]) == 0)
                return n.type() == pugi::node_element ? i : -1;
        return -1;
    };
    const pugi::xml_node top = COXMLDocumentData::of(document)->doc;
    pugi::xml_node node = top.first_child();
    while (node) {
        const int i = index_of(node);
        if (i >= 0 && open[static_cast<std::size_t>(i)] > 0)
            return names[i];
        const pugi::xml_node child = node.first_child();
        if (child) {
            if (i >= 0)
                ++open[static_cast<std::size_t>(i)];
            entered.push_back(i);
            node = child;
            continue;
        }
        pugi::xml_node next = node.next_sibling();
        while (!next) {
            node = node.parent();
            if (node == top || entered.empty())
                return nullptr;
            const int up = entered.back();
            entered.pop_back();
            if (up >= 0)
                --open[static_cast<std::size_t>(up)];
            next = node.next_sibling();
        }
        node = next;
    }
    return nullptr;
}

#include <vellument/Ostrel_XML.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_Nesting.h"
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

bool is_ascii(const std::string& bytes)
{
    return is_ascii(bytes.data(), bytes.size());
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

// The names pugixml reads back: a letter, '_', ':' or any non-ASCII byte first, then also
// digits, '-' and '.'. Anything else would save into a file that no longer parses.
bool is_valid_name(const char* name)
{
    if (name == nullptr || *name == '\0')
        return false;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(name);
    auto start = [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' || c >= 0x80;
    };
    if (!start(*p))
        return false;
    for (++p; *p; ++p)
        if (!start(*p) && !(*p >= '0' && *p <= '9') && *p != '-' && *p != '.')
            return false;
    return true;
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

bool has_unicode_mark_or_wide_start(const std::string& bytes)
{
    const unsigned char* b = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t n = bytes.size();
    if (n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF)
        return true;
    if (n >= 2 && ((b[0] == 0xFE && b[1] == 0xFF) || (b[0] == 0xFF && b[1] == 0xFE)))
        return true;
    // UTF-16 or UTF-32 without a mark starts with a zero byte among its first four.
    for (std::size_t i = 0; i < n && i < 4; ++i)
        if (b[i] == 0)
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

    // Readers ask for a node's attributes in the order they were written: the search for the
    // next one starts after the last one found on the same node.
    pugi::xml_node_struct* hint_node = nullptr;
    pugi::xml_attribute hint_attribute;

    pugi::xml_attribute find_attribute(pugi::xml_node n, const char* utf8_name)
    {
        if (n.internal_object() != hint_node) {
            hint_node = n.internal_object();
            hint_attribute = n.first_attribute();
        }
        return n.attribute(utf8_name, hint_attribute);
    }

    // The element createElement made last, and a bit per name hash of the attributes set on it
    // since: a clear bit proves a name new, so writing a fresh element needs no search.
    pugi::xml_node_struct* fresh_node = nullptr;
    std::uint64_t fresh_names = 0;

    // Length and the outer letters tell the names of one element apart well enough.
    static std::uint64_t name_bit(const char* name)
    {
        const std::size_t n = std::strlen(name);
        const unsigned char first = static_cast<unsigned char>(name[0]);
        const unsigned char last = n > 0 ? static_cast<unsigned char>(name[n - 1]) : 0;
        return std::uint64_t(1) << ((n * 5 + first * 7 + last * 13) & 63);
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
    // The document carries no attributes of its own: they go to its root element.
    if (n == d.doc)
        n = d.root();
    if (!n || n.type() != pugi::node_element)
        return;
    if (!is_valid_name(name)) {
        VLOG(2, "[OstrelXML] setAttribute: \"%s\" is not an XML name; not set\n", name);
        return;
    }
    InText uname(name);
    InText uvalue(value);
    if (!uname.ascii() || !uvalue.ascii())
        d.all_ascii = false;
    pugi::xml_attribute a;
    if (n.internal_object() == d.fresh_node) {
        const std::uint64_t bit = COXMLDocumentData::name_bit(uname.c_str());
        if (d.fresh_names & bit)
            a = n.attribute(uname.c_str());
        d.fresh_names |= bit;
    } else {
        a = n.attribute(uname.c_str());
    }
    if (!a)
        a = n.append_attribute(uname.c_str());
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
        return d.out(d.find_attribute(n, name).value());
    InText uname(name);
    return d.out(d.find_attribute(n, uname.c_str()).value());
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
                if (c.type() == pugi::node_element && c != d.holder && std::strcmp(c.name(), name) == 0)
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
        pugi::xpath_node first = query.evaluate_node(context);
        if (!first || d.visible(first, context_top))
            return d.wrap(first);
        // The first match lies in another tree (see visible): look further.
        pugi::xpath_node_set set = query.evaluate_node_set(context);
        set.sort();
        for (const pugi::xpath_node& x : set)
            if (d.visible(x, context_top))
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
                if (c.type() != pugi::node_element || c == d.holder || std::strcmp(c.name(), name) != 0)
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
        std::shared_ptr<COXMLNodeList> list = std::make_shared<COXMLNodeList>();
        list->items_->nodes.reserve(set.size());
        for (const pugi::xpath_node& x : set)
            if (d.visible(x, context_top))
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

// Parses bytes into the data of a new document, or null on failure. The bytes are kept: the
// tree points into them.
std::unique_ptr<COXMLDocumentData> parse_document(std::string bytes, pugi::xml_encoding encoding, int* errorCode,
                                                  char* errorText, int errorTextSize)
{
    std::unique_ptr<COXMLDocumentData> data(new COXMLDocumentData);
    data->source = std::move(bytes);
    pugi::xml_parse_result result = data->doc.load_buffer_inplace(&data->source[0], data->source.size(),
                                                                  pugi::parse_default, encoding);
    if (!result) {
        std::string text = std::string(result.description()) + " at offset " + std::to_string(result.offset);
        report(errorCode, errorText, errorTextSize, static_cast<int>(result.status), text);
        return nullptr;
    }
    if (!data->root()) {
        report(errorCode, errorText, errorTextSize, static_cast<int>(pugi::status_no_document_element),
               "No document element found");
        return nullptr;
    }
    // Parsed in place, every text lies in the buffer, escapes decoded included.
    data->all_ascii = encoding == pugi::encoding_utf8 && is_ascii(data->source);
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
        pugi::xml_encoding encoding = pugi::encoding_utf8;
        if (has_unicode_mark_or_wide_start(bytes)) {
            encoding = pugi::encoding_auto;
        } else if (is_ansi_encoding(declared_encoding(bytes))) {
            // Files written on Windows may be in the code page; the tree holds UTF-8.
            bytes = Ostrel::Format::AnsiToUtf8(bytes);
        }
        std::unique_ptr<COXMLDocumentData> data =
            parse_document(std::move(bytes), encoding, errorCode, errorText, errorTextSize);
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
        std::unique_ptr<COXMLDocumentData> data =
            parse_document(std::move(bytes), pugi::encoding_utf8, errorCode, errorText, errorTextSize);
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
    pugi::xml_node element = data_->pending_holder().append_child(uname.c_str());
    if (element) {
        data_->fresh_node = element.internal_object();
        data_->fresh_names = 0;
    }
    return data_->wrap(element);
}

COXMLNode* COXMLDocument::getDocumentElement()
{
    return data_->wrap(data_->root());
}

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

#include <vellument/Ostrel_XML.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_Data.h"

using oxml::InText;
using oxml::is_ascii;

namespace {

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

} // namespace

// ---------------------------------------------------------------------------------------------
// Lists

COXMLNodeList::COXMLNodeList() : items_(new Items) {}

COXMLNodeList::~COXMLNodeList() = default;

int COXMLNodeList::length()
{
    std::size_t n = items_->size();
    return n > static_cast<std::size_t>(INT32_MAX) ? INT32_MAX : static_cast<int>(n);
}

COXMLNode* COXMLNodeList::item(int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= items_->size())
        return nullptr;
    return items_->at(static_cast<std::size_t>(index));
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
    InText uname(name);
    if (!oxml::is_xml_name(uname.c_str())) {
        VLOG(2, "[OstrelXML] setAttribute: \"%s\" is not an XML name; not set\n", name);
        return;
    }
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
    pugi::xml_attribute a = d.attribute_for_writing(n, uname.c_str());
    a.set_value(uvalue.c_str());
}

const char* COXMLNode::getAttribute(const char* name) const
{
    if (is_attribute_ || name == nullptr)
        return "";
    COXMLDocumentData& d = *owner_;
    const std::uint32_t compact = d.compact_element_of(this);
    if (compact != COXMLDocumentData::kNotCompact)
        return d.compact_get_attribute(compact, name);
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
    const std::uint32_t compact_attribute = owner_->compact_attribute_of(this);
    if (compact_attribute != COXMLDocumentData::kNotCompact)
        return owner_->out(owner_->compact->attribute_name(compact_attribute));
    const std::uint32_t compact = owner_->compact_element_of(this);
    if (compact != COXMLDocumentData::kNotCompact)
        return owner_->compact_node_name(compact);
    if (is_attribute_)
        return owner_->out(COXMLDocumentData::attribute_of(this).name());
    pugi::xml_node n = COXMLDocumentData::node_of(this);
    if (n == owner_->doc)
        return "#document";
    return owner_->out(n.name());
}

const char* COXMLNode::getText() const
{
    const std::uint32_t compact_attribute = owner_->compact_attribute_of(this);
    if (compact_attribute != COXMLDocumentData::kNotCompact)
        return owner_->out(owner_->compact->attribute_value(compact_attribute));
    // The compact tree holds no text.
    if (owner_->compact_element_of(this) != COXMLDocumentData::kNotCompact)
        return "";
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
    const std::uint32_t compact = d.compact_element_of(this);
    if (compact != COXMLDocumentData::kNotCompact)
        return d.compact_attributes_of(compact);
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
    const std::uint32_t compact = d.compact_element_of(this);
    if (compact != COXMLDocumentData::kNotCompact) {
        if (const char* name = simple_child_name(xpath))
            return d.compact_child(compact, name);
        VLOG(2, "[OstrelXML] selectSingleNode(\"%s\"): a document read for its records answers only child paths\n",
             xpath);
        return nullptr;
    }
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
    const std::uint32_t compact = d.compact_element_of(this);
    if (compact != COXMLDocumentData::kNotCompact) {
        if (const char* name = simple_child_name(xpath))
            return d.compact_children(compact, name);
        VLOG(2, "[OstrelXML] selectNodes(\"%s\"): a document read for its records answers only child paths\n", xpath);
        return std::shared_ptr<COXMLNodeList>();
    }
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
    if (name == nullptr || is_attribute_)
        return std::make_shared<COXMLNodeList>();
    COXMLDocumentData& d = *owner_;
    // A compact tree makes its own list: none is made here for nothing.
    const std::uint32_t compact = d.compact_element_of(this);
    if (compact != COXMLDocumentData::kNotCompact)
        return d.compact_elements_by_tag(compact, name);
    std::shared_ptr<COXMLNodeList> list = std::make_shared<COXMLNodeList>();
    pugi::xml_node start = COXMLDocumentData::node_of(this);
    InText uname(name);
    const char* wanted = uname.c_str();
    bool any = std::strcmp(wanted, "*") == 0;
    std::vector<COXMLNode*>& out = list->items_->nodes;

    // Pre-order walk without recursion, so that depth costs no stack. Every call into the parser
    // counts here: the readers walk each record's subtree, so the whole document several times.
    // The matches are wrapped together at the end (see wrap_elements).
    const pugi::xml_node_struct* const holder = d.holder.internal_object();
    const pugi::xml_node_struct* const top = start.internal_object();
    std::vector<pugi::xml_node_struct*> found;
    pugi::xml_node n = start.first_child();
    while (n) {
        if (n.type() == pugi::node_element && n.internal_object() != holder) {
            if (any || oxml::same_name(n.name(), wanted))
                found.push_back(n.internal_object());
            if (pugi::xml_node child = n.first_child()) {
                n = child;
                continue;
            }
        }
        pugi::xml_node next = n.next_sibling();
        while (!next) {
            n = n.parent();
            if (!n || n.internal_object() == top)
                break;
            next = n.next_sibling();
        }
        n = next;
    }
    d.wrap_elements(found, out);
    return list;
}


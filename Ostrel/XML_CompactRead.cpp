// The reading operations of the XML interface on a document held as a compact tree.

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "Ostrel/XML_Data.h"

using oxml::CompactTree;

void COXMLDocumentData::adopt(std::unique_ptr<CompactTree> tree)
{
    compact = std::move(tree);
    // Name indexes are the tree's own.
    asked_names.reset(new AskedName[kAskedNames]);
    name_tables.clear();
    compact_elements.make(this, compact->size());
}

COXMLDocument* oxml::compact_document(std::unique_ptr<CompactTree> tree, bool ascii)
{
    if (!tree)
        return nullptr;
    std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
    COXMLDocumentData& data = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document.get()));
    data.all_ascii = ascii;
    data.adopt(std::move(tree));
    return document.release();
}

namespace {

// The document answers for its element.
std::uint32_t element_or_root(std::uint32_t element)
{
    return element == COXMLDocumentData::kCompactDocument ? 0 : element;
}

} // namespace

namespace {

// Whether the text at name is the one kept: the address alone could be a caller's buffer used
// again for another name.
bool is_kept_name(const char* name, const COXMLDocumentData::AskedName& kept)
{
    return std::strcmp(name, kept.text) == 0;
}

} // namespace

std::uint32_t COXMLDocumentData::compact_name_index(const char* name)
{
    AskedName& asked = asked_names[(reinterpret_cast<std::uintptr_t>(name) * 0x9E3779B97F4A7C15ull) >> 56];
    if (asked.at == name && is_kept_name(name, asked))
        return asked.index;
    // An ASCII name, as the records' all are, is the same in UTF-8.
    const std::size_t length = std::strlen(name);
    std::uint32_t index;
    if (oxml::is_ascii(name, length)) {
        index = compact->name_index(name);
    } else {
        oxml::InText utf8(name);
        index = compact->name_index(utf8.c_str());
    }
    if (length < sizeof asked.text) {
        asked = AskedName();
        asked.at = name;
        asked.index = index;
        asked.length = static_cast<std::uint32_t>(length);
        std::memcpy(asked.text, name, length);
    }
    return index;
}

const char* COXMLDocumentData::compact_get_attribute(std::uint32_t element, const char* name)
{
    element = element_or_root(element);
    const std::uint32_t index = compact_name_index(name);
    if (index == CompactTree::kNone)
        return "";
    const std::uint32_t from = element == compact_hint_element ? compact_hint_next : compact->attributes_begin(element);
    const std::uint32_t found = compact->find_attribute(element, index, from);
    if (found == CompactTree::kNone)
        return "";
    compact_hint_element = element;
    compact_hint_next = found + 1;
    return out(compact->attribute_value(found));
}

const COXMLDocumentData::NameTable& COXMLDocumentData::name_table(const oxml::AttributeNames& table)
{
    for (const NameTable& known : name_tables)
        if (known.names == table.names && known.count == table.count)
            return known;
    NameTable made{table.names, table.count, std::vector<std::uint8_t>()};
    for (std::size_t i = 0; i < table.count; ++i) {
        const std::uint32_t index = compact_name_index(table.names[i]);
        if (index == CompactTree::kNone)
            continue;
        if (index >= made.entry_of.size())
            made.entry_of.resize(index + 1, kNoEntry);
        if (made.entry_of[index] == kNoEntry)
            made.entry_of[index] = static_cast<std::uint8_t>(i);
    }
    name_tables.push_back(std::move(made));
    return name_tables.back();
}

void COXMLDocumentData::compact_get_attributes(std::uint32_t element, const oxml::AttributeNames& table,
                                               const char** values)
{
    element = element_or_root(element);
    const std::vector<std::uint8_t>& entry_of = name_table(table).entry_of;
    for (std::size_t i = 0; i < table.count; ++i)
        values[i] = "";
    const std::uint32_t end = compact->attributes_end(element);
    for (std::uint32_t a = compact->attributes_begin(element); a < end; ++a) {
        const std::uint32_t name = compact->attribute_name_index(a);
        if (name < entry_of.size() && entry_of[name] != kNoEntry)
            values[entry_of[name]] = out(compact->attribute_value(a));
    }
}

void oxml::get_attributes(const COXMLNode* node, const AttributeNames& table, const char** values)
{
    if (node != nullptr && table.count <= kMaxAttributeNames) {
        COXMLDocumentData& data = *COXMLDocumentData::owner_of(node);
        const std::uint32_t element = data.compact_element_of(node);
        if (element != COXMLDocumentData::kNotCompact) {
            data.compact_get_attributes(element, table, values);
            return;
        }
    }
    for (std::size_t i = 0; i < table.count; ++i)
        values[i] = node != nullptr ? node->getAttribute(table.names[i]) : "";
}

const char* COXMLDocumentData::compact_node_name(std::uint32_t element)
{
    if (element == kCompactDocument)
        return "#document";
    return out(compact->name_of(element));
}

std::shared_ptr<COXMLNamedNodeMap> COXMLDocumentData::compact_attributes_of(std::uint32_t element)
{
    element = element_or_root(element);
    std::shared_ptr<COXMLNamedNodeMap> list = std::make_shared<COXMLNamedNodeMap>();
    const std::uint32_t end = compact->attributes_end(element);
    for (std::uint32_t a = compact->attributes_begin(element); a < end; ++a) {
        std::unique_ptr<oxml::CompactNode>& node = compact_attributes[a];
        if (!node)
            node.reset(new oxml::CompactNode(this, a, true));
        list->items_->nodes.push_back(node.get());
    }
    return list;
}

COXMLNode* COXMLDocumentData::compact_child(std::uint32_t element, const char* name)
{
    const std::uint32_t wanted = compact_name_index(name);
    if (wanted == CompactTree::kNone)
        return nullptr;
    if (element == kCompactDocument)
        return compact->element(0).name == wanted ? compact_elements.at(0) : nullptr;
    const std::uint32_t end = compact->element(element).end;
    for (std::uint32_t c = element + 1; c < end; c = compact->element(c).end)
        if (compact->element(c).name == wanted)
            return compact_elements.at(c);
    return nullptr;
}

std::shared_ptr<COXMLNodeList> COXMLDocumentData::compact_children(std::uint32_t element, const char* name)
{
    const std::uint32_t wanted = compact_name_index(name);
    if (wanted == CompactTree::kNone)
        return std::shared_ptr<COXMLNodeList>();
    std::shared_ptr<COXMLNodeList> list = std::make_shared<COXMLNodeList>();
    if (element == kCompactDocument) {
        if (compact->element(0).name == wanted)
            list->items_->nodes.push_back(compact_elements.at(0));
    } else {
        const std::uint32_t end = compact->element(element).end;
        for (std::uint32_t c = element + 1; c < end; c = compact->element(c).end)
            if (compact->element(c).name == wanted)
                list->items_->nodes.push_back(compact_elements.at(c));
    }
    if (list->items_->nodes.empty())
        return std::shared_ptr<COXMLNodeList>();
    return list;
}

std::shared_ptr<COXMLNodeList> COXMLDocumentData::compact_elements_by_tag(std::uint32_t element, const char* name)
{
    std::shared_ptr<COXMLNodeList> list = std::make_shared<COXMLNodeList>();
    const bool any = name[0] == '*' && name[1] == '\0';
    const std::uint32_t wanted = any ? CompactTree::kNone : compact_name_index(name);
    if (!any && wanted == CompactTree::kNone)
        return list;
    // The descendants are the elements that follow up to the end of the subtree.
    const std::uint32_t begin = element == kCompactDocument ? 0 : element + 1;
    const std::uint32_t end = element == kCompactDocument ? compact->size() : compact->element(element).end;
    // Counted first: the list is made once, at its size.
    std::size_t count = any ? end - begin : 0;
    for (std::uint32_t e = begin; !any && e < end; ++e)
        count += compact->element(e).name == wanted;
    COXMLNodeList::Items& items = *list->items_;
    if (count <= COXMLNodeList::Items::kFew) {
        for (std::uint32_t e = begin; items.few_count < count; ++e)
            if (any || compact->element(e).name == wanted)
                items.few[items.few_count++] = compact_elements.at(e);
        return list;
    }
    std::vector<COXMLNode*>& out = items.nodes;
    out.reserve(count);
    for (std::uint32_t e = begin; e < end; ++e)
        if (any || compact->element(e).name == wanted)
            out.push_back(compact_elements.at(e));
    return list;
}

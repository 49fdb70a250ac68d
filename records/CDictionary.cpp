#include <vellument/CDictionary.h>

#include <algorithm>
#include <memory>
#include <vector>

#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"

namespace {

// The XML parser reads every byte from 0x80 up as a name character, so those are allowed too.
bool is_name_start(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' || c >= 0x80;
}

bool is_name_char(unsigned char c)
{
    return is_name_start(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

bool is_xml_name(const std::string& name)
{
    if (name.empty() || !is_name_start(static_cast<unsigned char>(name[0])))
        return false;
    return std::all_of(name.begin() + 1, name.end(),
                       [](char c) { return is_name_char(static_cast<unsigned char>(c)); });
}

} // namespace

CDictionary::CDictionary()
{
    reserve(10);
}

CDictionary::CDictionary(const CDictionary* source)
{
    if (source != nullptr)
        insert(source->begin(), source->end());
}

CDictionary::CDictionary(COXMLNode* node)
{
    if (node == nullptr)
        return;
    std::shared_ptr<COXMLNamedNodeMap> attributes = node->attributes();
    if (!attributes)
        return;
    int count = attributes->length();
    for (int i = 0; i < count; ++i) {
        COXMLNode* attribute = attributes->item(i);
        if (attribute == nullptr)
            continue;
        const char* name = attribute->nodeName();
        const char* text = attribute->getText();
        (*this)[name != nullptr ? name : ""] = text != nullptr ? text : "";
    }
}

CDictionary::~CDictionary() = default;

COXMLNode* CDictionary::create_xml_node(COXMLDocument* document) const
{
    if (document == nullptr)
        return nullptr;
    COXMLNode* element = document->createElement("Dictionary");
    if (element == nullptr)
        return nullptr;
    // Sorted by key, so that the same entries always give the same bytes, whatever order they
    // were inserted in: the file's hash depends on it.
    std::vector<const value_type*> entries;
    entries.reserve(size());
    for (const value_type& entry : *this)
        entries.push_back(&entry);
    std::sort(entries.begin(), entries.end(),
              [](const value_type* a, const value_type* b) { return a->first < b->first; });
    for (const value_type* entry : entries) {
        if (!is_xml_name(entry->first)) {
            VLOG(2, "[CDictionary] key \"%s\" is no XML name, entry not written\n", entry->first.c_str());
            continue;
        }
        element->setAttribute(entry->first.c_str(), entry->second.c_str());
    }
    return element;
}

void copy_dictionary(const CDictionary* source, CDictionary* target)
{
    if (source == nullptr || target == nullptr || source == target)
        return;
    for (const auto& entry : *source)
        (*target)[entry.first] = entry.second;
}

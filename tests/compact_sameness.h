#ifndef VELLUMENT_TESTS_COMPACT_SAMENESS_H
#define VELLUMENT_TESTS_COMPACT_SAMENESS_H

// What the test and the fuzz target of the compact reader compare: a compact tree with the
// parser's document of the same file, and two vellument objects opened from the same trail.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Compact.h"

namespace compact_sameness {

inline void add(std::string& out, const attributeDicList& list)
{
    for (const attributeDic& row : list)
        out += row.attributeName + "=" + row.attributeValue + ";";
    out += "\n";
}

inline void add(std::string& out, const CDictionary* dictionary)
{
    std::vector<std::pair<std::string, std::string>> entries(dictionary->begin(), dictionary->end());
    std::sort(entries.begin(), entries.end());
    out += "dictionary";
    for (const auto& entry : entries)
        out += " " + entry.first + "=" + entry.second;
    out += "\n";
}

// Everything a read-only open leaves in a vellument object, as one text: the trail's fields and
// dictionary, and every record's lists and the fields that no list holds.
inline std::string dump(const CVellument& v)
{
    std::string out;
    add(out, v.getAndFillMap());
    add(out, v.get_dictionary());
    for (int t = 0; t < v.get_transaction_count(); ++t) {
        const CTransaction* transaction = v.get_transaction(t);
        out += "transaction\n";
        add(out, transaction->getAndFillMap());
        add(out, transaction->get_dictionary());
        const CPackage* package = transaction->get_package();
        add(out, package->getAndFillMapBase());
        add(out, package->getAndFillMap());
        out += "ew2 " + std::to_string(package->get_ew2_employee_count()) + "\n";
        for (int f = 0; f < package->get_filing_count(); ++f) {
            const CFiling* filing = package->get_filing_at(f);
            add(out, filing->getAndFillMapBase());
            add(out, filing->getAndFillMap());
            out += "name " + filing->get_filing_name() + "\n";
            for (int i = 0; i < filing->get_form_count(); ++i) {
                const CForm* form = filing->get_form_at(i);
                add(out, form->getAndFillMapBase());
                add(out, form->getAndFillMap());
            }
        }
        const CStatus* status = transaction->get_status();
        add(out, status->getAndFillMapBase());
        out += "ew2 " + std::to_string(status->get_ew2_employee_count()) + "\n";
        for (int c = 0; c < status->get_copy_count(); ++c) {
            const CCopy* copy = status->get_copy_at(c);
            add(out, copy->getAndFillMapBase());
            add(out, copy->getAndFillMap());
            for (int h = 0; h < copy->get_history_count(); ++h)
                add(out, copy->get_history_at(h)->getAndFillMapBase());
        }
    }
    return out;
}

// The first difference between the compact tree and the parser's document of the same text, or
// "": the elements in document order with their names, attributes and the size of their subtree
// (that only for small trees: it is asked element by element).
inline std::string tree_difference(const oxml::CompactTree& tree, COXMLDocument& document)
{
    auto out = [](const char* utf8) { return Ostrel::Format::Utf8ToAnsi(utf8, std::strlen(utf8)); };
    std::shared_ptr<COXMLNodeList> elements = document.getElementsByTagName("*");
    if (static_cast<std::uint32_t>(elements->length()) != tree.size())
        return "element count";
    for (std::uint32_t i = 0; i < tree.size(); ++i) {
        const std::string at = " of element " + std::to_string(i);
        COXMLNode* element = elements->item(static_cast<int>(i));
        if (element->nodeName() != out(tree.name_of(i)))
            return "name" + at;
        if (tree.size() <= 500 &&
            static_cast<std::uint32_t>(element->getElementsByTagName("*")->length()) != tree.element(i).end - i - 1)
            return "subtree" + at;
        std::shared_ptr<COXMLNamedNodeMap> attributes = element->attributes();
        const std::uint32_t first = tree.attributes_begin(i);
        if (static_cast<std::uint32_t>(attributes->length()) != tree.attributes_end(i) - first)
            return "attribute count" + at;
        for (std::uint32_t a = first; a < tree.attributes_end(i); ++a) {
            COXMLNode* attribute = attributes->item(static_cast<int>(a - first));
            if (attribute->nodeName() != out(tree.attribute_name(a)))
                return "attribute name" + at + ": " + attribute->nodeName();
            if (attribute->getText() != out(tree.attribute_value(a)))
                return "value" + at + ": " + attribute->getText();
        }
    }
    return std::string();
}

// The same document with a DOCTYPE, after its declaration if it has one: a file that the compact
// reader leaves to the parser, which reads it as the same tree.
inline std::string with_doctype(const std::string& text)
{
    std::string::size_type at = 0;
    if (text.compare(0, 5, "<?xml") == 0) {
        at = text.find("?>");
        at = at == std::string::npos ? 0 : at + 2;
    }
    return text.substr(0, at) + "<!DOCTYPE AuditTrail>" + text.substr(at);
}

} // namespace compact_sameness

#endif

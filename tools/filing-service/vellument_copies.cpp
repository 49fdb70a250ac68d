#include "vellument_copies.h"

#include <cstdlib>
#include <cstring>

#include <pugixml.hpp>

namespace fs_intake {

namespace {

bool to_bool(const char* text)
{
    return std::strcmp(text, "true") == 0 || std::strcmp(text, "1") == 0;
}

// The last element of the name below the node, in document order, without recursion: a hostile
// document may nest deeper than the stack allows.
pugi::xml_node last_descendant(pugi::xml_node root, const char* name)
{
    pugi::xml_node found;
    for (pugi::xml_node n = root.first_child(); n;) {
        if (n.type() == pugi::node_element && std::strcmp(n.name(), name) == 0)
            found = n;
        if (n.first_child()) {
            n = n.first_child();
            continue;
        }
        while (n && n != root && !n.next_sibling())
            n = n.parent();
        if (!n || n == root)
            break;
        n = n.next_sibling();
    }
    return found;
}

} // namespace

std::string copy_type(const std::string& filing_type)
{
    if (filing_type == "Federal" || filing_type == "1")
        return "FED";
    if (filing_type == "State" || filing_type == "2")
        return "STATE";
    if (filing_type == "Local" || filing_type == "3")
        return "LOCAL";
    if (filing_type == "Employee" || filing_type == "4" || filing_type == "Recipient" || filing_type == "7")
        return "EMP";
    return "";
}

std::vector<fs_store::Copy> efiled_copies(const std::string& text)
{
    std::vector<fs_store::Copy> copies;
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8))
        return copies;
    const pugi::xml_node transaction = last_descendant(document.document_element(), "Transaction");
    const pugi::xml_node status = transaction.child("Status");
    if (!status)
        return copies;
    // Copies are children of the status; walk them all, as the document's reader does.
    for (const pugi::xpath_node& node : status.select_nodes(".//Copy")) {
        const pugi::xml_node copy = node.node();
        if (!to_bool(copy.attribute("Efiled").value()))
            continue;
        fs_store::Copy c;
        c.type = copy_type(copy.attribute("Type").value());
        if (c.type.empty())
            continue;
        c.code = copy.attribute("Identifier").value();
        c.vlid = std::strtol(copy.attribute("VLID").value(), nullptr, 10);
        c.replaceable = to_bool(copy.attribute("Replaceable").value());
        c.deleted = to_bool(copy.attribute("Deleted").value());
        copies.push_back(c);
    }
    return copies;
}

} // namespace fs_intake

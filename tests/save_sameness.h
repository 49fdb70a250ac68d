#ifndef VELLUMENT_TESTS_SAVE_SAMENESS_H
#define VELLUMENT_TESTS_SAVE_SAMENESS_H

// What the test and the fuzz target of the save compare: the file a save wrote, and the same trail
// as the records' trees print it.

#include <memory>
#include <string>

#include <vellument/CDictionary.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_XML.h>

namespace save_sameness {

// The trail of `v` printed from trees into `path`: the root's attributes read back from the file
// at `saved`, then the dictionary's and every transaction's create_xml_node. Empty when the saved
// file doesn't load or the tree can't be written.
inline std::string printed_by_the_tree(const CVellument& v, const std::string& saved, const std::string& path)
{
    std::unique_ptr<COXMLDocument> read(COXMLDocument::load(saved.c_str(), nullptr, nullptr, 0));
    if (!read || read->getDocumentElement() == nullptr)
        return std::string();
    std::unique_ptr<COXMLDocument> tree(COXMLDocument::createDocument());
    COXMLNode* root = tree->createElement("AuditTrail");
    std::shared_ptr<COXMLNamedNodeMap> attributes = read->getDocumentElement()->attributes();
    for (int i = 0; i < attributes->length(); ++i)
        root->setAttribute(attributes->item(i)->nodeName(), attributes->item(i)->getText());
    if (!v.get_dictionary()->empty())
        root->appendChild(v.get_dictionary()->create_xml_node(tree.get()), true);
    for (int i = 0; i < v.get_transaction_count(); ++i) {
        if (COXMLNode* node = v.get_transaction(i)->create_xml_node(tree.get()))
            root->appendChild(node, true);
    }
    tree->appendChild(root, true);
    if (tree->save(path.c_str()) == 0)
        return std::string();
    std::string bytes;
    Ostrel::FileSystem::ReadFile(path.c_str(), bytes);
    return bytes;
}

} // namespace save_sameness

#endif

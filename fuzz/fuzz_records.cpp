// Arbitrary bytes as a vellument document: every transaction is read into records, and the
// records are written into a new document and read back. Hostile attribute values, missing
// elements and odd nesting must not crash.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vellument/CTransaction.h>
#include <vellument/Ostrel_XML.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Records are found at any depth, so nesting them costs size times depth; keep each run small.
    if (size > 16384)
        return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    std::unique_ptr<COXMLDocument> source(COXMLDocument::loadXML(text.c_str(), nullptr, nullptr, 0));
    if (!source)
        return 0;
    COXMLNode* root = source->getDocumentElement();
    if (root == nullptr)
        return 0;
    std::shared_ptr<COXMLNodeList> nodes = root->getElementsByTagName("Transaction");
    std::vector<std::unique_ptr<CTransaction>> trail;
    for (int i = 0; i < nodes->length(); ++i)
        trail.emplace_back(new CTransaction(nodes->item(i)));

    std::unique_ptr<COXMLDocument> copy(COXMLDocument::createDocument());
    COXMLNode* copy_root = copy->appendChild(copy->createElement("AuditTrail"), true);
    for (const auto& transaction : trail) {
        COXMLNode* node = transaction->create_xml_node(copy.get());
        if (node != nullptr && copy_root != nullptr)
            copy_root->appendChild(node, true);
    }
    if (copy_root != nullptr) {
        std::shared_ptr<COXMLNodeList> again = copy_root->getElementsByTagName("Transaction");
        for (int i = 0; i < again->length(); ++i)
            CTransaction reread(again->item(i));
    }
    return 0;
}

#ifndef VELLUMENT_TESTS_XML_TEST_UTIL_H
#define VELLUMENT_TESTS_XML_TEST_UTIL_H

// Looking at elements the library wrote: their attribute names in document order, and texts
// parsed into documents that the test keeps.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <vellument/Ostrel_XML.h>

namespace testutil {

inline std::vector<std::string> attribute_names(COXMLNode* node)
{
    std::vector<std::string> names;
    std::shared_ptr<COXMLNamedNodeMap> map = node->attributes();
    for (int i = 0; i < map->length(); ++i)
        names.push_back(map->item(i)->nodeName());
    return names;
}

inline bool has_attribute(COXMLNode* node, const char* name)
{
    const std::vector<std::string> names = attribute_names(node);
    return std::find(names.begin(), names.end(), name) != names.end();
}

inline std::unique_ptr<COXMLDocument> parse(const std::string& text)
{
    std::unique_ptr<COXMLDocument> doc(COXMLDocument::loadXML(text.c_str(), nullptr, nullptr, 0));
    EXPECT_NE(doc, nullptr) << text;
    return doc;
}

} // namespace testutil

#endif

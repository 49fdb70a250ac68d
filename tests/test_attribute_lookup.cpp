// Attribute lookup by name resumes where the last one stopped, and writing skips the search
// when a name can't be there yet: neither may change what is found or where a name stands.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <vellument/Ostrel_XML.h>

namespace {

std::vector<std::string> names_and_values(COXMLNode* node)
{
    std::vector<std::string> out;
    std::shared_ptr<COXMLNamedNodeMap> list = node->attributes();
    for (int i = 0; i < list->length(); ++i)
        out.push_back(std::string(list->item(i)->nodeName()) + "=" + list->item(i)->getText());
    return out;
}

TEST(AttributeLookup, AnyOrderOfReadingFindsEveryValue)
{
    std::unique_ptr<COXMLDocument> doc(COXMLDocument::loadXML(
        "<R><E A=\"1\" B=\"2\" C=\"3\" D=\"4\" AB=\"5\"/><F A=\"x\" Z=\"y\"/></R>", nullptr, nullptr, 0));
    ASSERT_NE(doc, nullptr);
    COXMLNode* e = doc->selectSingleNode("//E");
    COXMLNode* f = doc->selectSingleNode("//F");
    ASSERT_NE(e, nullptr);
    ASSERT_NE(f, nullptr);
    // Backwards, a miss, names sharing a first letter, another element between, wrapping round.
    const char* order[] = {"AB", "D", "Q", "C", "A", "B", "A", "AB", "B"};
    const char* expected[] = {"5", "4", "", "3", "1", "2", "1", "5", "2"};
    for (std::size_t i = 0; i < sizeof order / sizeof order[0]; ++i) {
        EXPECT_STREQ(e->getAttribute(order[i]), expected[i]) << order[i];
        EXPECT_STREQ(f->getAttribute(i % 2 == 0 ? "Z" : "A"), i % 2 == 0 ? "y" : "x");
    }
    EXPECT_STREQ(f->getAttribute("B"), "");
}

TEST(AttributeLookup, WritingOverwritesInPlaceAndAppendsNewNames)
{
    std::unique_ptr<COXMLDocument> doc(COXMLDocument::createDocument());
    COXMLNode* small = doc->createElement("Small");
    COXMLNode* large = doc->createElement("Large");
    ASSERT_NE(small, nullptr);
    ASSERT_NE(large, nullptr);
    doc->appendChild(small, true);
    std::vector<std::string> large_expected;
    // Writes alternate between the two elements; the large one passes the size at which its
    // names are indexed.
    for (int i = 0; i < 40; ++i) {
        const std::string name = "N" + std::to_string(i);
        large->setAttribute(name.c_str(), "v");
        large_expected.push_back(name + "=v");
        small->setAttribute(i % 3 == 0 ? "A" : i % 3 == 1 ? "B" : "C", std::to_string(i).c_str());
    }
    large->setAttribute("N7", "again");
    large_expected[7] = "N7=again";
    large->setAttribute("N39", "last");
    large_expected[39] = "N39=last";
    EXPECT_EQ(names_and_values(small), (std::vector<std::string>{"A=39", "B=37", "C=38"}));
    EXPECT_EQ(names_and_values(large), large_expected);

    // An element read from text is written to like one built here.
    std::unique_ptr<COXMLDocument> read(COXMLDocument::loadXML("<R X=\"1\" Y=\"2\"/>", nullptr, nullptr, 0));
    ASSERT_NE(read, nullptr);
    COXMLNode* root = read->getDocumentElement();
    root->setAttribute("Y", "3");
    root->setAttribute("Z", "4");
    root->setAttribute("X", "5");
    EXPECT_EQ(names_and_values(root), (std::vector<std::string>{"X=5", "Y=3", "Z=4"}));
}

} // namespace

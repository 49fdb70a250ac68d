// "./Name" and "Name" are answered by walking the children; they must agree with the same step
// spelled so that XPath evaluates it.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <vellument/Ostrel_XML.h>

namespace {

using Doc = std::unique_ptr<COXMLDocument>;

std::vector<COXMLNode*> items(const std::shared_ptr<COXMLNodeList>& list)
{
    std::vector<COXMLNode*> out;
    if (list)
        for (int i = 0; i < list->length(); ++i)
            out.push_back(list->item(i));
    return out;
}

void expect_same_as_xpath(COXMLNode* context, const std::string& name, const char* where)
{
    const std::string child_axis = "child::" + name;
    for (const std::string& path : {"./" + name, name}) {
        SCOPED_TRACE(std::string(where) + " " + path);
        std::shared_ptr<COXMLNodeList> fast = context->selectNodes(path.c_str(), true);
        std::shared_ptr<COXMLNodeList> slow = context->selectNodes(child_axis.c_str(), true);
        // No match is an empty pointer, not an empty list, either way.
        EXPECT_EQ(static_cast<bool>(fast), static_cast<bool>(slow));
        EXPECT_EQ(items(fast), items(slow));
        EXPECT_EQ(context->selectSingleNode(path.c_str()), context->selectSingleNode(child_axis.c_str()));
    }
}

const char* const kNames[] = {"Copy", "History", "CopyX", "Cop", "x", "and", "div", "Missing", "AuditTrail",
                              "Status", "_u1"};

} // namespace

TEST(XMLChildPaths, AgreeWithXPathOnMixedContentNestingAndUnattachedTrees)
{
    // Text, comments, a processing instruction and CDATA among the children; same-named elements
    // one level deeper that a child step must not reach; names that share a prefix; a prefixed
    // name; element names that are XPath operators.
    Doc doc(COXMLDocument::loadXML(
        "<?xml version=\"1.0\"?><!-- lead --><AuditTrail>text<Status>"
        "<Copy Id=\"1\"><Copy Id=\"nested\"/><History Id=\"h\"/></Copy><!-- c --><?pi x?>"
        "<CopyX Id=\"x\"/><x:Copy xmlns:x=\"u\" Id=\"prefixed\"/><![CDATA[<Copy/>]]>"
        "<Copy Id=\"2\">tail</Copy><and Id=\"a\"/><div/><_u1/>more</Status><Copy Id=\"3\"/></AuditTrail>",
        nullptr, nullptr, 0));
    ASSERT_TRUE(doc);
    COXMLNode* root = doc->getDocumentElement();
    ASSERT_NE(root, nullptr);
    COXMLNode* status = root->selectSingleNode("child::Status");
    ASSERT_NE(status, nullptr);
    COXMLNode* first_copy = status->selectSingleNode("child::Copy");
    ASSERT_NE(first_copy, nullptr);

    // Unattached elements live under a hidden holder: neither it nor they show from the document,
    // and from inside an unattached tree only that tree shows.
    COXMLNode* loose = doc->createElement("Copy");
    COXMLNode* loose_parent = doc->createElement("Status");
    ASSERT_NE(loose_parent->appendChild(doc->createElement("Copy"), true), nullptr);
    ASSERT_NE(loose_parent->appendChild(doc->createElement("History"), true), nullptr);

    struct Context {
        COXMLNode* node;
        const char* where;
    } contexts[] = {{doc.get(), "document"}, {root, "root"},   {status, "status"},
                    {first_copy, "copy"},    {loose, "loose"}, {loose_parent, "loose parent"}};
    for (const Context& c : contexts)
        for (const char* name : kNames)
            expect_same_as_xpath(c.node, name, c.where);

    // The results themselves, so that agreement can't hide a shared fault.
    std::vector<COXMLNode*> copies = items(status->selectNodes("./Copy", true));
    ASSERT_EQ(copies.size(), 2u);
    EXPECT_STREQ(copies[0]->getAttribute("Id"), "1");
    EXPECT_STREQ(copies[1]->getAttribute("Id"), "2");
    EXPECT_EQ(doc->selectSingleNode("./AuditTrail"), root);
    EXPECT_EQ(doc->selectNodes("./Copy", true), nullptr);
    EXPECT_EQ(items(loose_parent->selectNodes("./Copy", true)).size(), 1u);
    EXPECT_EQ(loose->selectNodes("./Copy", true), nullptr);
    EXPECT_EQ(first_copy->selectSingleNode("./Copy")->getAttribute("Id"), std::string("nested"));
}

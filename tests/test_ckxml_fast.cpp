// Boundaries of the toolkit tree's compact storage: parsed elements hold exactly-sized lists and
// texts, so everything that grows or replaces them afterwards must move them, never write past.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <vellument/CkXml.h>

namespace {

std::string str(const char* text)
{
    return text ? std::string(text) : std::string("<null>");
}

TEST(CkXmlStorage, ParsedElementsGrowAndRenameWithoutTouchingTheirNeighbours)
{
    CkXml xml;
    xml.put_EmitDeclaration(false);
    xml.put_EmitCompact(true);
    ASSERT_TRUE(xml.LoadXml("<root q=\"1\"><ab x=\"1\" y=\"2\">t</ab><c/><d/></root>"));
    std::unique_ptr<CkXml> added(xml.NewChildAfter(-1, "new", ""));  // into the parsed, full list
    std::unique_ptr<CkXml> mid(xml.NewChildAfter(2, "m", "&"));      // between c and d
    std::unique_ptr<CkXml> leaf(xml.NewChild("c|k", "v"));           // under a parsed leaf
    ASSERT_TRUE(added && mid && leaf);
    xml.put_Tag("R");                   // fits where the old tag was
    xml.put_Tag("a-much-longer-root");  // does not
    mid->put_Tag("");
    mid->put_Tag("mm");
    ASSERT_TRUE(xml.AddAttribute("z", "3"));
    EXPECT_EQ(str(xml.GetXml()), "<a-much-longer-root q=\"1\" z=\"3\"><ab x=\"1\" y=\"2\">t</ab><new/><c><k>v</k></c>"
                                 "<mm>&amp;</mm><d/></a-much-longer-root>");
    EXPECT_EQ(xml.get_NumChildren(), 5);
    EXPECT_EQ(str(xml.GetChildContent("/A/ab,y,2")), "t");
}

TEST(CkXmlStorage, TextsOfEverySizeAndManyPiecesComeBackWhole)
{
    // Larger than any block that small texts are carved from, between small ones.
    const std::string big(3u << 20, 'v');
    std::string text = "<r><c a=\"" + big + "\" b=\"&amp;" + big + "&lt;\">" + big + "</c><d>";
    for (int i = 0; i < 2000; ++i)
        text += "p<e/>";
    text += "</d><f>&amp;lt;</f></r>";
    CkXml xml;
    xml.put_EmitDeclaration(false);
    ASSERT_TRUE(xml.LoadXml(text.c_str()));
    EXPECT_EQ(str(xml.GetChildContent(("/A/c,b,&" + big + "<").c_str())), big);
    std::string pieces = "p";
    for (int i = 1; i < 2000; ++i)
        pieces += " p";
    EXPECT_EQ(str(xml.GetChildContent("d")), pieces);
    EXPECT_EQ(str(xml.GetChildContent("f")), "&lt;");
    CkXml copy;
    ASSERT_TRUE(copy.LoadXml(("<x>" + str(xml.GetXml()) + "</x>").c_str()));
    EXPECT_EQ(str(copy.GetChildContent(("/A/c,a," + big).c_str())), big);
    EXPECT_EQ(str(copy.GetChildContent("r|d")), pieces);
}

TEST(CkXmlStorage, ValueReferencesCutOffAtTheEndStayAsTheyStand)
{
    CkXml xml;
    xml.put_EmitDeclaration(false);
    ASSERT_TRUE(xml.LoadXml("<r a=\"x&amp\" b=\"&\" c=\"&#x9\" d=\"&lt;&#xA;&quot;\" \"=\"1\" %5=\"2\"/>"));
    EXPECT_EQ(str(xml.GetXml()),
              "<r a=\"x&amp;amp\" b=\"&amp;\" c=\"&amp;#x9\" d=\"&lt;&#xA;&quot;\" A5=\"2\"/>\r\n");
}

} // namespace

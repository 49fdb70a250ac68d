#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <vellument/CkXml.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "test_util.h"
#include "toolkit/CkXmlDocument.h"
#include "toolkit/CkXml_Convert.h"

namespace {

std::string str(const char* text)
{
    return text ? std::string(text) : std::string("<null>");
}

std::string xmlOf(const std::string& text, bool declaration = false)
{
    CkXml xml;
    xml.put_EmitDeclaration(declaration);
    EXPECT_TRUE(xml.LoadXml(text.c_str()));
    return str(xml.GetXml());
}

const char kReply[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">\r\n"
    "  <soap:Body>\r\n"
    "    <GetSubmissionStatusResponse xmlns=\"urn:x\">\r\n"
    "      <response>&lt;SubmissionStatus EIN=&quot;12&quot;&gt;&lt;Copy/&gt;&lt;/SubmissionStatus&gt;</response>\r\n"
    "    </GetSubmissionStatusResponse>\r\n"
    "  </soap:Body>\r\n"
    "</soap:Envelope>\r\n";

// ---------------------------------------------------------------------------------------------
// Parser

TEST(CkXmlParse, ReplyPathsResolveTheFivePredefinedEntitiesOnly)
{
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml(kReply));
    EXPECT_STREQ(xml.tag(), "soap:Envelope");
    EXPECT_EQ(str(xml.GetChildContent("soap:Body|GetSubmissionStatusResponse|response")),
              "<SubmissionStatus EIN=\"12\"><Copy/></SubmissionStatus>");
    EXPECT_EQ(xml.GetChildContent("soap:Body|Anything|response"), nullptr);
    EXPECT_NE(std::string(xml.lastErrorText()).find("No child with this tag."), std::string::npos);
    EXPECT_EQ(xml.GetChildContent("soap:Body|soap:Fault|faultstring"), nullptr);

    ASSERT_TRUE(xml.LoadXml("<a><b>&amp;lt; &#233; &nbsp; &apos;&quot;&gt;</b><c/></a>"));
    EXPECT_EQ(str(xml.GetChildContent("b")), "&lt; &#233; &nbsp; '\">");
    // An element without content reads as empty text, not as null.
    EXPECT_EQ(str(xml.GetChildContent("c")), "");
}

TEST(CkXmlParse, ContentPiecesAndCdataSectionsAreJoined)
{
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml("<a>  x  <b/>\r\n y \t</a>"));
    EXPECT_EQ(str(xml.GetChildContent("")), "x y");

    ASSERT_TRUE(xml.LoadXml("<a><![CDATA[a]]><![CDATA[b]]></a>"));
    EXPECT_EQ(str(xml.GetChildContent("")), "ab");
    ASSERT_TRUE(xml.LoadXml("<a><![CDATA[ <x> &amp; ]]>\n  <![CDATA[y]]></a>"));
    EXPECT_EQ(str(xml.GetChildContent("")), " <x> &amp; y");
    // Markers inside CDATA text are taken out when written, also ones that taking out makes.
    ASSERT_TRUE(xml.LoadXml("<a><![CDATA[p]]]]>q]]></a>"));
    EXPECT_EQ(str(xml.GetChildContent("")), "p]] q]]>");
    xml.put_EmitDeclaration(false);
    EXPECT_EQ(str(xml.GetXml()), "<a><![CDATA[p]] q]]></a>\r\n");
    ASSERT_TRUE(xml.LoadXml("<a><![CDATA[1]]]]><![CDATA[>2<![CDA]]><![CDATA[TA[3]]></a>"));
    EXPECT_EQ(str(xml.GetXml()), "<a><![CDATA[123]]></a>\r\n");
}

TEST(CkXmlParse, EndTagsAreNeverComparedAndTheRootEndsTheParse)
{
    EXPECT_EQ(xmlOf("<a><b></a>"), "<a>\r\n    <b/>\r\n</a>\r\n");
    EXPECT_EQ(xmlOf("<a><b><c></x>t</y><d/>u"),
              "<a>u\r\n    <b>t\r\n        <c/>\r\n    </b>\r\n    <d/>\r\n</a>\r\n");
    EXPECT_EQ(xmlOf("<a/><b/>"), "<a/>\r\n");
    EXPECT_EQ(xmlOf("<a></a><b>more</b>"), "<a/>\r\n");
    // An end tag before any element closes the root that isn't there yet.
    EXPECT_EQ(xmlOf("</x><a/>"), "<empty/>\r\n");
}

TEST(CkXmlParse, MarkupOtherThanElementsIsKeptOrDropped)
{
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml("junk <!-- <c/> --> <?xml version='1.0' standalone=\"yes\"?>"
                            "<!doctype r [ <!ENTITY e \"<v>\"> ]>\n<?XML-STYLESHEET href=\"s\"?><?pi a?>"
                            "<r><!-- gone --><!ELEMENT skipped><?inner x?>t</r>"));
    EXPECT_EQ(str(xml.GetXml()),
              "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\r\n"
              "<?XML-STYLESHEET href=\"s\"?>\r\n"
              "<!doctype r [ <!ENTITY e \"<v>\"> ]>\n\r\n"
              "<?pi a?>\n<?inner x?>\n\r\n"
              "<r>t</r>\r\n");
}

TEST(CkXmlParse, AttributeNamesAreCleanedAndValuesResolved)
{
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml("<a 1x=\"1\" -y='2' .z=3\" n\"a<m=\"4\" b$c=\"5\" d e=\"6\" e=\"7\" \xE9t=\"8\" ''=\"9\">"));
    xml.put_EmitDeclaration(false);
    EXPECT_EQ(str(xml.GetXml()),
              "<a A1x=\"1\" A-y=\"2\" A.z=\"3\" nam=\"4\" bc=\"5\" d=\"\" e=\"6\" e=\"7\" \xE9t=\"8\"/>\r\n");

    ASSERT_TRUE(xml.LoadXml("<a v=\"&#233; &#xA;&#xD;&#x9; &amp;lt; &lt;&gt;&quot;&apos; &#xa;\" w='&#233;'/>"));
    EXPECT_EQ(str(xml.GetXml()),
              "<a v=\"&amp;#233; &#xA;&#xD;&#x9; &amp;lt; &lt;&gt;&quot;&apos; &amp;#xa;\" w=\"&amp;#233;\"/>\r\n");

    // An unquoted value runs to the next quote of either kind.
    ASSERT_TRUE(xml.LoadXml("<a x=5 y='6'>t</a>"));
    EXPECT_EQ(str(xml.GetXml()), "<a x=\"5 y=\" A6=\"\">t</a>\r\n");
}

TEST(CkXmlParse, EmptyTextFailsAndTextWithoutElementsIsAnEmptyTree)
{
    CkXml xml;
    EXPECT_FALSE(xml.LoadXml(""));
    EXPECT_FALSE(xml.LoadXml(nullptr));
    EXPECT_STREQ(xml.tag(), "unnamed");
    ASSERT_TRUE(xml.LoadXml("no markup at all"));
    EXPECT_STREQ(xml.tag(), "empty");
    EXPECT_EQ(xml.get_NumChildren(), 0);
    xml.put_EmitDeclaration(false);
    EXPECT_EQ(str(xml.GetXml()), "<empty/>\r\n");
}

TEST(CkXmlParse, EveryTruncationAndOddInputLoadsAndWritesSomething)
{
    const std::string whole =
        "<?xml version=\"1.0\"?><!DOCTYPE d [<!ENTITY x \"y\">]><?pi?><!--c--><r a=\"1\" b='2' c=d>"
        "<s>t&amp;u<![CDATA[<v>]]></s><w/></r>";
    for (std::size_t n = 1; n <= whole.size(); ++n) {
        CkXml xml;
        ASSERT_TRUE(xml.LoadXml(whole.substr(0, n).c_str())) << n;
        ASSERT_NE(xml.GetXml(), nullptr) << n;
        xml.GetChildContent("s");
        xml.GetChildContent("/T/w");
    }
    const char* odd[] = {"<", "<<<<", "</", "<!", "<!--", "<![CDATA[", "<!DOCTYPE [[[<<", "<?", "<?xml ",
                         "<?xml a", "<?xml a=\"", "<a", "<a ", "<a b", "<a b=", "<a b='", "<a/", "< >", "<>",
                         "<a>>>", "<a><<b>", "<a =\"x\">", "<a/b>", "<\x01\xff>"};
    for (const char* text : odd) {
        CkXml xml;
        EXPECT_TRUE(xml.LoadXml(text)) << text;
        EXPECT_NE(xml.GetXml(), nullptr) << text;
    }
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml("< >"));
    EXPECT_EQ(str(xml.tag()), "");
    xml.put_EmitDeclaration(false);
    EXPECT_EQ(str(xml.GetXml()), "<nothing/>\r\n");
}

TEST(CkXmlParse, ShortTextEndingInXmlIsAFilePath)
{
    testutil::TempDir dir;
    const std::string path = dir.file("reply.XML");
    testutil::write_file(path, "<f>from file</f>");
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml(path.c_str()));
    EXPECT_EQ(str(xml.GetChildContent("")), "from file");
    // With a "<" it is XML text, whatever its end.
    ASSERT_TRUE(xml.LoadXml("<g>x</g> reply.xml"));
    EXPECT_STREQ(xml.tag(), "g");
    EXPECT_FALSE(xml.LoadXml(dir.file("missing.xml").c_str()));
    EXPECT_NE(std::string(xml.lastErrorText()).find("Failed."), std::string::npos);
    EXPECT_FALSE(xml.LoadXmlFile(dir.file("missing.xml").c_str()));
}

// ---------------------------------------------------------------------------------------------
// Text form

TEST(CkXmlText, WholeDocumentByteForByteAndCompact)
{
    const char* source =
        "<?xml version=\"1.0\"?><!DOCTYPE r><?xml-stylesheet href=\"s.xsl\"?><?pi x?>"
        "<r a='1' b=\"x&quot;y\"><c>t &amp; u</c><d></d><e><f>g</f></e></r>";
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml(source));
    EXPECT_EQ(str(xml.GetXml()),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
              "<?xml-stylesheet href=\"s.xsl\"?>\r\n"
              "<!DOCTYPE r>\n\r\n"
              "<?pi x?>\n\r\n"
              "<r a=\"1\" b=\"x&quot;y\">\r\n"
              "    <c>t &amp; u</c>\r\n"
              "    <d/>\r\n"
              "    <e>\r\n"
              "        <f>g</f>\r\n"
              "    </e>\r\n"
              "</r>\r\n");
    xml.put_EmitCompact(true);
    EXPECT_EQ(str(xml.GetXml()),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?><?xml-stylesheet href=\"s.xsl\"?><!DOCTYPE r>\n<?pi x?>\n"
              "<r a=\"1\" b=\"x&quot;y\"><c>t &amp; u</c><d/><e><f>g</f></e></r>");
    // The compact flag belongs to the tree and survives a load.
    ASSERT_TRUE(xml.LoadXml("<p><q/></p>"));
    EXPECT_TRUE(xml.get_EmitCompact());

    // Without the declaration the rest of the prolog still goes out; below the root none of it.
    xml.put_EmitCompact(false);
    ASSERT_TRUE(xml.LoadXml(source));
    xml.put_EmitDeclaration(false);
    EXPECT_EQ(str(xml.GetXml()),
              "<?xml-stylesheet href=\"s.xsl\"?>\r\n<!DOCTYPE r>\n\r\n<?pi x?>\n\r\n"
              "<r a=\"1\" b=\"x&quot;y\">\r\n    <c>t &amp; u</c>\r\n    <d/>\r\n    <e>\r\n        <f>g</f>\r\n"
              "    </e>\r\n</r>\r\n");
    std::unique_ptr<CkXml> e(xml.NewChild("e|h", "i"));
    ASSERT_NE(e, nullptr);
    std::unique_ptr<CkXml> self(e->GetSelf());
    EXPECT_EQ(str(self->GetXml()), "<h>i</h>\r\n");
}

TEST(CkXmlText, DeclarationRules)
{
    EXPECT_EQ(xmlOf("<r/>", true), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<r/>\r\n");
    EXPECT_EQ(xmlOf("<?xml standalone=\"no\" version=\"1.1\"?><r/>", true),
              "<?xml version=\"1.1\" encoding=\"utf-8\" standalone=\"no\"?>\r\n<r/>\r\n");
    EXPECT_EQ(xmlOf("<?xml standalone=\"no\" encoding=\"ISO-8859-1\"?><r/>", true),
              "<?xml encoding=\"ISO-8859-1\" standalone=\"no\"?>\r\n<r/>\r\n");
}

TEST(CkXmlText, AttributeEscapesIndentationCapAndTheCodePage)
{
    CkXml xml;
    xml.put_EmitDeclaration(false);
    xml.put_Tag("r");
    ASSERT_TRUE(xml.AddAttribute("  v ", "\"&><'\t\n\r\xE9"));
    EXPECT_EQ(str(xml.GetXml()), "<r v=\"&quot;&amp;&gt;&lt;&apos;&#x9;&#xA;&#xD;\xE9\"/>\r\n");

    // Depth beyond 50 keeps the indentation of depth 50.
    std::string deep;
    for (int i = 0; i < 60; ++i)
        deep += "<n>";
    ASSERT_TRUE(xml.LoadXml(deep.c_str()));
    const std::string text = str(xml.GetXml());
    std::string expected;
    for (int i = 0; i < 59; ++i)
        expected += std::string(static_cast<std::size_t>(std::min(i, 50)) * 4, ' ') + "<n>\r\n";
    expected += std::string(200, ' ') + "<n/>\r\n";
    for (int i = 58; i >= 0; --i)
        expected += std::string(static_cast<std::size_t>(std::min(i, 50)) * 4, ' ') + "</n>\r\n";
    EXPECT_EQ(text, expected);

    // Inside the tree is UTF-8; at the boundary a character outside the code page is lost.
    ASSERT_TRUE(xml.LoadXml("<a>\xE9\x80</a>"));
    EXPECT_EQ(str(xml.GetChildContent("")), "\xE9\x80");
    testutil::TempDir dir;
    testutil::write_file(dir.file("u.xml"), "<a>\xCE\xA9 \xC3\xA9</a>");
    ASSERT_TRUE(xml.LoadXmlFile(dir.file("u.xml").c_str()));
    EXPECT_EQ(str(xml.GetChildContent("")), "? \xE9");
}

// ---------------------------------------------------------------------------------------------
// Path language

TEST(CkXmlPath, EverySegmentKindAndItsFailure)
{
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml("<r>"
                            "<a>a0</a><p:b>b0</p:b><a>a1<deep><t>t-deep</t></deep></a><b>b1</b>"
                            "<t>t-shallow<c k=\"v\">c&amp;1</c></t><a>a2</a>"
                            "</r>"));
    xml.put_I(1);
    xml.put_J(2);
    xml.put_K(7);
    struct Case {
        const char* path;
        const char* content;  // null: the path leads nowhere
        const char* message;
    } cases[] = {
        {"", "", nullptr},
        {"a", "a0", nullptr},
        {"a|", "a0", nullptr},
        {"b", "b1", nullptr},
        {"*:b", "b0", nullptr},
        {"a[2]", "a2", nullptr},
        {"a[i]", "a1", nullptr},
        {"a[k]", nullptr, "Invalid array index."},
        {"a[x]", nullptr, "Invalid array index."},
        {"*:b[1]", "b1", nullptr},
        {"[1]", "b0", nullptr},
        {"3", "b1", nullptr},
        {"9", nullptr, "Invalid array index."},
        {"zz{a1}", "a1", nullptr},
        {"x{nope}", nullptr, "No child with this content."},
        {"t|c", "c&1", nullptr},
        {"a|..|b", "b1", nullptr},
        {"..", nullptr, "no parent element."},
        {"a|++", "b0", nullptr},
        {"a[2]|++", nullptr, "no next sibling."},
        {"a|--", nullptr, "no previous sibling."},
        {"/T/t", "t-shallow", nullptr},
        {"/T/q", nullptr, "No descendent with this tag."},
        {"/C/c,c&1", "c&1", nullptr},
        {"/C/a,a9", nullptr, "No descendent with this tag and content."},
        {"/A/c,k,v", "c&1", nullptr},
        {"/A/c,k,w", nullptr, "No descendent with this tag and attribute + value."},
        {"a|missing", nullptr, "No child with this tag."},
        {"B", nullptr, "No child with this tag."},
    };
    for (const Case& c : cases) {
        const char* got = xml.GetChildContent(c.path);
        if (c.content == nullptr) {
            EXPECT_EQ(got, nullptr) << c.path;
            EXPECT_NE(std::string(xml.lastErrorText()).find(c.message), std::string::npos)
                << c.path << "\n" << xml.lastErrorText();
        } else {
            EXPECT_EQ(str(got), c.content) << c.path;
        }
    }
}

TEST(CkXmlPath, ResultsRotateThroughTenBuffers)
{
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml("<r><a>first</a><b>other</b></r>"));
    const char* kept = xml.GetChildContent("a");
    for (int i = 0; i < 9; ++i)
        xml.GetChildContent("b");
    EXPECT_STREQ(kept, "first");
}

// ---------------------------------------------------------------------------------------------
// Building

TEST(CkXmlBuild, NewChildEscapesCreatesPathsAndOutlivesItsParentHandle)
{
    std::unique_ptr<CkXml> root(new CkXml);
    root->put_EmitDeclaration(false);
    root->put_Tag("AuditTrail");
    std::unique_ptr<CkXml> a(root->NewChild("  a  b ", "x & <y> &amp;"));
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a->tag(), "a__b");
    EXPECT_FALSE(a->get_EmitDeclaration());
    EXPECT_EQ(str(root->GetChildContent("a__b")), "x & <y> &amp;");

    std::unique_ptr<CkXml> deep(root->NewChild("p|q[1]|r", "1"));
    ASSERT_NE(deep, nullptr);
    std::unique_ptr<CkXml> again(root->NewChild("p|q[1]|r|", "2"));
    std::unique_ptr<CkXml> fresh(root->NewChild("p|q[*]|r", "3"));
    EXPECT_EQ(root->NewChild("..|x", "never"), nullptr);
    EXPECT_NE(std::string(root->lastErrorText()).find("no parent element."), std::string::npos);

    // Deleting handles does not remove elements; a child handle keeps the tree alive.
    root.reset();
    a.reset();
    std::unique_ptr<CkXml> top(deep->NewChild("..|..|..|s", ""));
    ASSERT_NE(top, nullptr);
    std::unique_ptr<CkXml> back(top->GetSelf());
    top.reset();
    EXPECT_STREQ(back->tag(), "s");
    EXPECT_EQ(str(deep->GetChildContent("..|r[1]")), "2");
    EXPECT_EQ(str(deep->GetChildContent("..|..|q[2]|r")), "3");
    EXPECT_EQ(str(back->GetChildContent("..|a__b")), "x & <y> &amp;");
    EXPECT_EQ(str(back->GetChildContent("..|p|q[0]")), "");
    EXPECT_EQ(back->GetChildContent("..|p|q[3]"), nullptr);
    EXPECT_EQ(deep->NewChild("..|..|..|..|x", ""), nullptr);
}

TEST(CkXmlBuild, WholeBuiltTreeAsText)
{
    CkXml root;
    root.put_EmitDeclaration(false);
    root.put_Tag("T");
    root.AddAttribute("x", "1");
    std::unique_ptr<CkXml> b(root.NewChild("b", ""));
    std::unique_ptr<CkXml> d(root.NewChild("d", ""));
    std::unique_ptr<CkXml> c(root.NewChildAfter(0, "c", "&"));       // between b and d
    std::unique_ptr<CkXml> e(root.NewChildAfter(2, "e", ""));        // after the last: appended
    std::unique_ptr<CkXml> f(root.NewChildAfter(99, "f", ""));       // beyond: appended
    std::unique_ptr<CkXml> a(root.NewChildAfter(-5, "a", ""));       // negative counts as 0
    std::unique_ptr<CkXml> g(b->NewChildAfter(0, "g", "only child")); // no children: appended
    b->AddAttribute("k", "1");
    b->AddAttribute("k", "2");
    EXPECT_EQ(str(root.GetXml()),
              "<T x=\"1\">\r\n"
              "    <b k=\"1\" k=\"2\">\r\n"
              "        <g>only child</g>\r\n"
              "    </b>\r\n"
              "    <a/>\r\n"
              "    <c>&amp;</c>\r\n"
              "    <d/>\r\n"
              "    <e/>\r\n"
              "    <f/>\r\n"
              "</T>\r\n");
}

TEST(CkXmlBuild, TwoCursorsOnOneTreeFromTwoThreads)
{
    CkXml root;
    std::unique_ptr<CkXml> other(root.GetSelf());
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i)
            delete root.NewChild("c", "x");
    });
    for (int i = 0; i < 200; ++i) {
        ASSERT_NE(other->GetXml(), nullptr);
        other->GetChildContent("c[3]");
    }
    writer.join();
    EXPECT_EQ(other->get_NumChildren(), 2000);
}

// ---------------------------------------------------------------------------------------------
// Bytes of a file

std::string utf16(const std::string& utf8, bool bigEndian, bool mark)
{
    std::u16string wide = Ostrel::Format::Utf8ToWide(utf8);
    std::string bytes;
    if (mark)
        bytes = bigEndian ? std::string("\xFE\xFF", 2) : std::string("\xFF\xFE", 2);
    for (char16_t u : wide) {
        const char hi = static_cast<char>(u >> 8);
        const char lo = static_cast<char>(u & 0xFF);
        bytes.push_back(bigEndian ? hi : lo);
        bytes.push_back(bigEndian ? lo : hi);
    }
    return bytes;
}

TEST(CkXmlFile, ByteOrderMarksZeroBytesAndDeclaredCharsets)
{
    const std::string text = "<?xml version=\"1.0\" encoding=\"utf-16\"?><a>\xC3\xA9\xE2\x82\xAC \xF0\x9F\x98\x80</a>";
    // Each file must come out as these ANSI bytes: é, €, and "?" for the emoji.
    const std::string expected = "\xE9\x80 ?";
    struct Case {
        const char* name;
        std::string bytes;
        std::string content;
    } cases[] = {
        {"utf16le-mark", utf16(text, false, true), expected},
        {"utf16be-mark", utf16(text, true, true), expected},
        {"utf16le-bare", utf16(text, false, false), expected},
        {"utf16be-bare", utf16(text, true, false), expected},
        {"utf8-mark", "\xEF\xBB\xBF<a>\xC3\xA9\xE2\x82\xAC</a>", "\xE9\x80"},
        {"utf8-plain", "<a>\xC3\xA9</a>", "\xE9"},
        {"declared-latin1", "<?xml version='1.0' encoding = 'ISO-8859-1'?><a>\xC3\xA9</a>", "\xC3\xA9"},
        {"declared-1252", "<?xml version=\"1.0\" encoding=\"Windows-1252\"?><a>\x80\xE9</a>", "\x80\xE9"},
        {"declared-8859-2", "<?xml version=\"1.0\" encoding=\"iso-8859-2\"?><a>\xA9</a>", "\x8A"},
        {"declared-utf16-no-nul", "<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\xC3\xA9</a>", "\xE9"},
        {"declared-unknown", "<?xml version=\"1.0\" encoding=\"x-made-up\"?><a>\xC3\xA9</a>", "\xE9"},
        {"declared-utf8", "<?xml encoding=\"utf-8\"?><a>\xC3\xA9</a>", "\xE9"},
    };
    testutil::TempDir dir;
    for (const Case& c : cases) {
        const std::string path = dir.file(std::string(c.name) + ".xml");
        testutil::write_file(path, c.bytes);
        CkXml xml;
        ASSERT_TRUE(xml.LoadXmlFile(path.c_str())) << c.name;
        EXPECT_EQ(str(xml.GetChildContent("")), c.content) << c.name;
    }
    // A lone surrogate makes the bare UTF-16 guess fail; the bytes are then read as they are.
    const std::string broken("<\0a\0>\0\x00\xD8", 8);
    EXPECT_EQ(convertXmlToUtf8(broken.data(), broken.size()), broken);
    // With a mark the conversion always goes through.
    const std::string marked("\xFF\xFE<\0\x00\xD8", 6);
    EXPECT_EQ(convertXmlToUtf8(marked.data(), marked.size()), "<\xEF\xBF\xBD");
}

// ---------------------------------------------------------------------------------------------
// Depth

TEST(CkXmlDepth, HundredThousandLevelsParseWriteSearchAndFree)
{
    const int depth = 100000;
    std::string text;
    text.reserve(static_cast<std::size_t>(depth) * 8);
    for (int i = 0; i < depth; ++i)
        text += "<e>";
    text += "<leaf>x</leaf>";
    CkXml xml;
    ASSERT_TRUE(xml.LoadXml(text.c_str()));
    EXPECT_EQ(str(xml.GetChildContent("/T/leaf")), "x");
    xml.put_EmitDeclaration(false);
    const std::string out = str(xml.GetXml());
    // Indentation is capped, so the text stays linear in the depth.
    EXPECT_LT(out.size(), static_cast<std::size_t>(depth) * 2 * (200 + 8));
    EXPECT_EQ(out.compare(out.size() - 6, 6, "</e>\r\n"), 0);

    // Building the same depth through a created path.
    CkXml built;
    std::string path;
    for (int i = 0; i < depth; ++i)
        path += "e|";
    path += "leaf";
    std::unique_ptr<CkXml> leaf(built.NewChild(path.c_str(), "y"));
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(str(built.GetChildContent("/T/leaf")), "y");
}

// ---------------------------------------------------------------------------------------------
// Document bridge

const char kTrail[] =
    "<AuditTrail FormType=\"W2\" Year=\"2024\">"
    "<Dictionary a=\"1\" b=\"x &amp; &lt;y&gt; &quot;q&quot; \xE9\"/>"
    "<Transaction Action=\"Prepared\">"
    "<Package P=\"1\"><Filing F=\"1\"><Form N=\"1\"/><Form N=\"2\"/></Filing></Package>"
    "<Status S=\"1\"><Copy CopyType=\"FED\"><History H=\"1\"/></Copy><Copy CopyType=\"STATE\"/></Status>"
    "</Transaction>"
    "<Transaction Action=\"Printed\"><Status S=\"2\"><Copy CopyType=\"EMP\"><History H=\"2\"/><History H=\"3\"/>"
    "</Copy></Status></Transaction>"
    "</AuditTrail>";

void expectSameTree(COXMLNode* a, COXMLNode* b)
{
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(a->nodeName(), b->nodeName());
    EXPECT_EQ(std::string(a->getText()), std::string(b->getText())) << a->nodeName();
    std::shared_ptr<COXMLNamedNodeMap> aa = a->attributes();
    std::shared_ptr<COXMLNamedNodeMap> ba = b->attributes();
    ASSERT_EQ(aa->length(), ba->length()) << a->nodeName();
    for (int i = 0; i < aa->length(); ++i) {
        EXPECT_EQ(std::string(aa->item(i)->nodeName()), std::string(ba->item(i)->nodeName()));
        EXPECT_EQ(std::string(aa->item(i)->getText()), std::string(ba->item(i)->getText()));
    }
}

TEST(CkXmlDocument, BuiltTreeAnswersLikeTheLoadedFile)
{
    // The tree as the database reader makes it: handles per element, deleted as it goes. An
    // element goes after the index given, or at the end for -1.
    const auto add = [](CkXml* parent, int after, const char* tag,
                        std::vector<std::pair<const char*, const char*>> attributes) {
        CkXml* child = after < 0 ? parent->NewChild(tag, "") : parent->NewChildAfter(after, tag, "");
        for (const auto& a : attributes)
            child->AddAttribute(a.first, a.second);
        return std::unique_ptr<CkXml>(child);
    };
    CkXml* root = new CkXml;
    root->put_EmitDeclaration(false);
    root->put_Tag("AuditTrail");
    root->AddAttribute("FormType", "W2");
    root->AddAttribute("Year", "2024");
    add(root, -1, "Dictionary", {{"a", "1"}, {"b", "x & <y> \"q\" \xE9"}});
    {
        auto t = add(root, 1, "Transaction", {{"Action", "Prepared"}});
        auto f = add(add(t.get(), 0, "Package", {{"P", "1"}}).get(), -1, "Filing", {{"F", "1"}});
        add(f.get(), -1, "Form", {{"N", "1"}});
        add(f.get(), -1, "Form", {{"N", "2"}});
        auto s = add(t.get(), 1, "Status", {{"S", "1"}});
        add(add(s.get(), -1, "Copy", {{"CopyType", "FED"}}).get(), -1, "History", {{"H", "1"}});
        add(s.get(), -1, "Copy", {{"CopyType", "STATE"}});
    }
    {
        auto t = add(root, 2, "Transaction", {{"Action", "Printed"}});
        auto c = add(add(t.get(), 1, "Status", {{"S", "2"}}).get(), -1, "Copy", {{"CopyType", "EMP"}});
        add(c.get(), -1, "History", {{"H", "2"}});
        add(c.get(), -1, "History", {{"H", "3"}});
    }
    CkXml* handle = root->GetSelf();
    delete root;
    std::unique_ptr<COXMLDocument> built(COXMLDocument::createNewDocument(handle));
    std::unique_ptr<COXMLDocument> loaded(COXMLDocument::loadXML(kTrail, nullptr, nullptr, 0));
    ASSERT_NE(built, nullptr);
    ASSERT_NE(loaded, nullptr);

    for (const char* name : {"Transaction", "Package", "Filing", "Form", "Status", "Copy", "History", "Nothing"}) {
        std::shared_ptr<COXMLNodeList> a = built->getElementsByTagName(name);
        std::shared_ptr<COXMLNodeList> b = loaded->getElementsByTagName(name);
        ASSERT_EQ(a->length(), b->length()) << name;
        for (int i = 0; i < a->length(); ++i)
            expectSameTree(a->item(i), b->item(i));
    }
    expectSameTree(built->getDocumentElement(), loaded->getDocumentElement());
    expectSameTree(built->getDocumentElement()->selectSingleNode("./Dictionary"),
                   loaded->getDocumentElement()->selectSingleNode("./Dictionary"));
    EXPECT_STREQ(built->getDocumentElement()->selectSingleNode("./Dictionary")->getAttribute("b"),
                 "x & <y> \"q\" \xE9");
    COXMLNode* emp = built->selectSingleNode("//Copy[@CopyType='EMP']");
    ASSERT_NE(emp, nullptr);
    EXPECT_EQ(emp->getElementsByTagName("History")->length(), 2);
}

TEST(CkXmlDocument, ParsedOddTreesBecomeWellFormedDocuments)
{
    CkXml* xml = new CkXml;
    ASSERT_TRUE(xml->LoadXml("<r 1a=\"x\" a=\"1\" a=\"2\" t=\"&#xA;&#233;\">"
                             "<b>t &amp; &#233; &#x20AC; &#1; &bogus; & x</b>"
                             "<c><![CDATA[<raw> & ]]></c><d\xE9 x\x80=\"\xE9\"/><1bad/><a&b/>< ><ws>\t </ws>"));
    std::unique_ptr<COXMLDocument> doc(ckxml_to_document(xml));
    ASSERT_NE(doc, nullptr);
    COXMLNode* r = doc->getDocumentElement();
    ASSERT_NE(r, nullptr);
    EXPECT_STREQ(r->getAttribute("A1a"), "x");
    // Duplicates are one attribute in XML: the last value wins.
    EXPECT_STREQ(r->getAttribute("a"), "2");
    // Attribute values are held resolved, so the reference text that the parser kept stays.
    EXPECT_STREQ(r->getAttribute("t"), "\n&#233;");
    EXPECT_EQ(r->attributes()->length(), 3);
    COXMLNode* b = r->selectSingleNode("./b");
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b->getText(), "t & \xE9 \x80 &#1; &bogus; & x");
    EXPECT_STREQ(r->selectSingleNode("./c")->getText(), "<raw> & ");
    COXMLNode* d = r->selectSingleNode("./d\xE9");
    ASSERT_NE(d, nullptr);
    EXPECT_STREQ(d->getAttribute("x\x80"), "\xE9");
    EXPECT_NE(r->selectSingleNode("./_1bad"), nullptr);
    EXPECT_NE(r->selectSingleNode("./a_b"), nullptr);
    EXPECT_NE(r->selectSingleNode("./nothing"), nullptr);

    // A character outside the code page crosses as a reference and is not lost.
    testutil::TempDir dir;
    testutil::write_file(dir.file("w.xml"), "<w v=\"\xCE\xA9\">\xCE\xA9</w>");
    CkXml* wide = new CkXml;
    ASSERT_TRUE(wide->LoadXmlFile(dir.file("w.xml").c_str()));
    std::unique_ptr<COXMLDocument> wideDoc(ckxml_to_document(wide));
    ASSERT_NE(wideDoc, nullptr);
    // The interface gives ANSI, so compare through a fresh load of the same character.
    std::unique_ptr<COXMLDocument> ref(COXMLDocument::loadXML("<w v=\"&#937;\">&#937;</w>", nullptr, nullptr, 0));
    ASSERT_NE(ref, nullptr);
    expectSameTree(wideDoc->getDocumentElement(), ref->getDocumentElement());

    EXPECT_EQ(ckxml_to_document(nullptr), nullptr);
}

TEST(CkXmlDocument, DeepTreeCrossesWithoutRecursion)
{
    const int depth = 100000;
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "<e>";
    CkXml* xml = new CkXml;
    ASSERT_TRUE(xml->LoadXml(text.c_str()));
    std::unique_ptr<COXMLDocument> doc(ckxml_to_document(xml));
    ASSERT_NE(doc, nullptr);
    EXPECT_STREQ(doc->getDocumentElement()->nodeName(), "e");
}

} // namespace

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include <vellument/Ostrel_XML.h>

#include "test_util.h"

namespace {

using Doc = std::unique_ptr<COXMLDocument>;

Doc parse(const std::string& text)
{
    int code = -1;
    char message[256] = "untouched";
    Doc doc(COXMLDocument::loadXML(text.c_str(), &code, message, sizeof message));
    EXPECT_TRUE(doc) << code << " " << message;
    return doc;
}

Doc load_bytes(const testutil::TempDir& dir, const std::string& bytes)
{
    std::string path = dir.file("in.xml");
    testutil::write_file(path, bytes);
    int code = -1;
    char message[256] = "";
    Doc doc(COXMLDocument::load(path.c_str(), &code, message, sizeof message));
    EXPECT_TRUE(doc) << code << " " << message;
    return doc;
}

// The names of a list's nodes joined with '/', to compare lists at a glance.
std::string names(const std::shared_ptr<COXMLNodeList>& list, const char* attribute = nullptr)
{
    std::string out;
    if (!list)
        return "<none>";
    for (int i = 0; i < list->length(); ++i) {
        if (i)
            out += '/';
        out += attribute ? list->item(i)->getAttribute(attribute) : list->item(i)->nodeName();
    }
    return out;
}

const char kTrail[] =
    "<AuditTrail Version=\"200\">"
    "<Dictionary A=\"1\"/>"
    "<Transaction Action=\"Filing\"><Package KXNPath=\"p\"/>"
    "<Status><Copy Identifier=\"c1\"><History Description=\"h1\"/><History Description=\"h2\"/></Copy>"
    "<Copy Identifier=\"c2\"><History Description=\"h3\"/></Copy></Status></Transaction>"
    "<Transaction Action=\"Bug Fix\"><Package/><Status/></Transaction>"
    "</AuditTrail>";

} // namespace

TEST(XML, BuildSaveLoadKeepsTreeAttributeOrderAndText)
{
    testutil::TempDir dir;
    Doc doc(COXMLDocument::createDocument());
    EXPECT_EQ(doc->getDocumentElement(), nullptr);
    COXMLNode* root = doc->createElement("AuditTrail");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(doc->appendChild(root, true), root);
    root->setAttribute("Version", "200");
    root->setAttribute("Empty", "");
    root->setAttribute("Name", "Caf\xE9 \x80 & <\"quoted\">\nline");
    root->setAttribute("Version", "201");  // overwrites in place
    COXMLNode* tx = root->appendChild(doc->createElement("Transaction"), true);
    ASSERT_NE(tx, nullptr);
    tx->setAttribute("Action", "Filing");
    ASSERT_EQ(doc->getDocumentElement(), root);

    std::string path = dir.file("out.VLM");
    ASSERT_NE(doc->save(path.c_str()), 0);
    std::string bytes = testutil::read_file(path);
    EXPECT_EQ(bytes.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<AuditTrail", 0), 0u) << bytes;
    EXPECT_NE(bytes.find("Caf\xC3\xA9 \xE2\x82\xAC"), std::string::npos);  // UTF-8 on disk
    EXPECT_NE(bytes.find("\n\t<Transaction Action=\"Filing\""), std::string::npos);
    EXPECT_EQ(bytes.find('\r'), std::string::npos);

    Doc back(COXMLDocument::load(path.c_str(), nullptr, nullptr, 0));
    ASSERT_TRUE(back);
    COXMLNode* r = back->getDocumentElement();
    EXPECT_STREQ(r->nodeName(), "AuditTrail");
    auto attrs = r->attributes();
    EXPECT_EQ(names(attrs), "Version/Empty/Name");
    EXPECT_STREQ(attrs->item(0)->getText(), "201");
    EXPECT_STREQ(r->getAttribute("Name"), "Caf\xE9 \x80 & <\"quoted\">\nline");
    EXPECT_STREQ(r->getAttribute("Empty"), "");
    EXPECT_EQ(names(r->getElementsByTagName("Transaction"), "Action"), "Filing");

    // Saving what was read gives the same bytes.
    std::string again = dir.file("again.VLM");
    ASSERT_NE(back->save(again.c_str()), 0);
    EXPECT_EQ(testutil::read_file(again), bytes);
}

TEST(XML, MissingAttributeIsEmptyAndTextPointersSurviveEachOther)
{
    Doc doc = parse("<r a=\"\xE9t\xE9\" b=\"\x80uro\" n=\"42\">text \xE9</r>");
    COXMLNode* r = doc->getDocumentElement();
    const char* missing = r->getAttribute("Missing");
    ASSERT_NE(missing, nullptr);
    EXPECT_STREQ(missing, "");
    EXPECT_EQ(std::strtol(missing, nullptr, 10), 0);
    EXPECT_EQ(std::strtol(r->getAttribute("n"), nullptr, 10), 42);
    // Two converted texts are both readable at once.
    const char* a = r->getAttribute("a");
    const char* b = r->getAttribute("b");
    EXPECT_STREQ(a, "\xE9t\xE9");
    EXPECT_STREQ(b, "\x80uro");
    EXPECT_STREQ(r->getText(), "text \xE9");
    // Names in the code page work both ways.
    r->setAttribute("na\xEFve", "v");
    EXPECT_STREQ(r->getAttribute("na\xEFve"), "v");
    EXPECT_STREQ(r->attributes()->item(3)->nodeName(), "na\xEFve");
}

TEST(XML, LoadAcceptsUnicodeMarksAndCodePageDeclarations)
{
    testutil::TempDir dir;
    const std::string e_acute_utf8 = "<r v=\"caf\xC3\xA9\"/>";
    EXPECT_STREQ(load_bytes(dir, e_acute_utf8)->getDocumentElement()->getAttribute("v"), "caf\xE9");
    EXPECT_STREQ(load_bytes(dir, "\xEF\xBB\xBF" + e_acute_utf8)->getDocumentElement()->getAttribute("v"), "caf\xE9");

    std::string le = "\xFF\xFE", be = "\xFE\xFF";
    const std::u16string wide = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><r v=\"caf\u00E9\u20AC\"/>";
    for (char16_t c : wide) {
        le += static_cast<char>(c & 0xFF);
        le += static_cast<char>(c >> 8);
        be += static_cast<char>(c >> 8);
        be += static_cast<char>(c & 0xFF);
    }
    EXPECT_STREQ(load_bytes(dir, le)->getDocumentElement()->getAttribute("v"), "caf\xE9\x80");
    EXPECT_STREQ(load_bytes(dir, be)->getDocumentElement()->getAttribute("v"), "caf\xE9\x80");

    for (const char* enc : {"windows-1252", "ISO-8859-1", "Latin1", "cp1252"}) {
        std::string text = std::string("<?xml version=\"1.0\" encoding='") + enc + "'?><r v=\"caf\xE9\x80\x81\"/>";
        EXPECT_STREQ(load_bytes(dir, text)->getDocumentElement()->getAttribute("v"), "caf\xE9\x80\x81") << enc;
    }
    // Text in memory is in the code page, whatever its declaration says.
    Doc mem = parse("<?xml version=\"1.0\" encoding=\"utf-8\"?><r v=\"\xE9\"/>");
    EXPECT_STREQ(mem->getDocumentElement()->getAttribute("v"), "\xE9");
}

TEST(XML, LoadFailuresReportCodeAndBoundedText)
{
    testutil::TempDir dir;
    std::string missing = dir.file("nope/none.xml");
    EXPECT_EQ(COXMLDocument::load(missing.c_str(), nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(COXMLDocument::loadXML(nullptr, nullptr, nullptr, 0), nullptr);

    int code = 0;
    char text[256];
    EXPECT_EQ(COXMLDocument::load(dir.file("none.xml").c_str(), &code, text, sizeof text), nullptr);
    EXPECT_EQ(code, 2);
    EXPECT_EQ(std::string(text), "File not found: " + dir.file("none.xml"));

    // Neither a directory nor a file over the size limit is read.
    std::string huge = dir.file("huge.xml");
    testutil::write_file(huge, "<a/>");
    std::filesystem::resize_file(huge, (std::uintmax_t(1) << 30) + 1);  // sparse: costs no disk
    for (const std::string& unreadable : {dir.path(), huge}) {
        code = 0;
        text[0] = '\0';
        EXPECT_EQ(COXMLDocument::load(unreadable.c_str(), &code, text, sizeof text), nullptr);
        EXPECT_NE(code, 0);
        EXPECT_NE(text[0], '\0');
    }

    for (const char* bad : {"", "   ", "<!-- only a comment -->", "<a>", "<a></b>", "<a x=1/>",
                            "text", "<a><!-- </a>", "<1a/>"}) {
        code = 0;
        std::memset(text, 0, sizeof text);
        EXPECT_EQ(COXMLDocument::loadXML(bad, &code, text, sizeof text), nullptr) << bad;
        EXPECT_NE(code, 0) << bad;
        EXPECT_NE(text[0], '\0') << bad;
    }
    COXMLDocument::loadXML("<a></b>", &code, text, sizeof text);
    EXPECT_NE(std::string(text).find(" at line 1, column 4"), std::string::npos) << text;

    // The text is cut to the buffer and always terminated; size 0 writes nothing.
    char small[8];
    std::memset(small, 'x', sizeof small);
    COXMLDocument::loadXML("<a></b>", &code, small, 6);
    EXPECT_EQ(std::strlen(small), 5u);
    EXPECT_EQ(small[6], 'x');
    small[0] = 'x';
    COXMLDocument::loadXML("<a></b>", &code, small, 0);
    EXPECT_EQ(small[0], 'x');
}

TEST(XML, EveryXPathFormOfTheLibrary)
{
    Doc trail = parse(kTrail);
    COXMLNode* root = trail->getDocumentElement();
    COXMLNode* dict = root->selectSingleNode("./Dictionary");
    ASSERT_NE(dict, nullptr);
    EXPECT_STREQ(dict->getAttribute("A"), "1");
    auto txs = root->getElementsByTagName("Transaction");
    ASSERT_EQ(txs->length(), 2);
    COXMLNode* tx = txs->item(0);
    EXPECT_EQ(tx->selectSingleNode("./Dictionary"), nullptr);  // not the root's dictionary
    EXPECT_STREQ(tx->selectSingleNode("./Package")->getAttribute("KXNPath"), "p");
    EXPECT_EQ(tx->selectSingleNode("./Status"), tx->getElementsByTagName("Status")->item(0));

    Doc tasks = parse("<TaskList><Task TaskNum=\"1\" ResultCode=\"Succeeded\"/><Task TaskNum=\"2\"/>"
                      "<Group><Task TaskNum=\"3\" ResultCode=\"Failed\"/></Group>"
                      "<Task TaskNum=\"4\" ResultCode=\"Other\"/></TaskList>");
    EXPECT_STREQ(tasks->selectSingleNode("//Task[@TaskNum=\"3\"]")->getAttribute("ResultCode"), "Failed");
    EXPECT_EQ(tasks->selectSingleNode("//Task[@TaskNum=\"9\"]"), nullptr);
    // A task without ResultCode doesn't compare unequal; the first failing one in document order.
    EXPECT_STREQ(tasks->selectSingleNode("//Task[@ResultCode!=\"Succeeded\"]")->getAttribute("TaskNum"), "3");
    EXPECT_EQ(names(tasks->selectNodes("//Task[@ResultCode!=\"Succeeded\"]", true), "TaskNum"), "3/4");
    Doc ok = parse("<TaskList><Task TaskNum=\"1\" ResultCode=\"Succeeded\"/><Task TaskNum=\"2\"/></TaskList>");
    EXPECT_EQ(ok->selectSingleNode("//Task[@ResultCode!=\"Succeeded\"]"), nullptr);

    Doc answer = parse("<Envelope><Body><SubmissionStatus EIN=\"12\">"
                       "<Copy CopyType=\"STATE\" Id=\"s1\"/><Copy CopyType=\"FED\" Id=\"f1\"/>"
                       "<Copy CopyType=\"EMP\" Id=\"e1\"/><Copy CopyType=\"STATE\" Id=\"s2\"/>"
                       "<Copy CopyType=\"LOCAL\" Id=\"l1\"/></SubmissionStatus></Body></Envelope>");
    EXPECT_STREQ(answer->selectSingleNode("//SubmissionStatus")->getAttribute("EIN"), "12");
    EXPECT_EQ(names(answer->selectNodes("//Copy", true), "Id"), "s1/f1/e1/s2/l1");
    EXPECT_EQ(names(answer->selectNodes("//Copy[@CopyType='FED']", true), "Id"), "f1");
    EXPECT_EQ(names(answer->selectNodes("//Copy[@CopyType='STATE']", true), "Id"), "s1/s2");

    // No match, a bad expression and a non-node result: null or an empty pointer, no throw.
    EXPECT_EQ(answer->selectNodes("//Copy[@CopyType='X']", true), nullptr);
    for (const char* bad : {"", "//Copy[", "count(//Copy)", "$v", "//Copy[@CopyType='FED'", "///"}) {
        EXPECT_EQ(answer->selectSingleNode(bad), nullptr) << bad;
        EXPECT_EQ(answer->selectNodes(bad, true), nullptr) << bad;
    }
    EXPECT_EQ(answer->selectSingleNode(nullptr), nullptr);
    // The same element found two ways is the same node object.
    EXPECT_EQ(answer->selectSingleNode("//Copy[@CopyType='FED']"), answer->getElementsByTagName("Copy")->item(1));
}

TEST(XML, ElementsByTagNameStayBelowTheNode)
{
    Doc doc = parse(kTrail);
    COXMLNode* status = doc->getDocumentElement()->selectSingleNode("//Status");
    auto copies = status->getElementsByTagName("Copy");
    EXPECT_EQ(names(copies, "Identifier"), "c1/c2");
    EXPECT_EQ(names(status->getElementsByTagName("*")), "Copy/History/History/Copy/History");
    EXPECT_EQ(names(copies->item(0)->getElementsByTagName("History"), "Description"), "h1/h2");
    EXPECT_EQ(names(copies->item(1)->getElementsByTagName("History"), "Description"), "h3");
    EXPECT_EQ(names(doc->getElementsByTagName("History"), "Description"), "h1/h2/h3");
    EXPECT_EQ(copies->item(1)->getElementsByTagName("Copy")->length(), 0);  // not the node itself
    EXPECT_EQ(status->getElementsByTagName("Form")->length(), 0);
    EXPECT_EQ(doc->getElementsByTagName("AuditTrail")->length(), 1);
    EXPECT_EQ(doc->getElementsByTagName("*")->length(), 13);
    EXPECT_EQ(copies->item(5), nullptr);
    EXPECT_EQ(doc->getDocumentElement()->selectSingleNode("./Transaction/Package")->attributes()->length(), 1);
}

TEST(XML, UnattachedElementsStayOutOfTheDocument)
{
    testutil::TempDir dir;
    Doc doc(COXMLDocument::createDocument());
    COXMLNode* root = doc->createElement("AuditTrail");
    COXMLNode* tx = doc->createElement("Transaction");
    tx->appendChild(doc->createElement("Package"), true);
    // Queries inside an element that is still unattached see its own subtree only.
    ASSERT_NE(tx->selectSingleNode("./Package"), nullptr);
    EXPECT_EQ(tx->selectSingleNode(".."), nullptr);
    EXPECT_EQ(tx->getElementsByTagName("Package")->length(), 1);
    doc->appendChild(root, true);
    EXPECT_EQ(doc->getElementsByTagName("*")->length(), 1);
    EXPECT_EQ(doc->selectNodes("//*", true)->length(), 1);
    EXPECT_EQ(doc->selectSingleNode("//Package"), nullptr);
    EXPECT_EQ(root->selectSingleNode("following::*"), nullptr);
    EXPECT_EQ(root->selectSingleNode("preceding::*"), nullptr);

    std::string path = dir.file("a.xml");
    ASSERT_NE(doc->save(path.c_str()), 0);
    EXPECT_EQ(testutil::read_file(path), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<AuditTrail />\n");

    EXPECT_EQ(root->appendChild(tx, true), tx);
    EXPECT_EQ(doc->selectNodes("//*", true)->length(), 3);
    EXPECT_EQ(doc->selectSingleNode("//Package")->nodeName(), std::string("Package"));
    ASSERT_NE(doc->save(path.c_str()), 0);
    EXPECT_EQ(testutil::read_file(path), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<AuditTrail>\n"
                                         "\t<Transaction>\n\t\t<Package />\n\t</Transaction>\n</AuditTrail>\n");
}

TEST(XML, AppendChildAndSetAttributeRefuseWhatWouldBreakTheFile)
{
    Doc doc(COXMLDocument::createDocument());
    Doc other(COXMLDocument::createDocument());
    COXMLNode* root = doc->appendChild(doc->createElement("Root"), true);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(doc->appendChild(doc->createElement("Second"), true), nullptr);  // one root only
    EXPECT_EQ(root->appendChild(other->createElement("Foreign"), true), nullptr);
    EXPECT_EQ(root->appendChild(root, true), nullptr);
    COXMLNode* child = root->appendChild(doc->createElement("Child"), true);
    EXPECT_EQ(child->appendChild(root, true), nullptr);  // a node can't go below itself
    EXPECT_EQ(doc->createElement("1bad"), nullptr);
    EXPECT_EQ(doc->createElement("has space"), nullptr);

    root->setAttribute("bad name", "x");
    root->setAttribute("Null", nullptr);
    EXPECT_EQ(names(root->attributes()), "Null");
    // Setting an attribute on the document leaves the root alone; reading one reads the root's.
    root->setAttribute("ModifiedDate", "01/02/2024 03:04:05");
    doc->setAttribute("ModifiedDate", "12/31/2025 23:59:59");
    doc->setAttribute("Other", "x");
    EXPECT_STREQ(root->getAttribute("ModifiedDate"), "01/02/2024 03:04:05");
    EXPECT_STREQ(doc->getAttribute("ModifiedDate"), "01/02/2024 03:04:05");
    EXPECT_EQ(names(root->attributes()), "Null/ModifiedDate");
    EXPECT_STREQ(doc->nodeName(), "#document");
    // Names are XML names in full: U+00D7 is a letter of the code page but no name character.
    root->setAttribute("a\xD7" "b", "x");
    EXPECT_EQ(doc->createElement("a\xF7"), nullptr);
    EXPECT_EQ(names(root->attributes()), "Null/ModifiedDate");
}

TEST(XML, FailedSaveKeepsTheOldFileAndTellsWhy)
{
    testutil::TempDir dir;
    Doc doc = parse("<Root A=\"new\"/>");
    std::string good = dir.file("good.VLM");
    testutil::write_file(good, "<Root A=\"old\"/>");

    int code = -1;
    char text[255];
    doc->getXMLError(&code, text, sizeof text);
    EXPECT_EQ(code, 0);
    EXPECT_STREQ(text, "");

    // The directory part is a regular file.
    EXPECT_EQ(doc->save((good + "/inner.VLM").c_str()), 0);
    EXPECT_EQ(testutil::read_file(good), "<Root A=\"old\"/>");
    doc->getXMLError(&code, text, sizeof text);
    EXPECT_NE(code, 0);
    EXPECT_NE(std::string(text).find("inner.VLM"), std::string::npos) << text;

    doc->clearXMLError();
    doc->getXMLError(&code, text, sizeof text);
    EXPECT_EQ(code, 0);
    EXPECT_STREQ(text, "");

    EXPECT_EQ(doc->save(dir.file("missing/dir/x.VLM").c_str()), 0);
    doc->getXMLError(&code, text, sizeof text);
    EXPECT_NE(code, 0);

    // A success keeps the last failure; it replaces the file whole and leaves nothing beside it.
    ASSERT_NE(doc->save(good.c_str()), 0);
    doc->getXMLError(&code, text, sizeof text);
    EXPECT_NE(code, 0);
    EXPECT_NE(testutil::read_file(good).find("A=\"new\""), std::string::npos);
    int entries = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir.path()))
        entries += e.path().filename() == "good.VLM" ? 0 : 1;
    EXPECT_EQ(entries, 0);

    // A document without a root element can't be saved: it would not load back.
    Doc empty(COXMLDocument::createDocument());
    EXPECT_EQ(empty->save(dir.file("empty.xml").c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(dir.file("empty.xml")));
    empty->getXMLError(&code, text, sizeof text);
    EXPECT_NE(text[0], '\0');
}

TEST(XML, WindowsPathsGoThroughTheFileLayer)
{
    testutil::TempDir dir;
    std::string windows = "Z:" + dir.path();
    for (char& c : windows)
        if (c == '/')
            c = '\\';
    Doc doc = parse("<Root/>");
    ASSERT_NE(doc->save((windows + "\\W.VLM").c_str()), 0);
    EXPECT_TRUE(std::filesystem::exists(dir.file("W.VLM")));
    Doc back(COXMLDocument::load((windows + "\\w.vlm").c_str(), nullptr, nullptr, 0));
    ASSERT_TRUE(back);
    EXPECT_STREQ(back->getDocumentElement()->nodeName(), "Root");
}

TEST(XML, DeepNestingAndLongValuesAreHandledWithoutRecursion)
{
    testutil::TempDir dir;
    const int depth = 100000;
    std::string text;
    text.reserve(depth * 7 + 16);
    for (int i = 0; i < depth; ++i)
        text += "<a>";
    for (int i = 0; i < depth; ++i)
        text += "</a>";
    Doc doc = parse(text);
    ASSERT_TRUE(doc);
    EXPECT_EQ(doc->getElementsByTagName("a")->length(), depth);
    EXPECT_EQ(doc->getDocumentElement()->getElementsByTagName("a")->length(), depth - 1);
    EXPECT_EQ(doc->selectNodes("//a", true)->length(), depth);
    std::string path = dir.file("deep.xml");
    ASSERT_NE(doc->save(path.c_str()), 0);
    EXPECT_LT(testutil::read_file(path).size(), text.size() * 2);
    Doc back(COXMLDocument::load(path.c_str(), nullptr, nullptr, 0));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->getElementsByTagName("a")->length(), depth);

    std::string value(8 * 1024 * 1024, 'v');
    value[100] = '\xE9';
    Doc big = parse("<r v=\"" + value + "\"/>");
    EXPECT_EQ(std::string(big->getDocumentElement()->getAttribute("v")), value);
    ASSERT_NE(big->save(path.c_str()), 0);
    Doc big_back(COXMLDocument::load(path.c_str(), nullptr, nullptr, 0));
    ASSERT_TRUE(big_back);
    EXPECT_EQ(std::string(big_back->getDocumentElement()->getAttribute("v")), value);
}

// What XML 1.0 calls not well-formed, each refused with its code and a place; the parser below
// would take all of these.
TEST(XML, OnlyWellFormedTextLoads)
{
    struct Case {
        const char* text;
        int code;
    };
    const Case cases[] = {
        // Attributes: unique, quoted, '=' and white space between them, no '<' in a value.
        {"<Task TaskNum=\"1\" TaskNum=\"1\"/>", OXML_E_DUPLICATE_ATTRIBUTE},
        {"<a x='1' y='2' x='3'/>", OXML_E_DUPLICATE_ATTRIBUTE},
        {"<a x=\"<\"/>", OXML_E_SYNTAX},
        {"<a x=\"1\"y=\"2\"/>", OXML_E_SYNTAX},
        {"<a x/>", OXML_E_SYNTAX},
        {"<a x=1/>", OXML_E_SYNTAX},
        // One root, nothing but comments, PIs and white space around it.
        {"<a/><b/>", OXML_E_OUTSIDE_ROOT},
        {"<a/>text", OXML_E_OUTSIDE_ROOT},
        {"text<a/>", OXML_E_OUTSIDE_ROOT},
        {"<![CDATA[x]]><a/>", OXML_E_OUTSIDE_ROOT},
        {"<!-- only a comment -->", OXML_E_NO_ROOT},
        {"", OXML_E_NO_ROOT},
        // References: declared entities, legal characters, no bare '&'.
        {"<a>&bogus;</a>", OXML_E_BAD_REFERENCE},
        {"<a x=\"&nbsp;\"/>", OXML_E_BAD_REFERENCE},
        {"<a>fish & chips</a>", OXML_E_BAD_REFERENCE},
        {"<a x=\"&amp\"/>", OXML_E_BAD_REFERENCE},
        {"<a>&#1;</a>", OXML_E_BAD_REFERENCE},
        {"<a x=\"&#01;\"/>", OXML_E_BAD_REFERENCE},
        {"<a>&#xD800;</a>", OXML_E_BAD_REFERENCE},
        {"<a>&#xFFFE;</a>", OXML_E_BAD_REFERENCE},
        {"<a>&#x110000;</a>", OXML_E_BAD_REFERENCE},
        {"<a>&#;</a>", OXML_E_BAD_REFERENCE},
        // Characters: legal XML characters only.
        {"<a>\x01</a>", OXML_E_INVALID_CHARACTER},
        {"<a x=\"\x1F\"/>", OXML_E_INVALID_CHARACTER},
        // Names.
        {"<1a/>", OXML_E_INVALID_NAME},
        {"<a 1x=\"\"/>", OXML_E_INVALID_NAME},
        {"< a/>", OXML_E_INVALID_NAME},
        // Elements: properly nested and closed.
        {"<a></b>", OXML_E_TAG_MISMATCH},
        {"<a><b></a></b>", OXML_E_TAG_MISMATCH},
        {"<a>", OXML_E_UNEXPECTED_END},
        {"<a><!-- </a>", OXML_E_UNEXPECTED_END},
        {"<a x=\"1/>", OXML_E_UNEXPECTED_END},
        // Comments, PIs, CDATA, declarations.
        {"<a><!-- a -- b --></a>", OXML_E_SYNTAX},
        {"<a><!-- a ---></a>", OXML_E_SYNTAX},
        {"<a>]]></a>", OXML_E_SYNTAX},
        {" <?xml version=\"1.0\"?><a/>", OXML_E_SYNTAX},
        {"<a/><?xml version=\"1.0\"?>", OXML_E_SYNTAX},
        {"<?xml version=\"2.0\"?><a/>", OXML_E_SYNTAX},
        {"<?xml encoding=\"UTF-8\"?><a/>", OXML_E_SYNTAX},
        {"<?xml version=\"1.0\" standalone=\"maybe\"?><a/>", OXML_E_SYNTAX},
        {"<a><!DOCTYPE a></a>", OXML_E_SYNTAX},
        {"<a/><!DOCTYPE a>", OXML_E_SYNTAX},
    };
    for (const Case& c : cases) {
        int code = 0;
        char text[256] = "";
        Doc doc(COXMLDocument::loadXML(c.text, &code, text, sizeof text));
        EXPECT_EQ(doc, nullptr) << c.text;
        EXPECT_EQ(code, c.code) << c.text << ": " << text;
        EXPECT_NE(std::string(text).find(" at line "), std::string::npos) << c.text << ": " << text;
    }

    // Where: line and column of the fault, counted in characters.
    int code = 0;
    char text[256] = "";
    EXPECT_EQ(COXMLDocument::loadXML("<r>\n  <T \xE9=\"1\" b=\"2\" b=\"3\"/>\n</r>", &code, text, sizeof text), nullptr);
    EXPECT_STREQ(text, "the attribute b given twice at line 2, column 18");

    // A file: bytes that are not UTF-8 without a declaration, and UTF-16 that isn't.
    testutil::TempDir dir;
    const std::string path = dir.file("bad.xml");
    for (const std::string& bytes : {std::string("<r v=\"a\xE9\"/>"), std::string("<r v=\"\xC0\xAF\"/>"),
                                     std::string("\xFF\xFE<\0r\0/\0>", 8) + std::string("\0\xD8", 2)}) {
        testutil::write_file(path, bytes);
        EXPECT_EQ(COXMLDocument::load(path.c_str(), &code, text, sizeof text), nullptr);
        EXPECT_TRUE(code == OXML_E_INVALID_CHARACTER || code == OXML_E_ENCODING) << code << " " << text;
    }
}

TEST(XML, WellFormedTextReadsAsBefore)
{
    Doc doc = parse("<?xml version='1.0' encoding='UTF-8' standalone='yes'?>\r\n"
                    "<!DOCTYPE r SYSTEM \"r.dtd\" [ <!ELEMENT r ANY> <!ATTLIST r a CDATA \"]>\"> <!-- c --> %pe; ]>\n"
                    "<?app data?><!-- before -->"
                    "<r a='x\"y' b=\"&lt;&gt;&amp;&apos;&quot;&#65;&#x42;&#x10FFFF;\" c=\"1\t2\r\n3\" d=\">\">"
                    "t&amp;t]]<![CDATA[<b>&bogus;]]]><e/><?pi?><!---->"
                    "</r >\n<!-- after --><?after?>\n");
    ASSERT_TRUE(doc);
    COXMLNode* r = doc->getDocumentElement();
    EXPECT_STREQ(r->getAttribute("a"), "x\"y");
    EXPECT_STREQ(r->getAttribute("b"), "<>&'\"AB?");
    EXPECT_STREQ(r->getAttribute("c"), "1 2 3");  // line ends, then white space, read as blanks
    EXPECT_STREQ(r->getAttribute("d"), ">");
    EXPECT_STREQ(r->getText(), "t&t]]");
    EXPECT_EQ(r->getElementsByTagName("*")->length(), 1);
    // Many attributes on one element, all different, and a name outside ASCII.
    std::string many = "<r \xE9=\"1\"";
    for (int i = 0; i < 200; ++i)
        many += " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
    Doc wide = parse(many + "/>");
    ASSERT_TRUE(wide);
    EXPECT_STREQ(wide->getDocumentElement()->getAttribute("a199"), "199");
    EXPECT_EQ(COXMLDocument::loadXML((many + " a100=\"x\"/>").c_str(), nullptr, nullptr, 0), nullptr);
}

TEST(XML, QueriesPassOverElementsInANamespace)
{
    Doc doc = parse("<ViewerTasks xmlns=\"urn:x\"><Task TaskNum=\"1\" ResultCode=\"Failed\"/>"
                    "<Plain xmlns=\"\"><Task TaskNum=\"2\" ResultCode=\"Failed\"/></Plain><p:Task xmlns:p=\"urn:p\"/>"
                    "</ViewerTasks>");
    EXPECT_STREQ(doc->selectSingleNode("//Task[@ResultCode!=\"Succeeded\"]")->getAttribute("TaskNum"), "2");
    EXPECT_EQ(doc->selectSingleNode("//Task[@TaskNum=\"1\"]"), nullptr);
    EXPECT_EQ(names(doc->selectNodes("//Task", true), "TaskNum"), "2");
    EXPECT_EQ(doc->getDocumentElement()->selectSingleNode("./Task"), nullptr);
    EXPECT_NE(doc->getDocumentElement()->selectSingleNode("./Plain"), nullptr);  // xmlns="" undeclares
    EXPECT_EQ(doc->selectNodes("//*", true)->length(), 5);        // '*' matches in any namespace
    EXPECT_EQ(doc->getElementsByTagName("Task")->length(), 2);   // by the tag's name, as the DOM has it
}

TEST(XML, WhatTheLibraryWritesLoadsStrictly)
{
    testutil::TempDir dir;
    Doc doc(COXMLDocument::createDocument());
    COXMLNode* root = doc->appendChild(doc->createElement("ViewerTasks"), true);
    std::string every;
    for (int c = 1; c < 256; ++c)
        every.push_back(static_cast<char>(c));
    root->setAttribute("Description", every.c_str());
    root->setAttribute("Form", "W-2\x01\x0B\x1F" "end");
    EXPECT_STREQ(root->getAttribute("Form"), "W-2???end");
    const std::string path = dir.file("list.xml");
    ASSERT_NE(doc->save(path.c_str()), 0);
    int code = 0;
    char text[256] = "";
    Doc back(COXMLDocument::load(path.c_str(), &code, text, sizeof text));
    ASSERT_TRUE(back) << code << " " << text;
    std::string expected = every;
    for (int c = 1; c < 0x20; ++c)
        if (c != '\t' && c != '\n' && c != '\r')
            expected[static_cast<std::size_t>(c - 1)] = '?';
    EXPECT_EQ(back->getDocumentElement()->getAttribute("Description"), expected);
    EXPECT_STREQ(back->getDocumentElement()->getAttribute("Form"), "W-2???end");
}

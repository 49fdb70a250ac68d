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
    // Bytes that are not UTF-8 in an undeclared file come back as they were.
    EXPECT_STREQ(load_bytes(dir, "<r v=\"a\xE9\xFF\"/>")->getDocumentElement()->getAttribute("v"), "a\xE9\xFF");
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
    EXPECT_NE(std::string(text).find(" at offset "), std::string::npos) << text;

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
    // The document's own attributes are its root's.
    doc->setAttribute("ModifiedDate", "01/02/2024 03:04:05");
    EXPECT_STREQ(root->getAttribute("ModifiedDate"), "01/02/2024 03:04:05");
    EXPECT_STREQ(doc->getAttribute("ModifiedDate"), "01/02/2024 03:04:05");
    EXPECT_STREQ(doc->nodeName(), "#document");
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

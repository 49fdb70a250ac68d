// The upload text of a document: the entity encoding and the tree's text where they work on long
// texts a block or a buffer at a time, each held to what the same bytes give one by one; and the
// text made straight from a plain file's bytes, held to what the tree gives for the same file.

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CTransaction.h>
#include <vellument/CkString.h>
#include <vellument/CkXml.h>
#include <vellument/Ostrel_XML.h>

#include "Vellument/eFileSOAPS_upload.h"
#include "test_util.h"

namespace {

std::string encode(const std::string& ansi)
{
    CkString s;
    s.Append(ansi.c_str());
    s.EntityEncode();
    return std::string(s.GetString(), static_cast<std::size_t>(s.getSizeAnsi()));
}

std::string str(const char* text)
{
    return text != nullptr ? text : "<null>";
}

// The text that goes through the tree: the file loaded, written without declaration, encoded.
std::string tree_text(const std::string& path)
{
    CkXml xml;
    xml.put_EmitDeclaration(false);
    if (!xml.LoadXmlFile(path.c_str()))
        return "<not loaded>";
    CkString text;
    text.Append(xml.GetXml());
    text.EntityEncode();
    return std::string(text.GetString(), static_cast<std::size_t>(text.getSizeAnsi()));
}

// The text made straight from the bytes, behind what the request already holds; empty when the
// bytes are not plain, and the request must then be as it was.
std::string plain_text(const std::string& bytes, bool& taken)
{
    SoapUpload::Request request;
    request.append("<head>", 6);
    taken = SoapUpload::append_plain_text(bytes.data(), bytes.size(), request);
    const std::string all(request.data(), request.size());
    EXPECT_EQ(all.substr(0, 6), "<head>");
    if (!taken) {
        EXPECT_EQ(all.size(), 6u);
    }
    return all.substr(6);
}

} // namespace

TEST(UploadText, EncodingALongTextIsEncodingItsBytesOneByOne)
{
    // Every byte but NUL, alone, gives the reference; a short text never leaves the byte loop.
    std::string one_by_one[256];
    for (int b = 1; b < 256; ++b)
        one_by_one[b] = encode(std::string(1, static_cast<char>(b)));

    // Each kind of byte (replaced, high with an entity, high without one) at every place of a
    // text long enough for whole blocks, blocks that run into its last bytes, and the tail.
    for (int b : {34, 38, 39, 60, 62, 0xE9, 0x80, 0xA0, 0x81}) {
        for (std::size_t at = 0; at < 100; ++at) {
            std::string text(100, 'x');
            text[at] = static_cast<char>(b);
            const std::string expected = std::string(at, 'x') + one_by_one[b] + std::string(99 - at, 'x');
            ASSERT_EQ(encode(text), expected) << "byte " << b << " at " << at;
        }
    }

    // Replacements side by side filling many blocks, then all bytes over and over, then a long
    // run with nothing to replace and one replacement at its very end.
    std::string dense(16 * 200, '"');
    std::string dense_expected;
    for (char c : dense)
        dense_expected += one_by_one[static_cast<unsigned char>(c)];
    EXPECT_EQ(encode(dense), dense_expected);

    std::string all;
    std::string all_expected;
    for (int round = 0; round < 70; ++round) {
        for (int b = 1 + round % 7; b < 256; b += 1 + round % 3) {
            all.push_back(static_cast<char>(b));
            all_expected += one_by_one[b];
        }
    }
    EXPECT_EQ(encode(all), all_expected);

    const std::string plain(1 << 20, 'a');
    EXPECT_EQ(encode(plain + "&"), plain + "&amp;");
}

TEST(UploadText, TreeTextLargerThanItsBufferComesOutWhole)
{
    // Many elements, an attribute value whose escapes make it larger than the writer's buffer,
    // long content, and long CDATA joined from sections so that it holds section markers, which
    // are taken out.
    const std::string quotes(100000, '"');
    std::string escaped;
    for (std::size_t i = 0; i < quotes.size(); ++i)
        escaped += "&quot;";
    std::string cdata;
    std::string cdata_kept;
    for (int i = 0; i < 20000; ++i) {
        cdata += "<![CDATA[ab]]]]><![CDATA[>c<![CDATA[]]>";
        cdata_kept += "abc";
    }
    const std::string content(200000, 'z');

    std::string source = "<r v='" + quotes + "'>";
    std::string expected = "<r v=\"" + escaped + "\">\r\n";
    for (int i = 0; i < 5000; ++i) {
        source += "<c n=\"" + std::to_string(i) + "\" t=\"a&amp;b\"/>";
        expected += "    <c n=\"" + std::to_string(i) + "\" t=\"a&amp;b\"/>\r\n";
    }
    source += "<t>" + content + "</t><d>" + cdata + "</d></r>";
    expected += "    <t>" + content + "</t>\r\n    <d><![CDATA[" + cdata_kept + "]]></d>\r\n</r>\r\n";

    CkXml xml;
    xml.put_EmitDeclaration(false);
    ASSERT_TRUE(xml.LoadXml(source.c_str()));
    EXPECT_EQ(str(xml.GetXml()), expected);
}

TEST(UploadText, PlainBytesGiveTheTreesTextOthersAreLeftToTheTree)
{
    testutil::TempDir dir;
    const std::string path = dir.file("doc.xml");
    const std::string deep_open = [] {
        std::string t;
        for (int i = 0; i < 55; ++i)
            t += "<e" + std::to_string(i) + ">";
        return t;
    }();
    std::string deep_close;
    for (int i = 54; i >= 0; --i)
        deep_close += "</e" + std::to_string(i) + ">";
    const std::vector<std::pair<std::string, bool>> cases = {
        // The library's own shape, and the spellings around it that still read the same way.
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<A V=\"1\">\n\t<B x=\"a&amp;b &lt;c> &#09;&#13;&#10;\" y=\"'\" />"
         "\n\t<C>\n\t\t<D/>\n\t</C>\n\t<E></E>\n</A>\n",
         true},
        {"<?xml version='1.0' encoding='utf8' standalone='yes' ?>\r\n<a x='1\"2'y = \"&#x9;&#xA;&#xD;&quot;&apos;&gt;&unknown;&\t\r\n\""
         "\tz:q._-!=\"\"><b\n/></a  >\r\n",
         true},
        {"<a:b><_1 /></a:b>", true},
        {deep_open + "<leaf k=\"v\"/>" + deep_close, true},
        // Everything else goes through the tree.
        {"", false},
        {"\xEF\xBB\xBF<a/>", false},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>", false},
        {"<?XML version=\"1.0\"?><a/>", false},
        {"<!DOCTYPE a><a/>", false},
        {"<a><!-- c --></a>", false},
        {"<a><![CDATA[x]]></a>", false},
        {"<a><?pi?></a>", false},
        {"<a>text</a>", false},
        {"<!a/>", false},
        {"<a x=\"\xE9\"/>", false},
        {"<a x=\"\x01\"/>", false},
        {"<a x=1/>", false},
        {"<a x/>", false},
        {"<a 1x=\"\"/>", false},
        {"<a/ >", false},
        {"<a><b></a></b>", false},
        {"<a><b/>", false},
        {"<a x=\"1/>", false},
        {"<a/><b/>", false},
        {"<a/>\n<!-- after -->", false},
        // The loader takes the first "<?xml" anywhere for the declaration that names the encoding.
        {"<a x=\"<?xml encoding='latin1'>\"/>", false},
    };
    for (const auto& c : cases) {
        testutil::write_file(path, c.first);
        bool taken = false;
        const std::string text = plain_text(c.first, taken);
        EXPECT_EQ(taken, c.second) << c.first;
        if (taken) {
            EXPECT_EQ(text, tree_text(path)) << c.first;
        }
    }

    // A file cut anywhere either is plain and reads the same, or is left to the tree.
    const std::string whole = cases[0].first;
    for (std::size_t n = 0; n <= whole.size(); ++n) {
        const std::string cut = whole.substr(0, n);
        testutil::write_file(path, cut);
        bool taken = false;
        const std::string text = plain_text(cut, taken);
        if (taken) {
            EXPECT_EQ(text, tree_text(path)) << n;
        }
    }
}

TEST(UploadText, SavedRecordsGoStraightFromTheFile)
{
    // Records as the library saves them, with every byte that a value can hold escaped or not;
    // with a byte of 128 or above the file is left to the tree.
    testutil::TempDir dir;
    for (const char* odd : {"", "caf\xE9"}) {
        CTransaction transaction;
        CPackage* package = new CPackage();
        package->set_builder_version((std::string("1.0 & <2> \"q\" 'a'") + odd).c_str());
        CFiling* filing = new CFiling();
        filing->set_identifier("S\t1\r\n");
        CForm* form = new CForm();
        form->set_description("a<b>&c\"d'e\tf\r\ng &amp; &#x9; &lt;");
        form->set_krf_filter_number(INT_MIN);
        filing->add_form(form);
        package->add_filing(filing);
        transaction.set_package(package);
        std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
        document->appendChild(transaction.create_xml_node(document.get()), true);
        const std::string path = dir.file("saved.xml");
        ASSERT_NE(document->save(path.c_str()), 0);

        SoapUpload::Request request;
        const bool plain = SoapUpload::append_plain_file(path.c_str(), request);
        EXPECT_EQ(plain, *odd == '\0');
        if (plain) {
            EXPECT_EQ(std::string(request.data(), request.size()), tree_text(path));
        }
    }
    SoapUpload::Request request;
    EXPECT_FALSE(SoapUpload::append_plain_file(dir.file("missing.xml").c_str(), request));
    EXPECT_EQ(request.size(), 0u);
}

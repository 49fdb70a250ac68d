// The upload text of a large document: the entity encoding and the tree's text where they work on
// long texts a block or a buffer at a time. Each is held to what the same bytes give one by one.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <vellument/CkString.h>
#include <vellument/CkXml.h>

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

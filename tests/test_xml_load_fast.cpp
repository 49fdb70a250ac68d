// The loader's check passes the attributes of an element that repeat those of the last element
// of its name without reading their names, and finds where values end 16 and 64 bytes at a time.
// These documents put every kind of fault and of harmless change after such a run, with values
// of every length around those strides.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <vellument/Ostrel_XML.h>

namespace {

using Doc = std::unique_ptr<COXMLDocument>;

// A run of elements of one shape, then the element under test with {} replaced by pad bytes,
// then (unless the text is to end there) another run, long enough for the element to be read
// by the shape.
std::string document(const std::string& element, std::size_t pad, bool end_here = false)
{
    std::string run;
    for (int i = 0; i < 6; ++i)
        run += "\t<e a=\"1\" bb=\"" + std::string(static_cast<std::size_t>(i) * 11, 'v') + "\" ccc='3'/>\n";
    const std::size_t at = element.find("{}");
    std::string text = "<r>\n" + run + "\t" + element.substr(0, at) + std::string(pad, 'x');
    if (end_here)
        return text;
    return text + element.substr(at + 2) + "\n" + run + "</r>\n";
}

TEST(XMLLoadFast, FaultsAfterARunOfOneShapeAreRefused)
{
    struct Case {
        const char* element;
        int code;
    };
    const Case cases[] = {
        {"<e a=\"{}\" bb=\"2\" ccc='3' a=\"4\"/>", OXML_E_DUPLICATE_ATTRIBUTE},
        {"<e a=\"{}\" bb=\"2\" bb=\"3\"/>", OXML_E_DUPLICATE_ATTRIBUTE},
        {"<e a=\"1\" bb=\"{}<\" ccc='3'/>", OXML_E_SYNTAX},
        {"<e a=\"1\" bb=\"2\" ccc='{}<'/>", OXML_E_SYNTAX},
        {"<e a=\"{}\"bb=\"2\"/>", OXML_E_SYNTAX},
        {"<e a=\"{}&bogus;\" bb=\"2\"/>", OXML_E_BAD_REFERENCE},
        {"<e a=\"1\" bb=\"{}&\"/>", OXML_E_BAD_REFERENCE},
        {"<e a=\"1\" bb=\"{}\x01\"/>", OXML_E_INVALID_CHARACTER},
        {"<e a=\"1\" bb=\"{}\"></f>", OXML_E_TAG_MISMATCH},
        {"<e a=\"1\" bb=\"{}\"></ee>", OXML_E_TAG_MISMATCH},
        {"<ee a=\"1\" bb=\"{}\"></e>", OXML_E_TAG_MISMATCH},
        {"<e a=\"1\" bb=\"{}", OXML_E_UNEXPECTED_END},
    };
    for (const Case& c : cases) {
        for (std::size_t pad = 0; pad <= 80; ++pad) {
            const std::string text = document(c.element, pad, c.code == OXML_E_UNEXPECTED_END);
            int code = 0;
            char message[256] = "";
            Doc doc(COXMLDocument::loadXML(text.c_str(), &code, message, sizeof message));
            EXPECT_EQ(doc, nullptr) << c.element << " pad " << pad;
            EXPECT_EQ(code, c.code) << c.element << " pad " << pad << ": " << message;
        }
    }
}

TEST(XMLLoadFast, ChangesOfShapeLoad)
{
    const char* const elements[] = {
        "<e a=\"{}\" bb=\"2\" ccc='3'/>",            // the shape itself
        "<e bb=\"{}\" a=\"1\" ccc='3'/>",            // another order
        "<e a=\"{}\"/>",                             // fewer
        "<e a=\"1\" bb=\"{}\" ccc='3' dddd=\"4\"/>", // more
        "<e a='{}' bb=\"2\" ccc=\"3\"/>",            // other quotes
        "<e a=\"1\"  bb=\"{}\"\n\tccc='3' ></e >",   // other white space
        "<e a=\"{}&amp;&#xE9;'>\" bb=\"\t\" ccc='\"'/>",
        "<e a=\"1\" bb=\"{}\xC3\xA9\" ccc='3'/>",
    };
    for (const char* element : elements) {
        for (std::size_t pad = 0; pad <= 80; ++pad) {
            int code = 0;
            char message[256] = "";
            const std::string text = document(element, pad);
            Doc doc(COXMLDocument::loadXML(text.c_str(), &code, message, sizeof message));
            ASSERT_TRUE(doc) << element << " pad " << pad << ": " << code << " " << message;
            EXPECT_EQ(doc->getElementsByTagName("e")->length(), 13) << element;
        }
    }
}

} // namespace

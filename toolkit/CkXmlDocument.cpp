// Hands a finished toolkit XML tree to the library's document interface.
//
// The tree goes across element by element, in UTF-8, so that nothing passes through the code
// page. What the forgiving parser or the builder let into the tree is repaired on the way, so
// that the document holds only what XML can: names are made XML names, characters that XML
// can't hold are left out, element text has its references resolved, and a name that the tree
// holds twice is one attribute whose last value wins.

#include "toolkit/CkXmlDocument.h"

#include <new>
#include <string>
#include <vector>

#include <vellument/CkXml.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_Build.h"
#include "Ostrel/XML_WellFormed.h"
#include "toolkit/CkXml_Tree.h"

using ckxml::TreeNode;

namespace {

// One character of UTF-8 text at i, and its length. A byte that doesn't start a valid sequence
// is read as a code page byte, as the interface's conversions read it.
std::size_t decodeChar(std::string_view s, std::size_t i, char32_t& c)
{
    std::size_t n = Ostrel::Format::DecodeUtf8(s.data(), s.size(), i, c);
    if (n > 0)
        return n;
    c = Ostrel::Format::Cp1252ToUnicode(static_cast<unsigned char>(s[i]));
    return 1;
}

// An XML name: characters that can't stand in a name become "_", and a name that can't start
// as it is gets "_" in front.
std::string xmlName(std::string_view utf8)
{
    std::string out;
    bool first = true;
    for (std::size_t i = 0; i < utf8.size();) {
        char32_t c = 0;
        i += decodeChar(utf8, i, c);
        if (!oxml::is_name_char(c)) {
            out.push_back('_');
        } else {
            if (first && !oxml::is_name_start_char(c))
                out.push_back('_');
            Ostrel::Format::AppendUtf8(out, c);
        }
        first = false;
    }
    return out;
}

// The text as valid UTF-8 with the characters that XML can't hold left out.
std::string xmlText(std::string_view utf8)
{
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        char32_t c = 0;
        i += decodeChar(utf8, i, c);
        if (oxml::is_xml_char(c))
            Ostrel::Format::AppendUtf8(out, c);
    }
    return out;
}

bool isHex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Element text as stored holds its references unresolved; a parser of the written text would
// resolve the predefined and the numeric ones, so they are resolved here. Anything else that
// looks like a reference stays literal text.
std::string resolveReferences(std::string_view text)
{
    if (text.find('&') == std::string_view::npos)
        return std::string(text);
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] != '&') {
            out.push_back(text[i++]);
            continue;
        }
        const std::size_t semi = text.find(';', i + 1);
        if (semi != std::string_view::npos && semi - i <= 12) {
            const std::string_view name = text.substr(i + 1, semi - i - 1);
            char single = 0;
            if (name == "amp")
                single = '&';
            else if (name == "lt")
                single = '<';
            else if (name == "gt")
                single = '>';
            else if (name == "quot")
                single = '"';
            else if (name == "apos")
                single = '\'';
            if (single != 0) {
                out.push_back(single);
                i = semi + 1;
                continue;
            }
            if (name.size() >= 2 && name[0] == '#') {
                const bool hex = name[1] == 'x';
                const std::string_view digits = name.substr(hex ? 2 : 1);
                bool ok = !digits.empty() && digits.size() <= 8;
                unsigned long value = 0;
                for (char d : digits) {
                    if (hex ? !isHex(d) : !(d >= '0' && d <= '9')) {
                        ok = false;
                        break;
                    }
                    value = value * (hex ? 16 : 10) +
                            static_cast<unsigned long>(d <= '9' ? d - '0' : (d | 0x20) - 'a' + 10);
                }
                if (ok && value <= 0x10FFFF && oxml::is_xml_char(static_cast<char32_t>(value))) {
                    char32_t c = static_cast<char32_t>(value);
                    Ostrel::Format::AppendUtf8(out, c);
                    i = semi + 1;
                    continue;
                }
            }
        }
        out.push_back(text[i++]);
    }
    return out;
}

void openElement(oxml::TreeBuilder& builder, const TreeNode* n)
{
    builder.open(n->tag.empty() ? std::string("nothing") : xmlName(n->tag.view()));
    for (const ckxml::Attribute& a : n->attributes) {
        const std::string name = xmlName(a.name());
        if (!name.empty())
            builder.attribute(name, xmlText(a.value()));
    }
    if (!n->content.empty())
        builder.text(n->cdata ? xmlText(n->content.view()) : xmlText(resolveReferences(n->content.view())));
}

// The node and everything below it, without recursion.
COXMLDocument* buildDocument(const TreeNode& top)
{
    oxml::TreeBuilder builder;
    struct Frame {
        const TreeNode* node;
        std::size_t next;
    };
    std::vector<Frame> open;
    open.push_back(Frame{&top, 0});
    openElement(builder, &top);
    while (!open.empty()) {
        Frame& frame = open.back();
        if (frame.next < frame.node->children.size()) {
            const TreeNode* child = frame.node->children[frame.next++];
            open.push_back(Frame{child, 0});
            openElement(builder, child);
        } else {
            builder.close();
            open.pop_back();
        }
    }
    return builder.finish();
}

} // namespace

COXMLDocument* ckxml_to_document(CkXml* root)
{
    if (root == nullptr)
        return nullptr;
    COXMLDocument* document = nullptr;
    try {
        const bool valid =
            CkXmlAccess::withNode(*root, [&document](const TreeNode& node) { document = buildDocument(node); });
        if (!valid)
            VLOG(2, "[CkXml] The tree handed over for a document is not valid\n");
    } catch (const std::bad_alloc&) {
        VLOG(1, "[CkXml] Out of memory making a document of the tree\n");
    }
    delete root;
    return document;
}

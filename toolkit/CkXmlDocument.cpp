// Hands a finished toolkit XML tree to the library's document interface.
//
// The document interface can make elements and set attributes but has no way to give an element
// its text, so the tree goes across as standard XML text instead. That text has to be well-formed
// whatever the forgiving parser or the builder let into the tree: names are repaired, duplicate
// attributes merged, references resolved and every special character escaped. Every character
// outside ASCII goes as a numeric reference, so the trip through the interface's code page loses
// nothing; only names, which can't hold references, carry code page bytes.

#include "toolkit/CkXmlDocument.h"

#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include <vellument/CkXml.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"
#include "toolkit/CkXml_Tree.h"

using ckxml::TreeNode;

namespace {

// One character of UTF-8 text at i, and its length. A byte that doesn't start a valid sequence
// is read as a code page byte, as the interface's conversions read it.
std::size_t decodeChar(const std::string& s, std::size_t i, char32_t& c)
{
    std::size_t n = Ostrel::Format::DecodeUtf8(s.data(), s.size(), i, c);
    if (n > 0)
        return n;
    c = Ostrel::Format::Cp1252ToUnicode(static_cast<unsigned char>(s[i]));
    return 1;
}

bool isXmlChar(char32_t c)
{
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

bool isNameStart(char32_t c)
{
    return c == ':' || c == '_' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= 0xC0 && c <= 0xD6) ||
           (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
           (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
           (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
}

bool isNameChar(char32_t c)
{
    return isNameStart(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// A well-formed name in the code page: characters that can't stand in a name, or can't cross
// in the code page, become "_", and a name that can't start as it is gets "_" in front.
std::string xmlName(const std::string& utf8)
{
    std::string out;
    bool first = true;
    for (std::size_t i = 0; i < utf8.size();) {
        char32_t c = 0;
        i += decodeChar(utf8, i, c);
        const int ansi = Ostrel::Format::UnicodeToCp1252(c);
        if (ansi < 0 || !isNameChar(c)) {
            out.push_back('_');
        } else {
            if (first && !isNameStart(c))
                out.push_back('_');
            out.push_back(static_cast<char>(ansi));
        }
        first = false;
    }
    return out;
}

void appendReference(std::string& out, char32_t c)
{
    out += "&#";
    out += std::to_string(static_cast<unsigned long>(c));
    out.push_back(';');
}

// Escaped text: the specials as entities, all of non-ASCII as references, characters that XML
// can't hold at all left out.
void appendEscaped(std::string& out, const std::string& utf8, bool attribute)
{
    for (std::size_t i = 0; i < utf8.size();) {
        char32_t c = 0;
        i += decodeChar(utf8, i, c);
        switch (c) {
        case '&': out += "&amp;"; continue;
        case '<': out += "&lt;"; continue;
        case '>': out += "&gt;"; continue;
        case '"':
            out += attribute ? "&quot;" : "\"";
            continue;
        // Literal white space in attribute values is normalised to blanks by any parser, and a
        // CR in text to a LF; references keep them.
        case '\t':
            out += attribute ? "&#9;" : "\t";
            continue;
        case '\n':
            out += attribute ? "&#10;" : "\n";
            continue;
        case '\r': out += "&#13;"; continue;
        default: break;
        }
        if (!isXmlChar(c))
            continue;
        if (c < 0x80)
            out.push_back(static_cast<char>(c));
        else
            appendReference(out, c);
    }
}

bool isHex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Element text as stored holds its references unresolved; a parser of the written text would
// resolve the predefined and the numeric ones, so they are resolved here. Anything else that
// looks like a reference stays literal text.
std::string resolveReferences(const std::string& text)
{
    if (text.find('&') == std::string::npos)
        return text;
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] != '&') {
            out.push_back(text[i++]);
            continue;
        }
        const std::size_t semi = text.find(';', i + 1);
        if (semi != std::string::npos && semi - i <= 12) {
            const std::string name = text.substr(i + 1, semi - i - 1);
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
                const std::string digits = name.substr(hex ? 2 : 1);
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
                if (ok && value <= 0x10FFFF && isXmlChar(static_cast<char32_t>(value))) {
                    char32_t c = static_cast<char32_t>(value);
                    // Back to UTF-8, to be escaped with the rest.
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

void openElement(std::string& out, const TreeNode* n, std::string& name)
{
    name = n->tag.empty() ? std::string("nothing") : xmlName(n->tag);
    out.push_back('<');
    out += name;
    if (!n->attributes.empty()) {
        // Names that the tree holds twice, or that became equal when repaired, are one attribute
        // in XML: the last value wins, in the place of the first.
        std::vector<std::pair<std::string, const std::string*>> attributes;
        std::unordered_map<std::string, std::size_t> seen;
        for (const auto& a : n->attributes) {
            std::string attributeName = xmlName(a.first);
            if (attributeName.empty())
                continue;
            auto found = seen.find(attributeName);
            if (found != seen.end()) {
                attributes[found->second].second = &a.second;
            } else {
                seen.emplace(attributeName, attributes.size());
                attributes.emplace_back(std::move(attributeName), &a.second);
            }
        }
        for (const auto& a : attributes) {
            out.push_back(' ');
            out += a.first;
            out += "=\"";
            appendEscaped(out, *a.second, true);
            out.push_back('"');
        }
    }
    out.push_back('>');
    if (!n->content.empty())
        appendEscaped(out, n->cdata ? n->content : resolveReferences(n->content), false);
}

void closeElement(std::string& out, const std::string& name)
{
    out += "</";
    out += name;
    out.push_back('>');
}

// Standard XML for the node and everything below it, without recursion.
std::string standardXml(const TreeNode& top)
{
    std::string out;
    struct Frame {
        const TreeNode* node;
        std::size_t next;
        std::string name;
    };
    std::vector<Frame> open;
    open.push_back(Frame{&top, 0, std::string()});
    openElement(out, &top, open.back().name);
    while (!open.empty()) {
        Frame& frame = open.back();
        if (frame.next < frame.node->children.size()) {
            const TreeNode* child = frame.node->children[frame.next++];
            open.push_back(Frame{child, 0, std::string()});
            openElement(out, child, open.back().name);
        } else {
            closeElement(out, frame.name);
            open.pop_back();
        }
    }
    return out;
}

} // namespace

COXMLDocument* ckxml_to_document(CkXml* root)
{
    if (root == nullptr)
        return nullptr;
    COXMLDocument* document = nullptr;
    try {
        std::string text;
        const bool valid = CkXmlAccess::withNode(*root, [&text](const TreeNode& node) { text = standardXml(node); });
        if (valid) {
            int code = 0;
            char message[256] = {0};
            document = COXMLDocument::loadXML(text.c_str(), &code, message, sizeof message);
            if (document == nullptr)
                VLOG(2, "[CkXml] The tree did not load as a document: %d %s\n", code, message);
        } else {
            VLOG(2, "[CkXml] The tree handed over for a document is not valid\n");
        }
    } catch (const std::bad_alloc&) {
        VLOG(1, "[CkXml] Out of memory making a document of the tree\n");
    }
    delete root;
    return document;
}

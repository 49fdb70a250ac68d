#ifndef VELLUMENT_OSTREL_XML_WELLFORMED_H
#define VELLUMENT_OSTREL_XML_WELLFORMED_H

// The well-formedness check of XML 1.0 text, run before the tree is built: the parser underneath
// is lenient and would take much that XML forbids.

#include <cstddef>
#include <string>

namespace oxml {

inline bool is_xml_char(char32_t c)
{
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

inline bool is_name_start_char(char32_t c)
{
    return c == ':' || c == '_' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= 0xC0 && c <= 0xD6) ||
           (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
           (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
           (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
}

inline bool is_name_char(char32_t c)
{
    return is_name_start_char(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// True when the UTF-8 text is an XML name.
bool is_xml_name(const char* utf8);

// What the check found out beside the verdict; the loader picks the parser's work by it.
struct WellFormedResult {
    int code = 0;            // 0, or one of COXMLDocument's parse error codes
    std::string message;     // what is wrong and where
    bool ascii = true;       // no character outside ASCII, references included
    bool references = false; // some '&' in text or attribute values
    bool carriage_returns = false;
    bool attribute_white_space = false;  // a tab, LF or CR in some attribute value
    bool cdata = false;
    bool namespaces = false;  // some xmlns or xmlns:prefix attribute
};

// Checks UTF-8 text (without a byte order mark) against the well-formedness rules of XML 1.0.
// Entities declared in a DTD are not expanded by this library, so a reference to any entity but
// the five predefined ones is refused even where a DTD declares it. Linear in the size of the text.
bool check_well_formed(const char* data, std::size_t size, WellFormedResult& result);

} // namespace oxml

#endif

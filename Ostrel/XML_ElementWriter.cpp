#include "Ostrel/XML_ElementWriter.h"

#include <charconv>
#include <cstdint>
#include <cstring>

#include <pugixml.hpp>

#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Data.h"

namespace oxml {

namespace {

// Whether every byte lies in 0x20 to 0x7F: such a value is stored as it stands. Eight bytes at a
// time: a byte of 0x80 or more has its top bit set, and one below 0x20 sets it when 0x20 is
// taken away (a borrow from a byte below only ever follows a byte already found).
bool is_printable_ascii(const char* p, std::size_t n)
{
    const std::uint64_t kSpaces = 0x2020202020202020ull;
    const std::uint64_t kTops = 0x8080808080808080ull;
    std::uint64_t found = 0;
    for (; n >= 8; p += 8, n -= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        found |= (word | (word - kSpaces)) & kTops;
    }
    for (; n > 0; ++p, --n) {
        const unsigned char c = static_cast<unsigned char>(*p);
        found |= (c < 0x20 || c >= 0x80) ? 1 : 0;
    }
    return found == 0;
}

} // namespace

ElementWriter::ElementWriter(COXMLDocument* document, const char* name)
    : element_(document != nullptr ? document->createElement(name) : nullptr)
{
    adopt(document);
}

ElementWriter::ElementWriter(COXMLDocument* document, COXMLNode* element) : element_(element)
{
    adopt(document);
}

void ElementWriter::adopt(COXMLDocument* document)
{
    if (element_ == nullptr || document == nullptr)
        return;
    COXMLDocumentData* d = const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document));
    pugi::xml_node n = COXMLDocumentData::node_of(element_);
    // Elements not yet attached wait below the document's holder: that proves both that the
    // element is of this document and that no caller has reached it yet.
    if (!n || n.type() != pugi::node_element || !d->holder || n.parent() != d->holder)
        return;
    data_ = d;
    node_ = n.internal_object();
}

void ElementWriter::append(const char* name, const char* value, std::size_t size)
{
    pugi::xml_node n(static_cast<pugi::xml_node_struct*>(node_));
    // Through the document's own append, which keeps its lookup aids in step.
    data_->append_attribute(n, name).set_value(value, size);
}

void ElementWriter::text(const char* name, const char* value)
{
    if (element_ == nullptr)
        return;
    if (value == nullptr)
        value = "";
    if (data_ != nullptr) {
        const std::size_t size = std::strlen(value);
        if (is_printable_ascii(value, size)) {
            append(name, value, size);
            return;
        }
    }
    element_->setAttribute(name, value);
}

void ElementWriter::number(const char* name, int value)
{
    if (element_ == nullptr)
        return;
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits) - 1, value);
    if (data_ != nullptr) {
        append(name, digits, static_cast<std::size_t>(end.ptr - digits));
        return;
    }
    *end.ptr = '\0';
    element_->setAttribute(name, digits);
}

void ElementWriter::flag(const char* name, bool value)
{
    if (element_ == nullptr)
        return;
    // By the stored byte, as AuditUtil::to_string reads it: a bool holding anything but 1 is false.
    unsigned char byte = 0;
    std::memcpy(&byte, &value, 1);
    const bool set = byte == 1;
    if (data_ != nullptr) {
        append(name, set ? "true" : "false", set ? 4 : 5);
        return;
    }
    element_->setAttribute(name, set ? "true" : "false");
}

} // namespace oxml

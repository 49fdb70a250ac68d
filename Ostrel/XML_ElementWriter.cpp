#include "Ostrel/XML_ElementWriter.h"

#include <charconv>
#include <cstring>

#include <pugixml.hpp>

#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Data.h"

namespace oxml {

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
        // Printable ASCII is stored as it stands; a byte below 0x20 or above 0x7F wraps round to
        // 0x60 or more here.
        const unsigned char* p = reinterpret_cast<const unsigned char*>(value);
        unsigned char other = 0;
        for (; *p != 0; ++p)
            other |= static_cast<unsigned char>(static_cast<unsigned char>(*p - 0x20) >= 0x60);
        if (other == 0) {
            append(name, value, static_cast<std::size_t>(reinterpret_cast<const char*>(p) - value));
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

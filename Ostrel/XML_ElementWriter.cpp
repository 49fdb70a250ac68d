#include "Ostrel/XML_ElementWriter.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <pugixml.hpp>

#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Data.h"

namespace oxml {

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

bool stored_flag(bool value)
{
    // By the stored byte, as AuditUtil::to_string reads it: a bool holding anything but 1 is false.
    unsigned char byte = 0;
    std::memcpy(&byte, &value, 1);
    return byte == 1;
}

namespace {

// For each attribute name the writers of a document use, an attribute on the document's holder
// of unattached elements whose name lies in text that the parser read in place. A copy of such an
// attribute shares its name instead of storing one of its own: a trail's attributes take a
// handful of names, so most of the copying and memory of names goes. The holder is never saved
// nor searched, so what it carries is seen nowhere.
class SharedNames {
public:
    // The attribute to copy for that name, or null when the name can't be shared.
    pugi::xml_attribute prototype(pugi::xml_node holder, const char* name)
    {
        std::size_t i = slot_of(name);
        while (slots_[i].name != nullptr) {
            if (slots_[i].name == name)
                return pugi::xml_attribute(slots_[i].prototype);
            i = (i + 1) % kSlots;
        }
        if (used_ + 1 > kSlots * 3 / 4)
            return pugi::xml_attribute();
        slots_[i] = Slot{name, make(holder, name).internal_object()};
        ++used_;
        return pugi::xml_attribute(slots_[i].prototype);
    }

private:
    // Names are the writers' constants, so the same pointer comes back each time; the same text
    // at another address only takes a second slot.
    static std::size_t slot_of(const char* name)
    {
        const std::uintptr_t v = reinterpret_cast<std::uintptr_t>(name);
        return static_cast<std::size_t>((v ^ (v >> 7) ^ (v >> 13)) % kSlots);
    }

    static pugi::xml_attribute make(pugi::xml_node holder, const char* name)
    {
        const std::string text = std::string("<p ") + name + "=\"\"/>";
        const pugi::xml_node before = holder.last_child();
        const bool parsed = holder.append_buffer(text.data(), text.size(), pugi::parse_minimal, pugi::encoding_utf8);
        pugi::xml_attribute copy;
        const pugi::xml_node element = holder.last_child();
        if (parsed && element != before && element.first_attribute() &&
            std::strcmp(element.first_attribute().name(), name) == 0)
            copy = holder.append_copy(element.first_attribute());
        // Whatever the parser added goes again, the elements waiting in the holder stay. The parsed
        // text lives as long as the document, so the copy's name outlives the element.
        while (holder.last_child() != before)
            holder.remove_child(holder.last_child());
        return copy;
    }

    static constexpr std::size_t kSlots = 256;
    struct Slot {
        const char* name;
        pugi::xml_attribute_struct* prototype;
    };
    Slot slots_[kSlots] = {};
    std::size_t used_ = 0;
};

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
    if (!d->shared_names)
        d->shared_names = std::make_shared<SharedNames>();
    data_ = d;
    node_ = n.internal_object();
}

void ElementWriter::append(const char* name, const char* value, std::size_t size)
{
    pugi::xml_node n(static_cast<pugi::xml_node_struct*>(node_));
    // An element that setAttribute has worked on may carry the document's lookup aids: its own
    // append keeps them in step.
    if (node_ != data_->indexed_node && node_ != data_->filter_node) {
        SharedNames& names = *static_cast<SharedNames*>(data_->shared_names.get());
        if (pugi::xml_attribute prototype = names.prototype(data_->holder, name)) {
            n.append_copy(prototype).set_value(value, size);
            return;
        }
    }
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
    const bool set = stored_flag(value);
    if (data_ != nullptr) {
        append(name, set ? "true" : "false", set ? 4 : 5);
        return;
    }
    element_->setAttribute(name, set ? "true" : "false");
}

} // namespace oxml

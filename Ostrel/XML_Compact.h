#ifndef VELLUMENT_OSTREL_XML_COMPACT_H
#define VELLUMENT_OSTREL_XML_COMPACT_H

// A read-only tree of a checked document, for readers that only look up attributes and elements
// by name: elements in document order in one array, attributes in another, their names and
// values as texts in the document's own bytes. A fraction of the parser's tree in memory, and
// finding the descendants of a name is a scan of a range of small integers.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Ostrel/XML_WellFormed.h"

class COXMLDocument;

namespace oxml {

// As COXMLDocument::load, for a reader that only reads attributes and finds elements by name and
// by child paths ("./Name"): a file that a compact tree holds comes back as one, anything else as
// load gives it. The operations that change a tree find nothing to change in a compact one.
COXMLDocument* load_for_reading(const char* path, int* errorCode, char* errorText, int errorTextSize);

class CompactTree {
public:
    static constexpr std::uint32_t kNone = UINT32_MAX;

    struct Element {
        std::uint32_t name;             // index of the name, see name_of
        std::uint32_t first_attribute;  // its attributes run up to the next element's first
        std::uint32_t end;              // one past the last element of its subtree
        std::uint32_t parent;           // kNone for the document element
    };

    enum Outcome {
        kBuilt,    // the tree holds the text, which it took over
        kNotHeld,  // the text holds what the tree doesn't keep; the bytes are as they were
        kFailed    // the text is not what the check passes; the bytes are spent
    };
    // Builds the tree of UTF-8 text that check_well_formed passed, with its result. Not held: a
    // DOCTYPE, text other than white space, CDATA, namespaces, or a size past what offsets hold.
    // Names and values are decoded in place.
    Outcome build(std::string& bytes, const WellFormedResult& check);

    std::uint32_t size() const { return static_cast<std::uint32_t>(elements_.size()) - 1; }
    const Element& element(std::uint32_t i) const { return elements_[i]; }
    const char* name_of(std::uint32_t i) const { return names_[elements_[i].name].c_str(); }

    // The index of an element name, or kNone when no element has it.
    std::uint32_t name_index(const char* utf8) const;

    std::uint32_t attributes_begin(std::uint32_t i) const { return elements_[i].first_attribute; }
    std::uint32_t attributes_end(std::uint32_t i) const { return elements_[i + 1].first_attribute; }
    const char* attribute_name(std::uint32_t a) const { return text_.data() + attributes_[a].name; }
    const char* attribute_value(std::uint32_t a) const { return text_.data() + attributes_[a].value; }

    // The attribute of that name on element i, looked for from the attribute `from` on and then
    // from the element's first; kNone when it has none. An element holds a name once, so where
    // the search starts doesn't change what it finds. *wide tells whether the name that matched
    // has a byte from 0x80 on.
    std::uint32_t find_attribute(std::uint32_t i, const char* utf8_name, std::uint32_t from, bool* wide) const
    {
        const std::uint32_t begin = attributes_begin(i);
        const std::uint32_t end = attributes_end(i);
        if (from < begin || from > end)
            from = begin;
        for (std::uint32_t a = from; a < end; ++a)
            if (same_name(attribute_name(a), utf8_name, wide))
                return a;
        for (std::uint32_t a = begin; a < from; ++a)
            if (same_name(attribute_name(a), utf8_name, wide))
                return a;
        return kNone;
    }

private:
    static bool same_name(const char* a, const char* b, bool* wide)
    {
        unsigned char bits = 0;
        for (; *a == *b; ++a, ++b) {
            if (*a == '\0') {
                *wide = (bits & 0x80) != 0;
                return true;
            }
            bits |= static_cast<unsigned char>(*a);
        }
        return false;
    }

    struct Attribute {
        std::uint32_t name;   // offsets of NUL-terminated texts in text_
        std::uint32_t value;
    };

    std::uint32_t intern(const char* name, std::size_t length);
    Outcome fail();

    std::string text_;
    std::vector<Element> elements_;  // with one more at the end, that closes the last one's attributes
    std::vector<Attribute> attributes_;
    std::deque<std::string> names_;
    std::unordered_map<std::string_view, std::uint32_t> name_indexes_;  // views of names_
};

} // namespace oxml

#endif

#ifndef VELLUMENT_OSTREL_XML_WELLFORMED_CHECKER_H
#define VELLUMENT_OSTREL_XML_WELLFORMED_CHECKER_H

// The checker behind check_well_formed: one pass over the bytes by the grammar of XML 1.0. The
// elements and their attributes are in XML_WellFormed.cpp, the prolog, comments, processing
// instructions, CDATA and the DOCTYPE in XML_WellFormed_Prolog.cpp.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_WellFormed.h"
#include "Ostrel/XML_WellFormed_Scan.h"

namespace oxml {

class Checker {
public:
    Checker(const char* data, std::size_t size, WellFormedResult& result)
        : begin_(reinterpret_cast<const unsigned char*>(data)), p_(begin_), end_(begin_ + size), r_(result)
    {
    }
    ~Checker();

    bool document();

    // Fills the tree with the elements and attributes of the text, bytes, as they pass, while the
    // tree can hold what the text holds; each value is made a NUL-terminated text where it stands.
    // Once the text shows what the tree doesn't hold, the bytes are given back as they were and the
    // check goes on alone. The verdict is the same either way.
    void record_into(CompactTree* tree, std::string& bytes)
    {
        tree_ = tree;
        bytes_ = &bytes;
    }
    bool recording() const { return tree_ != nullptr; }

private:
    // Attributes up to this number are told apart by a scan of those before; more go into a set.
    static constexpr std::size_t kLinearAttributes = 32;

    struct Name {
        const unsigned char* at;
        std::size_t length;
        std::uint32_t hash;
        unsigned char quote;  // of an attribute's value
        std::uint32_t id;     // of the name in the tree, when recording
    };

    // The attributes that the last element of one name began with, each as its text from the
    // blank before it to the value's opening quote: the elements of a document mostly repeat
    // their kind's attributes in the same order, and an attribute that repeats that text needs no
    // name check of its own.
    struct Shape {
        static constexpr std::size_t kMaxText = 32;
        struct Entry {
            alignas(16) unsigned char text[kMaxText];  // blank, name, '=', quote; zeros after
            std::uint32_t mask;    // one bit per byte of text
            std::uint32_t size;    // of text
            std::uint32_t hash;    // of the name, as name_hash gives it
            std::uint32_t id;      // of the name in the tree, when recording
            unsigned char quote;
        };
        alignas(16) unsigned char element[kMaxText];  // the element's name; zeros after
        std::size_t element_length = 0;
        std::uint32_t element_id = 0;  // of the element's name in the tree, when recording
        std::size_t count = 0;
        // Elements that the shape described in full, and those it had to learn from: a kind
        // whose attributes keep changing is read by name alone.
        std::size_t repeats = 0;
        std::size_t changes = 0;
        Entry entries[kLinearAttributes];
    };
    static constexpr std::size_t kShapeSlots = 64;
    static constexpr std::size_t kShapeDepths = 16;

    const unsigned char* begin_;
    const unsigned char* p_;
    const unsigned char* end_;  // *end_ is a readable 0
    WellFormedResult& r_;
    std::vector<Name> open_;
    Name attributes_[kLinearAttributes];
    std::size_t attribute_count_ = 0;
    std::uint64_t attribute_bits_ = 0;
    std::unordered_set<std::string_view> many_attributes_;
    std::unique_ptr<Shape> shapes_[kShapeSlots];
    Shape* sibling_shapes_[kShapeDepths] = {};  // by depth, the last elements' shape

    CompactTree* tree_ = nullptr;  // the tree being filled; null for a check alone
    std::string* bytes_ = nullptr;
    std::uint32_t open_element_ = CompactTree::kNone;
    bool value_decodes_ = false;  // the last value held a reference, a tab, a line end or a CR

    std::uint32_t name_id(const unsigned char* at, std::size_t length)
    {
        return tree_ != nullptr ? tree_->intern(reinterpret_cast<const char*>(at), length) : 0;
    }
    void record_element(std::uint32_t name)
    {
        tree_->elements_.push_back(CompactTree::Element{
            name, static_cast<std::uint32_t>(tree_->attributes_.size()), CompactTree::kNone, open_element_});
    }
    void record_end()
    {
        CompactTree::Element& e = tree_->elements_[open_element_];
        e.end = static_cast<std::uint32_t>(tree_->elements_.size());
        open_element_ = e.parent;
    }
    // The value runs from value up to its closing quote, which becomes its NUL.
    void record_attribute(std::uint32_t name, const unsigned char* value, const unsigned char* quote, bool decodes)
    {
        std::vector<CompactTree::Attribute>& attributes = tree_->attributes_;
        // Field by field: a brace-initialised pair goes through the stack, and reading it back
        // as one word stalls on the two halves just stored.
        attributes.emplace_back();
        attributes.back().name = name;
        attributes.back().value = static_cast<std::uint32_t>(value - begin_);
        (*bytes_)[static_cast<std::size_t>(quote - begin_)] = '\0';
        if (decodes)
            tree_->to_decode_.push_back(static_cast<std::uint32_t>(attributes.size() - 1));
    }
    void stop_recording()
    {
        if (tree_ != nullptr)
            tree_->restore(*bytes_);
        tree_ = nullptr;
    }

    bool fail(int code, const std::string& what, const unsigned char* at);
    static std::string printable(const unsigned char* at, std::size_t length);

    bool at(const char* literal) const
    {
        const unsigned char* q = p_;
        for (; *literal != '\0'; ++literal, ++q)
            if (*q != static_cast<unsigned char>(*literal))
                return false;
        return true;
    }

    bool skip_space()
    {
        const unsigned char* start = p_;
        while (scan::class_of(*p_) & scan::kSpace) {
            if (*p_ == '\r')
                r_.carriage_returns = true;
            ++p_;
        }
        return p_ != start;
    }

    // A name of ASCII characters is passed here; anything else goes the long way.
    bool name(const char* what)
    {
        if (scan::class_of(*p_) & scan::kNameStart) {
            const unsigned char* end = scan::skip_ascii_name(p_ + 1, end_);
            if (*end < 0x80) {
                p_ = end;
                return true;
            }
        }
        return wide_name(what);
    }

    // Whether the length bytes at a, which has 32 bytes readable when length is at most 32, are
    // those at b, with 32 bytes readable.
    bool same_bytes(const unsigned char* a, const unsigned char* b, std::size_t length) const
    {
        if (length > 32 || end_ - a < 32)
            return std::memcmp(a, b, length) == 0;
        const std::uint32_t mask = length == 32 ? 0xFFFFFFFFu : (std::uint32_t(1) << length) - 1;
        return scan::starts_with(a, b, static_cast<std::uint32_t>(length), mask);
    }

    bool wide_char(char32_t* out = nullptr);
    bool any_char(const char* inside);
    bool wide_name(const char* what);
    bool reference();
    bool text();
    bool attribute_value();
    bool value_rest(unsigned char quote);
    static std::uint32_t name_hash(const unsigned char* at, std::size_t length);
    bool new_attribute(const Name& name);
    bool attribute();
    Shape* shape_of(const unsigned char* element, std::size_t length);
    bool follow_shape(const Shape& shape, std::size_t& matched);
    void learn_shape(Shape& shape, std::size_t matched);
    bool start_tag();
    bool end_tag();
    bool content();

    bool comment();
    bool processing_instruction();
    bool chars_until(const char* terminator, const char* inside);
    bool cdata();
    bool quoted_literal(const char* what);
    bool doctype();
    bool declaration();
    bool misc(bool before_root);
};

} // namespace oxml

#endif

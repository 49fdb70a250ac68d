#ifndef VELLUMENT_OSTREL_XML_COMPACT_H
#define VELLUMENT_OSTREL_XML_COMPACT_H

// A read-only tree of a checked document, for readers that only look up attributes and elements
// by name: elements in document order in one array, attributes in another, names as small
// integers into one table and values as texts in the document's own bytes. A fraction of the
// parser's tree in memory, and finding the descendants of a name is a scan of a range of small
// integers.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Ostrel/XML_WellFormed.h"

class COXMLDocument;
class COXMLNode;

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
        kFailed    // the text is not well-formed (check tells why); the bytes are spent
    };
    // Checks UTF-8 text as check_well_formed does, with the same result in check, and builds the
    // tree in the same pass. Not held: a DOCTYPE, text other than white space, CDATA, namespaces,
    // or a size past what offsets hold. Values are decoded in place.
    Outcome build(std::string& bytes, WellFormedResult& check);

    std::uint32_t size() const { return static_cast<std::uint32_t>(elements_.size()) - 1; }
    const Element& element(std::uint32_t i) const { return elements_[i]; }
    const char* name_of(std::uint32_t i) const { return name_texts_[elements_[i].name]; }

    // The index of a name, of elements and attributes alike, or kNone when none has it.
    std::uint32_t name_index(const char* utf8) const;

    std::uint32_t attributes_begin(std::uint32_t i) const { return elements_[i].first_attribute; }
    std::uint32_t attributes_end(std::uint32_t i) const { return elements_[i + 1].first_attribute; }
    const char* attribute_name(std::uint32_t a) const { return name_texts_[attributes_[a].name]; }
    const char* attribute_value(std::uint32_t a) const { return text_.data() + attributes_[a].value; }
    std::uint32_t attribute_name_index(std::uint32_t a) const { return attributes_[a].name; }

    // The attribute of that name index on element i, looked for from the attribute `from` on and
    // then from the element's first; kNone when it has none. An element holds a name once, so
    // where the search starts doesn't change what it finds.
    std::uint32_t find_attribute(std::uint32_t i, std::uint32_t name, std::uint32_t from) const
    {
        const std::uint32_t begin = attributes_begin(i);
        const std::uint32_t end = attributes_end(i);
        if (from < begin || from > end)
            from = begin;
        for (std::uint32_t a = from; a < end; ++a)
            if (attributes_[a].name == name)
                return a;
        for (std::uint32_t a = begin; a < from; ++a)
            if (attributes_[a].name == name)
                return a;
        return kNone;
    }

private:
    friend class CompactBuilder;
    friend class Checker;  // fills the tree while it checks the text

    struct Attribute {
        std::uint32_t name;   // index of the name, as for elements
        std::uint32_t value;  // offset of its NUL-terminated text in text_
    };

    std::uint32_t intern(const char* name, std::size_t length);
    void clear();
    // Gives a checked text's bytes back as they were before the check wrote into them.
    void restore(std::string& bytes);
    // Makes the recorded tree final over its text: values decoded, the text taken over.
    Outcome finish_recording(std::string& bytes);

    std::string text_;
    std::vector<Element> elements_;  // with one more at the end, that closes the last one's attributes
    std::vector<Attribute> attributes_;
    std::deque<std::string> names_;                                     // element and attribute names
    std::vector<const char*> name_texts_;                               // names_ as texts, by index
    std::unordered_map<std::string_view, std::uint32_t> name_indexes_;  // views of names_
    std::vector<std::uint32_t> to_decode_;  // attributes whose values hold references or white space
};

// A compact tree built element by element from UTF-8 texts, for a tree made elsewhere that is
// only to be read: the same calls as TreeBuilder's, with the same meaning. Text content and
// namespace declarations can't be held; held() then turns false and the tree is to be built the
// parser's way.
class CompactBuilder {
public:
    CompactBuilder();
    ~CompactBuilder();
    CompactBuilder(const CompactBuilder&) = delete;
    CompactBuilder& operator=(const CompactBuilder&) = delete;

    // Room for that many elements, attributes and bytes of values, when the caller knows.
    void reserve(std::size_t elements, std::size_t attributes, std::size_t value_bytes);
    // A new element, the root first, then below the open one. The name must be an XML name; a
    // second root is left out with all it holds.
    void open(const char* name);
    // An attribute name as a handle, for callers that give the same names many times: a name is
    // then looked up once rather than once an attribute.
    std::uint32_t name(const char* name);
    // Sets an attribute of the open element; a name set again keeps its place, with the new value.
    void attribute(const char* name, const char* value) { attribute(this->name(name), value); }
    void attribute(std::uint32_t name, const char* value);
    // Adds an attribute that the open element doesn't have yet; the value is value_size bytes.
    void append_attribute(const char* name, const char* value, std::size_t value_size)
    {
        append_attribute(this->name(name), value, value_size);
    }
    void append_attribute(std::uint32_t name, const char* value, std::size_t value_size);
    void close();

    bool held() const { return held_; }
    // Whether every name and value given was ASCII.
    bool ascii() const { return ascii_; }
    // The tree, or null when no element was opened or the tree can't hold what it was given;
    // the builder is spent.
    std::unique_ptr<CompactTree> finish();

private:
    // Whether an attribute may go to the open element now: the tree keeps an element's
    // attributes together, before its first child.
    bool may_add();
    std::uint32_t add_text(const char* text, std::size_t size);

    std::unique_ptr<CompactTree> tree_;
    std::uint32_t open_ = CompactTree::kNone;
    bool held_ = true;
    bool ascii_ = true;
    std::uint32_t skipped_ = 0;  // depth inside a second root, which is left out
    // The attribute names' indexes, by hash (open addressing): a name is interned once.
    std::vector<std::uint32_t> name_slots_;
    std::size_t name_count_ = 0;
};

// The attributes that a reader reads from one kind of element, by name: a table of constant names
// in an array that lives as long as the process, at most kMaxAttributeNames and each once. A
// document knows the names of a table it has answered by the array's address.
struct AttributeNames {
    const char* const* names;
    std::size_t count;
};
constexpr std::size_t kMaxAttributeNames = 16;

template <std::size_t N>
constexpr AttributeNames attribute_names(const char* const (&names)[N])
{
    static_assert(N <= kMaxAttributeNames, "more names than a node's texts keep at once");
    return AttributeNames{names, N};
}

// What node->getAttribute gives for each name of the table, all at once into values (count
// entries): readers that read many attributes of an element look its attributes over once. The
// texts may be read until the next reading call on the document.
void get_attributes(const COXMLNode* node, const AttributeNames& table, const char** values);

// A read-only document over a finished compact tree, as load_for_reading gives for a file, or
// null for a null tree; ascii tells that every name and value in it is ASCII.
COXMLDocument* compact_document(std::unique_ptr<CompactTree> tree, bool ascii);

} // namespace oxml

#endif

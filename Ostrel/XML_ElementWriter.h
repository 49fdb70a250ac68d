#ifndef VELLUMENT_OSTREL_XML_ELEMENTWRITER_H
#define VELLUMENT_OSTREL_XML_ELEMENTWRITER_H

// The records' way of writing their elements. A trail of some size has close to a million
// attributes, and setAttribute has to treat every name as a caller's: check that it is an XML
// name and look for an attribute of that name already there. The names the records write are
// their own constants, so none of that is needed: the writer appends each attribute at once,
// with its value looked at in one pass. A value with a control character or a byte beyond ASCII
// goes through setAttribute, so it is stored exactly as setAttribute stores it.

#include <cstddef>
#include <string>

class COXMLDocument;
class COXMLNode;
struct COXMLDocumentData;

namespace oxml {

// Whether every byte lies in 0x20 to 0x7F: such a value is stored as it stands.
bool is_printable_ascii(const char* p, std::size_t n);
// The flag as it is written: by its stored byte, so a bool holding anything but 1 is false.
bool stored_flag(bool value);

class ElementWriter {
public:
    // A new element made by createElement(name); element() is null when that fails.
    ElementWriter(COXMLDocument* document, const char* name);
    // Goes on writing an element that createElement of the same document made and that isn't
    // attached yet, as a derived record does after its base. Any other element is written
    // through setAttribute.
    ElementWriter(COXMLDocument* document, COXMLNode* element);
    ElementWriter(const ElementWriter&) = delete;
    ElementWriter& operator=(const ElementWriter&) = delete;

    COXMLNode* element() const { return element_; }

    // Each name must be a constant XML name in ASCII that the element doesn't have yet; each
    // call adds the attribute at the end, as setAttribute would.
    void text(const char* name, const char* value);
    void text(const char* name, const std::string& value) { text(name, value.c_str()); }
    // The decimal form, as AuditUtil::to_string gives it.
    void number(const char* name, int value);
    // "true" or "false", as AuditUtil::to_string gives it.
    void flag(const char* name, bool value);

private:
    void adopt(COXMLDocument* document);
    void append(const char* name, const char* value, std::size_t size);

    COXMLNode* element_;
    COXMLDocumentData* data_ = nullptr;  // null: every attribute goes through setAttribute
    void* node_ = nullptr;               // the parser's element
};

} // namespace oxml

#endif

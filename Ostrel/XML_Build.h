#ifndef VELLUMENT_OSTREL_XML_BUILD_H
#define VELLUMENT_OSTREL_XML_BUILD_H

#include <cstddef>
#include <memory>
#include <string>

class COXMLDocument;

namespace oxml {

// Builds a document element by element from UTF-8 text, as the parser would have read it from
// a file: for a tree made elsewhere that needs no trip through XML text.
class TreeBuilder {
public:
    TreeBuilder();
    ~TreeBuilder();
    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;

    // A new element, the root first, then below the open one. The name must be an XML name.
    void open(const std::string& name) { open(name.c_str()); }
    void open(const char* name);
    // Sets an attribute of the open element; a name set again keeps its place, with the new value.
    void attribute(const std::string& name, const std::string& value);
    // Adds an attribute that the open element doesn't have yet: the caller knows the name is new
    // to it, so no search for one of the same name is made.
    void append_attribute(const char* name, const char* value, std::size_t value_size);
    // Appends text to the open element; text of white space alone is dropped, as on loading.
    void text(const std::string& utf8);
    void close();
    // The document, or null when no element was opened; the builder is spent.
    COXMLDocument* finish();

private:
    std::unique_ptr<COXMLDocument> document_;
    void* current_;  // the open element
};

} // namespace oxml

#endif

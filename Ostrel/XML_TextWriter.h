#ifndef VELLUMENT_OSTREL_XML_TEXTWRITER_H
#define VELLUMENT_OSTREL_XML_TEXTWRITER_H

// Saving a trail without building its tree first. Building a tree of close to a million
// attributes and printing it costs more than the rest of a save together; the records can as well
// print themselves in document order, in the very form the tree would print in: tab indents, one
// element per line, an element without children closed by " />". Where a value isn't plain
// printable ASCII, the element is built as a tree after all and that tree is printed, so whatever
// the tree stores for such a value is what the file holds. Not exported.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class COXMLDocument;
class COXMLNode;

namespace Ostrel {
namespace FileSystemDetail {
class FileStream;
}
} // namespace Ostrel

namespace oxml {

class TextWriter {
public:
    explicit TextWriter(Ostrel::FileSystemDetail::FileStream& out);
    ~TextWriter();
    TextWriter(const TextWriter&) = delete;
    TextWriter& operator=(const TextWriter&) = delete;

    // Starts an element one level below the open one (the root when none is open). The name must
    // be a constant XML name in ASCII.
    void open(const char* name);
    // The attributes of the open element, in file order, as ElementWriter takes them.
    void text(const char* name, const char* value);
    void text(const char* name, const std::string& value) { text(name, value.data(), value.size()); }
    void number(const char* name, int value);
    void flag(const char* name, bool value);
    // Whether every attribute of the open element so far could be written here. When not, the
    // caller takes the element back with cancel() and hands its tree to element().
    bool plain() const { return plain_; }
    void cancel();
    void close();

    // Prints an element of a document, with all below it, as the next child of the open element.
    // A null element is passed over.
    void element(const COXMLNode* element);
    // A document for the trees of elements that are not written here; it lives as long as the
    // writer.
    COXMLDocument* scratch();

    // Elements built ahead of the writing, taken in order.
    void set_ready(std::vector<COXMLNode*> elements) { ready_ = std::move(elements); }
    COXMLNode* next_ready();

    // The records print themselves through their own writers.
    template <class Record>
    void record(const Record& r)
    {
        r.write_text(*this);
    }

    // When the open element isn't plain, takes it back and prints the record's tree instead.
    template <class Record>
    bool built_instead(const Record& r)
    {
        if (plain_)
            return false;
        cancel();
        element(r.create_xml_node(scratch()));
        return true;
    }

    // Hands the rest to the stream.
    void finish();

private:
    struct TreePrinter;
    struct Frame {
        const char* name;
        bool has_children;
    };
    void text(const char* name, const char* value, std::size_t size);
    void start_child();
    void attribute(const char* name, const char* value, std::size_t size, bool escape);
    // Room for `size` more bytes at end_.
    char* room(std::size_t size);
    void put(const char* text, std::size_t size);
    void flush_if_large();

    Ostrel::FileSystemDetail::FileStream& out_;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_ = 0;
    std::size_t end_ = 0;
    std::size_t mark_ = 0;  // where the open element begins in the buffer
    bool plain_ = true;
    std::vector<Frame> open_;
    std::unique_ptr<COXMLDocument> scratch_;
    std::vector<COXMLNode*> ready_;
    std::size_t next_ready_ = 0;
};

// Writes the declaration and what `body` writes to `path`, replacing the file as
// COXMLDocument::save does, with the same result and the same error kept on `document`.
int save_text(COXMLDocument* document, const char* path, const std::function<void(TextWriter&)>& body);

} // namespace oxml

#endif

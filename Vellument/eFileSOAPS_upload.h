#ifndef VELLUMENT_VELLUMENT_EFILESOAPS_UPLOAD_H
#define VELLUMENT_VELLUMENT_EFILESOAPS_UPLOAD_H

// The upload text of a vellument straight from the file's bytes, written into its place in the
// request. The text is what the toolkit tree gives for the file (re-emitted, without a
// declaration, entity-encoded); this makes it without the tree for the plain shape that the
// library's own save writes, and declines everything else.

#include <cstddef>

#include <vellument/export.h>

namespace SoapUpload {

// A request body in one block of memory that grows without being zero-filled first. It always
// ends in a zero byte behind its size.
class VELLUMENT_API Request {
public:
    Request() = default;
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    const char* data() const { return data_ != nullptr ? data_ : ""; }
    std::size_t size() const { return size_; }

    void reserve(std::size_t capacity);
    void append(const char* text, std::size_t n);
    // Room for n more bytes behind the text: the place to write them. commit(end) then takes the
    // bytes up to end into the text.
    char* room(std::size_t n)
    {
        if (capacity_ - size_ < n + 1)
            grow(n + 1);
        return data_ + size_;
    }
    void commit(char* end)
    {
        size_ = static_cast<std::size_t>(end - data_);
        data_[size_] = '\0';
    }
    // Drops everything behind the first n bytes.
    void truncate(std::size_t n);

private:
    void grow(std::size_t n);

    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

// Appends to out the upload text of the XML bytes [data, data + size), exactly as loading them
// into a CkXml, GetXml without declaration and CkString::EntityEncode would give it. False, with
// out left at its size on entry, when the bytes are not of the plain shape: a declaration that
// names no encoding but UTF-8, elements with attributes and white space between the tags, ASCII
// only. Throws std::bad_alloc when memory runs out.
VELLUMENT_API bool append_plain_text(const char* data, std::size_t size, Request& out);

// Appends the upload text of the file at path, read once, when it is of the plain shape. False,
// with out as it was, when it is not or can't be read; it is then for the tree to load (and to
// tell why it can't). Throws std::bad_alloc when memory runs out.
VELLUMENT_API bool append_plain_file(const char* path, Request& out);

} // namespace SoapUpload

#endif

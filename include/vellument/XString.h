#ifndef VELLUMENT_XSTRING_H
#define VELLUMENT_XSTRING_H

// A string that keeps the same text in several encodings: ANSI (Windows-1252) bytes, UTF-8
// bytes and UTF-16. Each form has a flag that says whether it is current. A form that is asked
// for and isn't current is made from one that is, and kept; appending in one form makes the
// others stale. A new, empty string has the ANSI and UTF-8 forms current.
//
// The getters are const because the forms live behind the private record; they may fill in a
// stale form. Pointers they return stay valid until the next change of the string.

#include <cstddef>
#include <string>

#include <vellument/export.h>

class VELLUMENT_API XString {
public:
    XString();
    XString(const XString& other);
    XString& operator=(const XString& other);
    ~XString();

    // Empties the string; the ANSI and UTF-8 forms are current again.
    void clear() const;
    bool isEmpty() const;

    // Append text in one form; a null pointer appends nothing.
    void appendAnsi(const char* text) const;
    void appendAnsi(const char* text, std::size_t length) const;
    void appendUtf8(const char* text) const;
    void appendUtf8(const char* text, std::size_t length) const;

    // Replaces the whole text by ANSI bytes; the other forms are dropped.
    void setAnsi(std::string text) const;

    // The text in each form; never null. Sizes are in bytes (UTF-16: in code units).
    const char* getAnsi() const;
    std::size_t getSizeAnsi() const;
    const char* getUtf8() const;
    std::size_t getSizeUtf8() const;
    const std::u16string& getUtf16() const;

    // The number of characters (Unicode code points) of the text.
    std::size_t getNumChars() const;

private:
    struct Impl;
    Impl* m_impl;
};

#endif

#ifndef VELLUMENT_CKSTRING_H
#define VELLUMENT_CKSTRING_H

// A text for the upload: appended in the ANSI code page (Windows-1252), kept as UTF-8 inside,
// entity-encoded in place and taken back in ANSI. Each operation has its older lower-case name
// beside it.

#include <vellument/export.h>

class VELLUMENT_API CkString {
public:
    CkString();
    ~CkString();
    CkString(const CkString&) = delete;
    CkString& operator=(const CkString&) = delete;

    // Appends ANSI text; a UTF-8 byte order mark at its start is dropped. Null appends nothing.
    void append(const char* text);
    void Append(const char* text);

    // Replaces, byte by byte of the ANSI form, the characters that have an HTML entity: the five
    // XML specials and the Windows-1252 characters with a named entity. Bytes without one (the
    // controls, 129, 131, 141-144, 157, 158 and the no-break space 160) stay as they are, and an
    // ampersand is always replaced, also where it already begins an entity.
    void entityEncode();
    void EntityEncode();

    // The text in ANSI, never null; valid until the string next changes.
    const char* getString();
    const char* GetString();
    // The length of the ANSI form in bytes.
    int getSizeAnsi();
    void clear();

private:
    struct Impl;
    Impl* m_impl;
};

#endif

#ifndef VELLUMENT_CKSTRINGBUILDER_H
#define VELLUMENT_CKSTRINGBUILDER_H

// A text that grows by appending; the library uses it to turn a digest into hexadecimal text.
// Text crosses this interface in the ANSI code page (Windows-1252) and is UTF-8 inside.

#include <vellument/export.h>

class CkByteData;

class VELLUMENT_API CkStringBuilder {
public:
    CkStringBuilder();
    ~CkStringBuilder();
    CkStringBuilder(const CkStringBuilder&) = delete;
    CkStringBuilder& operator=(const CkStringBuilder&) = delete;

    // Appends the bytes as text in an encoding named without regard to case: "hex" (capitals,
    // no separator), "hexlower" or "base64". False, with nothing appended, for any other name.
    bool AppendEncoded(CkByteData& data, const char* encoding);
    // Appends ANSI text; false for a null pointer.
    bool Append(const char* text);
    // The text, in ANSI. The pointer is one of ten buffers that the object uses in turn, so it
    // stays valid for the next nine calls; copy it at once.
    const char* GetAsString();
    void Clear();
    // The number of characters.
    int get_Length();

private:
    struct Impl;
    Impl* m_impl;
};

#endif

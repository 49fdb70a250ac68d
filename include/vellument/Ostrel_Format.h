#ifndef VELLUMENT_OSTREL_FORMAT_H
#define VELLUMENT_OSTREL_FORMAT_H

// Text conversions between the ANSI code page (Windows-1252), UTF-8 and wide (UTF-16) text.

#include <cstddef>
#include <string>

#include <vellument/export.h>

namespace Ostrel {
namespace Format {

// The Unicode character of a Windows-1252 byte. The five bytes without a character
// (0x81, 0x8D, 0x8F, 0x90, 0x9D) stand for the C1 controls of the same number.
VELLUMENT_API char32_t Cp1252ToUnicode(unsigned char byte);
// The Windows-1252 byte of a Unicode character, or -1 when the code page has none.
VELLUMENT_API int UnicodeToCp1252(char32_t ch);

// Decodes the well-formed UTF-8 sequence that starts at text[index]; returns its length, or 0
// when the bytes there are no valid sequence (overlong, surrogate, beyond U+10FFFF, cut short).
VELLUMENT_API std::size_t DecodeUtf8(const char* text, std::size_t length, std::size_t index, char32_t& ch);
// Appends one Unicode character as UTF-8.
VELLUMENT_API void AppendUtf8(std::string& out, char32_t ch);

// ANSI to UTF-8: total, every byte has a character.
VELLUMENT_API std::string AnsiToUtf8(const char* text, std::size_t length);
VELLUMENT_API std::string AnsiToUtf8(const std::string& text);

// UTF-8 to ANSI. A character outside the code page becomes '?'. A byte that doesn't start a
// valid UTF-8 sequence is taken as an ANSI byte and kept as it is, so text that was never
// UTF-8 survives the trip.
VELLUMENT_API std::string Utf8ToAnsi(const char* text, std::size_t length);
VELLUMENT_API std::string Utf8ToAnsi(const std::string& text);

// UTF-8 to UTF-16, as the system call does it: every byte of an invalid sequence becomes U+FFFD.
VELLUMENT_API std::u16string Utf8ToWide(const std::string& text);
// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD.
VELLUMENT_API std::string WideToUtf8(const std::u16string& text);
// UTF-16 to ANSI; a character outside the code page becomes '?'.
VELLUMENT_API std::string WideToAnsi(const std::u16string& text);
// ANSI to UTF-16.
VELLUMENT_API std::u16string AnsiToWide(const std::string& text);

// True when every byte is below 0x80.
VELLUMENT_API bool IsAscii(const char* text, std::size_t length);
// True when the bytes are well-formed UTF-8 (no overlongs, no surrogates, nothing over U+10FFFF).
VELLUMENT_API bool IsValidUtf8(const char* text, std::size_t length);

// Upper-cases ASCII letters only, as the library does for file names.
VELLUMENT_API std::string ToUpperAscii(std::string text);
VELLUMENT_API std::string ToLowerAscii(std::string text);
VELLUMENT_API bool EqualsNoCaseAscii(const std::string& a, const std::string& b);

// The text of a C string; null gives "".
VELLUMENT_API std::string TextOf(const char* text);
// Replaces every occurrence of what, scanning left to right; a replacement is not searched again.
// An empty what changes nothing.
VELLUMENT_API std::string ReplaceAll(const std::string& text, const std::string& what, const std::string& with);

} // namespace Format
} // namespace Ostrel

#endif

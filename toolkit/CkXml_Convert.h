#ifndef VELLUMENT_TOOLKIT_CKXML_CONVERT_H
#define VELLUMENT_TOOLKIT_CKXML_CONVERT_H

#include <cstddef>
#include <string>

#include <vellument/export.h>

// The bytes of an XML file or reply as UTF-8: by a byte order mark (UTF-8, UTF-16 either way),
// else by where zero bytes stand in the first bytes (UTF-16 or UTF-32 without a mark), else by
// the encoding that the declaration names. Bytes that say nothing are taken as UTF-8 as they are.
VELLUMENT_API std::string convertXmlToUtf8(const char* data, std::size_t size);

// The encoding that an "<?xml ...>" declaration in the bytes names, lower case, or "".
VELLUMENT_API std::string xmlDeclaredEncoding(const char* data, std::size_t size);

// Bytes in the named 8-bit or wide encoding to UTF-8. False for UTF-8 itself, for a name the
// system doesn't know and for bytes that don't fit it; a wide name over bytes without a zero
// byte is no wide text either.
VELLUMENT_API bool convertNamedToUtf8(const std::string& name, const char* data, std::size_t size, std::string& out);

#endif

#ifndef VELLUMENT_TOOLKIT_CKXML_CONVERT_H
#define VELLUMENT_TOOLKIT_CKXML_CONVERT_H

#include <cstddef>
#include <string>

#include <vellument/export.h>

// The bytes of an XML file or reply as UTF-8: by a byte order mark (UTF-8, UTF-16 either way),
// else by where zero bytes stand in the first bytes (UTF-16 or UTF-32 without a mark), else by
// the encoding that the declaration names. Bytes that say nothing are taken as UTF-8 as they are.
VELLUMENT_API std::string convertXmlToUtf8(const char* data, std::size_t size);

#endif

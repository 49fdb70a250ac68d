#ifndef VELLUMENT_FILING_SERVICE_TEXT_H
#define VELLUMENT_FILING_SERVICE_TEXT_H

// Text helpers of the filing service: the entity decoding that undoes the client's upload encoding,
// XML escaping, UTF-8 repair, MD5 and time stamps.

#include <string>

namespace fs_text {

// Decodes the predefined XML entities, numeric character references and the HTML 4 entity names
// that the client's upload encoding produces ("&eacute;", "&euro;", ...) into UTF-8, in one pass,
// so that "&amp;eacute;" comes out as the literal "&eacute;". False for an '&' that starts no
// known reference: the text was not well-formed.
bool decode_entities(const std::string& text, std::string& out);

// Escapes &, <, > and " for element text or an attribute value in double quotes. Nothing else:
// the client's reply reader resolves these names and no numeric reference, and keeps the rest of
// an element's text, CR included, as it stands.
std::string xml_escape(const std::string& text);

// The text with every byte that does not start a valid UTF-8 sequence read as a Windows-1252
// character: valid UTF-8 passes unchanged, a Windows-1252 file comes out as UTF-8.
std::string repair_utf8(const std::string& bytes);

// Lower-case hexadecimal MD5 of the bytes.
std::string md5_hex(const std::string& bytes);

// The current time in UTC, "YYYY-MM-DDTHH:MM:SS.mmmZ".
std::string utc_now();

// The EIN as the client sends it: every "-" and blank removed.
std::string normalise_ein(const std::string& ein);

} // namespace fs_text

#endif

#include <vellument/CkString.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>

#include <vellument/Ostrel_Format.h>
#include <vellument/XString.h>

namespace {

// The entity of each byte, read as a Windows-1252 character whatever the machine's code page;
// null where the byte stays as it is.
const char* const kEntities[256] = {
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 0-7
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 8-15
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 16-23
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 24-31
    nullptr, nullptr, "&quot;", nullptr, nullptr, nullptr, "&amp;", "&apos;",  // 32-39
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 40-47
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 48-55
    nullptr, nullptr, nullptr, nullptr, "&lt;", nullptr, "&gt;", nullptr,  // 56-63
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 64-71
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 72-79
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 80-87
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 88-95
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 96-103
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 104-111
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 112-119
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,  // 120-127
    "&euro;", nullptr, "&sbquo;", nullptr, "&bdquo;", "&hellip;", "&dagger;", "&Dagger;",  // 128-135
    "&circ;", "&permil;", "&Scaron;", "&lsaquo;", "&OElig;", nullptr, nullptr, nullptr,  // 136-143
    nullptr, "&lsquo;", "&rsquo;", "&ldquo;", "&rdquo;", "&bull;", "&ndash;", "&mdash;",  // 144-151
    "&tilde;", "&trade;", "&scaron;", "&rsaquo;", "&oelig;", nullptr, nullptr, "&Yuml;",  // 152-159
    nullptr, "&iexcl;", "&cent;", "&pound;", "&curren;", "&yen;", "&brvbar;", "&sect;",  // 160-167
    "&uml;", "&copy;", "&ordf;", "&laquo;", "&not;", "&shy;", "&reg;", "&macr;",  // 168-175
    "&deg;", "&plusmn;", "&sup2;", "&sup3;", "&acute;", "&micro;", "&para;", "&middot;",  // 176-183
    "&cedil;", "&sup1;", "&ordm;", "&raquo;", "&frac14;", "&frac12;", "&frac34;", "&iquest;",  // 184-191
    "&Agrave;", "&Aacute;", "&Acirc;", "&Atilde;", "&Auml;", "&Aring;", "&AElig;", "&Ccedil;",  // 192-199
    "&Egrave;", "&Eacute;", "&Ecirc;", "&Euml;", "&Igrave;", "&Iacute;", "&Icirc;", "&Iuml;",  // 200-207
    "&ETH;", "&Ntilde;", "&Ograve;", "&Oacute;", "&Ocirc;", "&Otilde;", "&Ouml;", "&times;",  // 208-215
    "&Oslash;", "&Ugrave;", "&Uacute;", "&Ucirc;", "&Uuml;", "&Yacute;", "&THORN;", "&szlig;",  // 216-223
    "&agrave;", "&aacute;", "&acirc;", "&atilde;", "&auml;", "&aring;", "&aelig;", "&ccedil;",  // 224-231
    "&egrave;", "&eacute;", "&ecirc;", "&euml;", "&igrave;", "&iacute;", "&icirc;", "&iuml;",  // 232-239
    "&eth;", "&ntilde;", "&ograve;", "&oacute;", "&ocirc;", "&otilde;", "&ouml;", "&divide;",  // 240-247
    "&oslash;", "&ugrave;", "&uacute;", "&ucirc;", "&uuml;", "&yacute;", "&thorn;", "&yuml;",  // 248-255
};

} // namespace

struct CkString::Impl {
    XString text;
};

CkString::CkString() : m_impl(new Impl) {}

CkString::~CkString()
{
    delete m_impl;
}

void CkString::append(const char* text)
{
    if (text == nullptr)
        return;
    std::size_t length = std::strlen(text);
    if (length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) {
        text += 3;
        length -= 3;
    }
    if (length == 0)
        return;
    // The code page maps every byte and back, so a first text can be kept as it comes; the
    // UTF-8 form is made when something asks for it.
    if (m_impl->text.isEmpty()) {
        m_impl->text.setAnsi(std::string(text, length));
        return;
    }
    std::string utf8 = Ostrel::Format::AnsiToUtf8(text, length);
    m_impl->text.appendUtf8(utf8.data(), utf8.size());
}

void CkString::Append(const char* text)
{
    append(text);
}

void CkString::entityEncode()
{
    // Lengths of the entities, so that the result is sized once and filled in place.
    static const struct Lengths {
        unsigned char of[256];
        unsigned char extra[256];  // what the entity adds to the byte it replaces
        Lengths()
        {
            for (int b = 0; b < 256; ++b) {
                of[b] = kEntities[b] != nullptr ? static_cast<unsigned char>(std::strlen(kEntities[b])) : 0;
                extra[b] = of[b] != 0 ? static_cast<unsigned char>(of[b] - 1) : 0;
            }
        }
    } lengths;

    const unsigned char* in = reinterpret_cast<const unsigned char*>(m_impl->text.getAnsi());
    const std::size_t length = m_impl->text.getSizeAnsi();
    std::size_t size = length;
    for (std::size_t i = 0; i < length; ++i)
        size += lengths.extra[in[i]];
    std::string out(size, '\0');
    char* w = &out[0];
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned char n = lengths.of[in[i]];
        if (n == 0) {
            *w++ = static_cast<char>(in[i]);
        } else {
            std::memcpy(w, kEntities[in[i]], n);
            w += n;
        }
    }
    m_impl->text.setAnsi(std::move(out));
}

void CkString::EntityEncode()
{
    entityEncode();
}

const char* CkString::getString()
{
    return m_impl->text.getAnsi();
}

const char* CkString::GetString()
{
    return getString();
}

int CkString::getSizeAnsi()
{
    std::size_t n = m_impl->text.getSizeAnsi();
    return n > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(n);
}

void CkString::clear()
{
    m_impl->text.clear();
}

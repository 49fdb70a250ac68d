#include <vellument/CkString.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>

#include <vellument/Ostrel_Format.h>
#include <vellument/XString.h>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

// The entity of each byte, read as a Windows-1252 character whatever the machine's code page;
// null where the byte stays as it is.
constexpr const char* kEntities[256] = {
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

// What each byte becomes, padded to 8 bytes so that it goes out in one store: its entity, or the
// byte itself (length 1).
struct Replacements {
    char text[256][8];
    unsigned char length[256];

    constexpr Replacements() : text(), length()
    {
        for (int b = 0; b < 256; ++b) {
            if (kEntities[b] == nullptr) {
                text[b][0] = static_cast<char>(b);
                length[b] = 1;
                continue;
            }
            unsigned char n = 0;
            for (; kEntities[b][n] != '\0'; ++n)
                text[b][n] = kEntities[b][n];  // an entity past 8 bytes would not compile
            length[b] = n;
        }
    }
};
constexpr Replacements kReplacements{};
// The 8-byte store of the last replacement may reach this far past the text.
const std::size_t kStoreSlack = 8;

std::size_t encodedSizeOfBytes(const unsigned char* in, std::size_t n)
{
    std::size_t size = 0;
    for (std::size_t i = 0; i < n; ++i)
        size += kReplacements.length[in[i]];
    return size;
}

char* encodeBytes(const unsigned char* in, const unsigned char* end, char* out)
{
    for (; in != end; ++in) {
        std::memcpy(out, kReplacements.text[*in], 8);
        out += kReplacements.length[*in];
    }
    return out;
}

#ifdef __SSE2__
inline __m128i load16(const unsigned char* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

inline void store16(char* p, __m128i x)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), x);
}

// One bit for each of the 16 bytes that is replaced, or that is 128 or above (a few of those
// stay, which the table knows).
inline unsigned changing16(__m128i x)
{
    __m128i m = _mm_cmpeq_epi8(x, _mm_set1_epi8('"'));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('&')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('\'')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('<')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('>')));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(m, x)));
}

// The encoded size, 16 bytes at a time: what the five ASCII entities add is counted in byte
// lanes, and a block with a byte of 128 or above goes through the table.
std::size_t encodedSize(const unsigned char* in, std::size_t n)
{
    std::size_t size = n;
    std::size_t i = 0;
    const __m128i zero = _mm_setzero_si128();
    while (n - i >= 16) {
        // At most 5 per lane per block: 50 blocks stay below 256.
        __m128i lanes = zero;
        for (int block = 0; block < 50 && n - i >= 16; ++block, i += 16) {
            const __m128i x = load16(in + i);
            if (_mm_movemask_epi8(x) != 0) {
                size += encodedSizeOfBytes(in + i, 16) - 16;
                continue;
            }
            const __m128i adds5 =
                _mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('"')), _mm_cmpeq_epi8(x, _mm_set1_epi8('\'')));
            const __m128i adds4 = _mm_cmpeq_epi8(x, _mm_set1_epi8('&'));
            const __m128i adds3 =
                _mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('<')), _mm_cmpeq_epi8(x, _mm_set1_epi8('>')));
            const __m128i added = _mm_or_si128(_mm_and_si128(adds5, _mm_set1_epi8(5)),
                                               _mm_or_si128(_mm_and_si128(adds4, _mm_set1_epi8(4)),
                                                            _mm_and_si128(adds3, _mm_set1_epi8(3))));
            lanes = _mm_add_epi8(lanes, added);
        }
        const __m128i sums = _mm_sad_epu8(lanes, zero);
        size += static_cast<std::size_t>(_mm_cvtsi128_si32(sums)) +
                static_cast<std::size_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(sums, sums)));
    }
    return size + encodedSizeOfBytes(in + i, n - i) - (n - i);
}

// Runs without a replacement are copied 16 bytes at a time. In a block with replacements each
// run between them is stored whole from the input and the cursor moves on by its length; the
// input is loaded at most 16 bytes past the block, so the loop leaves 32 bytes for the tail.
// Every input byte gives at least one output byte, so no 16-byte store can pass the end of the
// output while that many input bytes remain.
char* encode(const unsigned char* in, std::size_t n, char* out)
{
    const unsigned char* const end = in + n;
    while (end - in >= 32) {
        const __m128i x = load16(in);
        unsigned mask = changing16(x);
        store16(out, x);
        if (mask == 0) {
            in += 16;
            out += 16;
            continue;
        }
        unsigned from = 0;
        do {
            const unsigned at = static_cast<unsigned>(__builtin_ctz(mask));
            mask &= mask - 1;
            store16(out, load16(in + from));
            out += at - from;
            std::memcpy(out, kReplacements.text[in[at]], 8);
            out += kReplacements.length[in[at]];
            from = at + 1;
        } while (mask != 0);
        store16(out, load16(in + from));
        out += 16 - from;
        in += 16;
    }
    return encodeBytes(in, end, out);
}
#else
std::size_t encodedSize(const unsigned char* in, std::size_t n)
{
    return encodedSizeOfBytes(in, n);
}

char* encode(const unsigned char* in, std::size_t n, char* out)
{
    return encodeBytes(in, in + n, out);
}
#endif

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
    // Sized once by a first pass, then filled in place.
    const unsigned char* in = reinterpret_cast<const unsigned char*>(m_impl->text.getAnsi());
    const std::size_t length = m_impl->text.getSizeAnsi();
    const std::size_t size = encodedSize(in, length);
    std::string out(size + kStoreSlack, '\0');
    out.resize(static_cast<std::size_t>(encode(in, length, &out[0]) - out.data()));
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

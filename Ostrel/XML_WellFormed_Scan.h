#ifndef VELLUMENT_OSTREL_XML_WELLFORMED_SCAN_H
#define VELLUMENT_OSTREL_XML_WELLFORMED_SCAN_H

// Byte classes and the loops that pass runs of plain bytes, for the well-formedness check: the
// only code that runs over every byte of a document.

#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace oxml {
namespace scan {

enum : unsigned char {
    kName = 1,       // an ASCII name character
    kNameStart = 2,  // an ASCII character that may start a name
    kSpace = 4,      // XML white space
    kTextStop = 8,   // ends a run of plain text: markup, references, CR, controls, non-ASCII, NUL
    kValueStop = 16, // ends a run of an attribute value: also quotes and white space but the blank
};

struct ByteClasses {
    unsigned char of[256];
    constexpr ByteClasses() : of()
    {
        for (int c = 0; c < 256; ++c) {
            unsigned char k = 0;
            const bool start = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':';
            if (start)
                k |= kNameStart | kName;
            if ((c >= '0' && c <= '9') || c == '-' || c == '.')
                k |= kName;
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r')
                k |= kSpace;
            if ((c < 0x20 && c != '\t' && c != '\n') || c >= 0x80 || c == '<' || c == '&' || c == ']')
                k |= kTextStop;
            if (c < 0x20 || c >= 0x80 || c == '<' || c == '&' || c == '"' || c == '\'')
                k |= kValueStop;
            of[c] = k;
        }
    }
};

inline constexpr ByteClasses kClasses{};

inline unsigned char class_of(unsigned char c)
{
    return kClasses.of[c];
}

// Most of a document is names and attribute values: those runs are passed 16 bytes at a time
// where the text has that many left. *end is a readable 0, which stops every run.
#ifdef __SSE2__
inline __m128i bytes_in_range(__m128i x, char low, char high)
{
    const __m128i shifted = _mm_sub_epi8(x, _mm_set1_epi8(low));
    return _mm_cmpeq_epi8(_mm_min_epu8(shifted, _mm_set1_epi8(static_cast<char>(high - low))), shifted);
}

inline unsigned first_set(unsigned mask)
{
    return static_cast<unsigned>(__builtin_ctz(mask));
}

// Past the ASCII name characters at p.
inline const unsigned char* skip_ascii_name(const unsigned char* p, const unsigned char* end)
{
    while (end - p >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i letter = bytes_in_range(_mm_or_si128(x, _mm_set1_epi8(0x20)), 'a', 'z');
        const __m128i digit_dot_dash =
            _mm_andnot_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('/')), bytes_in_range(x, '-', '9'));
        const __m128i other =
            _mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('_')), _mm_cmpeq_epi8(x, _mm_set1_epi8(':')));
        const unsigned name =
            static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(letter, digit_dot_dash), other)));
        if (name != 0xFFFF)
            return p + first_set(~name);
        p += 16;
    }
    while (class_of(*p) & kName)
        ++p;
    return p;
}

// Where in the 16 bytes at p an attribute value's run of plain bytes stops: at a quote, '<',
// '&', a control or a byte of a wide character; one bit each.
inline unsigned value_stops_16(const unsigned char* p)
{
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    // Signed: bytes from 0x80 count as below 0x20 too.
    __m128i stop = _mm_cmplt_epi8(x, _mm_set1_epi8(0x20));
    stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('"')));
    stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('\'')));
    stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('<')));
    stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('&')));
    return static_cast<unsigned>(_mm_movemask_epi8(stop));
}

// Past the plain bytes of an attribute value at p.
inline const unsigned char* skip_plain_value(const unsigned char* p, const unsigned char* end)
{
    while (end - p >= 16) {
        const unsigned mask = value_stops_16(p);
        if (mask != 0)
            return p + first_set(mask);
        p += 16;
    }
    while (!(class_of(*p) & kValueStop))
        ++p;
    return p;
}

// Where in the 16 bytes at p a value in double quotes may stop: at a '"', '<', '&', a control or
// a byte of a wide character; one bit each.
inline std::uint64_t double_quoted_stops_16(const unsigned char* p)
{
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i stop =
        _mm_or_si128(_mm_or_si128(_mm_cmplt_epi8(x, _mm_set1_epi8(0x20)), _mm_cmpeq_epi8(x, _mm_set1_epi8('"'))),
                     _mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('<')), _mm_cmpeq_epi8(x, _mm_set1_epi8('&'))));
    return static_cast<unsigned>(_mm_movemask_epi8(stop));
}

// The same for the 64 bytes at p.
inline std::uint64_t double_quoted_stops_64(const unsigned char* p)
{
    return double_quoted_stops_16(p) | double_quoted_stops_16(p + 16) << 16 | double_quoted_stops_16(p + 32) << 32 |
           double_quoted_stops_16(p + 48) << 48;
}

// Whether the size bytes at p are those of pattern, both with 32 bytes readable; mask has a bit
// for each of the size bytes.
inline bool starts_with(const unsigned char* p, const unsigned char* pattern, std::uint32_t size,
                        std::uint32_t mask)
{
    const __m128i a0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i b0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pattern));
    std::uint32_t equal = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a0, b0)));
    if (size > 16) {
        const __m128i a1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
        const __m128i b1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pattern + 16));
        equal |= static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a1, b1))) << 16;
    }
    return (equal & mask) == mask;
}

// Values in double quotes are searched 64 bytes at a time.
const bool kWideValueSearch = true;
#else
inline const unsigned char* skip_ascii_name(const unsigned char* p, const unsigned char*)
{
    while (class_of(*p) & kName)
        ++p;
    return p;
}

inline const unsigned char* skip_plain_value(const unsigned char* p, const unsigned char*)
{
    while (!(class_of(*p) & kValueStop))
        ++p;
    return p;
}

inline bool starts_with(const unsigned char* p, const unsigned char* pattern, std::uint32_t size, std::uint32_t)
{
    return std::memcmp(p, pattern, size) == 0;
}

inline std::uint64_t double_quoted_stops_64(const unsigned char*)
{
    return 0;
}

const bool kWideValueSearch = false;
#endif

} // namespace scan
} // namespace oxml

#endif

#include <vellument/Ostrel_Format.h>

#include <cstdint>
#include <cstring>

namespace Ostrel {
namespace Format {

namespace {

// Characters of bytes 0x80 to 0x9F; the holes keep their own number.
const char16_t kHigh1252[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

// One well-formed UTF-8 sequence at text[i]: its length, or 0 when there is none.
std::size_t decode_utf8(const unsigned char* text, std::size_t length, std::size_t i, char32_t& ch)
{
    unsigned char b0 = text[i];
    if (b0 < 0x80) {
        ch = b0;
        return 1;
    }
    std::size_t need;
    char32_t min;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        need = 2;
        ch = b0 & 0x1F;
        min = 0x80;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        need = 3;
        ch = b0 & 0x0F;
        min = 0x800;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        need = 4;
        ch = b0 & 0x07;
        min = 0x10000;
    } else {
        return 0;
    }
    if (length - i < need)
        return 0;
    for (std::size_t k = 1; k < need; ++k) {
        unsigned char b = text[i + k];
        if ((b & 0xC0) != 0x80)
            return 0;
        ch = (ch << 6) | (b & 0x3F);
    }
    if (ch < min || ch > 0x10FFFF || (ch >= 0xD800 && ch <= 0xDFFF))
        return 0;
    return need;
}

void append_utf16(std::u16string& out, char32_t ch)
{
    if (ch < 0x10000) {
        out.push_back(static_cast<char16_t>(ch));
    } else {
        ch -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (ch >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (ch & 0x3FF)));
    }
}

// Walks UTF-16 text character by character; unpaired surrogates give U+FFFD.
template <typename Fn>
void for_each_utf16(const std::u16string& text, Fn fn)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        fn(c);
    }
}

} // namespace

void AppendUtf8(std::string& out, char32_t ch)
{
    if (ch < 0x80) {
        out.push_back(static_cast<char>(ch));
    } else if (ch < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (ch >> 6)));
        out.push_back(static_cast<char>(0x80 | (ch & 0x3F)));
    } else if (ch < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (ch >> 12)));
        out.push_back(static_cast<char>(0x80 | ((ch >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (ch & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (ch >> 18)));
        out.push_back(static_cast<char>(0x80 | ((ch >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((ch >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (ch & 0x3F)));
    }
}

std::size_t DecodeUtf8(const char* text, std::size_t length, std::size_t index, char32_t& ch)
{
    if (text == nullptr || index >= length)
        return 0;
    return decode_utf8(reinterpret_cast<const unsigned char*>(text), length, index, ch);
}

char32_t Cp1252ToUnicode(unsigned char byte)
{
    if (byte >= 0x80 && byte < 0xA0)
        return kHigh1252[byte - 0x80];
    return byte;
}

int UnicodeToCp1252(char32_t ch)
{
    if (ch < 0x80 || (ch >= 0xA0 && ch <= 0xFF))
        return static_cast<int>(ch);
    for (int i = 0; i < 32; ++i) {
        if (kHigh1252[i] == ch)
            return 0x80 + i;
    }
    return -1;
}

std::string AnsiToUtf8(const char* text, std::size_t length)
{
    std::string out;
    if (text == nullptr)
        return out;
    out.reserve(length + length / 8);
    for (std::size_t i = 0; i < length; ++i) {
        unsigned char b = static_cast<unsigned char>(text[i]);
        if (b < 0x80)
            out.push_back(static_cast<char>(b));
        else
            AppendUtf8(out, Cp1252ToUnicode(b));
    }
    return out;
}

std::string AnsiToUtf8(const std::string& text)
{
    return AnsiToUtf8(text.data(), text.size());
}

std::string Utf8ToAnsi(const char* text, std::size_t length)
{
    std::string out;
    if (text == nullptr)
        return out;
    out.reserve(length);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    std::size_t i = 0;
    while (i < length) {
        if (p[i] < 0x80) {
            out.push_back(static_cast<char>(p[i]));
            ++i;
            continue;
        }
        char32_t ch = 0;
        std::size_t n = decode_utf8(p, length, i, ch);
        if (n == 0) {
            out.push_back(static_cast<char>(p[i]));
            ++i;
            continue;
        }
        int b = UnicodeToCp1252(ch);
        out.push_back(b < 0 ? '?' : static_cast<char>(b));
        i += n;
    }
    return out;
}

std::string Utf8ToAnsi(const std::string& text)
{
    return Utf8ToAnsi(text.data(), text.size());
}

std::u16string Utf8ToWide(const std::string& text)
{
    std::u16string out;
    out.reserve(text.size());
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t i = 0;
    while (i < text.size()) {
        char32_t ch = 0;
        std::size_t n = decode_utf8(p, text.size(), i, ch);
        if (n == 0) {
            out.push_back(0xFFFD);
            ++i;
        } else {
            append_utf16(out, ch);
            i += n;
        }
    }
    return out;
}

std::string WideToUtf8(const std::u16string& text)
{
    std::string out;
    out.reserve(text.size());
    for_each_utf16(text, [&](char32_t c) { AppendUtf8(out, c); });
    return out;
}

std::string WideToAnsi(const std::u16string& text)
{
    std::string out;
    out.reserve(text.size());
    for_each_utf16(text, [&](char32_t c) {
        int b = UnicodeToCp1252(c);
        out.push_back(b < 0 ? '?' : static_cast<char>(b));
    });
    return out;
}

std::u16string AnsiToWide(const std::string& text)
{
    std::u16string out;
    out.reserve(text.size());
    for (unsigned char b : text)
        out.push_back(static_cast<char16_t>(Cp1252ToUnicode(b)));
    return out;
}

bool IsAscii(const char* text, std::size_t length)
{
    // Whole replies pass through here: eight bytes at a time, four words per test.
    const std::uint64_t high = 0x8080808080808080ULL;
    std::size_t i = 0;
    for (; i + 32 <= length; i += 32) {
        std::uint64_t words[4];
        std::memcpy(words, text + i, sizeof words);
        if (((words[0] | words[1] | words[2] | words[3]) & high) != 0)
            return false;
    }
    for (; i < length; ++i) {
        if (static_cast<unsigned char>(text[i]) >= 0x80)
            return false;
    }
    return true;
}

bool IsValidUtf8(const char* text, std::size_t length)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    std::size_t i = 0;
    while (i < length) {
        char32_t ch = 0;
        std::size_t n = decode_utf8(p, length, i, ch);
        if (n == 0)
            return false;
        i += n;
    }
    return true;
}

std::string ToUpperAscii(std::string text)
{
    for (char& c : text) {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

std::string ToLowerAscii(std::string text)
{
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

bool EqualsNoCaseAscii(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && ToLowerAscii(a) == ToLowerAscii(b);
}

} // namespace Format
} // namespace Ostrel

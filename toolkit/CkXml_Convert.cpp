// Turns the bytes of an XML file or reply into UTF-8 before parsing.

#include "toolkit/CkXml_Convert.h"

#include <cerrno>
#include <cstring>
#include <iconv.h>

#include <vellument/Ostrel_Format.h>

namespace {

// How many leading bytes are searched for a zero byte that betrays a wide encoding.
const std::size_t kNulWindow = 200;
// Encoding names longer than this are no encoding anyone knows.
const std::size_t kMaxEncodingName = 64;

// UTF-16 to UTF-8. Strict: an unpaired surrogate fails the conversion; otherwise it becomes
// U+FFFD. A last odd byte is dropped.
bool fromUtf16(const unsigned char* p, std::size_t n, bool bigEndian, bool strict, std::string& out)
{
    out.clear();
    out.reserve(n / 2 + n / 8);
    auto unit = [&](std::size_t i) -> char32_t {
        return bigEndian ? static_cast<char32_t>((p[i] << 8) | p[i + 1]) : static_cast<char32_t>((p[i + 1] << 8) | p[i]);
    };
    for (std::size_t i = 0; i + 1 < n; i += 2) {
        char32_t u = unit(i);
        if (u >= 0xD800 && u <= 0xDBFF && i + 3 < n) {
            char32_t low = unit(i + 2);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                Ostrel::Format::AppendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                i += 2;
                continue;
            }
        }
        if (u >= 0xD800 && u <= 0xDFFF) {
            if (strict)
                return false;
            u = 0xFFFD;
        }
        Ostrel::Format::AppendUtf8(out, u);
    }
    return true;
}

// UTF-32 to UTF-8; a value that is no character fails. Trailing bytes short of a unit are dropped.
bool fromUtf32(const unsigned char* p, std::size_t n, bool bigEndian, std::string& out)
{
    out.clear();
    out.reserve(n / 4 + n / 16);
    for (std::size_t i = 0; i + 3 < n; i += 4) {
        char32_t c = bigEndian ? (char32_t(p[i]) << 24) | (char32_t(p[i + 1]) << 16) | (char32_t(p[i + 2]) << 8) | p[i + 3]
                               : (char32_t(p[i + 3]) << 24) | (char32_t(p[i + 2]) << 16) | (char32_t(p[i + 1]) << 8) | p[i];
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
            return false;
        Ostrel::Format::AppendUtf8(out, c);
    }
    return true;
}

bool fromLatin1(const unsigned char* p, std::size_t n, std::string& out)
{
    out.clear();
    out.reserve(n + n / 8);
    for (std::size_t i = 0; i < n; ++i)
        Ostrel::Format::AppendUtf8(out, p[i]);
    return true;
}

// Any other charset the C library knows. False when it doesn't know it or the bytes don't fit.
bool fromIconv(const std::string& name, const char* data, std::size_t n, bool& known, std::string& out)
{
    iconv_t cd = iconv_open("UTF-8", name.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        known = false;
        return false;
    }
    known = true;
    out.assign(n * 2 + 16, '\0');
    char* in = const_cast<char*>(data);
    std::size_t inLeft = n;
    std::size_t written = 0;
    bool ok = true;
    // Converts what there is, then flushes any shift state; the output grows as needed.
    bool flushing = false;
    for (;;) {
        char* outPtr = &out[written];
        std::size_t outLeft = out.size() - written;
        std::size_t r = flushing ? iconv(cd, nullptr, nullptr, &outPtr, &outLeft)
                                 : iconv(cd, &in, &inLeft, &outPtr, &outLeft);
        const int error = errno;
        written = out.size() - outLeft;
        if (r == static_cast<std::size_t>(-1) && error == E2BIG) {
            out.resize(out.size() * 2);
            continue;
        }
        if (r == static_cast<std::size_t>(-1) && !flushing && error != EINVAL) {
            ok = false;
            break;
        }
        // EINVAL: the input ends inside a character, which is dropped like a cut-off file.
        if (flushing)
            break;
        flushing = true;
    }
    iconv_close(cd);
    out.resize(written);
    return ok;
}

std::string lower(std::string s)
{
    for (char& c : s)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return s;
}

bool isOneOf(const std::string& name, std::initializer_list<const char*> names)
{
    for (const char* n : names)
        if (name == n)
            return true;
    return false;
}

// The encoding named in the "<?xml ...>" declaration, lower case and without blanks, or "".
std::string declaredEncoding(const char* data, std::size_t size)
{
    const char* end = data + size;
    const char* decl = nullptr;
    for (const char* p = data; static_cast<std::size_t>(end - p) >= 5; ++p) {
        p = static_cast<const char*>(std::memchr(p, '<', static_cast<std::size_t>(end - p)));
        if (p == nullptr || static_cast<std::size_t>(end - p) < 5)
            break;
        if (std::memcmp(p, "<?xml", 5) == 0) {
            decl = p;
            break;
        }
    }
    if (decl == nullptr)
        return std::string();
    const char* close = static_cast<const char*>(std::memchr(decl, '>', static_cast<std::size_t>(end - decl)));
    if (close == nullptr)
        return std::string();
    std::string text;
    for (const char* p = decl; p < close; ++p)
        if (*p != ' ' && *p != '\t' && *p != '\r' && *p != '\n')
            text.push_back(*p);
    text = lower(text);
    std::size_t pos = text.find("encoding=");
    while (pos != std::string::npos) {
        std::size_t q = pos + 9;
        if (q < text.size() && (text[q] == '"' || text[q] == '\'')) {
            std::size_t stop = text.find(text[q], q + 1);
            if (stop == std::string::npos)
                return std::string();
            return text.substr(q + 1, stop - q - 1);
        }
        pos = text.find("encoding=", pos + 1);
    }
    return std::string();
}

// Converts from the named encoding. Unknown names and bytes that don't fit give false.
bool fromNamed(const std::string& name, const char* data, std::size_t size, bool hasNul, std::string& out)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(data);
    if (name.empty() || name.size() > kMaxEncodingName || isOneOf(name, {"utf-8", "utf8"}))
        return false;
    for (char c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.' || c == ':'))
            return false;

    // A declaration that says UTF-16 over bytes without a single zero is wrong: the text was
    // saved in an 8-bit encoding and is read as it stands. The same holds for its relatives.
    const bool le16 = isOneOf(name, {"utf-16", "utf16", "utf-16le", "utf16le", "unicode", "ucs-2", "ucs-2le"});
    const bool be16 = isOneOf(name, {"utf-16be", "utf16be", "unicodefffe", "ucs-2be"});
    const bool le32 = isOneOf(name, {"utf-32", "utf32", "utf-32le", "utf32le", "ucs-4", "ucs-4le"});
    const bool be32 = isOneOf(name, {"utf-32be", "utf32be", "ucs-4be"});
    if (le16 || be16 || le32 || be32) {
        if (!hasNul)
            return false;
        if (le16 || be16)
            return fromUtf16(p, size, be16, false, out);
        return fromUtf32(p, size, be32, out);
    }
    if (isOneOf(name, {"windows-1252", "cp1252", "x-ansi", "us-ascii", "ascii"})) {
        out = Ostrel::Format::AnsiToUtf8(data, size);
        return true;
    }
    if (isOneOf(name, {"iso-8859-1", "iso8859-1", "iso_8859-1", "latin1", "latin-1", "l1", "cp819"}))
        return fromLatin1(p, size, out);
    bool known = false;
    return fromIconv(name, data, size, known, out);
}

} // namespace

std::string convertXmlToUtf8(const char* data, std::size_t size)
{
    if (data == nullptr || size == 0)
        return std::string();
    const unsigned char* b = reinterpret_cast<const unsigned char*>(data);
    std::string out;
    if (size >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF)
        return std::string(data + 3, size - 3);
    if (size >= 2 && b[0] == 0xFE && b[1] == 0xFF) {
        fromUtf16(b + 2, size - 2, true, false, out);
        return out;
    }
    if (size >= 2 && b[0] == 0xFF && b[1] == 0xFE) {
        fromUtf16(b + 2, size - 2, false, false, out);
        return out;
    }

    const std::size_t window = size < kNulWindow ? size : kNulWindow;
    if (size >= 5 && std::memchr(data, 0, window) != nullptr) {
        // Where the zeros stand says which wide encoding to try; the first that fits wins.
        if (b[1] == 0 && b[3] == 0 && fromUtf16(b, size, false, true, out))
            return out;
        if (b[0] == 0 && b[2] == 0 && fromUtf16(b, size, true, true, out))
            return out;
        if (b[0] == 0 && b[1] == 0 && fromUtf32(b, size, false, out))
            return out;
        if (b[2] == 0 && b[3] == 0 && fromUtf32(b, size, true, out))
            return out;
    }

    const std::string name = declaredEncoding(data, size);
    if (!name.empty()) {
        const bool hasNul = std::memchr(data, 0, size) != nullptr;
        if (fromNamed(name, data, size, hasNul, out))
            return out;
    }
    return std::string(data, size);
}

std::string xmlDeclaredEncoding(const char* data, std::size_t size)
{
    return data == nullptr ? std::string() : declaredEncoding(data, size);
}

bool convertNamedToUtf8(const std::string& name, const char* data, std::size_t size, std::string& out)
{
    return fromNamed(lower(name), data, size, std::memchr(data, 0, size) != nullptr, out);
}

// The upload text straight from a file's bytes. The tree path parses the file into a CkXml,
// writes it back with GetXml (4 blanks a level, CR LF, empty elements as "/>", attribute values
// resolved and escaped anew between double quotes) and entity-encodes that text. For the plain
// shape of the library's own files the same text comes out of one pass over the bytes, written
// already encoded; every construct whose re-emission is not that simple makes the pass decline.

#include "Vellument/eFileSOAPS_upload.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>


#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "Ostrel/FileSystem_Bulk.h"
#include "toolkit/CkXml_Convert.h"

namespace SoapUpload {

Request::~Request()
{
    std::free(data_);
}

void Request::grow(std::size_t n)
{
    // Large blocks grow in place or by remapping their pages, so doubling copies little.
    const std::size_t wanted = std::max(size_ + n, capacity_ + capacity_ / 2);
    reserve(wanted);
}

void Request::reserve(std::size_t capacity)
{
    if (capacity <= capacity_)
        return;
    char* grown = static_cast<char*>(std::realloc(data_, capacity));
    if (grown == nullptr)
        throw std::bad_alloc();
    data_ = grown;
    capacity_ = capacity;
    Ostrel::FileSystemDetail::AdviseHugePages(data_, capacity_);
}

void Request::append(const char* text, std::size_t n)
{
    char* p = room(n);
    std::memcpy(p, text, n);
    commit(p + n);
}

void Request::truncate(std::size_t n)
{
    if (n < size_)
        commit(data_ + n);
}

namespace {

// A larger file is refused by the tree's loader as well.
const std::size_t kMaxFileSize = std::size_t(1) << 30;
// Indentation stops growing at this depth in the tree's text.
const std::size_t kMaxIndentDepth = 50;

inline bool isWhite(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// What a byte of a start tag may be. A tag or attribute name of these bytes is written as it
// stands, and none of them is touched by the entity encoding.
enum : unsigned char {
    kName = 1,         // ASCII letters, digits, ".", "-", "_", ":", "!"
    kDeclaration = 2,  // what a name or value in the declaration may hold here
};

struct ByteClasses {
    unsigned char bits[256] = {};
    constexpr ByteClasses()
    {
        for (int c = 0; c < 128; ++c) {
            const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
            if (alnum || c == '.' || c == '-' || c == '_' || c == ':' || c == '!')
                bits[c] |= kName;
            if (alnum || c == '.' || c == '-' || c == '_' || c == ':')
                bits[c] |= kDeclaration;
        }
    }
};
constexpr ByteClasses kClasses;

inline bool is(char c, unsigned char kind)
{
    return (kClasses.bits[static_cast<unsigned char>(c)] & kind) != 0;
}

// What each byte of an attribute value, as held after resolving, becomes in the upload text: the
// tree writes its escape, and the encoding then turns the escape's "&" into "&amp;". Padded to 16
// bytes so that it goes out in one store; length 0 for a byte that takes the value off the plain
// path (control characters, bytes of 128 and above).
struct ValueBytes {
    char text[256][16];
    unsigned char length[256];

    constexpr ValueBytes() : text(), length()
    {
        for (int c = 0x20; c < 0x7F; ++c) {
            text[c][0] = static_cast<char>(c);
            length[c] = 1;
        }
        set('"', "&amp;quot;");
        set('&', "&amp;amp;");
        set('>', "&amp;gt;");
        set('<', "&amp;lt;");
        set('\'', "&amp;apos;");
        set('\t', "&amp;#x9;");
        set('\n', "&amp;#xA;");
        set('\r', "&amp;#xD;");
    }
    constexpr void set(unsigned char c, const char* out)
    {
        unsigned char n = 0;
        for (; out[n] != '\0'; ++n)
            text[c][n] = out[n];
        length[c] = n;
    }
};
constexpr ValueBytes kValueBytes;
const std::size_t kLongestValueByte = 10;

#ifdef __SSE2__
// One bit for each of the 16 bytes that does not stay as it is in a value: a quote, "&", "<",
// ">", a control character, DEL or a byte of 128 and above.
inline unsigned special16(__m128i x)
{
    __m128i m = _mm_cmpeq_epi8(x, _mm_set1_epi8('"'));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('\'')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('&')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('<')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('>')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8(0x7F)));
    // Signed: bytes of 128 and above count as below a blank.
    m = _mm_or_si128(m, _mm_cmplt_epi8(x, _mm_set1_epi8(0x20)));
    return static_cast<unsigned>(_mm_movemask_epi8(m));
}

// One bit for each of the 16 bytes that may stand in a name (kName).
inline unsigned nameBytes16(__m128i x)
{
    // Signed compares: bytes of 128 and above are below everything here.
    const __m128i lower = _mm_or_si128(x, _mm_set1_epi8(0x20));
    __m128i m = _mm_and_si128(_mm_cmpgt_epi8(lower, _mm_set1_epi8('a' - 1)), _mm_cmplt_epi8(lower, _mm_set1_epi8('z' + 1)));
    m = _mm_or_si128(m, _mm_and_si128(_mm_cmpgt_epi8(x, _mm_set1_epi8('0' - 1)), _mm_cmplt_epi8(x, _mm_set1_epi8(':' + 1))));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('!')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('-')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('.')));
    m = _mm_or_si128(m, _mm_cmpeq_epi8(x, _mm_set1_epi8('_')));
    return static_cast<unsigned>(_mm_movemask_epi8(m));
}
#endif

// The references that a value is held without; every other "&" stays a "&". None of the names is
// the start of another, so the first that matches is the only one.
struct Reference {
    const char* name;  // behind the "&"
    std::size_t length;
    char c;
};
const Reference kReferences[] = {{"#x9;", 4, '\t'}, {"#xA;", 4, '\n'}, {"#xD;", 4, '\r'}, {"lt;", 3, '<'},
                                 {"gt;", 3, '>'},    {"quot;", 5, '"'}, {"apos;", 5, '\''}, {"amp;", 4, '&'}};

class PlainText {
public:
    PlainText(const char* data, std::size_t size, Request& out) : p_(data), end_(data + size), out_(out) {}

    bool run()
    {
        skipWhite();
        if (startsWith("<?xml ") && !declaration())
            return false;
        skipWhite();
        // The root, then everything inside it: tags with nothing but white space between them.
        while (p_ < end_ && *p_ == '<') {
            ++p_;
            if (p_ >= end_)
                return false;
            const bool tagged = *p_ == '/' ? endTag() : startTag();
            if (!tagged)
                return false;
            if (open_.empty()) {
                // The root is closed: the loader reads no further, and only white space may follow.
                skipWhite();
                return p_ == end_;
            }
            skipWhite();
        }
        return false;
    }

private:
    // Positions are kept in locals while bytes are written: a store through a char pointer could
    // change any member, so members would be reloaded after each.
    void skipWhite()
    {
        const char* q = p_;
        while (q < end_ && isWhite(*q))
            ++q;
        p_ = q;
    }

    bool startsWith(const char* literal) const
    {
        const std::size_t n = std::strlen(literal);
        return static_cast<std::size_t>(end_ - p_) >= n && std::memcmp(p_, literal, n) == 0;
    }

    void put(char*& w, const char* text, std::size_t n)
    {
        std::memcpy(w, text, n);
        w += n;
    }

    // The declaration, read the way the loader reads it: name and quoted value pairs, "?" skipped,
    // up to ">". Its encoding must leave the bytes as they are.
    bool declaration()
    {
        p_ += 6;
        for (;;) {
            skipWhite();
            if (p_ >= end_)
                return false;
            if (*p_ == '>') {
                ++p_;
                break;
            }
            if (*p_ == '?') {
                ++p_;
                continue;
            }
            const char* name = p_;
            while (p_ < end_ && is(*p_, kDeclaration))
                ++p_;
            if (p_ == name || p_ >= end_ || (!isWhite(*p_) && *p_ != '='))
                return false;
            const char* value = nullptr;
            const char* close = nullptr;
            if (!quotedValue(value, close))
                return false;
            for (const char* q = value; q < close; ++q)
                if (!is(*q, kDeclaration))
                    return false;
        }
        return true;
    }

    // Behind a name: white space, "=", white space and an opening quote of either kind. p_ ends
    // behind the quote.
    bool openQuote(char& quote)
    {
        skipWhite();
        if (p_ >= end_ || *p_ != '=')
            return false;
        ++p_;
        skipWhite();
        if (p_ >= end_ || (*p_ != '"' && *p_ != '\''))
            return false;
        quote = *p_++;
        return true;
    }

    // Behind a name: "=" and a value in quotes, up to the same quote. p_ ends behind the closing
    // quote.
    bool quotedValue(const char*& value, const char*& close)
    {
        char quote;
        if (!openQuote(quote))
            return false;
        value = p_;
        close = static_cast<const char*>(std::memchr(value, quote, static_cast<std::size_t>(end_ - value)));
        if (close == nullptr)
            return false;
        p_ = close + 1;
        return true;
    }

    // The bytes of a name from p_ on; p_ ends behind them.
    const char* nameRun()
    {
        const char* const name = p_;
        const char* const end = end_;
        const char* q = name;
#ifdef __SSE2__
        while (end - q >= 16) {
            const unsigned other = ~nameBytes16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(q))) & 0xFFFFu;
            if (other != 0) {
                p_ = q + __builtin_ctz(other);
                return name;
            }
            q += 16;
        }
#endif
        while (q < end && is(*q, kName))
            ++q;
        p_ = q;
        return name;
    }

    // The parent's start tag waits for its ">" until it is known to have children.
    void openParent(char*& w)
    {
        if (pending_) {
            put(w, "&gt;\r\n", 6);
            pending_ = false;
        }
    }

    void indent(char*& w, std::size_t depth)
    {
        const std::size_t n = std::min(depth, kMaxIndentDepth) * 4;
        std::memset(w, ' ', n);
        w += n;
    }

    bool startTag()
    {
        // "<!" opens a comment, a CDATA section or a declaration, never an element.
        if (*p_ == '!')
            return false;
        const char* name = nameRun();
        if (p_ == name || p_ >= end_ || (!isWhite(*p_) && *p_ != '/' && *p_ != '>'))
            return false;
        const std::string_view tag(name, static_cast<std::size_t>(p_ - name));
        char* w = out_.room(6 + kMaxIndentDepth * 4 + 4 + tag.size());
        openParent(w);
        indent(w, open_.size());
        put(w, "&lt;", 4);
        put(w, tag.data(), tag.size());
        out_.commit(w);
        for (;;) {
            skipWhite();
            if (p_ >= end_)
                return false;
            if (*p_ == '>') {
                ++p_;
                open_.push_back(tag);
                pending_ = true;
                return true;
            }
            if (*p_ == '/') {
                if (end_ - p_ < 2 || p_[1] != '>')
                    return false;
                p_ += 2;
                out_.append("/&gt;\r\n", 7);
                return true;
            }
            if (!attribute())
                return false;
        }
    }

    // One attribute: a name that the loader keeps as it is, and a quoted value, written as the
    // tree writes it, encoded.
    bool attribute()
    {
        const char* name = nameRun();
        if (p_ == name || p_ >= end_ || (!isWhite(*p_) && *p_ != '='))
            return false;
        // A name that begins so would get an "A" in front.
        if ((*name >= '0' && *name <= '9') || *name == '-' || *name == '.')
            return false;
        const std::size_t nameSize = static_cast<std::size_t>(p_ - name);
        char quote;
        if (!openQuote(quote))
            return false;
        Cursor w(out_, 1 + nameSize + 7 + kValueRoom);
        *w.p++ = ' ';
        put(w.p, name, nameSize);
        put(w.p, "=&quot;", 7);
        if (!value(quote, w))
            return false;
        w.need(6);
        put(w.p, "&quot;", 6);
        out_.commit(w.p);
        return true;
    }

    // Where the text is being written, with the room made for it so far.
    struct Cursor {
        Cursor(Request& out, std::size_t n) : out(out), p(out.room(n)), limit(p + n) {}
        void need(std::size_t n)
        {
            if (static_cast<std::size_t>(limit - p) < n) {
                out.commit(p);
                const std::size_t more = std::max(n, kValueRoom);
                p = out.room(more);
                limit = p + more;
            }
        }
        Request& out;
        char* p;
        char* limit;
    };
    static constexpr std::size_t kValueRoom = 64 * 1024;

    // The value up to its closing quote, resolved and written as the tree writes it, encoded.
    // Runs of bytes that stay as they are go 16 at a time.
    bool value(char quote, Cursor& w)
    {
        const char* q = p_;
        const char* const end = end_;
        char* o = w.p;
        char* limit = w.limit;
        auto need = [&](std::size_t n) {
            if (static_cast<std::size_t>(limit - o) < n) {
                w.p = o;
                w.need(n);
                o = w.p;
                limit = w.limit;
            }
        };
        for (;;) {
#ifdef __SSE2__
            while (end - q >= 16) {
                need(16);
                const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(o), x);
                const unsigned mask = special16(x);
                if (mask == 0) {
                    q += 16;
                    o += 16;
                    continue;
                }
                const unsigned plain = static_cast<unsigned>(__builtin_ctz(mask));
                q += plain;
                o += plain;
                break;
            }
#endif
            need(16 + kLongestValueByte);
            // The bytes that stay as they are have length 1; quotes don't.
            while (q < end && kValueBytes.length[static_cast<unsigned char>(*q)] == 1) {
                *o++ = *q++;
                need(16 + kLongestValueByte);
            }
            if (q >= end)
                return false;
            char c = *q++;
            if (c == quote)
                break;
            if (c == '&') {
                const std::size_t left = static_cast<std::size_t>(end - q);
                for (const Reference& r : kReferences) {
                    if (left >= r.length && std::memcmp(q, r.name, r.length) == 0) {
                        c = r.c;
                        q += r.length;
                        break;
                    }
                }
            }
            const unsigned char b = static_cast<unsigned char>(c);
            const unsigned n = kValueBytes.length[b];
            if (n == 0)
                return false;
            std::memcpy(o, kValueBytes.text[b], 16);
            o += n;
        }
        p_ = q;
        w.p = o;
        return true;
    }

    // An end tag closes the innermost element; here it must name it, with nothing else in it.
    bool endTag()
    {
        ++p_;
        const char* name = nameRun();
        const std::string_view tag(name, static_cast<std::size_t>(p_ - name));
        skipWhite();
        if (open_.empty() || tag != open_.back() || p_ >= end_ || *p_ != '>')
            return false;
        ++p_;
        open_.pop_back();
        if (pending_) {
            pending_ = false;
            out_.append("/&gt;\r\n", 7);
            return true;
        }
        char* w = out_.room(kMaxIndentDepth * 4 + 5 + tag.size() + 6);
        indent(w, open_.size());
        put(w, "&lt;/", 5);
        put(w, tag.data(), tag.size());
        put(w, "&gt;\r\n", 6);
        out_.commit(w);
        return true;
    }

    const char* p_;
    const char* const end_;
    Request& out_;
    std::vector<std::string_view> open_;  // the tags of the open elements, innermost last
    bool pending_ = false;                // the innermost open start tag still lacks its ">"
};

} // namespace

bool append_plain_text(const char* data, std::size_t size, Request& out)
{
    const std::size_t start = out.size();
    // The loader takes the bytes as UTF-8 as they stand only when no other encoding is declared.
    const std::string encoding = xmlDeclaredEncoding(data, size);
    bool plain = encoding.empty() || encoding == "utf-8" || encoding == "utf8";
    try {
        plain = plain && PlainText(data, size, out).run();
    } catch (...) {
        out.truncate(start);
        throw;
    }
    if (!plain)
        out.truncate(start);
    return plain;
}

bool append_plain_file(const char* path, Request& out)
{
    // False when the file can't be read whole here; the tree's loader then tries and tells why.
    std::unique_ptr<char[]> data;
    std::size_t size = 0;
    if (!Ostrel::FileSystemDetail::ReadRegularFileQuiet(path, kMaxFileSize, data, size))
        return false;
    // The text is about half as large again as the file: room for that, so that it rarely grows.
    out.reserve(out.size() + size + size / 2 + 4096);
    return append_plain_text(data.get(), size, out);
}

} // namespace SoapUpload

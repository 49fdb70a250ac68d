#include "Ostrel/XML_WellFormed.h"

#include <cstdint>
#include <cstring>
#include <string_view>
#include <unordered_set>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

namespace oxml {
namespace {

// Classes of a byte, for the loops that run over every byte of a document.
enum : unsigned char {
    kName = 1,       // an ASCII name character
    kNameStart = 2,  // an ASCII character that may start a name
    kSpace = 4,      // XML white space
    kTextStop = 8,   // ends a run of plain text: markup, references, CR, controls, non-ASCII, NUL
    kValueStop = 16, // ends a run of an attribute value: also quotes and white space but the blank
};

struct ByteClasses {
    unsigned char of[256];
    ByteClasses() : of()
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
            if (c < 0x20 || c >= 0x80 || c == '<' || c == '&' || c == ']')
                k |= kTextStop;
            if (c < 0x20 || c >= 0x80 || c == '<' || c == '&' || c == '"' || c == '\'')
                k |= kValueStop;
            of[c] = k;
        }
        // Tab and LF are plain text; CR is noted on the way.
        of[static_cast<unsigned char>('\t')] &= static_cast<unsigned char>(~kTextStop);
        of[static_cast<unsigned char>('\n')] &= static_cast<unsigned char>(~kTextStop);
    }
};

const ByteClasses kClasses;

inline unsigned char class_of(unsigned char c)
{
    return kClasses.of[c];
}

// Attributes up to this number are told apart by a scan of those before; more go into a set.
const std::size_t kLinearAttributes = 32;

// Most of a document is attribute names and values: those runs are passed 16 bytes at a time
// where the text has that many left.
#ifdef __SSE2__
inline __m128i bytes_in_range(__m128i x, char low, char high)
{
    const __m128i shifted = _mm_sub_epi8(x, _mm_set1_epi8(low));
    return _mm_cmpeq_epi8(_mm_min_epu8(shifted, _mm_set1_epi8(static_cast<char>(high - low))), shifted);
}

inline unsigned first_set(int mask)
{
    return static_cast<unsigned>(__builtin_ctz(static_cast<unsigned>(mask)));
}

// Past the ASCII name characters at p.
inline const unsigned char* skip_ascii_name(const unsigned char* p, const unsigned char* end)
{
    while (end - p >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i letter = bytes_in_range(_mm_or_si128(x, _mm_set1_epi8(0x20)), 'a', 'z');
        const __m128i digit_dot_dash = _mm_andnot_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('/')), bytes_in_range(x, '-', '9'));
        const __m128i other = _mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('_')), _mm_cmpeq_epi8(x, _mm_set1_epi8(':')));
        const int name = _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(letter, digit_dot_dash), other));
        if (name != 0xFFFF)
            return p + first_set(~name);
        p += 16;
    }
    while (class_of(*p) & kName)
        ++p;
    return p;
}

// Past the plain bytes of an attribute value at p: up to a quote, '<', '&', a control or non-ASCII.
inline const unsigned char* skip_plain_value(const unsigned char* p, const unsigned char* end)
{
    while (end - p >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        // Signed: bytes from 0x80 count as below 0x20 too.
        __m128i stop = _mm_cmplt_epi8(x, _mm_set1_epi8(0x20));
        stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('"')));
        stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('\'')));
        stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('<')));
        stop = _mm_or_si128(stop, _mm_cmpeq_epi8(x, _mm_set1_epi8('&')));
        const int mask = _mm_movemask_epi8(stop);
        if (mask != 0)
            return p + first_set(mask);
        p += 16;
    }
    while (!(class_of(*p) & kValueStop))
        ++p;
    return p;
}
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
#endif

class Checker {
public:
    Checker(const char* data, std::size_t size, WellFormedResult& result)
        : begin_(reinterpret_cast<const unsigned char*>(data)), p_(begin_), end_(begin_ + size), r_(result)
    {
    }

    bool document()
    {
        if (!declaration() || !misc(true))
            return false;
        if (p_ == end_)
            return fail(OXML_E_NO_ROOT, "no root element", p_);
        if (*p_ != '<' || p_[1] == '!' || p_[1] == '/')
            return fail(OXML_E_OUTSIDE_ROOT, "text or markup before the root element", p_);
        if (!start_tag())
            return false;
        if (!content() || !misc(false))
            return false;
        if (p_ != end_) {
            if (*p_ == '<')
                return fail(OXML_E_OUTSIDE_ROOT, "a second root element", p_);
            return fail(OXML_E_OUTSIDE_ROOT, "text after the root element", p_);
        }
        return true;
    }

private:
    struct Name {
        const unsigned char* at;
        std::size_t length;
        std::uint32_t hash;
    };

    const unsigned char* begin_;
    const unsigned char* p_;
    const unsigned char* end_;  // *end_ is a readable 0
    WellFormedResult& r_;
    std::vector<Name> open_;
    Name attributes_[kLinearAttributes];
    std::size_t attribute_count_ = 0;
    std::uint64_t attribute_bits_ = 0;
    std::unordered_set<std::string_view> many_attributes_;

    // Records the failure with its line and column (counted in characters from 1).
    bool fail(int code, const std::string& what, const unsigned char* at)
    {
        std::size_t line = 1;
        const unsigned char* line_start = begin_;
        for (const unsigned char* q = begin_; q < at; ++q)
            if (*q == '\n') {
                ++line;
                line_start = q + 1;
            }
        std::size_t column = 1;
        for (const unsigned char* q = line_start; q < at; ++q)
            if ((*q & 0xC0) != 0x80)
                ++column;
        r_.code = code;
        r_.message = what + " at line " + std::to_string(line) + ", column " + std::to_string(column);
        return false;
    }

    // A name for a message: ASCII as it stands, other bytes as '?', long names cut.
    static std::string printable(const unsigned char* at, std::size_t length)
    {
        std::string out;
        for (std::size_t i = 0; i < length && i < 40; ++i)
            out.push_back(at[i] >= 0x20 && at[i] < 0x7F ? static_cast<char>(at[i]) : '?');
        if (length > 40)
            out += "...";
        return out;
    }

    bool at(const char* literal) const
    {
        const unsigned char* q = p_;
        for (; *literal != '\0'; ++literal, ++q)
            if (*q != static_cast<unsigned char>(*literal))
                return false;
        return true;
    }

    bool skip_space()
    {
        const unsigned char* start = p_;
        while (class_of(*p_) & kSpace) {
            if (*p_ == '\r')
                r_.carriage_returns = true;
            ++p_;
        }
        return p_ != start;
    }

    // One character that isn't ASCII, checked and passed.
    bool wide_char(char32_t* out = nullptr)
    {
        char32_t c = 0;
        const std::size_t n = Ostrel::Format::DecodeUtf8(reinterpret_cast<const char*>(begin_),
                                                          static_cast<std::size_t>(end_ - begin_),
                                                          static_cast<std::size_t>(p_ - begin_), c);
        if (n == 0)
            return fail(OXML_E_INVALID_CHARACTER, "bytes that are not UTF-8", p_);
        if (!is_xml_char(c))
            return fail(OXML_E_INVALID_CHARACTER, "a character that XML does not allow", p_);
        r_.ascii = false;
        p_ += n;
        if (out != nullptr)
            *out = c;
        return true;
    }

    // Any one character, for the rarer parts of a document; false at the end of the text.
    bool any_char(const char* inside)
    {
        const unsigned char c = *p_;
        if (c >= 0x80)
            return wide_char();
        if (p_ == end_)
            return fail(OXML_E_UNEXPECTED_END, std::string("the text ends inside ") + inside, p_);
        if (c < 0x20 && c != '\t' && c != '\n' && c != '\r')
            return fail(OXML_E_INVALID_CHARACTER, "a control character that XML does not allow", p_);
        if (c == '\r')
            r_.carriage_returns = true;
        ++p_;
        return true;
    }

    // A name of ASCII characters is passed here; anything else goes the long way.
    bool name(const char* what)
    {
        if (class_of(*p_) & kNameStart) {
            const unsigned char* end = skip_ascii_name(p_ + 1, end_);
            if (*end < 0x80) {
                p_ = end;
                return true;
            }
        }
        return wide_name(what);
    }

    __attribute__((noinline)) bool wide_name(const char* what)
    {
        const unsigned char* start = p_;
        if (class_of(*p_) & kNameStart) {
            ++p_;
        } else if (*p_ >= 0x80) {
            char32_t c = 0;
            if (!wide_char(&c))
                return false;
            if (!is_name_start_char(c))
                return fail(OXML_E_INVALID_NAME, std::string("a character that can't start ") + what, start);
        } else {
            return fail(OXML_E_INVALID_NAME, std::string(what) + " expected", start);
        }
        for (;;) {
            p_ = skip_ascii_name(p_, end_);
            if (*p_ >= 0x80) {
                const unsigned char* here = p_;
                char32_t c = 0;
                if (!wide_char(&c))
                    return false;
                if (!is_name_char(c))
                    return fail(OXML_E_INVALID_NAME, std::string("a character that can't stand in ") + what, here);
            } else {
                return true;
            }
        }
    }

    bool reference()
    {
        const unsigned char* amp = p_++;
        r_.references = true;
        if (*p_ == '#') {
            ++p_;
            const bool hex = *p_ == 'x';
            if (hex)
                ++p_;
            std::uint32_t value = 0;
            int digits = 0;
            for (;; ++p_, ++digits) {
                const unsigned char c = *p_;
                int d = -1;
                if (c >= '0' && c <= '9')
                    d = c - '0';
                else if (hex && (c | 0x20) >= 'a' && (c | 0x20) <= 'f')
                    d = (c | 0x20) - 'a' + 10;
                if (d < 0)
                    break;
                value = value > 0x10FFFF ? value : value * (hex ? 16 : 10) + static_cast<std::uint32_t>(d);
            }
            if (digits == 0 || *p_ != ';')
                return fail(OXML_E_BAD_REFERENCE, "a malformed character reference", amp);
            ++p_;
            if (!is_xml_char(static_cast<char32_t>(value)))
                return fail(OXML_E_BAD_REFERENCE,
                            "a reference to a character that XML does not allow (" + printable(amp, p_ - amp) + ")",
                            amp);
            if (value >= 0x80)
                r_.ascii = false;
            return true;
        }
        const unsigned char* start = p_;
        if (!(class_of(*p_) & kNameStart) && *p_ < 0x80)
            return fail(OXML_E_BAD_REFERENCE, "an '&' that starts no reference (write &amp;)", amp);
        if (!name("an entity name"))
            return false;
        if (*p_ != ';')
            return fail(OXML_E_BAD_REFERENCE, "an '&' that starts no reference (write &amp;)", amp);
        const std::string_view entity(reinterpret_cast<const char*>(start), static_cast<std::size_t>(p_ - start));
        ++p_;
        if (entity == "lt" || entity == "gt" || entity == "amp" || entity == "apos" || entity == "quot")
            return true;
        return fail(OXML_E_BAD_REFERENCE, "a reference to the undeclared entity &" + printable(start, entity.size()) + ";",
                    amp);
    }

    // The text of an element up to the next '<' or the end.
    bool text()
    {
        for (;;) {
            while (!(class_of(*p_) & kTextStop))
                ++p_;
            const unsigned char c = *p_;
            if (c == '<')
                return true;
            if (c == '&') {
                if (!reference())
                    return false;
            } else if (c == ']') {
                if (p_[1] == ']' && p_[2] == '>')
                    return fail(OXML_E_SYNTAX, "\"]]>\" in text", p_);
                ++p_;
            } else if (c == '\r') {
                r_.carriage_returns = true;
                ++p_;
            } else if (c >= 0x80) {
                if (!wide_char())
                    return false;
            } else if (p_ == end_) {
                return true;
            } else {
                return fail(OXML_E_INVALID_CHARACTER, "a control character that XML does not allow", p_);
            }
        }
    }

    bool attribute_value()
    {
        const unsigned char quote = *p_;
        if (quote != '"' && quote != '\'')
            return fail(OXML_E_SYNTAX, "a quoted attribute value expected", p_);
        ++p_;
        for (;;) {
            p_ = skip_plain_value(p_, end_);
            const unsigned char c = *p_;
            if (c == quote) {
                ++p_;
                return true;
            }
            switch (c) {
            case '"':
            case '\'':
                ++p_;
                break;
            case '<':
                return fail(OXML_E_SYNTAX, "'<' in an attribute value", p_);
            case '&':
                if (!reference())
                    return false;
                break;
            case '\r':
                r_.carriage_returns = true;
                r_.attribute_white_space = true;
                ++p_;
                break;
            case '\t':
            case '\n':
                r_.attribute_white_space = true;
                ++p_;
                break;
            default:
                if (c >= 0x80) {
                    if (!wide_char())
                        return false;
                } else if (p_ == end_) {
                    return fail(OXML_E_UNEXPECTED_END, "the text ends inside an attribute value", p_);
                } else {
                    return fail(OXML_E_INVALID_CHARACTER, "a control character that XML does not allow", p_);
                }
            }
        }
    }

    // Notes the attribute's name; false when the element has it already.
    bool new_attribute(const unsigned char* at, std::size_t length)
    {
        // Length and the outer bytes tell the names of one element apart well enough to pass
        // most of them without comparing.
        const std::uint32_t hash = static_cast<std::uint32_t>(length) * 0x9E3779B1u ^ (std::uint32_t(at[0]) << 8) ^
                                   (std::uint32_t(at[length - 1]) << 16) ^ (std::uint32_t(at[length / 2]) << 24);
        if (attribute_count_ < kLinearAttributes) {
            const std::uint64_t bit = std::uint64_t(1) << ((hash ^ (hash >> 13) ^ (hash >> 27)) & 63);
            if (attribute_bits_ & bit) {
                for (std::size_t i = 0; i < attribute_count_; ++i) {
                    const Name& a = attributes_[i];
                    if (a.hash == hash && a.length == length && std::memcmp(a.at, at, length) == 0)
                        return false;
                }
            }
            attribute_bits_ |= bit;
            attributes_[attribute_count_++] = Name{at, length, hash};
            return true;
        }
        if (attribute_count_ == kLinearAttributes) {
            for (const Name& a : attributes_)
                many_attributes_.emplace(reinterpret_cast<const char*>(a.at), a.length);
            ++attribute_count_;
        }
        return many_attributes_.emplace(reinterpret_cast<const char*>(at), length).second;
    }

    bool attribute()
    {
        const unsigned char* start = p_;
        if (!name("an attribute name"))
            return false;
        const std::size_t length = static_cast<std::size_t>(p_ - start);
        skip_space();
        if (*p_ != '=')
            return fail(OXML_E_SYNTAX, "'=' expected after the attribute " + printable(start, length), p_);
        ++p_;
        skip_space();
        if (!attribute_value())
            return false;
        if (!new_attribute(start, length))
            return fail(OXML_E_DUPLICATE_ATTRIBUTE, "the attribute " + printable(start, length) + " given twice", start);
        if (length >= 5 && std::memcmp(start, "xmlns", 5) == 0 && (length == 5 || start[5] == ':'))
            r_.namespaces = true;
        return true;
    }

    // From '<' to the end of the start tag; an element that stays open goes on the stack.
    bool start_tag()
    {
        const unsigned char* lt = p_++;
        const unsigned char* start = p_;
        if (!name("an element name"))
            return false;
        const std::size_t length = static_cast<std::size_t>(p_ - start);
        attribute_count_ = 0;
        attribute_bits_ = 0;
        if (!many_attributes_.empty())
            many_attributes_.clear();
        for (;;) {
            const bool space = skip_space();
            const unsigned char c = *p_;
            if (c == '>') {
                ++p_;
                open_.push_back(Name{start, length, 0});
                return true;
            }
            if (c == '/') {
                if (p_[1] != '>')
                    return fail(OXML_E_SYNTAX, "'>' expected after '/' in a start tag", p_ + 1);
                p_ += 2;
                return true;
            }
            if (p_ == end_)
                return fail(OXML_E_UNEXPECTED_END, "the text ends inside the start tag of " + printable(start, length),
                            lt);
            if (!space)
                return fail(OXML_E_SYNTAX, "white space expected before an attribute", p_);
            if (!attribute())
                return false;
        }
    }

    bool end_tag()
    {
        const unsigned char* lt = p_;
        p_ += 2;
        const unsigned char* start = p_;
        if (!name("an element name"))
            return false;
        const std::size_t length = static_cast<std::size_t>(p_ - start);
        skip_space();
        if (*p_ != '>')
            return fail(OXML_E_SYNTAX, "'>' expected to end the end tag", p_);
        const Name& top = open_.back();
        if (top.length != length || std::memcmp(top.at, start, length) != 0)
            return fail(OXML_E_TAG_MISMATCH,
                        "the end tag </" + printable(start, length) + "> where </" + printable(top.at, top.length) +
                            "> was due",
                        lt);
        ++p_;
        open_.pop_back();
        return true;
    }

    bool comment()
    {
        p_ += 4;
        for (;;) {
            if (*p_ == '-' && p_[1] == '-') {
                if (p_[2] != '>')
                    return fail(OXML_E_SYNTAX, "\"--\" inside a comment", p_);
                p_ += 3;
                return true;
            }
            if (!any_char("a comment"))
                return false;
        }
    }

    bool processing_instruction()
    {
        const unsigned char* start = p_;
        p_ += 2;
        const unsigned char* target = p_;
        if (!name("a processing instruction's target"))
            return false;
        if (p_ - target == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' && (target[2] | 0x20) == 'l')
            return fail(OXML_E_SYNTAX, "an XML declaration that is not at the start of the text", start);
        if (at("?>")) {
            p_ += 2;
            return true;
        }
        if (!skip_space())
            return fail(OXML_E_SYNTAX, "white space expected after a processing instruction's target", p_);
        return chars_until("?>", "a processing instruction");
    }

    // Any characters up to the terminator, and past it.
    bool chars_until(const char* terminator, const char* inside)
    {
        while (!at(terminator))
            if (!any_char(inside))
                return false;
        p_ += std::strlen(terminator);
        return true;
    }

    bool cdata()
    {
        p_ += 9;
        r_.cdata = true;
        return chars_until("]]>", "a CDATA section");
    }

    bool quoted_literal(const char* what)
    {
        const unsigned char quote = *p_;
        if (quote != '"' && quote != '\'')
            return fail(OXML_E_SYNTAX, std::string("a quoted ") + what + " expected", p_);
        ++p_;
        while (*p_ != quote)
            if (!any_char(what))
                return false;
        ++p_;
        return true;
    }

    // The document type declaration. Its internal subset is checked for its characters, quoting,
    // comments, processing instructions and the end of each declaration, not for the grammar of
    // each declaration: nothing of it is used.
    bool doctype()
    {
        const unsigned char* start = p_;
        p_ += 9;
        if (!skip_space())
            return fail(OXML_E_SYNTAX, "white space expected after <!DOCTYPE", p_);
        if (!name("the document type's name"))
            return false;
        const bool space = skip_space();
        if (space && (at("SYSTEM") || at("PUBLIC"))) {
            const bool is_public = *p_ == 'P';
            p_ += 6;
            if (!skip_space() || !quoted_literal("identifier"))
                return fail(OXML_E_SYNTAX, "a quoted identifier expected in the DOCTYPE", p_);
            if (is_public && (!skip_space() || !quoted_literal("identifier")))
                return fail(OXML_E_SYNTAX, "a system identifier expected in the DOCTYPE", p_);
            skip_space();
        }
        if (*p_ == '[') {
            ++p_;
            for (;;) {
                skip_space();
                if (*p_ == ']') {
                    ++p_;
                    break;
                }
                if (at("<!--")) {
                    if (!comment())
                        return false;
                } else if (at("<?")) {
                    if (!processing_instruction())
                        return false;
                } else if (at("<!")) {
                    p_ += 2;
                    while (*p_ != '>') {
                        if (*p_ == '"' || *p_ == '\'') {
                            if (!quoted_literal("literal"))
                                return false;
                        } else if (*p_ == '<') {
                            return fail(OXML_E_SYNTAX, "'<' inside a markup declaration", p_);
                        } else if (!any_char("the DOCTYPE")) {
                            return false;
                        }
                    }
                    ++p_;
                } else if (*p_ == '%') {
                    ++p_;
                    if (!name("a parameter entity's name"))
                        return false;
                    if (*p_ != ';')
                        return fail(OXML_E_BAD_REFERENCE, "';' expected after a parameter entity reference", p_);
                    ++p_;
                } else if (p_ == end_) {
                    return fail(OXML_E_UNEXPECTED_END, "the text ends inside the DOCTYPE", start);
                } else {
                    return fail(OXML_E_SYNTAX, "unexpected text in the DOCTYPE's internal subset", p_);
                }
            }
            skip_space();
        }
        if (*p_ != '>')
            return fail(OXML_E_SYNTAX, "'>' expected to end the DOCTYPE", p_);
        ++p_;
        return true;
    }

    // The XML declaration, when the text starts with one.
    bool declaration()
    {
        if (!at("<?xml") || !((class_of(p_[5]) & kSpace) || p_[5] == '?'))
            return true;
        const unsigned char* start = p_;
        p_ += 5;
        auto bad = [&](const char* what) { return fail(OXML_E_SYNTAX, std::string("the XML declaration: ") + what, p_); };
        auto equals = [&]() {
            skip_space();
            if (*p_ != '=')
                return false;
            ++p_;
            skip_space();
            return *p_ == '"' || *p_ == '\'';
        };
        // The length of the quoted value, whose characters must all pass the test; 0 when one fails.
        auto value = [&](bool (*ok)(unsigned char, std::size_t)) -> std::size_t {
            const unsigned char quote = *p_++;
            std::size_t i = 0;
            for (; *p_ != quote; ++p_, ++i)
                if (p_ == end_ || !ok(*p_, i))
                    return 0;
            ++p_;
            return i;
        };
        if (!skip_space() || !at("version"))
            return bad("version expected");
        p_ += 7;
        if (!equals() || value([](unsigned char c, std::size_t i) {
                return i == 0 ? c == '1' : i == 1 ? c == '.' : (c >= '0' && c <= '9');
            }) < 3)
            return bad("a version 1.x expected");
        bool space = skip_space();
        if (space && at("encoding")) {
            p_ += 8;
            if (!equals() || 0 == value([](unsigned char c, std::size_t i) {
                    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
                    return i == 0 ? letter : letter || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
                }))
                return bad("a bad encoding name");
            space = skip_space();
        }
        if (space && at("standalone")) {
            p_ += 10;
            if (!equals())
                return bad("a bad standalone value");
            const unsigned char quote = *p_;
            ++p_;
            if (at("yes"))
                p_ += 3;
            else if (at("no"))
                p_ += 2;
            else
                return bad("standalone must be yes or no");
            if (*p_ != quote)
                return bad("standalone must be yes or no");
            ++p_;
            skip_space();
        }
        if (!at("?>"))
            return p_ == end_ ? fail(OXML_E_UNEXPECTED_END, "the text ends inside the XML declaration", start)
                              : bad("'?>' expected");
        p_ += 2;
        return true;
    }

    // Comments, processing instructions and white space around the root; before it also one DOCTYPE.
    bool misc(bool before_root)
    {
        bool doctype_seen = false;
        for (;;) {
            skip_space();
            if (at("<!--")) {
                if (!comment())
                    return false;
            } else if (at("<?")) {
                if (!processing_instruction())
                    return false;
            } else if (at("<!DOCTYPE")) {
                if (!before_root || doctype_seen)
                    return fail(OXML_E_SYNTAX, "a DOCTYPE out of place", p_);
                doctype_seen = true;
                if (!doctype())
                    return false;
            } else {
                return true;
            }
        }
    }

    // Everything inside the root element, until it closes.
    bool content()
    {
        while (!open_.empty()) {
            if (!text())
                return false;
            if (p_ == end_) {
                const Name& top = open_.back();
                return fail(OXML_E_UNEXPECTED_END,
                            "the text ends with the element " + printable(top.at, top.length) + " open", p_);
            }
            const unsigned char next = p_[1];
            bool ok;
            if (next == '/') {
                ok = end_tag();
            } else if (next == '!') {
                if (at("<!--"))
                    ok = comment();
                else if (at("<![CDATA["))
                    ok = cdata();
                else
                    ok = fail(OXML_E_SYNTAX, "a declaration inside an element", p_);
            } else if (next == '?') {
                ok = processing_instruction();
            } else {
                ok = start_tag();
            }
            if (!ok)
                return false;
        }
        return true;
    }
};


} // namespace

bool is_xml_name(const char* utf8)
{
    if (utf8 == nullptr || *utf8 == '\0')
        return false;
    // Names of ASCII alone, the usual ones, need no decoding.
    if (class_of(static_cast<unsigned char>(*utf8)) & kNameStart) {
        const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8) + 1;
        while (class_of(*p) & kName)
            ++p;
        if (*p == 0)
            return true;
    }
    const std::size_t length = std::strlen(utf8);
    for (std::size_t i = 0; i < length;) {
        char32_t c = 0;
        const std::size_t n = Ostrel::Format::DecodeUtf8(utf8, length, i, c);
        if (n == 0 || !(i == 0 ? is_name_start_char(c) : is_name_char(c)))
            return false;
        i += n;
    }
    return true;
}

bool check_well_formed(const char* data, std::size_t size, WellFormedResult& result)
{
    result = WellFormedResult();
    Checker checker(data, size, result);
    return checker.document();
}

} // namespace oxml

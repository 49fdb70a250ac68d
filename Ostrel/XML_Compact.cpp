#include "Ostrel/XML_Compact.h"

#include <cstring>

#include "Ostrel/XML_WellFormed_Scan.h"

namespace oxml {

namespace {

using Byte = unsigned char;

const std::uint32_t kDecode = 0x80000000u;  // flag on a value's end: the value needs decoding
const std::size_t kMaxText = 0x7FFFFFF0u;    // offsets and that flag share 32 bits

bool is_space(Byte c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Past a name: checked text, so every byte from 0x80 on inside a tag is part of one.
const Byte* skip_name(const Byte* p, const Byte* end)
{
    for (;;) {
        p = scan::skip_ascii_name(p, end);
        if (*p < 0x80)
            return p;
        ++p;
    }
}

const Byte* skip_spaces(const Byte* p)
{
    while (is_space(*p))
        ++p;
    return p;
}

// Past the first occurrence of the marker at or after p, or end.
const Byte* past(const Byte* p, const Byte* end, const char* marker)
{
    const std::size_t n = std::strlen(marker);
    for (;;) {
        const void* hit = std::memchr(p, marker[0], static_cast<std::size_t>(end - p));
        if (hit == nullptr)
            return end;
        p = static_cast<const Byte*>(hit);
        if (static_cast<std::size_t>(end - p) >= n && std::memcmp(p, marker, n) == 0)
            return p + n;
        ++p;
    }
}

std::uint32_t hex_digit(Byte c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return (c | 0x20) - 'a' + 10;
}

// The character in UTF-8; a reference is never shorter, so this writes behind the reading.
Byte* put_utf8(Byte* out, std::uint32_t code)
{
    if (code < 0x80) {
        *out++ = static_cast<Byte>(code);
    } else if (code < 0x800) {
        *out++ = static_cast<Byte>(0xC0 | code >> 6);
        *out++ = static_cast<Byte>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        *out++ = static_cast<Byte>(0xE0 | code >> 12);
        *out++ = static_cast<Byte>(0x80 | (code >> 6 & 0x3F));
        *out++ = static_cast<Byte>(0x80 | (code & 0x3F));
    } else {
        *out++ = static_cast<Byte>(0xF0 | code >> 18);
        *out++ = static_cast<Byte>(0x80 | (code >> 12 & 0x3F));
        *out++ = static_cast<Byte>(0x80 | (code >> 6 & 0x3F));
        *out++ = static_cast<Byte>(0x80 | (code & 0x3F));
    }
    return out;
}

// Decodes the value at p up to its closing quote at stop, in place and NUL-terminated, as the
// parser's tree holds it: references replaced, each tab, line end or CR LF a single blank.
void decode_value(Byte* p, Byte* stop)
{
    Byte* out = p;
    while (p < stop) {
        const Byte c = *p;
        if (c == '&') {
            ++p;
            if (*p == '#') {
                std::uint32_t code = 0;
                if (p[1] == 'x') {
                    for (p += 2; *p != ';'; ++p)
                        code = code * 16 + hex_digit(*p);
                } else {
                    for (++p; *p != ';'; ++p)
                        code = code * 10 + (*p - '0');
                }
                out = put_utf8(out, code);
            } else {
                static const struct {
                    const char* name;
                    Byte c;
                } entities[] = {{"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"quot;", '"'}, {"apos;", '\''}};
                for (const auto& e : entities) {
                    if (std::strncmp(reinterpret_cast<const char*>(p), e.name, std::strlen(e.name)) == 0) {
                        *out++ = e.c;
                        break;
                    }
                }
                while (*p != ';')
                    ++p;
            }
            ++p;
        } else if (c == '\r') {
            *out++ = ' ';
            ++p;
            if (p < stop && *p == '\n')
                ++p;
        } else if (c == '\n' || c == '\t') {
            *out++ = ' ';
            ++p;
        } else {
            *out++ = c;
            ++p;
        }
    }
    *out = '\0';
}

} // namespace

std::uint32_t CompactTree::intern(const char* name, std::size_t length)
{
    const std::string_view key(name, length);
    auto found = name_indexes_.find(key);
    if (found != name_indexes_.end())
        return found->second;
    const std::uint32_t index = static_cast<std::uint32_t>(names_.size());
    names_.emplace_back(key);
    name_indexes_.emplace(std::string_view(names_.back()), index);
    return index;
}

std::uint32_t CompactTree::name_index(const char* utf8) const
{
    auto found = name_indexes_.find(std::string_view(utf8));
    return found == name_indexes_.end() ? kNone : found->second;
}

std::uint32_t CompactTree::find_attribute(std::uint32_t i, const char* utf8_name, std::uint32_t from) const
{
    const std::uint32_t begin = attributes_begin(i);
    const std::uint32_t end = attributes_end(i);
    if (from < begin || from > end)
        from = begin;
    const char wanted = utf8_name[0];
    auto same = [&](std::uint32_t a) {
        const char* name = text_.data() + attributes_[a].name;
        if (name[0] != wanted)
            return false;
        const char* b = utf8_name;
        for (; *name == *b; ++name, ++b)
            if (*name == '\0')
                return true;
        return false;
    };
    for (std::uint32_t a = from; a < end; ++a)
        if (same(a))
            return a;
    for (std::uint32_t a = begin; a < from; ++a)
        if (same(a))
            return a;
    return kNone;
}

bool CompactTree::build(std::string& bytes, const WellFormedResult& check)
{
    if (check.cdata || check.namespaces || bytes.size() > kMaxText)
        return false;
    elements_.clear();
    attributes_.clear();
    names_.clear();
    name_indexes_.clear();

    // First the structure, without a change to the bytes, so that the text can still go to the
    // parser when it holds what this tree doesn't keep; then the names and values in place.
    const Byte* const begin = reinterpret_cast<const Byte*>(bytes.data());
    const Byte* const end = begin + bytes.size();  // a readable NUL, which stops every scan
    std::vector<std::uint32_t> value_ends;         // where each value's closing quote stands
    // A file the library writes has about 14 attributes an element and 25 bytes an attribute.
    attributes_.reserve(bytes.size() / 24);
    value_ends.reserve(bytes.size() / 24);
    elements_.reserve(bytes.size() / 300);

    const Byte* p = begin;
    std::uint32_t open = kNone;
    bool root_seen = false;
    while (p < end) {
        if (*p != '<') {
            // White space only, inside the document element as outside it.
            const Byte* next = static_cast<const Byte*>(std::memchr(p, '<', static_cast<std::size_t>(end - p)));
            if (next == nullptr)
                next = end;
            for (; p < next; ++p)
                if (!is_space(*p))
                    return false;
            continue;
        }
        const Byte c = p[1];
        if (c == '?') {
            p = past(p + 2, end, "?>");
        } else if (c == '!') {
            if (p[2] != '-')
                return false;  // a DOCTYPE or CDATA
            p = past(p + 4, end, "-->");
        } else if (c == '/') {
            elements_[open].end = static_cast<std::uint32_t>(elements_.size());
            open = elements_[open].parent;
            p = static_cast<const Byte*>(std::memchr(p, '>', static_cast<std::size_t>(end - p))) + 1;
            if (open == kNone)
                break;  // what follows the document element holds no element
        } else {
            if (root_seen && open == kNone)
                return false;  // not expected after the check
            root_seen = true;
            const Byte* name = p + 1;
            p = skip_name(name, end);
            const std::uint32_t index = static_cast<std::uint32_t>(elements_.size());
            elements_.push_back(Element{intern(reinterpret_cast<const char*>(name), static_cast<std::size_t>(p - name)),
                                        static_cast<std::uint32_t>(attributes_.size()), kNone, open});
            for (;;) {
                p = skip_spaces(p);
                if (*p == '/') {
                    elements_[index].end = index + 1;
                    p += 2;
                    if (open == kNone)
                        p = end;  // an empty document element
                    break;
                }
                if (*p == '>') {
                    open = index;
                    ++p;
                    break;
                }
                const Byte* attribute = p;
                p = skip_spaces(skip_name(p, end));
                p = skip_spaces(p + 1);  // past '='
                const Byte quote = *p++;
                const Byte* value = p;
                std::uint32_t decode = 0;
                for (;;) {
                    p = scan::skip_plain_value(p, end);
                    const Byte stop = *p;
                    if (stop == quote)
                        break;
                    if (stop == '&' || stop == '\t' || stop == '\n' || stop == '\r')
                        decode = kDecode;
                    ++p;
                }
                attributes_.push_back(Attribute{static_cast<std::uint32_t>(attribute - begin),
                                                static_cast<std::uint32_t>(value - begin)});
                value_ends.push_back(static_cast<std::uint32_t>(p - begin) | decode);
                ++p;
            }
        }
    }
    if (elements_.empty() || open != kNone) {
        elements_.clear();
        attributes_.clear();
        return false;  // not expected after the check
    }
    elements_.push_back(Element{kNone, static_cast<std::uint32_t>(attributes_.size()), kNone, kNone});

    Byte* const text = reinterpret_cast<Byte*>(&bytes[0]);
    for (std::size_t a = 0; a < attributes_.size(); ++a) {
        *const_cast<Byte*>(skip_name(text + attributes_[a].name, end)) = '\0';
        const std::uint32_t value_end = value_ends[a];
        Byte* const value = text + attributes_[a].value;
        if ((value_end & kDecode) != 0)
            decode_value(value, text + (value_end & ~kDecode));
        else
            text[value_end] = '\0';
    }
    text_.swap(bytes);
    bytes.clear();
    return true;
}

} // namespace oxml

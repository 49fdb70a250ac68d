#include "Ostrel/XML_Compact.h"

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "Ostrel/XML_Data.h"

namespace oxml {

namespace {

using Byte = unsigned char;

const std::size_t kMaxText = 0xFFFFFFF0u;  // offsets into the text are 32 bits

bool is_space(Byte c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Past a name. The text is checked, so a name ends at the first blank, '=', '/' or '>' (or at the
// NUL after the text), whatever bytes it holds; 16 bytes are looked at a time where there are.
inline const Byte* skip_name(const Byte* p, const Byte* end)
{
#ifdef __SSE2__
    while (end - p >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i low = _mm_cmpeq_epi8(_mm_min_epu8(x, _mm_set1_epi8(0x20)), x);
        const __m128i marks = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8('=')),
                                                        _mm_cmpeq_epi8(x, _mm_set1_epi8('/'))),
                                           _mm_cmpeq_epi8(x, _mm_set1_epi8('>')));
        const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(low, marks)));
        if (mask != 0)
            return p + __builtin_ctz(mask);
        p += 16;
    }
#endif
    while (*p > 0x20 && *p != '=' && *p != '/' && *p != '>')
        ++p;
    return p;
}

// Where a value in the given quote ends, or stops at a byte that needs decoding: '&' or a tab,
// line end or CR (the only bytes under 0x20 that the check lets through).
inline const Byte* skip_value(const Byte* p, const Byte* end, Byte quote)
{
#ifdef __SSE2__
    while (end - p >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(x, _mm_set1_epi8(0x1F)), x);
        const __m128i marks = _mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8(static_cast<char>(quote))),
                                           _mm_cmpeq_epi8(x, _mm_set1_epi8('&')));
        const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(control, marks)));
        if (mask != 0)
            return p + __builtin_ctz(mask);
        p += 16;
    }
#endif
    while (*p >= 0x20 && *p != quote && *p != '&')
        ++p;
    return p;
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
                    for (p += 2; p < stop && *p != ';'; ++p)
                        code = code * 16 + hex_digit(*p);
                } else {
                    for (++p; p < stop && *p != ';'; ++p)
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
                while (p < stop && *p != ';')
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

// Past the start tag at open, read by its grammar: a '>' may stand inside a value.
const Byte* past_start_tag(const Byte* open, const Byte* end)
{
    const Byte* p = open + 1;
    while (p < end && !is_space(*p) && *p != '>' && *p != '/')
        ++p;
    for (;;) {
        while (p < end && is_space(*p))
            ++p;
        if (p >= end)
            return end;
        if (*p == '>')
            return p + 1;
        if (*p == '/')
            return p + 2 <= end ? p + 2 : end;
        while (p < end && *p != '"' && *p != '\'')
            ++p;
        if (p >= end)
            return end;
        const void* close = std::memchr(p + 1, *p, static_cast<std::size_t>(end - p - 1));
        if (close == nullptr)
            return end;
        p = static_cast<const Byte*>(close) + 1;
    }
}

// Whether the text has nothing a compact tree doesn't keep: no DOCTYPE, no CDATA, and outside
// markup white space only. A tag is taken to end at the first '>': where that one stands inside a
// value, what follows it isn't blank, and the tag is read again by its grammar.
bool holds_no_text(const std::string& bytes)
{
    const Byte* p = reinterpret_cast<const Byte*>(bytes.data());
    const Byte* const end = p + bytes.size();
    const Byte* guessed = nullptr;  // the start tag whose end was taken at its first '>'
    for (;;) {
        const Byte* open = static_cast<const Byte*>(std::memchr(p, '<', static_cast<std::size_t>(end - p)));
        if (open == nullptr)
            open = end;
        for (; p < open; ++p)
            if (!is_space(*p))
                break;
        if (p < open) {
            if (guessed == nullptr)
                return false;
            p = past_start_tag(guessed, end);
            guessed = nullptr;
            continue;
        }
        if (open == end)
            return true;
        guessed = nullptr;
        if (open[1] == '!') {
            if (open[2] != '-')
                return false;  // a DOCTYPE or CDATA
            p = past(open + 4, end, "-->");
        } else if (open[1] == '?') {
            p = past(open + 2, end, "?>");
        } else {
            const Byte* close = static_cast<const Byte*>(std::memchr(open, '>', static_cast<std::size_t>(end - open)));
            if (close == nullptr)
                return false;
            if (open[1] != '/')
                guessed = open;
            p = close + 1;
        }
    }
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

CompactTree::Outcome CompactTree::build(std::string& bytes, const WellFormedResult& check)
{
    elements_.clear();
    attributes_.clear();
    names_.clear();
    name_indexes_.clear();
    if (check.cdata || check.namespaces || bytes.size() > kMaxText || !holds_no_text(bytes))
        return kNotHeld;

    const Byte* const begin = reinterpret_cast<const Byte*>(bytes.data());
    const Byte* const end = begin + bytes.size();  // a readable NUL, which stops every scan
    Byte* const text = reinterpret_cast<Byte*>(&bytes[0]);
    // A file the library writes has about 14 attributes an element and 25 bytes an attribute.
    attributes_.reserve(bytes.size() / 24);
    elements_.reserve(bytes.size() / 300);

    const Byte* p = begin;
    std::uint32_t open = kNone;
    while (p < end) {
        if (*p != '<') {
            ++p;  // white space, as holds_no_text found
            continue;
        }
        const Byte c = p[1];
        if (c == '?') {
            p = past(p + 2, end, "?>");
        } else if (c == '!') {
            p = past(p + 4, end, "-->");  // a comment: holds_no_text let nothing else through
        } else if (c == '/') {
            if (open == kNone)
                return fail();
            elements_[open].end = static_cast<std::uint32_t>(elements_.size());
            open = elements_[open].parent;
            p = static_cast<const Byte*>(std::memchr(p, '>', static_cast<std::size_t>(end - p)));
            if (p == nullptr)
                return fail();
            ++p;
            if (open == kNone)
                break;  // what follows the document element holds no element
        } else {
            if (open == kNone && !elements_.empty())
                return fail();
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
                if (p >= end)
                    return fail();
                // name, blanks, '=', blanks, the value in quotes: both made NUL-terminated texts.
                const Byte* attribute = p;
                Byte* name_end = text + (skip_name(p, end) - begin);
                p = skip_spaces(name_end);
                if (*p != '=')
                    return fail();
                *name_end = '\0';
                p = skip_spaces(p + 1);
                const Byte quote = *p++;
                if (quote != '"' && quote != '\'')
                    return fail();
                const Byte* value = p;
                bool decode = false;
                for (;;) {
                    p = skip_value(p, end, quote);
                    const Byte stop = *p;
                    if (stop == quote)
                        break;
                    if (p >= end)
                        return fail();
                    if (stop == '&' || stop == '\t' || stop == '\n' || stop == '\r')
                        decode = true;
                    ++p;
                }
                Byte* const value_end = text + (p - begin);
                if (decode)
                    decode_value(text + (value - begin), value_end);
                else
                    *value_end = '\0';
                // Field by field: a brace-initialised pair goes through the stack, and reading
                // it back as one word stalls on the two halves just stored.
                attributes_.emplace_back();
                attributes_.back().name = static_cast<std::uint32_t>(attribute - begin);
                attributes_.back().value = static_cast<std::uint32_t>(value - begin);
                ++p;
            }
        }
    }
    if (elements_.empty() || open != kNone)
        return fail();
    elements_.push_back(Element{kNone, static_cast<std::uint32_t>(attributes_.size()), kNone, kNone});
    text_.swap(bytes);
    bytes.clear();
    return kBuilt;
}

CompactTree::Outcome CompactTree::fail()
{
    elements_.clear();
    attributes_.clear();
    return kFailed;
}

// ---------------------------------------------------------------------------------------------
// Building a tree element by element

namespace {

std::uint32_t hash_name(const char* name)
{
    std::uint32_t h = 2166136261u;
    for (; *name != '\0'; ++name)
        h = (h ^ static_cast<Byte>(*name)) * 16777619u;
    return h;
}

} // namespace

CompactBuilder::CompactBuilder() : tree_(new CompactTree) {}

CompactBuilder::~CompactBuilder() = default;

void CompactBuilder::reserve(std::size_t elements, std::size_t attributes, std::size_t value_bytes)
{
    if (!tree_)
        return;
    tree_->elements_.reserve(elements + 1);
    tree_->attributes_.reserve(attributes);
    // The values with their NULs, and the names, which are few.
    tree_->text_.reserve(std::min(value_bytes + attributes + 4096, kMaxText));
}

void CompactBuilder::open(const char* name)
{
    if (!tree_)
        return;
    std::vector<CompactTree::Element>& elements = tree_->elements_;
    if (skipped_ > 0 || (open_ == CompactTree::kNone && !elements.empty())) {
        ++skipped_;
        return;
    }
    if (elements.size() >= kMaxText) {
        held_ = false;
        return;
    }
    const std::size_t length = std::strlen(name);
    ascii_ = ascii_ && is_ascii(name, length);
    const std::uint32_t index = static_cast<std::uint32_t>(elements.size());
    elements.push_back(CompactTree::Element{tree_->intern(name, length),
                                            static_cast<std::uint32_t>(tree_->attributes_.size()),
                                            CompactTree::kNone, open_});
    open_ = index;
}

std::uint32_t CompactBuilder::name(const char* name)
{
    if (!tree_)
        return 0;
    if ((name_count_ + 1) * 2 > name_slots_.size()) {
        std::vector<std::uint32_t> old(name_slots_.empty() ? 64 : name_slots_.size() * 2, CompactTree::kNone);
        old.swap(name_slots_);
        const std::size_t mask = name_slots_.size() - 1;
        for (const std::uint32_t offset : old) {
            if (offset == CompactTree::kNone)
                continue;
            std::size_t i = hash_name(tree_->text_.data() + offset) & mask;
            while (name_slots_[i] != CompactTree::kNone)
                i = (i + 1) & mask;
            name_slots_[i] = offset;
        }
    }
    const std::size_t mask = name_slots_.size() - 1;
    std::size_t i = hash_name(name) & mask;
    for (; name_slots_[i] != CompactTree::kNone; i = (i + 1) & mask)
        if (std::strcmp(tree_->text_.data() + name_slots_[i], name) == 0)
            return name_slots_[i];
    // A namespace declaration changes how elements are found by name, which the tree doesn't do.
    if (std::strncmp(name, "xmlns", 5) == 0)
        held_ = false;
    const std::uint32_t offset = add_text(name, std::strlen(name));
    if (held_) {
        name_slots_[i] = offset;
        ++name_count_;
    }
    return offset;
}

bool CompactBuilder::may_add()
{
    if (!tree_ || skipped_ > 0 || open_ == CompactTree::kNone)
        return false;
    if (open_ + 1 != tree_->elements_.size() || tree_->attributes_.size() >= kMaxText)
        held_ = false;
    return held_;
}

void CompactBuilder::attribute(std::uint32_t name, const char* value)
{
    if (!may_add())
        return;
    std::vector<CompactTree::Attribute>& attributes = tree_->attributes_;
    const std::uint32_t value_offset = add_text(value, std::strlen(value));
    for (std::size_t a = tree_->elements_[open_].first_attribute; a < attributes.size(); ++a) {
        if (attributes[a].name == name) {
            attributes[a].value = value_offset;
            return;
        }
    }
    attributes.push_back(CompactTree::Attribute{name, value_offset});
}

void CompactBuilder::append_attribute(std::uint32_t name, const char* value, std::size_t value_size)
{
    if (!may_add())
        return;
    const std::uint32_t value_offset = add_text(value, value_size);
    tree_->attributes_.push_back(CompactTree::Attribute{name, value_offset});
}

std::uint32_t CompactBuilder::add_text(const char* text, std::size_t size)
{
    std::string& all = tree_->text_;
    if (size >= kMaxText - all.size()) {
        held_ = false;
        return 0;
    }
    const std::uint32_t offset = static_cast<std::uint32_t>(all.size());
    all.append(text, size);
    all.push_back('\0');
    ascii_ = ascii_ && is_ascii(text, size);
    return offset;
}

void CompactBuilder::close()
{
    if (!tree_)
        return;
    if (skipped_ > 0) {
        --skipped_;
        return;
    }
    if (open_ == CompactTree::kNone)
        return;
    std::vector<CompactTree::Element>& elements = tree_->elements_;
    elements[open_].end = static_cast<std::uint32_t>(elements.size());
    open_ = elements[open_].parent;
}

std::unique_ptr<CompactTree> CompactBuilder::finish()
{
    skipped_ = 0;
    while (tree_ && open_ != CompactTree::kNone)
        close();
    std::unique_ptr<CompactTree> tree = std::move(tree_);
    if (!tree || !held_ || tree->elements_.empty())
        return nullptr;
    tree->elements_.push_back(CompactTree::Element{CompactTree::kNone,
                                                   static_cast<std::uint32_t>(tree->attributes_.size()),
                                                   CompactTree::kNone, CompactTree::kNone});
    return tree;
}

} // namespace oxml

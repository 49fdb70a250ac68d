// The elements of a document: tags, attributes, text and references.

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_WellFormed_Checker.h"

namespace oxml {

// Records the failure with its line and column (counted in characters from 1).
bool Checker::fail(int code, const std::string& what, const unsigned char* at)
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
std::string Checker::printable(const unsigned char* at, std::size_t length)
{
    std::string out;
    for (std::size_t i = 0; i < length && i < 40; ++i)
        out.push_back(at[i] >= 0x20 && at[i] < 0x7F ? static_cast<char>(at[i]) : '?');
    if (length > 40)
        out += "...";
    return out;
}

// One character that isn't ASCII, checked and passed.
bool Checker::wide_char(char32_t* out)
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
bool Checker::any_char(const char* inside)
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

__attribute__((noinline)) bool Checker::wide_name(const char* what)
{
    const unsigned char* start = p_;
    if (scan::class_of(*p_) & scan::kNameStart) {
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
        p_ = scan::skip_ascii_name(p_, end_);
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

bool Checker::reference()
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
    if (!(scan::class_of(*p_) & scan::kNameStart) && *p_ < 0x80)
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
bool Checker::text()
{
    for (;;) {
        while (!(scan::class_of(*p_) & scan::kTextStop))
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

inline bool Checker::attribute_value()
{
    const unsigned char quote = *p_;
    if (quote != '"' && quote != '\'')
        return fail(OXML_E_SYNTAX, "a quoted attribute value expected", p_);
    ++p_;
    return value_rest(quote);
}

// An attribute value from after its opening quote to past its closing one.
inline bool Checker::value_rest(unsigned char quote)
{
    for (;;) {
        p_ = scan::skip_plain_value(p_, end_);
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
            value_decodes_ = true;
            if (!reference())
                return false;
            break;
        case '\r':
            r_.carriage_returns = true;
            r_.attribute_white_space = true;
            value_decodes_ = true;
            ++p_;
            break;
        case '\t':
        case '\n':
            r_.attribute_white_space = true;
            value_decodes_ = true;
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

// Length and the outer bytes tell the names of one element apart well enough to pass most of
// them without comparing.
std::uint32_t Checker::name_hash(const unsigned char* at, std::size_t length)
{
    return static_cast<std::uint32_t>(length) * 0x9E3779B1u ^ (std::uint32_t(at[0]) << 8) ^
           (std::uint32_t(at[length - 1]) << 16) ^ (std::uint32_t(at[length / 2]) << 24);
}

// Notes the attribute's name; false when the element has it already.
inline bool Checker::new_attribute(const Name& name)
{
    if (attribute_count_ < kLinearAttributes) {
        const std::uint32_t hash = name.hash;
        const std::uint64_t bit = std::uint64_t(1) << ((hash ^ (hash >> 13) ^ (hash >> 27)) & 63);
        if (attribute_bits_ & bit) {
            for (std::size_t i = 0; i < attribute_count_; ++i) {
                const Name& a = attributes_[i];
                if (a.hash == hash && a.length == name.length && std::memcmp(a.at, name.at, name.length) == 0)
                    return false;
            }
        }
        attribute_bits_ |= bit;
        attributes_[attribute_count_++] = name;
        return true;
    }
    if (attribute_count_ == kLinearAttributes) {
        for (const Name& a : attributes_)
            many_attributes_.emplace(reinterpret_cast<const char*>(a.at), a.length);
        ++attribute_count_;
    }
    return many_attributes_.emplace(reinterpret_cast<const char*>(name.at), name.length).second;
}

inline bool Checker::attribute()
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
    const unsigned char quote = *p_;
    const unsigned char* value = p_ + 1;
    value_decodes_ = false;
    if (!attribute_value())
        return false;
    const std::uint32_t id = name_id(start, length);
    if (!new_attribute(Name{start, length, name_hash(start, length), quote, id}))
        return fail(OXML_E_DUPLICATE_ATTRIBUTE, "the attribute " + printable(start, length) + " given twice", start);
    if (length >= 5 && std::memcmp(start, "xmlns", 5) == 0 && (length == 5 || start[5] == ':')) {
        r_.namespaces = true;
        stop_recording();  // names would have to be found by namespace, which the tree doesn't do
    }
    if (tree_ != nullptr)
        record_attribute(id, value, p_ - 1, value_decodes_);
    return true;
}

// The shape kept for elements of this name, emptied when it was another name's; null for a
// long name.
Checker::Shape* Checker::shape_of(const unsigned char* element, std::size_t length)
{
    if (length > Shape::kMaxText)
        return nullptr;
    const std::uint32_t hash = name_hash(element, length);
    std::unique_ptr<Shape>& shape = shapes_[(hash ^ (hash >> 11) ^ (hash >> 19) ^ (hash >> 27)) % kShapeSlots];
    if (!shape)
        shape.reset(new Shape);
    else if (shape->element_length == length && same_bytes(element, shape->element, length))
        return shape.get();
    std::memset(shape->element, 0, sizeof shape->element);
    std::memcpy(shape->element, element, length);
    shape->element_length = length;
    shape->element_id = name_id(element, length);
    shape->count = 0;
    shape->repeats = 0;
    shape->changes = 0;
    return shape.get();
}

// Passes the attributes at p_ that repeat the shape's, each after one blank, as far as they
// do; they are told apart already. Their values are checked as any value is.
bool Checker::follow_shape(const Shape& shape, std::size_t& matched)
{
    // Before this, an entry and 64 bytes from the end of its text can be read without a test.
    const unsigned char* const roomy = end_ - begin_ > 128 ? end_ - 128 : begin_;
    const unsigned char* p = p_;
    std::size_t i = 0;
    if (p >= roomy || shape.count == 0) {
        matched = 0;
        return true;
    }
    // Where values in double quotes stop, for 64 bytes from window: found for several values at
    // once, so that where one value ends doesn't wait on a search from where the last one ended.
    const unsigned char* window = p;
    std::uint64_t stops = scan::double_quoted_stops_64(window);
    for (; i < shape.count && p < roomy; ++i) {
        const Shape::Entry& e = shape.entries[i];
        if (!scan::starts_with(p, e.text, e.size, e.mask))
            break;
        const unsigned char* value = p + e.size;
        if (scan::kWideValueSearch && e.quote == '"') {
            std::size_t offset = static_cast<std::size_t>(value - window);
            if (offset >= 64) {
                window = value;
                stops = scan::double_quoted_stops_64(window);
                offset = 0;
            }
            const std::uint64_t ahead = stops >> offset;
            p = ahead != 0 ? value + __builtin_ctzll(ahead) : scan::skip_plain_value(window + 64, end_);
        } else {
            p = scan::skip_plain_value(value, end_);
        }
        if (*p == e.quote) {
            if (tree_ != nullptr)
                record_attribute(e.id, value, p, false);
            ++p;
            continue;
        }
        p_ = p;
        value_decodes_ = false;
        if (!value_rest(e.quote)) {
            matched = i;
            return false;
        }
        p = p_;
        if (tree_ != nullptr)
            record_attribute(e.id, value, p - 1, value_decodes_);
    }
    p_ = p;
    matched = i;
    return true;
}

// The shape becomes that of the element just read: its first matched entries stay, the
// attributes read by name follow, as far as their text fits an entry.
void Checker::learn_shape(Shape& shape, std::size_t matched)
{
    std::size_t count = matched;
    const std::size_t named = attribute_count_ < kLinearAttributes ? attribute_count_ : kLinearAttributes;
    for (std::size_t i = matched; i < named; ++i) {
        const Name& a = attributes_[i];
        const std::size_t size = a.length + 3;
        if (size > Shape::kMaxText)
            break;
        Shape::Entry& e = shape.entries[count++];
        std::memset(e.text, 0, sizeof e.text);
        e.text[0] = ' ';
        std::memcpy(e.text + 1, a.at, a.length);
        e.text[a.length + 1] = '=';
        e.text[a.length + 2] = a.quote;
        e.mask = size == 32 ? 0xFFFFFFFFu : (std::uint32_t(1) << size) - 1;
        e.size = static_cast<std::uint32_t>(size);
        e.hash = a.hash;
        e.id = a.id;
        e.quote = a.quote;
    }
    shape.count = count;
}

// From '<' to the end of the start tag; an element that stays open goes on the stack.
bool Checker::start_tag()
{
    const unsigned char* lt = p_++;
    const unsigned char* start = p_;
    attribute_count_ = 0;
    attribute_bits_ = 0;
    if (!many_attributes_.empty())
        many_attributes_.clear();
    // Siblings are mostly of one kind: the last shape used at this depth is tried first, and
    // its name, read before, needs no check.
    const std::size_t depth = open_.size() < kShapeDepths ? open_.size() : kShapeDepths - 1;
    Shape* shape = sibling_shapes_[depth];
    if (shape != nullptr && end_ - p_ > 33 && p_[shape->element_length] == ' ' &&
        same_bytes(p_, shape->element, shape->element_length)) {
        p_ += shape->element_length;
    } else {
        if (!name("an element name"))
            return false;
        shape = *p_ == ' ' ? shape_of(start, static_cast<std::size_t>(p_ - start)) : nullptr;
        sibling_shapes_[depth] = shape;
    }
    const std::size_t length = static_cast<std::size_t>(p_ - start);
    const std::uint32_t element = tree_ != nullptr ? static_cast<std::uint32_t>(tree_->elements_.size()) : 0;
    if (tree_ != nullptr)
        record_element(shape != nullptr ? shape->element_id : name_id(start, length));
    std::size_t matched = 0;
    if (shape != nullptr) {
        if (shape->changes > 16 && shape->changes > shape->repeats)
            shape = nullptr;
        else if (!follow_shape(*shape, matched))
            return false;
    }
    for (;;) {
        const bool space = skip_space();
        const unsigned char c = *p_;
        if (c == '>' || c == '/') {
            if (c == '/') {
                if (p_[1] != '>')
                    return fail(OXML_E_SYNTAX, "'>' expected after '/' in a start tag", p_ + 1);
                p_ += 2;
                if (tree_ != nullptr)
                    tree_->elements_[element].end = element + 1;
            } else {
                ++p_;
                open_.push_back(Name{start, length, 0, 0, 0});
                if (tree_ != nullptr)
                    open_element_ = element;
            }
            if (shape != nullptr) {
                if (matched != shape->count || attribute_count_ != 0) {
                    ++shape->changes;
                    learn_shape(*shape, matched);
                } else {
                    ++shape->repeats;
                }
            }
            return true;
        }
        if (p_ == end_)
            return fail(OXML_E_UNEXPECTED_END, "the text ends inside the start tag of " + printable(start, length),
                        lt);
        if (!space)
            return fail(OXML_E_SYNTAX, "white space expected before an attribute", p_);
        if (attribute_count_ == 0) {
            // The attributes passed by the shape come first in the duplicate check.
            for (std::size_t i = 0; i < matched; ++i) {
                const Shape::Entry& e = shape->entries[i];
                new_attribute(Name{e.text + 1, e.size - 3, e.hash, e.quote, e.id});
            }
        }
        if (!attribute())
            return false;
    }
}

bool Checker::end_tag()
{
    const unsigned char* lt = p_;
    const Name& top = open_.back();
    // The name due, as it stood in the start tag, needs no check of its own.
    if (static_cast<std::size_t>(end_ - p_) > top.length + 2 && p_[2 + top.length] == '>' &&
        same_bytes(p_ + 2, top.at, top.length)) {
        p_ += top.length + 3;
        open_.pop_back();
        if (tree_ != nullptr)
            record_end();
        return true;
    }
    p_ += 2;
    const unsigned char* start = p_;
    if (!name("an element name"))
        return false;
    const std::size_t length = static_cast<std::size_t>(p_ - start);
    skip_space();
    if (*p_ != '>')
        return fail(OXML_E_SYNTAX, "'>' expected to end the end tag", p_);
    if (top.length != length || std::memcmp(top.at, start, length) != 0)
        return fail(OXML_E_TAG_MISMATCH,
                    "the end tag </" + printable(start, length) + "> where </" + printable(top.at, top.length) +
                        "> was due",
                    lt);
    ++p_;
    open_.pop_back();
    if (tree_ != nullptr)
        record_end();
    return true;
}

namespace {

bool blank(const unsigned char* p, const unsigned char* end)
{
    for (; p < end; ++p)
        if (*p != ' ' && *p != '\t' && *p != '\n' && *p != '\r')
            return false;
    return true;
}

} // namespace

// Everything inside the root element, until it closes.
bool Checker::content()
{
    while (!open_.empty()) {
        const unsigned char* text_start = p_;
        if (!text())
            return false;
        if (tree_ != nullptr && p_ != text_start && !blank(text_start, p_))
            stop_recording();  // the tree holds no text
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

Checker::~Checker() = default;

bool is_xml_name(const char* utf8)
{
    if (utf8 == nullptr || *utf8 == '\0')
        return false;
    // Names of ASCII alone, the usual ones, need no decoding.
    if (scan::class_of(static_cast<unsigned char>(*utf8)) & scan::kNameStart) {
        const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8) + 1;
        while (scan::class_of(*p) & scan::kName)
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

#include "Ostrel/XML_TextWriter.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include <pugixml.hpp>

#include <vellument/Ostrel_XML.h>

#include "Ostrel/FileSystem_Stream.h"
#include "Ostrel/XML_Data.h"
#include "Ostrel/XML_ElementWriter.h"

namespace oxml {

namespace {

// Written out once this much has gathered; the open element's start always stays behind, so that
// it can be taken back.
constexpr std::size_t kFlushSize = std::size_t(1) << 18;

// Bytes that a quoted attribute value can't carry as they stand; '>' and '\'' stay.
struct Escapes {
    bool escaped[256] = {};
    Escapes() { escaped['&'] = escaped['<'] = escaped['"'] = true; }
};
const Escapes kEscapes;

// Whether a value may hold a byte that is no printable ASCII or that must be escaped. Eight bytes
// at a time: a byte below 0x20 or of 0x80 and more as in is_printable_ascii, a byte equal to one
// of the three escaped ones by the zero-byte test on the word xor that byte repeated (exact as to
// whether there is one, which is all that is asked).
bool needs_care(const char* p, std::size_t n)
{
    const std::uint64_t kOnes = 0x0101010101010101ull;
    const std::uint64_t kTops = 0x8080808080808080ull;
    const auto has_zero = [&](std::uint64_t v) { return (v - kOnes) & ~v & kTops; };
    std::uint64_t found = 0;
    for (; n >= 8; p += 8, n -= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        found |= ((word | (word - kOnes * 0x20)) & kTops) | has_zero(word ^ (kOnes * '&')) |
                 has_zero(word ^ (kOnes * '<')) | has_zero(word ^ (kOnes * '"'));
    }
    for (; n > 0; ++p, --n) {
        const unsigned char c = static_cast<unsigned char>(*p);
        found |= (c < 0x20 || c >= 0x80 || kEscapes.escaped[c]) ? 1 : 0;
    }
    return found != 0;
}

} // namespace

// Prints the tree's own elements into the writer's buffer.
struct TextWriter::TreePrinter : pugi::xml_writer {
    explicit TreePrinter(TextWriter& text) : text(text) {}
    void write(const void* data, std::size_t size) override { text.put(static_cast<const char*>(data), size); }
    TextWriter& text;
};

TextWriter::TextWriter(Ostrel::FileSystemDetail::FileStream& out) : out_(out)
{
    capacity_ = kFlushSize * 2;
    buffer_.reset(new char[capacity_]);
}

TextWriter::~TextWriter() = default;

char* TextWriter::room(std::size_t size)
{
    if (capacity_ - end_ < size) {
        // Only a value longer than the buffer itself gets here.
        const std::size_t capacity = std::max(capacity_ * 2, end_ + size);
        std::unique_ptr<char[]> larger(new char[capacity]);
        std::memcpy(larger.get(), buffer_.get(), end_);
        buffer_ = std::move(larger);
        capacity_ = capacity;
    }
    return buffer_.get() + end_;
}

void TextWriter::put(const char* text, std::size_t size)
{
    std::memcpy(room(size), text, size);
    end_ += size;
}

void TextWriter::start_child()
{
    if (open_.empty())
        return;
    Frame& parent = open_.back();
    if (!parent.has_children) {
        put(">\n", 2);
        parent.has_children = true;
    }
}

void TextWriter::flush_if_large()
{
    if (end_ < kFlushSize)
        return;
    out_.write(buffer_.get(), end_);
    end_ = 0;
}

void TextWriter::open(const char* name)
{
    start_child();
    flush_if_large();
    mark_ = end_;
    plain_ = true;
    const std::size_t depth = open_.size();
    const std::size_t length = std::strlen(name);
    char* p = room(depth + 1 + length);
    std::memset(p, '\t', depth);
    p[depth] = '<';
    std::memcpy(p + depth + 1, name, length);
    end_ += depth + 1 + length;
    open_.push_back(Frame{name, false});
}

void TextWriter::attribute(const char* name, const char* value, std::size_t size, bool escape)
{
    const std::size_t length = std::strlen(name);
    std::size_t extra = 0;
    if (escape) {
        for (std::size_t i = 0; i < size; ++i)
            extra += kEscapes.escaped[static_cast<unsigned char>(value[i])] ? 5 : 0;
    }
    char* p = room(length + size + extra + 4);
    *p++ = ' ';
    std::memcpy(p, name, length);
    p += length;
    *p++ = '=';
    *p++ = '"';
    if (extra == 0) {
        std::memcpy(p, value, size);
        p += size;
    } else {
        for (std::size_t i = 0; i < size; ++i) {
            const char c = value[i];
            if (!kEscapes.escaped[static_cast<unsigned char>(c)]) {
                *p++ = c;
                continue;
            }
            const char* entity = c == '&' ? "&amp;" : c == '<' ? "&lt;" : "&quot;";
            const std::size_t n = std::strlen(entity);
            std::memcpy(p, entity, n);
            p += n;
        }
    }
    *p++ = '"';
    end_ = static_cast<std::size_t>(p - buffer_.get());
}

void TextWriter::text(const char* name, const char* value)
{
    if (value == nullptr)
        value = "";
    text(name, value, std::strlen(value));
}

void TextWriter::text(const char* name, const char* value, std::size_t size)
{
    if (!plain_)
        return;
    const bool care = needs_care(value, size);
    if (care && !is_printable_ascii(value, size)) {
        plain_ = false;
        return;
    }
    attribute(name, value, size, care);
}

void TextWriter::number(const char* name, int value)
{
    if (!plain_)
        return;
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
    attribute(name, digits, static_cast<std::size_t>(end.ptr - digits), false);
}

void TextWriter::flag(const char* name, bool value)
{
    if (!plain_)
        return;
    const bool set = stored_flag(value);
    attribute(name, set ? "true" : "false", set ? 4 : 5, false);
}

void TextWriter::cancel()
{
    if (open_.empty())
        return;
    end_ = mark_;
    open_.pop_back();
    plain_ = true;
}

void TextWriter::close()
{
    if (open_.empty())
        return;
    const Frame frame = open_.back();
    open_.pop_back();
    if (!frame.has_children) {
        put(" />\n", 4);
        return;
    }
    const std::size_t depth = open_.size();
    const std::size_t length = std::strlen(frame.name);
    char* p = room(depth + length + 4);
    std::memset(p, '\t', depth);
    p += depth;
    *p++ = '<';
    *p++ = '/';
    std::memcpy(p, frame.name, length);
    p += length;
    *p++ = '>';
    *p++ = '\n';
    end_ += depth + length + 4;
}

void TextWriter::element(const COXMLNode* element)
{
    const pugi::xml_node node = element != nullptr ? COXMLDocumentData::node_of(element) : pugi::xml_node();
    if (!node)
        return;
    start_child();
    flush_if_large();
    TreePrinter printer(*this);
    node.print(printer, "\t", pugi::format_indent, pugi::encoding_utf8, static_cast<unsigned>(open_.size()));
}

COXMLDocument* TextWriter::scratch()
{
    if (!scratch_)
        scratch_.reset(COXMLDocument::createDocument());
    return scratch_.get();
}

COXMLNode* TextWriter::next_ready()
{
    return next_ready_ < ready_.size() ? ready_[next_ready_++] : nullptr;
}

void TextWriter::finish()
{
    out_.write(buffer_.get(), end_);
    end_ = 0;
}

} // namespace oxml

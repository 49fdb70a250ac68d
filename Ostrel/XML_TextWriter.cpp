#include "Ostrel/XML_TextWriter.h"

#include <charconv>
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

struct BufferWriter : pugi::xml_writer {
    explicit BufferWriter(std::string& buffer) : buffer(buffer) {}
    void write(const void* data, std::size_t size) override
    {
        buffer.append(static_cast<const char*>(data), size);
    }
    std::string& buffer;
};

} // namespace

TextWriter::TextWriter(Ostrel::FileSystemDetail::FileStream& out) : out_(out)
{
    buffer_.reserve(kFlushSize * 2);
}

TextWriter::~TextWriter() = default;

void TextWriter::indent(std::size_t depth)
{
    buffer_.append(depth, '\t');
}

void TextWriter::start_child()
{
    if (open_.empty())
        return;
    Frame& parent = open_.back();
    if (!parent.has_children) {
        buffer_.append(">\n", 2);
        parent.has_children = true;
    }
}

void TextWriter::flush_if_large()
{
    if (buffer_.size() < kFlushSize)
        return;
    out_.write(buffer_.data(), buffer_.size());
    buffer_.clear();
}

void TextWriter::open(const char* name)
{
    start_child();
    flush_if_large();
    mark_ = buffer_.size();
    plain_ = true;
    indent(open_.size());
    buffer_ += '<';
    buffer_.append(name);
    open_.push_back(Frame{name, false});
}

void TextWriter::attribute(const char* name, const char* value, std::size_t size)
{
    buffer_ += ' ';
    buffer_.append(name);
    buffer_.append("=\"", 2);
    // The printer's escapes in a quoted attribute: '&', '<' and '"'; '>' and '\'' stay.
    const char* end = value + size;
    while (value < end) {
        const char* run = value;
        while (run < end && *run != '&' && *run != '<' && *run != '"')
            ++run;
        buffer_.append(value, static_cast<std::size_t>(run - value));
        if (run == end)
            break;
        switch (*run) {
        case '&':
            buffer_.append("&amp;", 5);
            break;
        case '<':
            buffer_.append("&lt;", 4);
            break;
        default:
            buffer_.append("&quot;", 6);
            break;
        }
        value = run + 1;
    }
    buffer_ += '"';
}

void TextWriter::text(const char* name, const char* value)
{
    if (!plain_)
        return;
    if (value == nullptr)
        value = "";
    const std::size_t size = std::strlen(value);
    if (!is_printable_ascii(value, size)) {
        plain_ = false;
        return;
    }
    attribute(name, value, size);
}

void TextWriter::number(const char* name, int value)
{
    if (!plain_)
        return;
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
    attribute(name, digits, static_cast<std::size_t>(end.ptr - digits));
}

void TextWriter::flag(const char* name, bool value)
{
    if (!plain_)
        return;
    const bool set = stored_flag(value);
    attribute(name, set ? "true" : "false", set ? 4 : 5);
}

void TextWriter::cancel()
{
    if (open_.empty())
        return;
    buffer_.resize(mark_);
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
        buffer_.append(" />\n", 4);
        return;
    }
    indent(open_.size());
    buffer_.append("</", 2);
    buffer_.append(frame.name);
    buffer_.append(">\n", 2);
}

void TextWriter::element(const COXMLNode* element)
{
    const pugi::xml_node node = element != nullptr ? COXMLDocumentData::node_of(element) : pugi::xml_node();
    if (!node)
        return;
    start_child();
    flush_if_large();
    BufferWriter writer(buffer_);
    node.print(writer, "\t", pugi::format_indent, pugi::encoding_utf8, static_cast<unsigned>(open_.size()));
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
    out_.write(buffer_.data(), buffer_.size());
    buffer_.clear();
}

} // namespace oxml

#include <vellument/Ostrel_XML.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <new>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/FileSystem_Stream.h"
#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_Build.h"
#include "Ostrel/XML_Data.h"
#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_TextWriter.h"
#include "Ostrel/XML_WellFormed.h"
#include "toolkit/CkXmlDocument.h"

using oxml::InText;

namespace {

// Larger files are refused rather than read into memory.
const std::size_t kMaxFileSize = std::size_t(1) << 30;

// Deeper trees are saved without indentation: indenting costs depth squared in tabs.
const unsigned kMaxIndentDepth = 100;

// How long a declaration we look into for its encoding.
const std::size_t kMaxDeclarationLength = 1024;

// Codes of failures that are not system errors.
const int kCodeInvalidArgument = static_cast<int>(Ostrel::Error::INVALID_PARAMETER);

void copy_text(char* buffer, int size, const std::string& text)
{
    if (buffer == nullptr || size <= 0)
        return;
    std::size_t n = text.size();
    if (n > static_cast<std::size_t>(size - 1))
        n = static_cast<std::size_t>(size - 1);
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
}

void report(int* code_out, char* text_out, int text_size, int code, const std::string& text)
{
    if (code_out != nullptr)
        *code_out = code;
    copy_text(text_out, text_size, text);
}

// The parser's text goes straight to the file as it is printed: no copy of the whole document.
struct StreamWriter : pugi::xml_writer {
    explicit StreamWriter(Ostrel::FileSystemDetail::FileStream& stream) : stream(stream) {}
    void write(const void* data, std::size_t size) override { stream.write(data, size); }
    Ostrel::FileSystemDetail::FileStream& stream;
};

bool equals_no_case(const std::string& a, const char* b)
{
    return Ostrel::Format::EqualsNoCaseAscii(a, b);
}

// The encoding named by an XML declaration at the very start of the bytes, or "".
std::string declared_encoding(const std::string& bytes)
{
    if (bytes.compare(0, 5, "<?xml") != 0)
        return std::string();
    std::size_t end = bytes.find("?>", 5);
    if (end == std::string::npos || end > kMaxDeclarationLength)
        return std::string();
    std::size_t pos = bytes.find("encoding", 5);
    if (pos == std::string::npos || pos > end)
        return std::string();
    pos += 8;
    auto skip_blanks = [&]() {
        while (pos < end && (bytes[pos] == ' ' || bytes[pos] == '\t' || bytes[pos] == '\r' || bytes[pos] == '\n'))
            ++pos;
    };
    skip_blanks();
    if (pos >= end || bytes[pos] != '=')
        return std::string();
    ++pos;
    skip_blanks();
    if (pos >= end || (bytes[pos] != '"' && bytes[pos] != '\''))
        return std::string();
    char quote = bytes[pos++];
    std::size_t close = bytes.find(quote, pos);
    if (close == std::string::npos || close > end)
        return std::string();
    return bytes.substr(pos, close - pos);
}

bool is_ansi_encoding(const std::string& name)
{
    static const char* const names[] = {"windows-1252", "cp1252", "iso-8859-1", "latin1", "iso_8859-1", "us-ascii"};
    for (const char* n : names)
        if (equals_no_case(name, n))
            return true;
    return false;
}

// Bytes in UTF-16 or UTF-32 (told by a byte order mark or by the zero bytes of "<?" at the start)
// to UTF-8 in out. False, with a message, when the bytes are no such text. Bytes that are neither
// are left alone and the result is true with out empty.
bool wide_to_utf8(const std::string& bytes, std::string& out, oxml::WellFormedResult& result)
{
    out.clear();
    const unsigned char* b = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t n = bytes.size();
    auto starts = [&](std::initializer_list<int> pattern) {
        if (n < pattern.size())
            return false;
        std::size_t i = 0;
        for (int v : pattern) {
            if (v >= 0 && b[i] != v)
                return false;
            ++i;
        }
        return true;
    };
    int unit = 0;  // 2 or 4 bytes
    bool big = false;
    std::size_t skip = 0;
    if (starts({0, 0, 0xFE, 0xFF})) {
        unit = 4, big = true, skip = 4;
    } else if (starts({0xFF, 0xFE, 0, 0})) {
        unit = 4, skip = 4;
    } else if (starts({0xFE, 0xFF})) {
        unit = 2, big = true, skip = 2;
    } else if (starts({0xFF, 0xFE})) {
        unit = 2, skip = 2;
    } else if (starts({0, 0, 0, '<'})) {
        unit = 4, big = true;
    } else if (starts({'<', 0, 0, 0})) {
        unit = 4;
    } else if (starts({0, '<', 0, -1})) {
        unit = 2, big = true;
    } else if (starts({'<', 0, -1, 0})) {
        unit = 2;
    } else {
        return true;
    }
    auto bad = [&](std::size_t at) {
        result.code = OXML_E_ENCODING;
        result.message = std::string(unit == 2 ? "bytes that are not UTF-16" : "bytes that are not UTF-32") +
                         " at offset " + std::to_string(at);
        out.clear();
        return false;
    };
    if ((n - skip) % static_cast<std::size_t>(unit) != 0)
        return bad(n - (n - skip) % static_cast<std::size_t>(unit));
    out.reserve((n - skip) / static_cast<std::size_t>(unit) * 3 / 2);
    auto read = [&](std::size_t i) -> std::uint32_t {
        if (unit == 2)
            return big ? (std::uint32_t(b[i]) << 8 | b[i + 1]) : (std::uint32_t(b[i + 1]) << 8 | b[i]);
        return big ? (std::uint32_t(b[i]) << 24 | std::uint32_t(b[i + 1]) << 16 | std::uint32_t(b[i + 2]) << 8 | b[i + 3])
                   : (std::uint32_t(b[i + 3]) << 24 | std::uint32_t(b[i + 2]) << 16 | std::uint32_t(b[i + 1]) << 8 | b[i]);
    };
    for (std::size_t i = skip; i < n; i += static_cast<std::size_t>(unit)) {
        std::uint32_t c = read(i);
        if (c >= 0xD800 && c <= 0xDBFF && unit == 2) {
            if (i + 2 >= n)
                return bad(i);
            const std::uint32_t low = read(i + 2);
            if (low < 0xDC00 || low > 0xDFFF)
                return bad(i);
            c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        } else if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
            return bad(i);
        }
        Ostrel::Format::AppendUtf8(out, static_cast<char32_t>(c));
    }
    return true;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Documents

COXMLDocument::COXMLDocument(COXMLDocumentData* data)
    : COXMLNode(data, data->doc.internal_object(), false), data_(data)
{
    data->self = this;
}

COXMLDocument::~COXMLDocument()
{
    delete data_;
}

COXMLDocument* COXMLDocument::createDocument()
{
    return new COXMLDocument(new COXMLDocumentData);
}

COXMLDocument* COXMLDocument::createNewDocument(CkXml* root)
{
    // The toolkit tree becomes a document of its own; the handle is consumed either way.
    return ckxml_to_document(root);
}

namespace {

// Parses UTF-8 bytes that passed the check into the data of an empty document; false on failure.
// The bytes are kept: the tree points into them.
bool parse_checked(std::string bytes, const oxml::WellFormedResult& check, COXMLDocumentData& data,
                   int* errorCode, char* errorText, int errorTextSize)
{
    // The parser does only the work that the text calls for: the same tree comes out, sooner.
    unsigned flags = pugi::parse_minimal;
    if (check.cdata)
        flags |= pugi::parse_cdata;
    if (check.references)
        flags |= pugi::parse_escapes;
    if (check.carriage_returns)
        flags |= pugi::parse_eol;
    if (check.attribute_white_space)
        flags |= pugi::parse_wconv_attribute;
    data.source = std::move(bytes);
    pugi::xml_parse_result result =
        data.doc.load_buffer_inplace(&data.source[0], data.source.size(), flags, pugi::encoding_utf8);
    if (!result || !data.root()) {
        // Not expected after the check; said as well as the parser can.
        report(errorCode, errorText, errorTextSize, OXML_E_SYNTAX,
               std::string(result.description()) + " at offset " + std::to_string(result.offset));
        return false;
    }
    data.all_ascii = check.ascii;
    data.namespaces = check.namespaces;
    return true;
}

// Checks UTF-8 bytes for well-formedness and parses them into the data of a new document, or
// null on failure.
std::unique_ptr<COXMLDocumentData> parse_document(std::string bytes, int* errorCode, char* errorText,
                                                  int errorTextSize)
{
    oxml::WellFormedResult check;
    if (!oxml::check_well_formed(bytes.data(), bytes.size(), check)) {
        report(errorCode, errorText, errorTextSize, check.code, check.message);
        return nullptr;
    }
    std::unique_ptr<COXMLDocumentData> data(new COXMLDocumentData);
    if (!parse_checked(std::move(bytes), check, *data, errorCode, errorText, errorTextSize))
        return nullptr;
    return data;
}

// The bytes of a file as UTF-8: a byte order mark dropped, UTF-16, UTF-32 and the code page
// converted. False, with the failure reported, when the file can't be read or converted.
bool read_utf8_file(const char* path, std::string& bytes, int* errorCode, char* errorText, int errorTextSize)
{
    if (!Ostrel::FileSystem::ReadFile(path, bytes, kMaxFileSize)) {
        unsigned long error = Ostrel::Error::GetLastError();
        if (error == Ostrel::Error::FILE_NOT_FOUND || error == Ostrel::Error::PATH_NOT_FOUND) {
            Ostrel::Error::SetLastError(Ostrel::Error::FILE_NOT_FOUND);
            report(errorCode, errorText, errorTextSize, static_cast<int>(Ostrel::Error::FILE_NOT_FOUND),
                   std::string("File not found: ") + path);
        } else {
            if (error == Ostrel::Error::SUCCESS)
                error = Ostrel::Error::READ_FAULT;
            report(errorCode, errorText, errorTextSize, static_cast<int>(error),
                   std::string("Error reading file ") + path + ": " + Ostrel::Error::GetErrorText(error));
        }
        return false;
    }
    if (bytes.size() >= 3 && std::memcmp(bytes.data(), "\xEF\xBB\xBF", 3) == 0) {
        bytes.erase(0, 3);
    } else {
        oxml::WellFormedResult wide;
        std::string utf8;
        if (!wide_to_utf8(bytes, utf8, wide)) {
            report(errorCode, errorText, errorTextSize, wide.code, wide.message);
            return false;
        }
        if (!utf8.empty())
            bytes.swap(utf8);
        else if (is_ansi_encoding(declared_encoding(bytes)))
            // Files written on Windows may be in the code page; the tree holds UTF-8.
            bytes = Ostrel::Format::AnsiToUtf8(bytes);
    }
    return true;
}

} // namespace

COXMLDocument* COXMLDocument::load(const char* path, int* errorCode, char* errorText, int errorTextSize)
{
    if (path == nullptr) {
        report(errorCode, errorText, errorTextSize, kCodeInvalidArgument, "No file name given");
        return nullptr;
    }
    try {
        std::string bytes;
        if (!read_utf8_file(path, bytes, errorCode, errorText, errorTextSize))
            return nullptr;
        std::unique_ptr<COXMLDocumentData> data = parse_document(std::move(bytes), errorCode, errorText, errorTextSize);
        return data ? new COXMLDocument(data.release()) : nullptr;
    } catch (const std::bad_alloc&) {
        report(errorCode, errorText, errorTextSize, static_cast<int>(Ostrel::Error::NOT_ENOUGH_MEMORY),
               std::string("Out of memory loading ") + path);
    }
    return nullptr;
}

COXMLDocument* oxml::load_for_reading(const char* path, int* errorCode, char* errorText, int errorTextSize)
{
    if (path == nullptr)
        return COXMLDocument::load(path, errorCode, errorText, errorTextSize);
    try {
        std::string bytes;
        if (!read_utf8_file(path, bytes, errorCode, errorText, errorTextSize))
            return nullptr;
        std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
        COXMLDocumentData& data = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document.get()));
        std::unique_ptr<oxml::CompactTree> tree(new oxml::CompactTree);
        // The check and the tree in one pass; text that the tree doesn't keep goes to the parser.
        oxml::WellFormedResult check;
        switch (tree->build(bytes, check)) {
        case oxml::CompactTree::kBuilt:
            data.all_ascii = check.ascii;
            data.adopt(std::move(tree));
            break;
        case oxml::CompactTree::kNotHeld:
            if (!parse_checked(std::move(bytes), check, data, errorCode, errorText, errorTextSize))
                return nullptr;
            break;
        case oxml::CompactTree::kFailed:
            report(errorCode, errorText, errorTextSize, check.code, check.message);
            return nullptr;
        }
        return document.release();
    } catch (const std::bad_alloc&) {
        report(errorCode, errorText, errorTextSize, static_cast<int>(Ostrel::Error::NOT_ENOUGH_MEMORY),
               std::string("Out of memory loading ") + path);
    }
    return nullptr;
}

COXMLDocument* COXMLDocument::loadXML(const char* text, int* errorCode, char* errorText, int errorTextSize)
{
    if (text == nullptr) {
        report(errorCode, errorText, errorTextSize, kCodeInvalidArgument, "No XML text given");
        return nullptr;
    }
    try {
        std::size_t length = std::strlen(text);
        std::string bytes;
        if (length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) {
            // A byte order mark says UTF-8 whatever the interface's code page.
            bytes.assign(text + 3, length - 3);
        } else {
            // Text in memory comes in the code page like all text of this interface; a
            // declaration inside it names the encoding it had before it was handed over.
            bytes = Ostrel::Format::AnsiToUtf8(text, length);
        }
        std::unique_ptr<COXMLDocumentData> data = parse_document(std::move(bytes), errorCode, errorText, errorTextSize);
        return data ? new COXMLDocument(data.release()) : nullptr;
    } catch (const std::bad_alloc&) {
        report(errorCode, errorText, errorTextSize, static_cast<int>(Ostrel::Error::NOT_ENOUGH_MEMORY),
               "Out of memory parsing XML text");
    }
    return nullptr;
}

namespace {

int out_of_memory(COXMLDocumentData& d, const char* path)
{
    d.set_error(static_cast<int>(Ostrel::Error::NOT_ENOUGH_MEMORY),
                std::string("Error writing file ") + path + ": out of memory");
    return 0;
}

// Replaces the file with what `print` writes: 1, or 0 with the error kept on the document.
int write_document_file(COXMLDocumentData& d, const char* path,
                        const std::function<bool(Ostrel::FileSystemDetail::FileStream&)>& print)
{
    if (Ostrel::FileSystemDetail::WriteFileAtomicStreamed(path, print))
        return 1;
    unsigned long error = Ostrel::Error::GetLastError();
    if (error == Ostrel::Error::SUCCESS)
        error = Ostrel::Error::WRITE_FAULT;
    d.set_error(static_cast<int>(error),
                std::string("Error writing file ") + path + ": " + Ostrel::Error::GetErrorText(error));
    VLOG(2, "[OstrelXML] %s\n", d.error_text.c_str());
    return 0;
}

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

} // namespace

int COXMLDocument::save(const char* path) const
{
    COXMLDocumentData& d = *data_;
    if (path == nullptr) {
        d.set_error(kCodeInvalidArgument, "No file name given");
        return 0;
    }
    if (!d.root()) {
        // A file without a root element would not load again.
        d.set_error(static_cast<int>(pugi::status_no_document_element),
                    std::string("Error writing file ") + path + ": the document has no root element");
        VLOG(2, "[OstrelXML] %s\n", d.error_text.c_str());
        return 0;
    }
    try {
        // Indentation grows with depth squared; a pathologically deep tree is written flat.
        unsigned depth = 0;
        unsigned max_depth = 0;
        pugi::xml_node start = d.doc;
        pugi::xml_node n = start.first_child();
        while (n && max_depth <= kMaxIndentDepth) {
            // Each step asks the parser once: the walk touches every element of a large tree.
            const pugi::xml_node child = n != d.holder ? n.first_child() : pugi::xml_node();
            if (child) {
                n = child;
                if (++depth > max_depth)
                    max_depth = depth;
                continue;
            }
            pugi::xml_node next = n.next_sibling();
            while (!next && n != start) {
                n = n.parent();
                --depth;
                if (n != start)
                    next = n.next_sibling();
            }
            n = next;
        }
        unsigned flags = max_depth > kMaxIndentDepth ? pugi::format_raw : pugi::format_indent;

        auto print = [&d, flags](Ostrel::FileSystemDetail::FileStream& stream) {
            stream.write(kDeclaration, sizeof kDeclaration - 1);
            StreamWriter writer(stream);
            for (pugi::xml_node c = d.doc.first_child(); c; c = c.next_sibling()) {
                if (c == d.holder || c.type() == pugi::node_declaration)
                    continue;
                c.print(writer, "\t", flags, pugi::encoding_utf8, 0);
            }
            if (flags == pugi::format_raw)
                stream.write("\n", 1);
            return true;
        };
        return write_document_file(d, path, print);
    } catch (const std::bad_alloc&) {
        return out_of_memory(d, path);
    }
}

void COXMLDocument::getXMLError(int* errorCode, char* errorText, int errorTextSize) const
{
    report(errorCode, errorText, errorTextSize, data_->error_code, data_->error_text);
}

void COXMLDocument::clearXMLError() const
{
    data_->error_code = 0;
    data_->error_text.clear();
}

COXMLNode* COXMLDocument::createElement(const char* name)
{
    InText uname(name);
    if (name == nullptr || !oxml::is_xml_name(uname.c_str())) {
        VLOG(2, "[OstrelXML] createElement: \"%s\" is not an XML name\n", name ? name : "(null)");
        return nullptr;
    }
    if (!uname.ascii())
        data_->all_ascii = false;
    pugi::xml_node element = data_->pending_holder().append_child(uname.c_str());
    return element ? data_->new_element_node(element.internal_object()) : nullptr;
}

COXMLNode* COXMLDocument::getDocumentElement()
{
    if (data_->compact)
        return data_->compact_elements.at(0);
    return data_->wrap(data_->root());
}

// ---------------------------------------------------------------------------------------------
// Building a document from outside text

namespace oxml {

TreeBuilder::TreeBuilder() : document_(COXMLDocument::createDocument()), current_(nullptr) {}

TreeBuilder::~TreeBuilder() = default;

void TreeBuilder::open(const char* name)
{
    COXMLDocumentData& d = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document_.get()));
    pugi::xml_node parent = current_ != nullptr ? pugi::xml_node(static_cast<pugi::xml_node_struct*>(current_)) : d.doc;
    if (current_ == nullptr && d.root())
        return;  // one root only
    current_ = parent.append_child(name).internal_object();
}

void TreeBuilder::attribute(const std::string& name, const std::string& value)
{
    if (current_ == nullptr)
        return;
    COXMLDocumentData& d = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document_.get()));
    pugi::xml_node n(static_cast<pugi::xml_node_struct*>(current_));
    if (name.compare(0, 5, "xmlns") == 0)
        d.namespaces = true;
    pugi::xml_attribute a = d.attribute_for_writing(n, name.c_str());
    a.set_value(value.c_str());
}

void TreeBuilder::append_attribute(const char* name, const char* value, std::size_t value_size)
{
    if (current_ == nullptr)
        return;
    COXMLDocumentData& d = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document_.get()));
    if (name[0] == 'x' && std::strncmp(name, "xmlns", 5) == 0)
        d.namespaces = true;
    d.append_attribute(pugi::xml_node(static_cast<pugi::xml_node_struct*>(current_)), name)
        .set_value(value, value_size);
}

void TreeBuilder::text(const std::string& utf8)
{
    if (current_ == nullptr || utf8.find_first_not_of(" \t\r\n") == std::string::npos)
        return;
    pugi::xml_node n(static_cast<pugi::xml_node_struct*>(current_));
    pugi::xml_node last = n.last_child();
    if (last && last.type() == pugi::node_pcdata)
        last.set_value((std::string(last.value()) + utf8).c_str());
    else
        n.append_child(pugi::node_pcdata).set_value(utf8.c_str());
}

void TreeBuilder::close()
{
    if (current_ == nullptr)
        return;
    pugi::xml_node parent = pugi::xml_node(static_cast<pugi::xml_node_struct*>(current_)).parent();
    current_ = parent.type() == pugi::node_element ? parent.internal_object() : nullptr;
}

COXMLDocument* TreeBuilder::finish()
{
    if (!document_ || !COXMLDocumentData::of(document_.get())->root())
        return nullptr;
    current_ = nullptr;
    return document_.release();
}

} // namespace oxml

int oxml::save_text(COXMLDocument* document, const char* path, const std::function<void(TextWriter&)>& body)
{
    COXMLDocumentData& d = *const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document));
    if (path == nullptr) {
        d.set_error(kCodeInvalidArgument, "No file name given");
        return 0;
    }
    try {
        auto print = [&body](Ostrel::FileSystemDetail::FileStream& stream) {
            stream.write(kDeclaration, sizeof kDeclaration - 1);
            TextWriter writer(stream);
            body(writer);
            writer.finish();
            return true;
        };
        return write_document_file(d, path, print);
    } catch (const std::bad_alloc&) {
        return out_of_memory(d, path);
    }
}

#include <vellument/Ostrel_IniFile.h>

#include <cstring>
#include <memory>
#include <unordered_set>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/LogMacros.h"

namespace Ostrel {
namespace Profile {

namespace {

// Settings files are a few kilobytes; anything far larger is not one of ours and is refused
// rather than read into memory.
constexpr std::size_t kMaxFileSize = 64u << 20;

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// Upper case in Windows-1252, as the system compares profile names.
unsigned char fold(unsigned char c)
{
    if (c >= 'a' && c <= 'z')
        return static_cast<unsigned char>(c - 0x20);
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7)
        return static_cast<unsigned char>(c - 0x20);
    switch (c) {
    case 0x9A: return 0x8A;  // s caron
    case 0x9C: return 0x8C;  // oe
    case 0x9E: return 0x8E;  // z caron
    case 0xFF: return 0x9F;  // y diaeresis
    default: return c;
    }
}

bool same_name(const char* a, std::size_t a_length, const std::string& b)
{
    if (a_length != b.size())
        return false;
    for (std::size_t i = 0; i < a_length; ++i) {
        if (fold(static_cast<unsigned char>(a[i])) != fold(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

std::string folded(const char* text, std::size_t length)
{
    std::string out(text, length);
    for (char& c : out)
        c = static_cast<char>(fold(static_cast<unsigned char>(c)));
    return out;
}

std::string trimmed(const char* text)
{
    if (text == nullptr)
        return std::string();
    const char* begin = text;
    const char* end = text + std::strlen(text);
    while (begin < end && is_blank(*begin))
        ++begin;
    while (end > begin && is_blank(end[-1]))
        --end;
    return std::string(begin, end);
}

// One line of a settings file, as offsets into its text.
struct Line {
    enum Kind { blank, comment, section, entry, other };
    Kind kind = blank;
    std::size_t begin = 0;        // first byte of the line
    std::size_t content_end = 0;  // end of the line without its line end
    std::size_t next = 0;         // first byte of the following line
    bool has_eol = false;
    std::size_t name_begin = 0, name_end = 0;    // section or key name, trimmed
    std::size_t value_begin = 0, value_end = 0;  // value of an entry, trimmed
};

// Walks the lines of a text. Lines end in LF, with an optional CR before it; a NUL ends what a
// line says, as it would for the system's string handling.
class LineReader {
public:
    explicit LineReader(const std::string& text) : text_(text)
    {
        // A UTF-8 byte order mark is not part of the first line.
        if (text_.size() >= 3 && std::memcmp(text_.data(), "\xEF\xBB\xBF", 3) == 0)
            pos_ = 3;
    }

    std::size_t position() const { return pos_; }

    bool next(Line& line)
    {
        const std::size_t size = text_.size();
        if (pos_ >= size)
            return false;
        const char* data = text_.data();
        line = Line();
        line.begin = pos_;
        const void* nl = std::memchr(data + pos_, '\n', size - pos_);
        if (nl != nullptr) {
            const std::size_t at = static_cast<std::size_t>(static_cast<const char*>(nl) - data);
            line.next = at + 1;
            line.has_eol = true;
            line.content_end = (at > pos_ && data[at - 1] == '\r') ? at - 1 : at;
        } else {
            line.next = size;
            line.content_end = size;
        }
        pos_ = line.next;

        std::size_t end = line.content_end;
        if (const void* nul = std::memchr(data + line.begin, '\0', end - line.begin))
            end = static_cast<std::size_t>(static_cast<const char*>(nul) - data);
        std::size_t s = line.begin;
        while (s < end && is_blank(data[s]))
            ++s;
        while (end > s && is_blank(data[end - 1]))
            --end;
        if (s == end) {
            line.kind = Line::blank;
        } else if (data[s] == ';') {
            line.kind = Line::comment;
        } else if (data[s] == '[') {
            line.kind = Line::section;
            std::size_t name_end = end;
            if (const void* close = std::memchr(data + s + 1, ']', end - s - 1))
                name_end = static_cast<std::size_t>(static_cast<const char*>(close) - data);
            trim(s + 1, name_end, line.name_begin, line.name_end);
        } else if (const void* eq = std::memchr(data + s, '=', end - s)) {
            const std::size_t at = static_cast<std::size_t>(static_cast<const char*>(eq) - data);
            line.kind = Line::entry;
            trim(s, at, line.name_begin, line.name_end);
            trim(at + 1, end, line.value_begin, line.value_end);
        } else {
            line.kind = Line::other;
        }
        return true;
    }

private:
    void trim(std::size_t begin, std::size_t end, std::size_t& out_begin, std::size_t& out_end) const
    {
        while (begin < end && is_blank(text_[begin]))
            ++begin;
        while (end > begin && is_blank(text_[end - 1]))
            --end;
        out_begin = begin;
        out_end = end;
    }

    const std::string& text_;
    std::size_t pos_ = 0;
};

bool name_is(const std::string& text, const Line& line, const std::string& name)
{
    return same_name(text.data() + line.name_begin, line.name_end - line.name_begin, name);
}

enum class Load { ok, missing, failed };

// Reads a whole settings file. A file or directory that isn't there is "missing"; anything
// else that stops the read is a failure, with the last error left as the file layer set it.
Load load(const char* path, std::string& text)
{
    text.clear();
    if (FileSystem::ReadFile(path, text, kMaxFileSize))
        return Load::ok;
    text.clear();
    const unsigned long err = Error::GetLastError();
    if (err == Error::FILE_NOT_FOUND || err == Error::PATH_NOT_FOUND)
        return Load::missing;
    if (err == Error::SUCCESS)
        Error::SetLastError(Error::READ_FAULT);
    return Load::failed;
}

// Copies a list of NUL-ended names and ends it with a second NUL, as far as the buffer holds.
unsigned long copy_list(const std::string& list, char* buffer, unsigned long size)
{
    if (list.size() + 1 <= size) {
        std::memcpy(buffer, list.data(), list.size());
        buffer[list.size()] = '\0';
        if (list.empty() && size >= 2)
            buffer[1] = '\0';
        return static_cast<unsigned long>(list.size());
    }
    if (size < 2) {
        buffer[0] = '\0';
        return 0;
    }
    std::memcpy(buffer, list.data(), size - 2);
    buffer[size - 2] = '\0';
    buffer[size - 1] = '\0';
    return size - 2;
}

unsigned long copy_text(const char* text, std::size_t length, char* buffer, unsigned long size)
{
    const std::size_t n = length < size - 1 ? length : size - 1;
    std::memcpy(buffer, text, n);
    buffer[n] = '\0';
    return static_cast<unsigned long>(n);
}

unsigned long copy_default(const char* default_value, char* buffer, unsigned long size)
{
    std::size_t length = default_value != nullptr ? std::strlen(default_value) : 0;
    while (length > 0 && is_blank(default_value[length - 1]))
        --length;
    return copy_text(default_value != nullptr ? default_value : "", length, buffer, size);
}

// The names of the sections (section null) or of the keys of a section, each once, in file order.
// Stops once the list can't fit the buffer, so that a hostile file costs no more than the buffer.
std::string list_names(const std::string& text, const char* section, unsigned long size)
{
    const std::string wanted = section != nullptr ? trimmed(section) : std::string();
    std::string list;
    std::unordered_set<std::string> seen;
    LineReader reader(text);
    Line line;
    bool in_section = false;
    while (list.size() < size && reader.next(line)) {
        if (line.kind == Line::section) {
            in_section = section != nullptr && name_is(text, line, wanted);
            if (section != nullptr)
                continue;
        } else if (section == nullptr || !in_section || line.kind != Line::entry) {
            continue;
        }
        const char* name = text.data() + line.name_begin;
        const std::size_t length = line.name_end - line.name_begin;
        if (seen.insert(folded(name, length)).second) {
            list.append(name, length);
            list.push_back('\0');
        }
    }
    return list;
}

bool has_line_break(const std::string& text)
{
    return text.find_first_of("\r\n") != std::string::npos;
}

// The line end that new lines of this text get: the one the file already uses, CRLF for a new file.
const char* line_end_of(const std::string& text)
{
    const std::size_t nl = text.find('\n');
    if (nl == std::string::npos)
        return "\r\n";
    return (nl > 0 && text[nl - 1] == '\r') ? "\r\n" : "\n";
}

// The text with `key` set to `value` in `section`.
std::string with_value(const std::string& text, const std::string& section, const std::string& key,
                       const std::string& value)
{
    const char* eol = line_end_of(text);
    LineReader reader(text);
    Line line;
    bool in_section = false;
    bool section_found = false;
    bool in_first_section = false;
    std::size_t insert_at = 0;
    bool insert_needs_eol = false;
    while (reader.next(line)) {
        if (line.kind == Line::section) {
            in_section = name_is(text, line, section);
            in_first_section = in_section && !section_found;
            if (in_first_section) {
                section_found = true;
                insert_at = line.next;
                insert_needs_eol = !line.has_eol;
            }
            continue;
        }
        if (in_section && line.kind == Line::entry && name_is(text, line, key)) {
            // Replaced in place, keeping the spelling of the key already in the file.
            std::string out;
            out.reserve(text.size() + value.size() + 1);
            out.append(text, 0, line.begin);
            out.append(text, line.name_begin, line.name_end - line.name_begin);
            out.push_back('=');
            out.append(value);
            out.append(text, line.content_end, std::string::npos);
            return out;
        }
        if (in_first_section && line.kind != Line::blank) {
            insert_at = line.next;
            insert_needs_eol = !line.has_eol;
        }
    }

    std::string out;
    out.reserve(text.size() + section.size() + key.size() + value.size() + 10);
    if (section_found) {
        out.append(text, 0, insert_at);
        if (insert_needs_eol)
            out.append(eol);
        out.append(key).append("=").append(value).append(eol);
        out.append(text, insert_at, std::string::npos);
        return out;
    }
    out = text;
    if (!out.empty() && out.back() != '\n')
        out.append(eol);
    out.append("[").append(section).append("]").append(eol);
    out.append(key).append("=").append(value).append(eol);
    return out;
}

// The text without `key` in `section`, or without the whole section when key is null.
std::string without(const std::string& text, const std::string& section, const std::string* key)
{
    std::string out;
    out.reserve(text.size());
    LineReader reader(text);
    out.append(text, 0, reader.position());
    Line line;
    bool in_section = false;
    while (reader.next(line)) {
        if (line.kind == Line::section)
            in_section = name_is(text, line, section);
        bool drop;
        if (key == nullptr)
            drop = in_section;
        else
            drop = in_section && line.kind == Line::entry && name_is(text, line, *key);
        if (!drop)
            out.append(text, line.begin, line.next - line.begin);
    }
    return out;
}

} // namespace

unsigned long GetPrivateProfileStringA(const char* section, const char* key, const char* default_value, char* buffer,
                                       unsigned long size, const char* path)
{
    if (buffer == nullptr || size == 0) {
        Error::SetLastError(Error::INVALID_PARAMETER);
        return 0;
    }
    if (path == nullptr || *path == '\0') {
        unsigned long n = (section == nullptr || key == nullptr) ? copy_list(std::string(), buffer, size)
                                                                 : copy_default(default_value, buffer, size);
        Error::SetLastError(Error::INVALID_PARAMETER);
        return n;
    }

    std::string text;
    const Load loaded = load(path, text);
    if (loaded == Load::failed) {
        const unsigned long err = Error::GetLastError();
        unsigned long n = (section == nullptr || key == nullptr) ? copy_list(std::string(), buffer, size)
                                                                 : copy_default(default_value, buffer, size);
        Error::SetLastError(err);
        return n;
    }

    if (section == nullptr || key == nullptr) {
        unsigned long n = copy_list(list_names(text, section, size), buffer, size);
        Error::SetLastError(loaded == Load::ok ? Error::SUCCESS : Error::FILE_NOT_FOUND);
        return n;
    }

    const std::string wanted_section = trimmed(section);
    const std::string wanted_key = trimmed(key);
    LineReader reader(text);
    Line line;
    bool in_section = false;
    while (reader.next(line)) {
        if (line.kind == Line::section) {
            in_section = name_is(text, line, wanted_section);
        } else if (in_section && line.kind == Line::entry && name_is(text, line, wanted_key)) {
            const char* value = text.data() + line.value_begin;
            std::size_t length = line.value_end - line.value_begin;
            if (length >= 2 && (value[0] == '"' || value[0] == '\'') && value[length - 1] == value[0]) {
                ++value;
                length -= 2;
            }
            unsigned long n = copy_text(value, length, buffer, size);
            Error::SetLastError(Error::SUCCESS);
            return n;
        }
    }
    unsigned long n = copy_default(default_value, buffer, size);
    Error::SetLastError(Error::FILE_NOT_FOUND);
    return n;
}

bool WritePrivateProfileStringA(const char* section, const char* key, const char* value, const char* path)
{
    // Every write goes straight to the disk, so there is never anything to flush.
    if (section == nullptr && key == nullptr && value == nullptr) {
        Error::SetLastError(Error::SUCCESS);
        return true;
    }
    if (section == nullptr || path == nullptr || *path == '\0') {
        Error::SetLastError(Error::INVALID_PARAMETER);
        return false;
    }
    const std::string section_name = trimmed(section);
    const std::string key_name = trimmed(key);
    const std::string value_text = value != nullptr ? value : "";
    // What can't be read back as it was written is refused, rather than breaking the file's lines.
    if (has_line_break(section_name) || section_name.find(']') != std::string::npos ||
        (key != nullptr && (has_line_break(key_name) || key_name.find('=') != std::string::npos ||
                            (!key_name.empty() && (key_name[0] == '[' || key_name[0] == ';')))) ||
        has_line_break(value_text)) {
        Error::SetLastError(Error::INVALID_PARAMETER);
        return false;
    }

    std::string text;
    const Load loaded = load(path, text);
    if (loaded == Load::failed)
        return false;
    const bool deleting = key == nullptr || value == nullptr;
    if (loaded == Load::missing && deleting) {
        Error::SetLastError(Error::SUCCESS);
        return true;
    }

    std::string updated;
    if (key == nullptr)
        updated = without(text, section_name, nullptr);
    else if (value == nullptr)
        updated = without(text, section_name, &key_name);
    else
        updated = with_value(text, section_name, key_name, value_text);

    if (loaded == Load::ok && updated == text) {
        Error::SetLastError(Error::SUCCESS);
        return true;
    }
    if (!FileSystem::WriteFileAtomic(path, updated.data(), updated.size())) {
        // The file itself needn't exist for a write: "not found" means its directory is missing.
        if (Error::GetLastError() == Error::FILE_NOT_FOUND)
            Error::SetLastError(Error::PATH_NOT_FOUND);
        else if (Error::GetLastError() == Error::SUCCESS)
            Error::SetLastError(Error::WRITE_FAULT);
        return false;
    }
    Error::SetLastError(Error::SUCCESS);
    return true;
}

} // namespace Profile
} // namespace Ostrel

namespace {

const char* text_or_null(const char* text)
{
    return text != nullptr ? text : "(null)";
}

constexpr unsigned long kValueBufferSize = 65536;

} // namespace

std::string _GetValue(const std::string& path, const char* section, const char* key, const char* default_value,
                      bool log_value)
{
    const std::string fallback = default_value != nullptr ? default_value : "";
    std::unique_ptr<char[]> buffer(new char[kValueBufferSize]());
    const unsigned long length =
        Ostrel::Profile::GetPrivateProfileStringA(section, key, "<NULL>", buffer.get(), kValueBufferSize, path.c_str());

    if (length == 0) {
        if (Ostrel::Error::GetLastError() == Ostrel::Error::FILE_NOT_FOUND)
            Ostrel::Error::LogSystemError(Ostrel::Error::LEVEL_DEFAULT);
        const bool updater_section =
            section != nullptr && (std::strcmp(section, "PATHS") == 0 || std::strcmp(section, "CONFIG") == 0);
        if (path == "UPDATER.INI" && updater_section) {
            VLOG(1, "[IniFile] Error reading value [%s] %s from \"%s\"\n", text_or_null(section), text_or_null(key),
                 path.c_str());
            return fallback;
        }
        if (section != nullptr && key != nullptr && std::strcmp(section, "CONFIG") == 0 &&
            std::strcmp(key, "DATAFILE") == 0) {
            char mode[64] = {};
            Ostrel::Profile::GetPrivateProfileStringA("CONFIG", "MODE", "", mode, sizeof mode, path.c_str());
            if (std::strcmp(mode, "NORMAL") == 0)
                VLOG(1, "[IniFile] Error reading value [%s] %s from \"%s\"\n", section, key, path.c_str());
        }
        return fallback;
    }

    const std::string text(buffer.get());
    if (Ostrel::Format::EqualsNoCaseAscii(text, "<NULL>"))
        return fallback;
    if (log_value)
        VLOG(3, "[IniFile] Reading value [%s] %s=%s from \"%s\"\n", text_or_null(section), text_or_null(key),
             text.c_str(), path.c_str());

    // Plain ASCII (or text that isn't UTF-8 at all) has as many wide characters as bytes.
    const std::u16string wide = Ostrel::Format::Utf8ToWide(text);
    if (wide.size() == text.size())
        return text;
    const std::string ansi = Ostrel::Format::WideToAnsi(wide);
    if (ansi.empty() && !text.empty()) {
        // The conversion itself can't fail here; kept for the day a code page conversion can.
        VLOG(1, "[Format] MultiByteToWideChar Error %u\n", static_cast<unsigned>(Ostrel::Error::GetLastError()));
        return text;
    }
    return ansi;
}

bool _SetValue(const char* path, const char* key, const char* value)
{
    VLOG(3, "[IniFile] Writing value [%s] %s=%s to \"%s\"\n", "VELLUMENT", text_or_null(key), text_or_null(value),
         text_or_null(path));
    if (Ostrel::Profile::WritePrivateProfileStringA("VELLUMENT", key, value, path)) {
        Ostrel::Profile::WritePrivateProfileStringA(nullptr, nullptr, nullptr, path);
        return true;
    }
    Ostrel::Error::LogSystemError(Ostrel::Error::LEVEL_DEFAULT);
    VLOG(1, "[IniFile] Error writing value [%s] %s=%s to \"%s\"\n", "VELLUMENT", text_or_null(key),
         text_or_null(value), text_or_null(path));
    return false;
}

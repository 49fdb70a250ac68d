// A reply body as text: byte order marks, the text-or-binary decision and the charset search.

#include "toolkit/CkHttp_Internal.h"

#include <algorithm>
#include <cstring>

#include <vellument/Ostrel_Format.h>

#include "toolkit/CkXml_Convert.h"

namespace ckhttp {

namespace {

// How far into the body the markers of XML and HTML are looked for.
const std::size_t kSniffWindow = 1024;

std::string lowerTrim(const std::string& text)
{
    std::size_t b = text.find_first_not_of(" \t\"'");
    if (b == std::string::npos)
        return std::string();
    std::size_t e = text.find_last_not_of(" \t\"'");
    return Ostrel::Format::ToLowerAscii(text.substr(b, e - b + 1));
}

bool sniff(const std::string& body, const char* marker)
{
    return containsNoCase(body.substr(0, kSniffWindow), marker);
}

// The value of "charset=" in a text, up to a blank, quote, semicolon or the end; lower case.
std::string charsetParameter(const std::string& text)
{
    std::string lower = Ostrel::Format::ToLowerAscii(text);
    std::size_t pos = lower.find("charset");
    while (pos != std::string::npos) {
        std::size_t p = pos + 7;
        while (p < lower.size() && lower[p] == ' ')
            ++p;
        if (p < lower.size() && lower[p] == '=') {
            ++p;
            while (p < lower.size() && (lower[p] == ' ' || lower[p] == '"' || lower[p] == '\''))
                ++p;
            std::size_t e = lower.find_first_of(" \t\"';,/>", p);
            return lower.substr(p, e == std::string::npos ? std::string::npos : e - p);
        }
        pos = lower.find("charset", pos + 7);
    }
    return std::string();
}

// The charset of an HTML meta tag among the first bytes; kept simple, the service speaks XML.
std::string metaCharset(const std::string& body)
{
    std::string window = Ostrel::Format::ToLowerAscii(body.substr(0, kSniffWindow));
    std::size_t meta = window.find("<meta");
    while (meta != std::string::npos) {
        std::size_t close = window.find('>', meta);
        std::string tag = window.substr(meta, close == std::string::npos ? std::string::npos : close - meta);
        std::string cs = charsetParameter(tag);
        if (!cs.empty())
            return cs;
        meta = window.find("<meta", meta + 5);
    }
    return std::string();
}

void nulToBlank(std::string& text)
{
    for (char* p = &text[0]; (p = static_cast<char*>(std::memchr(p, 0, text.size() - (p - text.data())))) != nullptr;)
        *p = ' ';
}

// Charsets in which ASCII bytes stand for themselves.
bool asciiCompatible(const std::string& charset)
{
    for (const char* name : {"", "utf-8", "utf8", "us-ascii", "ascii", "windows-1252", "cp1252", "iso-8859-1", "latin1"})
        if (charset == name)
            return true;
    return false;
}

} // namespace

bool bodyIsItsOwnText(const std::string& body, const HeaderList& fields)
{
    if (!Ostrel::Format::IsAscii(body.data(), body.size()) || std::memchr(body.data(), 0, body.size()) != nullptr)
        return false;
    const Header* type = findHeader(fields, "Content-Type");
    return asciiCompatible(type ? charsetParameter(type->value) : std::string()) &&
           asciiCompatible(xmlDeclaredEncoding(body.data(), std::min(body.size(), kSniffWindow)));
}

std::string bodyToUtf8(const std::string& body, const HeaderList& fields, bool& binary)
{
    binary = false;
    if (body.empty())
        return std::string();
    const unsigned char* b = reinterpret_cast<const unsigned char*>(body.data());
    if (body.size() >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == 0xFE && b[1] == 0xFF)))
        return convertXmlToUtf8(body.data(), body.size());

    const Header* typeField = findHeader(fields, "Content-Type");
    const std::string type = typeField ? typeField->value : std::string();
    const std::string mime = lowerTrim(type.substr(0, type.find(';')));
    if (typeField != nullptr)
        binary = !(mime.compare(0, 5, "text/") == 0 || mime == "application/xml" || mime == "application/json" ||
                   mime == "application/x-javascript");
    else
        binary = !(sniff(body, "<?xml") || sniff(body, "<!DOCTYPE HTML"));

    std::string charset = charsetParameter(type);
    std::string text;
    if (charset.empty()) {
        if (mime == "application/json")
            charset = "utf-8";
        else if (Ostrel::Format::IsAscii(body.data(), body.size()))
            charset = "us-ascii";
        else if (mime.find("xml") != std::string::npos || sniff(body, "<?xml")) {
            // A declaration that names its encoding decides, as when an XML file is loaded.
            if (!xmlDeclaredEncoding(body.data(), std::min(body.size(), kSniffWindow)).empty()) {
                text = convertXmlToUtf8(body.data(), body.size());
                nulToBlank(text);
                return text;
            }
        } else if (mime.find("html") != std::string::npos || sniff(body, "<html")) {
            charset = metaCharset(body);
        }
    }
    std::size_t skip = 0;
    if (body.size() >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
        skip = 3;
        if (charset.empty())
            charset = "utf-8";
    }
    if (charset.empty())
        charset = "windows-1252";

    const char* data = body.data() + skip;
    const std::size_t size = body.size() - skip;
    if (charset == "utf-8" || charset == "utf8" || charset == "us-ascii" || charset == "ascii") {
        text.assign(data, size);
    } else if (charset == "windows-1252" || charset == "cp1252") {
        text = Ostrel::Format::AnsiToUtf8(data, size);
    } else {
        std::string copy(data, size);
        nulToBlank(copy);
        // An unknown charset or bytes that don't fit it: read as the default.
        if (!convertNamedToUtf8(charset, copy.data(), copy.size(), text))
            text = Ostrel::Format::AnsiToUtf8(copy);
        return text;
    }
    nulToBlank(text);
    return text;
}

} // namespace ckhttp

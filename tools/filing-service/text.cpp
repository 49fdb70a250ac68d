#include "text.h"

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unordered_map>

#include <openssl/evp.h>

namespace fs_text {

namespace {

void append_utf8(std::string& out, unsigned long cp)
{
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// HTML 4 names of the Latin-1 characters 160 to 255, in order.
const char* const kLatin1Names[96] = {
    "nbsp",   "iexcl",  "cent",   "pound",  "curren", "yen",    "brvbar", "sect",   "uml",    "copy",   "ordf",
    "laquo",  "not",    "shy",    "reg",    "macr",   "deg",    "plusmn", "sup2",   "sup3",   "acute",  "micro",
    "para",   "middot", "cedil",  "sup1",   "ordm",   "raquo",  "frac14", "frac12", "frac34", "iquest", "Agrave",
    "Aacute", "Acirc",  "Atilde", "Auml",   "Aring",  "AElig",  "Ccedil", "Egrave", "Eacute", "Ecirc",  "Euml",
    "Igrave", "Iacute", "Icirc",  "Iuml",   "ETH",    "Ntilde", "Ograve", "Oacute", "Ocirc",  "Otilde", "Ouml",
    "times",  "Oslash", "Ugrave", "Uacute", "Ucirc",  "Uuml",   "Yacute", "THORN",  "szlig",  "agrave", "aacute",
    "acirc",  "atilde", "auml",   "aring",  "aelig",  "ccedil", "egrave", "eacute", "ecirc",  "euml",   "igrave",
    "iacute", "icirc",  "iuml",   "eth",    "ntilde", "ograve", "oacute", "ocirc",  "otilde", "ouml",   "divide",
    "oslash", "ugrave", "uacute", "ucirc",  "uuml",   "yacute", "thorn",  "yuml"};

const std::unordered_map<std::string, unsigned long>& entity_table()
{
    static const std::unordered_map<std::string, unsigned long> table = [] {
        std::unordered_map<std::string, unsigned long> t = {
            {"quot", 0x22},     {"amp", 0x26},      {"apos", 0x27},    {"lt", 0x3C},      {"gt", 0x3E},
            {"euro", 0x20AC},   {"sbquo", 0x201A},  {"bdquo", 0x201E}, {"hellip", 0x2026}, {"dagger", 0x2020},
            {"Dagger", 0x2021}, {"circ", 0x02C6},   {"permil", 0x2030}, {"Scaron", 0x0160}, {"lsaquo", 0x2039},
            {"OElig", 0x0152},  {"lsquo", 0x2018},  {"rsquo", 0x2019}, {"ldquo", 0x201C}, {"rdquo", 0x201D},
            {"bull", 0x2022},   {"ndash", 0x2013},  {"mdash", 0x2014}, {"tilde", 0x02DC}, {"trade", 0x2122},
            {"scaron", 0x0161}, {"rsaquo", 0x203A}, {"oelig", 0x0153}, {"Yuml", 0x0178}};
        for (unsigned long i = 0; i < 96; ++i)
            t.emplace(kLatin1Names[i], 160 + i);
        return t;
    }();
    return table;
}

// Windows-1252 bytes 128 to 159; the five without a character keep their C1 code point.
const unsigned short kCp1252High[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                        0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                        0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                        0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

bool valid_code_point(unsigned long cp)
{
    return cp > 0 && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
}

// Length of the valid UTF-8 sequence at text[i], 0 when there is none.
std::size_t utf8_sequence(const std::string& text, std::size_t i)
{
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    std::size_t length;
    unsigned long cp;
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        cp = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        cp = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > text.size())
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (byte(i + k) & 0x3F);
    }
    const unsigned long minimum[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < minimum[length] || !valid_code_point(cp))
        return 0;
    return length;
}

} // namespace

bool decode_entities(const std::string& text, std::string& out)
{
    out.clear();
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t amp = text.find('&', i);
        if (amp == std::string::npos) {
            out.append(text, i, std::string::npos);
            break;
        }
        out.append(text, i, amp - i);
        // Entity names are short: a ';' further away means that this '&' starts none.
        const std::size_t semi = text.find(';', amp + 1);
        if (semi == std::string::npos || semi - amp > 12)
            return false;
        const std::string name = text.substr(amp + 1, semi - amp - 1);
        unsigned long cp = 0;
        if (name.size() > 1 && name[0] == '#') {
            const bool hex = name[1] == 'x' || name[1] == 'X';
            const std::string digits = name.substr(hex ? 2 : 1);
            bool ok = !digits.empty();
            for (char c : digits) {
                const bool digit = hex ? std::isxdigit(static_cast<unsigned char>(c)) != 0
                                       : std::isdigit(static_cast<unsigned char>(c)) != 0;
                ok = ok && digit;
            }
            if (ok)
                cp = std::strtoul(digits.c_str(), nullptr, hex ? 16 : 10);
            if (!valid_code_point(cp))
                return false;
        } else {
            const auto found = entity_table().find(name);
            if (found == entity_table().end())
                return false;
            cp = found->second;
        }
        append_utf8(out, cp);
        i = semi + 1;
    }
    return true;
}

std::string xml_escape(const std::string& text)
{
    std::string out;
    out.reserve(text.size() + text.size() / 16);
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

std::string repair_utf8(const std::string& bytes)
{
    std::string out;
    out.reserve(bytes.size());
    std::size_t i = 0;
    while (i < bytes.size()) {
        const std::size_t length = utf8_sequence(bytes, i);
        if (length > 0) {
            out.append(bytes, i, length);
            i += length;
            continue;
        }
        const unsigned char b = static_cast<unsigned char>(bytes[i]);
        append_utf8(out, b < 0xA0 ? kCp1252High[b - 0x80] : b);
        ++i;
    }
    return out;
}

std::string md5_hex(const std::string& bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr);
    static const char hex[] = "0123456789abcdef";
    std::string out;
    for (unsigned int i = 0; i < length; ++i) {
        out += hex[digest[i] >> 4];
        out += hex[digest[i] & 0x0F];
    }
    return out;
}

std::string utc_now()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const long millis = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d.%03ldZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, millis);
    return buffer;
}

std::string normalise_ein(const std::string& ein)
{
    std::string out;
    for (char c : ein)
        if (c != '-' && c != ' ')
            out += c;
    return out;
}

} // namespace fs_text

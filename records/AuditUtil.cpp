#include <vellument/AuditUtil.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace AuditUtil {

int to_int(const char* text)
{
    if (text == nullptr)
        return 0;
    errno = 0;
    // Most numbers of a document are a few plain digits: read those here, and leave blanks, signs
    // and numbers of ten digits or more to strtol.
    if (*text >= '0' && *text <= '9') {
        int plain = 0;
        int digits = 0;
        for (; digits < 9 && text[digits] >= '0' && text[digits] <= '9'; ++digits)
            plain = plain * 10 + (text[digits] - '0');
        if (!(text[digits] >= '0' && text[digits] <= '9'))
            return plain;
    }
    long value = std::strtol(text, nullptr, 10);
    // A 32-bit long saturates; keep that on platforms where long is wider.
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}

bool to_bool(const char* text)
{
    if (text == nullptr)
        return false;
    return std::strcmp(text, "true") == 0 || std::strcmp(text, "1") == 0;
}

std::string to_string(bool value)
{
    // Looked up by the stored byte, so a bool holding anything but 0 or 1 reads as false.
    unsigned char byte = 0;
    std::memcpy(&byte, &value, 1);
    return byte == 1 ? "true" : "false";
}

// Without a trip through printf: the mirror's attribute lists convert a number for every row.
std::string to_string(int value)
{
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
    return std::string(digits, end.ptr);
}

} // namespace AuditUtil

#include <vellument/AuditUtil.h>

#include <cerrno>
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

std::string to_string(int value)
{
    char buffer[16];
    int n = std::snprintf(buffer, sizeof buffer, "%i", value);
    return std::string(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
}

} // namespace AuditUtil

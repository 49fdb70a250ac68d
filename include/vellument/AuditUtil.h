#ifndef VELLUMENT_AUDITUTIL_H
#define VELLUMENT_AUDITUTIL_H

#include <string>

#include <vellument/export.h>

// Text conversions of the values that the records hold.
namespace AuditUtil {

// Decimal value by strtol, base 10; text that starts with no number gives 0.
VELLUMENT_API int to_int(const char* text);
// Exact, case-sensitive: "true" and "1" are true, everything else false.
VELLUMENT_API bool to_bool(const char* text);
VELLUMENT_API std::string to_string(bool value);
VELLUMENT_API std::string to_string(int value);

} // namespace AuditUtil

#endif

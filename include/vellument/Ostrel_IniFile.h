#ifndef VELLUMENT_OSTREL_INIFILE_H
#define VELLUMENT_OSTREL_INIFILE_H

// Windows-style settings files: "[section]" lines and "key=value" lines, read and written with the
// behaviour of the system's private profile calls.

#include <string>

#include <vellument/export.h>

namespace Ostrel {
namespace Profile {

// Copies the value of `key` in `section` into `buffer` and returns its length. Section and key
// names compare without regard to case, blanks around names and values are trimmed, and a value
// in matching quotes loses them. A value longer than size - 1 is cut. When the key, the section
// or the file is missing, the default (trailing blanks trimmed; null reads as "") is copied and the
// last error is 2; a found key leaves it 0.
// A null key lists the keys of the section, a null section lists the sections: each name ends in a
// NUL, and the list in a second one. A null buffer or a size of 0 gives 0.
VELLUMENT_API unsigned long GetPrivateProfileStringA(const char* section, const char* key, const char* default_value,
                                                     char* buffer, unsigned long size, const char* path);

// Sets `key` in `section` to `value`, making the file and the section as needed and keeping every
// other line as it stands; the file is replaced atomically. A null value deletes the key, a null
// key deletes the section with all its lines, and all three null only flushes (returns true).
// False, with the last error set, when the file can't be read or written (3: the directory is
// missing) or when a name or value can't be read back as written (87): a line break anywhere, a ']'
// in the section, an '=' in the key or a key that starts with '[' or ';'.
VELLUMENT_API bool WritePrivateProfileStringA(const char* section, const char* key, const char* value,
                                              const char* path);

} // namespace Profile
} // namespace Ostrel

// The library's settings reader: the value of `key`, converted from UTF-8 to the ANSI code page
// when it isn't plain ASCII; the default when the key is missing, empty or holds "<NULL>".
VELLUMENT_API std::string _GetValue(const std::string& path, const char* section, const char* key,
                                    const char* default_value, bool log_value);

// The library's settings writer: sets `key` in section VELLUMENT of `path`. Failures are logged.
VELLUMENT_API bool _SetValue(const char* path, const char* key, const char* value);

#endif

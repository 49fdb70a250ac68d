#ifndef VELLUMENT_OSTREL_DATABASE_ACCESS_H
#define VELLUMENT_OSTREL_DATABASE_ACCESS_H

// For the library's own mapper, which runs the same few statements once per row of a large write:
// those statements are prepared once per connection and kept under a number, and the caller binds
// its texts and keys to them itself, so that no statement text is made or read per row.

#include <cstddef>
#include <string>

namespace Ostrel {

class DatabaseEx;

namespace detail {

struct TextValue {
    const char* data;
    std::size_t size;
};

struct DatabaseAccess {
    // The number of the kept statement of this text on the open connection, prepared now when it
    // is new; -1 when it can't be prepared or too many are kept. A number holds until the database
    // is closed or opened again.
    static int keep(DatabaseEx& database, const std::string& sql);
    // Runs a kept statement once: the texts go to its first marks, then the numbers to the next.
    // The texts need live only for the call. True when it ran without error.
    static bool run(DatabaseEx& database, int kept, const TextValue* texts, std::size_t text_count,
                    const long long* numbers, std::size_t number_count);
    // What "SELECT last_insert_rowid();" gives on the connection.
    static long long last_insert_rowid(const DatabaseEx& database);
};

} // namespace detail
} // namespace Ostrel

#endif

#ifndef VELLUMENT_OSTREL_DATABASE_ACCESS_H
#define VELLUMENT_OSTREL_DATABASE_ACCESS_H

// For the library's own mapper, which runs the same few statements once per row of a large write:
// those statements are prepared once per connection and kept under a number, and the caller binds
// its texts and keys to them itself, so that no statement text is made or read per row.

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace Ostrel {

class DatabaseEx;
class RecordSet;

namespace detail {

struct ChildQuery;

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

    // The texts of the columns [first, end) of the set's present row, each closed by a NUL, with
    // their sizes, when they live on beyond the set's next move, Open or Close: they then stay
    // valid while owner_of(rows) is held, and owner tells which rows those are (the same for all
    // of one grouping). False, with nothing given, when the set holds its own copy or the columns
    // or the row are out of range.
    static bool lasting_row(const RecordSet& rows, long first, long end, std::pair<const char*, std::size_t>* cells,
                            const void*& owner);
    static std::shared_ptr<const void> owner_of(const RecordSet& rows);

    // What rows.Open gives for "SELECT * FROM <table> WHERE <column> = <key>", given in its parts,
    // when its table is grouped already: true with those rows, without the text being made or
    // read. False: open the statement's text as usual.
    static bool open_grouped(RecordSet& rows, DatabaseEx& database, const ChildQuery& query);
    // Tells, inside a transaction, that the table will be asked for many keys of the query's
    // column: its grouping is then made at its first query rather than after a first statement.
    static void expect_queries(DatabaseEx& database, const ChildQuery& query);
};

} // namespace detail
} // namespace Ostrel

#endif

#ifndef VELLUMENT_CVELLUMENTDB_IMPL_H
#define VELLUMENT_CVELLUMENTDB_IMPL_H

// What the mapper's parts (schema, write, read, delete) share: its private record, the numbers of
// its tables and the small helpers that make its statements.

#include <string>
#include <utility>
#include <vector>

#include <vellument/CvellumentDB.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/attributeDic.h>
#include <vellument/export.h>

#include "Ostrel/Database_Access.h"

class vellument_database_impl {
public:
    vellument_database_impl() : database(new Ostrel::DatabaseEx()) {}
    ~vellument_database_impl()
    {
        if (owns_database && database != nullptr) {
            database->Close();
            delete database;
        }
    }
    vellument_database_impl(const vellument_database_impl&) = delete;
    vellument_database_impl& operator=(const vellument_database_impl&) = delete;

    std::string path;
    std::string password;
    Ostrel::DatabaseEx* database;
    bool owns_database = true;

    // Kept between the statements of a write, which runs several per row, so that their memory
    // is reused.
    std::string insert_sql;
    std::string update_sql;
    std::vector<std::pair<std::string, int>> insert_parameters;
    // Per table, the insert's text up to its parent key, and the columns it was made for: the
    // rows of a table mostly come with the same columns.
    struct InsertText {
        std::vector<std::string> columns;
        std::string head;
        bool made = false;
        // The whole insert with its parent key as a mark, and its number among the database's
        // kept statements for the present write: kNotAsked, or kNotKept when it can't be kept.
        std::string kept_sql;
        int kept = -1;
    };
    static constexpr int kNotAsked = -1;
    static constexpr int kNotKept = -2;
    InsertText insert_texts[14];  // by table id, TABLE_AUDIT_TRAIL to TABLE_VELLUMENT
    int update_kept[11] = {};     // by key link, as the inserts' numbers
    std::vector<Ostrel::detail::TextValue> insert_values;
    // Whether the updates may bypass Execute: not when a derived database overrides it, as it
    // then must see every statement that returns no rows.
    bool direct_updates = false;
    // Statements are kept per connection: each write asks for their numbers again.
    void forget_kept(bool plain_database)
    {
        direct_updates = plain_database;
        for (InsertText& text : insert_texts)
            text.kept = kNotAsked;
        for (int& kept : update_kept)
            kept = kNotAsked;
    }
    Ostrel::RecordSet selected;
};

struct CvellumentDB::KeyLink {
    int table;
    const char* column;
    const char* key_column;
};

namespace vellument_db {

// Collects the failures of one write; decides commit or rollback. Shared by all mappers.
extern bool g_database_error;

const int kVersion = 2;

enum TableId {
    TABLE_AUDIT_TRAIL = 0,
    TABLE_COPY = 1,
    TABLE_DICTIONARY = 2,
    TABLE_FILING = 3,
    TABLE_FILING_BASE = 4,
    TABLE_FORM = 5,
    TABLE_FORM_BASE = 6,
    TABLE_HISTORY = 7,
    TABLE_PACKAGE = 8,
    TABLE_STATUS = 9,
    TABLE_STATUS_BASE = 10,
    TABLE_TRANSACTION = 11,
    TABLE_DICTIONARY_ENTRY = 12,
    TABLE_VELLUMENT = 13,
};

const std::string& table_name(int table);
// Whether the table's rows carry a parentID.
bool has_parent(int table);

// Asked after every insert: made once.
const std::string& last_insert();

std::string format(const char* fmt, ...) VELLUMENT_PRINTF(1, 2);
// A statement template with one "%d" for a key.
std::string with_key(const std::string& sql, int key);
// The same into a buffer that a loop keeps, so that its memory is reused; gives its text.
const char* with_key(std::string& text, const std::string& sql, int key);
int as_number(const std::string& text);

// The identity of a vellument in the tables, quotes doubled where it is spliced between them.
struct Identity {
    std::string form_type;
    std::string year;
    std::string extension;
};
Identity identity_of(const vellument_impl& vellument);

// The year goes into the statements unquoted, as a number. Anything else there would be SQL of
// the document's making, so such a year finds no vellument and can't be written.
bool year_is_number(const std::string& year);

} // namespace vellument_db

#endif

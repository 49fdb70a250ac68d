#ifndef VELLUMENT_OSTREL_DATABASE_CHILDROWS_H
#define VELLUMENT_OSTREL_DATABASE_CHILDROWS_H

// Answers for "SELECT * FROM <table> WHERE <column> = <integer>" inside a read-only stretch of a
// transaction, from one scan of the table grouped by that column.
//
// Such a query on a table without an index scans the whole table, so a tree read child by child
// costs its size squared. The first query of a table runs as a statement; from the second on, the
// table is read once, its rows grouped by the column's value, and each query is answered from the
// group: the same column names, rows, order and cell texts as the statement's own result.
//
// What holds the answers the same:
// - Only an ordinary table with no index at all is grouped: a query by any column but the key then
//   scans the table in rowid order, as the grouping scan does. A key without an index can only be
//   the rowid itself, so a query by the key finds at most one row, the same as its group.
// - Which integer a row's value equals is decided by SQLite with the column's own affinity and
//   collation (see Database_ChildRows.cpp); a row that equals no integer (NULL, text, a fraction) is in
//   no group.
// - The owner drops everything when a statement that may write runs, and answers nothing outside
//   a transaction: within one, no other connection can change what this one reads.
// - A table whose rows exceed the byte budget is not grouped: its queries stay statements.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace Ostrel {
namespace detail {

// Appends column i of the statement's present row as text closed by a NUL, and its start to
// starts. Integers are written as SQLite writes them; NULL reads as "". Gives the text's size.
std::size_t append_cell(sqlite3_stmt* statement, int i, std::string& text, std::vector<std::size_t>& starts);

// The table, column and key of a query of the grouped form.
struct ChildQuery {
    std::string table;
    std::string column;
    long long key = 0;
};

// True when sql is exactly "SELECT * FROM <word> WHERE <word> = [-]<digits>", in any case, with
// blanks, an optional semicolon and comments after it, and a key in the 32-bit range.
bool parse_child_query(const char* sql, ChildQuery& query);

// One table's rows, grouped.
struct Grouped;

class ChildRows {
public:
    // The rows of one group, in the table's rowid order. A group holds its table's rows for as
    // long as it lives, even once the owner has dropped them: it is a snapshot, as a result is.
    class Group {
    public:
        std::size_t size() const { return m_count; }
        // Text of a column of the i-th row of the group, and its size.
        const char* cell(std::size_t row, std::size_t column, std::size_t& size) const;
        // The same text, closed by a NUL.
        const char* cell(std::size_t row, std::size_t column) const;
        // Texts and sizes of the columns [first, end) of the i-th row, at once.
        void cells(std::size_t row, std::size_t first, std::size_t end,
                   std::pair<const char*, std::size_t>* out) const;
        // The rows the group is of: the same for every group of one grouping.
        const std::shared_ptr<const Grouped>& rows() const { return m_rows; }

    private:
        friend class ChildRows;
        std::shared_ptr<const Grouped> m_rows;
        std::size_t m_first = 0;
        std::size_t m_count = 0;
    };

    ChildRows();
    ~ChildRows();
    ChildRows(const ChildRows&) = delete;
    ChildRows& operator=(const ChildRows&) = delete;

    // True with the group of the query's key, when the table is grouped or can be grouped now:
    // statement is the query's own, prepared. False: run the statement. Call only inside a
    // transaction, with nothing written since the last clear.
    bool find(sqlite3* db, const ChildQuery& query, sqlite3_stmt* statement, Group& group);
    // As find, without a statement: true only when the table is grouped already, with the names
    // of the query's columns.
    bool find_grouped(const ChildQuery& query, Group& group, const std::vector<std::string>*& names);
    // The statement of a query ran: the next query of its table may group it.
    void ran(const ChildQuery& query);
    // Forgets all groups and counts.
    void clear();
    bool empty() const { return m_tables.empty(); }

    // Bytes that the groups of one transaction may hold in all. Groupings by the key take no more
    // than half: a query by the key alone is a quick lookup, one by another column a whole scan.
    static const std::size_t kBudget;

private:
    struct Table;
    Table& table_of(const ChildQuery& query);
    static void answer(const std::shared_ptr<const Grouped>& rows, const ChildQuery& query, Group& group);
    bool group(sqlite3* db, const ChildQuery& query, std::size_t columns, Grouped& rows);
    std::size_t budget_for(bool key) const;

    std::unordered_map<std::string, std::unique_ptr<Table>> m_tables;
    // The same tables by the names as the queries spell them, so that a query of the usual
    // spelling finds its table without folding case; key: table, NUL, column.
    std::unordered_map<std::string, Table*> m_spelled;
    std::string m_key;
    std::size_t m_bytes = 0;
};

} // namespace detail
} // namespace Ostrel

#endif

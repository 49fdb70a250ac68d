#include "Ostrel/Database_ChildRows.h"

#define SQLITE_HAS_CODEC 1
#include <sqlcipher/sqlite3.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "Ostrel/Database_Text.h"
#include "Ostrel/LogMacros.h"

namespace Ostrel {
namespace detail {

const std::size_t ChildRows::kBudget = 128u * 1024u * 1024u;

struct Grouped {
    std::size_t columns = 0;
    std::vector<std::string> names;  // of the query's columns
    // Every cell of every kept row, row after row, each closed by a NUL, in blocks that never
    // move: a buffer grown by doubling would copy every cell again at each step. starts[i] is
    // where cell i begins, as a place: block (place >> kBlockBits), at (place & kBlockMask). A
    // cell never straddles two blocks; one larger than a block gets a block of its own, which
    // takes up the places of as many blocks. Its size runs to the next start when that is in the
    // same block, else to the end of its block's used part.
    static constexpr unsigned kBlockBits = 18;
    static constexpr std::size_t kBlockSize = std::size_t(1) << kBlockBits;
    static constexpr std::uint32_t kBlockMask = static_cast<std::uint32_t>(kBlockSize - 1);
    std::vector<std::unique_ptr<char[]>> blocks;  // by block number; null where a large one spans
    std::vector<std::uint32_t> used_end;          // by block number: the place after its last cell
    std::vector<std::uint32_t> starts;
    std::size_t block_bytes = 0;
    // (key, row), ordered by key and, within a key, by row: the scan's order.
    std::vector<std::pair<long long, std::size_t>> by_key;
    // Whether the keys run one by one from the first, each once, as the keys of a table written
    // in one go do: a key's row is then found by its place.
    bool dense = false;

    std::size_t bytes() const
    {
        return block_bytes + starts.capacity() * sizeof(starts[0]) + by_key.capacity() * sizeof(by_key[0]) +
               names.size() * sizeof(names[0]) + blocks.capacity() * (sizeof(blocks[0]) + sizeof(used_end[0]));
    }
    const char* at(std::uint32_t place) const { return blocks[place >> kBlockBits].get() + (place & kBlockMask); }
    std::size_t size_of(std::size_t cell) const
    {
        const std::uint32_t start = starts[cell];
        const std::size_t block = start >> kBlockBits;
        const bool next_here = cell + 1 < starts.size() && (starts[cell + 1] >> kBlockBits) == block;
        return (next_here ? starts[cell + 1] : used_end[block]) - start - 1;
    }
};

namespace {

const std::size_t kDigits = 24;

// The text of column i of the statement's present row and its size; NULL reads as "". Integers,
// the keys, are written into digits as SQLite would write them, without its allocation.
const char* cell_text(sqlite3_stmt* statement, int i, char (&digits)[kDigits], std::size_t& size)
{
    if (sqlite3_column_type(statement, i) == SQLITE_INTEGER) {
        const std::to_chars_result end = std::to_chars(digits, digits + kDigits, sqlite3_column_int64(statement, i));
        size = static_cast<std::size_t>(end.ptr - digits);
        return digits;
    }
    const unsigned char* text = sqlite3_column_text(statement, i);
    size = text != nullptr ? static_cast<std::size_t>(sqlite3_column_bytes(statement, i)) : 0;
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

// Appends the cells of a grouping scan to its blocks.
class CellWriter {
public:
    explicit CellWriter(Grouped& rows) : m_rows(rows) {}

    // Column i of the statement's present row, as append_cell writes it; false when the places
    // run out.
    bool add(sqlite3_stmt* statement, int i, std::size_t& size)
    {
        char digits[kDigits];
        const char* value = cell_text(statement, i, digits, size);
        if (size + 1 > m_left && !new_block(size + 1))
            return false;
        m_rows.starts.push_back(m_place);
        if (size > 0)
            std::memcpy(m_next, value, size);
        m_next[size] = '\0';
        m_next += size + 1;
        m_left -= size + 1;
        m_place += static_cast<std::uint32_t>(size + 1);
        m_rows.used_end[m_block] = m_place;
        return true;
    }

private:
    bool new_block(std::size_t need)
    {
        const std::size_t size = std::max(need, Grouped::kBlockSize);
        const std::size_t spans = (size + Grouped::kBlockSize - 1) / Grouped::kBlockSize;
        const std::size_t block = m_rows.blocks.size();
        if (((block + spans) << Grouped::kBlockBits) > UINT32_MAX)
            return false;
        m_rows.blocks.resize(block + spans);
        m_rows.used_end.resize(block + spans, 0);
        m_rows.blocks[block].reset(new char[size]);
        m_rows.block_bytes += size;
        m_block = block;
        m_place = static_cast<std::uint32_t>(block << Grouped::kBlockBits);
        m_rows.used_end[block] = m_place;
        m_next = m_rows.blocks[block].get();
        m_left = size;
        return true;
    }

    Grouped& m_rows;
    std::size_t m_block = 0;
    std::uint32_t m_place = 0;
    char* m_next = nullptr;
    std::size_t m_left = 0;
};

} // namespace

struct ChildRows::Table {
    int runs = 0;          // statements of the table's queries run since the last clear
    bool refused = false;  // can't be grouped: its queries stay statements
    std::shared_ptr<const Grouped> rows;
};

namespace {

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

void skip_blanks(const char*& p)
{
    while (is_blank(*p))
        ++p;
}

// A keyword (lower case) followed by a blank.
bool take_keyword(const char*& p, const char* keyword)
{
    const std::size_t size = std::strlen(keyword);
    if (!is_keyword(p, size, keyword) || !is_blank(p[size]))
        return false;
    p += size;
    skip_blanks(p);
    return true;
}

bool take_word(const char*& p, std::string& word)
{
    const char* start = p;
    if (*p >= '0' && *p <= '9')
        return false;
    while (is_word_char(*p))
        ++p;
    if (p == start)
        return false;
    word.assign(start, p);
    return true;
}

// Runs a query; true when one of its rows passes the test.
template <typename Test>
bool any_row(sqlite3* db, const std::string& sql, Test test)
{
    sqlite3_stmt* statement = nullptr;
    bool found = false;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
        while (!found && sqlite3_step(statement) == SQLITE_ROW)
            found = test(statement);
    }
    sqlite3_finalize(statement);
    return found;
}

// Whether the table's rows can be grouped by this column with the same answers as the query's: an
// ordinary table (not a view, nor virtual), without any index, the column one of its own. A query
// by another column then scans the table in rowid order; one by the key, which without an index
// is the rowid, finds one row at most.
enum Grouping { NOT_GROUPABLE, BY_COLUMN, BY_KEY };

Grouping groupable(sqlite3* db, const std::string& table, const std::string& column)
{
    const std::string quoted = "\"" + table + "\"";
    const std::string lookup = "SELECT rootpage FROM sqlite_master WHERE type = 'table' AND name = '" + table +
                               "' COLLATE NOCASE AND sql NOT LIKE 'CREATE VIRTUAL%';";
    if (table.find('\'') != std::string::npos ||
        !any_row(db, lookup, [](sqlite3_stmt* s) { return sqlite3_column_int64(s, 0) > 0; }))
        return NOT_GROUPABLE;
    if (any_row(db, "PRAGMA index_list(" + quoted + ");", [](sqlite3_stmt*) { return true; }))
        return NOT_GROUPABLE;
    const std::string name = case_folded(column);
    Grouping grouping = NOT_GROUPABLE;
    any_row(db, "PRAGMA table_info(" + quoted + ");", [&name, &grouping](sqlite3_stmt* s) {
        const unsigned char* text = sqlite3_column_text(s, 1);
        if (text == nullptr || case_folded(reinterpret_cast<const char*>(text)) != name)
            return false;
        grouping = sqlite3_column_int64(s, 5) != 0 ? BY_KEY : BY_COLUMN;
        return true;
    });
    return grouping;
}

} // namespace

std::size_t append_cell(sqlite3_stmt* statement, int i, std::string& text, std::vector<std::size_t>& starts)
{
    starts.push_back(text.size());
    char digits[kDigits];
    std::size_t size = 0;
    const char* value = cell_text(statement, i, digits, size);
    if (size > 0)
        text.append(value, size);
    text.push_back('\0');
    return size;
}

bool parse_child_query(const char* sql, ChildQuery& query)
{
    if (sql == nullptr)
        return false;
    const char* p = sql;
    skip_blanks(p);
    if (!take_keyword(p, "select") || *p++ != '*')
        return false;
    skip_blanks(p);
    if (!take_keyword(p, "from") || !take_word(p, query.table))
        return false;
    skip_blanks(p);
    if (!take_keyword(p, "where") || !take_word(p, query.column))
        return false;
    skip_blanks(p);
    if (*p++ != '=')
        return false;
    skip_blanks(p);
    const bool negative = *p == '-';
    if (negative) {
        ++p;
        skip_blanks(p);
    }
    const char* digits = p;
    while (*p >= '0' && *p <= '9')
        ++p;
    if (p == digits || p - digits > 10 || is_word_char(*p) || *p == '.')
        return false;
    long long key = 0;
    std::from_chars(digits, p, key);
    key = negative ? -key : key;
    if (key < INT_MIN || key > INT_MAX)
        return false;
    query.key = key;
    return only_trivia(p);
}

const char* ChildRows::Group::cell(std::size_t row, std::size_t column, std::size_t& size) const
{
    const Grouped& g = *m_rows;
    const std::size_t index = g.by_key[m_first + row].second * g.columns + column;
    size = g.size_of(index);
    return g.at(g.starts[index]);
}

const char* ChildRows::Group::cell(std::size_t row, std::size_t column) const
{
    const Grouped& g = *m_rows;
    return g.at(g.starts[g.by_key[m_first + row].second * g.columns + column]);
}

void ChildRows::Group::cells(std::size_t row, std::size_t first, std::size_t end,
                             std::pair<const char*, std::size_t>* out) const
{
    const Grouped& g = *m_rows;
    const std::size_t base = g.by_key[m_first + row].second * g.columns;
    for (std::size_t column = first; column < end; ++column, ++out) {
        out->first = g.at(g.starts[base + column]);
        out->second = g.size_of(base + column);
    }
}

ChildRows::ChildRows() = default;
ChildRows::~ChildRows() = default;

ChildRows::Table& ChildRows::table_of(const ChildQuery& query)
{
    m_key.assign(query.table);
    m_key += '\0';
    m_key += query.column;
    const auto spelled = m_spelled.find(m_key);
    if (spelled != m_spelled.end())
        return *spelled->second;
    std::unique_ptr<Table>& table = m_tables[case_folded(query.table) + '\0' + case_folded(query.column)];
    if (!table)
        table.reset(new Table);
    m_spelled.emplace(m_key, table.get());
    return *table;
}

void ChildRows::ran(const ChildQuery& query)
{
    ++table_of(query).runs;
}

void ChildRows::clear()
{
    if (m_tables.empty())
        return;
    m_spelled.clear();
    m_tables.clear();
    m_bytes = 0;
}

bool ChildRows::find(sqlite3* db, const ChildQuery& query, sqlite3_stmt* statement, Group& group)
{
    Table& table = table_of(query);
    if (table.refused || (!table.rows && table.runs == 0))
        return false;  // a table queried once is left to its statement
    const std::size_t columns = static_cast<std::size_t>(sqlite3_column_count(statement));
    if (!table.rows) {
        std::shared_ptr<Grouped> rows = std::make_shared<Grouped>();
        if (!this->group(db, query, columns, *rows)) {
            VLOG(4, "[Database] %s not grouped by %s\n", query.table.c_str(), query.column.c_str());
            table.refused = true;
            return false;
        }
        for (std::size_t i = 0; i < columns; ++i) {
            const char* name = sqlite3_column_name(statement, static_cast<int>(i));
            rows->names.emplace_back(name != nullptr ? name : "");
        }
        VLOG(4, "[Database] %s grouped by %s: %zu rows\n", query.table.c_str(), query.column.c_str(),
             rows->by_key.size());
        m_bytes += rows->bytes();
        table.rows = std::move(rows);
    }
    if (table.rows->columns != columns)
        return false;
    answer(table.rows, query, group);
    return true;
}

bool ChildRows::find_grouped(const ChildQuery& query, Group& group, const std::vector<std::string>*& names)
{
    if (m_tables.empty())
        return false;
    Table& table = table_of(query);
    if (!table.rows)
        return false;
    answer(table.rows, query, group);
    names = &table.rows->names;
    return true;
}

void ChildRows::answer(const std::shared_ptr<const Grouped>& rows, const ChildQuery& query, Group& group)
{
    group.m_rows = rows;
    if (rows->dense) {
        const long long place = query.key - rows->by_key.front().first;
        const bool found = place >= 0 && static_cast<unsigned long long>(place) < rows->by_key.size();
        group.m_first = found ? static_cast<std::size_t>(place) : 0;
        group.m_count = found ? 1 : 0;
        return;
    }
    const auto range = std::equal_range(
        rows->by_key.begin(), rows->by_key.end(), std::make_pair(query.key, std::size_t(0)),
        [](const std::pair<long long, std::size_t>& a, const std::pair<long long, std::size_t>& b) {
            return a.first < b.first;
        });
    group.m_first = static_cast<std::size_t>(range.first - rows->by_key.begin());
    group.m_count = static_cast<std::size_t>(range.second - range.first);
}

// The grouping scan. Its last column is the integer that the row's value equals under the
// statement's own comparison "<column> = <key>", or NULL. The candidate goes through REAL so that
// texts such as '1e1' and '7.0' find the number that SQLite's numeric comparison sees in them;
// SQLite then compares the value with it exactly as with the statement's key, affinity and
// collation included (the unary plus gives the candidate no affinity, as a key has none). Every key
// of the 32-bit range is exact in a double, so a row equal to a key always finds that key.
bool ChildRows::group(sqlite3* db, const ChildQuery& query, std::size_t columns, Grouped& rows)
{
    const Grouping grouping = groupable(db, query.table, query.column);
    if (grouping == NOT_GROUPABLE)
        return false;
    const std::string column = "\"" + query.column + "\"";
    const std::string candidate = "CAST(CAST(" + column + " AS REAL) AS INTEGER)";
    // The key is the rowid: an integer, equal to itself.
    const std::string key = grouping == BY_KEY
                                ? column
                                : "CASE WHEN " + column + " = +" + candidate + " THEN " + candidate + " END";
    const std::string sql = "SELECT *, " + key + " FROM \"" + query.table + "\";";
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK ||
        static_cast<std::size_t>(sqlite3_column_count(statement)) != columns + 1) {
        sqlite3_finalize(statement);
        return false;
    }
    rows.columns = columns;
    const int key_column = static_cast<int>(columns);
    const std::size_t budget = budget_for(grouping == BY_KEY);
    std::size_t bytes = 0;
    std::size_t row = 0;
    CellWriter cells(rows);
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        if (sqlite3_column_type(statement, key_column) != SQLITE_INTEGER)
            continue;  // equals no key: in no answer
        const long long key = sqlite3_column_int64(statement, key_column);
        if (key < INT_MIN || key > INT_MAX)
            continue;  // no query asks for it
        for (int i = 0; i < key_column; ++i) {
            std::size_t size = 0;
            if (!cells.add(statement, i, size)) {
                rc = SQLITE_TOOBIG;
                break;
            }
            bytes += size + 1 + sizeof(rows.starts[0]);
        }
        rows.by_key.emplace_back(key, row++);
        bytes += sizeof(rows.by_key[0]);
        if (rc == SQLITE_TOOBIG || bytes > budget) {
            rc = SQLITE_TOOBIG;
            break;
        }
    }
    sqlite3_finalize(statement);
    if (rc != SQLITE_DONE)
        return false;
    // Rows were numbered in scan order, so sorting the pairs keeps that order within a key.
    // A table written in one go mostly comes sorted already.
    if (!std::is_sorted(rows.by_key.begin(), rows.by_key.end()))
        std::sort(rows.by_key.begin(), rows.by_key.end());
    rows.dense = !rows.by_key.empty();
    for (std::size_t i = 1; rows.dense && i < rows.by_key.size(); ++i)
        rows.dense = rows.by_key[i].first == rows.by_key[i - 1].first + 1;
    // Kept for the rest of the transaction: without the room left by growing.
    rows.starts.shrink_to_fit();
    rows.by_key.shrink_to_fit();
    return true;
}

std::size_t ChildRows::budget_for(bool key) const
{
    const std::size_t limit = key ? kBudget / 2 : kBudget;
    return limit > m_bytes ? limit - m_bytes : 0;
}

} // namespace detail
} // namespace Ostrel

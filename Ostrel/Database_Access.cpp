#include "Ostrel/Database_Access.h"

#include "Ostrel/Database_Impl.h"

namespace Ostrel {

// --- Statements kept for the mapper ----------------------------------------------------------

namespace detail {

int DatabaseAccess::keep(DatabaseEx& database, const std::string& sql)
{
    DatabaseEx::Impl& d = *database.m_impl;
    if (d.db == nullptr)
        return -1;
    for (std::size_t i = 0; i < d.kept.size(); ++i)
        if (d.kept[i].first == sql)
            return static_cast<int>(i);
    if (d.kept.size() >= kKeptStatements)
        return -1;
    sqlite3_stmt* prepared = nullptr;
    const char* tail = nullptr;
    if (sqlite3_prepare_v2(d.db, sql.c_str(), static_cast<int>(sql.size()) + 1, &prepared, &tail) != SQLITE_OK ||
        prepared == nullptr || !only_trivia(tail)) {
        sqlite3_finalize(prepared);
        return -1;
    }
    d.kept.emplace_back(sql, prepared);
    return static_cast<int>(d.kept.size() - 1);
}

bool DatabaseAccess::run(DatabaseEx& database, int kept, const TextValue* texts, std::size_t text_count,
                         const long long* numbers, std::size_t number_count)
{
    DatabaseEx::Impl& d = *database.m_impl;
    if (kept < 0 || static_cast<std::size_t>(kept) >= d.kept.size()) {
        d.set_error("no such kept statement");
        return false;
    }
    const std::pair<std::string, sqlite3_stmt*>& statement = d.kept[static_cast<std::size_t>(kept)];
    sqlite3_stmt* prepared = statement.second;
    // A statement whose every mark gets a value keeps its bindings between runs; any other starts
    // from none, so that its unbound marks stay null.
    const std::size_t marks = static_cast<std::size_t>(sqlite3_bind_parameter_count(prepared));
    const bool all_bound = text_count + number_count == marks;
    if (!all_bound)
        sqlite3_clear_bindings(prepared);
    int index = 1;
    for (std::size_t i = 0; i < text_count; ++i, ++index) {
        // Bound where they stand: the texts outlive the run, and a binding is never read after it.
        if (sqlite3_bind_text(prepared, index, texts[i].data, static_cast<int>(texts[i].size), SQLITE_STATIC) !=
            SQLITE_OK) {
            d.set_sqlite_error("bind failed");
            DatabaseEx::Impl::done_with(prepared);
            return false;
        }
    }
    for (std::size_t i = 0; i < number_count; ++i, ++index) {
        if (sqlite3_bind_int64(prepared, index, numbers[i]) != SQLITE_OK) {
            d.set_sqlite_error("bind failed");
            DatabaseEx::Impl::done_with(prepared);
            return false;
        }
    }
    return d.run(prepared, statement.first.c_str(), !all_bound);
}

long long DatabaseAccess::last_insert_rowid(const DatabaseEx& database)
{
    const DatabaseEx::Impl& d = *database.m_impl;
    return d.db != nullptr ? sqlite3_last_insert_rowid(d.db) : 0;
}

} // namespace detail

bool detail::DatabaseAccess::lasting_row(const RecordSet& rows, long first, long end,
                                         std::pair<const char*, std::size_t>* cells, const void*& owner)
{
    const RecordSet::Impl& d = *rows.m_impl;
    if (!d.grouped || first < 0 || end < first || d.index_of(end > first ? end - 1 : first) < 0)
        return false;
    owner = d.group.rows().get();
    d.group.cells(d.position, static_cast<std::size_t>(first), static_cast<std::size_t>(end), cells);
    return true;
}

bool detail::DatabaseAccess::open_grouped(RecordSet& rows, DatabaseEx& database, const ChildQuery& query)
{
    DatabaseEx::Impl& db = *database.m_impl;
    const std::vector<std::string>* names = nullptr;
    detail::ChildRows::Group group;
    if (!db.can_answer_grouped() || !db.child_rows.find_grouped(query, group, names))
        return false;
    RecordSet::Impl& d = *rows.m_impl;
    d.clear();
    d.take_grouped(group, *names);
    return true;
}

void detail::DatabaseAccess::expect_queries(DatabaseEx& database, const ChildQuery& query)
{
    DatabaseEx::Impl& db = *database.m_impl;
    if (db.db != nullptr && sqlite3_get_autocommit(db.db) == 0)
        db.child_rows.ran(query);
}

std::shared_ptr<const void> detail::DatabaseAccess::owner_of(const RecordSet& rows)
{
    const RecordSet::Impl& d = *rows.m_impl;
    if (!d.grouped)
        return nullptr;
    return d.group.rows();
}

} // namespace Ostrel

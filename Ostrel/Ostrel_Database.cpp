#include <vellument/Ostrel_Database.h>

#include "Ostrel/Database_Impl.h"

namespace Ostrel {

// --- DatabaseEx ------------------------------------------------------------------------------

DatabaseEx::DatabaseEx() : m_impl(new Impl) {}

DatabaseEx::~DatabaseEx()
{
    m_impl->close();
}

bool DatabaseEx::OpenFile(const std::string& path, const std::string& password)
{
    m_impl->close();
    return m_impl->open(path, password, true);
}

bool DatabaseEx::OpenExistingFile(const std::string& path, const std::string& password)
{
    m_impl->close();
    return m_impl->open(path, password, false);
}

bool DatabaseEx::Execute(const char* sql)
{
    return m_impl->exec_shaped(sql, std::vector<std::pair<std::string, int>>());
}

bool DatabaseEx::Close()
{
    const bool was_open = m_impl->db != nullptr;
    m_impl->close();
    return was_open;
}

bool DatabaseEx::GetOpen() const
{
    return m_impl->db != nullptr;
}

std::string DatabaseEx::GetFilePath() const
{
    return m_impl->path;
}

bool DatabaseEx::BeginTransaction(bool)
{
    Impl& d = *m_impl;
    d.sync_depth();
    if (d.db == nullptr) {
        d.set_error("database not open");
        return false;
    }
    const std::string sql = d.depth == 0 ? std::string("BEGIN;") : "SAVEPOINT vlm_sp_" + std::to_string(d.depth) + ";";
    if (!d.exec_plain(sql.c_str()))
        return false;
    ++d.depth;
    return true;
}

bool DatabaseEx::CommitTransaction()
{
    Impl& d = *m_impl;
    d.sync_depth();
    if (d.depth == 0) {
        d.set_error("commit without a transaction");
        return false;
    }
    if (d.depth > 1) {
        const std::string sql = "RELEASE SAVEPOINT vlm_sp_" + std::to_string(d.depth - 1) + ";";
        if (!d.exec_plain(sql.c_str()))
            return false;
        --d.depth;
        return true;
    }
    if (d.exec_plain("COMMIT;")) {
        d.depth = 0;
        return true;
    }
    // A commit that can't go through is undone rather than left hanging.
    sqlite3_exec(d.db, "ROLLBACK;", nullptr, nullptr, nullptr);
    d.depth = 0;
    return false;
}

bool DatabaseEx::RollbackTransaction()
{
    Impl& d = *m_impl;
    d.sync_depth();
    if (d.depth == 0) {
        d.set_error("rollback without a transaction");
        return false;
    }
    if (d.depth > 1) {
        const std::string name = "vlm_sp_" + std::to_string(d.depth - 1);
        const std::string sql = "ROLLBACK TO SAVEPOINT " + name + ";";
        const std::string release = "RELEASE SAVEPOINT " + name + ";";
        const bool ok = d.exec_plain(sql.c_str()) && d.exec_plain(release.c_str());
        --d.depth;
        d.sync_depth();
        return ok;
    }
    const bool ok = d.exec_plain("ROLLBACK;");
    d.depth = 0;
    return ok;
}

int DatabaseEx::GetTransactionDepth() const
{
    m_impl->sync_depth();
    return m_impl->depth;
}

bool DatabaseEx::ExecuteAndBindStatement(const std::string& sql,
                                         const std::vector<std::pair<std::string, int>>& parameters, bool) const
{
    return m_impl->exec_shaped(sql.c_str(), parameters);
}

void DatabaseEx::SetStatementStepLimit(unsigned long long steps)
{
    const unsigned long long blocks = steps / kProgressInterval;
    m_impl->max_progress_calls = blocks > 0 ? blocks : 1;
}

std::string DatabaseEx::GetLastErrorText() const
{
    return m_impl->last_error;
}

// --- RecordSet -------------------------------------------------------------------------------

RecordSet::RecordSet() : m_impl(new Impl) {}

RecordSet::~RecordSet() = default;

bool RecordSet::Open(const char* sql, DatabaseEx* database)
{
    Impl& d = *m_impl;
    d.clear();
    if (database == nullptr)
        return false;
    DatabaseEx::Impl& db = *database->m_impl;
    // Asked after every insert: the connection knows the answer without running a statement.
    if (sql != nullptr && db.db != nullptr && std::strcmp(sql, kLastInsertRowid) == 0) {
        d.set_column_name(0, kLastInsertRowidColumn);
        d.columns = 1;
        const std::string key = std::to_string(sqlite3_last_insert_rowid(db.db));
        d.add_cell(key.data(), key.size());
        d.row_count = 1;
        return true;
    }
    const std::vector<std::string>* grouped_names = nullptr;
    detail::ChildRows::Group group;
    if (db.answer_grouped(sql, grouped_names, group)) {
        d.take_grouped(group, *grouped_names);
        return true;
    }
    std::vector<Slot>& slots = db.scratch_slots;
    sqlite3_stmt* prepared = db.statement(sql, &slots);
    if (prepared == nullptr || !db.bind(prepared, slots, std::vector<std::pair<std::string, int>>()))
        return false;
    const int columns = sqlite3_column_count(prepared);
    for (int i = 0; i < columns; ++i) {
        const char* name = sqlite3_column_name(prepared, i);
        d.set_column_name(static_cast<std::size_t>(i), name != nullptr ? name : "");
    }
    d.columns = static_cast<std::size_t>(columns);
    if (db.answer_from_groups(prepared, sql, group)) {
        d.take_group(group);
        DatabaseEx::Impl::done_with(prepared);
        return true;
    }
    int rc;
    std::size_t bytes = 0;
    db.progress_calls = 0;
    while ((rc = sqlite3_step(prepared)) == SQLITE_ROW) {
        for (int i = 0; i < columns; ++i)
            bytes += detail::append_cell(prepared, i, d.text, d.starts) + 1 + sizeof(std::size_t);
        ++d.row_count;
        if (bytes > kMaxSnapshotBytes) {
            rc = SQLITE_TOOBIG;
            break;
        }
    }
    if (rc == SQLITE_TOOBIG) {
        db.set_error(std::string("refused: the result of \"") + sql + "\" is too large");
        DatabaseEx::Impl::done_with(prepared);
        d.clear();
        return false;
    }
    if (rc != SQLITE_DONE) {
        db.set_sqlite_error(sql);
        DatabaseEx::Impl::done_with(prepared);
        d.clear();
        return false;
    }
    DatabaseEx::Impl::done_with(prepared);
    db.ran_plain();
    return true;
}

bool RecordSet::Close()
{
    m_impl->clear();
    return true;
}

void RecordSet::MoveFirst()
{
    m_impl->position = 0;
}

void RecordSet::MoveNext()
{
    if (m_impl->position < m_impl->row_count)
        ++m_impl->position;
}

bool RecordSet::IsEOF()
{
    return m_impl->position >= m_impl->row_count;
}

int RecordSet::GetRecordCount() const
{
    return static_cast<int>(m_impl->row_count);
}

int RecordSet::GetFieldCount() const
{
    return static_cast<int>(m_impl->columns);
}

int RecordSet::FieldsCount() const
{
    return GetFieldCount();
}

std::string RecordSet::GetFieldValue(int index) const
{
    if (m_impl->index_of(index) < 0)
        return std::string();
    std::size_t size = 0;
    const char* text = m_impl->column_text(index, size);
    return std::string(text, size);
}

std::string RecordSet::GetFieldValue(std::string name) const
{
    const std::vector<std::string>& names = m_impl->names;
    const std::size_t columns = m_impl->columns;
    for (std::size_t i = 0; i < columns; ++i)
        if (names[i] == name)
            return GetFieldValue(static_cast<int>(i));
    const std::string folded = case_folded(name);
    for (std::size_t i = 0; i < columns; ++i)
        if (case_folded(names[i]) == folded)
            return GetFieldValue(static_cast<int>(i));
    return std::string();
}

std::string RecordSet::GetFieldName(int index) const
{
    if (index < 0 || static_cast<std::size_t>(index) >= m_impl->columns)
        return std::string();
    return m_impl->names[static_cast<std::size_t>(index)];
}

const char* RecordSet::GetColumnString(long index) const
{
    return m_impl->index_of(index) < 0 ? "" : m_impl->column_text(index);
}

} // namespace Ostrel

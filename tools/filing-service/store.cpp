#include "store.h"

#include <sqlite3.h>

#include <mutex>

#include "text.h"

namespace fs_store {

namespace {

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS filings ("
    " id INTEGER PRIMARY KEY, ein TEXT NOT NULL, form TEXT NOT NULL, year TEXT NOT NULL,"
    " UNIQUE (ein, form, year));"
    "CREATE TABLE IF NOT EXISTS versions ("
    " id INTEGER PRIMARY KEY, filing INTEGER NOT NULL REFERENCES filings(id), number INTEGER NOT NULL,"
    " stored_at TEXT NOT NULL, hash TEXT NOT NULL, text BLOB NOT NULL, source TEXT NOT NULL,"
    " UNIQUE (filing, number));"
    "CREATE TABLE IF NOT EXISTS copies ("
    " id INTEGER PRIMARY KEY, filing INTEGER NOT NULL REFERENCES filings(id), type TEXT NOT NULL,"
    " code TEXT NOT NULL, vlid INTEGER NOT NULL, replaceable INTEGER NOT NULL, deleted INTEGER NOT NULL,"
    " removed INTEGER NOT NULL DEFAULT 0, UNIQUE (filing, type, code));"
    "CREATE TABLE IF NOT EXISTS faults ("
    " id INTEGER PRIMARY KEY, operation TEXT NOT NULL, kind TEXT NOT NULL, text TEXT NOT NULL,"
    " remaining INTEGER NOT NULL, delay_ms INTEGER NOT NULL);";

// A prepared statement that finalizes itself; binds are 1-based in call order.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) : db_(db)
    {
        if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK)
            throw StoreError(std::string("database: ") + sqlite3_errmsg(db));
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(const std::string& text)
    {
        sqlite3_bind_text(stmt_, ++index_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind_blob(const std::string& bytes)
    {
        sqlite3_bind_blob(stmt_, ++index_, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(long long value)
    {
        sqlite3_bind_int64(stmt_, ++index_, value);
        return *this;
    }
    // True while there is a row.
    bool step()
    {
        const int rc = sqlite3_step(stmt_);
        if (rc == SQLITE_ROW)
            return true;
        if (rc == SQLITE_DONE)
            return false;
        throw StoreError(std::string("database: ") + sqlite3_errmsg(db_));
    }
    std::string text(int column)
    {
        const void* data = sqlite3_column_blob(stmt_, column);
        const int size = sqlite3_column_bytes(stmt_, column);
        return data ? std::string(static_cast<const char*>(data), static_cast<std::size_t>(size)) : std::string();
    }
    long long integer(int column) { return sqlite3_column_int64(stmt_, column); }

private:
    sqlite3* db_;
    sqlite3_stmt* stmt_ = nullptr;
    int index_ = 0;
};

void run(sqlite3* db, const char* sql)
{
    char* message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string text = message ? message : sqlite3_errmsg(db);
        sqlite3_free(message);
        throw StoreError("database: " + text);
    }
}

// Writers of this process take turns here rather than in SQLite's busy handler, which sleeps up to
// 100 ms between tries; the busy time-out is left for writers in other processes (the admin
// commands).
std::mutex g_write_mutex;

// A transaction that rolls back unless committed. Writers begin IMMEDIATE, so that they queue on
// the busy time-out instead of failing when a read lock would have to be upgraded.
class Transaction {
public:
    Transaction(sqlite3* db, bool write) : db_(db)
    {
        if (write)
            lock_ = std::unique_lock<std::mutex>(g_write_mutex);
        run(db_, write ? "BEGIN IMMEDIATE" : "BEGIN");
    }
    ~Transaction()
    {
        if (!done_)
            sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    void commit()
    {
        run(db_, "COMMIT");
        done_ = true;
    }

private:
    std::unique_lock<std::mutex> lock_;
    sqlite3* db_;
    bool done_ = false;
};

Copy read_copy(Statement& s, int first)
{
    Copy c;
    c.type = s.text(first);
    c.code = s.text(first + 1);
    c.vlid = static_cast<long>(s.integer(first + 2));
    c.replaceable = s.integer(first + 3) != 0;
    c.deleted = s.integer(first + 4) != 0;
    return c;
}

} // namespace

std::string Store::database_path(const std::string& directory)
{
    return directory + "/filing-service.db";
}

Store::Store(const std::string& directory)
{
    const std::string path = database_path(directory);
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        const std::string message = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        db_ = nullptr;
        throw StoreError("cannot open " + path + ": " + message);
    }
    sqlite3_busy_timeout(db_, 10000);
    try {
        exec("PRAGMA journal_mode=WAL");
        // FULL: an acknowledged store survives a power cut as well as a killed process.
        exec("PRAGMA synchronous=FULL");
        exec("PRAGMA foreign_keys=ON");
        exec(kSchema);
    } catch (...) {
        sqlite3_close(db_);
        db_ = nullptr;
        throw;
    }
}

Store::~Store()
{
    sqlite3_close(db_);
}

void Store::exec(const char* sql)
{
    run(db_, sql);
}

long long Store::filing_id(const FilingKey& key, bool create)
{
    {
        Statement find(db_, "SELECT id FROM filings WHERE ein = ? AND form = ? AND year = ?");
        find.bind(key.ein).bind(key.form).bind(key.year);
        if (find.step())
            return find.integer(0);
    }
    if (!create)
        return 0;
    Statement insert(db_, "INSERT INTO filings (ein, form, year) VALUES (?, ?, ?)");
    insert.bind(key.ein).bind(key.form).bind(key.year);
    insert.step();
    return sqlite3_last_insert_rowid(db_);
}

int Store::store_version(const FilingKey& key, const std::string& hash, const std::string& text,
                         const std::string& source, const std::vector<Copy>& intake)
{
    Transaction transaction(db_, true);
    const long long filing = filing_id(key, true);
    int number = 1;
    {
        Statement last(db_, "SELECT COALESCE(MAX(number), 0) FROM versions WHERE filing = ?");
        last.bind(filing);
        if (last.step())
            number = static_cast<int>(last.integer(0)) + 1;
    }
    {
        Statement insert(db_, "INSERT INTO versions (filing, number, stored_at, hash, text, source)"
                              " VALUES (?, ?, ?, ?, ?, ?)");
        insert.bind(filing).bind(number).bind(fs_text::utc_now()).bind(hash).bind_blob(text).bind(source);
        insert.step();
    }
    for (const Copy& c : intake) {
        Statement insert(db_, "INSERT OR IGNORE INTO copies (filing, type, code, vlid, replaceable, deleted)"
                              " VALUES (?, ?, ?, ?, ?, ?)");
        insert.bind(filing).bind(c.type).bind(c.code).bind(c.vlid).bind(c.replaceable ? 1 : 0).bind(c.deleted ? 1 : 0);
        insert.step();
    }
    transaction.commit();
    return number;
}

bool Store::get_version(const FilingKey& key, Version& out, int number)
{
    Statement s(db_, "SELECT v.number, v.stored_at, v.hash, v.text, v.source FROM versions v"
                     " JOIN filings f ON f.id = v.filing WHERE f.ein = ? AND f.form = ? AND f.year = ?"
                     " AND (? = 0 OR v.number = ?) ORDER BY v.number DESC LIMIT 1");
    s.bind(key.ein).bind(key.form).bind(key.year).bind(number).bind(number);
    if (!s.step())
        return false;
    out.number = static_cast<int>(s.integer(0));
    out.stored_at = s.text(1);
    out.hash = s.text(2);
    out.text = s.text(3);
    out.source = s.text(4);
    return true;
}

int Store::version_count(const FilingKey& key)
{
    Statement s(db_, "SELECT COUNT(*) FROM versions v JOIN filings f ON f.id = v.filing"
                     " WHERE f.ein = ? AND f.form = ? AND f.year = ?");
    s.bind(key.ein).bind(key.form).bind(key.year);
    return s.step() ? static_cast<int>(s.integer(0)) : 0;
}

bool Store::get_status(const FilingKey& key, std::vector<Copy>& copies)
{
    copies.clear();
    // One read transaction, so that the filing and its copies are seen at one moment.
    Transaction transaction(db_, false);
    const long long filing = filing_id(key, false);
    if (filing != 0) {
        Statement s(db_, "SELECT type, code, vlid, replaceable, deleted FROM copies"
                         " WHERE filing = ? AND removed = 0 ORDER BY id");
        s.bind(filing);
        while (s.step())
            copies.push_back(read_copy(s, 0));
    }
    transaction.commit();
    return filing != 0;
}

std::vector<FilingCopy> Store::list_copies(const FilingKey& filter)
{
    Statement s(db_, "SELECT f.ein, f.form, f.year, c.type, c.code, c.vlid, c.replaceable, c.deleted"
                     " FROM copies c JOIN filings f ON f.id = c.filing WHERE c.removed = 0"
                     " AND (? = '' OR f.ein = ?) AND (? = '' OR f.form = ?) AND (? = '' OR f.year = ?)"
                     " ORDER BY f.ein, f.form, f.year, c.id");
    s.bind(filter.ein).bind(filter.ein).bind(filter.form).bind(filter.form).bind(filter.year).bind(filter.year);
    std::vector<FilingCopy> out;
    while (s.step())
        out.push_back(FilingCopy{FilingKey{s.text(0), s.text(1), s.text(2)}, read_copy(s, 3)});
    return out;
}

bool Store::set_copy(const FilingKey& key, const std::string& type, const std::string& code,
                     std::optional<long> vlid, std::optional<bool> replaceable, std::optional<bool> deleted)
{
    Transaction transaction(db_, true);
    const long long filing = filing_id(key, true);
    Copy current;
    bool fresh = true;
    {
        Statement find(db_, "SELECT type, code, vlid, replaceable, deleted, removed FROM copies"
                            " WHERE filing = ? AND type = ? AND code = ?");
        find.bind(filing).bind(type).bind(code);
        if (find.step()) {
            current = read_copy(find, 0);
            fresh = find.integer(5) != 0;
        }
    }
    const long long v = vlid ? *vlid : current.vlid;
    const int r = (replaceable ? *replaceable : current.replaceable) ? 1 : 0;
    const int d = (deleted ? *deleted : current.deleted) ? 1 : 0;
    Statement upsert(db_, "INSERT INTO copies (filing, type, code, vlid, replaceable, deleted, removed)"
                          " VALUES (?, ?, ?, ?, ?, ?, 0) ON CONFLICT (filing, type, code) DO UPDATE SET"
                          " vlid = excluded.vlid, replaceable = excluded.replaceable, deleted = excluded.deleted,"
                          " removed = 0");
    upsert.bind(filing).bind(type).bind(code).bind(v).bind(r).bind(d);
    upsert.step();
    transaction.commit();
    return fresh;
}

bool Store::remove_copy(const FilingKey& key, const std::string& type, const std::string& code)
{
    Transaction transaction(db_, true);
    const long long filing = filing_id(key, false);
    if (filing == 0)
        return false;
    Statement s(db_, "UPDATE copies SET removed = 1 WHERE filing = ? AND type = ? AND code = ? AND removed = 0");
    s.bind(filing).bind(type).bind(code);
    s.step();
    const bool removed = sqlite3_changes(db_) > 0;
    transaction.commit();
    return removed;
}

long long Store::add_fault(const Fault& fault)
{
    Statement s(db_, "INSERT INTO faults (operation, kind, text, remaining, delay_ms) VALUES (?, ?, ?, ?, ?)");
    s.bind(fault.operation).bind(fault.kind).bind(fault.text).bind(fault.remaining).bind(fault.delay_ms);
    s.step();
    return sqlite3_last_insert_rowid(db_);
}

int Store::clear_faults()
{
    Statement s(db_, "DELETE FROM faults");
    s.step();
    return sqlite3_changes(db_);
}

std::vector<Fault> Store::list_faults()
{
    Statement s(db_, "SELECT id, operation, kind, text, remaining, delay_ms FROM faults ORDER BY id");
    std::vector<Fault> out;
    while (s.step())
        out.push_back(Fault{s.integer(0), s.text(1), s.text(2), s.text(3), static_cast<long>(s.integer(4)),
                            static_cast<long>(s.integer(5))});
    return out;
}

bool Store::take_fault(const std::string& operation, Fault& out)
{
    // Most requests find the queue empty: look before taking the write lock.
    {
        Statement any(db_, "SELECT 1 FROM faults LIMIT 1");
        if (!any.step())
            return false;
    }
    Transaction transaction(db_, true);
    {
        Statement s(db_, "SELECT id, operation, kind, text, remaining, delay_ms FROM faults"
                         " WHERE operation = ? OR operation = 'any' ORDER BY id LIMIT 1");
        s.bind(operation);
        if (!s.step())
            return false;
        out = Fault{s.integer(0), s.text(1), s.text(2), s.text(3), static_cast<long>(s.integer(4)),
                    static_cast<long>(s.integer(5))};
    }
    Statement use(db_, out.remaining <= 1 ? "DELETE FROM faults WHERE id = ?"
                                          : "UPDATE faults SET remaining = remaining - 1 WHERE id = ?");
    use.bind(out.id);
    use.step();
    transaction.commit();
    return true;
}

} // namespace fs_store

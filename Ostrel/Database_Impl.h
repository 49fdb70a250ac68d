#ifndef VELLUMENT_OSTREL_DATABASE_IMPL_H
#define VELLUMENT_OSTREL_DATABASE_IMPL_H

// The private records of the database layer's classes, shared by its implementation files.

#define SQLITE_HAS_CODEC 1
#include <sqlcipher/sqlite3.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_FileSystem.h>

#include "Ostrel/Database_ChildRows.h"
#include "Ostrel/Database_Shapes.h"
#include "Ostrel/Database_Text.h"
#include "Ostrel/LogMacros.h"

namespace Ostrel {

namespace {

// Enough for every fixed statement of the mirror and the reused inserts, small enough that
// statements made unique by spliced keys can't pile up.
const std::size_t kStatementCacheSize = 128;
// The mapper keeps one insert per table and one update per link.
const std::size_t kKeptStatements = 64;
// How long a statement waits for another process's lock before it fails.
const int kBusyTimeoutMs = 5000;
// A database file may be hostile: a view can be made to run without end or to yield rows without
// end. A record set may hold this many bytes, and a statement's steps are counted in blocks of
// this many (see SetStatementStepLimit); beyond, the statement fails.
const int kProgressInterval = 10000;
const unsigned long long kDefaultStepLimit = 500000000ULL;
const std::size_t kMaxSnapshotBytes = 512u * 1024u * 1024u;
const char kLastInsertRowid[] = "SELECT last_insert_rowid();";
const char kLastInsertRowidColumn[] = "last_insert_rowid()";

using detail::case_folded;
using detail::is_select;
using detail::only_trivia;
using detail::Slot;

} // namespace

struct DatabaseEx::Impl {
    sqlite3* db = nullptr;
    std::string path;
    std::string last_error;
    int depth = 0;
    unsigned long long progress_calls = 0;  // of the statement running now
    unsigned long long max_progress_calls = kDefaultStepLimit / kProgressInterval;

    static int on_progress(void* context)
    {
        Impl* self = static_cast<Impl*>(context);
        return ++self->progress_calls > self->max_progress_calls ? 1 : 0;
    }

    // Most recently used first; the map points into the list.
    using Entry = detail::CachedStatement;
    detail::StatementList lru;
    std::unordered_map<std::string, detail::StatementList::iterator> cache;
    // The shapes of recent texts, each with its statement while the cache holds it.
    detail::ShapeMemory shapes;
    // Buffers of the statement being run, kept between calls.
    std::string scratch_key;
    std::vector<Slot> scratch_slots;
    // Child rows grouped for a read; dropped by every statement that may write.
    detail::ChildRows child_rows;
    detail::ChildQuery scratch_query;
    bool query_pending = false;  // scratch_query is the statement being run
    // Statements kept under their number until the connection closes (see Database_Access.h).
    std::vector<std::pair<std::string, sqlite3_stmt*>> kept;

    void set_error(const std::string& text)
    {
        last_error = text;
        VLOG(2, "[Database] %s\n", text.c_str());
    }

    void set_sqlite_error(const char* what)
    {
        set_error(std::string(what) + ": " + (db != nullptr ? sqlite3_errmsg(db) : "database not open"));
    }

    void clear_cache()
    {
        for (Entry& entry : lru)
            sqlite3_finalize(entry.statement);
        lru.clear();
        cache.clear();
        shapes.forget_all();
    }

    // A prepared statement for exactly one statement of text, from the cache or made and cached.
    // The statement comes back reset and without bindings. With slots given, a statement that
    // changes rows may come back in its shape (see shape_of): the slots then tell what to bind to
    // each mark, and are empty otherwise.
    sqlite3_stmt* statement(const char* sql, std::vector<Slot>* slots = nullptr)
    {
        if (db == nullptr) {
            set_error("database not open");
            return nullptr;
        }
        if (sql == nullptr) {
            set_error("no statement");
            return nullptr;
        }
        std::string& key = scratch_key;  // reused: no allocation per statement
        detail::ShapeMemory::Known* known = slots != nullptr ? shapes.find(sql, *slots) : nullptr;
        if (known != nullptr && known->statement != nullptr) {
            lru.splice(lru.begin(), lru, known->entry);
            return known->statement;
        }
        key.assign(known != nullptr ? known->shape.c_str() : sql);
        auto found = cache.find(key);
        if (found != cache.end()) {
            lru.splice(lru.begin(), lru, found->second);
            if (known != nullptr) {
                known->statement = found->second->statement;
                known->entry = found->second;
            }
            return found->second->statement;
        }
        sqlite3_stmt* prepared = nullptr;
        const char* tail = nullptr;
        const int rc = sqlite3_prepare_v2(db, key.c_str(), static_cast<int>(key.size()) + 1, &prepared, &tail);
        if (rc != SQLITE_OK) {
            set_sqlite_error("prepare failed");
            sqlite3_finalize(prepared);
            return nullptr;
        }
        if (prepared == nullptr) {
            set_error("empty statement");
            return nullptr;
        }
        if (!only_trivia(tail)) {
            sqlite3_finalize(prepared);
            set_error("refused: more than one statement in \"" + key + "\"");
            return nullptr;
        }
        lru.push_front(Entry{key, prepared});
        cache.emplace(key, lru.begin());
        if (known != nullptr) {
            known->statement = prepared;
            known->entry = lru.begin();
        }
        while (lru.size() > kStatementCacheSize) {
            shapes.forget(lru.back().statement);
            cache.erase(lru.back().sql);
            sqlite3_finalize(lru.back().statement);
            lru.pop_back();
        }
        return prepared;
    }

    static void done_with(sqlite3_stmt* statement)
    {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }

    // Steps the statement to its end. True when it ran without error.
    // A statement whose every mark is bound again before each run may keep its bindings: they are
    // never read after the run.
    bool run(sqlite3_stmt* statement, const char* what, bool clear_bindings = true)
    {
        child_rows.clear();
        progress_calls = 0;
        int rc;
        do {
            rc = sqlite3_step(statement);
        } while (rc == SQLITE_ROW);
        const bool ok = rc == SQLITE_DONE;
        if (!ok)
            set_sqlite_error(what);
        if (clear_bindings)
            done_with(statement);
        else
            sqlite3_reset(statement);
        return ok;
    }

    // Answers a query from the grouped child rows (see Database_ChildRows.h): true with the group
    // of its rows; false: the statement is to run, and ran_plain told when it did. Any statement
    // but a read drops the groups, as does the end of the transaction.
    bool answer_from_groups(sqlite3_stmt* prepared, const char* sql, detail::ChildRows::Group& group)
    {
        query_pending = false;
        if (!sqlite3_stmt_readonly(prepared) || !is_select(sql) || sqlite3_get_autocommit(db) != 0) {
            child_rows.clear();
            return false;
        }
        if (!detail::parse_child_query(sql, scratch_query))
            return false;
        query_pending = true;
        progress_calls = 0;
        if (!child_rows.find(db, scratch_query, prepared, group))
            return false;
        query_pending = false;
        return true;
    }

    // As answer_from_groups, for a table grouped already: no statement is prepared, and the
    // names of the columns come with the group.
    bool answer_grouped(const char* sql, const std::vector<std::string>*& names, detail::ChildRows::Group& group)
    {
        return can_answer_grouped() && detail::parse_child_query(sql, scratch_query) &&
               child_rows.find_grouped(scratch_query, group, names);
    }
    bool can_answer_grouped() const
    {
        return db != nullptr && !child_rows.empty() && sqlite3_get_autocommit(db) == 0;
    }

    void ran_plain()
    {
        if (query_pending)
            child_rows.ran(scratch_query);
        query_pending = false;
    }

    bool exec_plain(const char* sql)
    {
        sqlite3_stmt* prepared = statement(sql);
        return prepared != nullptr && run(prepared, sql);
    }

    // Binds the integers of a shaped statement and the caller's parameters to their marks.
    bool bind(sqlite3_stmt* prepared, const std::vector<Slot>& slots,
              const std::vector<std::pair<std::string, int>>& parameters)
    {
        std::size_t next = 0;
        const std::size_t marks = slots.empty() ? parameters.size() : slots.size();
        for (std::size_t i = 0; i < marks; ++i) {
            const int index = static_cast<int>(i) + 1;
            int rc;
            if (!slots.empty() && slots[i].literal) {
                rc = sqlite3_bind_int64(prepared, index, slots[i].value);
            } else if (next < parameters.size()) {
                const std::string& value = parameters[next].first;
                switch (parameters[next++].second) {
                case 1: rc = sqlite3_bind_int64(prepared, index, std::strtoll(value.c_str(), nullptr, 10)); break;
                case 2: rc = sqlite3_bind_double(prepared, index, std::strtod(value.c_str(), nullptr)); break;
                case 3: rc = sqlite3_bind_null(prepared, index); break;
                default:
                    // The parameters outlive the run, and the bindings are cleared after it.
                    rc = sqlite3_bind_text(prepared, index, value.data(), static_cast<int>(value.size()),
                                           SQLITE_STATIC);
                    break;
                }
            } else {
                continue;  // no parameter given: the mark stays null
            }
            if (rc != SQLITE_OK) {
                set_sqlite_error("bind failed");
                done_with(prepared);
                return false;
            }
        }
        return true;
    }

    bool exec_shaped(const char* sql, const std::vector<std::pair<std::string, int>>& parameters)
    {
        std::vector<Slot>& slots = scratch_slots;
        sqlite3_stmt* prepared = statement(sql, &slots);
        if (prepared == nullptr)
            return false;
        std::size_t marks = static_cast<std::size_t>(sqlite3_bind_parameter_count(prepared));
        if (!slots.empty()) {
            marks = 0;
            for (const Slot& slot : slots)
                marks += slot.literal ? 0 : 1;
        }
        if (!parameters.empty() && marks != parameters.size()) {
            set_error("refused: " + std::to_string(parameters.size()) + " parameters for \"" + sql + "\"");
            return false;
        }
        return bind(prepared, slots, parameters) && run(prepared, sql);
    }

    // A transaction that SQLite ended on its own (after some errors it rolls back) no longer
    // counts as open.
    void sync_depth()
    {
        if (db == nullptr || sqlite3_get_autocommit(db) != 0)
            depth = 0;
    }

    bool open(const std::string& given_path, const std::string& password, bool create)
    {
        if (given_path.empty()) {
            set_error("refused: empty database path");
            return false;
        }
        const std::string disk = FileSystem::MapPath(given_path.c_str());
        if (!create && !FileSystem::GetFileExists(given_path.c_str())) {
            set_error("no database at " + given_path);
            return false;
        }
        // One object is used from one thread at a time: SQLite's own locking would only cost.
        int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
        if (create)
            flags |= SQLITE_OPEN_CREATE;
        sqlite3* handle = nullptr;
        if (sqlite3_open_v2(disk.c_str(), &handle, flags, nullptr) != SQLITE_OK) {
            last_error = std::string("cannot open ") + given_path + ": " +
                         (handle != nullptr ? sqlite3_errmsg(handle) : "out of memory");
            VLOG(2, "[Database] %s\n", last_error.c_str());
            sqlite3_close(handle);
            return false;
        }
        sqlite3_busy_timeout(handle, kBusyTimeoutMs);
        if (!password.empty() && sqlite3_key(handle, password.data(), static_cast<int>(password.size())) != SQLITE_OK) {
            set_error("cannot set the key of " + given_path);
            sqlite3_close(handle);
            return false;
        }
        // Reading the schema proves the key (and that the file is a database at all).
        const int rc = sqlite3_exec(handle, "SELECT count(*) FROM sqlite_master;", nullptr, nullptr, nullptr);
        if (rc != SQLITE_OK) {
            last_error = "cannot read " + given_path + " (wrong password or not a database): " + sqlite3_errmsg(handle);
            VLOG(2, "[Database] %s\n", last_error.c_str());
            sqlite3_close(handle);
            return false;
        }
        // The file may come from anywhere, and the SQLite under the cipher predates many of its
        // fixes for damaged files: have it check every cell it reads, and refuse a file whose
        // structure is damaged before any statement of ours runs on it.
        sqlite3_exec(handle, "PRAGMA cell_size_check = ON;", nullptr, nullptr, nullptr);
        if (!structure_ok(handle)) {
            last_error = "cannot use " + given_path + ": the database file is damaged";
            VLOG(2, "[Database] %s\n", last_error.c_str());
            sqlite3_close(handle);
            return false;
        }
        // A whole vellument is written in one transaction: a larger page cache keeps it from
        // spilling pages to the file before the commit.
        sqlite3_exec(handle, "PRAGMA cache_size = -16384;", nullptr, nullptr, nullptr);
        sqlite3_progress_handler(handle, kProgressInterval, &Impl::on_progress, this);
        db = handle;
        path = given_path;
        depth = 0;
        return true;
    }

    // PRAGMA quick_check answers a single "ok" for a sound file, else one row per fault.
    static bool structure_ok(sqlite3* handle)
    {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(handle, "PRAGMA quick_check;", -1, &statement, nullptr) != SQLITE_OK)
            return false;
        bool ok = false;
        if (sqlite3_step(statement) == SQLITE_ROW) {
            const unsigned char* text = sqlite3_column_text(statement, 0);
            ok = text != nullptr && std::strcmp(reinterpret_cast<const char*>(text), "ok") == 0 &&
                 sqlite3_step(statement) == SQLITE_DONE;
        }
        sqlite3_finalize(statement);
        return ok;
    }

    void close()
    {
        child_rows.clear();
        clear_cache();
        for (const auto& statement : kept)
            sqlite3_finalize(statement.second);
        kept.clear();
        if (db != nullptr) {
            // Closing with a transaction open rolls it back.
            sqlite3_close_v2(db);
            db = nullptr;
        }
        path.clear();
        depth = 0;
    }
};

struct RecordSet::Impl {
    // The first `columns` are the result's; the rest are kept from earlier results, so that a set
    // opened again and again reuses their memory.
    std::vector<std::string> names;
    std::size_t columns = 0;
    // Every cell of every row, row after row, each closed by a NUL, in one buffer: a result of
    // many small rows costs no allocation per cell. starts[i] is where cell i begins; its size
    // runs to the next start, less the NUL.
    std::string text;
    std::vector<std::size_t> starts;
    // Or, when the rows were answered from a group of child rows, that group: its cells are
    // shared rather than copied, and it keeps them while the set holds them.
    detail::ChildRows::Group group;
    bool grouped = false;
    // The grouping whose column names `names` holds, if any: a set opened again and again on
    // one grouped table keeps them rather than copying them for every row.
    std::weak_ptr<const detail::Grouped> names_from;
    std::size_t row_count = 0;
    std::size_t position = 0;

    // Cell index of a column in the present row, or -1.
    long index_of(long column) const
    {
        if (position >= row_count || column < 0 || static_cast<std::size_t>(column) >= columns)
            return -1;
        return static_cast<long>(position * columns + static_cast<std::size_t>(column));
    }
    // Text of a column of the present row, and its size; the column must be valid.
    const char* column_text(long column, std::size_t& size) const
    {
        if (grouped)
            return group.cell(position, static_cast<std::size_t>(column), size);
        const std::size_t cell = position * columns + static_cast<std::size_t>(column);
        const std::size_t next = cell + 1;
        const std::size_t end = next < starts.size() ? starts[next] : text.size();
        size = end - starts[cell] - 1;
        return text.data() + starts[cell];
    }
    const char* column_text(long column) const
    {
        if (grouped)
            return group.cell(position, static_cast<std::size_t>(column));
        return text.data() + starts[position * columns + static_cast<std::size_t>(column)];
    }
    void add_cell(const char* value, std::size_t size)
    {
        starts.push_back(text.size());
        if (size > 0)
            text.append(value, size);
        text.push_back('\0');
    }
    void take_group(detail::ChildRows::Group& answer)
    {
        group = std::move(answer);
        grouped = true;
        row_count = group.size();
    }
    // The rows of a group of an existing grouping, with the grouping's column names.
    void take_grouped(detail::ChildRows::Group& answer, const std::vector<std::string>& grouped_names)
    {
        take_group(answer);
        const std::shared_ptr<const detail::Grouped>& from = group.rows();
        if (names_from.expired() || names_from.owner_before(from) || from.owner_before(names_from)) {
            for (std::size_t i = 0; i < grouped_names.size(); ++i)
                set_column_name(i, grouped_names[i].c_str());
            names_from = from;
        }
        columns = grouped_names.size();
    }

    void clear_rows()
    {
        group = detail::ChildRows::Group();
        grouped = false;
        text.clear();
        starts.clear();
        row_count = 0;
        position = 0;
    }
    void clear()
    {
        columns = 0;
        clear_rows();
    }
    void set_column_name(std::size_t index, const char* name)
    {
        names_from.reset();
        if (names.size() <= index)
            names.resize(index + 1);
        names[index].assign(name);
    }
};

} // namespace Ostrel

#endif

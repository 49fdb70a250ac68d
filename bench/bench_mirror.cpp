// The SQL mirror against SQLite alone, on the large vellument at 1 and 4 times its size:
// - write: the mirror against SQLite inserting the same rows with one prepared statement per table
//   in one transaction, into tables without an index, as the mirror's. Goal: at most 2 times.
// - read: readRecords, and the whole read_from_vellument_database, against a plain SELECT of the
//   same rows. Goal: at most 3 times, and the same ratio at both sizes.
// Both sides of each pair run in one process, one after the other; compare the medians of
//   bench_mirror --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include <benchmark/benchmark.h>
#include <sqlcipher/sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

#include "large_vellument.h"

namespace {

using namespace large_vellument;

// Rows of one transaction: itself, package, status, two status bases, and each copy, filing,
// history and form with its base row.
const int kRowsPerTransaction = 5 + 2 * (kCopies + kCopies * kHistories + kFilings + kFilings * kForms);

// The vellument and audit trail rows, at a scale.
int rows_at(int scale)
{
    return kTransactions * scale * kRowsPerTransaction + 2;
}

const char kEin[] = "12-3456789";
const char kYear[] = "2021";
const char kVendor[] = "VND";

struct Scratch {
    std::string root;     // disk directory, removed at exit
    std::string company;  // Windows form
    Scratch()
    {
        Ostrel::Log::SetLevel(1);
        root = make_scratch_company();
        company = Ostrel::FileSystem::ToWindowsPath((root + "/Co").c_str());
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(scratch().root, ec);
        });
    }
    static Scratch& scratch()
    {
        static Scratch* s = new Scratch;
        return *s;
    }
};

std::string vellument_name()
{
    return Scratch::scratch().company + "\\HISTORIES\\VELLUMENT_W2_2021.VLM";
}

// The large vellument at one scale, in memory.
CVellument& vellument_at(int scale)
{
    static std::map<int, std::unique_ptr<CVellument>> made;
    std::unique_ptr<CVellument>& v = made[scale];
    if (!v) {
        v.reset(new CVellument);
        v->open(vellument_name().c_str(), kEin, kYear, kVendor, false, true);
        v->set_form_type_string("W-2_SSA");
        // The same 500 transactions over again: the shape of the trail stays, its length grows.
        for (int i = 0; i < scale; ++i) {
            if (i > 0)
                v->clear_current_status();
            fill(*v);
        }
    }
    return *v;
}

std::string fresh_database(const std::string& name)
{
    const std::string path = Scratch::scratch().root + "/" + name;
    std::error_code ec;
    std::filesystem::remove(path, ec);
    std::filesystem::remove(path + "-journal", ec);
    return path;
}

// A mirror holding the vellument at one scale, written once.
const std::string& mirror_at(int scale)
{
    static std::map<int, std::string> made;
    std::string& path = made[scale];
    if (path.empty()) {
        path = fresh_database("read-" + std::to_string(scale) + ".db");
        CvellumentDB mapper;
        if (!mapper.writeRecords(&vellument_at(scale), path, ""))
            std::abort();
    }
    return path;
}

void count_rows(benchmark::State& state, int rows)
{
    state.counters["rows"] = rows;
    state.counters["rows/s"] =
        benchmark::Counter(static_cast<double>(rows) * state.iterations(), benchmark::Counter::kIsRate);
}

void BM_MirrorWrite(benchmark::State& state)
{
    const int scale = static_cast<int>(state.range(0));
    const CVellument& v = vellument_at(scale);
    for (auto _ : state) {
        state.PauseTiming();
        const std::string path = fresh_database("mirror.db");
        state.ResumeTiming();
        CvellumentDB mapper;
        if (!mapper.writeRecords(&v, path, ""))
            state.SkipWithError("write failed");
    }
    count_rows(state, rows_at(scale));
}
BENCHMARK(BM_MirrorWrite)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

// --- SQLite alone ------------------------------------------------------------------------------

// One table's insert: its columns from an attribute list, then tableVer and the links.
struct Table {
    std::string name;
    std::vector<std::string> columns;  // attribute columns, each with its type word
    std::vector<std::string> links;    // parentID, baseID ...
    sqlite3_stmt* insert = nullptr;
};

// A row ready to bind: the values of the attribute list.
typedef std::vector<std::string> Values;

// "Name TYPE" of each attribute: the same columns, with the same affinities, as the mirror's.
std::vector<std::string> names_of(const attributeDicList& list)
{
    std::vector<std::string> names;
    for (const attributeDic& a : list)
        names.push_back(a.attributeName + " " + a.attributeType);
    return names;
}

Values values_of(const attributeDicList& list)
{
    Values values;
    for (const attributeDic& a : list)
        values.push_back(a.attributeValue);
    return values;
}

// The rows of the vellument, taken out of the records before the clock runs.
struct Rows {
    struct Unit {
        Values own, base;
        std::vector<std::pair<Values, Values>> children;  // own, base
    };
    struct Transaction {
        Values own, package, package_base, status_base;
        std::vector<Unit> copies, filings;
    };
    Values trail;
    std::vector<Transaction> transactions;
};

const Rows& rows_of(int scale)
{
    static std::map<int, std::unique_ptr<Rows>> cache;
    std::unique_ptr<Rows>& r = cache[scale];
    if (!r) {
        auto* made = new Rows;
        r.reset(made);
        const CVellument& v = vellument_at(scale);
        made->trail = values_of(v.getAndFillMap());
        for (int i = 0; i < v.get_transaction_count(); ++i) {
            CTransaction* t = v.get_transaction(i);
            Rows::Transaction row;
            row.own = values_of(t->getAndFillMap());
            row.package = values_of(t->get_package()->getAndFillMap());
            row.package_base = values_of(t->get_package()->getAndFillMapBase());
            row.status_base = values_of(t->get_status()->getAndFillMapBase());
            for (int c = 0; c < t->get_status()->get_copy_count(); ++c) {
                CCopy* copy = t->get_status()->get_copy_at(c);
                Rows::Unit unit{values_of(copy->getAndFillMap()), values_of(copy->getAndFillMapBase()), {}};
                for (int h = 0; h < copy->get_history_count(); ++h)
                    unit.children.emplace_back(Values(), values_of(copy->get_history_at(h)->getAndFillMapBase()));
                row.copies.push_back(std::move(unit));
            }
            for (int k = 0; k < t->get_package()->get_filing_count(); ++k) {
                CFiling* filing = t->get_package()->get_filing_at(k);
                Rows::Unit unit{values_of(filing->getAndFillMap()), values_of(filing->getAndFillMapBase()), {}};
                for (int m = 0; m < filing->get_form_count(); ++m)
                    unit.children.emplace_back(values_of(filing->get_form_at(m)->getAndFillMap()),
                                               values_of(filing->get_form_at(m)->getAndFillMapBase()));
                row.filings.push_back(std::move(unit));
            }
            made->transactions.push_back(std::move(row));
        }
    }
    return *r;
}

bool exec(sqlite3* db, const std::string& sql)
{
    return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool prepare(sqlite3* db, Table& table)
{
    std::string sql = "CREATE TABLE " + table.name + " (id INTEGER PRIMARY KEY";
    std::string insert = "INSERT INTO " + table.name + " (";
    std::string marks;
    for (const std::string& column : table.columns) {
        sql += ", " + column;
        insert += column.substr(0, column.find(' ')) + ", ";
        marks += "?, ";
    }
    sql += ", tableVer INT";
    insert += "tableVer";
    marks += "?";
    for (const std::string& link : table.links) {
        sql += ", " + link + " INTEGER";
        insert += ", " + link;
        marks += ", ?";
    }
    sql += ");";
    insert += ") VALUES (" + marks + ");";
    return exec(db, sql) && sqlite3_prepare_v2(db, insert.c_str(), -1, &table.insert, nullptr) == SQLITE_OK;
}

// Binds the values and the links, runs the insert, gives the new key.
sqlite3_int64 insert(sqlite3* db, Table& table, const Values& values, std::initializer_list<sqlite3_int64> links)
{
    int index = 1;
    for (const std::string& value : values)
        sqlite3_bind_text(table.insert, index++, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    sqlite3_bind_int(table.insert, index++, 2);
    for (sqlite3_int64 link : links)
        sqlite3_bind_int64(table.insert, index++, link);
    if (sqlite3_step(table.insert) != SQLITE_DONE)
        std::abort();
    sqlite3_reset(table.insert);
    return sqlite3_last_insert_rowid(db);
}

void BM_SqliteAlone(benchmark::State& state)
{
    const int scale = static_cast<int>(state.range(0));
    const Rows& r = rows_of(scale);
    const CVellument& v = vellument_at(scale);
    CTransaction* t0 = v.get_transaction(0);
    CCopy* any_copy = t0->get_status()->get_copy_at(0);
    CFiling* any_filing = t0->get_package()->get_filing_at(0);
    const std::vector<std::string> none;

    for (auto _ : state) {
        state.PauseTiming();
        const std::string path = fresh_database("alone.db");
        state.ResumeTiming();

        sqlite3* db = nullptr;
        if (sqlite3_open(path.c_str(), &db) != SQLITE_OK)
            std::abort();
        // The same page cache as the mirror's database layer sets.
        exec(db, "PRAGMA cache_size = -16384;");
        Table vellument{"Vellument", {"FormType STRING", "FilingYear INT", "Extension STRING"}, {"childID"}};
        Table trail{"AuditTrail", names_of(v.getAndFillMap()), {"parentID", "dictionaryID"}};
        Table transaction{"Trans", names_of(t0->getAndFillMap()), {"parentID", "packageID", "statusID"}};
        Table package{"Package", names_of(t0->get_package()->getAndFillMap()), {"parentID", "baseID"}};
        Table status{"Status", none, {"parentID", "baseID"}};
        Table status_base{"StatusBase", names_of(t0->get_package()->getAndFillMapBase()), {}};
        Table copy{"Copy", names_of(any_copy->getAndFillMap()), {"parentID", "baseID"}};
        Table filing{"Filing", names_of(any_filing->getAndFillMap()), {"parentID", "baseID"}};
        Table filing_base{"FilingBase", names_of(any_copy->getAndFillMapBase()), {}};
        Table history{"History", none, {"parentID", "baseID"}};
        Table form{"Form", names_of(any_filing->get_form_at(0)->getAndFillMap()), {"parentID", "baseID"}};
        Table form_base{"FormBase", names_of(any_filing->get_form_at(0)->getAndFillMapBase()), {}};
        Table* tables[] = {&vellument, &trail,  &transaction, &package, &status,  &status_base,
                           &copy,      &filing, &filing_base, &history, &form,    &form_base};

        exec(db, "BEGIN;");
        for (Table* table : tables)
            if (!prepare(db, *table))
                std::abort();
        const sqlite3_int64 vellument_id = insert(db, vellument, {"W2", "2021", "VLM"}, {1});
        const sqlite3_int64 trail_id = insert(db, trail, r.trail, {vellument_id, 0});
        for (const Rows::Transaction& t : r.transactions) {
            const sqlite3_int64 status_base_id = insert(db, status_base, t.status_base, {});
            const sqlite3_int64 package_base_id = insert(db, status_base, t.package_base, {});
            const sqlite3_int64 transaction_id = insert(db, transaction, t.own, {trail_id, 0, 0});
            const sqlite3_int64 package_id = insert(db, package, t.package, {transaction_id, package_base_id});
            const sqlite3_int64 status_id = insert(db, status, {}, {transaction_id, status_base_id});
            for (const Rows::Unit& unit : t.copies) {
                const sqlite3_int64 base = insert(db, filing_base, unit.base, {});
                const sqlite3_int64 copy_id = insert(db, copy, unit.own, {status_id, base});
                for (const auto& child : unit.children)
                    insert(db, history, {}, {copy_id, insert(db, form_base, child.second, {})});
            }
            for (const Rows::Unit& unit : t.filings) {
                const sqlite3_int64 base = insert(db, filing_base, unit.base, {});
                const sqlite3_int64 filing_id = insert(db, filing, unit.own, {package_id, base});
                for (const auto& child : unit.children)
                    insert(db, form, child.first, {filing_id, insert(db, form_base, child.second, {})});
            }
        }
        for (Table* table : tables)
            sqlite3_finalize(table->insert);
        exec(db, "COMMIT;");
        sqlite3_close(db);
    }
    count_rows(state, rows_at(scale));
}
BENCHMARK(BM_SqliteAlone)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

// --- Reading ------------------------------------------------------------------------------------

// The mapper alone: rows to the XML tree. The application owns the database and keeps it open.
void BM_MirrorRead(benchmark::State& state)
{
    const int scale = static_cast<int>(state.range(0));
    const CVellument& v = vellument_at(scale);
    Ostrel::DatabaseEx database;
    if (!database.OpenFile(mirror_at(scale), ""))
        std::abort();
    for (auto _ : state) {
        CvellumentDB mapper;
        std::unique_ptr<COXMLDocument> document(mapper.readRecords(&v, &database));
        if (!document)
            state.SkipWithError("read failed");
    }
    count_rows(state, rows_at(scale));
}
BENCHMARK(BM_MirrorRead)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

// The whole read of a vellument from the mirror: the tree, then the records built from it.
void BM_VellumentReadFromDatabase(benchmark::State& state)
{
    const int scale = static_cast<int>(state.range(0));
    Ostrel::DatabaseEx database;
    if (!database.OpenFile(mirror_at(scale), ""))
        std::abort();
    const std::string name = vellument_name();
    for (auto _ : state) {
        CVellument v;
        if (!v.read_from_vellument_database(name.c_str(), kEin, kYear, kVendor, &database) ||
            v.get_transaction_count() != kTransactions * scale)
            state.SkipWithError("read failed");
    }
    count_rows(state, rows_at(scale));
}
BENCHMARK(BM_VellumentReadFromDatabase)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

// SQLite alone: every row of every table of the same mirror, each column's text touched.
void BM_PlainSelect(benchmark::State& state)
{
    const int scale = static_cast<int>(state.range(0));
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(mirror_at(scale).c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
        std::abort();
    static const char* const kTables[] = {
        "VLMvellument", "VLMauditTrail", "VLMtransaction", "VLMpackage", "VLMstatus",   "VLMstatusBase",
        "VLMcopy",      "VLMfiling",     "VLMfilingBase",  "VLMhistory", "VLMform",     "VLMformBase",
        "VLMdictionary", "VLMdictionaryEntry"};
    for (auto _ : state) {
        std::size_t bytes = 0;
        for (const char* table : kTables) {
            sqlite3_stmt* select = nullptr;
            const std::string sql = std::string("SELECT * FROM ") + table + ";";
            if (sqlite3_prepare_v2(db, sql.c_str(), -1, &select, nullptr) != SQLITE_OK)
                std::abort();
            const int columns = sqlite3_column_count(select);
            while (sqlite3_step(select) == SQLITE_ROW)
                for (int i = 0; i < columns; ++i) {
                    benchmark::DoNotOptimize(sqlite3_column_text(select, i));
                    bytes += static_cast<std::size_t>(sqlite3_column_bytes(select, i));
                }
            sqlite3_finalize(select);
        }
        benchmark::DoNotOptimize(bytes);
    }
    sqlite3_close(db);
    count_rows(state, rows_at(scale));
}
BENCHMARK(BM_PlainSelect)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

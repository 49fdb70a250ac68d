// Writing the large vellument into the SQL mirror, beside SQLite alone inserting the same rows
// with one prepared statement per table.
//   bench_mirror --benchmark_min_time=1
// Goal: the mirror within 3 times SQLite alone, in rows per second.

#include <benchmark/benchmark.h>
#include <sqlcipher/sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>

#include "large_vellument.h"

namespace {

using namespace large_vellument;

// Rows of one transaction: itself, package, status, two status bases, and each copy, filing,
// history and form with its base row.
const int kRowsPerTransaction = 5 + 2 * (kCopies + kCopies * kHistories + kFilings + kFilings * kForms);
// The vellument and audit trail rows.
const int kRows = kTransactions * kRowsPerTransaction + 2;

struct Fixture {
    std::string root;  // disk directory, removed at exit
    CVellument vellument;
};

Fixture& fixture()
{
    static Fixture* f = [] {
        Ostrel::Log::SetLevel(1);
        auto* made = new Fixture;
        made->root = large_vellument::make_scratch_company();
        const std::string company = Ostrel::FileSystem::ToWindowsPath((made->root + "/Co").c_str());
        const std::string name = company + "\\HISTORIES\\VELLUMENT_W2_2021.VLM";

        CVellument& v = made->vellument;
        v.open(name.c_str(), "12-3456789", "2021", "VND", false, true);
        v.set_form_type_string("W-2_SSA");
        large_vellument::fill(v);
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(fixture().root, ec);
        });
        return made;
    }();
    return *f;
}

std::string fresh_database(const char* name)
{
    const std::string path = fixture().root + "/" + name;
    std::error_code ec;
    std::filesystem::remove(path, ec);
    std::filesystem::remove(path + "-journal", ec);
    return path;
}

void BM_MirrorWrite(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        state.PauseTiming();
        const std::string path = fresh_database("mirror.db");
        state.ResumeTiming();
        CvellumentDB mapper;
        if (!mapper.writeRecords(&f.vellument, path, ""))
            state.SkipWithError("write failed");
    }
    state.counters["rows"] = kRows;
    state.counters["rows/s"] = benchmark::Counter(static_cast<double>(kRows) * state.iterations(),
                                                  benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MirrorWrite)->Unit(benchmark::kMillisecond);

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

const Rows& rows()
{
    static Rows* r = [] {
        auto* made = new Rows;
        const CVellument& v = fixture().vellument;
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
        return made;
    }();
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
    const Rows& r = rows();
    const CVellument& v = fixture().vellument;
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
    state.counters["rows"] = kRows;
    state.counters["rows/s"] = benchmark::Counter(static_cast<double>(kRows) * state.iterations(),
                                                  benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SqliteAlone)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

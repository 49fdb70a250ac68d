// The database layer: plain and encrypted files, nested transactions, the one-statement rule and
// record sets that are snapshots.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <vellument/Ostrel_Database.h>

#include "log_capture.h"
#include "test_util.h"

using Ostrel::DatabaseEx;
using Ostrel::RecordSet;

namespace {

typedef std::vector<std::pair<std::string, int>> Parameters;

int count_rows(DatabaseEx& db, const char* table)
{
    RecordSet rows;
    const std::string sql = std::string("SELECT count(*) FROM ") + table + ";";
    if (!rows.Open(sql.c_str(), &db))
        return -1;
    return std::atoi(rows.GetFieldValue(0).c_str());
}

bool table_exists(DatabaseEx& db, const char* table)
{
    RecordSet rows;
    const std::string sql = std::string("SELECT name FROM sqlite_master WHERE type='table' AND name='") + table + "';";
    return rows.Open(sql.c_str(), &db) && rows.GetRecordCount() == 1;
}

// Output of a shell command, or false when it couldn't run.
bool run(const std::string& command, std::string& output)
{
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return false;
    char buffer[256];
    output.clear();
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr)
        output += buffer;
    return pclose(pipe) == 0;
}

bool have_tool(const std::string& name)
{
    std::string ignored;
    return run("command -v " + name + " >/dev/null 2>&1", ignored);
}

// A new database file holding one table t with the one text value.
void write_value(const std::string& path, const std::string& password, const std::string& value)
{
    DatabaseEx db;
    ASSERT_TRUE(db.OpenFile(path, password));
    ASSERT_TRUE(db.Execute("CREATE TABLE t (v STRING);"));
    ASSERT_TRUE(db.ExecuteAndBindStatement("INSERT INTO t (v) VALUES (?);", {{value, 0}}, false));
}

class Database : public ::testing::Test {
protected:
    void SetUp() override
    {
        path = dir.file("data.db");
        ASSERT_TRUE(db.OpenFile(path, ""));
        ASSERT_TRUE(db.Execute("CREATE TABLE t (id INTEGER PRIMARY KEY, name STRING, n INT);"));
    }
    testutil::TempDir dir;
    std::string path;
    DatabaseEx db;
};

} // namespace

TEST(DatabaseFile, EmptyPathMissingFileAndNonDatabase)
{
    testutil::TempDir dir;
    DatabaseEx db;
    EXPECT_FALSE(db.OpenFile("", ""));
    EXPECT_FALSE(db.GetOpen());

    // OpenExistingFile never creates; OpenFile does.
    EXPECT_FALSE(db.OpenExistingFile(dir.file("missing.db"), ""));
    EXPECT_FALSE(std::filesystem::exists(dir.file("missing.db")));
    ASSERT_TRUE(db.OpenFile(dir.file("new.db"), ""));
    EXPECT_TRUE(std::filesystem::exists(dir.file("new.db")));
    EXPECT_EQ(db.GetFilePath(), dir.file("new.db"));
    EXPECT_TRUE(db.Close());
    EXPECT_FALSE(db.GetOpen());
    EXPECT_EQ(db.GetFilePath(), "");
    EXPECT_FALSE(db.Execute("SELECT 1;"));

    testutil::write_file(dir.file("text.db"), std::string(4096, 'x'));
    EXPECT_FALSE(db.OpenFile(dir.file("text.db"), ""));
    EXPECT_FALSE(db.GetOpen());

    // A file whose schema reads but whose table pages are damaged is refused before any
    // statement can walk into the damage.
    const std::string damaged = dir.file("damaged.db");
    ASSERT_TRUE(db.OpenFile(damaged, ""));
    ASSERT_TRUE(db.Execute("CREATE TABLE t (id INTEGER PRIMARY KEY, name STRING);"));
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(db.Execute(("INSERT INTO t (name) VALUES ('row " + std::to_string(i) + "');").c_str()));
    ASSERT_TRUE(db.Close());
    std::string bytes = testutil::read_file(damaged);
    ASSERT_GE(bytes.size(), 8192u);
    for (std::size_t i = 4096 + 8; i < 4096 + 40; ++i)
        bytes[i] = '\xFF';
    testutil::write_file(damaged, bytes);
    EXPECT_FALSE(db.OpenFile(damaged, ""));
    EXPECT_FALSE(db.GetOpen());
}

TEST(DatabaseFile, PasswordEncryptsAndIsChecked)
{
    testutil::TempDir dir;
    const std::string path = dir.file("secret.db");
    ASSERT_NO_FATAL_FAILURE(write_value(path, "pa'ss word", "needle-in-the-file"));
    const std::string bytes = testutil::read_file(path);
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(bytes.find("SQLite format 3"), std::string::npos);
    EXPECT_EQ(bytes.find("needle-in-the-file"), std::string::npos);

    DatabaseEx db;
    EXPECT_FALSE(db.OpenFile(path, ""));
    EXPECT_FALSE(db.GetOpen());
    EXPECT_FALSE(db.OpenFile(path, "pa'ss wore"));
    EXPECT_FALSE(db.GetOpen());
    ASSERT_TRUE(db.OpenFile(path, "pa'ss word"));
    RecordSet rows;
    ASSERT_TRUE(rows.Open("SELECT v FROM t;", &db));
    EXPECT_EQ(rows.GetFieldValue(0), "needle-in-the-file");

    // The cipher is SQLCipher's own: its shell opens the file with the key.
    std::string out;
    if (have_tool("sqlcipher")) {
        ASSERT_TRUE(run("sqlcipher '" + path + "' \"PRAGMA key = 'pa''ss word';\" 'SELECT v FROM t;' 2>&1", out));
        EXPECT_NE(out.find("needle-in-the-file"), std::string::npos) << out;
    }
}

TEST(DatabaseFile, EmptyPasswordGivesAFileTheStockToolReads)
{
    testutil::TempDir dir;
    const std::string path = dir.file("plain.db");
    ASSERT_NO_FATAL_FAILURE(write_value(path, "", "plain text"));
    EXPECT_EQ(testutil::read_file(path).rfind("SQLite format 3", 0), 0u);
    bool checked = false;
    for (const char* tool : {"sqlite3", "sqlcipher"}) {
        if (!have_tool(tool))
            continue;
        std::string out;
        ASSERT_TRUE(run(std::string(tool) + " '" + path + "' 'SELECT v FROM t;' 2>&1", out)) << tool;
        EXPECT_EQ(out, "plain text\n") << tool;
        checked = true;
    }
    if (!checked)
        GTEST_SKIP() << "no SQLite shell on this machine";
}

TEST_F(Database, NestedTransactionsStandOrFallWithTheOutermost)
{
    // The inner part rolls back alone; the outer commit keeps the rest.
    ASSERT_TRUE(db.BeginTransaction(false));
    ASSERT_TRUE(db.Execute("INSERT INTO t (name) VALUES ('outer');"));
    ASSERT_TRUE(db.BeginTransaction(false));
    EXPECT_EQ(db.GetTransactionDepth(), 2);
    ASSERT_TRUE(db.Execute("INSERT INTO t (name) VALUES ('inner');"));
    EXPECT_TRUE(db.RollbackTransaction());
    EXPECT_TRUE(db.CommitTransaction());
    EXPECT_EQ(db.GetTransactionDepth(), 0);
    EXPECT_EQ(count_rows(db, "t"), 1);

    // An inner commit is undone by the outer rollback, tables made inside included.
    ASSERT_TRUE(db.BeginTransaction(false));
    ASSERT_TRUE(db.BeginTransaction(false));
    ASSERT_TRUE(db.Execute("CREATE TABLE u (x INT);"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (name) VALUES ('gone');"));
    EXPECT_TRUE(db.CommitTransaction());
    EXPECT_TRUE(db.RollbackTransaction());
    EXPECT_EQ(count_rows(db, "t"), 1);
    EXPECT_FALSE(table_exists(db, "u"));

    // Unbalanced ends are refused, and a transaction left open dies with the connection.
    EXPECT_FALSE(db.CommitTransaction());
    EXPECT_FALSE(db.RollbackTransaction());
    ASSERT_TRUE(db.BeginTransaction(false));
    ASSERT_TRUE(db.Execute("INSERT INTO t (name) VALUES ('uncommitted');"));
    db.Close();
    ASSERT_TRUE(db.OpenFile(path, ""));
    EXPECT_EQ(count_rows(db, "t"), 1);
}

TEST_F(Database, OneStatementPerCall)
{
    ASSERT_TRUE(db.Execute("INSERT INTO t (name) VALUES ('a')"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (name) VALUES ('b');  ;\n -- done\n /* really */"));

    // A second statement is refused, and the first doesn't run either.
    EXPECT_FALSE(db.Execute("INSERT INTO t (name) VALUES ('c'); DROP TABLE t;"));
    EXPECT_FALSE(db.Execute("INSERT INTO t (name) VALUES ('c'); DROP TABLE t"));
    EXPECT_FALSE(db.ExecuteAndBindStatement("INSERT INTO t (name) VALUES (?); DROP TABLE t;", {{"c", 0}}, false));
    RecordSet rows;
    EXPECT_FALSE(rows.Open("SELECT * FROM t WHERE n = 2021; DROP TABLE t", &db));
    EXPECT_EQ(rows.GetRecordCount(), 0);
    EXPECT_TRUE(table_exists(db, "t"));
    EXPECT_EQ(count_rows(db, "t"), 2);

    EXPECT_FALSE(db.Execute(nullptr));
    EXPECT_FALSE(db.Execute(""));
    EXPECT_FALSE(db.Execute("  ; -- nothing"));
    EXPECT_FALSE(db.Execute("NOT SQL AT ALL"));
    EXPECT_FALSE(rows.Open(nullptr, &db));
    EXPECT_FALSE(rows.Open("SELECT 1;", nullptr));
}

TEST_F(Database, BoundParametersAreValuesOnly)
{
    const std::string hostile = "x'); DROP TABLE t; --";
    ASSERT_TRUE(db.ExecuteAndBindStatement("INSERT INTO t (name, n) VALUES (?, ?);", {{hostile, 0}, {"12", 0}}, false));
    // The same text again comes from the cache with fresh bindings.
    ASSERT_TRUE(
        db.ExecuteAndBindStatement("INSERT INTO t (name, n) VALUES (?, ?);", {{"second", 0}, {"13", 1}}, false));
    // Wrong parameter counts are refused; an empty list runs the statement as it stands (nulls).
    EXPECT_FALSE(db.ExecuteAndBindStatement("INSERT INTO t (name, n) VALUES (?, ?);", {{"one", 0}}, false));
    EXPECT_FALSE(db.ExecuteAndBindStatement("INSERT INTO t (name) VALUES ('z');", {{"one", 0}}, false));
    ASSERT_TRUE(db.ExecuteAndBindStatement("INSERT INTO t (name, n) VALUES (?, ?);", {}, false));

    RecordSet rows;
    ASSERT_TRUE(rows.Open("SELECT name, n, typeof(n) FROM t ORDER BY id;", &db));
    ASSERT_EQ(rows.GetRecordCount(), 3);
    EXPECT_EQ(rows.GetFieldValue(0), hostile);
    EXPECT_EQ(rows.GetFieldValue(1), "12");
    rows.MoveNext();
    EXPECT_EQ(rows.GetFieldValue(std::string("name")), "second");
    EXPECT_EQ(rows.GetFieldValue(2), "integer");
    rows.MoveNext();
    EXPECT_EQ(rows.GetFieldValue(0), "");  // null reads as empty
    EXPECT_STREQ(rows.GetColumnString(1), "");
}

// Statements that differ only in spliced integers share one prepared statement; the values must
// come out exactly as the literals would have given them.
TEST_F(Database, SplicedNumbersKeepTheirMeaning)
{
    for (int i = 1; i <= 3; ++i)
        ASSERT_TRUE(db.Execute(("INSERT INTO t (name, n) VALUES ('k" + std::to_string(i) + "7', " +
                                std::to_string(i * 100) + ");").c_str()));
    ASSERT_TRUE(db.Execute("UPDATE t SET n = -5 WHERE id = 2;"));
    ASSERT_TRUE(db.Execute("UPDATE t SET n = 1.5 WHERE id = 3;"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (name, n) VALUES ('hex', 0x10);"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (name, n) VALUES (\"quoted 12\", 99999999999999999999);"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (name, n) SELECT name, 7 FROM t WHERE id = 1 ORDER BY 1;"));
    ASSERT_TRUE(db.ExecuteAndBindStatement("INSERT INTO t (name, n) VALUES (?, 42);", {{"bound 3", 0}}, false));
    EXPECT_FALSE(db.ExecuteAndBindStatement("INSERT INTO t (name, n) VALUES (?, 42);", {{"a", 0}, {"b", 0}}, false));
    ASSERT_TRUE(db.Execute("DELETE FROM t WHERE id = 1 AND n = 100;"));

    RecordSet rows;
    ASSERT_TRUE(rows.Open("SELECT id, name, n, typeof(n) FROM t ORDER BY id;", &db));
    std::vector<std::string> seen;
    for (; !rows.IsEOF(); rows.MoveNext())
        seen.push_back(rows.GetFieldValue(0) + ":" + rows.GetFieldValue(1) + ":" + rows.GetFieldValue(2) + ":" +
                       rows.GetFieldValue(3));
    EXPECT_EQ(seen, (std::vector<std::string>{"2:k27:-5:integer", "3:k37:1.5:real", "4:hex:16:integer",
                                              "5:quoted 12:1.0e+20:real", "6:k17:7:integer",
                                              "7:bound 3:42:integer"}));

    // A query's keys are shared the same way, but only those compared after its FROM: the result's
    // column names come from the text before it.
    for (const char* id : {"4", "6", "7"}) {
        ASSERT_TRUE(rows.Open((std::string("SELECT n = 42, name FROM t WHERE id = ") + id + " ORDER BY 1;").c_str(),
                              &db));
        ASSERT_EQ(rows.GetRecordCount(), 1) << id;
        EXPECT_EQ(rows.GetFieldName(0), "n = 42");
        EXPECT_EQ(rows.GetFieldCount(), 2);  // fewer columns than the set's last result
        EXPECT_EQ(rows.GetFieldName(2), "");
        EXPECT_EQ(rows.GetFieldValue(0), id == std::string("7") ? "1" : "0");
    }
    ASSERT_TRUE(rows.Open("SELECT name FROM t WHERE id = (SELECT max(id) FROM t WHERE n >= 16 AND n <= 16);", &db));
    EXPECT_EQ(rows.GetFieldValue(0), "hex");
}

TEST_F(Database, RecordSetIsASnapshot)
{
    for (int i = 1; i <= 3; ++i)
        ASSERT_TRUE(db.ExecuteAndBindStatement("INSERT INTO t (name, n) VALUES (?, ?);",
                                               {{"row" + std::to_string(i), 0}, {std::to_string(i * 10), 0}}, false));
    RecordSet rows;
    ASSERT_TRUE(rows.Open("SELECT * FROM t ORDER BY id;", &db));
    ASSERT_TRUE(db.Execute("DELETE FROM t;"));
    ASSERT_TRUE(db.Execute("DROP TABLE t;"));

    EXPECT_EQ(rows.GetRecordCount(), 3);
    ASSERT_EQ(rows.GetFieldCount(), 3);
    EXPECT_EQ(rows.FieldsCount(), 3);
    EXPECT_EQ(rows.GetFieldName(1), "name");
    EXPECT_EQ(rows.GetFieldName(3), "");
    std::vector<std::string> seen;
    for (rows.MoveFirst(); !rows.IsEOF(); rows.MoveNext())
        seen.push_back(std::string(rows.GetColumnString(1)) + "=" + rows.GetFieldValue(std::string("N")));
    EXPECT_EQ(seen, (std::vector<std::string>{"row1=10", "row2=20", "row3=30"}));
    rows.MoveNext();  // past the end stays harmless
    EXPECT_TRUE(rows.IsEOF());
    EXPECT_EQ(rows.GetFieldValue(0), "");
    EXPECT_EQ(rows.GetRecordCount(), 3);

    // Opened again, the set shows the new result; an empty result stands at its end at once.
    ASSERT_TRUE(rows.Open("SELECT name FROM sqlite_master WHERE name = 'none';", &db));
    EXPECT_EQ(rows.GetRecordCount(), 0);
    EXPECT_TRUE(rows.IsEOF());
    EXPECT_EQ(rows.GetFieldValue(0), "");
    EXPECT_EQ(rows.GetFieldValue(std::string("missing")), "");
}

// A hostile file can hold a view that never ends; reading it fails instead of hanging.
// Inside a transaction, the queries of child rows by a parent column are answered from one grouped
// scan of the table: the answers must be the statements' own, whatever the column holds.
TEST_F(Database, ChildQueriesInATransactionAnswerAsTheirStatements)
{
    // One value into columns of each affinity: INTEGER, TEXT and none.
    ASSERT_TRUE(db.Execute("CREATE TABLE c (id INTEGER PRIMARY KEY, v STRING, parentID INTEGER, t TEXT, b);"));
    ASSERT_TRUE(db.Execute("CREATE TABLE indexed (id INTEGER PRIMARY KEY, parentID INT, w INT);"));
    ASSERT_TRUE(db.Execute("CREATE INDEX by_parent ON indexed (parentID, w DESC);"));
    const char* const values[] = {"3",   "NULL", "'3'",   "' 3 '", "'3.0'", "'1e1'",  "3.0", "3.5", "x'33'",
                                  "'abc'", "-1",  "10",   "'03'",  "3",     "''",     "1e1", "'-1'"};
    int n = 0;
    for (const char* value : values) {
        const std::string row = std::string("'r") + std::to_string(n++) + "', ";
        ASSERT_TRUE(db.Execute(("INSERT INTO c (v, parentID, t, b) VALUES (" + row + value + ", " + value + ", " +
                                value + ");").c_str()));
        ASSERT_TRUE(db.Execute(("INSERT INTO indexed (parentID, w) VALUES (3, " + std::to_string(n) + ");").c_str()));
    }
    std::vector<std::string> queries;
    for (const char* column : {"parentID", "t", "b", "id"})
        for (const char* key : {"3", "-1", "10", "0", "1", "- 1"})
            queries.push_back(std::string("SELECT * FROM c WHERE ") + column + " = " + key);
    queries.push_back("select * from C where PARENTID = 3;");
    queries.push_back("SELECT * FROM indexed WHERE parentID = 3");
    queries.push_back("SELECT * FROM indexed WHERE parentID = 3");
    const auto answer = [this](const std::string& sql) {
        RecordSet rows;
        if (!rows.Open(sql.c_str(), &db))
            return std::string("failed");
        std::string text;
        for (int i = 0; i < rows.GetFieldCount(); ++i)
            text += rows.GetFieldName(i) + "|";
        for (; !rows.IsEOF(); rows.MoveNext())
            for (int i = 0; i < rows.GetFieldCount(); ++i)
                text += "\n" + rows.GetFieldValue(i);
        return text;
    };
    std::vector<std::string> alone;
    for (const std::string& sql : queries)
        alone.push_back(answer(sql));

    vlmtest::LogCapture log;
    ASSERT_TRUE(db.BeginTransaction(false));
    for (int round = 0; round < 2; ++round)
        for (std::size_t i = 0; i < queries.size(); ++i)
            EXPECT_EQ(answer(queries[i]), alone[i]) << queries[i];
    // A write drops the groups: the new row is seen.
    ASSERT_TRUE(db.Execute("INSERT INTO c (v, parentID) VALUES ('new', 3);"));
    for (int round = 0; round < 2; ++round)
        EXPECT_NE(answer(queries[0]).find("\nnew\n3"), std::string::npos);
    ASSERT_TRUE(db.CommitTransaction());

    // Grouped: the plain columns and the key (the rowid), not a table with an index.
    std::string groupings;
    for (const std::string& line : log.lines)
        if (line.find("grouped") != std::string::npos)
            groupings += line.substr(0, line.find(':')) + ";";
    EXPECT_EQ(groupings, "[Database] c grouped by parentID;[Database] c grouped by t;[Database] c grouped by b;"
                         "[Database] c grouped by id;[Database] indexed not grouped by parentID\n;"
                         "[Database] c grouped by parentID;");
}

TEST_F(Database, EndlessViewIsCutOff)
{
    ASSERT_TRUE(db.Execute("CREATE VIEW endless AS WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) "
                           "SELECT x FROM c WHERE x < 0;"));
    db.SetStatementStepLimit(2000000);
    RecordSet rows;
    EXPECT_FALSE(rows.Open("SELECT * FROM endless;", &db));
    EXPECT_FALSE(db.Execute("INSERT INTO t (n) SELECT x FROM endless;"));
    EXPECT_EQ(rows.GetRecordCount(), 0);
    // The next statement has its own budget.
    EXPECT_TRUE(rows.Open("SELECT count(*) FROM t;", &db));
}

TEST(ReferenceDatabase, FoundThroughTheEnvironmentAndNeverCreated)
{
    testutil::TempDir dir;
    const std::string path = dir.file("reference.db");
    setenv("VELLUMENT_REFERENCE_DB", path.c_str(), 1);
    {
        Ostrel::OstrelDataDatabase reference;
        EXPECT_FALSE(reference.Open());
        EXPECT_FALSE(std::filesystem::exists(path));
    }
    {
        DatabaseEx db;
        ASSERT_TRUE(db.OpenFile(path, ""));
        ASSERT_TRUE(db.Execute("CREATE TABLE LocalList (code STRING);"));
    }
    Ostrel::OstrelDataDatabase reference;
    EXPECT_EQ(Ostrel::OstrelDataDatabase::GetReferencePath(), path);
    ASSERT_TRUE(reference.Open());
    RecordSet rows;
    EXPECT_TRUE(rows.Open("SELECT * FROM LocalList", reference.GetSmartDB()));
    unsetenv("VELLUMENT_REFERENCE_DB");

    // Without the variable, the file lies in the local application data directory.
    const std::string fallback = Ostrel::OstrelDataDatabase::GetReferencePath();
    EXPECT_NE(fallback.find("OstrelData.db"), std::string::npos);
}

// The fast roads of the mirror must give what the plain ones give: rows answered from a table's
// grouping (its cells kept in fixed blocks) against the same statements run outside a transaction.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vellument/Ostrel_Database.h>

#include "test_util.h"

using Ostrel::DatabaseEx;
using Ostrel::RecordSet;

namespace {

// Every row of the query: each cell by GetFieldValue (its whole size) and by GetColumnString (up
// to its NUL).
std::vector<std::string> cells_of(DatabaseEx& db, const std::string& sql)
{
    RecordSet rows;
    EXPECT_TRUE(rows.Open(sql.c_str(), &db)) << sql;
    std::vector<std::string> cells;
    for (rows.MoveFirst(); !rows.IsEOF(); rows.MoveNext())
        for (int i = 0; i < rows.GetFieldCount(); ++i) {
            cells.push_back(rows.GetFieldValue(i));
            cells.push_back(rows.GetColumnString(i));
        }
    return cells;
}

TEST(MirrorSpeedPaths, GroupedCellsAcrossAndBeyondBlocksReadAsTheStatementsGiveThem)
{
    testutil::TempDir dir;
    DatabaseEx db;
    ASSERT_TRUE(db.OpenFile(dir.file("blocks.db"), ""));
    ASSERT_TRUE(db.Execute("CREATE TABLE t (id INTEGER PRIMARY KEY, parentID INTEGER, v TEXT, w TEXT);"));
    // Texts of many sizes, so that cells end at and near block ends; one larger than a block; an
    // empty one, a NULL and one with a NUL inside.
    const int kRows = 60;
    for (int k = 0; k < kRows; ++k) {
        const int size = k == 17 ? 700000 : (k * 7919) % 60000;
        const std::string sql = "INSERT INTO t (parentID, v, w) VALUES (" + std::to_string(k % 7) + ", printf('%." +
                                std::to_string(size) + "c', 'x'), " +
                                (k == 3 ? std::string("NULL") : k == 4 ? "''" : "'a' || char(0) || 'b'") + ");";
        ASSERT_TRUE(db.Execute(sql.c_str())) << db.GetLastErrorText();
    }
    std::vector<std::vector<std::string>> plain;
    for (int parent = 0; parent < 8; ++parent)
        plain.push_back(cells_of(db, "SELECT * FROM t WHERE parentID = " + std::to_string(parent)));
    EXPECT_EQ(plain[17 % 7][2 * 8 + 4].size(), 700000u);  // row 17: the third of its parent, v
    EXPECT_EQ(plain[5 % 7][6], std::string("a\0b", 3));    // row 5: the first of its parent, w

    ASSERT_TRUE(db.BeginTransaction(false));
    for (int round = 0; round < 2; ++round)  // the first query runs as its statement, then grouped
        for (int parent = 0; parent < 8; ++parent)
            EXPECT_EQ(cells_of(db, "SELECT * FROM t WHERE parentID = " + std::to_string(parent)), plain[parent])
                << parent;
    ASSERT_TRUE(db.CommitTransaction());
}

} // namespace

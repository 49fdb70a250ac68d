// Record sets answered from the grouped child rows of a transaction share the grouping's cells
// rather than copying them; each set must still be a snapshot of its own, with its own names.

#include <gtest/gtest.h>

#include <string>

#include <vellument/Ostrel_Database.h>

#include "test_util.h"

using Ostrel::DatabaseEx;
using Ostrel::RecordSet;

namespace {

std::string rows_of(RecordSet& rows)
{
    std::string text;
    for (int i = 0; i < rows.GetFieldCount(); ++i)
        text += rows.GetFieldName(i) + "|";
    for (rows.MoveFirst(); !rows.IsEOF(); rows.MoveNext())
        for (int i = 0; i < rows.GetFieldCount(); ++i)
            text += std::string(" ") + rows.GetColumnString(i);
    return text;
}

TEST(RecordSetGroups, SetsOutliveTheirGroupingAndKeepTheirOwnNames)
{
    testutil::TempDir dir;
    DatabaseEx db;
    ASSERT_TRUE(db.OpenFile(dir.file("groups.db"), ""));
    ASSERT_TRUE(db.Execute("CREATE TABLE a (id INTEGER PRIMARY KEY, parentID INTEGER, v TEXT);"));
    ASSERT_TRUE(db.Execute("CREATE TABLE b (id INTEGER PRIMARY KEY, parentID INTEGER, w TEXT, x TEXT);"));
    ASSERT_TRUE(db.Execute("INSERT INTO a (parentID, v) VALUES (1, 'a1'), (2, 'a2'), (1, 'a3');"));
    ASSERT_TRUE(db.Execute("INSERT INTO b (parentID, w, x) VALUES (1, 'b1', 'x1'), (2, 'b2', 'x2');"));

    ASSERT_TRUE(db.BeginTransaction(false));
    RecordSet first, second, other;
    // A table's first query runs as its statement; the next ones are answered from its grouping.
    ASSERT_TRUE(first.Open("SELECT * FROM a WHERE parentID = 2", &db));
    ASSERT_TRUE(first.Open("SELECT * FROM a WHERE parentID = 1", &db));
    ASSERT_TRUE(second.Open("SELECT * FROM a WHERE parentID = 2", &db));
    ASSERT_TRUE(other.Open("SELECT * FROM b WHERE parentID = 1", &db));
    ASSERT_TRUE(other.Open("SELECT * FROM b WHERE parentID = 2", &db));
    EXPECT_EQ(rows_of(other), "id|parentID|w|x| 2 2 b2 x2");
    // One set moving between groupings takes each one's names.
    ASSERT_TRUE(other.Open("SELECT * FROM a WHERE parentID = 1", &db));
    EXPECT_EQ(rows_of(other), "id|parentID|v| 1 1 a1 3 1 a3");
    ASSERT_TRUE(other.Open("SELECT * FROM b WHERE parentID = 1", &db));
    EXPECT_EQ(rows_of(other), "id|parentID|w|x| 1 1 b1 x1");
    ASSERT_TRUE(other.Open("SELECT * FROM a WHERE parentID = 2", &db));

    // A write drops the groupings, and the transaction ends: the sets keep what they were given.
    ASSERT_TRUE(db.Execute("DELETE FROM a;"));
    ASSERT_TRUE(db.CommitTransaction());
    EXPECT_EQ(rows_of(first), "id|parentID|v| 1 1 a1 3 1 a3");
    EXPECT_EQ(first.GetFieldValue(std::string("V")), "");  // at its end
    first.MoveFirst();
    EXPECT_EQ(first.GetFieldValue(std::string("V")), "a1");
    EXPECT_EQ(rows_of(second), "id|parentID|v| 2 2 a2");

    // The table changes shape: a new grouping of it comes with its new names.
    ASSERT_TRUE(db.Execute("ALTER TABLE a ADD COLUMN z TEXT;"));
    ASSERT_TRUE(db.Execute("INSERT INTO a (parentID, v, z) VALUES (4, 'a4', 'z4'), (5, 'a5', 'z5');"));
    ASSERT_TRUE(db.BeginTransaction(false));
    ASSERT_TRUE(other.Open("SELECT * FROM a WHERE parentID = 4", &db));
    ASSERT_TRUE(other.Open("SELECT * FROM a WHERE parentID = 5", &db));
    EXPECT_EQ(rows_of(other), "id|parentID|v|z| 2 5 a5 z5");
    ASSERT_TRUE(other.Open("SELECT * FROM a WHERE parentID = 4", &db));
    EXPECT_EQ(rows_of(other), "id|parentID|v|z| 1 4 a4 z4");
    ASSERT_TRUE(db.CommitTransaction());
}

} // namespace

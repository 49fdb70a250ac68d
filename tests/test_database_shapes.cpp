// A statement whose text differs from a recent one only in its integer keys reuses that one's
// shape; any other difference, or a key the shape can't hold, must not.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vellument/Ostrel_Database.h>

#include "test_util.h"

using Ostrel::DatabaseEx;
using Ostrel::RecordSet;

TEST(DatabaseShapes, KeysOfAnyLengthAndTextsThatOnlyLookAlike)
{
    testutil::TempDir dir;
    DatabaseEx db;
    ASSERT_TRUE(db.OpenFile(dir.file("shapes.db"), ""));
    ASSERT_TRUE(db.Execute("CREATE TABLE t (id INTEGER PRIMARY KEY, n, m);"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (id, n, m) VALUES (1, 7, 0);"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (id, n, m) VALUES (22, 123456789012345678, 0);"));
    // Past the 18 digits that a key may have: kept as the literal it is.
    ASSERT_TRUE(db.Execute("INSERT INTO t (id, n, m) VALUES (3, 1234567890123456789, 0);"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (id, n, m) VALUES (4, 5e1, 0);"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (id, n, m) VALUES (5, 6, 0 );"));
    ASSERT_TRUE(db.Execute("INSERT INTO t (id, n, m) VALUES (6, 0, 08);"));
    ASSERT_TRUE(db.Execute("UPDATE t SET m = 9 WHERE id = 1;"));
    ASSERT_TRUE(db.Execute("UPDATE t SET m = 10 WHERE id = 22;"));
    ASSERT_TRUE(db.Execute("UPDATE t SET m = 11 WHERE id = 3 OR id = 4;"));
    EXPECT_FALSE(db.Execute("UPDATE t SET m = 12 WHERE id = 5x;"));

    RecordSet rows;
    ASSERT_TRUE(rows.Open("SELECT id, n, m, typeof(n) FROM t ORDER BY id;", &db));
    std::vector<std::string> seen;
    for (; !rows.IsEOF(); rows.MoveNext())
        seen.push_back(rows.GetFieldValue(0) + ":" + rows.GetFieldValue(1) + ":" + rows.GetFieldValue(2) + ":" +
                       rows.GetFieldValue(3));
    EXPECT_EQ(seen, (std::vector<std::string>{"1:7:9:integer", "3:1234567890123456789:11:integer",
                                              "4:50.0:11:real", "5:6:0:integer", "6:0:8:integer",
                                              "22:123456789012345678:10:integer"}));
}

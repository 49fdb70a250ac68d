#ifndef VELLUMENT_OSTREL_DATABASE_H
#define VELLUMENT_OSTREL_DATABASE_H

// A small layer over an SQLite database file, optionally encrypted with a password.
//
// - A non-empty password opens the file with that cipher key; an empty password gives a plain
//   SQLite file that any SQLite tool reads.
// - Execute, ExecuteAndBindStatement and RecordSet::Open run exactly one statement and refuse any
//   text after it, so that a value spliced into a statement can't smuggle in a second one.
// - Transactions nest: a BeginTransaction inside another opens a savepoint, so that the outer
//   transaction decides whether the whole stands or falls.
// - A record set is a snapshot: it holds its rows on its own, so that changes made through the
//   same database while it is open don't disturb what it shows.
// - Prepared statements are kept, by their text, in a bounded cache.
// - Inside a transaction, a table read again and again by "SELECT * FROM t WHERE c = <key>" is
//   scanned once and its rows grouped by c; the same queries then get the same rows from the
//   groups, until a statement that may write runs or the transaction ends.
// Nothing here throws for a failure of the database; results say true or false and the log says why.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vellument/export.h>

namespace Ostrel {

class RecordSet;
namespace detail {
struct DatabaseAccess;
}

class VELLUMENT_API DatabaseEx {
public:
    DatabaseEx();
    // Closes what is open, rolling back a transaction left open.
    virtual ~DatabaseEx();
    DatabaseEx(const DatabaseEx&) = delete;
    DatabaseEx& operator=(const DatabaseEx&) = delete;

    // Opens (and creates when missing) the database file at path, in Windows or POSIX form. A
    // non-empty password is the cipher key. The key is checked by reading the schema: a wrong
    // password or a file that isn't a database gives false and leaves the object closed. An empty
    // path is refused. An open object is closed first.
    virtual bool OpenFile(const std::string& path, const std::string& password);
    // As OpenFile, but a missing file is not created: false instead.
    virtual bool OpenExistingFile(const std::string& path, const std::string& password);
    // Runs one statement; rows it may return are stepped over. False on any error, on a null or
    // empty statement and on text after the first statement.
    virtual bool Execute(const char* sql);

    bool Close();
    bool GetOpen() const;
    // The path as given to OpenFile; empty when closed.
    std::string GetFilePath() const;

    // Starts a transaction; inside an open one, a savepoint. The flag is unused.
    bool BeginTransaction(bool flag);
    // Ends the innermost transaction or savepoint. False when none is open.
    bool CommitTransaction();
    bool RollbackTransaction();
    // How many transactions and savepoints are open.
    int GetTransactionDepth() const;

    // Prepares one statement, binds the parameters in order to its parameter marks and runs it
    // once. Parameter types: 0 text (what every caller passes), 1 integer, 2 real, 3 null; any
    // other number binds as text. An empty list runs the statement as it stands; a non-empty list
    // whose length differs from the statement's marks is refused. The flag is unused.
    bool ExecuteAndBindStatement(const std::string& sql, const std::vector<std::pair<std::string, int>>& parameters,
                                 bool flag) const;

    // A database file may hold views that run without end: one statement fails after about this
    // many steps of SQLite's virtual machine (default 500 million, some seconds of work), and a
    // record set refuses a result beyond 512 MiB.
    void SetStatementStepLimit(unsigned long long steps);

    // The message of the last failure, for diagnostics.
    std::string GetLastErrorText() const;

private:
    friend class RecordSet;
    friend struct detail::DatabaseAccess;
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

class VELLUMENT_API RecordSet {
public:
    RecordSet();
    ~RecordSet();
    RecordSet(const RecordSet&) = delete;
    RecordSet& operator=(const RecordSet&) = delete;

    // Runs one query on an open database and reads all its rows; stands on the first row. True
    // when the statement ran, also without rows. Replaces what an earlier Open held.
    bool Open(const char* sql, DatabaseEx* database);
    bool Close();

    void MoveFirst();
    // Past the last row, the set stays at its end.
    void MoveNext();
    bool IsEOF();
    int GetRecordCount() const;
    int GetFieldCount() const;
    int FieldsCount() const;
    // Text of a column of the present row; a null value, an index out of range, a name that
    // matches no column and a position past the end all read as "".
    std::string GetFieldValue(int index) const;
    // A column by the name SQLite gives it; matched exactly first, then without regard to case.
    std::string GetFieldValue(std::string name) const;
    std::string GetFieldName(int index) const;
    // As GetFieldValue, valid until the next move, Open or Close; never null.
    const char* GetColumnString(long index) const;

private:
    friend struct detail::DatabaseAccess;
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// The application's shared reference database. It lies at the path named by
// VELLUMENT_REFERENCE_DB, else at "OstrelData.db" in the local application data directory. It is
// opened without a password and never created.
class VELLUMENT_API OstrelDataDatabase {
public:
    OstrelDataDatabase();
    ~OstrelDataDatabase();
    OstrelDataDatabase(const OstrelDataDatabase&) = delete;
    OstrelDataDatabase& operator=(const OstrelDataDatabase&) = delete;

    bool Open();
    // The open database, lent; never null.
    DatabaseEx* GetSmartDB();
    // Where Open looks.
    static std::string GetReferencePath();

private:
    DatabaseEx m_database;
};

} // namespace Ostrel

#endif

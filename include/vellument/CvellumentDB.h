#ifndef VELLUMENT_CVELLUMENTDB_H
#define VELLUMENT_CVELLUMENTDB_H

#include <memory>
#include <string>

#include <vellument/attributeDic.h>
#include <vellument/export.h>

class CVellument;
class CDictionary;
class COXMLDocument;
namespace Ostrel {
class DatabaseEx;
class RecordSet;
}

class vellument_database_impl;
class vellument_impl;

// The SQL mirror of velluments: 14 tables with the prefix VLM (schema version 2 in every row's
// tableVer) and 7 views, in a database file that the application owns. A vellument's identity in
// the tables is its form type (the name middle of its form category, without "_"), its filing
// year and its extension. A vellument's rows are replaced wholesale: delete, then write.
//
// Form type, filing year and extension are spliced into the statements; every record value is
// bound as a parameter. The database runs one statement per call, so a spliced text can't add a
// statement of its own.
//
// Copies share one private record. Failures of a write are collected in one process-wide flag that
// decides commit or rollback, so mapper objects are to be used from one thread at a time.
class VELLUMENT_API CvellumentDB {
public:
    // One row of the table of key links: the table, the column set and the key column of the
    // update that ties a row to another. Defined inside the library.
    struct KeyLink;

    // Not yet open: owns a new, closed database object.
    CvellumentDB();
    // Closes and deletes the database when it owns it.
    ~CvellumentDB();

    // Uses the caller's open database from now on; the caller keeps it. False, changing nothing,
    // for a database that isn't open. The stored path and password stay as they were.
    bool setDatabase(Ostrel::DatabaseEx* database) const;
    // Opens the database file at path (true at once when that path is already open, whatever the
    // password), and owns it.
    bool setDatabase(const std::string& path, const std::string& password) const;
    Ostrel::DatabaseEx* getDatabase() const;
    std::string getDatabasePath() const;
    std::string getDatabasePassword() const;
    // The schema version: 2.
    int getVersion() const;

    // Makes the 14 tables unless those of this version stand; tables of another version are
    // dropped first, with all their rows. True when the schema stands afterwards.
    bool createTables() const;

    // Mirrors the vellument into the tables in one transaction (null: the present database).
    // Transactions above the greatest Number stored for it are added; true when committed.
    bool writeRecords(const CVellument* vellument, Ostrel::DatabaseEx* database) const;
    bool writeRecords(const CVellument* vellument, const std::string& path, const std::string& password) const;
    // Rebuilds the vellument's document from the tables, as a new document the caller owns; null
    // when it isn't there. Only the form type and year written last can be read.
    COXMLDocument* readRecords(const CVellument* vellument, Ostrel::DatabaseEx* database) const;
    COXMLDocument* readRecords(const CVellument* vellument, const std::string& path, const std::string& password) const;
    // Removes every row of the vellument; true also when there was none.
    bool DeleteRecords(const CVellument* vellument, Ostrel::DatabaseEx* database) const;
    bool DeleteRecords(const CVellument* vellument, const std::string& path, const std::string& password) const;

private:
    // The vellument's own operations reach the mapper with its private record.
    friend class vellument_impl;
    friend class CVellument;

    bool _writeRecords(const vellument_impl& vellument, Ostrel::DatabaseEx* database) const;
    // compact: a read-only document, for a caller that only reads the records from it.
    COXMLDocument* _readRecords(const vellument_impl& vellument, Ostrel::DatabaseEx* database,
                                bool compact = false) const;
    bool _deleteRecords(const vellument_impl& vellument, Ostrel::DatabaseEx* database) const;

    bool _checkTablesExist() const;
    bool _dropTables() const;
    bool MigrateTables() const;

    int _selectStatement(const std::string& sql) const;
    int _insertRecord(int table, int parent, const attributeDicList& attributes) const;
    int _insertDictionary(const CDictionary* dictionary) const;
    void _updateTable(const KeyLink& link, int value, int key) const;
    bool _createView(const std::string& form_type, const std::string& filing_year) const;

    // The tree that a read builds, element by element; defined with the reader.
    struct ReadTree;
    int _checkAndInsertVellument(ReadTree& tree, const std::string& sql) const;
    bool _addDictionary(ReadTree& tree, int parent, int dictionary_id) const;
    // Gives the new element, -1 when a query fails.
    int _addPackageOrStatus(ReadTree& tree, int parent, const std::string& sql, const std::string& base_sql,
                            const char* tag, int index) const;
    bool _addFilingOrCopy(ReadTree& tree, int parent, const std::string& sql, const std::string& child_sql,
                          const char* tag, const std::string& key_column) const;
    bool _addFormOrHistory(ReadTree& tree, int parent, const std::string& sql, const std::string& base_sql,
                           const char* tag) const;

    void _deleteDictionary(const std::string& sql) const;
    int _deleteRecordAndBase(const std::string& key_column, const std::string& delete_sql,
                             const std::string& delete_base_sql, Ostrel::RecordSet* rows) const;

    std::shared_ptr<vellument_database_impl> m_impl;
};

#endif

#include <vellument/CvellumentDB.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/CkXml.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/Vellument_impl.h"
#include "records/AttributeLists.h"

// --- Private record and shared tables -------------------------------------------------------------

class vellument_database_impl {
public:
    vellument_database_impl() : database(new Ostrel::DatabaseEx()) {}
    ~vellument_database_impl()
    {
        if (owns_database && database != nullptr) {
            database->Close();
            delete database;
        }
    }
    vellument_database_impl(const vellument_database_impl&) = delete;
    vellument_database_impl& operator=(const vellument_database_impl&) = delete;

    std::string path;
    std::string password;
    Ostrel::DatabaseEx* database;
    bool owns_database = true;

    // Kept between the statements of a write, which runs several per row, so that their memory
    // is reused.
    std::string insert_sql;
    std::vector<std::pair<std::string, int>> insert_parameters;
    Ostrel::RecordSet selected;
};

struct CvellumentDB::KeyLink {
    int table;
    const char* column;
    const char* key_column;
};

namespace {

// Collects the failures of one write; decides commit or rollback. Shared by all mappers.
bool g_database_error = false;

const int kVersion = 2;

enum TableId {
    TABLE_AUDIT_TRAIL = 0,
    TABLE_COPY = 1,
    TABLE_DICTIONARY = 2,
    TABLE_FILING = 3,
    TABLE_FILING_BASE = 4,
    TABLE_FORM = 5,
    TABLE_FORM_BASE = 6,
    TABLE_HISTORY = 7,
    TABLE_PACKAGE = 8,
    TABLE_STATUS = 9,
    TABLE_STATUS_BASE = 10,
    TABLE_TRANSACTION = 11,
    TABLE_DICTIONARY_ENTRY = 12,
    TABLE_VELLUMENT = 13,
};

const int kCreationOrder[] = {
    TABLE_VELLUMENT, TABLE_AUDIT_TRAIL, TABLE_COPY,    TABLE_FILING,      TABLE_FILING_BASE,
    TABLE_FORM,      TABLE_FORM_BASE,   TABLE_HISTORY, TABLE_PACKAGE,     TABLE_STATUS,
    TABLE_STATUS_BASE, TABLE_TRANSACTION, TABLE_DICTIONARY, TABLE_DICTIONARY_ENTRY,
};

const std::map<int, std::string>& table_name_by_id()
{
    static const std::map<int, std::string> table = {
        {TABLE_VELLUMENT, "VLMvellument"},     {TABLE_AUDIT_TRAIL, "VLMauditTrail"},
        {TABLE_COPY, "VLMcopy"},               {TABLE_FILING, "VLMfiling"},
        {TABLE_FILING_BASE, "VLMfilingBase"},  {TABLE_FORM, "VLMform"},
        {TABLE_FORM_BASE, "VLMformBase"},      {TABLE_HISTORY, "VLMhistory"},
        {TABLE_PACKAGE, "VLMpackage"},         {TABLE_STATUS, "VLMstatus"},
        {TABLE_STATUS_BASE, "VLMstatusBase"},  {TABLE_TRANSACTION, "VLMtransaction"},
        {TABLE_DICTIONARY, "VLMdictionary"},   {TABLE_DICTIONARY_ENTRY, "VLMdictionaryEntry"},
    };
    return table;
}

// Key clause and closing clause of each table, spacing included: the schema must match what
// other programs of the application already read.
const std::map<int, std::pair<std::string, std::string>>& table_parts_by_id()
{
    static const std::map<int, std::pair<std::string, std::string>> table = {
        {TABLE_VELLUMENT,
         {"vellumentID INTEGER PRIMARY KEY,", ",childID     INTEGER REFERENCES VLMauditTrail (auditTrailID)"}},
        {TABLE_AUDIT_TRAIL,
         {" auditTrailID INTEGER  PRIMARY KEY,",
          ", parentID INTEGER REFERENCES VLMvellument (vellumentID), dictionaryID INTEGER REFERENCES "
          "VLMdictionary(dictionaryID)"}},
        {TABLE_COPY,
         {" copyID INTEGER PRIMARY KEY,",
          ", parentID INTEGER REFERENCES VLMstatus (statusID),baseID   INTEGER REFERENCES "
          "VLMfilingBase(filingBaseID) "}},
        {TABLE_FILING,
         {"filingID INTEGER PRIMARY KEY,",
          ", parentID INTEGER REFERENCES VLMpackage (packageID),baseID INTEGER REFERENCES "
          "VLMfilingBase(filingBaseID) "}},
        {TABLE_FILING_BASE, {"filingBaseID    INTEGER  PRIMARY KEY,", ""}},
        {TABLE_FORM,
         {"formID INTEGER PRIMARY KEY,",
          ", parentID INTEGER REFERENCES VLMfiling (filingID),baseID INTEGER REFERENCES VLMformBase(formBaseID) "}},
        {TABLE_FORM_BASE, {"formBaseID INTEGER PRIMARY KEY,", ""}},
        {TABLE_HISTORY,
         {"historyID INTEGER PRIMARY KEY,",
          ", parentID  INTEGER REFERENCES VLMcopy (copyID),baseID INTEGER REFERENCES VLMformBase(formBaseID) "}},
        {TABLE_PACKAGE,
         {"packageID INTEGER  PRIMARY KEY,",
          ", parentID INTEGER  REFERENCES VLMtransaction (transactionID),baseID INTEGER  REFERENCES "
          "VLMstatusBase(statusBaseID) "}},
        {TABLE_STATUS,
         {" statusID INTEGER PRIMARY KEY,",
          ", baseID INTEGER REFERENCES VLMstatusBase (statusBaseID), parentID INTEGER REFERENCES "
          "VLMtransaction(transactionID) "}},
        {TABLE_STATUS_BASE, {"statusBaseID INTEGER PRIMARY KEY,", ""}},
        {TABLE_TRANSACTION,
         {" transactionID INTEGER PRIMARY KEY,",
          ", parentID INTEGER REFERENCES VLMvellument (vellumentID), dictionaryID INTEGER REFERENCES "
          "VLMdictionary(dictionaryID), packageID INTEGER REFERENCES VLMpackage(packageID), statusID INTEGER "
          "REFERENCES VLMstatusBase(statusBaseID)"}},
        {TABLE_DICTIONARY, {"dictionaryID INTEGER PRIMARY KEY,", ""}},
        {TABLE_DICTIONARY_ENTRY,
         {"entryID  INTEGER PRIMARY KEY,", ", parentID INTEGER REFERENCES VLMdictionary(dictionaryID)"}},
    };
    return table;
}

// The columns of each table are the records' own attribute lists (names and type words).
const std::map<int, attributeDicList>& table_columns_by_id()
{
    static const std::map<int, attributeDicList> table = {
        {TABLE_VELLUMENT, AttributeLists::table(AttributeLists::IDENTITY)},
        {TABLE_AUDIT_TRAIL, AttributeLists::table(AttributeLists::VELLUMENT)},
        {TABLE_COPY, AttributeLists::table(AttributeLists::COPY)},
        {TABLE_FILING, AttributeLists::table(AttributeLists::FILING)},
        {TABLE_FILING_BASE, AttributeLists::table(AttributeLists::FILING_BASE)},
        {TABLE_FORM, AttributeLists::table(AttributeLists::FORM)},
        {TABLE_FORM_BASE, AttributeLists::table(AttributeLists::FORM_BASE)},
        {TABLE_HISTORY, attributeDicList()},
        {TABLE_PACKAGE, AttributeLists::table(AttributeLists::PACKAGE)},
        {TABLE_STATUS, attributeDicList()},
        {TABLE_STATUS_BASE, AttributeLists::table(AttributeLists::STATUS_BASE)},
        {TABLE_TRANSACTION, AttributeLists::table(AttributeLists::TRANSACTION)},
        {TABLE_DICTIONARY, attributeDicList()},
        {TABLE_DICTIONARY_ENTRY, AttributeLists::table(AttributeLists::KEY_VALUE)},
    };
    return table;
}

const char* const kDropStatements[] = {
    "DROP TABLE VLMvellument;", "DROP TABLE VLMauditTrail;", "DROP TABLE VLMtransaction;",
    "DROP TABLE VLMstatusBase;", "DROP TABLE VLMstatus;",    "DROP TABLE VLMpackage;",
    "DROP TABLE VLMfilingBase;", "DROP TABLE VLMcopy;",      "DROP TABLE VLMfiling;",
    "DROP TABLE VLMformBase;",  "DROP TABLE VLMhistory;",    "DROP TABLE VLMform;",
    "DROP TABLE VLMdictionary", "DROP TABLE VLMdictionaryEntry",
};

// A read runs in one transaction, so that the file is locked once rather than per statement, and
// so that the database layer may answer the queries of child rows from one scan of each table.
// Ends only what it began.
class ReadTransaction {
public:
    explicit ReadTransaction(Ostrel::DatabaseEx* database)
        : m_database(database), m_begun(database->BeginTransaction(false))
    {
    }
    ~ReadTransaction()
    {
        if (m_begun)
            m_database->CommitTransaction();
    }
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;

private:
    Ostrel::DatabaseEx* m_database;
    bool m_begun;
};

// Asked after every insert: made once.
const std::string& last_insert()
{
    static const std::string sql = "SELECT last_insert_rowid();";
    return sql;
}

std::string format(const char* fmt, ...) VELLUMENT_PRINTF(1, 2);
std::string format(const char* fmt, ...)
{
    char small[512];
    va_list args;
    va_start(args, fmt);
    const int needed = std::vsnprintf(small, sizeof small, fmt, args);
    va_end(args);
    if (needed < 0)
        return std::string();
    if (static_cast<std::size_t>(needed) < sizeof small)
        return std::string(small, static_cast<std::size_t>(needed));
    std::vector<char> big(static_cast<std::size_t>(needed) + 1);
    va_start(args, fmt);
    std::vsnprintf(big.data(), big.size(), fmt, args);
    va_end(args);
    return std::string(big.data(), static_cast<std::size_t>(needed));
}

// A statement template with one "%d" for a key.
std::string with_key(const std::string& sql, int key)
{
    std::string text = sql;
    const std::string::size_type at = text.find("%d");
    if (at != std::string::npos)
        text.replace(at, 2, std::to_string(key));
    return text;
}

int as_number(const std::string& text)
{
    return std::atoi(text.c_str());
}

const std::string& table_name(int table)
{
    return table_name_by_id().at(table);
}

bool has_parent(int table)
{
    return table != TABLE_FILING_BASE && table != TABLE_STATUS_BASE && table != TABLE_FORM_BASE &&
           table != TABLE_DICTIONARY && table != TABLE_DICTIONARY_ENTRY;
}

std::string create_statement(int table)
{
    const std::pair<std::string, std::string>& parts = table_parts_by_id().at(table);
    std::string sql = "CREATE TABLE " + table_name(table) + "( " + parts.first;
    for (const attributeDic& column : table_columns_by_id().at(table))
        sql += column.attributeName + " " + column.attributeType + ", ";
    sql += "tableVer INT " + parts.second + " );";
    return sql;
}

// The identity of a vellument in the tables.
struct Identity {
    std::string form_type;
    std::string year;
    std::string extension;
};

// Quotes doubled, for a text spliced between single quotes.
std::string quoted_text(const std::string& text)
{
    std::string result;
    for (char c : text) {
        result += c;
        if (c == '\'')
            result += c;
    }
    return result;
}

Identity identity_of(const vellument_impl& vellument)
{
    Identity identity;
    std::string middle = get_vellument_name_middle(get_form_type_from_string(vellument.form_type_string.c_str()));
    for (char c : middle)
        if (c != '_')
            identity.form_type += c;
    identity.form_type = quoted_text(identity.form_type);
    identity.year = vellument.filing_year;
    const std::string& name = vellument.vellument_name;
    identity.extension = quoted_text(name.size() >= 3 ? name.substr(name.size() - 3) : name);
    return identity;
}

// The year goes into the statements unquoted, as a number. Anything else there would be SQL of
// the document's making, so such a year finds no vellument and can't be written.
bool year_is_number(const std::string& year)
{
    if (year.empty())
        return false;
    for (char c : year)
        if (c < '0' || c > '9')
            return false;
    return true;
}

// The columns of the present row, from the second, as attributes of the element; the last
// `skipped` columns (tableVer and the links) are left out.
void copy_attributes(CkXml* element, const Ostrel::RecordSet& rows, int skipped)
{
    if (element == nullptr)
        return;
    const int count = rows.GetFieldCount();
    for (int i = 1; i < count - skipped; ++i)
        element->AddAttribute(rows.GetFieldName(i).c_str(), rows.GetColumnString(i));
}

} // namespace

namespace {

const CvellumentDB::KeyLink kLinks[] = {
    {TABLE_VELLUMENT, "childID", "vellumentID"},
    {TABLE_AUDIT_TRAIL, "dictionaryID", "auditTrailID"},
    {TABLE_TRANSACTION, "dictionaryID", "transactionID"},
    {TABLE_TRANSACTION, "packageID", "transactionID"},
    {TABLE_TRANSACTION, "statusID", "transactionID"},
    {TABLE_STATUS, "baseID", "statusID"},
    {TABLE_PACKAGE, "baseID", "packageID"},
    {TABLE_COPY, "baseID", "copyID"},
    {TABLE_HISTORY, "baseID", "historyID"},
    {TABLE_FILING, "baseID", "filingID"},
    {TABLE_FORM, "baseID", "formID"},
};

enum LinkId {
    LINK_VELLUMENT_CHILD,
    LINK_TRAIL_DICTIONARY,
    LINK_TRANSACTION_DICTIONARY,
    LINK_TRANSACTION_PACKAGE,
    LINK_TRANSACTION_STATUS,
    LINK_STATUS_BASE,
    LINK_PACKAGE_BASE,
    LINK_COPY_BASE,
    LINK_HISTORY_BASE,
    LINK_FILING_BASE,
    LINK_FORM_BASE,
};

const CvellumentDB::KeyLink* link_of(int index)
{
    return &kLinks[index];
}

} // namespace

// --- Construction and the database -------------------------------------------------------------

CvellumentDB::CvellumentDB() : m_impl(std::make_shared<vellument_database_impl>()) {}

CvellumentDB::~CvellumentDB() = default;

bool CvellumentDB::setDatabase(Ostrel::DatabaseEx* database) const
{
    if (database == nullptr || !database->GetOpen()) {
        VLOG(1, "[CvellumentDB] Database must be open to be set\n");
        return false;
    }
    vellument_database_impl& d = *m_impl;
    if (d.database == database)
        return true;
    if (d.owns_database)
        delete d.database;
    d.database = database;
    d.owns_database = false;
    return true;
}

bool CvellumentDB::setDatabase(const std::string& path, const std::string& password) const
{
    vellument_database_impl& d = *m_impl;
    if (d.database != nullptr && d.database->GetOpen() && path == d.path) {
        VLOG(3, "Database already open returning true");
        return true;
    }
    if (!d.owns_database || d.database == nullptr) {
        // The caller's database stays the caller's; this path gets a database of its own.
        d.database = new Ostrel::DatabaseEx();
        d.owns_database = true;
    } else if (path != d.path) {
        d.database->Close();
        delete d.database;
        d.database = new Ostrel::DatabaseEx();
    }
    if (!d.database->OpenFile(path, password)) {
        VLOG(1, "[CvellumentDB] Error opening database\n");
        return false;
    }
    d.path = path;
    d.password = password;
    d.owns_database = true;
    return true;
}

Ostrel::DatabaseEx* CvellumentDB::getDatabase() const
{
    return m_impl->database;
}

std::string CvellumentDB::getDatabasePath() const
{
    return m_impl->path;
}

std::string CvellumentDB::getDatabasePassword() const
{
    return m_impl->password;
}

int CvellumentDB::getVersion() const
{
    return kVersion;
}

// --- Schema --------------------------------------------------------------------------------------

bool CvellumentDB::_checkTablesExist() const
{
    Ostrel::DatabaseEx* database = getDatabase();
    std::string name;
    {
        Ostrel::RecordSet rows;
        if (rows.Open("SELECT name from sqlite_master WHERE type = 'table' and name='VLMvellument';", database))
            name = rows.GetFieldValue(0);
    }
    if (name != "VLMvellument") {
        VLOG(3, "[CvellumentDB] Tables not created returning false\n");
        return false;
    }
    int version = 0;
    {
        Ostrel::RecordSet rows;
        if (!rows.Open("SELECT tableVer FROM VLMvellument;", database))
            return true;
        version = as_number(rows.GetFieldValue(0));
    }
    if (version == 0 || version == kVersion)
        return true;
    VLOG(3, "[CvellumentDB] Table versions are not equal, migrating tableVer: %d codeVersion: %d.\n", version,
         kVersion);
    MigrateTables();
    return false;
}

bool CvellumentDB::MigrateTables() const
{
    return _dropTables();
}

bool CvellumentDB::_dropTables() const
{
    Ostrel::DatabaseEx* database = getDatabase();
    VLOG(3, "[CvellumentDB] Checking if tables exist");
    {
        Ostrel::RecordSet rows;
        std::string name;
        if (rows.Open("SELECT name from sqlite_master WHERE type = 'table' and name='VLMvellument';", database))
            name = rows.GetFieldValue(0);
        if (name != "VLMvellument")
            return true;
    }
    VLOG(3, "[CvellumentDB] Tables exists, attempting to drop");
    int index = 0;
    for (const char* statement : kDropStatements) {
        if (!database->Execute(statement)) {
            VLOG(2, "[CvellumentDB] Error dropping table iteration: %d\n", index);
            g_database_error = true;
            VLOG(3, "[CvellumentDB] MigrateTables returned false.\n");
            return false;
        }
        ++index;
    }
    return true;
}

bool CvellumentDB::createTables() const
{
    if (_checkTablesExist())
        return true;
    Ostrel::DatabaseEx* database = getDatabase();
    database->BeginTransaction(false);
    int index = 0;
    for (int table : kCreationOrder) {
        const std::string sql = create_statement(table);
        if (!database->Execute(sql.c_str())) {
            VLOG(2, "[CvellumentDB] Error creating table iteration: %d\n", index);
            g_database_error = true;
            database->RollbackTransaction();
            return false;
        }
        ++index;
    }
    database->CommitTransaction();
    return true;
}

// --- Writing -------------------------------------------------------------------------------------

int CvellumentDB::_selectStatement(const std::string& sql) const
{
    Ostrel::RecordSet& rows = m_impl->selected;
    if (!rows.Open(sql.c_str(), getDatabase())) {
        VLOG(1, "[CvellumentDB] Error executing select statement\n");
        return -1;
    }
    return std::atoi(rows.GetColumnString(0));
}

void CvellumentDB::_updateTable(const KeyLink& link, int value, int key) const
{
    // "UPDATE %s SET %s = %d WHERE %s = %d;", joined by hand: this runs once per row.
    std::string sql = "UPDATE ";
    sql.reserve(64);
    sql += table_name(link.table);
    sql += " SET ";
    sql += link.column;
    sql += " = ";
    sql += std::to_string(value);
    sql += " WHERE ";
    sql += link.key_column;
    sql += " = ";
    sql += std::to_string(key);
    sql += ';';
    if (!getDatabase()->Execute(sql.c_str())) {
        VLOG(1, "[CvellumentDB] Error updating table\n");
        VLOG(4, "[CvellumentDB] table string %s\n", sql.c_str());
        g_database_error = true;
    }
}

int CvellumentDB::_insertRecord(int table, int parent, const attributeDicList& attributes) const
{
    const bool parented = has_parent(table);
    std::string& sql = m_impl->insert_sql;
    sql.clear();
    sql += "INSERT INTO ";
    sql += table_name(table);
    sql += " ( ";
    for (const attributeDic& attribute : attributes) {
        sql += attribute.attributeName;
        sql += ", ";
    }
    sql += "tableVer ";
    if (parented)
        sql += ", parentID";
    sql += ")";
    sql += " VALUES ( ";
    for (std::size_t i = 0; i < attributes.size(); ++i)
        sql += "?, ";
    sql += std::to_string(kVersion);
    if (parented) {
        sql += ", ";
        sql += std::to_string(parent);
    }
    sql += ");";

    std::vector<std::pair<std::string, int>>& parameters = m_impl->insert_parameters;
    parameters.resize(attributes.size());
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        parameters[i].first.assign(attributes[i].attributeValue);
        parameters[i].second = 0;
    }
    if (!getDatabase()->ExecuteAndBindStatement(sql, parameters, false)) {
        g_database_error = true;
        return -1;
    }
    return _selectStatement(last_insert());
}

int CvellumentDB::_insertDictionary(const CDictionary* dictionary) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    database->Execute(format("INSERT INTO VLMdictionary (tableVer) VALUES (%d);", kVersion).c_str());
    const int dictionary_id = _selectStatement(last_insert());
    if (dictionary == nullptr)
        return dictionary_id;
    const std::string parent = format("%i", dictionary_id);
    for (const auto& entry : *dictionary) {
        const std::vector<std::pair<std::string, int>> parameters = {
            {entry.first, 0}, {entry.second, 0}, {parent, 0}, {"2", 0}};
        if (!database->ExecuteAndBindStatement(
                "INSERT INTO VLMdictionaryEntry(Key, Value, parentID, tableVer) VALUES(?, ?, ?, ?);", parameters,
                false)) {
            g_database_error = true;
            return -1;
        }
    }
    return dictionary_id;
}

bool CvellumentDB::_createView(const std::string& form_type, const std::string& filing_year) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    const std::string current = format(
        "CREATE VIEW IF NOT EXISTS VLMcurrentVellument AS SELECT * FROM VLMvellument INNER JOIN VLMauditTrail ON "
        "VLMauditTrail.auditTrailID = VLMvellument.childID AND VLMvellument.formType = '%s' AND "
        "VLMvellument.filingYear = %s",
        form_type.c_str(), filing_year.c_str());
    const char* const others[] = {
        "CREATE VIEW IF NOT EXISTS VLMcopyView AS SELECT * FROM VLMcopy INNER JOIN VLMfilingBase ON VLMcopy.baseID = "
        "VLMfilingBase.filingBaseID;",
        "CREATE VIEW IF NOT EXISTS VLMfilingView AS SELECT * FROM VLMfiling INNER JOIN VLMfilingBase ON "
        "VLMfiling.baseID = VLMfilingBase.filingBaseID;",
        "CREATE VIEW IF NOT EXISTS VLMformView AS SELECT * FROM VLMform INNER JOIN VLMformBase ON VLMform.baseID = "
        "VLMformBase.formBaseID;",
        "CREATE VIEW IF NOT EXISTS VLMhistoryView AS SELECT * FROM VLMhistory INNER JOIN VLMformBase ON "
        "VLMhistory.baseID = VLMformBase.formBaseID;",
        "CREATE VIEW IF NOT EXISTS VLMstatusView AS SELECT * FROM VLMstatus INNER JOIN VLMstatusBase ON "
        "VLMstatus.baseID = VLMstatusBase.statusBaseID;",
        "CREATE VIEW IF NOT EXISTS VLMpackageView AS SELECT * FROM VLMpackage INNER JOIN VLMstatusBase ON "
        "VLMpackage.baseID = VLMstatusBase.statusBaseID;",
    };
    bool any = database->Execute("DROP VIEW IF EXISTS VLMcurrentVellument;");
    any = database->Execute(current.c_str()) || any;
    for (const char* statement : others)
        any = database->Execute(statement) || any;
    return any;
}

bool CvellumentDB::writeRecords(const CVellument* vellument, Ostrel::DatabaseEx* database) const
{
    if (vellument == nullptr)
        return false;
    return _writeRecords(*vellument->m_impl, database);
}

bool CvellumentDB::writeRecords(const CVellument* vellument, const std::string& path,
                                const std::string& password) const
{
    if (!setDatabase(path, password)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return false;
    }
    return writeRecords(vellument, nullptr);
}

bool CvellumentDB::_writeRecords(const vellument_impl& vellument, Ostrel::DatabaseEx* given) const
{
    g_database_error = false;
    if (given != nullptr && !setDatabase(given)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return false;
    }
    Ostrel::DatabaseEx* database = getDatabase();
    if (database == nullptr || !database->GetOpen()) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return false;
    }
    database->BeginTransaction(false);

    if (!createTables()) {
        VLOG(1, "[CvellumentDB] Error creating tables\n");
        database->RollbackTransaction();
        g_database_error = false;
        return false;
    }

    const Identity id = identity_of(vellument);
    if (id.form_type.empty()) {
        VLOG(3, "[CvellumentDB] Invalid form type returning false");
        database->RollbackTransaction();
        return false;
    }
    VLOG(3, "Attempting to write records for %s %s %s", id.form_type.c_str(), id.year.c_str(), id.extension.c_str());
    if (!year_is_number(id.year)) {
        // No statement runs with such a year; the write fails as its statements would.
        VLOG(1, "[CvellumentDB] Error executing select statement\n");
        VLOG(2, "[CvellumentDB] Error inserting into Vellument table\n");
        VLOG(1, "[CvellumentDB] Error writing records\n");
        database->RollbackTransaction();
        g_database_error = false;
        return false;
    }

    // The vellument row.
    int vellument_id = -1;
    const int found = _selectStatement(
        format("SELECT vellumentID FROM VLMvellument WHERE formType = '%s' AND filingYear = %s AND Extension = '%s';",
               id.form_type.c_str(), id.year.c_str(), id.extension.c_str()));
    if (found == 0 || found == -1) {
        const std::string insert =
            format("INSERT INTO VLMvellument(formType, filingYear, Extension, tableVer) VALUES('%s', %s, '%s', %d);",
                   id.form_type.c_str(), id.year.c_str(), id.extension.c_str(), kVersion);
        if (!database->Execute(insert.c_str())) {
            VLOG(2, "[CvellumentDB] Error inserting into Vellument table\n");
            g_database_error = true;
        } else {
            vellument_id = _selectStatement(last_insert());
        }
    }

    // The audit trail row. The link update passes its keys the way the other programs of the
    // application read them: childID gets the vellument's key, in the row keyed by the trail's.
    int trail_id = _selectStatement(format(
        "SELECT auditTrailID FROM VLMauditTrail WHERE parentID = (SELECT vellumentID FROM VLMvellument WHERE formType "
        "= '%s' AND filingYear = %s AND Extension = '%s');",
        id.form_type.c_str(), id.year.c_str(), id.extension.c_str()));
    if (trail_id < 1) {
        const int new_trail = _insertRecord(TABLE_AUDIT_TRAIL, vellument_id, vellument.get_and_fill_map());
        _updateTable(*link_of(LINK_VELLUMENT_CHILD), vellument_id, new_trail);
        trail_id = vellument_id;
        if (vellument.dictionary != nullptr && !vellument.dictionary->empty()) {
            const int dictionary_id = _insertDictionary(vellument.dictionary);
            _updateTable(*link_of(LINK_TRAIL_DICTIONARY), dictionary_id, trail_id);
        }
        VLOG(3, "Inserted audittrail with ID %d", trail_id);
    }

    const int greatest = _selectStatement(
        format("SELECT MAX (Number) FROM (SELECT Number FROM VLMtransaction where parentID = %d);", trail_id));
    const int count = static_cast<int>(vellument.transactions.size());
    VLOG(3, "Greatest transaction for current vellument is %d", greatest);
    VLOG(3, "Current transaction count %d for vellument %s", count, vellument.vellument_name.c_str());

    for (int i = 0; i < count; ++i) {
        if (!((i > greatest || greatest < 1) && trail_id > 0))
            continue;
        CTransaction* transaction = vellument.transactions[static_cast<std::size_t>(i)];
        if (transaction == nullptr)
            continue;
        transaction->set_number(i);
        const int transaction_id = _insertRecord(TABLE_TRANSACTION, trail_id, transaction->getAndFillMap());

        CDictionary* dictionary = transaction->get_dictionary();
        if (dictionary != nullptr && !dictionary->empty()) {
            const int dictionary_id = _insertDictionary(dictionary);
            _updateTable(*link_of(LINK_TRANSACTION_DICTIONARY), dictionary_id, transaction_id);
        }

        CPackage* package = transaction->get_package();
        CStatus* status = transaction->get_status();
        const int package_id = _insertRecord(TABLE_PACKAGE, transaction_id,
                                             package != nullptr ? package->getAndFillMap() : attributeDicList());
        _updateTable(*link_of(LINK_TRANSACTION_PACKAGE), package_id, transaction_id);
        const int status_id = _insertRecord(TABLE_STATUS, transaction_id,
                                            status != nullptr ? status->getAndFillMap() : attributeDicList());
        _updateTable(*link_of(LINK_TRANSACTION_STATUS), status_id, transaction_id);

        if (status != nullptr) {
            const int base_id = _insertRecord(TABLE_STATUS_BASE, 0, status->getAndFillMapBase());
            _updateTable(*link_of(LINK_STATUS_BASE), base_id, status_id);
        }
        if (package != nullptr) {
            const int base_id = _insertRecord(TABLE_STATUS_BASE, 0, package->getAndFillMapBase());
            _updateTable(*link_of(LINK_PACKAGE_BASE), base_id, package_id);
        }

        const int copies = status != nullptr ? status->get_copy_count() : 0;
        for (int c = 0; c < copies; ++c) {
            CCopy* copy = status->get_copy_at(c);
            if (copy == nullptr)
                continue;
            const int copy_id = _insertRecord(TABLE_COPY, status_id, copy->getAndFillMap());
            const int copy_base = _insertRecord(TABLE_FILING_BASE, 0, copy->getAndFillMapBase());
            _updateTable(*link_of(LINK_COPY_BASE), copy_base, copy_id);
            const int histories = copy->get_history_count();
            for (int h = 0; h < histories; ++h) {
                CHistory* history = copy->get_history_at(h);
                if (history == nullptr)
                    continue;
                const int history_id = _insertRecord(TABLE_HISTORY, copy_id, history->getAndFillMap());
                const int history_base = _insertRecord(TABLE_FORM_BASE, 0, history->getAndFillMapBase());
                _updateTable(*link_of(LINK_HISTORY_BASE), history_base, history_id);
            }
        }

        const int filings = package != nullptr ? package->get_filing_count() : 0;
        for (int f = 0; f < filings; ++f) {
            CFiling* filing = package->get_filing_at(f);
            if (filing == nullptr)
                continue;
            const int filing_id = _insertRecord(TABLE_FILING, package_id, filing->getAndFillMap());
            const int filing_base = _insertRecord(TABLE_FILING_BASE, 0, filing->getAndFillMapBase());
            _updateTable(*link_of(LINK_FILING_BASE), filing_base, filing_id);
            const int forms = filing->get_form_count();
            for (int m = 0; m < forms; ++m) {
                CForm* form = filing->get_form_at(m);
                if (form == nullptr)
                    continue;
                const int form_id = _insertRecord(TABLE_FORM, filing_id, form->getAndFillMap());
                const int form_base = _insertRecord(TABLE_FORM_BASE, 0, form->getAndFillMapBase());
                _updateTable(*link_of(LINK_FORM_BASE), form_base, form_id);
            }
        }
    }

    if (!_createView(id.form_type, id.year)) {
        g_database_error = true;
        VLOG(1, "[CvellumentDB] Error creating view for vellument\n");
    }

    if (g_database_error) {
        VLOG(1, "[CvellumentDB] Error writing records\n");
        database->RollbackTransaction();
        g_database_error = false;
        return false;
    }
    VLOG(3, "Vellument %s %s %s successfully inserted into db", id.form_type.c_str(), id.year.c_str(),
         id.extension.c_str());
    database->CommitTransaction();
    return true;
}

// --- Reading -------------------------------------------------------------------------------------

COXMLDocument* CvellumentDB::readRecords(const CVellument* vellument, Ostrel::DatabaseEx* database) const
{
    if (vellument == nullptr)
        return nullptr;
    return _readRecords(*vellument->m_impl, database);
}

COXMLDocument* CvellumentDB::readRecords(const CVellument* vellument, const std::string& path,
                                         const std::string& password) const
{
    if (!setDatabase(path, password)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return nullptr;
    }
    return readRecords(vellument, nullptr);
}

int CvellumentDB::_checkAndInsertVellument(CkXml* xml, const std::string& sql) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "[CvellumentDB] Error, vellument with specified year and type does not exist\n");
        return -1;
    }
    const int vellument_id = as_number(rows.GetFieldValue(0));
    rows.Close();

    if (!rows.Open(format("SELECT * FROM VLMauditTrail WHERE parentID = %d", vellument_id).c_str(), database)) {
        VLOG(1, "[CvellumentDB] Error selecting all from vellument where parentID = %d\n", vellument_id);
        return -1;
    }
    const int trail_id = as_number(rows.GetFieldValue(0));
    xml->put_Tag("AuditTrail");
    copy_attributes(xml, rows, 3);
    if (!_addDictionary(xml, as_number(rows.GetFieldValue(std::string("dictionaryID"))))) {
        VLOG(1, "[CvellumentDB] Error adding dictionary to audit trail\n");
        return -1;
    }
    rows.Close();
    return trail_id;
}

bool CvellumentDB::_addDictionary(CkXml* parent, int dictionary_id) const
{
    Ostrel::RecordSet rows;
    if (!rows.Open(format("SELECT * FROM VLMdictionaryEntry WHERE parentID = %d", dictionary_id).c_str(),
                   getDatabase()))
        return false;
    if (rows.GetRecordCount() == 0) {
        VLOG(3, "[CvellumenDB] No dictionary entries found\n");
        return true;
    }
    std::unique_ptr<CkXml> dictionary(parent->NewChild("Dictionary", ""));
    if (!dictionary)
        return false;
    for (rows.MoveFirst(); !rows.IsEOF(); rows.MoveNext())
        dictionary->AddAttribute(rows.GetFieldValue(1).c_str(), rows.GetFieldValue(2).c_str());
    rows.Close();
    return true;
}

CkXml* CvellumentDB::_addPackageOrStatus(CkXml* parent, const std::string& sql, const std::string& base_sql,
                                         const std::string& tag, int index) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return nullptr;
    }
    const int base_id = as_number(rows.GetFieldValue(std::string("baseID")));
    std::unique_ptr<CkXml> element(parent->NewChildAfter(index, tag.c_str(), ""));
    if (!element)
        return nullptr;
    copy_attributes(element.get(), rows, 3);
    rows.Close();

    if (!rows.Open(with_key(base_sql, base_id).c_str(), database)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return nullptr;
    }
    copy_attributes(element.get(), rows, 1);
    rows.Close();
    return element.release();
}

bool CvellumentDB::_addFilingOrCopy(CkXml* parent, const std::string& sql, const std::string& child_sql,
                                    const std::string& tag, const std::string& key_column) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return false;
    }
    const std::string child_tag = tag == "Copy" ? "History" : "Form";
    const int count = rows.GetRecordCount();
    Ostrel::RecordSet base;  // opened anew for each row, its memory kept
    for (int i = 0; i < count; ++i) {
        std::unique_ptr<CkXml> element(parent->NewChildAfter(i, tag.c_str(), ""));
        if (!element)
            return false;
        const int key = as_number(rows.GetFieldValue(key_column));
        copy_attributes(element.get(), rows, 3);

        const int base_id = as_number(rows.GetFieldValue(std::string("baseID")));
        if (!base.Open(format("SELECT * FROM VLMfilingBase WHERE filingBaseID = %d", base_id).c_str(), database)) {
            VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
            return false;
        }
        copy_attributes(element.get(), base, 1);
        base.Close();

        if (!_addFormOrHistory(element.get(), with_key(child_sql, key),
                               "SELECT * FROM VLMformBase WHERE formBaseID = %d", child_tag))
            return false;
        rows.MoveNext();
    }
    rows.Close();
    return true;
}

bool CvellumentDB::_addFormOrHistory(CkXml* parent, const std::string& sql, const std::string& base_sql,
                                     const std::string& tag) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return false;
    }
    const int count = rows.GetRecordCount();
    Ostrel::RecordSet base;  // opened anew for each row, its memory kept
    for (int i = 0; i < count; ++i) {
        std::unique_ptr<CkXml> element(parent->NewChildAfter(i, tag.c_str(), ""));
        if (!element)
            return false;
        copy_attributes(element.get(), rows, 3);
        const int base_id = as_number(rows.GetFieldValue(std::string("baseID")));
        if (!base.Open(with_key(base_sql, base_id).c_str(), database)) {
            VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
            return false;
        }
        copy_attributes(element.get(), base, 1);
        base.Close();
        rows.MoveNext();
    }
    rows.Close();
    return true;
}

COXMLDocument* CvellumentDB::_readRecords(const vellument_impl& vellument, Ostrel::DatabaseEx* given) const
{
    if (given != nullptr && !setDatabase(given)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return nullptr;
    }
    Ostrel::DatabaseEx* database = getDatabase();
    std::unique_ptr<CkXml> xml(new CkXml());
    xml->put_EmitDeclaration(false);

    if (database == nullptr || !database->GetOpen() || !_checkTablesExist()) {
        VLOG(1, "[CvellumentDB] Error checking tables %s\n",
             database != nullptr ? database->GetFilePath().c_str() : "");
        return nullptr;
    }

    const Identity id = identity_of(vellument);
    if (id.form_type.empty()) {
        VLOG(3, "[CvellumentDB] Invalid form type returning false");
        return nullptr;
    }
    if (!year_is_number(id.year)) {
        VLOG(1, "[CvellumentDB] Error, vellument with specified year and type does not exist\n");
        VLOG(1, "[CvellumentDB] Error from ReadRecords returning false\n");
        return nullptr;
    }

    const ReadTransaction read_transaction(database);
    const int trail_id = _checkAndInsertVellument(
        xml.get(),
        format("SELECT vellumentID FROM VLMcurrentVellument WHERE FormType = '%s' AND FilingYear = %s AND Extension = "
               "'%s';",
               id.form_type.c_str(), id.year.c_str(), id.extension.c_str()));
    if (trail_id < 1) {
        VLOG(1, "[CvellumentDB] Error from ReadRecords returning false\n");
        return nullptr;
    }

    Ostrel::RecordSet transactions;
    if (!transactions.Open(format("SELECT * FROM VLMtransaction WHERE parentID = %d", trail_id).c_str(), database)) {
        VLOG(1, "Error opening vellument %s", vellument.vellument_name.c_str());
        return nullptr;
    }
    const int count = transactions.GetRecordCount();
    for (int i = 0; i < count; ++i) {
        std::unique_ptr<CkXml> transaction(xml->NewChildAfter(i, "Transaction", ""));
        if (!transaction)
            return nullptr;
        if (transactions.GetFieldCount() > 1)
            transaction->AddAttribute(transactions.GetFieldName(1).c_str(), transactions.GetFieldValue(1).c_str());
        const int package_id = as_number(transactions.GetFieldValue(std::string("packageID")));
        const int status_id = as_number(transactions.GetFieldValue(std::string("statusID")));
        const int dictionary_id = as_number(transactions.GetFieldValue(std::string("dictionaryID")));

        if (!_addDictionary(transaction.get(), dictionary_id)) {
            VLOG(1, "[CvellumentDB] Error adding dictionary to transaction\n");
            return nullptr;
        }

        // The package and status rows are asked for by their own keys, which run in step with
        // the transaction's.
        std::unique_ptr<CkXml> package(_addPackageOrStatus(
            transaction.get(), format("SELECT * FROM VLMpackage WHERE parentID = %d", package_id),
            "SELECT * FROM VLMstatusBase WHERE statusBaseID = %d", "Package", i));
        if (!package ||
            !_addFilingOrCopy(package.get(), format("SELECT * FROM VLMfiling WHERE parentID = %d", package_id),
                              "SELECT * FROM VLMform WHERE parentID = %d", "Filing", "filingID")) {
            VLOG(1, "[CvellumentDB] Error selecting from filing\n");
            return nullptr;
        }

        std::unique_ptr<CkXml> status(_addPackageOrStatus(
            transaction.get(), format("SELECT * FROM VLMstatus WHERE parentID = %d", status_id),
            "SELECT * FROM VLMstatusBase WHERE statusBaseID = %d", "Status", i));
        if (!status ||
            !_addFilingOrCopy(status.get(), format("SELECT * FROM VLMcopy WHERE parentID = %d", status_id),
                              "SELECT * FROM VLMhistory WHERE parentID = %d", "Copy", "copyID")) {
            VLOG(1, "[CvellumentDB] Error selecting from copy\n");
            return nullptr;
        }
        transactions.MoveNext();
    }
    transactions.Close();

    return COXMLDocument::createNewDocument(xml->GetSelf());
}

// --- Deleting ------------------------------------------------------------------------------------

bool CvellumentDB::DeleteRecords(const CVellument* vellument, Ostrel::DatabaseEx* database) const
{
    if (vellument == nullptr)
        return false;
    return _deleteRecords(*vellument->m_impl, database);
}

bool CvellumentDB::DeleteRecords(const CVellument* vellument, const std::string& path,
                                 const std::string& password) const
{
    if (!setDatabase(path, password)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return false;
    }
    return DeleteRecords(vellument, nullptr);
}

void CvellumentDB::_deleteDictionary(const std::string& sql) const
{
    const int dictionary_id = _selectStatement(sql);
    if (dictionary_id < 1) {
        VLOG(3, "[CvellumentDB] No dictionary for current entry");
        return;
    }
    Ostrel::DatabaseEx* database = getDatabase();
    database->Execute(format("DELETE FROM VLMdictionary WHERE dictionaryID = %d;", dictionary_id).c_str());
    database->Execute(format("DELETE FROM VLMdictionaryEntry WHERE parentID = %d;", dictionary_id).c_str());
}

int CvellumentDB::_deleteRecordAndBase(const std::string& key_column, const std::string& delete_sql,
                                       const std::string& delete_base_sql, Ostrel::RecordSet* rows) const
{
    const int base_id = as_number(rows->GetFieldValue(std::string("baseID")));
    const int key = as_number(rows->GetFieldValue(key_column));
    Ostrel::DatabaseEx* database = getDatabase();
    database->Execute(with_key(delete_sql, key).c_str());
    database->Execute(with_key(delete_base_sql, base_id).c_str());
    return key;
}

bool CvellumentDB::_deleteRecords(const vellument_impl& vellument, Ostrel::DatabaseEx* given) const
{
    if (given != nullptr && !setDatabase(given)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return false;
    }
    Ostrel::DatabaseEx* database = getDatabase();
    if (database == nullptr || !database->GetOpen() || !_checkTablesExist()) {
        VLOG(3, "Unable to add and check tables\n");
        return false;
    }

    const Identity id = identity_of(vellument);
    VLOG(3, "Attempting to clear records for %s %s %s", id.form_type.c_str(), id.year.c_str(), id.extension.c_str());
    if (!year_is_number(id.year)) {
        VLOG(1, "[CvellumentDB] Error executing select statement\n");
        VLOG(3, "Specified entry doesn't exist in db FormType: %s, FilingYear: %s Extension: %s",
             id.form_type.c_str(), id.year.c_str(), id.extension.c_str());
        return true;
    }

    const int vellument_id = _selectStatement(
        format("SELECT vellumentID FROM VLMvellument WHERE formType = '%s' AND filingYear = %s AND Extension = '%s';",
               id.form_type.c_str(), id.year.c_str(), id.extension.c_str()));
    if (vellument_id < 1) {
        VLOG(3, "Specified entry doesn't exist in db FormType: %s, FilingYear: %s Extension: %s",
             id.form_type.c_str(), id.year.c_str(), id.extension.c_str());
        return true;
    }

    database->BeginTransaction(false);
    database->Execute(format("DELETE FROM VLMvellument WHERE vellumentID = %d;", vellument_id).c_str());
    const int trail_id =
        _selectStatement(format("SELECT * FROM %s WHERE parentID = %d;", "VLMauditTrail", vellument_id));
    _deleteDictionary(format("SELECT dictionaryID FROM VLMauditTrail WHERE parentID = %d;", trail_id));
    database->Execute(format("DELETE FROM VLMauditTrail WHERE auditTrailID = %d;", trail_id).c_str());

    const char* const select = "SELECT * FROM %s WHERE parentID = %d;";
    Ostrel::RecordSet transactions;
    if (!transactions.Open(format(select, "VLMtransaction", trail_id).c_str(), database)) {
        database->RollbackTransaction();
        return false;
    }
    // Each level reads its children by the key of a row already deleted: the record sets are
    // snapshots, so the deletions don't disturb them. A failed selection below ends the walk with
    // the transaction still open, for the next operation on the database to inherit.
    const int count = transactions.GetRecordCount();
    for (int t = 0; t < count; ++t) {
        const int transaction_id = as_number(transactions.GetFieldValue(0));
        _deleteDictionary(format("SELECT dictionaryID FROM VLMtransaction WHERE transactionID = %d;", transaction_id));
        database->Execute(format("DELETE FROM VLMtransaction WHERE transactionID = %d;", transaction_id).c_str());

        Ostrel::RecordSet second;
        if (!second.Open(format(select, "VLMstatus", transaction_id).c_str(), database))
            return false;
        const int status_id = _deleteRecordAndBase("statusID", "DELETE FROM VLMstatus WHERE statusID = %d;",
                                                   "DELETE FROM VLMstatusBase WHERE statusBaseID = %d;", &second);
        if (!second.Open(format(select, "VLMcopy", status_id).c_str(), database))
            return false;
        const int copies = second.GetRecordCount();
        for (int c = 0; c < copies; ++c) {
            const int copy_id = _deleteRecordAndBase("copyID", "DELETE FROM VLMcopy WHERE copyID = %d;",
                                                     "DELETE FROM VLMfilingBase WHERE filingBaseID = %d;", &second);
            Ostrel::RecordSet third;
            if (!third.Open(format(select, "VLMhistory", copy_id).c_str(), database))
                return false;
            const int histories = third.GetRecordCount();
            for (int h = 0; h < histories; ++h) {
                _deleteRecordAndBase("historyID", "DELETE FROM VLMhistory WHERE historyID = %d;",
                                     "DELETE FROM VLMformBase WHERE formBaseID = %d;", &third);
                third.MoveNext();
            }
            third.Close();
            second.MoveNext();
        }
        second.Close();

        if (!second.Open(format(select, "VLMpackage", transaction_id).c_str(), database))
            return false;
        const int package_id = _deleteRecordAndBase("packageID", "DELETE FROM VLMpackage WHERE packageID = %d;",
                                                    "DELETE FROM VLMstatusBase WHERE statusBaseID = %d;", &second);
        if (!second.Open(format(select, "VLMfiling", package_id).c_str(), database))
            return false;
        const int filings = second.GetRecordCount();
        for (int f = 0; f < filings; ++f) {
            const int filing_id = _deleteRecordAndBase("filingID", "DELETE FROM VLMfiling WHERE filingID = %d;",
                                                       "DELETE FROM VLMfilingBase WHERE filingBaseID = %d;", &second);
            Ostrel::RecordSet third;
            if (!third.Open(format(select, "VLMform", filing_id).c_str(), database))
                return false;
            const int forms = third.GetRecordCount();
            for (int m = 0; m < forms; ++m) {
                _deleteRecordAndBase("formID", "DELETE FROM VLMform WHERE formID = %d;",
                                     "DELETE FROM VLMformBase WHERE formBaseID = %d;", &third);
                third.MoveNext();
            }
            third.Close();
            second.MoveNext();
        }
        second.Close();
        transactions.MoveNext();
    }
    transactions.Close();

    database->CommitTransaction();
    VLOG(3, "Cleared records for %s %s %s", id.form_type.c_str(), id.year.c_str(), id.extension.c_str());
    return true;
}

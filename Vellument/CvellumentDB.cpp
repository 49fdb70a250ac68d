#include <vellument/CvellumentDB.h>

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <vellument/FormCodes.h>
#include <vellument/Ostrel_Database.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/CvellumentDB_impl.h"
#include "Vellument/Vellument_impl.h"
#include "records/AttributeLists.h"

using namespace vellument_db;

// --- Shared tables and helpers -------------------------------------------------------------------

namespace {

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

std::string create_statement(int table)
{
    const std::pair<std::string, std::string>& parts = table_parts_by_id().at(table);
    std::string sql = "CREATE TABLE " + table_name(table) + "( " + parts.first;
    for (const attributeDic& column : table_columns_by_id().at(table))
        sql += column.attributeName + " " + column.attributeType + ", ";
    sql += "tableVer INT " + parts.second + " );";
    return sql;
}

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

} // namespace

namespace vellument_db {

bool g_database_error = false;

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

std::string with_key(const std::string& sql, int key)
{
    std::string text;
    with_key(text, sql, key);
    return text;
}

const char* with_key(std::string& text, const std::string& sql, int key)
{
    const std::string::size_type at = sql.find("%d");
    if (at == std::string::npos) {
        text.assign(sql);
        return text.c_str();
    }
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, key);
    text.assign(sql, 0, at);
    text.append(digits, end.ptr);
    text.append(sql, at + 2, std::string::npos);
    return text.c_str();
}

int as_number(const std::string& text)
{
    return std::atoi(text.c_str());
}

const std::string& table_name(int table)
{
    // Asked for every row written: an index rather than a search. The ids run from 0 without gaps.
    static const std::vector<std::string> names = [] {
        std::vector<std::string> by_index;
        for (const auto& entry : table_name_by_id())
            by_index.push_back(entry.second);
        return by_index;
    }();
    return names.at(static_cast<std::size_t>(table));
}

bool has_parent(int table)
{
    return table != TABLE_FILING_BASE && table != TABLE_STATUS_BASE && table != TABLE_FORM_BASE &&
           table != TABLE_DICTIONARY && table != TABLE_DICTIONARY_ENTRY;
}

const std::string& last_insert()
{
    static const std::string sql = "SELECT last_insert_rowid();";
    return sql;
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

bool year_is_number(const std::string& year)
{
    if (year.empty())
        return false;
    for (char c : year)
        if (c < '0' || c > '9')
            return false;
    return true;
}

} // namespace vellument_db

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


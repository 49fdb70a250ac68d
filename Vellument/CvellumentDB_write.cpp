#include <vellument/CvellumentDB.h>

#include <charconv>
#include <string>
#include <typeinfo>
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
#include <vellument/Ostrel_Database.h>

#include "Ostrel/LogMacros.h"
#include "records/AttributeLists.h"
#include "Vellument/CvellumentDB_impl.h"
#include "Vellument/Vellument_impl.h"

using namespace vellument_db;

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

const attributeDicList kNoAttributes;

const CvellumentDB::KeyLink* link_of(int index)
{
    return &kLinks[index];
}

// As "%d" would print it.
void append_number(std::string& text, int value)
{
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
    text.append(digits, end.ptr);
}

} // namespace

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
    Ostrel::DatabaseEx* database = getDatabase();
    // The links of a write are those of kLinks: their statements are kept, and only the keys bound.
    const std::size_t links = sizeof(kLinks) / sizeof(kLinks[0]);
    const std::ptrdiff_t index = &link - kLinks;
    int* kept = nullptr;
    if (database != nullptr && m_impl->direct_updates && index >= 0 && static_cast<std::size_t>(index) < links) {
        kept = &m_impl->update_kept[index];
        if (*kept == vellument_database_impl::kNotAsked) {
            const int number = Ostrel::detail::DatabaseAccess::keep(
                *database, format("UPDATE %s SET %s = ? WHERE %s = ?;", table_name(link.table).c_str(), link.column,
                                  link.key_column));
            *kept = number >= 0 ? number : vellument_database_impl::kNotKept;
        }
        if (*kept < 0)
            kept = nullptr;
    }

    // "UPDATE %s SET %s = %d WHERE %s = %d;", joined by hand into a kept buffer: this runs once
    // per row. With a kept statement it is only needed for the log.
    std::string& sql = m_impl->update_sql;
    auto make_text = [&]() {
        sql.assign("UPDATE ");
        sql += table_name(link.table);
        sql += " SET ";
        sql += link.column;
        sql += " = ";
        append_number(sql, value);
        sql += " WHERE ";
        sql += link.key_column;
        sql += " = ";
        append_number(sql, key);
        sql += ';';
    };
    bool ok;
    if (kept != nullptr) {
        const long long numbers[] = {value, key};
        ok = Ostrel::detail::DatabaseAccess::run(*database, *kept, nullptr, 0, numbers, 2);
        if (!ok)
            make_text();
    } else {
        make_text();
        ok = database != nullptr && database->Execute(sql.c_str());
    }
    if (!ok) {
        VLOG(1, "[CvellumentDB] Error updating table\n");
        VLOG(4, "[CvellumentDB] table string %s\n", sql.c_str());
        g_database_error = true;
    }
}

namespace {

// "INSERT INTO <table> ( <columns>, tableVer [, parentID]) VALUES ( ?, ... <version>": the text
// of an insert up to where its parent key goes.
void make_insert_head(std::string& sql, int table, bool parented, const attributeDicList& attributes)
{
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
    append_number(sql, kVersion);
}

bool same_columns(const std::vector<std::string>& columns, const attributeDicList& attributes)
{
    if (columns.size() != attributes.size())
        return false;
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (columns[i] != attributes[i].attributeName)
            return false;
    return true;
}

// One row through the table's kept insert: the values are bound where they stand in the list,
// and the parent key after them. The new row's key, as "SELECT last_insert_rowid();" gives it.
int insert_kept(vellument_database_impl& impl, Ostrel::DatabaseEx& database, int kept, bool parented, int parent,
                const attributeDicList& attributes)
{
    std::vector<Ostrel::detail::TextValue>& values = impl.insert_values;
    const std::size_t count = attributes.size();
    if (values.size() < count)
        values.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        values[i] = {attributes[i].attributeValue.data(), attributes[i].attributeValue.size()};
    const long long key = parent;
    if (!Ostrel::detail::DatabaseAccess::run(database, kept, values.data(), count, &key, parented ? 1 : 0)) {
        g_database_error = true;
        return -1;
    }
    return static_cast<int>(Ostrel::detail::DatabaseAccess::last_insert_rowid(database));
}

} // namespace

int CvellumentDB::_insertRecord(int table, int parent, const attributeDicList& attributes) const
{
    const bool parented = has_parent(table);
    Ostrel::DatabaseEx* database = getDatabase();
    std::string& sql = m_impl->insert_sql;
    const std::size_t kept = sizeof(m_impl->insert_texts) / sizeof(m_impl->insert_texts[0]);
    if (table >= 0 && static_cast<std::size_t>(table) < kept) {
        vellument_database_impl::InsertText& text = m_impl->insert_texts[table];
        if (!text.made || !same_columns(text.columns, attributes)) {
            make_insert_head(text.head, table, parented, attributes);
            text.columns.clear();
            for (const attributeDic& attribute : attributes)
                text.columns.push_back(attribute.attributeName);
            text.made = true;
            text.kept_sql.assign(text.head);
            text.kept_sql += parented ? ", ?);" : ");";
            text.kept = vellument_database_impl::kNotAsked;
        }
        if (text.kept == vellument_database_impl::kNotAsked && database != nullptr) {
            const int number = Ostrel::detail::DatabaseAccess::keep(*database, text.kept_sql);
            text.kept = number >= 0 ? number : vellument_database_impl::kNotKept;
        }
        if (text.kept >= 0)
            return insert_kept(*m_impl, *database, text.kept, parented, parent, attributes);
        sql.assign(text.head);
    } else {
        make_insert_head(sql, table, parented, attributes);
    }
    if (parented) {
        sql += ", ";
        append_number(sql, parent);
    }
    sql += ");";

    std::vector<std::pair<std::string, int>>& parameters = m_impl->insert_parameters;
    parameters.resize(attributes.size());
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        parameters[i].first.assign(attributes[i].attributeValue);
        parameters[i].second = 0;
    }
    if (!database->ExecuteAndBindStatement(sql, parameters, false)) {
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
    m_impl->forget_kept(typeid(*database) == typeid(Ostrel::DatabaseEx));
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
        const int transaction_id =
            _insertRecord(TABLE_TRANSACTION, trail_id, AttributeLists::fill_transaction(*transaction));

        CDictionary* dictionary = transaction->get_dictionary();
        if (dictionary != nullptr && !dictionary->empty()) {
            const int dictionary_id = _insertDictionary(dictionary);
            _updateTable(*link_of(LINK_TRANSACTION_DICTIONARY), dictionary_id, transaction_id);
        }

        CPackage* package = transaction->get_package();
        CStatus* status = transaction->get_status();
        const attributeDicList& package_list =
            package != nullptr ? AttributeLists::fill_package(*package) : kNoAttributes;
        const int package_id = _insertRecord(TABLE_PACKAGE, transaction_id, package_list);
        _updateTable(*link_of(LINK_TRANSACTION_PACKAGE), package_id, transaction_id);
        const int status_id = _insertRecord(TABLE_STATUS, transaction_id,
                                            status != nullptr ? status->getAndFillMap() : attributeDicList());
        _updateTable(*link_of(LINK_TRANSACTION_STATUS), status_id, transaction_id);

        if (status != nullptr) {
            const int base_id = _insertRecord(TABLE_STATUS_BASE, 0, AttributeLists::fill_status_base(*status));
            _updateTable(*link_of(LINK_STATUS_BASE), base_id, status_id);
        }
        if (package != nullptr) {
            const int base_id = _insertRecord(TABLE_STATUS_BASE, 0, AttributeLists::fill_status_base(*package));
            _updateTable(*link_of(LINK_PACKAGE_BASE), base_id, package_id);
        }

        const int copies = status != nullptr ? status->get_copy_count() : 0;
        for (int c = 0; c < copies; ++c) {
            CCopy* copy = status->get_copy_at(c);
            if (copy == nullptr)
                continue;
            const int copy_id = _insertRecord(TABLE_COPY, status_id, AttributeLists::fill_copy(*copy));
            const int copy_base = _insertRecord(TABLE_FILING_BASE, 0, AttributeLists::fill_filing_base(*copy));
            _updateTable(*link_of(LINK_COPY_BASE), copy_base, copy_id);
            const int histories = copy->get_history_count();
            for (int h = 0; h < histories; ++h) {
                CHistory* history = copy->get_history_at(h);
                if (history == nullptr)
                    continue;
                const int history_id = _insertRecord(TABLE_HISTORY, copy_id, history->getAndFillMap());
                const int history_base = _insertRecord(TABLE_FORM_BASE, 0, AttributeLists::fill_form_base(*history));
                _updateTable(*link_of(LINK_HISTORY_BASE), history_base, history_id);
            }
        }

        const int filings = package != nullptr ? package->get_filing_count() : 0;
        for (int f = 0; f < filings; ++f) {
            CFiling* filing = package->get_filing_at(f);
            if (filing == nullptr)
                continue;
            const int filing_id = _insertRecord(TABLE_FILING, package_id, AttributeLists::fill_filing(*filing));
            const int filing_base = _insertRecord(TABLE_FILING_BASE, 0, AttributeLists::fill_filing_base(*filing));
            _updateTable(*link_of(LINK_FILING_BASE), filing_base, filing_id);
            const int forms = filing->get_form_count();
            for (int m = 0; m < forms; ++m) {
                CForm* form = filing->get_form_at(m);
                if (form == nullptr)
                    continue;
                const int form_id = _insertRecord(TABLE_FORM, filing_id, AttributeLists::fill_form(*form));
                const int form_base = _insertRecord(TABLE_FORM_BASE, 0, AttributeLists::fill_form_base(*form));
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


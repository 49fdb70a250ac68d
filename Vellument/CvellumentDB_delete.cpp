#include <vellument/CvellumentDB.h>

#include <string>

#include <vellument/CVellument.h>
#include <vellument/Ostrel_Database.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/CvellumentDB_impl.h"
#include "Vellument/Vellument_impl.h"

using namespace vellument_db;

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


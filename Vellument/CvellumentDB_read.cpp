#include <vellument/CvellumentDB.h>

#include <memory>
#include <string>

#include <vellument/CVellument.h>
#include <vellument/CkXml.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/CvellumentDB_impl.h"
#include "Vellument/Vellument_impl.h"

using namespace vellument_db;

namespace {

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


#include <vellument/CVellument.h>

#include <memory>

#include <vellument/CDictionary.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CvellumentDB.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/Vellument_impl.h"

using Ostrel::Format::TextOf;

namespace {

// The password to open a database with: the caller's, unless the user's debug settings ask for
// the database to be opened without one (DecryptFiles other than "N").
std::string password_to_use(const std::string& password)
{
    std::string settings = Ostrel::FileSystem::GetOstrelLocalAppDataDirectory();
    if (!settings.empty() && settings.back() != '\\')
        settings += '\\';
    settings += "Settings.ini";
    const std::string decrypt = _GetValue(settings, "DEBUG", "DecryptFiles", "N", true);
    return (decrypt == "N" || decrypt == "n") ? password : std::string();
}

// Steps shared by both loaders: the name, the company directory and the identity's gaps. A name
// without any underscore has no form type: create_form_type_text's invalid_argument passes out.
void prepare_identity(vellument_impl& d, const char* vellument_name, const char* filing_ein, const char* filing_year,
                      const char* vendor_code)
{
    d.form_name_and_company_dir(vellument_name);
    if (d.filing_year.empty())
        d.filing_year = TextOf(filing_year);
    if (d.filing_year.empty())
        d.filing_year = vellument_impl::year_from_name(d.vellument_name);
    if (d.filing_ein.empty())
        d.filing_ein = TextOf(filing_ein);
    if (d.vendor_code.empty())
        d.vendor_code = TextOf(vendor_code);
    if (d.form_type_string.empty())
        d.form_type_string = d.create_form_type_text();
}

// Reading the document as open does, then the flags that open leaves.
bool load_document(vellument_impl& d, COXMLDocument* document)
{
    d.read_document(document);
    if (d.transactions.empty() || d.transactions.back() == nullptr) {
        VLOG(3, "[Vellument] No current transaction throwing error\n");
        return false;
    }
    CTransaction* current = d.transactions.back();
    d.has_status = current->get_status()->get_copy_count() > 0;
    d.work_in_progress = current->get_package()->get_filing_count() > 0 || !current->get_dictionary()->empty();
    return true;
}

} // namespace

bool CVellument::read_from_vellument_database(const char* vellument_name, const char* filing_ein,
                                              const char* filing_year, const char* vendor_code,
                                              Ostrel::DatabaseEx* database) const
{
    vellument_impl& d = *m_impl;
    VLOG(3, "[Vellument] loading vellument %s from db", TextOf(vellument_name).c_str());
    prepare_identity(d, vellument_name, filing_ein, filing_year, vendor_code);

    // The document is only read into records: a read-only one will do.
    std::unique_ptr<COXMLDocument> document(d.database->_readRecords(d, database, true));
    if (!document) {
        VLOG(3, "[Vellument] No transactions creating one \n");
        return false;
    }
    return load_document(d, document.get());
}

bool CVellument::read_from_vellument_database(const char* vellument_name, const char* filing_ein,
                                              const char* filing_year, const char* vendor_code,
                                              const std::string& database_path, const std::string& password) const
{
    vellument_impl& d = *m_impl;
    const std::string key = password_to_use(password);
    VLOG(3, "[Vellument] loading vellument %s from DB", TextOf(vellument_name).c_str());
    prepare_identity(d, vellument_name, filing_ein, filing_year, vendor_code);

    std::unique_ptr<COXMLDocument> document;
    if (d.database->setDatabase(database_path, key))
        document.reset(d.database->_readRecords(d, nullptr, true));
    else
        VLOG(1, "[CvellumentDB] Error setting database\n");
    if (!document) {
        VLOG(3, "[Vellument] No transactions\n");
        return false;
    }
    return load_document(d, document.get());
}

bool CVellument::delete_record(const std::string& database_path, const std::string& password,
                               const std::string& vellument_name) const
{
    vellument_impl& d = *m_impl;
    const std::string key = password_to_use(password);
    const std::string remembered = d.vellument_name;
    d.form_name_and_company_dir(vellument_name.c_str());
    VLOG(3, "[Vellument] deleting vellument %s from DB", vellument_name.c_str());

    bool deleted = false;
    try {
        if (d.filing_year.empty())
            d.filing_year = vellument_impl::year_from_name(d.vellument_name);
        if (d.form_type_string.empty())
            d.form_type_string = d.create_form_type_text();
        if (d.database->setDatabase(database_path, key))
            deleted = d.database->DeleteRecords(this, nullptr);
        else
            VLOG(1, "[CvellumentDB] Error setting database\n");
    } catch (...) {
        // A name with no form type in it: the caller hears of it, with its name as it was.
        d.vellument_name = remembered;
        throw;
    }
    d.vellument_name = remembered;
    if (!deleted)
        VLOG(1, "Failed to delete entry %s from DB", vellument_name.c_str());
    return deleted;
}

bool vellument_impl::save_to_database(const std::string& database_path, const std::string& password,
                                      const std::string& name)
{
    if (read_only) {
        VLOG(3, "[Vellument] Vellument opened with read-only returning true AND NOT SAVING.");
        return true;
    }
    const std::string key = password_to_use(password);
    const std::string remembered = vellument_name;
    if (!name.empty())
        vellument_name = name;
    VLOG(3, "[Vellument] attempting to save %s to %s", vellument_name.c_str(), database_path.c_str());

    // Delete, then write: the vellument's rows are replaced wholesale.
    bool deleted = false;
    if (database->setDatabase(database_path, key))
        deleted = database->_deleteRecords(*this, nullptr);
    else
        VLOG(1, "[CvellumentDB] Error setting database\n");
    if (!deleted)
        VLOG(2, "FAILED TO DELETE %s  FROM DB", vellument_name.c_str());

    bool written = false;
    if (database->setDatabase(database_path, key))
        written = database->_writeRecords(*this, nullptr);
    else
        VLOG(1, "[CvellumentDB] Error setting database\n");

    const int result = save(nullptr);
    VLOG(3, "Saving vellument to disk with result code %d.", result);
    vellument_name = remembered;
    return written;
}

bool CVellument::save_to_vellument_database(const std::string& database_path, const std::string& password,
                                            const std::string& vellument_name) const
{
    return m_impl->save_to_database(database_path, password, vellument_name);
}

bool CVellument::save_to_vellument_database(Ostrel::DatabaseEx* database, const std::string& vellument_name) const
{
    vellument_impl& d = *m_impl;
    if (d.read_only) {
        VLOG(3, "[Vellument] Vellument opened with read-only returning true AND NOT SAVING.");
        return true;
    }
    const std::string remembered = d.vellument_name;
    if (!vellument_name.empty())
        d.vellument_name = vellument_name;
    VLOG(3, "[Vellument] attempting to save %s to %s", d.vellument_name.c_str(),
         database != nullptr ? database->GetFilePath().c_str() : "");

    if (!d.database->DeleteRecords(this, database))
        VLOG(2, "FAILED TO DELETE %s FROM DB", d.vellument_name.c_str());
    const bool written = d.database->writeRecords(this, database);
    // The file follows only a database that took the write.
    if (written)
        d.save(nullptr);
    d.vellument_name = remembered;
    return written;
}

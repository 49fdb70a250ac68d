#ifndef VELLUMENT_CVELLUMENT_H
#define VELLUMENT_CVELLUMENT_H

#include <memory>
#include <string>

#include <vellument/DateTime.h>
#include <vellument/VellumentTypes.h>
#include <vellument/attributeDic.h>
#include <vellument/export.h>

class vellument_impl;
class CTransaction;
class CPackage;
class CStatus;
class CDictionary;
namespace Ostrel {
class DatabaseEx;
}

// One vellument: the audit trail of one form family, filing year and extension, kept as an XML
// file. The object holds the trail in memory as an array of transactions; the last one is the
// current transaction, still open for work, and every earlier one is closed history.
//
// All state lives in a private record reached through one shared pointer. Copies of a CVellument
// share that record (and so the same document); it is released with the last copy. Because the
// data sits behind the pointer, operations that change the document are declared const.
//
// Paths are in Windows form ("C:\CO\HISTORIES\VELLUMENT_W2_2021.VLM"). Opening a vellument sets the
// process-wide company directory, so objects are to be used from one thread at a time.
class VELLUMENT_API CVellument {
public:
    // An empty document: no transactions, an empty document-level dictionary, the modified date
    // set to the current local time.
    CVellument();
    ~CVellument();

    // "Vellument_" + the name middle of the form category + qualifier (+ "_" when the qualifier
    // isn't empty) + filing year + ".VLM" or ".TLM". An extension other than those two adds none.
    // No directory is part of the result.
    static std::string build_file_name(Vellument::FORM_TYPES form_category, Vellument::EXTENSION_TYPES extension,
                                       const char* filing_year, const char* qualifier);

    // Opens the vellument file: upper-cases the name (empty means "Vellument.XML") and sets the
    // company directory from it. Unless read_only, the file's MD5 is checked against the hash that
    // the last save recorded in Histories\Vellument.INI, so that an edit made outside the library
    // is closed in the trail as "User Edit", and against the hash that the filing server holds: a
    // ".VLM" whose last upload from this directory succeeded is replaced by the server's copy when
    // the two differ (the file kept as a time-stamped ".Backup"), closed as "Server Download". The
    // trail is saved if it changed; a download's write failure throws std::ios_base::failure. A
    // missing or malformed file gives a fresh document with one transaction. Filing year, EIN and vendor code
    // are taken from the arguments only where the file has none. is_test marks the current
    // transaction. A read-only open writes nothing and contacts no server.
    //
    // Throws the plain integer 0 (`throw 0;`) when a file that parses holds no transaction; the
    // object is then only fit for destruction. Throws std::invalid_argument when a ".VLM" name
    // that is checked has no underscore, since the form code is read from between underscores.
    // A second open on the same object appends the file's transactions to those it holds.
    void open(const char* vellument_name, const char* filing_ein, const char* filing_year, const char* vendor_code,
              bool is_test, bool read_only) const;

    // Writes the trail to file_name, or to the vellument's own name when file_name is null. The
    // write replaces the file atomically, so a failed write leaves the previous file whole.
    // For a ".VLM" target the previous file is first copied to the name with "BAK" as its last
    // three letters, and afterwards the MD5 of the target is recorded under its name in
    // Histories\Vellument.INI, and a document with an e-filed copy is uploaded. A ".TLM" target
    // gets the current time as its ModifiedDate. A failed write is logged and shown in a message
    // box. Returns 0 on failure, non-zero on success.
    int save(const char* file_name) const;

    // Compares each copy of the current status with what the filing server (or a ".TestStatus"
    // file beside the document) says of it, when the status has an e-filed copy. A changed
    // replaceable or deleted flag closes the trail as "Status Change" or "Server Deletion"; an
    // e-filed copy that the server lacks closes it as "Bug Fix" and leaves the new status without
    // it. Copies that the last "Bug Fix" read from the file took out are put back first. Each new
    // transaction is saved (database mirror and file). A fault of the service leaves the trail as
    // it was and sets is_web_service_error.
    void update_status_from_web() const;

    // Root attributes of the document.
    std::string get_document_type() const;
    std::string get_form_type_string() const;
    void set_form_type_string(const char* text) const;
    std::string get_filing_period_start() const;
    void set_filing_period_start(const char* text) const;
    std::string get_filing_period_end() const;
    void set_filing_period_end(const char* text) const;
    std::string get_filing_year() const;
    std::string get_registration_mode() const;
    void set_registration_mode(const char* text) const;
    std::string get_vendor_code() const;
    std::string get_filing_ein() const;
    // The full path; the setter keeps the letter case it is given.
    std::string get_vellument_name() const;
    void set_vellument_name(const char* text) const;
    CDateTime get_modified_date() const;
    // The product of the form type string; FORM_TYPES_UNKNOWN (99) when the string is unknown.
    Vellument::FORM_TYPES get_form_category() const;

    // The document-level dictionary (not a transaction's); never null.
    CDictionary* get_dictionary() const;
    // Snapshot of the last load: the current package has a filing or the current dictionary an entry.
    bool is_work_in_progress() const;
    // The last fetch of the server status ended in a web service fault.
    bool is_web_service_error() const;

    int get_transaction_count() const;
    // Lent; null for an index outside the array.
    CTransaction* get_transaction(int index) const;

    // The vellument's attribute row list (version, period, mode, form type, vendor, year, modified
    // date, EIN). Fills a process-wide table first, so it is not reentrant.
    attributeDicList getAndFillMap() const;

    // The current (last) transaction and its parts; null when the array is empty.
    CTransaction* get_current_transaction() const;
    CPackage* get_current_package() const;
    CStatus* get_current_status() const;
    CDictionary* get_current_dictionary() const;

    // Closes the current transaction as "Reload" and starts a new, empty one.
    void clear_current_status() const;
    // Replaces the current package by a new empty one.
    void clear_current_package() const;
    // Turns the finished current package into a new status, merging each filing that succeeded,
    // and starts a new transaction that holds it. Does nothing when the action is "Printing".
    void complete_current_transaction() const;

    // What the newest status knows of one copy: "eFiled", "Mailed", "Printed" or "". The
    // identifier counts for State copies only; for Local the newest dated Local copy is taken.
    std::string get_latest_action(Vellument::FILING_TYPE type, const char* identifier) const;
    // That copy's date as "%m/%d/%Y"; "" when there is no copy or it has no date.
    std::string get_latest_date(Vellument::FILING_TYPE type, const char* identifier) const;
    // Work is in progress and the package has an e-filing filing whose forms' files all exist.
    bool is_package_ready_to_efile() const;
    // The directory of the first form of the package's first Federal or Review filing; "" when
    // there is no such filing. Such a filing without forms raises std::invalid_argument.
    std::string get_history_file_location() const;

    // --- Task lists --------------------------------------------------------------------------

    // Writes the viewer task list of the current package to path: one task per form, forms on
    // special paper first; with reprint, each filing's summary form (W-3, 1096) first. Every form
    // that gets a task keeps the task number in memory. Failures show only in the file.
    void create_viewer_task_list(const char* path, bool reprint) const;
    // Writes the e-file task list of the current package to path: the filing choice, the states
    // and locals sent and the XML history of each form. Changes nothing in the vellument.
    void create_efile_task_list(const char* path) const;
    // Carries the Viewer's results in the list at path into the forms and filings that this object
    // numbered, and sets the package's call-efiler flag. True when every task succeeded; false,
    // changing nothing, when the file doesn't load or has no task 1.
    bool update_from_viewer_task_list(const char* path) const;
    // Stamps a successful e-file step into the package (invoice amount, null meaning "") and into
    // every filing sent (vlid, e-filed and replaceable flags). A failed step changes nothing.
    void update_efile_status(bool efile_succeeded, int vlid, const char* invoice_amount) const;

    // --- The SQL mirror ----------------------------------------------------------------------

    // Loads the trail from an open database (no hash check, no new transaction). False when the
    // database holds no such vellument; the transaction array may then be empty.
    bool read_from_vellument_database(const char* vellument_name, const char* filing_ein, const char* filing_year,
                                      const char* vendor_code, Ostrel::DatabaseEx* database) const;
    // The same, opening the database at database_path; the password is used unless the DEBUG
    // key DecryptFiles of Settings.ini says otherwise.
    bool read_from_vellument_database(const char* vellument_name, const char* filing_ein, const char* filing_year,
                                      const char* vendor_code, const std::string& database_path,
                                      const std::string& password) const;
    // Removes the rows of the named vellument; the object's own name is left as it was.
    bool delete_record(const std::string& database_path, const std::string& password,
                       const std::string& vellument_name) const;
    // Replaces the vellument's rows in the database at database_path and then writes the file,
    // whatever the database did. Returns the result of the database write; true at once for a
    // read-only object.
    bool save_to_vellument_database(const std::string& database_path, const std::string& password,
                                    const std::string& vellument_name) const;
    // The same on the caller's open database; the file is written only after a successful write.
    bool save_to_vellument_database(Ostrel::DatabaseEx* database, const std::string& vellument_name) const;

private:
    // The database mapper reaches the records through the private record.
    friend class CvellumentDB;

    std::shared_ptr<vellument_impl> m_impl;
};

#endif

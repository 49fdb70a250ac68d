#ifndef VELLUMENT_VELLUMENT_IMPL_H
#define VELLUMENT_VELLUMENT_IMPL_H

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <vellument/DateTime.h>
#include <vellument/LocalList.h>
#include <vellument/attributeDic.h>
#include <vellument/VellumentTypes.h>

class COXMLDocument;
class COXMLNode;
class CTransaction;
class CDictionary;
class CFiling;
class CStatus;
class CCopy;
class CForm;
class CViewerTaskList;
class CvellumentDB;

namespace oxml {
class TextWriter;
}

// The private record behind CVellument: the document, its trail and the flags that opening
// leaves behind. Owned through CVellument's shared pointer; its destructor releases the trail.
// No virtual operations.
class vellument_impl {
public:
    vellument_impl();
    ~vellument_impl();

    vellument_impl(const vellument_impl&) = delete;
    vellument_impl& operator=(const vellument_impl&) = delete;

    // --- Opening -------------------------------------------------------------------------------

    // Upper-cases the name (empty: "Vellument.XML"), stores it and sets the company directory to
    // the folder above a HISTORIES or DRAFTS sub-folder.
    void form_name_and_company_dir(const char* name);
    void open(const char* name, const char* filing_ein, const char* filing_year, const char* vendor_code,
              bool is_test, bool read_only);
    // Root attributes, document dictionary and transactions of a parsed document, appended to
    // what is held.
    void read_document(COXMLDocument* document);
    // The root attribute rows (version, period, mode, form type, vendor, year, modified date, EIN),
    // filled into the process-wide table.
    attributeDicList get_and_fill_map() const;
    // Whether reading the records of a vellument document, or of a status on its own, costs no
    // more than a bound proportional to the document's size; logged when not.
    static bool vellument_readable(const COXMLDocument* document, const std::string& path);
    static bool status_readable(const COXMLDocument* document, const std::string& path);
    // A default transaction appended as the new current one.
    CTransaction* create_new_transaction();
    // form_type_string, or the form type read from the code between the underscores of the name.
    std::string create_form_type_text() const;
    // The year in a name like "...2021.VLM": of its last 8 characters the first 4. A shorter name
    // gives what it has ("A_1.VLM" gives "A_1.").
    static std::string year_from_name(const std::string& name);
    // The dictionary of the nearest earlier transaction whose dictionary has entries; null if none.
    CDictionary* get_previous_dictionary() const;

    // --- Validation ----------------------------------------------------------------------------

    // True when the file differs from what the library last saved; may replace the file by the
    // server's copy.
    bool validate_vellument(std::string& name, const char* filing_year, const char* filing_ein);
    // Lower-case hex MD5 of the file's bytes; "-1" when none could be computed.
    static std::string hash_file(const std::string& path);
    // Company directory + "Histories\Vellument.INI".
    static std::string history_settings_path();

    // --- Saving --------------------------------------------------------------------------------

    static constexpr std::size_t kRootAttributes = 9;
    // The root element's attribute values, in file order.
    std::array<std::string, kRootAttributes> root_values() const;
    COXMLNode* create_xml_node(COXMLDocument* document);
    // The save's text of the trail, the same bytes as the tree of create_xml_node would print;
    // the dictionaries' elements come built (the transactions' from build_dictionaries).
    void write_text(oxml::TextWriter& out, const std::array<std::string, kRootAttributes>& values,
                    COXMLNode* document_dictionary) const;
    std::vector<COXMLNode*> build_dictionaries(COXMLDocument* scratch) const;
    int save(const char* file_name);
    // Copies the file as it stands to its ".BAK" name.
    void save_vellument();
    // The save that follows a change of the trail while opening.
    void save_after_open();
    // Mirrors into the database that the object last used (none on a fresh object: then only the
    // file is written) and writes the file; the database's result.
    bool save_to_current_database();
    // The save through a database file: the rows are replaced (delete, then write) and the file is
    // written whatever the database did. A name, when given, stands for the vellument's meanwhile.
    // The result of the write; true without doing anything when opened read-only.
    bool save_to_database(const std::string& database_path, const std::string& password, const std::string& name);

    // --- The trail -----------------------------------------------------------------------------

    // The last transaction; null, with a log line, when there is none.
    CTransaction* current_transaction() const;
    void create_user_edit_or_download_transaction(bool read_only, bool hash_changed);
    // Adds to the current status an employer or payer copy made from the federal copy when the
    // employer history file lies beside the federal form's file; marks the trail corrected.
    void add_employer_copy_from_history_file(CCopy* federal);
    void complete_current_transaction();
    void complete_filing(CFiling* filing, CStatus* status);
    CCopy* find_latest_copy(Vellument::FILING_TYPE type, const char* identifier) const;
    void clear_current_status();
    void clear_current_package();
    bool is_package_ready_to_efile() const;
    std::string get_history_file_location() const;

    // --- The server's view ----------------------------------------------------------------------

    void update_status_from_web();
    // The current status has an e-filed copy.
    bool any_efilings_found() const;
    // The server's status (caller deletes): the ".TestStatus" file beside the document when there
    // is one, else the web service's. Null when there is nothing to compare with (also for a test
    // file that doesn't parse); web_service_error then tells a fault from a plain absence.
    CStatus* get_server_status();
    // The copy's identifier as the server knows it: a Local copy's e-file code from the local list.
    std::string get_server_identifier(const CCopy* copy, Vellument::FILING_TYPE server_type) const;
    // Puts back into the current status the copies that the last bug fix read from the file took out.
    void recover_reappearing_copies_from_last_bug_fix_transaction();
    // Closes the trail as "Status Change" or "Server Deletion" and carries the copies as the server
    // now has them.
    void create_status_change_transaction(CStatus* server_status);
    // Closes the trail as "Bug Fix" and carries every copy but the e-filed ones the server lacks.
    void create_bug_fix_transaction(CStatus* server_status);

    // --- Viewer task list -------------------------------------------------------------------------

    // Summary-first order of a reprint; false when there is no current transaction.
    bool add_reprint_tasks(CViewerTaskList* list);
    // The ordinary order: pass 0 takes the forms on special paper, pass 1 the others. Returns
    // message_given as it stands after the pass.
    bool add_tasks_for_paper_pass(int pass, CViewerTaskList* list, bool message_given);
    // Every attribute of the list's current task but TaskNum and PaperMessage.
    void fill_viewer_task(CViewerTaskList* list, CFiling* filing, CForm* form);
    void fill_task_from_database(CViewerTaskList* list, CForm* form);
    void fill_task_from_history(CViewerTaskList* list, CForm* form);

    // --- Fields, in this order -----------------------------------------------------------------

    bool web_service_error = false;
    bool has_status = false;
    bool work_in_progress = false;
    bool hash_value_exists = false;
    bool saved_hash_exists = false;
    bool server_hash_exists = false;
    bool downloaded_vellument = false;
    bool transaction_corrected = false;
    int version = 200;  // never below 200; the writer always writes 200
    std::string filing_period_start;
    std::string filing_period_end;
    std::string registration_mode;
    std::string form_type_string;
    std::string filing_ein;
    std::string filing_year;
    std::string vendor_code;
    std::string vellument_name;
    int xml_error_code = 0;
    char xml_error_text[256] = {};  // 255 characters and the terminator
    CDateTime modified_date;
    COXMLNode* root_node = nullptr;                     // scratch, not owned
    CTransaction* last_bug_fix_transaction = nullptr;   // not owned
    CListMap local_list_map;                            // owned row maps, keyed by local identifier
    CDictionary* dictionary = nullptr;                  // owned, never null
    CvellumentDB* database = nullptr;                   // owned, never null
    std::vector<CTransaction*> transactions;            // owned, in trail order
    bool read_only = false;
};

#endif

#ifndef VELLUMENT_TASKLISTFUNCTIONS_H
#define VELLUMENT_TASKLISTFUNCTIONS_H

// The rules behind the viewer and e-file task lists, shared by the vellument and the application:
// which forms a run regenerates from the form data, how the Viewer is to show a task, how a
// Viewer result counts, and the builder of the e-file list.
//
// The functions take const records, as the records keep their data behind a pointer; those that
// apply results change what the records hold.

#include <vellument/VellumentTypes.h>
#include <vellument/export.h>

class CViewerTaskList;
class CFiling;
class CForm;
class CCopy;
class CTransaction;
class COXMLDocument;

// --- Building the viewer task list ----------------------------------------------------------------

// DisplayMode and ReportMode of the list's current task, from the form's flags and the filing's
// records and e-file flags.
VELLUMENT_API void set_viewer_task_modes(CViewerTaskList* list, const CFiling* filing, const CForm* form);
// ReportState (the filing's identifier) on the current task, for the summary and 1099 forms of a
// State filing.
VELLUMENT_API void set_task_report_state(CViewerTaskList* list, const CFiling* filing, const CForm* form);
// A W-2 or W-2C of a State filing that asks for its state W-2s to be regenerated.
VELLUMENT_API bool regenerate_state_form(const CFiling* filing, const CForm* form);
// The filing asks for some of its forms to be reprinted from the form data.
VELLUMENT_API bool reprint_filing_from_db(const CFiling* filing);
// The form is to be built from the form data rather than from its existing report.
VELLUMENT_API bool regenerate_from_db(const CFiling* filing, const CForm* form);
// The filing has neither been e-filed nor printed successfully, or is a reprint for chosen people.
VELLUMENT_API bool filing_not_completed_successfully(const CFiling* filing);
// A recipient copy that went out on paper is now being e-filed (outside a correction).
VELLUMENT_API bool upgrading_recipient_copy_to_efiling(Vellument::ActionType action, const CCopy* copy,
                                                        const CFiling* filing);

// --- Results back from the Viewer -----------------------------------------------------------------

// Applies the list's current task to the forms of the filing that carry its number, then sets the
// filing's printed (or records) success flag when exactly all its forms are counted.
VELLUMENT_API void update_filing_from_task(const CFiling* filing, const CViewerTaskList* list,
                                           const CTransaction* transaction);
// Applies the list's current task to one form: its result code and printed result, and whether it
// counts as done.
VELLUMENT_API void update_from_viewer_task(const CViewerTaskList* list, const CTransaction* transaction,
                                           const CFiling* filing, const CForm* form);
// Whether a form with this Viewer result counts as done for its filing.
VELLUMENT_API bool count_form_as_printed(const CTransaction* transaction, const CFiling* filing, const CForm* form,
                                         const char* result_code, bool result_printed);
// An employee's W-2C in a correction counts whether or not it came out on paper.
VELLUMENT_API bool count_employee_w2c_as_printed(Vellument::ActionType action, Vellument::FILING_TYPE filing_type,
                                                 Vellument::FORM_TYPE form_type);
// When exactly two federal forms came out on paper, the employer's and payer's own copies count as
// printed with them.
VELLUMENT_API void update_employer_print(const CTransaction* transaction);

// --- The e-file task list -------------------------------------------------------------------------

// Holds the e-file list while it is built: a document with a "root" element, deleted with the
// builder.
class VELLUMENT_API efile_options_builder {
public:
    efile_options_builder();
    ~efile_options_builder();

    efile_options_builder(const efile_options_builder&) = delete;
    efile_options_builder& operator=(const efile_options_builder&) = delete;

    // A "state" element with abbr, appended to the root.
    void add_state_element(const char* abbr) const;
    // A "history" element with path, stateabbr and formname, appended to the root.
    void add_history_element(const char* path, const char* state_abbr, const char* form_name) const;

    // Lent; never null.
    COXMLDocument* get_document() const;

private:
    COXMLDocument* m_document;
};

// The history elements of one filing: its forms' XML histories, by filing type.
VELLUMENT_API void add_histories_to_efile_options(const CFiling* filing, const efile_options_builder* builder);

#endif

// Writing the viewer task list: which forms of the current package get a task, in which order, and
// whether the Viewer builds each report from the form data or works from the one that exists.

#include <vellument/CVellument.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CViewerTaskList.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/TaskListFunctions.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/Vellument_impl.h"

namespace {

// W-3 and 1096 lead their filing in a reprint; W-3C does not.
bool is_summary_form(const CForm* form)
{
    const std::string type = Ostrel::Format::ToUpperAscii(form->get_type_string());
    return type == "W-3" || type == "1096";
}

bool is_state_filing(const CFiling* filing)
{
    return filing->get_type() == Vellument::FILING_TYPE_STATE;
}

// The e-file package of the current status, absolute, when its path names a ".KXN" file; the
// bool says whether it does.
bool status_package_path(CTransaction* current, std::string& path)
{
    path.clear();
    if (current == nullptr || current->get_status() == nullptr)
        return false;
    path = CPathHandling::convert_path_to_absolute(current->get_status()->get_kxn_path().c_str());
    return path.size() >= 4 && Ostrel::Format::ToUpperAscii(path.substr(path.size() - 4)) == ".KXN";
}

std::string absolute(const std::string& path)
{
    return CPathHandling::convert_path_to_absolute(path.c_str());
}

void set_number_attribute(CViewerTaskList* list, const char* name, int value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    list->SetTaskAttribute(name, text);
}

} // namespace

// --- Exported helpers -----------------------------------------------------------------------------

void set_viewer_task_modes(CViewerTaskList* list, const CFiling* filing, const CForm* form)
{
    if (list == nullptr || filing == nullptr || form == nullptr)
        return;
    const bool editable = form->get_flags() == Vellument::FORM_FLAGS_EDITABLE;
    const char* display;
    const char* report;
    if (form->get_flags() == Vellument::FORM_FLAGS_BACKGROUND) {
        display = "Background";
        report = "History";
    } else if (filing->get_records_flag()) {
        display = "Record";
        report = "History";
    } else if (filing->get_efiled_flag()) {
        display = "Efile";
        report = editable ? "Draft" : "History";
    } else {
        display = "PrintMail";
        report = editable ? "Draft" : "History";
    }
    list->SetTaskAttribute("DisplayMode", display);
    list->SetTaskAttribute("ReportMode", report);
}

void set_task_report_state(CViewerTaskList* list, const CFiling* filing, const CForm* form)
{
    if (list == nullptr || filing == nullptr || form == nullptr || !is_state_filing(filing))
        return;
    switch (form->get_type()) {
    case Vellument::FORM_TYPE_W3:
    case Vellument::FORM_TYPE_W3C:
    case Vellument::FORM_TYPE_1099:
    case Vellument::FORM_TYPE_1096:
        list->SetTaskAttribute("ReportState", filing->get_identifier().c_str());
        break;
    default:
        break;
    }
}

bool regenerate_state_form(const CFiling* filing, const CForm* form)
{
    if (filing == nullptr || form == nullptr)
        return false;
    const Vellument::FORM_TYPE type = form->get_type();
    return is_state_filing(filing) && filing->get_regenerate_state_w2() &&
           (type == Vellument::FORM_TYPE_W2 || type == Vellument::FORM_TYPE_W2C);
}

bool reprint_filing_from_db(const CFiling* filing)
{
    if (filing == nullptr)
        return false;
    return filing->get_reprint_select_employees() || filing->get_reprint_select_recipients() ||
           filing->get_reprint_local_w2() || filing->get_reprint_employer_w2() || filing->get_reprint_payer_1099();
}

bool regenerate_from_db(const CFiling* filing, const CForm* form)
{
    if (filing == nullptr)
        return false;
    if (regenerate_state_form(filing, form))
        return true;
    const Vellument::FILING_TYPE type = filing->get_type();
    if (type == Vellument::FILING_TYPE_EMPLOYEE && filing->get_regenerate_employee_w2())
        return true;
    if (type == Vellument::FILING_TYPE_RECIPIENT && filing->get_regenerate_recipient_1099())
        return true;
    return reprint_filing_from_db(filing);
}

bool filing_not_completed_successfully(const CFiling* filing)
{
    if (filing == nullptr)
        return false;
    if (!filing->get_efiled_successful_flag() && !filing->get_printed_successful_flag())
        return true;
    return filing->get_reprint_select_employees() || filing->get_reprint_select_recipients();
}

bool upgrading_recipient_copy_to_efiling(Vellument::ActionType action, const CCopy* copy, const CFiling* filing)
{
    if (copy == nullptr || filing == nullptr)
        return false;
    return action != Vellument::ACTION_CORRECTION && copy->get_printed_flag() &&
           filing->get_type() == Vellument::FILING_TYPE_RECIPIENT && !filing->get_printed_flag() &&
           filing->get_efiled_flag();
}

// --- The private record's part --------------------------------------------------------------------

void vellument_impl::fill_task_from_database(CViewerTaskList* list, CForm* form)
{
    std::string package_path;
    if (status_package_path(transactions.empty() ? nullptr : transactions.back(), package_path)) {
        list->SetTaskAttribute("KrfFile", package_path.c_str());
    } else {
        list->SetTaskAttribute("KrfDatabaseFile", form->get_krf_db_path().c_str());
        list->SetTaskAttribute("KrfVer", form->get_krf_version().c_str());
    }
    set_number_attribute(list, "KrfFilterNum", form->get_krf_filter_number());
    set_number_attribute(list, "KrfFilterNum2", form->get_krf_filter_number_2());
    list->SetTaskAttribute("ReportOutputFile", absolute(form->get_location()).c_str());
    list->SetTaskAttribute("XmlHistoryOutputFile", absolute(form->get_exml_location()).c_str());
    const std::string prior = absolute(form->get_prior_exml_location());
    if (!prior.empty())
        list->SetTaskAttribute("XmlHistoryInputFile", prior.c_str());
    list->SetTaskAttribute("FormDir", form->get_form_dir().c_str());
}

void vellument_impl::fill_task_from_history(CViewerTaskList* list, CForm* form)
{
    // Through the relative form and back, so that a report stored under another company folder is
    // looked for under the present one.
    const std::string relative = CPathHandling::convert_path_to_relative(absolute(form->get_location()).c_str());
    list->SetTaskAttribute("ReportInputFile", absolute(relative).c_str());

    if (transactions.empty())
        return;
    std::string package_path;
    if (status_package_path(transactions.back(), package_path)) {
        list->SetTaskAttribute("KrfFile", package_path.c_str());
    } else {
        list->SetTaskAttribute("KrfDbDir", package_path.c_str());
        list->SetTaskAttribute("KrfVer", form->get_krf_version().c_str());
    }
}

void vellument_impl::fill_viewer_task(CViewerTaskList* list, CFiling* filing, CForm* form)
{
    list->SetTaskAttribute("Description", form->get_description().c_str());
    list->SetTaskAttribute("FormName", form->get_form_name().c_str());
    if (form->get_force_print())
        list->SetTaskAttribute("PrintRequired", "Y");
    set_task_report_state(list, filing, form);

    // Outside a Printing run every report is built afresh; a Printing run rebuilds only what the
    // filing's regenerate and reprint requests select and reprints the rest as it stands.
    const CTransaction* current = transactions.empty() ? nullptr : transactions.back();
    const bool generate = (current != nullptr && current->get_action() != Vellument::ACTION_PRINTING) ||
                          regenerate_from_db(filing, form);
    if (generate)
        fill_task_from_database(list, form);
    else
        fill_task_from_history(list, form);

    set_viewer_task_modes(list, filing, form);
}

namespace {

// One task for the form, as every order adds it; PaperMessage is the caller's.
void add_form_task(vellument_impl& impl, CViewerTaskList* list, CFiling* filing, CForm* form)
{
    form->set_task_number(list->AddTask());
    impl.fill_viewer_task(list, filing, form);
}

} // namespace

bool vellument_impl::add_reprint_tasks(CViewerTaskList* list)
{
    CTransaction* current = current_transaction();
    if (current == nullptr)
        return false;
    const CPackage* package = current->get_package();
    if (package == nullptr)
        return false;
    for (int f = 0; f < package->get_filing_count(); ++f) {
        CFiling* filing = package->get_filing_at(f);
        const int count = filing->get_form_count();
        if (count <= 0)
            continue;

        std::vector<CForm*> order;
        if (count == 1) {
            order.push_back(filing->get_form_at(0));
        } else {
            // The filing's first summary form leads; any further one gets no task.
            for (int i = 0; i < count; ++i) {
                CForm* form = filing->get_form_at(i);
                if (is_summary_form(form)) {
                    order.push_back(form);
                    break;
                }
            }
            for (int i = 0; i < count; ++i) {
                CForm* form = filing->get_form_at(i);
                if (!is_summary_form(form))
                    order.push_back(form);
            }
        }
        for (CForm* form : order) {
            add_form_task(*this, list, filing, form);
            list->SetTaskAttribute("PaperMessage", form->get_paper_warning().c_str());
        }
    }
    return true;
}

bool vellument_impl::add_tasks_for_paper_pass(int pass, CViewerTaskList* list, bool message_given)
{
    CTransaction* current = current_transaction();
    if (current == nullptr)
        return false;
    if (pass != 0 && pass != 1)
        return message_given;
    const bool special_pass = pass == 0;
    const CPackage* package = current->get_package();
    if (package == nullptr)
        return message_given;
    for (int f = 0; f < package->get_filing_count(); ++f) {
        CFiling* filing = package->get_filing_at(f);
        for (int i = 0; i < filing->get_form_count(); ++i) {
            CForm* form = filing->get_form_at(i);
            if (form->get_special_paper() != special_pass)
                continue;
            add_form_task(*this, list, filing, form);
            // Each special form asks for its paper; the plain run asks once, on its first task.
            if (special_pass) {
                list->SetTaskAttribute("PaperMessage", form->get_paper_warning().c_str());
            } else if (!message_given) {
                message_given = true;
                list->SetTaskAttribute("PaperMessage", form->get_paper_warning().c_str());
            }
        }
    }
    return message_given;
}

// --- The exported operation -----------------------------------------------------------------------

void CVellument::create_viewer_task_list(const char* path, bool reprint) const
{
    CViewerTaskList list;
    const tasklist_category_info info = get_task_list_category_info(m_impl->form_type_string.c_str());
    list.SetCategory(info.category != nullptr ? info.category : "");
    list.SetSubcategory(info.subcategory != nullptr ? info.subcategory : "");

    VLOG(3, "[Vellument] Creating viewer tasklist for file %s with reprint %d\n", path != nullptr ? path : "",
         reprint ? 1 : 0);

    bool done = false;
    if (reprint) {
        m_impl->add_reprint_tasks(&list);
        done = list.GetDocument()->getElementsByTagName("Task")->length() > 0;
    }
    if (!done) {
        bool message_given = false;
        message_given = m_impl->add_tasks_for_paper_pass(0, &list, message_given);
        m_impl->add_tasks_for_paper_pass(1, &list, message_given);
    }

    VLOG(3, "[Vellument] Writting viewer tasklist for file %s\n", path != nullptr ? path : "");
    list.SaveList(path);
}

// The Viewer's results carried back into the package: which forms came out, which filings are done,
// and whether the e-file step may run.

#include <vellument/CVellument.h>

#include <cctype>
#include <cstring>
#include <string>

#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CTransaction.h>
#include <vellument/CViewerTaskList.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/TaskListFunctions.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/Vellument_impl.h"

namespace {

// The word is given in capitals.
bool contains_ignoring_case(const std::string& text, const char* word)
{
    return Ostrel::Format::ToUpperAscii(text).find(word) != std::string::npos;
}

// Notices and dividers count for their filing but carry no success flag of their own.
bool takes_own_flag(const CForm* form)
{
    const Vellument::FORM_TYPE type = form->get_type();
    return type != Vellument::FORM_TYPE_NOTICE && type != Vellument::FORM_TYPE_DIVIDER;
}

} // namespace

bool count_employee_w2c_as_printed(Vellument::ActionType action, Vellument::FILING_TYPE filing_type,
                                   Vellument::FORM_TYPE form_type)
{
    return action == Vellument::ACTION_CORRECTION && filing_type == Vellument::FILING_TYPE_EMPLOYEE &&
           form_type == Vellument::FORM_TYPE_W2C;
}

bool count_form_as_printed(const CTransaction* transaction, const CFiling* filing, const CForm* form,
                           const char* result_code, bool result_printed)
{
    if (filing == nullptr || form == nullptr)
        return false;
    const Vellument::FORM_TYPE form_type = form->get_type();
    if (form_type == Vellument::FORM_TYPE_NOTICE || form_type == Vellument::FORM_TYPE_INSTRUCTIONS)
        return true;
    if (result_code == nullptr || std::strcmp(result_code, "Succeeded") != 0)
        return false;
    const Vellument::FILING_TYPE filing_type = filing->get_type();
    // The employer's and payer's copies count only through update_employer_print.
    if (filing_type == Vellument::FILING_TYPE_EMPLOYER || filing_type == Vellument::FILING_TYPE_PAYER)
        return false;
    const Vellument::ActionType action =
        transaction != nullptr ? transaction->get_action() : Vellument::ACTION_NONE;
    if (count_employee_w2c_as_printed(action, filing_type, form_type))
        return true;
    return filing->get_printed_flag() && result_printed;
}

void update_from_viewer_task(const CViewerTaskList* list, const CTransaction* transaction, const CFiling* filing,
                             const CForm* form)
{
    if (list == nullptr || filing == nullptr || form == nullptr)
        return;
    // The list lends its texts only until its next call: take copies.
    const std::string result_code = list->GetTaskAttribute("ResultCode");
    const bool result_printed =
        Ostrel::Format::EqualsNoCaseAscii(Ostrel::Format::TextOf(list->GetTaskAttribute("ResultPrinted")), "Y");
    form->set_viewer_result_code(result_code);
    form->set_result_printed(result_printed);

    if (!count_form_as_printed(transaction, filing, form, result_code.c_str(), result_printed))
        return;
    filing->increment_print_success_count();
    if (!takes_own_flag(form))
        return;
    if (filing->get_records_flag())
        form->set_records_successful_flag(true);
    else
        form->set_printed_successful_flag(true);
}

void update_filing_from_task(const CFiling* filing, const CViewerTaskList* list, const CTransaction* transaction)
{
    if (filing == nullptr || list == nullptr)
        return;
    const int task = list->GetTaskNumber();
    const int count = filing->get_form_count();
    for (int i = 0; i < count; ++i) {
        const CForm* form = filing->get_form_at(i);
        if (form->get_task_number() == task)
            update_from_viewer_task(list, transaction, filing, form);
    }
    // Equality on purpose: a count driven past the form count (a list applied twice, employer
    // copies counted again) sets nothing more, and nothing here clears a flag once set.
    if (count >= 1 && filing->get_print_success_count() == count) {
        if (filing->get_records_flag())
            filing->set_records_successful_flag(true);
        else
            filing->set_printed_successful_flag(true);
    }
}

void update_employer_print(const CTransaction* transaction)
{
    if (transaction == nullptr || transaction->get_package() == nullptr)
        return;
    const CPackage* package = transaction->get_package();
    const int filing_count = package->get_filing_count();

    int federal_printed = 0;
    for (int f = 0; f < filing_count; ++f) {
        const CFiling* filing = package->get_filing_at(f);
        for (int i = 0; i < filing->get_form_count(); ++i) {
            const CForm* form = filing->get_form_at(i);
            if (form->get_result_printed() && contains_ignoring_case(form->get_description(), "FEDERAL"))
                ++federal_printed;
        }
    }
    // The employer's or payer's own copy rides on exactly the two federal forms.
    if (federal_printed != 2)
        return;

    for (int f = 0; f < filing_count; ++f) {
        const CFiling* filing = package->get_filing_at(f);
        for (int i = 0; i < filing->get_form_count(); ++i) {
            const CForm* form = filing->get_form_at(i);
            const std::string description = form->get_description();
            if (!contains_ignoring_case(description, "EMPLOYER") && !contains_ignoring_case(description, "PAYER"))
                continue;
            filing->increment_print_success_count();
            if (!takes_own_flag(form))
                continue;
            if (filing->get_records_flag()) {
                form->set_records_successful_flag(true);
                filing->set_records_successful_flag(true);
            } else {
                form->set_printed_successful_flag(true);
                form->set_result_printed(true);
                filing->set_printed_successful_flag(true);
            }
        }
    }
}

bool CVellument::update_from_viewer_task_list(const char* path) const
{
    VLOG(3, "[Vellument] Updating from viewer task list %s\n", path != nullptr ? path : "");
    CTransaction* current = m_impl->current_transaction();
    CViewerTaskList list;
    if (!list.LoadList(path))
        return false;
    if (!list.SelectTask(1))
        return false;
    if (current == nullptr || current->get_package() == nullptr)
        return false;
    const CPackage* package = current->get_package();

    bool any_efile = false;
    do {
        for (int f = 0; f < package->get_filing_count(); ++f) {
            const CFiling* filing = package->get_filing_at(f);
            update_filing_from_task(filing, &list, current);
            if (filing->get_efiled_flag())
                any_efile = true;
        }
    } while (list.SelectNextTask() != 0);

    const bool all_ok = list.GetAllSucceeded();
    package->set_call_efiler_flag(all_ok && any_efile);
    VLOG(3, "[Vellument] Efileable %d\n", all_ok ? 1 : 0);
    update_employer_print(current);
    return all_ok;
}

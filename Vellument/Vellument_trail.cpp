// The rules by which the trail grows: a step is closed by writing its action on the last
// transaction, and a new transaction takes over what lives on.

#include "Vellument/Vellument_impl.h"

#include <memory>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/LogMacros.h"

namespace {

bool is_employer_or_payer(Vellument::FILING_TYPE type)
{
    return type == Vellument::FILING_TYPE_EMPLOYER || type == Vellument::FILING_TYPE_PAYER;
}

// The forms whose history names the employer's own history file.
bool is_employer_history_form(Vellument::FORM_TYPE type)
{
    return type == Vellument::FORM_TYPE_W2 || type == Vellument::FORM_TYPE_W2C || type == Vellument::FORM_TYPE_1099;
}

// The employer history file that sits beside a federal form file: the form file's name up to its
// first underscore, stripped of the letters that mark a variant of the form (kept for 1099, whose
// names carry none), then the base name.
std::string employer_history_file(const CHistory* history, Vellument::FORM_TYPE form_type)
{
    const bool is_1099 = form_type == Vellument::FORM_TYPE_1099;
    const std::string base = is_1099 ? history->get_form_name() + "_PAYER.VLH" : std::string("EMPLOYER.VLH");
    const std::string location = history->get_location();
    const std::string directory = Ostrel::FileSystem::GetDirectory(location.c_str());
    const std::string file_name = Ostrel::FileSystem::GetFileName(location.c_str());

    const std::string::size_type underscore = file_name.find('_');
    std::string prefix = underscore == std::string::npos ? std::string() : file_name.substr(0, underscore + 1);
    if (!is_1099) {
        std::string kept;
        for (char c : prefix) {
            if (std::string("~RMAFXHQ").find(c) == std::string::npos)
                kept += c;
        }
        prefix = kept;
    }
    return directory + prefix + base;
}

} // namespace

void vellument_impl::create_user_edit_or_download_transaction(bool open_read_only, bool hash_changed)
{
    CTransaction* current = transactions.back();
    CStatus* status = current->get_status();
    CCopy* federal = status->get_copy_by_type(Vellument::FILING_TYPE_FEDERAL, "");
    CCopy* employer = status->get_copy_by_type(Vellument::FILING_TYPE_EMPLOYER, "");
    CCopy* payer = status->get_copy_by_type(Vellument::FILING_TYPE_PAYER, "");

    if (open_read_only) {
        VLOG(3, "[VellumentImpl] returning from create_user_edit_or_download_transaction, action not needed\n");
        return;
    }

    VLOG(3, "[VellumentImpl] Determining if orphaned employer/payer printing.");
    bool has_employer_or_payer = false;
    bool has_federal = false;
    for (int i = 0; i < status->get_copy_count(); ++i) {
        const Vellument::FILING_TYPE type = status->get_copy_at(i)->get_type();
        if (is_employer_or_payer(type))
            has_employer_or_payer = true;
        if (type == Vellument::FILING_TYPE_FEDERAL)
            has_federal = true;
    }

    if (has_employer_or_payer && !has_federal) {
        // An employer or payer copy means nothing without the federal filing it belongs to.
        VLOG(3, "[VellumentImpl] Correcting orphaned transaction.");
        current->set_action(Vellument::ACTION_ORPHAN_EMPLOYER_OR_PAYER);
        CTransaction* repaired = create_new_transaction();
        repaired->set_status(new CStatus(current->get_status()));
        repaired->set_package(new CPackage(current->get_package()));
        CStatus* repaired_status = repaired->get_status();
        repaired_status->remove_copy_by_type(Vellument::FILING_TYPE_EMPLOYER, "");
        repaired_status->remove_copy_by_type(Vellument::FILING_TYPE_PAYER, "");
        repaired->set_status(new CStatus(repaired_status));
        save_vellument();
        transaction_corrected = true;
    } else if (has_federal) {
        const bool single_printed = (employer != nullptr) != (payer != nullptr) &&
                                    (employer != nullptr ? employer : payer)->get_printed_flag();
        if (!single_printed)
            add_employer_copy_from_history_file(federal);
    }

    // New-transaction decision: a download, or a file that changed since the library last saved it.
    if (!downloaded_vellument && !(hash_value_exists && hash_changed)) {
        VLOG(3, "[VellumentImpl] returning from create_user_edit_or_download_transaction, action not needed\n");
        return;
    }
    VLOG(3, "[Vellument] Adding Transaction to Vellument!\n");
    VLOG(3, "[Vellument] DownloadedVellument = %d || HashValueExists = %d && ( hash_value_changed = %d)\n",
         downloaded_vellument ? 1 : 0, hash_value_exists ? 1 : 0, hash_changed ? 1 : 0);

    current = transactions.back();
    current->set_action(downloaded_vellument ? Vellument::ACTION_SERVER_DOWNLOAD : Vellument::ACTION_USER_EDIT);
    CTransaction* next = create_new_transaction();
    next->set_dictionary(new CDictionary(current->get_dictionary()));
    next->set_status(new CStatus(current->get_status()));
    save_vellument();
}

void vellument_impl::add_employer_copy_from_history_file(CCopy* federal)
{
    CTransaction* current = transactions.back();
    int history_index = -1;
    Vellument::FORM_TYPE form_type = Vellument::FORM_TYPE_UNKNOWN;
    if (federal != nullptr) {
        for (int i = 0; i < federal->get_history_count(); ++i) {
            const Vellument::FORM_TYPE type = federal->get_history_at(i)->get_type();
            if (is_employer_history_form(type)) {
                history_index = i;
                form_type = type;
                break;
            }
        }
    }

    if (history_index >= 0) {
        const bool is_1099 = form_type == Vellument::FORM_TYPE_1099;
        const std::string candidate = employer_history_file(federal->get_history_at(history_index), form_type);
        VLOG(3, "Checking if employer file exists %s", candidate.c_str());
        if (Ostrel::FileSystem::GetFileExists(candidate.c_str())) {
            std::unique_ptr<CCopy> copy(new CCopy(federal));
            copy->set_type(is_1099 ? Vellument::FILING_TYPE_PAYER : Vellument::FILING_TYPE_EMPLOYER);
            copy->set_printed_flag(true);
            copy->set_efiled_flag(false);
            const std::string relative = CPathHandling::convert_path_to_relative(candidate.c_str());
            // A removal moves on all the same, so the history that slides into its place stays.
            for (int i = 0; i < copy->get_history_count(); ++i) {
                CHistory* history = copy->get_history_at(i);
                const Vellument::FORM_TYPE type = history->get_type();
                if (!is_employer_history_form(type)) {
                    copy->remove_history_at(i);
                    continue;
                }
                history->set_location(relative);
                history->set_exml_location("");
                if (type == Vellument::FORM_TYPE_1099) {
                    history->set_form_name(history->get_form_name() + "_PAYER");
                    history->set_description("1099 Payer Form");
                } else {
                    history->set_form_name(Ostrel::Format::ReplaceAll(history->get_form_name(), "SSA", "EMPLOYER"));
                    history->set_description(Ostrel::Format::ReplaceAll(history->get_description(), "Federal", "Employer"));
                }
            }
            current->get_status()->add_copy(copy.release());
        }
    }
    save_vellument();
    transaction_corrected = true;
}

void vellument_impl::complete_current_transaction()
{
    CTransaction* current = current_transaction();
    if (current == nullptr)
        return;
    if (current->get_action() == Vellument::ACTION_PRINTING)
        return;

    CPackage* package = current->get_package();
    package->set_package_date(CDateTime::now());
    std::unique_ptr<CStatus> new_status(CStatus::create_status_from_package(current->get_status(), package));

    for (int i = 0; i < package->get_filing_count(); ++i) {
        CFiling* filing = package->get_filing_at(i);
        if (is_employer_or_payer(filing->get_type())) {
            // The employer's copy follows the federal filing: only once that went out.
            const CCopy* federal = new_status->get_copy_by_type(Vellument::FILING_TYPE_FEDERAL, "");
            if (federal == nullptr)
                continue;
            if (!federal->get_efiled_flag() && !federal->get_printed_flag())
                continue;
        }
        complete_filing(filing, new_status.get());
    }

    CTransaction* next = create_new_transaction();
    next->set_status(new_status.release());
}

void vellument_impl::complete_filing(CFiling* filing, CStatus* status)
{
    const Vellument::ActionType action = transactions.back()->get_action();
    const Vellument::FILING_TYPE type = filing->get_type();
    const std::string identifier = filing->get_identifier();

    if (!is_employer_or_payer(type)) {
        if (!filing->get_efiled_successful_flag() && !filing->get_printed_successful_flag())
            return;
        if (filing->get_reprint_select_employees() || filing->get_reprint_select_recipients())
            return;
    }

    modified_date = CDateTime::now();

    CCopy* copy = status->get_copy_by_type(type, identifier.c_str());
    if (copy == nullptr) {
        status->add_copy(new CCopy(filing));
        return;
    }

    if (filing->get_efiled_successful_flag()) {
        // A corrected state filing that replaces without forms withdraws the recipient copy.
        if (action == Vellument::ACTION_CORRECTION && type == Vellument::FILING_TYPE_STATE &&
            filing->get_replacement_flag() && filing->get_form_count() == 0 &&
            form_type_is_1099(form_type_string.c_str())) {
            status->remove_copy_by_type(type, identifier.c_str());
            return;
        }
        copy->set_efiled_flag(filing->get_efiled_flag());
        copy->set_replaceable_flag(filing->get_replaceable_flag());
        copy->set_mailed_flag(false);
    }
    if (filing->get_printed_successful_flag()) {
        copy->set_printed_flag(filing->get_printed_flag());
        copy->set_mailed_flag(filing->get_mailed_flag());
    }
    if (action != Vellument::ACTION_CORRECTION) {
        // A recipient who was e-filed rather than printed this time has no paper copy.
        if (copy->get_printed_flag() && type == Vellument::FILING_TYPE_RECIPIENT && !filing->get_printed_flag() &&
            filing->get_efiled_flag())
            copy->set_printed_flag(false);
    }

    copy->set_corrected_flag(filing->get_corrected_flag());
    copy->set_vlid(filing->get_vlid());
    copy->set_replacement_flag(filing->get_replacement_flag());
    copy->set_deleted_flag(false);
    copy->set_date(filing->get_date());
    copy->set_krf_file_location(CPathHandling::convert_path_to_relative(filing->get_krf_file_location().c_str()));
    copy->set_identifier(identifier);
    copy->set_type(type);

    for (int i = 0; i < filing->get_form_count(); ++i)
        copy->complete_form(filing->get_form_at(i));
}

CCopy* vellument_impl::find_latest_copy(Vellument::FILING_TYPE type, const char* identifier) const
{
    if (transactions.empty() || transactions.back() == nullptr)
        return nullptr;
    const CStatus* status = transactions.back()->get_status();
    switch (type) {
    case Vellument::FILING_TYPE_FEDERAL:
    case Vellument::FILING_TYPE_EMPLOYEE:
    case Vellument::FILING_TYPE_EMPLOYER:
    case Vellument::FILING_TYPE_RECIPIENT:
    case Vellument::FILING_TYPE_PAYER:
        return status->get_copy_by_type(type, "");
    case Vellument::FILING_TYPE_STATE:
        return status->get_copy_by_type(type, identifier != nullptr ? identifier : "");
    case Vellument::FILING_TYPE_LOCAL: {
        // Several localities may be filed: the newest dated one answers.
        CCopy* latest = nullptr;
        double latest_days = 0.0;
        for (int i = 0; i < status->get_copy_count(); ++i) {
            CCopy* copy = status->get_copy_at(i);
            if (copy->get_type() != Vellument::FILING_TYPE_LOCAL)
                continue;
            const CDateTime date = copy->get_date();
            if (date.get_status() == CDateTime::valid && date.get_days() > latest_days) {
                latest = copy;
                latest_days = date.get_days();
            }
        }
        return latest;
    }
    default:
        return nullptr;
    }
}

void vellument_impl::clear_current_status()
{
    CTransaction* current = current_transaction();
    if (current == nullptr)
        return;
    current->set_action(Vellument::ACTION_RELOAD);
    create_new_transaction();
}

void vellument_impl::clear_current_package()
{
    CTransaction* current = current_transaction();
    if (current != nullptr)
        current->set_package(new CPackage());
}

bool vellument_impl::is_package_ready_to_efile() const
{
    if (!work_in_progress)
        return false;
    CTransaction* current = current_transaction();
    if (current == nullptr)
        return false;
    const CPackage* package = current->get_package();
    bool found = false;
    for (int i = 0; i < package->get_filing_count(); ++i) {
        const CFiling* filing = package->get_filing_at(i);
        if (!filing->get_efiled_flag())
            continue;
        found = true;
        for (int j = 0; j < filing->get_form_count(); ++j) {
            const CForm* form = filing->get_form_at(j);
            const std::string exml = form->get_exml_location();
            if (!exml.empty() && !Ostrel::FileSystem::GetStatus(exml.c_str()))
                return false;
            const std::string location = form->get_location();
            if (!location.empty() && !Ostrel::FileSystem::GetStatus(location.c_str()))
                return false;
        }
    }
    return found;
}

std::string vellument_impl::get_history_file_location() const
{
    CTransaction* current = current_transaction();
    if (current == nullptr)
        return std::string();
    const CPackage* package = current->get_package();
    for (int i = 0; i < package->get_filing_count(); ++i) {
        const CFiling* filing = package->get_filing_at(i);
        const Vellument::FILING_TYPE type = filing->get_type();
        if (type != Vellument::FILING_TYPE_FEDERAL && type != Vellument::FILING_TYPE_REVIEW)
            continue;
        // A federal filing without forms is a caller's mistake: get_form_at raises it.
        const std::string location = filing->get_form_at(0)->get_location();
        const std::string::size_type slash = location.rfind('\\');
        return slash == std::string::npos ? std::string() : location.substr(0, slash);
    }
    return std::string();
}

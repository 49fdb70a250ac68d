// Reconciling the trail with the filing server: the server's view of each copy, and the
// transactions that record where it differs.

#include "Vellument/Vellument_impl.h"

#include <memory>

#include <vellument/AuditUtil.h>
#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/ServerFunctions.h>
#include <vellument/eFileSOAPS.h>

#include "Ostrel/LogMacros.h"

namespace {

// The server reports the recipients of 1099-type forms as employees.
Vellument::FILING_TYPE server_type_of(const CCopy* copy, const std::string& form_type_string)
{
    const Vellument::FILING_TYPE type = copy->get_type();
    if (type == Vellument::FILING_TYPE_RECIPIENT && form_type_is_1099(form_type_string.c_str()))
        return Vellument::FILING_TYPE_EMPLOYEE;
    return type;
}

// The status and package of the closed transaction lend their e-file package path and choice to
// the new one.
void carry_package_paths(const CTransaction* previous, const CTransaction* current)
{
    const CStatus* previous_status = previous->get_status();
    CStatus* new_status = current->get_status();
    new_status->set_kxn_path(previous_status->get_kxn_path().c_str());
    new_status->set_filing_options(previous_status->get_filing_options());
    current->get_package()->set_kxn_path(previous->get_package()->get_kxn_path().c_str());
}

} // namespace

bool is_server_efiling_copy_missing(const CCopy* server_copy, const CCopy* copy)
{
    return server_copy == nullptr && copy != nullptr && copy->get_efiled_flag() &&
           copy->get_type() != Vellument::FILING_TYPE_REVIEW;
}

bool has_server_status_changed(const CCopy* server_copy, const CCopy* copy)
{
    if (server_copy == nullptr || copy == nullptr)
        return false;
    return server_copy->get_replaceable_flag() != copy->get_replaceable_flag() ||
           server_copy->get_deleted_flag() != copy->get_deleted_flag();
}

void CVellument::update_status_from_web() const
{
    m_impl->update_status_from_web();
}

bool vellument_impl::any_efilings_found() const
{
    const CTransaction* current = transactions.empty() ? nullptr : transactions.back();
    return current != nullptr && current->get_status()->getAnyEfiledStatus();
}

std::string vellument_impl::get_server_identifier(const CCopy* copy, Vellument::FILING_TYPE server_type) const
{
    const std::string identifier = copy->get_identifier();
    if (server_type != Vellument::FILING_TYPE_LOCAL)
        return identifier;
    // The server knows a locality by its e-file code, the local list by its own identifier.
    const auto row = local_list_map.find(identifier);
    if (row == local_list_map.end() || row->second == nullptr)
        return identifier;
    const auto code = row->second->find("EfileCode");
    return code != row->second->end() ? code->second : identifier;
}

CStatus* vellument_impl::get_server_status()
{
    const std::string test_file = vellument_name + ".TestStatus";
    if (Ostrel::FileSystem::GetFileExists(test_file.c_str())) {
        // A status laid beside the document stands in for the server's answer.
        std::unique_ptr<COXMLDocument> document(COXMLDocument::load(test_file.c_str(), nullptr, nullptr, 0));
        COXMLNode* root = document ? document->getDocumentElement() : nullptr;
        web_service_error = false;
        // An unreadable file is no answer: as an empty status it would find every copy missing.
        if (root == nullptr || !status_readable(document.get(), test_file)) {
            VLOG(2, "[Vellument] %s could not be read, nothing to compare with\n", test_file.c_str());
            return nullptr;
        }
        return new CStatus(root);
    }

    VLOG(3, "[Vellument] Calling Server.GetFiling(FilingEIN=%s, FormType=%s, FilingYear=%s);\n", filing_ein.c_str(),
         form_type_string.c_str(), filing_year.c_str());
    int error = 0;
    std::unique_ptr<CStatus> status;
    {
        eFileSOAPS server;
        status.reset(server.get_filing(filing_ein.c_str(), form_type_string.c_str(), filing_year.c_str(), error));
        VLOG(3, "[Vellument] Returned Status %d\n", error);
    }
    web_service_error = false;
    if (error != 0 && error != 3) {
        VLOG(3, "[Vellument] Error Status %d...returning;\n", error);
        web_service_error = true;
        return nullptr;
    }
    // A fault that is no system error is no web service error either, but its empty status is no
    // answer to compare with: taking it would find every e-filed copy missing.
    if (error == 3)
        return nullptr;
    return status.release();
}

void vellument_impl::recover_reappearing_copies_from_last_bug_fix_transaction()
{
    if (last_bug_fix_transaction == nullptr) {
        VLOG(3, "[VellumentImpl] No bug fix transaction found\n");
        return;
    }
    VLOG(3, "[VellumentImpl] Bug fix transaction found\n");
    CStatus* current_status = transactions.back()->get_status();
    const CStatus* removed = last_bug_fix_transaction->get_status();
    for (int i = 0; i < removed->get_copy_count(); ++i) {
        const CCopy* copy = removed->get_copy_at(i);
        if (current_status->get_copy_by_type(copy->get_type(), copy->get_identifier().c_str()) == nullptr)
            current_status->add_copy(new CCopy(copy));
    }
}

void vellument_impl::update_status_from_web()
{
    VLOG(3, "[Vellument] In update_status_from_web\n");
    if (transactions.empty() || transactions.back() == nullptr) {
        VLOG(3, "[Vellument] No efilings found\n");
        return;
    }
    if (!any_efilings_found()) {
        VLOG(3, "[Vellument] Didn't find any efilings...returning;\n");
        VLOG(3, "[Vellument] No efilings found\n");
        return;
    }

    recover_reappearing_copies_from_last_bug_fix_transaction();

    std::unique_ptr<CStatus> server_status(get_server_status());
    if (!server_status) {
        VLOG(3, "[Vellument] server_status is null\n");
        return;
    }

    bool copy_missing = false;
    bool status_changed = false;
    const CStatus* status = transactions.back()->get_status();
    for (int i = 0; i < status->get_copy_count(); ++i) {
        const CCopy* copy = status->get_copy_at(i);
        const Vellument::FILING_TYPE type = copy->get_type();
        // The employer's and payer's own copies never go to the server.
        if (type == Vellument::FILING_TYPE_EMPLOYER || type == Vellument::FILING_TYPE_PAYER)
            continue;
        const Vellument::FILING_TYPE server_type = server_type_of(copy, form_type_string);
        const std::string identifier = get_server_identifier(copy, server_type);
        VLOG(3, "[Vellument] ServerStatus->GetCopyByType(ServerType=%d, Identifier=%s);\n",
             static_cast<int>(server_type), identifier.c_str());
        const CCopy* server_copy = server_status->get_copy_by_type(server_type, identifier.c_str());
        if (is_server_efiling_copy_missing(server_copy, copy))
            copy_missing = true;
        if (has_server_status_changed(server_copy, copy))
            status_changed = true;
    }

    // A bug fix that follows a status change starts from the status change's result.
    if (status_changed) {
        create_status_change_transaction(server_status.get());
        save_to_current_database();
    }
    if (copy_missing) {
        create_bug_fix_transaction(server_status.get());
        save_to_current_database();
    }
    server_status.reset();
    VLOG(3, "[Vellument] Returning from UpdateStatusFromWeb Successfully\n");
}

void vellument_impl::create_status_change_transaction(CStatus* server_status)
{
    VLOG(3, "[Vellument] Building Status Change Transaction\n");
    CTransaction* previous = transactions.back();
    CStatus* previous_status = previous->get_status();

    VLOG(3, "[Vellument] CreateNewTransaction();\n");
    CTransaction* current = create_new_transaction();
    CStatus* new_status = current->get_status();

    VLOG(3, "[Vellument] CopyDictionary(GetPreviousDictionary(), GetCurrentDictionary());\n");
    current->set_dictionary(new CDictionary(get_previous_dictionary()));
    carry_package_paths(previous, current);

    VLOG(3, "[Vellument] Copying Status\n");
    const int count = previous_status->get_copy_count();
    for (int i = 0; i < count; ++i) {
        CCopy* copy = previous_status->get_copy_at(i);
        VLOG(3, "[Vellument] Copying Copy %d of %d;\n", i + 1, count);
        const Vellument::FILING_TYPE server_type = server_type_of(copy, form_type_string);
        const std::string identifier = get_server_identifier(copy, server_type);
        VLOG(3, "[Vellument] ServerStatus->GetCopyByType(server_type=%d, identifier=%s);\n",
             static_cast<int>(server_type), identifier.c_str());
        const CCopy* server_copy = server_status->get_copy_by_type(server_type, identifier.c_str());
        if (server_copy == nullptr) {
            // An e-filed copy that the server lacks is the bug fix's business.
            if (!copy->get_efiled_flag() || copy->get_type() == Vellument::FILING_TYPE_REVIEW)
                new_status->add_copy(new CCopy(copy));
            continue;
        }
        VLOG(3, "[Vellument] Found a Server Copy\n");
        // Each hit overwrites the action before it: the last one stands.
        if (copy->get_replaceable_flag() != server_copy->get_replaceable_flag())
            previous->set_action(Vellument::ACTION_STATUS_CHANGE);
        if (server_copy->get_deleted_flag()) {
            previous->set_action(Vellument::ACTION_SERVER_DELETION);
            new_status->set_filing_options(0);
        } else {
            // Copied before the server's deleted flag is written back below, so a copy that came
            // back keeps its set flag here and is seen as changed again next time.
            CCopy* carried = new CCopy(copy);
            new_status->add_copy(carried);
            carried->set_replaceable_flag(server_copy->get_replaceable_flag());
        }
        // The closed transaction records what the server says of the copy.
        copy->set_deleted_flag(server_copy->get_deleted_flag());
    }

    VLOG(3, "[Vellument] Saving New Version of Vellument\n");
    save_vellument();
    VLOG(3, "[Vellument] Done Saving New Version of Vellument\n");
}

void vellument_impl::create_bug_fix_transaction(CStatus* server_status)
{
    VLOG(3, "[Vellument] Creating Bug Fix Transaction\n");
    CTransaction* previous = transactions.back();
    const CStatus* previous_status = previous->get_status();
    previous->set_action(Vellument::ACTION_BUG_FIX);

    CTransaction* current = create_new_transaction();
    CStatus* new_status = current->get_status();
    copy_dictionary(get_previous_dictionary(), current->get_dictionary());
    carry_package_paths(previous, current);

    const int count = previous_status->get_copy_count();
    for (int i = 0; i < count; ++i) {
        const CCopy* copy = previous_status->get_copy_at(i);
        VLOG(3, "[Vellument] Copying Copy %d of %d;\n", i + 1, count);
        // Looked up under the copy's own identifier, without the local list's e-file code.
        const Vellument::FILING_TYPE server_type = server_type_of(copy, form_type_string);
        const std::string identifier = copy->get_identifier();
        VLOG(3, "[Vellument] server_status->get_copy_by_type(server_type=%d, Identifier=%s);\n",
             static_cast<int>(server_type), identifier.c_str());
        const CCopy* server_copy = server_status->get_copy_by_type(server_type, identifier.c_str());
        if (!is_server_efiling_copy_missing(server_copy, copy))
            new_status->add_copy(new CCopy(copy));
    }

    VLOG(3, "[Vellument] Saving New Version of Vellument\n");
    save_vellument();
    VLOG(3, "[Vellument] Done Saving New Version of Vellument\n");
}

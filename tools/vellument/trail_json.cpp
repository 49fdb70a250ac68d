#include "trail_json.h"

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/DateTime.h>

#include <map>

#include "cli_support.h"

using nlohmann::json;

namespace cli {

namespace {

const char kDateFormat[] = "%m/%d/%Y %H:%M:%S";

// A day count of zero is how the records say "no date".
json date_value(const CDateTime& date)
{
    if (date.get_status() == CDateTime::null || (date.get_status() == CDateTime::valid && date.get_days() == 0.0))
        return nullptr;
    return date.format(kDateFormat);
}

json dictionary_value(const CDictionary* dictionary)
{
    json result = json::object();
    if (dictionary == nullptr)
        return result;
    // Sorted, so that the output doesn't depend on the map's order.
    std::map<std::string, std::string> sorted(dictionary->begin(), dictionary->end());
    for (const auto& entry : sorted)
        result[utf8(entry.first)] = utf8(entry.second);
    return result;
}

json base_counts(const CStatusBase& base)
{
    return json{{"employees", base.get_employee_count()},
                {"state_employees", base.get_state_employee_count()},
                {"local_employees", base.get_local_employee_count()},
                {"corrected_employees", base.get_corrected_employee_count()},
                {"ew2_employees", base.get_ew2_employee_count()}};
}

void put_base(json& out, const CStatusBase& base)
{
    out["choice"] = utf8(CStatusBase::to_package_choice_string(base.get_filing_options()));
    out["choice_value"] = base.get_filing_options();
    out["kxn_path"] = utf8(base.get_kxn_path());
    out["counts"] = base_counts(base);
}

json form_value(const CFormBase& form)
{
    return json{{"type", utf8(form.get_type_string())},
                {"flags", utf8(form.get_flags_string())},
                {"completion", utf8(form.get_completion_string())},
                {"description", utf8(form.get_description())},
                {"form_name", utf8(form.get_form_name())},
                {"location", utf8(form.get_location())},
                {"exml_location", utf8(form.get_exml_location())},
                {"krf_db_path", utf8(form.get_krf_db_path())},
                {"krf_version", utf8(form.get_krf_version())}};
}

void put_filing_base(json& out, const CFilingBase& base)
{
    out["type"] = utf8(CFilingBase::to_type_string(base.get_type()));
    out["identifier"] = utf8(base.get_identifier());
    out["date"] = date_value(base.get_date());
    out["vlid"] = base.get_vlid();
    out["krf_path"] = utf8(base.get_krf_file_location());
}

json filing_value(const CFiling& filing)
{
    json out;
    put_filing_base(out, filing);
    out["employee_count"] = filing.get_employee_count();
    out["corrected_count"] = filing.get_corrected_employee_count();
    out["flags"] = json{{"printed", filing.get_printed_flag()},
                        {"mailed", filing.get_mailed_flag()},
                        {"efiled", filing.get_efiled_flag()},
                        {"corrected", filing.get_corrected_flag()},
                        {"replaceable", filing.get_replaceable_flag()},
                        {"replacement", filing.get_replacement_flag()},
                        {"efiled_successful", filing.get_efiled_successful_flag()},
                        {"printed_successful", filing.get_printed_successful_flag()},
                        {"records_successful", filing.get_records_successful_flag()}};
    json forms = json::array();
    for (int i = 0; i < filing.get_form_count(); ++i) {
        const CForm* form = filing.get_form_at(i);
        json value = form_value(*form);
        value["viewer_result_code"] = utf8(form->get_viewer_result_code());
        value["result_printed"] = form->get_result_printed();
        forms.push_back(value);
    }
    out["forms"] = forms;
    return out;
}

json copy_value(const CCopy& copy)
{
    json out;
    put_filing_base(out, copy);
    out["printed"] = copy.get_printed_flag();
    out["mailed"] = copy.get_mailed_flag();
    out["efiled"] = copy.get_efiled_flag();
    out["corrected"] = copy.get_corrected_flag();
    out["replaceable"] = copy.get_replaceable_flag();
    out["replacement"] = copy.get_replacement_flag();
    out["deleted"] = copy.get_deleted_flag();
    json histories = json::array();
    for (int i = 0; i < copy.get_history_count(); ++i)
        histories.push_back(form_value(*copy.get_history_at(i)));
    out["histories"] = histories;
    return out;
}

json package_value(const CPackage* package)
{
    if (package == nullptr)
        return nullptr;
    json out;
    // A package without filings keeps no date in the document: what the record holds then is only
    // the time it was read, which would mislead.
    out["date"] = package->get_filing_count() > 0 ? date_value(package->get_package_date()) : json(nullptr);
    put_base(out, *package);
    json& counts = out["counts"];
    counts["added_employees"] = package->get_added_employee_count();
    counts["deleted_employees"] = package->get_deleted_employee_count();
    counts["corrected_ew2_employees"] = package->get_corrected_ew2_employee_count();
    counts["added_ew2_employees"] = package->get_added_ew2_employee_count();
    counts["deleted_ew2_employees"] = package->get_deleted_ew2_employee_count();
    out["builder_version"] = utf8(package->get_builder_version());
    out["invoice_amount"] = utf8(package->get_invoice_amount());
    out["web_service_unavailable"] = package->get_web_service_unavailable_flag();
    out["additional_filing_mode"] = package->get_additional_filing_mode_flag();
    json filings = json::array();
    for (int i = 0; i < package->get_filing_count(); ++i)
        filings.push_back(filing_value(*package->get_filing_at(i)));
    out["filings"] = filings;
    return out;
}

json status_value(const CStatus* status)
{
    if (status == nullptr)
        return nullptr;
    json out;
    put_base(out, *status);
    json copies = json::array();
    for (int i = 0; i < status->get_copy_count(); ++i)
        copies.push_back(copy_value(*status->get_copy_at(i)));
    out["copies"] = copies;
    return out;
}

} // namespace

json trail_to_json(const CVellument& vellument, const std::string& file)
{
    json out;
    out["file"] = utf8(file);
    out["form_type"] = utf8(vellument.get_form_type_string());
    out["filing_year"] = utf8(vellument.get_filing_year());
    out["filing_ein"] = utf8(vellument.get_filing_ein());
    out["vendor_code"] = utf8(vellument.get_vendor_code());
    out["modified_date"] = date_value(vellument.get_modified_date());
    out["period_start"] = utf8(vellument.get_filing_period_start());
    out["period_end"] = utf8(vellument.get_filing_period_end());
    out["registration_mode"] = utf8(vellument.get_registration_mode());
    out["dictionary"] = dictionary_value(vellument.get_dictionary());
    json transactions = json::array();
    for (int i = 0; i < vellument.get_transaction_count(); ++i) {
        const CTransaction* transaction = vellument.get_transaction(i);
        if (transaction == nullptr)
            continue;
        json value;
        value["index"] = i;
        value["action"] = utf8(CTransaction::GetActionTypeToString(transaction->get_action()));
        value["dictionary"] = dictionary_value(transaction->get_dictionary());
        value["package"] = package_value(transaction->get_package());
        value["status"] = status_value(transaction->get_status());
        transactions.push_back(value);
    }
    out["transactions"] = transactions;
    return out;
}

} // namespace cli

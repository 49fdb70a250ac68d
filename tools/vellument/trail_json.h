#ifndef VELLUMENT_TOOL_TRAIL_JSON_H
#define VELLUMENT_TOOL_TRAIL_JSON_H

// The trail of a vellument as one JSON value: what `show --format json` prints, and what the
// readable timeline is drawn from, so that both always say the same.
//
// Keys, stable for scripts:
//   file, form_type, filing_year, filing_ein, vendor_code, modified_date, period_start,
//   period_end, registration_mode, dictionary{}, transactions[]
//   transaction: index, action, dictionary{}, package{}, status{}
//   package: date, choice, choice_value, kxn_path, counts{}, builder_version, invoice_amount,
//            web_service_unavailable, additional_filing_mode, filings[]
//   status:  choice, choice_value, kxn_path, counts{}, copies[]
//   counts:  employees, state_employees, local_employees, corrected_employees, ew2_employees
//            (package also added_employees, deleted_employees, corrected_ew2_employees,
//            added_ew2_employees, deleted_ew2_employees)
//   filing:  type, identifier, date, vlid, krf_path, employee_count, corrected_count, flags{},
//            forms[]; flags: printed, mailed, efiled, corrected, replaceable, replacement,
//            efiled_successful, printed_successful, records_successful
//   copy:    type, identifier, date, vlid, krf_path, printed, mailed, efiled, corrected,
//            replaceable, replacement, deleted, histories[]
//   form/history: type, flags, completion, description, form_name, location, exml_location,
//            krf_db_path, krf_version; form also viewer_result_code, result_printed
// Dates are "MM/DD/YYYY hh:mm:ss", or null when the record holds none (a package without filings
// never keeps one).

#include <string>

#include <nlohmann/json.hpp>

class CVellument;

namespace cli {

nlohmann::json trail_to_json(const CVellument& vellument, const std::string& file);

} // namespace cli

#endif

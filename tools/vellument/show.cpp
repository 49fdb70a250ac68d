// `vellument show FILE`: the trail as a readable timeline, or as JSON.

#include <iostream>
#include <memory>
#include <sstream>

#include <CLI/CLI.hpp>

#include <vellument/CVellument.h>

#include "cli_support.h"
#include "commands.h"
#include "trail_json.h"

using nlohmann::json;

namespace cli {

namespace {

std::string text_of(const json& value)
{
    if (value.is_null())
        return std::string();
    if (value.is_string())
        return value.get<std::string>();
    return value.dump();
}

// "a, b and c" of the flags that are set, or "none".
std::string set_flags(const json& object, const std::vector<std::pair<const char*, const char*>>& names)
{
    std::vector<std::string> on;
    for (const auto& name : names)
        if (object.value(name.first, false))
            on.push_back(name.second);
    if (on.empty())
        return "none";
    std::string text;
    for (std::size_t i = 0; i < on.size(); ++i)
        text += (i == 0 ? "" : ", ") + on[i];
    return text;
}

std::string yes_no(const json& object, const char* key)
{
    return object.value(key, false) ? "yes" : "no";
}

std::string dictionary_line(const json& dictionary)
{
    std::string text;
    for (auto it = dictionary.begin(); it != dictionary.end(); ++it)
        text += (text.empty() ? "" : ", ") + it.key() + "=" + text_of(it.value());
    return text;
}

std::string counts_line(const json& counts)
{
    std::ostringstream line;
    line << "employees " << counts.value("employees", 0) << ", state " << counts.value("state_employees", 0)
         << ", local " << counts.value("local_employees", 0) << ", corrected "
         << counts.value("corrected_employees", 0);
    // The package's change counters only when they say something.
    const std::vector<std::pair<const char*, const char*>> extra = {
        {"ew2_employees", "ew2"},
        {"added_employees", "added"},
        {"deleted_employees", "deleted"},
        {"corrected_ew2_employees", "corrected ew2"},
        {"added_ew2_employees", "added ew2"},
        {"deleted_ew2_employees", "deleted ew2"}};
    for (const auto& name : extra)
        if (counts.value(name.first, 0) != 0)
            line << ", " << name.second << " " << counts.value(name.first, 0);
    return line.str();
}

std::string unit_heading(const char* kind, const json& unit)
{
    std::string text = std::string(kind) + " " + text_of(unit["type"]);
    if (!text_of(unit["identifier"]).empty())
        text += " " + text_of(unit["identifier"]);
    if (!unit["date"].is_null())
        text += ", dated " + text_of(unit["date"]);
    if (unit.value("vlid", 0) != 0)
        text += ", VLID " + std::to_string(unit.value("vlid", 0));
    return text;
}

void print_form(std::ostream& out, const char* kind, const json& form, const char* indent)
{
    out << indent << kind << " " << text_of(form["type"]);
    if (!text_of(form["description"]).empty())
        out << " \"" << text_of(form["description"]) << "\"";
    out << " (" << text_of(form["flags"]) << ")";
    if (!text_of(form["form_name"]).empty())
        out << " " << text_of(form["form_name"]);
    if (!text_of(form["location"]).empty())
        out << " at " << text_of(form["location"]);
    if (form.contains("viewer_result_code") && !text_of(form["viewer_result_code"]).empty())
        out << "; viewer: " << text_of(form["viewer_result_code"])
            << (form.value("result_printed", false) ? ", printed" : ", not printed");
    out << "\n";
}

void print_package(std::ostream& out, const json& package)
{
    if (package.is_null()) {
        out << "  Package: none\n";
        return;
    }
    out << "  Package";
    if (!package["date"].is_null())
        out << " dated " << text_of(package["date"]);
    out << ", choice " << text_of(package["choice"]) << "\n";
    out << "    counts: " << counts_line(package["counts"]) << "\n";
    if (!text_of(package["builder_version"]).empty())
        out << "    builder version " << text_of(package["builder_version"]) << "\n";
    if (!text_of(package["invoice_amount"]).empty())
        out << "    invoice amount " << text_of(package["invoice_amount"]) << "\n";
    if (!text_of(package["kxn_path"]).empty())
        out << "    e-file package " << text_of(package["kxn_path"]) << "\n";
    if (package.value("web_service_unavailable", false))
        out << "    the web service was unavailable\n";
    if (package.value("additional_filing_mode", false))
        out << "    additional filing mode\n";
    const json& filings = package["filings"];
    if (filings.empty())
        out << "    no filings\n";
    for (const json& filing : filings) {
        const json& flags = filing["flags"];
        out << "    " << unit_heading("Filing", filing) << "\n";
        out << "      flags: "
            << set_flags(flags, {{"printed", "printed"},
                                 {"mailed", "mailed"},
                                 {"efiled", "e-filed"},
                                 {"corrected", "corrected"},
                                 {"replaceable", "replaceable"},
                                 {"replacement", "replacement"}})
            << "; succeeded: "
            << set_flags(flags, {{"printed_successful", "printing"},
                                 {"efiled_successful", "e-filing"},
                                 {"records_successful", "records"}})
            << "\n";
        for (const json& form : filing["forms"])
            print_form(out, "Form", form, "      ");
    }
}

void print_status(std::ostream& out, const json& status)
{
    if (status.is_null()) {
        out << "  Status: none\n";
        return;
    }
    out << "  Status, choice " << text_of(status["choice"]) << "\n";
    out << "    counts: " << counts_line(status["counts"]) << "\n";
    const json& copies = status["copies"];
    if (copies.empty())
        out << "    no copies\n";
    for (const json& copy : copies) {
        out << "    " << unit_heading("Copy", copy) << "\n";
        out << "      printed " << yes_no(copy, "printed") << ", mailed " << yes_no(copy, "mailed") << ", e-filed "
            << yes_no(copy, "efiled") << ", replaceable " << yes_no(copy, "replaceable") << ", deleted "
            << yes_no(copy, "deleted");
        if (copy.value("corrected", false))
            out << ", corrected";
        if (copy.value("replacement", false))
            out << ", replacement";
        out << "\n";
        for (const json& history : copy["histories"])
            print_form(out, "History", history, "      ");
    }
}

} // namespace

void print_timeline(std::ostream& out, const json& trail)
{
    const json& transactions = trail["transactions"];
    out << "Vellument " << text_of(trail["file"]) << "\n";
    const auto field = [&trail](const char* key) {
        const std::string text = text_of(trail[key]);
        return text.empty() ? std::string("(none)") : text;
    };
    out << "  form type " << field("form_type") << ", filing year " << field("filing_year") << ", EIN "
        << field("filing_ein") << ", vendor " << field("vendor_code") << "\n";
    out << "  modified " << (trail["modified_date"].is_null() ? "never" : text_of(trail["modified_date"])) << "\n";
    if (!text_of(trail["period_start"]).empty() || !text_of(trail["period_end"]).empty())
        out << "  period " << text_of(trail["period_start"]) << " to " << text_of(trail["period_end"]) << "\n";
    if (!text_of(trail["registration_mode"]).empty())
        out << "  registration mode " << text_of(trail["registration_mode"]) << "\n";
    if (!trail["dictionary"].empty())
        out << "  notes: " << dictionary_line(trail["dictionary"]) << "\n";
    out << "  " << transactions.size() << (transactions.size() == 1 ? " transaction" : " transactions")
        << ", oldest first; the last one is still open\n";

    for (const json& transaction : transactions) {
        const int number = transaction.value("index", 0) + 1;
        out << "\nTransaction " << number << " of " << transactions.size() << ": " << text_of(transaction["action"])
            << "\n";
        if (!transaction["dictionary"].empty())
            out << "  notes: " << dictionary_line(transaction["dictionary"]) << "\n";
        print_package(out, transaction["package"]);
        print_status(out, transaction["status"]);
    }
}

Command add_show_command(CLI::App& app, const Context& context)
{
    struct Options {
        std::string file;
        std::string format = "text";
    };
    auto options = std::make_shared<Options>();
    CLI::App* sub = app.add_subcommand("show", "Show a vellument's trail as a timeline (read-only)");
    sub->footer(
        "Show a vellument's trail, oldest transaction first: the document's header (form type, year, EIN,\n"
        "vendor, modified date), then each transaction's action, its package (date, choice, counts,\n"
        "filings with their flags and forms) and its status (copies with printed, mailed, e-filed,\n"
        "replaceable and deleted, and their histories). The file is opened read-only: nothing on disk\n"
        "changes, no hash is checked and no server is asked.\n"
        "--format json prints one JSON object with the keys: file, form_type, filing_year, filing_ein,\n"
        "vendor_code, modified_date, period_start, period_end, registration_mode, dictionary,\n"
        "transactions[] (index, action, dictionary, package{date, choice, choice_value, kxn_path,\n"
        "counts, builder_version, invoice_amount, web_service_unavailable, additional_filing_mode,\n"
        "filings[]}, status{choice, choice_value, kxn_path, counts, copies[]}). Dates are\n"
        "\"MM/DD/YYYY hh:mm:ss\" or null; text is UTF-8.");
    sub->add_option("FILE", options->file, "The vellument file (a POSIX path, or a Windows-form path such as Z:\\co\\x.VLM)")
        ->required();
    sub->add_option("--format", options->format, "text (default) or json")
        ->check(CLI::IsMember({"text", "json"}));

    return Command{sub, [options, &context]() {
                       LibraryOutput output(context.verbose);
                       const std::string path = library_path(options->file);
                       CVellument vellument;
                       open_trail(vellument, path, options->file);
                       const json trail = trail_to_json(vellument, path);
                       if (options->format == "json")
                           std::cout << trail.dump(2) << "\n";
                       else
                           print_timeline(std::cout, trail);
                   }};
}

} // namespace cli

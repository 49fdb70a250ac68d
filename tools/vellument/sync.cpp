// `vellument sync FILE`: what the filing application does at start-up, the open with its checks
// against the filing server and the reconciliation of the status with the server's, told in
// plain words.

#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <vellument/CCopy.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_IniFile.h>

#include "cli_support.h"
#include "commands.h"

using nlohmann::json;

namespace cli {

namespace {

// Why the library closes a transaction with this action.
std::string reason_for(Vellument::ActionType action)
{
    switch (action) {
    case Vellument::ACTION_STATUS_CHANGE:
        return "the server changed whether a copy may be replaced";
    case Vellument::ACTION_SERVER_DELETION:
        return "the server deleted a copy; it leaves the status";
    case Vellument::ACTION_BUG_FIX:
        return "the trail says a copy was e-filed that the server doesn't know; it leaves the status";
    case Vellument::ACTION_SERVER_DOWNLOAD:
        return "the file was replaced by the server's copy";
    case Vellument::ACTION_USER_EDIT:
        return "the file was changed outside the library since its last save";
    case Vellument::ACTION_ORPHAN_EMPLOYER_OR_PAYER:
        return "an employer or payer copy had no federal copy; it leaves the status";
    default:
        return "closed by the application";
    }
}

struct CopyState {
    bool efiled = false;
    bool replaceable = false;
    bool deleted = false;
};

std::string copy_name(const CCopy* copy)
{
    const std::string identifier = copy->get_identifier();
    return CFilingBase::to_type_string(copy->get_type()) + (identifier.empty() ? "" : " " + identifier);
}

std::map<std::string, CopyState> copies_of(const CVellument& vellument)
{
    std::map<std::string, CopyState> copies;
    const CStatus* status = vellument.get_current_status();
    for (int i = 0; status != nullptr && i < status->get_copy_count(); ++i) {
        const CCopy* copy = status->get_copy_at(i);
        copies[copy_name(copy)] = CopyState{copy->get_efiled_flag(), copy->get_replaceable_flag(),
                                            copy->get_deleted_flag()};
    }
    return copies;
}

std::string yes_no(bool flag)
{
    return flag ? "yes" : "no";
}

// What became of each copy between two states of the current status.
json copy_changes(const std::map<std::string, CopyState>& before, const std::map<std::string, CopyState>& after)
{
    json changes = json::array();
    for (const auto& entry : before) {
        const auto now = after.find(entry.first);
        if (now == after.end()) {
            changes.push_back({{"copy", utf8(entry.first)}, {"change", "left the status"}});
            continue;
        }
        std::string what;
        if (now->second.replaceable != entry.second.replaceable)
            what += "replaceable " + yes_no(entry.second.replaceable) + " -> " + yes_no(now->second.replaceable);
        if (now->second.deleted != entry.second.deleted)
            what += std::string(what.empty() ? "" : ", ") + "deleted " + yes_no(entry.second.deleted) + " -> " +
                    yes_no(now->second.deleted);
        if (!what.empty())
            changes.push_back({{"copy", utf8(entry.first)}, {"change", what}});
    }
    for (const auto& entry : after) {
        if (before.count(entry.first) == 0)
            changes.push_back({{"copy", utf8(entry.first)}, {"change", "came back into the status"}});
    }
    return changes;
}

// The ".Backup" files that lie beside the vellument.
std::set<std::string> backups_beside(const std::string& file)
{
    std::set<std::string> found;
    const std::string prefix = Ostrel::Format::ToUpperAscii(file_name_of(file)) + "_";
    std::error_code ec;
    for (std::filesystem::directory_iterator it(disk_path(directory_of(file)), ec), end; !ec && it != end;
         it.increment(ec)) {
        const std::string name = it->path().filename().string();
        const std::string upper = Ostrel::Format::ToUpperAscii(name);
        if (upper.rfind(prefix, 0) == 0 && upper.size() > 7 && upper.substr(upper.size() - 7) == ".BACKUP")
            found.insert(name);
    }
    return found;
}

// The transactions closed from index `from` on, with their actions and why.
json closed_since(const CVellument& vellument, int from)
{
    json closed = json::array();
    for (int i = from < 0 ? 0 : from; i + 1 < vellument.get_transaction_count(); ++i) {
        const Vellument::ActionType action = vellument.get_transaction(i)->get_action();
        closed.push_back({{"index", i + 1},
                          {"action", CTransaction::GetActionTypeToString(action)},
                          {"reason", reason_for(action)}});
    }
    return closed;
}

} // namespace

json sync_vellument(const std::string& path, const std::string& shown)
{
    json report;
    std::string ein, year, vendor;
    int count_before = 0;
    {
        CVellument before;
        open_trail(before, path, shown);
        ein = before.get_filing_ein();
        year = before.get_filing_year();
        vendor = before.get_vendor_code();
        count_before = before.get_transaction_count();
    }
    const std::set<std::string> backups_before = backups_beside(path);

    // The open as the application makes it: with the file's own EIN and year.
    CVellument vellument;
    try {
        vellument.open(path.c_str(), ein.c_str(), year.c_str(), vendor.c_str(), false, false);
    } catch (int) {
        throw Error(shown + " holds no transaction after the open: a vellument trail has at least one");
    } catch (const std::exception& e) {
        throw Error(shown + ": the open failed: " + e.what());
    }
    const std::string file = vellument.get_vellument_name();
    report["file"] = utf8(file);

    json backup = nullptr;
    for (const std::string& name : backups_beside(path)) {
        if (backups_before.count(name) == 0)
            backup = utf8(name);
    }
    const int after_open = vellument.get_transaction_count();
    // A download always leaves a new transaction behind the one it closed as "Server Download",
    // which nothing else writes; its .Backup is missing only when that second's name was taken.
    const bool closed_as_download =
        after_open >= 2 && vellument.get_transaction(after_open - 2)->get_action() == Vellument::ACTION_SERVER_DOWNLOAD;
    const bool downloaded = !backup.is_null() || (after_open != count_before && closed_as_download);
    report["downloaded"] = downloaded;
    report["backup"] = backup;
    // A download replaces the whole trail: only the transaction that the open closed is new then.
    json opened = closed_since(vellument, downloaded ? after_open - 2 : count_before - 1);

    const std::map<std::string, CopyState> copies_before = copies_of(vellument);
    vellument.update_status_from_web();
    if (vellument.is_web_service_error()) {
        throw Error("the filing service gave no usable status (a fault, or no answer): the copies were not "
                    "compared" +
                    std::string(downloaded ? "; the open had brought the server's copy down" : ""));
    }
    json reconciled = closed_since(vellument, after_open - 1);
    for (json& entry : reconciled)
        opened.push_back(entry);
    report["transactions"] = opened;
    report["copies"] = copy_changes(copies_before, copies_of(vellument));
    report["transaction_count"] = vellument.get_transaction_count();

    const std::string settings = CPathHandling::get_company_dir() + "Histories\\Vellument.INI";
    const std::string upload =
        _GetValue(settings, "VELLUMENT", ("UploadSucceeded_" + file).c_str(), "Not Found", false);
    report["upload_status"] = utf8(upload);
    report["upload"] = utf8(upload_words(upload));
    return report;
}

void print_sync(std::ostream& out, const json& report)
{
    out << "File         " << report["file"].get<std::string>() << "\n";
    if (report["downloaded"].get<bool>()) {
        out << "Download     the server held another version: it replaced the file";
        if (report["backup"].is_null())
            out << " (no .Backup could be made: a backup of that second already exists)\n";
        else
            out << "; the previous file is kept as " << report["backup"].get<std::string>() << "\n";
    } else {
        out << "Download     none: the file stays as it was\n";
    }
    if (report["transactions"].empty())
        out << "Trail        nothing new: the trail agrees with the server\n";
    for (const json& entry : report["transactions"]) {
        out << "Trail        transaction " << entry["index"].get<int>() << " closed as "
                  << entry["action"].get<std::string>() << ": " << entry["reason"].get<std::string>() << "\n";
    }
    for (const json& entry : report["copies"])
        out << "Copy         " << entry["copy"].get<std::string>() << ": " << entry["change"].get<std::string>()
                  << "\n";
    out << "Upload       " << report["upload_status"].get<std::string>() << ": "
              << report["upload"].get<std::string>() << "\n";
}

Command add_sync_command(CLI::App& app, const Context& context)
{
    struct Options {
        std::string file;
        std::string format = "text";
    };
    auto options = std::make_shared<Options>();
    CLI::App* sub =
        app.add_subcommand("sync", "Open a vellument as the application does and reconcile it with the filing server");
    sub->footer(
        "Do what the filing application does at start-up: a normal open of the vellument (its hash\n"
        "against the last save and the server's, and a download of the server's copy when the rules\n"
        "call for one), then the comparison of each copy of the current status with the server's view.\n"
        "The EIN and year are those the file records; the service is the one Settings.ini names.\n"
        "Then say what happened: whether the server's copy came down (and the .Backup name), each\n"
        "transaction the trail gained with its action and why, the copies whose flags changed, and the\n"
        "upload status. A fault of the service (or no answer) is one line on stderr and exit code 1.\n"
        "--format json prints an object with the keys: file, downloaded, backup (null when none was\n"
        "made), transactions[] (index, action, reason), copies[] (copy, change), transaction_count,\n"
        "upload_status and upload.");
    sub->add_option("FILE", options->file, "The vellument file")->required();
    sub->add_option("--format", options->format, "text (default) or json")
        ->check(CLI::IsMember({"text", "json"}));

    return Command{sub, [options, &context]() {
                       LibraryOutput output(context.verbose);
                       const json report = sync_vellument(library_path(options->file), options->file);
                       if (options->format == "json")
                           std::cout << report.dump(2) << "\n";
                       else
                           print_sync(std::cout, report);
                   }};
}

} // namespace cli

// `vellument demo`, the part against the filing service: the service changes its mind and the
// trail follows.

#include "demo_road.h"

#include <memory>
#include <vector>

#include <nlohmann/json.hpp>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_IniFile.h>

#include "cli_support.h"
#include "commands.h"
#include "filing_service.h"

using nlohmann::json;

namespace cli {

namespace {

std::vector<std::string> with_filing(const DemoFiling& filing, std::vector<std::string> args)
{
    args.insert(args.begin(), {"--ein", filing.ein, "--form", filing.form, "--year", filing.year});
    return args;
}

// Syncs as the application does at start-up and says what came of it. Returns the report.
json sync_and_tell(const DemoFiling& filing, Steps& steps)
{
    const json report = sync_vellument(filing.file, filing.file);
    if (report["downloaded"].get<bool>()) {
        steps.detail("the open found another version on the server and brought it down; the previous file is kept as " +
                     (report["backup"].is_null() ? std::string("(none: that second's name was taken)")
                                                 : report["backup"].get<std::string>()));
    }
    if (report["transactions"].empty())
        steps.detail("the trail gained no transaction: it agrees with the server");
    for (const json& entry : report["transactions"])
        steps.detail("transaction " + std::to_string(entry["index"].get<int>()) + " closed as \"" +
                     entry["action"].get<std::string>() + "\": " + entry["reason"].get<std::string>());
    for (const json& entry : report["copies"])
        steps.detail("copy " + entry["copy"].get<std::string>() + ": " + entry["change"].get<std::string>());
    steps.detail("upload status \"" + report["upload_status"].get<std::string>() + "\"; the trail has " +
                 std::to_string(report["transaction_count"].get<int>()) + " transactions");
    return report;
}

// Fails the demo when the last transaction the sync closed isn't the one expected.
void expect_closed(const json& report, const std::string& action)
{
    const json& closed = report["transactions"];
    if (closed.empty() || closed.back()["action"].get<std::string>() != action)
        throw Error("the demo expected the trail to gain \"" + action + "\", and it did not");
}

} // namespace

void tell_service_copies(const FilingService& service, const DemoFiling& filing, Steps& steps)
{
    const json copies = json::parse(service.admin("copies", with_filing(filing, {"--format", "json"})), nullptr, false);
    if (!copies.is_array() || copies.empty()) {
        steps.detail("the service holds no copy of this filing");
        return;
    }
    for (const json& copy : copies) {
        steps.detail("the service holds " + copy.value("type", std::string()) + " " +
                     copy.value("code", std::string()) +
                     ", vlid " + std::to_string(copy.value("vlid", 0L)) + ", replaceable " +
                     (copy.value("replaceable", false) ? "yes" : "no") + ", deleted " +
                     (copy.value("deleted", false) ? "yes" : "no"));
    }
}

void walk_server_road(const FilingService& service, const DemoFiling& filing, Steps& steps)
{
    // The e-file step left every copy replaceable; the service changes its mind about one.
    service.admin("set-copy", with_filing(filing, {"--type", "FED", "--code", "FE", "--replaceable", "false"}));
    steps.say("The service marks the federal copy as no longer replaceable. Synced, as the application does at "
              "start-up:");
    expect_closed(sync_and_tell(filing, steps), "Status Change");

    service.admin("set-copy", with_filing(filing, {"--type", "STATE", "--code", "WI", "--deleted", "true"}));
    steps.say("The service deletes the Wisconsin copy. Synced:");
    expect_closed(sync_and_tell(filing, steps), "Server Deletion");

    service.admin("remove-copy", with_filing(filing, {"--type", "FED", "--code", "FE"}));
    steps.say("The service loses the e-filed federal copy. Synced:");
    expect_closed(sync_and_tell(filing, steps), "Bug Fix");

    service.admin("set-copy",
                  with_filing(filing, {"--type", "FED", "--code", "FE", "--vlid", "4711", "--replaceable", "false"}));
    steps.say("The service knows the federal copy again. Synced:");
    sync_and_tell(filing, steps);
    {
        // The copy is back in the current status; the application's next save keeps it.
        CVellument vellument;
        vellument.open(filing.file.c_str(), filing.ein.c_str(), filing.year.c_str(), "", false, false);
        vellument.update_status_from_web();
        const CStatus* status = vellument.get_current_status();
        const bool back =
            status != nullptr && status->get_copy_by_type(Vellument::FILING_TYPE_FEDERAL, "FE") != nullptr;
        if (!back)
            throw Error("the demo expected the federal copy to come back, and it did not");
        if (vellument.save(nullptr) == 0)
            throw Error("saving " + filing.file + " failed");
        steps.detail("the copy that the bug fix took out is back in the current status, and the next save keeps it");
    }

    // Another workstation: the same trail with a note of its own, stored on the service.
    const std::string other = filing.company + "Drafts\\OtherWorkstation.xml";
    {
        CVellument theirs;
        theirs.open(filing.file.c_str(), "", "", "", false, true);
        (*theirs.get_current_dictionary())["EditedOn"] = "the other workstation";
        if (theirs.save(other.c_str()) == 0)
            throw Error("writing the other workstation's version " + other + " failed");
    }
    const std::string stored = service.admin("put", with_filing(filing, {disk_path(other)}));
    steps.say("Another workstation stores a newer version of the vellument on the service (" +
              stored.substr(0, stored.find('\n')) + "). Synced:");
    expect_closed(sync_and_tell(filing, steps), "Server Download");
}

} // namespace cli

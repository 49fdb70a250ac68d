// `vellument demo DIR`: the road of one W-2 filing through the library, end to end, in a new
// company directory, against a stand-in filing service that the demo starts on this machine,
// saying what each step did.

#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <vellument/CCopy.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/DateTime.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/Ostrel_XML.h>

#include "cli_support.h"
#include "commands.h"
#include "demo_road.h"
#include "filing_service.h"
#include "trail_json.h"

namespace cli {

namespace {

const char kEin[] = "12-3456789";
const char kVendor[] = "DEMO";
const int kVlid = 4711;
const char kInvoice[] = "125.00";

// The year whose forms are filed now.
std::string last_year()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return std::to_string(local.tm_year + 1900 - 1);
}

struct PlannedForm {
    Vellument::FORM_TYPE type;
    const char* description;
    const char* form_name;
    const char* file;  // base name of the report in Drafts
};

CFiling* make_filing(const std::string& company, Vellument::FILING_TYPE type, const char* identifier, bool efile,
                     const std::vector<PlannedForm>& forms)
{
    auto* filing = new CFiling();
    filing->set_type(type);
    filing->set_identifier(identifier);
    filing->set_efiled_flag(efile);
    // What is not e-filed goes out on paper, by mail.
    filing->set_printed_flag(!efile);
    filing->set_mailed_flag(!efile);
    filing->set_employee_count(3);
    filing->set_date(CDateTime::now());
    for (const PlannedForm& planned : forms) {
        auto* form = new CForm();
        form->set_type(planned.type);
        form->set_flags(Vellument::FORM_FLAGS_READ_ONLY);
        form->set_description(planned.description);
        form->set_form_name(planned.form_name);
        form->set_location(company + "Drafts\\" + planned.file + ".pdf");
        form->set_exml_location(company + "Drafts\\" + planned.file + ".xml");
        form->set_krf_db_path(company + "Payroll.krf");
        form->set_krf_version("1.0");
        form->set_krf_filter_number(1);
        form->set_form_dir(company + "Forms");
        filing->add_form(form);
    }
    return filing;
}

// The Viewer's part: for each task, leave the report and its XML history where the task asks, and
// write the result into the list. Forms for paper come out printed; e-file forms don't.
int play_viewer(const std::string& list, Steps& steps)
{
    std::unique_ptr<COXMLDocument> document(COXMLDocument::load(list.c_str(), nullptr, nullptr, 0));
    if (!document || document->getDocumentElement() == nullptr)
        throw Error("the viewer task list " + list + " could not be read back");
    auto tasks = document->getDocumentElement()->getElementsByTagName("Task");
    const int count = tasks->length();
    for (int i = 0; i < count; ++i) {
        COXMLNode* task = tasks->item(i);
        const std::string mode = task->getAttribute("DisplayMode");
        const bool paper = mode == "PrintMail";
        for (const char* output : {"ReportOutputFile", "XmlHistoryOutputFile"}) {
            const std::string path = task->getAttribute(output);
            if (path.empty())
                continue;
            const std::string body = std::string(output) == "ReportOutputFile" ? "report of the demo viewer\n"
                                                                              : "<History demo=\"true\"/>\n";
            if (!Ostrel::FileSystem::WriteFileAtomic(path.c_str(), body.data(), body.size()))
                throw Error("the viewer could not write " + utf8(path));
        }
        task->setAttribute("ResultCode", "Succeeded");
        task->setAttribute("ResultPrinted", paper ? "Y" : "N");
        steps.detail("task " + std::string(task->getAttribute("TaskNum")) + ", " + utf8(task->getAttribute("Description")) +
                     " (" + mode + "): report written, Succeeded" + (paper ? ", printed" : ""));
    }
    if (document->save(list.c_str()) == 0)
        throw Error("the viewer could not write its results into " + list);
    return count;
}

std::string yes(bool flag)
{
    return flag ? "yes" : "no";
}

// The demo's own local application data: its Settings.ini points the library at the service, and
// an empty local list stands in for the application's reference database.
void use_private_appdata(const std::string& appdata, const std::string& service_url)
{
    const std::string disk = disk_path(appdata);
    setenv("VELLUMENT_APPDATA", disk.c_str(), 1);
    const std::string reference = disk + "/OstrelData.db";
    Ostrel::DatabaseEx database;
    if (!database.OpenFile(reference, "") || !database.Execute("CREATE TABLE LocalList (Code TEXT, Name TEXT);"))
        throw Error("cannot make the demo's reference database " + reference);
    setenv("VELLUMENT_REFERENCE_DB", reference.c_str(), 1);
    const std::string settings = disk + "/Settings.ini";
    if (!Ostrel::Profile::WritePrivateProfileStringA("DEBUG", "TestMode", "Y", settings.c_str()) ||
        !Ostrel::Profile::WritePrivateProfileStringA("DEBUG", "W2StatusServerAddress", service_url.c_str(),
                                                     settings.c_str()))
        throw Error("cannot write " + settings);
}

// The first part of the road: the filing itself, from the package to the saved, e-filed trail.
void file_the_forms(CVellument& vellument, const DemoFiling& filing, Steps& steps)
{
    const std::string& company = filing.company;
    CTransaction* transaction = vellument.get_current_transaction();
    CPackage* package = vellument.get_current_package();
    transaction->set_action(Vellument::ACTION_FILING);
    package->set_filing_options(Vellument::PACKAGE_CHOICE_COMPLETE);
    package->set_employee_count(3);
    package->set_state_employee_count(3);
    package->set_builder_version("vellument demo");
    package->add_filing(make_filing(company, Vellument::FILING_TYPE_FEDERAL, "FE", true,
                                    {{Vellument::FORM_TYPE_W2, "Federal W-2 Copy A", "W2_SSA", "Federal_W2"},
                                     {Vellument::FORM_TYPE_W3, "Federal W-3 Transmittal", "W3_SSA", "Federal_W3"}}));
    package->add_filing(make_filing(company, Vellument::FILING_TYPE_STATE, "MN", true,
                                    {{Vellument::FORM_TYPE_W2, "State W-2 Copy 1 for Minnesota", "W2_MN", "State_MN_W2"}}));
    package->add_filing(
        make_filing(company, Vellument::FILING_TYPE_STATE, "WI", true,
                    {{Vellument::FORM_TYPE_W2, "State W-2 Copy 1 for Wisconsin", "W2_WI", "State_WI_W2"}}));
    package->add_filing(make_filing(company, Vellument::FILING_TYPE_EMPLOYEE, "", false,
                                    {{Vellument::FORM_TYPE_W2, "Employee W-2 Copies B, C and 2", "W2_EMPLOYEE", "Employee_W2"}}));
    steps.say("Filled the package of the open transaction (action Filing, choice Complete, 3 employees):");
    steps.detail("Federal FE, e-filed: W-2 Copy A and W-3; States MN and WI, e-filed: W-2 Copy 1;");
    steps.detail("Employee, printed and mailed: W-2 Copies B, C and 2.");

    const std::string viewer_list = company + "Drafts\\ViewerTasks.xml";
    vellument.create_viewer_task_list(viewer_list.c_str(), false);
    steps.say("Wrote the viewer task list " + utf8(viewer_list) + ", one task per form.");

    steps.say("Played the Viewer's part:");
    if (play_viewer(viewer_list, steps) == 0)
        throw Error("the viewer task list holds no task");

    const bool all_succeeded = vellument.update_from_viewer_task_list(viewer_list.c_str());
    steps.say("Read the Viewer's results back: all tasks succeeded: " + yes(all_succeeded) +
              "; the e-file step may run: " + yes(package->get_call_efiler_flag()) + ".");

    const std::string efile_list = company + "Drafts\\EfileTasks.xml";
    vellument.create_efile_task_list(efile_list.c_str());
    if (!file_exists(efile_list))
        throw Error("the e-file task list " + efile_list + " was not written");
    steps.say("Wrote the e-file task list " + utf8(efile_list) + ".");

    vellument.update_efile_status(true, kVlid, kInvoice);
    steps.say("Reported the e-file outcome: accepted as VLID " + std::to_string(kVlid) + ", invoice " + kInvoice +
              "; the e-filed filings are marked so.");

    vellument.complete_current_transaction();
    const CStatus* status = vellument.get_current_status();
    steps.say("Completed the transaction: Filing is closed and transaction " +
              std::to_string(vellument.get_transaction_count()) + " is open; the status now holds " +
              std::to_string(status != nullptr ? status->get_copy_count() : 0) + " copies.");

    if (vellument.save(nullptr) == 0)
        throw Error("saving " + filing.file + " failed");
    const std::string settings = company + "Histories\\Vellument.INI";
    const std::string upload =
        _GetValue(settings, "VELLUMENT", ("UploadSucceeded_" + filing.file).c_str(), "Not Found", false);
    steps.say("Saved the vellument: the previous version is kept as .BAK, its hash recorded in "
              "Histories\\Vellument.INI, and, being e-filed, it was uploaded to the filing service:");
    steps.detail("upload status \"" + upload + "\": " + upload_words(upload) + ".");
    if (upload != "true")
        throw Error("the upload to the filing service failed");
}

void run_demo(const std::string& argument)
{
    // Before anything is made: the demo can't walk its road without the service.
    const std::string program = FilingService::find_program();
    const std::string directory = library_path(argument);
    if (file_exists(directory))
        throw Error(argument + " is a file; the demo needs a new or empty directory");
    std::error_code ec;
    if (directory_exists(directory) && !std::filesystem::is_empty(disk_path(directory), ec))
        throw Error(argument + " is not empty; the demo makes a new company directory");
    // The library reads the form code from between the underscores of the vellument's whole path.
    if (directory.find('_') != std::string::npos)
        throw Error(argument + " has an underscore in its path, which would hide the vellument's form code from "
                    "the library; choose a directory without one");

    Steps steps(std::cout);
    for (const char* sub : {"", "\\Histories", "\\Drafts", "\\AppData", "\\FilingService"}) {
        if (!Ostrel::FileSystem::CreateDirectoryA((directory + sub).c_str()))
            throw Error("cannot make the directory " + directory + sub);
    }
    steps.say("Made the company directory " + argument + " (" + utf8(directory) +
              " to the library) with its Histories and Drafts folders.");

    const std::string service_data = disk_path(directory + "\\FilingService");
    FilingService service(program, service_data, service_data + "/service.log");
    use_private_appdata(directory + "\\AppData", service.url());
    steps.say("Started the stand-in filing service at " + service.url() + " (its data and request log in " +
              service_data + "); " + argument + "/AppData/Settings.ini points the library at it.");

    // The vellument of this company's W-2 forms, in Histories as the application keeps it.
    const std::string year = last_year();
    const std::string name = directory + "\\Histories\\" +
                             CVellument::build_file_name(Vellument::FORM_TYPES_W2, Vellument::EXTENSION_VLM,
                                                         year.c_str(), "");
    CVellument vellument;
    vellument.open(name.c_str(), kEin, year.c_str(), kVendor, false, false);
    vellument.set_form_type_string("W-2_SSA");
    vellument.set_filing_period_start(("01/01/" + year).c_str());
    vellument.set_filing_period_end(("12/31/" + year).c_str());
    const DemoFiling filing{CPathHandling::get_company_dir(), vellument.get_vellument_name(), kEin, "W-2_SSA", year};
    if (vellument.save(nullptr) == 0)
        throw Error("saving the new vellument " + filing.file + " failed");
    steps.say("Made the W-2 vellument " + utf8(filing.file) + " for " + year + ".");
    steps.detail("No file stood there and the service held none, so the trail starts with one open transaction.");

    file_the_forms(vellument, filing, steps);
    steps.say("The service took in the e-filed copies of the upload:");
    tell_service_copies(service, filing, steps);

    const std::string database = filing.company + "vellument.db";
    const int mirrored = mirror_into_database(filing.file, filing.file, database, database, "");
    steps.say("Mirrored " + std::to_string(mirrored) + " transactions into the SQLite file " + utf8(database) + ".");

    walk_server_road(service, filing, steps);

    CVellument again;
    open_trail(again, filing.file, filing.file);
    steps.say("Opened the file again, read-only: " + std::to_string(again.get_transaction_count()) +
              " transactions. The trail:");
    std::cout << "\n";
    print_timeline(std::cout, trail_to_json(again, filing.file));
}

} // namespace

Command add_demo_command(CLI::App& app, const Context& context)
{
    auto directory = std::make_shared<std::string>();
    CLI::App* sub = app.add_subcommand("demo", "Walk one W-2 filing through the library and a stand-in filing service");
    sub->footer(
        "Walk one W-2 filing through the library, end to end, in a new company directory DIR (made\n"
        "when missing; an existing one must be empty), saying what each step did. The demo starts the\n"
        "stand-in filing service (vellument-filing-service, found beside this program or in the build\n"
        "tree) on 127.0.0.1 on a free port, with its data in DIR/FilingService, and a private local\n"
        "application data directory DIR/AppData whose Settings.ini points the library at it; the\n"
        "service is stopped at the end. The road: make the vellument, fill a package with Federal,\n"
        "State and Employee filings, write the viewer task list and play the Viewer, write the e-file\n"
        "task list, report the e-file outcome, complete the transaction, save (backup, hash and the\n"
        "upload to the service), mirror into DIR/vellument.db; then the service marks a copy\n"
        "replaceable (a sync gives \"Status Change\"), deletes one (\"Server Deletion\"), loses an\n"
        "e-filed one (\"Bug Fix\") and knows it again (the copy comes back), and another workstation\n"
        "stores a newer version (the open gives \"Server Download\" and keeps a .Backup). Last, the trail.");
    sub->add_option("DIR", *directory, "A new or empty directory")->required();

    return Command{sub, [directory, &context]() {
                       LibraryOutput output(context.verbose);
                       run_demo(*directory);
                   }};
}

} // namespace cli

// The `vellument` program, run as a child process on files that the library made and on files
// written by hand.

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>

#include "company_fixture.h"
#include "filing_service_fixture.h"
#include "loopback_settings.h"

using namespace vlmtest;
using nlohmann::json;

namespace {

using Result = FilingService::Result;

// Runs the built tool.
Result run(const std::vector<std::string>& args, const std::map<std::string, std::string>& env = {})
{
#ifndef VELLUMENT_CLI_PATH
    (void)args;
    (void)env;
    return Result{};
#else
    return FilingService::run_program(VELLUMENT_CLI_PATH, args, env);
#endif
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

void expect_parts(const Result& result, std::initializer_list<const char*> parts)
{
    ASSERT_EQ(result.code, 0) << result.err;
    for (const char* part : parts)
        EXPECT_TRUE(contains(result.out, part)) << part << "\n" << result.out;
}

// A W-2 trail made and saved by the library: a Filing transaction with a printed Federal filing,
// completed into a status with its copy, and the open transaction after it.
void make_library_trail(const Company& co)
{
    MessageBoxSpy quiet;
    CVellument v;
    v.open(co.win(kName).c_str(), "12-3456789", "2021", "ACME", false, false);
    v.set_form_type_string("W-2_SSA");
    v.get_current_transaction()->set_action(Vellument::ACTION_FILING);
    auto* filing = new CFiling();
    filing->set_type(Vellument::FILING_TYPE_FEDERAL);
    filing->set_identifier("FE");
    filing->set_printed_flag(true);
    filing->set_mailed_flag(true);
    filing->set_printed_successful_flag(true);
    auto* form = new CForm();
    form->set_type(Vellument::FORM_TYPE_W2);
    form->set_description("Federal W-2 Copy A");
    form->set_location(co.win("Drafts\\W2.pdf"));
    filing->add_form(form);
    v.get_current_package()->add_filing(filing);
    v.get_current_package()->set_filing_options(Vellument::PACKAGE_CHOICE_FEDERAL);
    v.complete_current_transaction();
    ASSERT_NE(v.save(nullptr), 0);
}

json parse(const Result& result)
{
    EXPECT_EQ(result.code, 0) << result.err;
    return json::parse(result.out, nullptr, false);
}

// Bad input: the given exit code, exactly one line on stderr, nothing on stdout.
void expect_refused(const Result& result, int code, const std::string& part)
{
    EXPECT_EQ(result.code, code) << result.err;
    EXPECT_TRUE(result.out.empty()) << result.out;
    ASSERT_FALSE(result.err.empty());
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    EXPECT_TRUE(contains(result.err, part)) << result.err;
}

class Cli : public ::testing::Test {
protected:
    void SetUp() override
    {
#ifndef VELLUMENT_CLI_PATH
        GTEST_SKIP() << "the tool is not built (VELLUMENT_BUILD_TOOLS=OFF)";
#endif
    }
    Company co;
    std::string file() const { return co.resolve(kDisk); }
};

} // namespace

TEST_F(Cli, EveryCommandHasHelp)
{
    for (const char* command : {"show", "check", "sync", "mirror", "export", "demo"}) {
        const Result result = run({command, "--help"});
        EXPECT_EQ(result.code, 0) << command;
        EXPECT_TRUE(contains(result.out, "Usage")) << command << ": " << result.out;
    }
    const Result top = run({"--help"});
    EXPECT_EQ(top.code, 0);
    for (const char* command : {"show", "check", "sync", "mirror", "export", "demo"})
        EXPECT_TRUE(contains(top.out, command)) << top.out;
}

TEST_F(Cli, ShowsALibraryMadeTrailAsTimelineAndJson)
{
    make_library_trail(co);
    const auto before = co.snapshot();

    // A new copy starts unmailed, whatever its filing said.
    expect_parts(run({"show", file()}),
                 {"form type W-2_SSA, filing year 2021, EIN 12-3456789, vendor ACME", "Transaction 1 of 2: Filing",
                  "Filing Federal FE", "Form W-2 \"Federal W-2 Copy A\"", "Transaction 2 of 2: None",
                  "printed yes, mailed no, e-filed no, replaceable no, deleted no"});

    const json trail = parse(run({"show", "--format", "json", file()}));
    ASSERT_TRUE(trail.is_object());
    EXPECT_EQ(trail["filing_ein"], "12-3456789");
    ASSERT_EQ(trail["transactions"].size(), 2u);
    const json& first = trail["transactions"][0];
    EXPECT_EQ(first["action"], "Filing");
    EXPECT_EQ(first["package"]["choice"], "Federal");
    ASSERT_EQ(first["package"]["filings"].size(), 1u);
    EXPECT_EQ(first["package"]["filings"][0]["flags"]["printed_successful"], true);
    EXPECT_TRUE(contains(first["package"]["filings"][0]["forms"][0]["location"].get<std::string>(), "W2.pdf"));
    const json& copy = trail["transactions"][1]["status"]["copies"][0];
    EXPECT_EQ(copy["type"], "Federal");
    EXPECT_EQ(copy["histories"][0]["description"], "Federal W-2 Copy A");
    EXPECT_TRUE(trail["transactions"][1]["package"]["filings"].empty());
    EXPECT_TRUE(trail["transactions"][1]["package"]["date"].is_null());  // the file keeps none
    EXPECT_FALSE(first["package"]["date"].is_null());

    EXPECT_EQ(co.snapshot(), before);
}

TEST_F(Cli, ShowsAHandWrittenTrailInTheOlderForm)
{
    // Bare numbers for the action, choice and types, as older writers left them, and text that
    // is no ASCII (Windows-1252 in the library, UTF-8 on the way out).
    co.write(kDisk, trail("FormType=\"W-2_SSA\" FilingYear=\"2020\" FilingEIN=\"98-7654321\"",
                          transaction("7",
                                      "<Copy Type=\"4\" Identifier=\"FE\" Deleted=\"true\" Printed=\"1\">"
                                      "<History Type=\"1\" Description=\"Empleado W-2 \xC3\xA9t\xC3\xA9\"/></Copy>",
                                      "", "Note=\"by hand\"") +
                              transaction("None")));
    const auto before = co.snapshot();

    expect_parts(run({"show", file()}), {"Transaction 1 of 2: Reload", "notes: Note=by hand", "Copy Employee FE",
                                         "printed yes, mailed no, e-filed no, replaceable no, deleted yes"});

    const json trail = parse(run({"show", "--format=json", file()}));
    ASSERT_TRUE(trail.is_object());
    EXPECT_EQ(trail["transactions"][0]["status"]["copies"][0]["histories"][0]["description"],
              "Empleado W-2 \xC3\xA9t\xC3\xA9");
    EXPECT_EQ(trail["transactions"][0]["dictionary"]["Note"], "by hand");
    EXPECT_EQ(co.snapshot(), before);
}

TEST_F(Cli, CheckTellsASavedFileFromAnEditedOneWithoutChangingIt)
{
    make_library_trail(co);
    const json saved = parse(run({"check", "--format", "json", file()}));
    EXPECT_EQ(saved["md5"], md5_hex(co.read(kDisk)));
    EXPECT_EQ(saved["saved_hash"], saved["md5"]);
    EXPECT_EQ(saved["changed"], false);
    EXPECT_EQ(saved["upload_status"], "Not Found");

    expect_parts(run({"check", file()}), {"unchanged since the library last saved it"});

    // An edit behind the library's back, and a failed upload on record.
    testutil::write_file(file(), co.read(kDisk) + "\n");
    _SetValue(co.settings().c_str(), ("UploadSucceeded_" + co.key(kName)).c_str(), "false");
    const auto before = co.snapshot();
    const json edited = parse(run({"check", "--format", "json", file()}));
    EXPECT_EQ(edited["changed"], true);
    EXPECT_NE(edited["md5"], edited["saved_hash"]);
    EXPECT_EQ(edited["upload_status"], "false");
    EXPECT_TRUE(contains(edited["verdict"].get<std::string>(), "User Edit"));
    EXPECT_EQ(co.snapshot(), before);

    // A test-mode file: the library keeps no hash of it.
    co.write("Histories/Vellument_W2_2021.TLM", co.read(kDisk));
    const json test_mode = parse(run({"check", "--format", "json", co.resolve("Histories/Vellument_W2_2021.TLM")}));
    EXPECT_TRUE(test_mode["changed"].is_null());
    EXPECT_EQ(test_mode["live"], false);
}

TEST_F(Cli, BadInputGivesOneLineAndChangesNothing)
{
    co.write("Histories/NotXml.VLM", "this is not XML <<<");
    co.write("Histories/Empty.VLM", trail("FormType=\"W-2_SSA\"", ""));
    co.write("Histories/Other.VLM", "<?xml version=\"1.0\"?><Invoice Total=\"3\"/>");
    std::string nested;
    for (int i = 0; i < 5000; ++i)
        nested = "<Filing>" + nested + "</Filing>";
    co.write("Histories/Nested.VLM", trail("", transaction("Filing", "", nested)));
    make_library_trail(co);
    const auto before = co.snapshot();
    const std::string missing = co.disk("Histories/Missing.VLM");
    const std::string db = co.disk("mirror.db");

    const std::pair<std::string, const char*> files[] = {
        {missing, "no such file"},
        {co.resolve("Histories/NotXml.VLM"), "is not an XML document"},
        {co.resolve("Histories/Empty.VLM"), "holds no transaction"},
        {co.resolve("Histories/Other.VLM"), "not <AuditTrail>"},
        {co.resolve("Histories/Nested.VLM"), "nests its elements"},
        {co.disk("Histories"), "is a directory"}};
    for (const char* command : {"show", "check"})
        for (const auto& bad : files)
            expect_refused(run({command, bad.first}), 1, bad.second);
    expect_refused(run({"mirror", co.resolve("Histories/NotXml.VLM"), "--db", db}), 1, "is not an XML document");
    expect_refused(run({"mirror", file(), "--db", co.disk("no/such/dir/x.db")}), 1, "does not exist");
    expect_refused(run({"export", "--db", db, "--name", "Vellument_W2_2021.VLM", "--out", co.disk("x.VLM")}), 1,
                   "no such database file");
    expect_refused(run({"show", file(), "--bogus"}), 2, "--bogus");
    expect_refused(run({"show", file(), "--format", "yaml"}), 2, "yaml");
    expect_refused(run({"show"}), 2, "FILE");
    expect_refused(run({"frobnicate"}), 2, "frobnicate");
    expect_refused(run({}), 2, "subcommand");
    // A password never comes on the command line.
    expect_refused(run({"mirror", file(), "--db", db, "--password", "secret"}), 2, "--password");

    EXPECT_EQ(co.snapshot(), before);
}

TEST_F(Cli, MirrorAndExportRoundTripWithAPassword)
{
    make_library_trail(co);
    const std::string db = co.disk("mirror.db");
    const std::map<std::string, std::string> right = {{"VLM_DB_PASSWORD", "s3cret"}};
    const std::map<std::string, std::string> wrong = {{"VLM_DB_PASSWORD", "guess"}};

    // Only the database changes: the vellument, its backup and the hash record stay as they were.
    const auto before = co.snapshot();
    const Result mirrored = run({"mirror", file(), "--db", db, "--password-env", "VLM_DB_PASSWORD"}, right);
    ASSERT_EQ(mirrored.code, 0) << mirrored.err;
    auto after = co.snapshot();
    ASSERT_EQ(after.erase(db), 1u);
    EXPECT_EQ(after, before);
    const std::string db_bytes = co.read("mirror.db");
    EXPECT_FALSE(contains(db_bytes, "SQLite format 3"));  // enciphered with the password
    // Mirroring again replaces the rows rather than adding to them.
    ASSERT_EQ(run({"mirror", file(), "--db", db, "--password-env", "VLM_DB_PASSWORD"}, right).code, 0);

    // Another company directory, where the hash of the exported file has its place.
    const std::string out = co.disk("Exported/Histories/Vellument_W2_2021.VLM");
    std::filesystem::create_directories(co.disk("Exported/Histories"));
    const std::vector<std::string> export_args = {"export", "--db", db, "--name", "Vellument_W2_2021.VLM",
                                                  "--out", out, "--password-env", "VLM_DB_PASSWORD"};
    const auto untouched = co.snapshot();
    expect_refused(run({"mirror", file(), "--db", db, "--password-env", "VLM_DB_PASSWORD"}, wrong), 1,
                   "wrong password");
    expect_refused(run(export_args, wrong), 1, "wrong password");
    expect_refused(run(export_args), 1, "VLM_DB_PASSWORD");  // the variable isn't set
    std::vector<std::string> other_name = export_args;
    other_name[4] = "Vellument_W2_2019.VLM";
    expect_refused(run(other_name, right), 1, "holds no vellument");
    EXPECT_EQ(co.snapshot(), untouched);

    const Result exported = run(export_args, right);
    ASSERT_EQ(exported.code, 0) << exported.err;
    const json original = parse(run({"show", "--format", "json", file()}));
    const json copy = parse(run({"show", "--format", "json", out}));
    ASSERT_EQ(copy["transactions"].size(), original["transactions"].size());
    // Paths are company-relative: the same tail under the other company directory.
    const auto relative = [](json copies) {
        for (json& unit : copies)
            for (json& history : unit["histories"]) {
                const std::string location = history["location"];
                history["location"] = location.substr(location.rfind("\\"));
            }
        return copies;
    };
    for (std::size_t i = 0; i < copy["transactions"].size(); ++i) {
        EXPECT_EQ(copy["transactions"][i]["action"], original["transactions"][i]["action"]);
        EXPECT_EQ(relative(copy["transactions"][i]["status"]["copies"]),
                  relative(original["transactions"][i]["status"]["copies"]));
    }
    EXPECT_EQ(copy["filing_ein"], "12-3456789");
    // Written as a live vellument: its hash is on record, so check finds it unchanged.
    EXPECT_EQ(parse(run({"check", "--format", "json", out}))["changed"], false);

    // An existing file is replaced only when asked.
    const std::string first = testutil::read_file(out);
    expect_refused(run(export_args, right), 1, "--force");
    EXPECT_EQ(testutil::read_file(out), first);
    std::vector<std::string> forced = export_args;
    forced.push_back("--force");
    ASSERT_EQ(run(forced, right).code, 0);
    EXPECT_EQ(testutil::read_file(co.disk("Exported/Histories/Vellument_W2_2021.BAK")), first);
}

TEST_F(Cli, DemoWalksTheWholeRoadAgainstAFilingService)
{
    const std::string dir = co.disk("Demo");
    const Result demo = run({"demo", dir});
    EXPECT_TRUE(demo.err.empty()) << demo.err;
    expect_parts(demo, {"Started the stand-in filing service at https://127.0.0.1:", "Played the Viewer",
                        "Completed the transaction", "upload status \"true\"", "the service holds FED FE",
                        "closed as \"Status Change\"", "closed as \"Server Deletion\"", "closed as \"Bug Fix\"",
                        "copy Federal FE: came back into the status", "closed as \"Server Download\"", ".Backup",
                        "Opened the file again"});

    // What it left is a library's vellument like any other, with the whole road in its trail.
    std::string vellument;
    for (const auto& entry : std::filesystem::directory_iterator(dir + "/Histories"))
        if (entry.path().extension() == ".VLM")
            vellument = entry.path().string();
    ASSERT_FALSE(vellument.empty());
    EXPECT_EQ(parse(run({"check", "--format", "json", vellument}))["changed"], false);
    const json trail = parse(run({"show", "--format", "json", vellument}));
    std::vector<std::string> road;
    for (const json& transaction : trail["transactions"])
        road.push_back(transaction["action"]);
    EXPECT_EQ(road, (std::vector<std::string>{"Filing", "Status Change", "Server Deletion", "Bug Fix",
                                              "Server Download", "None"}));

#ifdef VELLUMENT_CLI_PATH
    // Without the service program beside it or in the build tree, the demo says so and makes nothing.
    testutil::TempDir elsewhere;
    std::filesystem::copy_file(VELLUMENT_CLI_PATH, elsewhere.file("vellument"));
    const Result alone = FilingService::run_program(elsewhere.file("vellument"), {"demo", co.disk("Other")});
    expect_refused(alone, 1, "vellument-filing-service was not found");
    EXPECT_FALSE(std::filesystem::exists(co.disk("Other")));
#endif

    // A second run refuses the directory, which is no longer new.
    const auto before = co.snapshot();
    expect_refused(run({"demo", dir}), 1, "not empty");
    EXPECT_EQ(co.snapshot(), before);
}

TEST_F(Cli, SyncAndCheckServerFollowTheFilingService)
{
    if (!FilingService::available())
        GTEST_SKIP() << "the filing service is not built";
    FilingService service;
    const std::string appdata = std::getenv("VELLUMENT_APPDATA");
    service.write_settings(appdata);
    struct Restore {
        std::string appdata;
        ~Restore() { loopback::point_settings_at(appdata, loopback::service_url(loopback::refusing_port())); }
    } restore{appdata};

    // An e-filed trail, saved and so uploaded by the library.
    const std::string status = "<Copy Type=\"Federal\" Identifier=\"FE\" Efiled=\"true\"/>"
                               "<Copy Type=\"State\" Identifier=\"MN\" Efiled=\"true\"/>"
                               "<Copy Type=\"Employer\" Identifier=\"FE\" Printed=\"true\"/>";
    const std::string root = "FormType=\"W-2_SSA\" FilingYear=\"2021\" FilingEIN=\"12-3456789\"";
    co.write_saved(trail(root, transaction("Filing") + transaction("None", status)));
    {
        CVellument v;
        v.open(co.win(kName).c_str(), "", "", "", false, false);
        ASSERT_NE(v.save(nullptr), 0);
    }
    const json same = parse(run({"check", "--server", "--format", "json", file()}));
    EXPECT_EQ(same["server_hash"], same["md5"]);
    EXPECT_EQ(same["download"], false);

    // Another workstation stores a newer version: check tells, without writing anything, and sync
    // brings it down.
    const std::string theirs = co.disk("theirs.xml");
    testutil::write_file(theirs,
                         trail(root, transaction("Filing") + transaction("Printing") + transaction("None", status)));
    ASSERT_EQ(service.admin({"put", "--ein", "12-3456789", "--form", "W-2_SSA", "--year", "2021", theirs}).code, 0);
    const auto before = co.snapshot();
    const json differs = parse(run({"check", "--server", "--format", "json", file()}));
    EXPECT_EQ(differs["download"], true);
    EXPECT_EQ(differs["server_hash"], md5_hex(testutil::read_file(theirs)));
    EXPECT_TRUE(contains(differs["download_reason"].get<std::string>(), "Server Download"));
    EXPECT_EQ(co.snapshot(), before);

    const json synced = parse(run({"sync", "--format", "json", file()}));
    EXPECT_EQ(synced["downloaded"], true);
    EXPECT_TRUE(contains(synced["backup"].get<std::string>(), ".Backup")) << synced.dump();
    ASSERT_EQ(synced["transactions"].size(), 1u);
    EXPECT_EQ(synced["transactions"][0]["action"], "Server Download");
    EXPECT_EQ(synced["upload_status"], "true");

    // The service changes its mind about a copy: sync says which and how.
    ASSERT_EQ(service.admin({"set-copy", "--ein", "12-3456789", "--form", "W-2_SSA", "--year", "2021", "--type", "FED",
                             "--code", "FE", "--replaceable", "true"}).code, 0);
    expect_parts(run({"sync", file()}), {"closed as Status Change", "Federal FE: replaceable no -> yes"});

    // A fault of the service: one line, exit 1.
    ASSERT_EQ(service.admin({"fault", "--op", "GetSubmissionStatus", "--kind", "system-error"}).code, 0);
    expect_refused(run({"sync", file()}), 1, "the filing service gave no usable status");
}

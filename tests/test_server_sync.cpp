// Opening, saving and reconciling against the stand-in filing service on 127.0.0.1, through the
// library's real HTTPS client: the outcomes of the hash check, the download, the upload and the
// service's faults.

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <ios>

#include <vellument/CDictionary.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/ServerFunctions.h>
#include <vellument/eFileSOAPS.h>

#include "company_fixture.h"
#include "filing_service_fixture.h"
#include "loopback_settings.h"

using namespace vlmtest;
using Vellument::ActionType;

namespace {

const char kEin[] = "12-3456789";
const char kRoot[] = "FormType=\"W-2_SSA\" FilingYear=\"2021\" FilingEIN=\"12-3456789\"";

// Federal and state copies with the printed employer copy: opening such a trail changes nothing
// by itself.
std::string copies(bool efiled)
{
    const std::string flag = efiled ? "true" : "false";
    return "<Copy Type=\"Federal\" Identifier=\"FE\" Printed=\"true\" Efiled=\"" + flag +
           "\"/><Copy Type=\"State\" Identifier=\"MN\" Efiled=\"" + flag +
           "\"/><Copy Type=\"Employer\" Identifier=\"FE\" Printed=\"true\"/>";
}

std::string document(bool efiled, const std::string& extra = "")
{
    return trail(kRoot, extra + transaction("Filing") + transaction("None", copies(efiled)));
}

class ServerSync : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!FilingService::available())
            GTEST_SKIP() << "the filing service is not built";
        appdata_ = std::getenv("VELLUMENT_APPDATA");
        service_.reset(new FilingService());
        service_->write_settings(appdata_);
    }
    void TearDown() override
    {
        if (!appdata_.empty())
            loopback::point_settings_at(appdata_, loopback::service_url(loopback::refusing_port()));
        service_.reset();
    }

    // Stores the text as another workstation would, under the filing's EIN, form and year.
    void put(const std::string& text, const char* form = "W-2_SSA", const char* year = "2021")
    {
        const std::string file = co.disk("server.xml");
        testutil::write_file(file, text);
        const FilingService::Result r =
            service_->admin({"put", "--ein", kEin, "--form", form, "--year", year, file});
        ASSERT_EQ(r.code, 0) << r.err;
    }
    void admin(const std::vector<std::string>& args)
    {
        const FilingService::Result r = service_->admin(args);
        ASSERT_EQ(r.code, 0) << r.err;
    }
    void set_upload_status(const char* status, const char* name = kName)
    {
        _SetValue(co.settings().c_str(), ("UploadSucceeded_" + co.key(name)).c_str(), status);
    }
    std::unique_ptr<CVellument> open(const char* name = kName, const char* year = "2021")
    {
        std::unique_ptr<CVellument> v(new CVellument());
        v->open(co.win(name).c_str(), kEin, year, "", false, false);
        return v;
    }
    std::string server_hash(const char* form = "W-2_SSA")
    {
        int error = -1;
        const std::string hash = eFileSOAPS::get_vellument_hash(kEin, form, "2021", error);
        return error == 0 ? hash : "error " + std::to_string(error);
    }
    bool backup_made() const
    {
        for (const auto& entry : co.snapshot())
            if (entry.first.find(".Backup") != std::string::npos)
                return true;
        return false;
    }

    Company co;
    std::unique_ptr<FilingService> service_;
    std::string appdata_;
};

} // namespace

TEST_F(ServerSync, TheHashesDecideBetweenNothingAUserEditAndADownload)
{
    const std::string mine = document(false);
    const std::string theirs = trail(kRoot, transaction("Filing") + transaction("Printing") + transaction("None"));

    // The file as saved, the same on the server: nothing to do, whatever the upload status.
    co.write_saved(mine);
    put(mine);
    set_upload_status("true");
    EXPECT_EQ(open()->get_transaction_count(), 2);
    EXPECT_EQ(co.read(kDisk), mine);

    // The server differs, but no upload from here has worked: the saved hash decides, no download.
    put(theirs);
    for (const char* status : {"false", "Not Found"}) {
        set_upload_status(status);
        EXPECT_EQ(open()->get_transaction_count(), 2) << status;
        EXPECT_FALSE(backup_made()) << status;
    }

    // The last upload worked: the server's copy comes down, the old file is kept as .Backup.
    set_upload_status("true");
    auto downloaded = open();
    EXPECT_EQ(actions(*downloaded),
              (std::vector<ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_PRINTING,
                                       Vellument::ACTION_SERVER_DOWNLOAD, Vellument::ACTION_NONE}));
    bool kept = false;
    for (const auto& entry : co.snapshot())
        kept = kept || (entry.first.find(".VLM_") != std::string::npos && entry.second == mine);
    EXPECT_TRUE(kept);

    // Edited behind the library's back, the server holding the edited file: "User Edit". A file
    // the library never saved, with nothing on the server: the same.
    co.write(kDisk, mine + "\n");
    put(mine + "\n");
    EXPECT_EQ(actions(*open()), (std::vector<ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_USER_EDIT,
                                                         Vellument::ACTION_NONE}));
    Company never;
    never.write(kDisk, mine);
    CVellument fresh;
    fresh.open(never.win(kName).c_str(), "98-7654321", "2021", "", false, false);
    EXPECT_EQ(actions(fresh), (std::vector<ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_USER_EDIT,
                                                       Vellument::ACTION_NONE}));
}

TEST_F(ServerSync, NoFileAndNothingAnywhereGivesAFreshTrailAndWritesNothing)
{
    const auto before = co.snapshot();
    auto v = open();
    EXPECT_EQ(actions(*v), std::vector<ActionType>{Vellument::ACTION_NONE});
    EXPECT_EQ(co.snapshot(), before);
}

TEST_F(ServerSync, T5018Of2020And2021IsNeverBroughtDown)
{
    const std::string theirs = trail("FormType=\"T5018\"", transaction("Printing") + transaction("None"));
    for (const char* year : {"2021", "2022"}) {
        const std::string name = "Histories\\" + CVellument::build_file_name(Vellument::FORM_TYPES_T5018,
                                                                             Vellument::EXTENSION_VLM, year, "");
        co.write_saved(trail("FormType=\"T5018\"", transaction("None")), name);
        set_upload_status("true", name.c_str());
        put(theirs, "T5018", year);
        auto v = open(name.c_str(), year);
        EXPECT_EQ(v->get_transaction_count(), std::string(year) == "2021" ? 1 : 3) << year;
    }
}

TEST_F(ServerSync, AnEfiledTrailIsUploadedOnSavingAndAFailedUploadStopsDownloads)
{
    co.write_saved(document(true));
    auto v = open();
    ASSERT_NE(v->save(nullptr), 0);
    EXPECT_EQ(co.setting("UploadSucceeded_" + co.key(kName)), "true");
    EXPECT_EQ(server_hash(), md5_hex(co.read(kDisk)));

    // The service is down: the upload fails, and the next open downloads nothing.
    service_->stop();
    v->get_current_dictionary()->insert({"Note", "offline"});
    ASSERT_NE(v->save(nullptr), 0);  // the save itself succeeds
    EXPECT_EQ(co.setting("UploadSucceeded_" + co.key(kName)), "false");
    EXPECT_EQ(open()->get_transaction_count(), 2);
    EXPECT_FALSE(backup_made());

    // Back, on a new port: the next upload that works turns the status back to "true".
    service_->start();
    service_->write_settings(appdata_);
    EXPECT_NE(server_hash(), md5_hex(co.read(kDisk)));
    ASSERT_NE(v->save(nullptr), 0);
    EXPECT_EQ(co.setting("UploadSucceeded_" + co.key(kName)), "true");
    EXPECT_EQ(server_hash(), md5_hex(co.read(kDisk)));
}

TEST_F(ServerSync, ATrailNeverEfiledGoesUpOnlyToStartOverWhereAnUploadWorked)
{
    co.write_saved(document(false, "<Dictionary STARTOVER=\"1\"/>"));
    auto v = open();
    ASSERT_NE(v->save(nullptr), 0);
    EXPECT_EQ(co.setting("UploadSucceeded_" + co.key(kName)), "Not Found");
    EXPECT_EQ(server_hash(), "error 22");  // NOTFOUND: nothing went up

    set_upload_status("true");
    ASSERT_NE(v->save(nullptr), 0);
    EXPECT_EQ(server_hash(), md5_hex(co.read(kDisk)));

    // "2" is no start-over.
    (*v->get_dictionary())["STARTOVER"] = "2";
    ASSERT_NE(v->save(nullptr), 0);
    EXPECT_NE(server_hash(), md5_hex(co.read(kDisk)));
}

TEST_F(ServerSync, TheServiceStatusDrivesTheTrailAndItsFaultsChangeNothing)
{
    co.write_saved(document(true));
    ASSERT_NE(open()->save(nullptr), 0);  // the upload hands the e-filed copy to the service

    const std::vector<std::string> filing = {"--ein", kEin, "--form", "W-2_SSA", "--year", "2021"};
    auto with = [&filing](std::vector<std::string> args) {
        args.insert(args.begin() + 1, filing.begin(), filing.end());
        return args;
    };

    // A fault that says "System error" is a web service error; another fault is not. Neither
    // changes the trail.
    for (const char* kind : {"system-error", "fault"}) {
        admin({"fault", "--op", "GetSubmissionStatus", "--kind", kind});
        auto v = open();
        v->update_status_from_web();
        EXPECT_EQ(v->is_web_service_error(), std::string(kind) == "system-error") << kind;
        EXPECT_EQ(v->get_transaction_count(), 2) << kind;
    }

    admin(with({"set-copy", "--type", "FED", "--code", "FE", "--replaceable", "true"}));
    auto changed = open();
    changed->update_status_from_web();
    EXPECT_FALSE(changed->is_web_service_error());
    EXPECT_EQ(changed->get_transaction(1)->get_action(), Vellument::ACTION_STATUS_CHANGE);
    changed.reset();

    admin(with({"remove-copy", "--type", "FED", "--code", "FE"}));
    auto fixed = open();
    fixed->update_status_from_web();
    EXPECT_FALSE(fixed->is_web_service_error());
    EXPECT_EQ(fixed->get_transaction(2)->get_action(), Vellument::ACTION_BUG_FIX);
    EXPECT_EQ(fixed->get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_FEDERAL, "FE"), nullptr);
}

TEST_F(ServerSync, ADownloadKeepsTheOldFileAndWritesTheTextAsItCame)
{
    const std::string path = co.win(kName);
    const std::string old = document(false);
    co.write(kDisk, old);
    put("no XML at all <<< \xC3\xA9");
    // The client hands the text over in the ANSI code page.
    const char not_xml[] = "no XML at all <<< \xE9";

    // The backup names of this second and the next are taken: the backup fails and is logged,
    // the file is replaced all the same, and no existing backup is touched.
    std::vector<std::string> taken;
    const std::time_t now = std::time(nullptr);
    for (std::time_t t = now; t <= now + 2; ++t) {
        std::tm local{};
        localtime_r(&t, &local);
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%Y%m%d%H%M%S", &local);
        taken.push_back(std::string(kDisk) + "_" + stamp + ".Backup");
        co.write(taken.back(), "earlier backup");
    }
    {
        LogCapture log;
        download_vellument(kEin, "W-2_SSA", "2021", path.c_str());
        EXPECT_TRUE(log.contains("[Vellument] Error Saving New Vellument!"));
    }
    EXPECT_EQ(co.read(kDisk), not_xml);
    for (const std::string& name : taken)
        EXPECT_EQ(co.read(name), "earlier backup");

    // Nothing on the server: the file is untouched. A fault: an empty text counts as the download.
    co.write(kDisk, old);
    admin({"fault", "--op", "GetVellument", "--kind", "notfound"});
    download_vellument(kEin, "W-2_SSA", "2021", path.c_str());
    EXPECT_EQ(co.read(kDisk), old);
    admin({"fault", "--op", "GetVellument", "--kind", "fault"});
    download_vellument(kEin, "W-2_SSA", "2021", path.c_str());
    EXPECT_EQ(co.read(kDisk), "");

    // No local file: written all the same. A folder that doesn't exist: the write's failure is thrown.
    download_vellument(kEin, "W-2_SSA", "2021", co.win("Histories\\New.VLM").c_str());
    EXPECT_EQ(co.read("Histories/New.VLM"), not_xml);
    EXPECT_THROW(download_vellument(kEin, "W-2_SSA", "2021", co.win("Missing\\X.VLM").c_str()), std::ios_base::failure);
}

// Reconciling the current status with the server's view. The server's answer comes from a
// ".TestStatus" file beside the document, which stands in for the service without a network;
// the status from the real service is covered in test_server_sync.cpp.

#include <gtest/gtest.h>

#include <cstdlib>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/ServerFunctions.h>

#include "company_fixture.h"

using namespace vlmtest;
using Vellument::ActionType;

namespace {

std::string copy(const char* type, const char* identifier, bool efiled, bool replaceable = false,
                 bool deleted = false)
{
    return std::string("<Copy Type=\"") + type + "\" Identifier=\"" + identifier + "\" Efiled=\"" +
           (efiled ? "true" : "false") + "\" Replaceable=\"" + (replaceable ? "true" : "false") + "\" Deleted=\"" +
           (deleted ? "true" : "false") + "\" Printed=\"true\"/>";
}

// The trail of a filed vellument, saved as the library saves it: a closed Filing transaction with
// a note, then the current one holding `current` copies.
void make_trail(const Company& co, const std::string& current, const char* form_type = "W-2_SSA",
                const std::string& more = "")
{
    co.write_saved(trail(std::string("FormType=\"") + form_type + "\" FilingYear=\"2021\" FilingEIN=\"12-3456789\"",
                         transaction("Filing", "", "", "Note=\"filed\"") + more +
                             "<Transaction Action=\"None\"><Package KXNPath=\".\\Drafts\\P.KXN\"/>"
                             "<Status FilingChoice=\"3\" KXNPath=\".\\Drafts\\S.KXN\">" +
                             current + "</Status></Transaction>"));
}

void server_says(const Company& co, const std::string& copies)
{
    co.write(std::string(kDisk) + ".TestStatus", "<Status>" + copies + "</Status>");
}

// A normal open, and with `update` the comparison with the server.
struct Sync {
    std::unique_ptr<CVellument> v{new CVellument()};
    explicit Sync(const Company& co, bool update = true)
    {
        v->open(co.win(kName).c_str(), "12-3456789", "2021", "", false, false);
        if (update)
            v->update_status_from_web();
    }
};

const CCopy* find(const CStatus* status, Vellument::FILING_TYPE type, const char* identifier)
{
    return status->get_copy_by_type(type, identifier);
}

} // namespace

TEST(ServerStatus, ChangesAreClosedAsStatusChangeAndDeletionWithTheLastHitStanding)
{
    Company co;
    // A deletion on the first copy, a replaceable change on the second: the second hit stands.
    make_trail(co, copy("State", "MN", true) + copy("Federal", "FE", true) + copy("Employer", "FE", false) +
                       copy("State", "NY", false));
    server_says(co, copy("State", "MN", true, false, true) + copy("Federal", "FE", true, true));

    Sync s(co);
    const CVellument& v = *s.v;
    EXPECT_FALSE(v.is_web_service_error());
    ASSERT_EQ(actions(v), (std::vector<ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_STATUS_CHANGE,
                                                   Vellument::ACTION_NONE}));
    const CStatus* closed = v.get_transaction(1)->get_status();
    EXPECT_EQ(closed->get_copy_count(), 4);
    EXPECT_TRUE(find(closed, Vellument::FILING_TYPE_STATE, "MN")->get_deleted_flag());  // the deletion is recorded

    const CStatus* now = v.get_current_status();
    EXPECT_EQ(now->get_copy_count(), 3);
    EXPECT_EQ(find(now, Vellument::FILING_TYPE_STATE, "MN"), nullptr);
    EXPECT_TRUE(find(now, Vellument::FILING_TYPE_FEDERAL, "FE")->get_replaceable_flag());
    EXPECT_NE(find(now, Vellument::FILING_TYPE_EMPLOYER, "FE"), nullptr);
    EXPECT_NE(find(now, Vellument::FILING_TYPE_STATE, "NY"), nullptr);  // not e-filed: carried as it is
    EXPECT_EQ(now->get_filing_options(), 0);                               // a deletion clears the choice
    EXPECT_EQ(now->get_kxn_path(), co.company_dir() + "Drafts\\S.KXN");
    EXPECT_EQ(v.get_current_package()->get_kxn_path(), co.company_dir() + "Drafts\\P.KXN");
    // The notes come from the nearest earlier transaction that has any.
    EXPECT_EQ(v.get_current_dictionary()->at("Note"), "filed");

    // Saved: the file holds the new trail, and reads back without counting as edited.
    CVellument back;
    back.open(co.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(back.get_transaction_count(), 3);

    // Deleted alone on the only copy: Server Deletion.
    Company co2;
    make_trail(co2, copy("Federal", "FE", true));
    server_says(co2, copy("Federal", "FE", true, false, true));
    Sync deleted(co2);
    EXPECT_EQ(deleted.v->get_transaction(1)->get_action(), Vellument::ACTION_SERVER_DELETION);
    EXPECT_EQ(deleted.v->get_current_status()->get_copy_count(), 0);
}

TEST(ServerStatus, ACopyThatCameBackKeepsItsDeletedFlagAndIsSeenAsChangedAgain)
{
    Company co;
    make_trail(co, copy("Federal", "FE", true, false, true));
    server_says(co, copy("Federal", "FE", true));
    Sync first(co);
    // No action for a copy that came back; the closed transaction's copy takes the server's flag,
    // while the new one was copied before that and keeps its own.
    EXPECT_EQ(first.v->get_transaction(1)->get_action(), Vellument::ACTION_NONE);
    EXPECT_FALSE(first.v->get_transaction(1)->get_status()->get_copy_at(0)->get_deleted_flag());
    EXPECT_TRUE(first.v->get_current_status()->get_copy_at(0)->get_deleted_flag());
    first.v.reset();
    Sync again(co);
    EXPECT_EQ(again.v->get_transaction_count(), 4);
}

TEST(ServerStatus, ACopyTheServerLacksIsTakenOutByABugFixAndComesBackWhenKnownAgain)
{
    Company co;
    make_trail(co, copy("Federal", "FE", true) + copy("State", "MN", true) + copy("State", "NY", false) +
                       copy("Review", "", true) + copy("Employer", "FE", false));
    server_says(co, copy("Federal", "FE", true));
    {
        Sync s(co);
        ASSERT_EQ(s.v->get_transaction_count(), 3);
        EXPECT_EQ(s.v->get_transaction(1)->get_action(), Vellument::ACTION_BUG_FIX);
        EXPECT_EQ(s.v->get_transaction(1)->get_status()->get_copy_count(), 5);
        const CStatus* now = s.v->get_current_status();
        // Only the e-filed MN copy goes; Review and Employer copies never count as missing.
        EXPECT_EQ(now->get_copy_count(), 4);
        EXPECT_EQ(find(now, Vellument::FILING_TYPE_STATE, "MN"), nullptr);
        EXPECT_EQ(s.v->get_current_dictionary()->at("Note"), "filed");

        // A bug fix made since the load doesn't feed the recovery: a second call adds nothing.
        s.v->update_status_from_web();
        EXPECT_EQ(s.v->get_transaction_count(), 3);
    }

    // Still unknown to the server: every open and sync repeats the bug fix.
    {
        Sync s(co);
        EXPECT_EQ(actions(*s.v), (std::vector<ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_BUG_FIX,
                                                          Vellument::ACTION_BUG_FIX, Vellument::ACTION_NONE}));
    }

    // Known again: the copy is back in the current status, once, and no transaction is added.
    server_says(co, copy("Federal", "FE", true) + copy("State", "MN", true));
    Sync s(co, false);
    const auto before = co.snapshot();
    s.v->update_status_from_web();
    EXPECT_EQ(s.v->get_transaction_count(), 4);
    const CStatus* now = s.v->get_current_status();
    EXPECT_NE(find(now, Vellument::FILING_TYPE_STATE, "MN"), nullptr);
    EXPECT_EQ(now->get_copy_count(), 5);
    EXPECT_EQ(co.snapshot(), before);  // back in memory only, until the next save
}

TEST(ServerStatus, RecipientsAreEmployeesOnTheServerAndLocalsGoByTheirEfileCodeExceptInTheBugFix)
{
    {
        Ostrel::DatabaseEx reference;
        ASSERT_TRUE(reference.OpenFile(std::getenv("VELLUMENT_REFERENCE_DB"), ""));
        ASSERT_TRUE(reference.Execute("DROP TABLE IF EXISTS LocalList;"));
        ASSERT_TRUE(reference.Execute("CREATE TABLE LocalList (Code TEXT, Name TEXT, EfileCode TEXT);"));
        ASSERT_TRUE(reference.Execute("INSERT INTO LocalList VALUES ('X', 'Xville', 'Y');"));
    }
    Company co;
    const std::string mine = copy("Recipient", "", true) + copy("Local", "X", true) + copy("Federal", "FE", true);
    make_trail(co, mine, "1099-NEC");
    // The server knows the recipients as employees and the locality by its e-file code, with a
    // changed replaceable flag; it lacks the federal copy.
    server_says(co, copy("Employee", "", true) + copy("Local", "Y", true, true));

    Sync s(co);
    // The change is found through the code (a status change), the federal copy is missing (a
    // bug fix after it), and the bug fix looks the locality up as "X": it counts as missing too.
    ASSERT_EQ(actions(*s.v), (std::vector<ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_STATUS_CHANGE,
                                                      Vellument::ACTION_BUG_FIX, Vellument::ACTION_NONE}));
    const CStatus* changed = s.v->get_transaction(2)->get_status();
    EXPECT_TRUE(find(changed, Vellument::FILING_TYPE_LOCAL, "X")->get_replaceable_flag());
    EXPECT_EQ(find(changed, Vellument::FILING_TYPE_FEDERAL, "FE"), nullptr);
    const CStatus* now = s.v->get_current_status();
    ASSERT_EQ(now->get_copy_count(), 1);
    EXPECT_EQ(now->get_copy_at(0)->get_type(), Vellument::FILING_TYPE_RECIPIENT);

    // A W-2 vellument's recipient copy is looked for as a recipient.
    Company w2;
    make_trail(w2, copy("Recipient", "", true));
    server_says(w2, copy("Employee", "", true));
    Sync looked(w2);
    EXPECT_EQ(looked.v->get_transaction(1)->get_action(), Vellument::ACTION_BUG_FIX);
}

TEST(ServerStatus, NothingChangesWithoutAnEfiledCopyOrWithoutAnAnswer)
{
    Company co;
    make_trail(co, copy("Federal", "FE", false) + copy("Review", "", false));
    server_says(co, "");
    {
        Sync s(co, false);
        const auto before = co.snapshot();
        s.v->update_status_from_web();
        EXPECT_EQ(s.v->get_transaction_count(), 2);
        EXPECT_EQ(co.snapshot(), before);
    }

    // An e-filed copy and a service that refuses: a web service error, nothing written, and the
    // copy that the recovery brought back stays in memory only.
    Company down;
    make_trail(down, copy("Federal", "FE", true),  "W-2_SSA",
               transaction("Bug Fix", copy("Federal", "FE", true) + copy("State", "MN", true)));
    Sync s(down, false);
    const auto before = down.snapshot();
    s.v->update_status_from_web();
    EXPECT_TRUE(s.v->is_web_service_error());
    EXPECT_EQ(s.v->get_transaction_count(), 3);
    EXPECT_EQ(s.v->get_current_status()->get_copy_count(), 2);
    EXPECT_EQ(down.snapshot(), before);
    // A test status clears the error; one that doesn't parse is no answer either.
    server_says(down, "<Status><Copy");
    s.v->update_status_from_web();
    EXPECT_FALSE(s.v->is_web_service_error());
    EXPECT_EQ(s.v->get_transaction_count(), 3);
    // Nor is one whose copies, nested in one another, would cost far more to read than its size.
    std::string nested;
    for (int i = 0; i < 20000; ++i)
        nested += "<Copy Type=\"Federal\" Identifier=\"FE\" Efiled=\"true\">";
    for (int i = 0; i < 20000; ++i)
        nested += "</Copy>";
    server_says(down, nested);
    {
        LogCapture log;
        s.v->update_status_from_web();
        EXPECT_EQ(s.v->get_transaction_count(), 3);
        EXPECT_TRUE(log.contains("the file is not read"));
    }
    server_says(down, copy("Federal", "FE", true) + copy("State", "MN", true));
    s.v->update_status_from_web();
    EXPECT_FALSE(s.v->is_web_service_error());
    EXPECT_EQ(s.v->get_transaction_count(), 3);
}

TEST(ServerStatus, T5018IsKeptFromDownloadIn2020And2021Only)
{
    EXPECT_TRUE(skip_download("2021", "T5018"));
    EXPECT_TRUE(skip_download("2020", "T5018"));
    EXPECT_FALSE(skip_download("2022", "T5018"));
    EXPECT_FALSE(skip_download("2021", "T5018_OFFICIAL_FORM"));
    EXPECT_FALSE(skip_download(nullptr, nullptr));
}

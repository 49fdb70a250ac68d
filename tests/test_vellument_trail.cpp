#include <gtest/gtest.h>

#include <stdexcept>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>

#include "company_fixture.h"

using namespace vlmtest;

namespace {

const std::string kFederalW2 =
    "<Copy Type=\"Federal\" Identifier=\"FE\" Printed=\"true\" Efiled=\"true\" Date=\"01/05/2021 00:00:00\">"
    "<History Type=\"W-3\" Form_Name=\"W3\"/>"
    "<History Type=\"W-3\" Form_Name=\"W3b\"/>"
    "<History Type=\"W-2\" Form_Name=\"W2_SSA\" Description=\"Federal W-2\" "
    "Location=\"C:\\Old\\Histories\\~W2A_2021.PDF\" EXMLLocation=\"C:\\Old\\Histories\\w2.xml\"/>"
    "</Copy>";

} // namespace

TEST(VellumentTrail, OrphanedEmployerCopyIsRepaired)
{
    Company co;
    const std::string orphan = transaction(
        "Filing", "<Copy Type=\"Employer\" Printed=\"true\"/><Copy Type=\"State\" Identifier=\"NY\"/>",
        "<Filing Type=\"State\" Identifier=\"NY\"/>", "K=\"1\"");
    co.write_saved(trail("", orphan));
    {
        CVellument v;
        v.open(co.win(kName).c_str(), "", "", "", false, false);
        ASSERT_EQ(actions(v), (std::vector<Vellument::ActionType>{Vellument::ACTION_ORPHAN_EMPLOYER_OR_PAYER,
                                                                   Vellument::ACTION_NONE}));
        const CStatus* status = v.get_current_status();
        EXPECT_EQ(status->get_copy_count(), 1);
        EXPECT_NE(status->get_copy_by_type(Vellument::FILING_TYPE_STATE, "NY"), nullptr);
        EXPECT_EQ(v.get_current_package()->get_filing_count(), 1);  // the package comes along
        EXPECT_TRUE(v.get_current_dictionary()->empty());           // the dictionary doesn't
        EXPECT_EQ(v.get_transaction(0)->get_status()->get_copy_count(), 2);
    }
    EXPECT_TRUE(co.exists("Histories/Vellument_W2_2021.BAK"));
    CVellument saved;
    saved.open(co.win(kName).c_str(), "", "", "", false, true);
    EXPECT_EQ(saved.get_transaction_count(), 2);

    // Never saved by the library as well: the repair is closed again as an edit.
    Company co2;
    co2.write(kDisk, trail("", orphan));
    CVellument v;
    v.open(co2.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(actions(v), (std::vector<Vellument::ActionType>{Vellument::ACTION_ORPHAN_EMPLOYER_OR_PAYER,
                                                               Vellument::ACTION_USER_EDIT, Vellument::ACTION_NONE}));
}

TEST(VellumentTrail, EmployerHistoryFilePresentAddsAnEmployerCopy)
{
    Company co;
    co.write_saved(trail("", transaction("Filing", kFederalW2)));
    // "~W2A_" loses the letters that mark a variant; the disk name's case doesn't matter.
    co.write("Histories/W2_Employer.vlh", "x");

    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(v.get_transaction_count(), 1);
    const CCopy* employer = v.get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_EMPLOYER, "");
    ASSERT_NE(employer, nullptr);
    EXPECT_TRUE(employer->get_printed_flag());
    EXPECT_FALSE(employer->get_efiled_flag());
    // Each removal moves the index on, so the second W-3 slides past the walk and stays.
    ASSERT_EQ(employer->get_history_count(), 2);
    EXPECT_EQ(employer->get_history_at(0)->get_form_name(), "W3b");
    const CHistory* w2 = employer->get_history_at(1);
    EXPECT_EQ(w2->get_form_name(), "W2_EMPLOYER");
    EXPECT_EQ(w2->get_description(), "Employer W-2");
    EXPECT_EQ(w2->get_location(), co.company_dir() + "Histories\\W2_EMPLOYER.VLH");
    EXPECT_EQ(w2->get_exml_location(), "");
    // The federal copy itself is untouched, and the change is on disk.
    EXPECT_EQ(v.get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_FEDERAL, "")->get_history_count(), 3);
    EXPECT_NE(co.read(kDisk).find("Type=\"Employer\""), std::string::npos);
}

TEST(VellumentTrail, PayerHistoryFileOf1099KeepsThePrefix)
{
    Company co;
    co.write_saved(trail("", transaction("Filing", "<Copy Type=\"Federal\" Printed=\"true\">"
                                                    "<History Type=\"1099\" Form_Name=\"1099MISC\" "
                                                    "Location=\"C:\\X\\Histories\\RM99_a.pdf\"/></Copy>")));
    co.write("Histories/RM99_1099MISC_PAYER.VLH", "x");
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    const CCopy* payer = v.get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_PAYER, "");
    ASSERT_NE(payer, nullptr);
    ASSERT_EQ(payer->get_history_count(), 1);
    EXPECT_EQ(payer->get_history_at(0)->get_form_name(), "1099MISC_PAYER");
    EXPECT_EQ(payer->get_history_at(0)->get_description(), "1099 Payer Form");
}

TEST(VellumentTrail, EmployerHistoryFileAbsentStillSaves)
{
    Company co;
    co.write_saved(trail("", transaction("Filing", kFederalW2)));
    const std::string before = co.read(kDisk);
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(v.get_transaction_count(), 1);
    EXPECT_EQ(v.get_current_status()->get_copy_count(), 1);
    // The trail counts as corrected: a backup of the old file, and the file written anew.
    EXPECT_EQ(co.read("Histories/Vellument_W2_2021.BAK"), before);
    EXPECT_NE(co.read(kDisk), before);
    EXPECT_EQ(co.setting(co.key(kName)), md5_hex(co.read(kDisk)));
}

TEST(VellumentTrail, PrintedEmployerCopyBesideFederalChangesNothing)
{
    Company co;
    co.write_saved(trail("", transaction("Filing", kFederalW2 + "<Copy Type=\"Employer\" Printed=\"true\"/>")));
    co.write("Histories/W2_EMPLOYER.VLH", "x");
    const auto before = co.snapshot();
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(v.get_current_status()->get_copy_count(), 2);
    EXPECT_EQ(co.snapshot(), before);
}

TEST(VellumentTrail, CompleteCurrentTransaction)
{
    Company co;
    co.write_saved(trail("FormType=\"W-2_SSA\"",
                         transaction("Filing", "<Copy Type=\"State\" Identifier=\"NY\" Printed=\"true\" "
                                               "Mailed=\"true\" VLID=\"3\"><History Type=\"W-2\"/></Copy>")));
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    CPackage* package = v.get_current_package();
    package->set_package_date(CDateTime(1.0));

    // Printing closes nothing: the caller's action stands, no date is stamped.
    v.get_current_transaction()->set_action(Vellument::ACTION_PRINTING);
    v.complete_current_transaction();
    EXPECT_EQ(v.get_transaction_count(), 1);
    EXPECT_EQ(package->get_package_date().get_days(), 1.0);

    v.get_current_transaction()->set_action(Vellument::ACTION_FILING);
    CFiling* federal = new CFiling();
    federal->set_type(Vellument::FILING_TYPE_FEDERAL);
    federal->set_identifier("FE");
    federal->set_efiled_flag(true);
    federal->set_efiled_successful_flag(true);
    CForm* form = new CForm();
    form->set_type(Vellument::FORM_TYPE_W2);
    federal->add_form(form);
    package->add_filing(federal);

    CFiling* state = new CFiling();  // merged into the existing NY copy
    state->set_type(Vellument::FILING_TYPE_STATE);
    state->set_identifier("NY");
    state->set_efiled_flag(true);
    state->set_replaceable_flag(true);
    state->set_efiled_successful_flag(true);
    state->set_vlid(9);
    package->add_filing(state);

    CFiling* unfinished = new CFiling();  // no result: left out
    unfinished->set_type(Vellument::FILING_TYPE_STATE);
    unfinished->set_identifier("CA");
    package->add_filing(unfinished);

    v.complete_current_transaction();
    ASSERT_EQ(actions(v), (std::vector<Vellument::ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_NONE}));
    EXPECT_NE(package->get_package_date().get_days(), 1.0);
    const CStatus* status = v.get_current_status();
    EXPECT_NE(status, v.get_transaction(0)->get_status());
    EXPECT_EQ(v.get_current_package()->get_filing_count(), 0);
    EXPECT_TRUE(v.get_current_dictionary()->empty());

    const CCopy* fed = status->get_copy_by_type(Vellument::FILING_TYPE_FEDERAL, "");
    ASSERT_NE(fed, nullptr);
    EXPECT_TRUE(fed->get_efiled_flag());
    EXPECT_EQ(fed->get_history_count(), 1);
    const CCopy* ny = status->get_copy_by_type(Vellument::FILING_TYPE_STATE, "NY");
    ASSERT_NE(ny, nullptr);
    EXPECT_TRUE(ny->get_efiled_flag());
    EXPECT_TRUE(ny->get_replaceable_flag());
    EXPECT_FALSE(ny->get_mailed_flag());  // e-filed now, not mailed
    EXPECT_TRUE(ny->get_printed_flag());
    EXPECT_EQ(ny->get_vlid(), 9);
    EXPECT_EQ(status->get_copy_by_type(Vellument::FILING_TYPE_STATE, "CA"), nullptr);
    EXPECT_EQ(v.get_latest_action(Vellument::FILING_TYPE_FEDERAL, nullptr), "eFiled");

    // An employer filing waits for its federal filing to have gone out.
    v.get_current_transaction()->set_action(Vellument::ACTION_FILING);
    CFiling* employer = new CFiling();
    employer->set_type(Vellument::FILING_TYPE_EMPLOYER);
    v.get_current_package()->add_filing(employer);
    v.get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_FEDERAL, "")->set_efiled_flag(false);
    v.complete_current_transaction();
    EXPECT_EQ(v.get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_EMPLOYER, ""), nullptr);
}

TEST(VellumentTrail, ClearStatusAndPackage)
{
    Company co;
    co.write_saved(trail("", transaction("Filing", "<Copy Type=\"Federal\"/>", "<Filing Type=\"Federal\"/>")));
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, true);
    CPackage* old_package = v.get_current_package();
    v.clear_current_package();
    EXPECT_NE(v.get_current_package(), old_package);
    EXPECT_EQ(v.get_current_package()->get_filing_count(), 0);

    v.clear_current_status();
    ASSERT_EQ(actions(v), (std::vector<Vellument::ActionType>{Vellument::ACTION_RELOAD, Vellument::ACTION_NONE}));
    EXPECT_EQ(v.get_current_status()->get_copy_count(), 0);

    CVellument empty;
    EXPECT_EQ(empty.get_current_transaction(), nullptr);
    EXPECT_EQ(empty.get_current_status(), nullptr);
    empty.clear_current_status();
    EXPECT_EQ(empty.get_transaction_count(), 0);
}

TEST(VellumentTrail, LatestActionAndDate)
{
    Company co;
    co.write_saved(trail("", transaction("Filing",
                                         "<Copy Type=\"Local\" Identifier=\"A\" Printed=\"true\" "
                                         "Date=\"02/01/2021 00:00:00\"/>"
                                         "<Copy Type=\"Local\" Identifier=\"B\" Printed=\"true\" Mailed=\"true\" "
                                         "Date=\"03/01/2021 00:00:00\"/>"
                                         "<Copy Type=\"Local\" Identifier=\"C\" Efiled=\"true\"/>"
                                         "<Copy Type=\"State\" Identifier=\"NY\" Printed=\"true\"/>"
                                         "<Copy Type=\"Employee\" Identifier=\"FE\"/>")));
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, true);
    // The identifier plays no part for Local: the newest dated copy answers, the undated never.
    EXPECT_EQ(v.get_latest_action(Vellument::FILING_TYPE_LOCAL, "X"), "Mailed");
    EXPECT_EQ(v.get_latest_date(Vellument::FILING_TYPE_LOCAL, "A"), "03/01/2021");
    EXPECT_EQ(v.get_latest_action(Vellument::FILING_TYPE_STATE, "NY"), "Printed");
    EXPECT_EQ(v.get_latest_date(Vellument::FILING_TYPE_STATE, "NY"), "");  // dated 0, not 12/30/1899
    EXPECT_EQ(v.get_latest_action(Vellument::FILING_TYPE_STATE, "CA"), "");
    EXPECT_EQ(v.get_latest_action(Vellument::FILING_TYPE_EMPLOYEE, nullptr), "");
    EXPECT_EQ(v.get_latest_action(Vellument::FILING_TYPE_REVIEW, ""), "");
    EXPECT_EQ(v.get_latest_action(static_cast<Vellument::FILING_TYPE>(42), ""), "");
}

TEST(VellumentTrail, PackageReadyToEfileAndHistoryLocation)
{
    Company co;
    co.write("Histories/F1.pdf", "x");
    auto open_with = [&](const std::string& package) {
        co.write_saved(trail("", transaction("Filing", "", package)));
        auto v = std::make_unique<CVellument>();
        v->open(co.win(kName).c_str(), "", "", "", false, true);
        return v;
    };
    const std::string form_ok = "<Form Type=\"W-2\" Location=\"C:\\X\\Histories\\F1.pdf\"/>";
    const std::string form_missing = "<Form Type=\"W-2\" EXMLLocation=\"C:\\X\\Histories\\gone.xml\"/>";

    auto v = open_with("<Filing Type=\"Federal\" Efiled=\"true\">" + form_ok + "</Filing>");
    EXPECT_TRUE(v->is_package_ready_to_efile());
    EXPECT_EQ(v->get_history_file_location(), co.company_dir() + "Histories");

    v = open_with("<Filing Type=\"Federal\" Efiled=\"true\">" + form_ok + form_missing + "</Filing>");
    EXPECT_FALSE(v->is_package_ready_to_efile());

    v = open_with("<Filing Type=\"State\">" + form_ok + "</Filing>");  // nothing to e-file
    EXPECT_FALSE(v->is_package_ready_to_efile());
    EXPECT_EQ(v->get_history_file_location(), "");

    v = open_with("<Filing Type=\"Review\"/>");
    EXPECT_THROW(v->get_history_file_location(), std::invalid_argument);
}

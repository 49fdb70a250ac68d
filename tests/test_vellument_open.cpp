#include <gtest/gtest.h>

#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>

#include "company_fixture.h"

using namespace vlmtest;

TEST(VellumentName, BuildFileName)
{
    EXPECT_EQ(CVellument::build_file_name(Vellument::FORM_TYPES_W2, Vellument::EXTENSION_VLM, "2021", ""),
              "Vellument_W2_2021.VLM");
    EXPECT_EQ(CVellument::build_file_name(Vellument::FORM_TYPES_W2, Vellument::EXTENSION_TLM, "2021", "Q"),
              "Vellument_W2_Q_2021.TLM");
    EXPECT_EQ(CVellument::build_file_name(Vellument::FORM_TYPES_W2, static_cast<Vellument::EXTENSION_TYPES>(7),
                                          "2021", nullptr),
              "Vellument_W2_2021");
}

TEST(VellumentOpen, ReadsRootAttributesAndKeepsWhatTheFileHolds)
{
    Company co;
    co.write(kDisk, trail("Version=\"150\" PeriodStart=\"01/01/2020\" PeriodEnd=\"12/31/2020\" RegMode=\"R1\" "
                          "FormType=\"W-2_SSA\" VendorCode=\"V9\" FilingYear=\"2020\" "
                          "ModifiedDate=\"01/02/2003 04:05:06\" FilingEIN=\"\"",
                          "<Dictionary STARTOVER=\"0\" Note=\"x\"/>" + transaction("Filing") +
                              transaction("Bug Fix") + transaction("None")));
    CVellument v;
    v.open(co.win(kName).c_str(), "11-111", "2021", "OTHER", true, true);

    EXPECT_EQ(v.get_vellument_name(), co.key(kName));
    EXPECT_EQ(CPathHandling::get_company_dir(), co.company_dir());
    EXPECT_EQ(v.get_filing_year(), "2020");  // the file wins
    EXPECT_EQ(v.get_vendor_code(), "V9");
    EXPECT_EQ(v.get_filing_ein(), "11-111");  // empty in the file: the argument fills it
    EXPECT_EQ(v.get_form_category(), Vellument::FORM_TYPES_W2);
    EXPECT_EQ(v.get_document_type(), "W-2_SSA");
    EXPECT_EQ(v.get_modified_date().format("%m/%d/%Y %H:%M:%S"), "01/02/2003 04:05:06");
    EXPECT_EQ(v.get_dictionary()->at("Note"), "x");
    EXPECT_EQ(actions(v), (std::vector<Vellument::ActionType>{Vellument::ACTION_FILING, Vellument::ACTION_BUG_FIX,
                                                               Vellument::ACTION_NONE}));
    EXPECT_TRUE(v.get_current_transaction()->get_is_test());
    EXPECT_FALSE(v.get_transaction(0)->get_is_test());
    EXPECT_EQ(v.get_transaction(-1), nullptr);
    EXPECT_EQ(v.get_transaction(3), nullptr);

    attributeDicList row = v.getAndFillMap();
    ASSERT_EQ(row.size(), 9u);
    EXPECT_EQ(row[0].attributeValue, "200");
    EXPECT_EQ(row[6].attributeValue, "2020");
    EXPECT_EQ(row[7].attributeValue, "01/02/2003 04:05:06");
    EXPECT_EQ(row[8].attributeValue, "11-111");

    // The setter keeps the case it is given; saving writes the version as 200.
    v.set_vellument_name(co.win("Drafts\\Copy.xml").c_str());
    EXPECT_EQ(v.get_vellument_name(), co.win("Drafts\\Copy.xml"));
    ASSERT_NE(v.save(nullptr), 0);
    EXPECT_NE(co.read("Drafts/Copy.xml").find("Version=\"200\""), std::string::npos);
}

TEST(VellumentOpen, DraftsFolderGivesTheCompanyDirectory)
{
    Company co;
    CVellument v;
    v.open(co.win("Drafts\\Vellument_W2_2021.TLM").c_str(), "", "", "", false, true);
    EXPECT_EQ(CPathHandling::get_company_dir(), co.company_dir());
}

TEST(VellumentOpen, MissingOrMalformedFileGivesOneFreshTransaction)
{
    Company co;
    {
        CVellument v;
        v.open(co.win(kName).c_str(), "E", "2021", "V", false, false);
        ASSERT_EQ(v.get_transaction_count(), 1);
        EXPECT_EQ(v.get_current_transaction()->get_action(), Vellument::ACTION_NONE);
        EXPECT_EQ(v.get_current_status()->get_copy_count(), 0);
        EXPECT_FALSE(v.is_work_in_progress());
        EXPECT_TRUE(co.snapshot().empty());  // nothing to save: no file, no hash
    }
    const std::string junk = "<AuditTrail><Transaction";
    co.write("Histories/Vellument_W2_2021.TLM", junk);
    co.write(kDisk, junk);
    const auto before = co.snapshot();
    for (const char* name : {"Histories\\Vellument_W2_2021.TLM", kName}) {
        // Neither a test-mode file nor a read-only open is hashed or saved.
        CVellument v;
        v.open(co.win(name).c_str(), "", "", "", false, std::string(name) == kName);
        EXPECT_EQ(v.get_transaction_count(), 1);
    }
    EXPECT_EQ(co.snapshot(), before);

    // A live file that the library never saved counts as edited: the fresh trail is closed as
    // such and written, and the unreadable bytes are kept in the backup.
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(actions(v), (std::vector<Vellument::ActionType>{Vellument::ACTION_USER_EDIT, Vellument::ACTION_NONE}));
    EXPECT_EQ(co.read("Histories/Vellument_W2_2021.BAK"), junk);
    CVellument again;
    again.open(co.win(kName).c_str(), "", "", "", false, true);
    EXPECT_EQ(again.get_transaction_count(), 2);
}

TEST(VellumentOpen, RecordsAreFoundAtAnyDepthUnlessTheReadingCostRunsAway)
{
    // Each record collects its own kind at any depth: a filing inside a filing is two filings of
    // the package, and the outer filing holds both forms.
    Company co;
    co.write(kDisk, trail("", "<Transaction Action=\"Filing\"><Package><Filing Identifier=\"A\"><Form/>"
                              "<Filing Identifier=\"B\"><Form/></Filing></Filing></Package>"
                              "<Status><Copy Identifier=\"A\"><Copy Identifier=\"B\"/></Copy></Status>"
                              "<Transaction Action=\"Bug Fix\"><Package/><Status/></Transaction></Transaction>"));
    CVellument nested;
    nested.open(co.win(kName).c_str(), "", "", "", false, true);
    ASSERT_EQ(nested.get_transaction_count(), 2);
    const CPackage* package = nested.get_transaction(0)->get_package();
    ASSERT_EQ(package->get_filing_count(), 2);
    EXPECT_EQ(package->get_filing_at(0)->get_identifier(), "A");
    EXPECT_EQ(package->get_filing_at(0)->get_form_count(), 2);
    EXPECT_EQ(package->get_filing_at(1)->get_identifier(), "B");
    EXPECT_EQ(nested.get_transaction(0)->get_status()->get_copy_count(), 2);
    EXPECT_EQ(nested.get_transaction(1)->get_action(), Vellument::ACTION_BUG_FIX);

    // 30,000 filings inside one another would each read all below them again: minutes and
    // gigabytes. Such a file is refused, with a line in the log, before any of it is read.
    std::string deep;
    for (int i = 0; i < 30000; ++i)
        deep += "<Filing Type=\"Federal\">";
    deep += "<Form/>";
    for (int i = 0; i < 30000; ++i)
        deep += "</Filing>";
    co.write(kDisk, trail("", "<Transaction Action=\"Filing\"><Package>" + deep + "</Package></Transaction>"));

    LogCapture log;
    CVellument hostile;
    hostile.open(co.win(kName).c_str(), "", "", "", false, true);
    ASSERT_EQ(hostile.get_transaction_count(), 1);
    EXPECT_EQ(hostile.get_current_package()->get_filing_count(), 0);
    EXPECT_TRUE(log.contains("the file is not read"));
}

TEST(VellumentOpen, DocumentWithoutTransactionThrowsZero)
{
    Company co;
    co.write(kDisk, trail("FormType=\"W-2_SSA\"", "<Dictionary A=\"1\"/>"));
    for (bool read_only : {true, false}) {
        CVellument v;
        try {
            v.open(co.win(kName).c_str(), "", "", "", false, read_only);
            ADD_FAILURE() << "no exception";
        } catch (int code) {
            EXPECT_EQ(code, 0);
        }
    }
}

TEST(VellumentOpen, EditBehindTheLibrarysBackIsFoundByTheHash)
{
    Company co;
    co.write_saved(trail("FormType=\"W-2_SSA\"",
                         transaction("Filing", "<Copy Type=\"State\" Identifier=\"NY\" Printed=\"true\"/>", "",
                                     "K=\"v\"")));
    {
        // Unchanged since the last save: the trail stays as it is and nothing is written.
        const auto before = co.snapshot();
        CVellument v;
        v.open(co.win(kName).c_str(), "", "", "", false, false);
        EXPECT_EQ(v.get_transaction_count(), 1);
        EXPECT_EQ(co.snapshot(), before);
    }

    std::string edited = co.read(kDisk);
    edited.replace(edited.find("NY"), 2, "NJ");
    co.write(kDisk, edited);
    {
        CVellument v;
        v.open(co.win(kName).c_str(), "", "", "", false, false);
        ASSERT_EQ(actions(v), (std::vector<Vellument::ActionType>{Vellument::ACTION_USER_EDIT, Vellument::ACTION_NONE}));
        // The new transaction carries the dictionary and the status, not the package.
        EXPECT_EQ(v.get_current_dictionary()->at("K"), "v");
        EXPECT_NE(v.get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_STATE, "NJ"), nullptr);
        EXPECT_NE(v.get_current_status(), v.get_transaction(0)->get_status());
        EXPECT_TRUE(v.is_work_in_progress());
    }
    EXPECT_EQ(co.read("Histories/Vellument_W2_2021.BAK"), edited);
    // The rewritten file is what the settings file now knows, so the next open adds nothing.
    EXPECT_EQ(co.setting(co.key(kName)), md5_hex(co.read(kDisk)));
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(v.get_transaction_count(), 2);
}

TEST(VellumentOpen, ReadOnlyOpenTouchesNothing)
{
    Company co;
    // Edited since the last save, and with an orphaned employer copy: a normal open would write.
    co.write(kDisk, trail("", transaction("Filing", "<Copy Type=\"Employer\" Printed=\"true\"/>")));
    co.write("Histories/Vellument.INI", "[VELLUMENT]\r\n" + co.key(kName) + "=0123\r\n");
    const auto before = co.snapshot();
    LogCapture log;
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, true);
    EXPECT_EQ(v.get_transaction_count(), 1);
    EXPECT_EQ(co.snapshot(), before);
    EXPECT_FALSE(log.contains("Server Hash"));
}

TEST(VellumentOpen, FormTypeComesFromTheCodeBetweenUnderscores)
{
    Company co;
    struct Case {
        const char* name;
        const char* form_type;
    } cases[] = {
        {"Histories\\Vellument_W2_2021.VLM", "W-2_SSA"},
        {"Histories\\Vellument_M_Q_2021.VLM", "1099-MISC"},  // the qualifier doesn't hide the code
        {"Histories\\Vellument_2021.VLM", ""},
    };
    for (const Case& c : cases) {
        LogCapture log;
        CVellument v;
        v.open(co.win(c.name).c_str(), "", "", "", false, false);
        EXPECT_TRUE(log.contains(std::string("[Vellument] The Form Type = ") + c.form_type + "\n")) << c.name;
    }
    // An underscore in a directory takes part in the walk, and the text found is no code.
    testutil::write_file(co.disk("My_Data/x"), "");
    LogCapture log;
    CVellument v;
    v.open(co.win("My_Data\\Vellument_W2_2021.VLM").c_str(), "", "", "", false, false);
    EXPECT_TRUE(log.contains("[Vellument] The Form Type = \n"));

    // Without any underscore the code can't be found at all.
    CVellument bad;
    EXPECT_THROW(bad.open(co.win("Histories\\Plain.VLM").c_str(), "", "", "", false, false), std::invalid_argument);
}

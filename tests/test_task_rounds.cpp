// Whole rounds through real files: the library writes the viewer task list, the test plays the
// Viewer by editing that file as a separate program would, and the library reads the results back;
// then the e-file list, the e-file outcome, completion and save.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>

#include "company_fixture.h"

using namespace vlmtest;
using Vellument::FILING_TYPE;
using Vellument::FORM_TYPE;

namespace {

// What the Viewer writes into one task; a null text leaves that attribute out.
struct Result {
    const char* code;
    const char* printed;
};
const Result kPrinted{"Succeeded", "Y"};

// The Viewer's answers, with attributes of its own vocabulary, written after each task's number.
void play_viewer(const std::string& disk_path, const std::map<int, Result>& results)
{
    std::string text = testutil::read_file(disk_path);
    for (const auto& entry : results) {
        const std::string anchor = "TaskNum=\"" + std::to_string(entry.first) + "\"";
        const std::string::size_type at = text.find(anchor);
        ASSERT_NE(at, std::string::npos) << anchor;
        std::string added = " PrintMode=\"Duplex\" InfoMessage=\"a &amp; b\"";
        if (entry.second.code != nullptr)
            added += std::string(" ResultCode=\"") + entry.second.code + "\"";
        if (entry.second.printed != nullptr)
            added += std::string(" ResultPrinted=\"") + entry.second.printed + "\"";
        text.insert(at + anchor.size(), added);
    }
    testutil::write_file(disk_path, text);
}

CForm* make_form(FORM_TYPE type, const std::string& description, const std::string& name = "")
{
    CForm* form = new CForm();
    form->set_type(type);
    form->set_description(description);
    form->set_form_name(name.empty() ? description : name);
    return form;
}

CFiling* make_filing(FILING_TYPE type, const char* identifier, bool printed, bool efiled, std::vector<CForm*> forms)
{
    CFiling* filing = new CFiling();
    filing->set_type(type);
    filing->set_identifier(identifier);
    filing->set_printed_flag(printed);
    filing->set_efiled_flag(efiled);
    for (CForm* form : forms)
        filing->add_form(form);
    return filing;
}

// A saved W-2 vellument of the test company, opened for a Filing run.
class Rounds : public ::testing::Test {
protected:
    void SetUp() override
    {
        co.write_saved(trail("FormType=\"W-2_SSA\" FilingYear=\"2021\"", transaction("None")));
        v.open(co.win(kName).c_str(), "", "2021", "", false, false);
        ASSERT_EQ(v.get_transaction_count(), 1);
        v.get_current_transaction()->set_action(Vellument::ACTION_FILING);
    }
    CPackage* package() const { return v.get_current_package(); }
    CFiling* add(CFiling* filing) const
    {
        package()->add_filing(filing);
        return filing;
    }
    std::string list_win() const { return co.win("Histories\\ViewerTasks.xml"); }
    std::string list_disk() const { return co.resolve("Histories/ViewerTasks.xml"); }
    bool run_viewer(const std::map<int, Result>& results)
    {
        v.create_viewer_task_list(list_win().c_str(), false);
        play_viewer(list_disk(), results);
        return v.update_from_viewer_task_list(list_win().c_str());
    }

    Company co;
    CVellument v;
};

} // namespace

TEST_F(Rounds, FilingRoundFromListToSavedTrail)
{
    CForm* fed_w2 = make_form(Vellument::FORM_TYPE_W2, "federal W-2 copy A", "W2_SSA");
    fed_w2->set_payer_kind_string("K");
    fed_w2->set_exml_location("C:\\Old\\Histories\\w2.xml");
    CForm* employer_w2 = make_form(Vellument::FORM_TYPE_W2, "Employer W-2");
    CForm* local_w3 = make_form(Vellument::FORM_TYPE_W3, "Local W-3", "LW3");
    CForm* notice = make_form(Vellument::FORM_TYPE_NOTICE, "Notice to employee");
    CFiling* federal = add(make_filing(Vellument::FILING_TYPE_FEDERAL, "FE", false, true,
                                       {make_form(Vellument::FORM_TYPE_W3, "Federal W-3", "W3"), fed_w2}));
    CFiling* employer = add(make_filing(Vellument::FILING_TYPE_EMPLOYER, "", true, false, {employer_w2}));
    CFiling* ny = add(make_filing(Vellument::FILING_TYPE_STATE, "NY", true, false,
                                  {make_form(Vellument::FORM_TYPE_W2, "NY W-2"), make_form(Vellument::FORM_TYPE_W3, "NY W-3")}));
    CFiling* local = add(make_filing(Vellument::FILING_TYPE_LOCAL, "2044", false, true,
                                     {make_form(Vellument::FORM_TYPE_W2, "Local W-2"), local_w3}));
    CFiling* employee = add(make_filing(Vellument::FILING_TYPE_EMPLOYEE, "", true, false,
                                        {make_form(Vellument::FORM_TYPE_W2, "Employee W-2"), notice}));
    package()->set_filing_options(Vellument::PACKAGE_CHOICE_FEDERAL | Vellument::PACKAGE_CHOICE_STATE);

    // The employer's own task (3) gets no answer: the two printed federal forms carry it.
    v.create_viewer_task_list(list_win().c_str(), false);
    EXPECT_EQ(notice->get_task_number(), 9);
    play_viewer(list_disk(), {{1, kPrinted}, {2, kPrinted}, {3, {nullptr, nullptr}}, {4, {"Succeeded", "y"}},
                              {5, {"Succeeded", "y"}}, {6, {"Succeeded", "N"}}, {7, {"Succeeded", nullptr}},
                              {8, kPrinted}, {9, {"Succeeded", "n"}}});
    const std::string answered = testutil::read_file(list_disk());
    EXPECT_TRUE(v.update_from_viewer_task_list(list_win().c_str()));
    EXPECT_EQ(testutil::read_file(list_disk()), answered);  // the Viewer's file is only read
    EXPECT_TRUE(package()->get_call_efiler_flag());

    // Paper from an e-file-only filing doesn't count; lower-case "y" does; a notice counts unflagged.
    EXPECT_EQ(federal->get_print_success_count(), 0);
    EXPECT_TRUE(fed_w2->get_result_printed());
    EXPECT_EQ(fed_w2->get_viewer_result_code(), "Succeeded");
    EXPECT_TRUE(employer_w2->get_printed_successful_flag() && employer_w2->get_result_printed());
    EXPECT_EQ(employer_w2->get_viewer_result_code(), "");
    EXPECT_TRUE(employer->get_printed_successful_flag());
    EXPECT_EQ(employer->get_print_success_count(), 1);
    EXPECT_TRUE(ny->get_printed_successful_flag() && ny->get_form_at(1)->get_printed_successful_flag());
    EXPECT_EQ(ny->get_print_success_count(), 2);
    EXPECT_EQ(local->get_print_success_count(), 0);
    EXPECT_TRUE(employee->get_printed_successful_flag());
    EXPECT_EQ(employee->get_print_success_count(), 2);
    EXPECT_FALSE(notice->get_printed_successful_flag());

    v.create_efile_task_list(co.win("Histories\\Efile.xml").c_str());
    const std::string efile = co.read("Histories/Efile.xml");
    EXPECT_NE(efile.find("<root efilechoice=\"3\">"), std::string::npos) << efile;
    EXPECT_NE(efile.find("<history path=\"" + co.company_dir() +
                         "Histories\\w2.xml\" stateabbr=\"\" formname=\"KW2_SSA\" />"),
              std::string::npos);
    EXPECT_NE(efile.find("<state abbr=\"ZZ\" />"), std::string::npos);
    EXPECT_NE(efile.find("<history path=\"\" stateabbr=\"2044\" formname=\"LW3\" />"), std::string::npos);
    EXPECT_EQ(efile.find("abbr=\"NY\""), std::string::npos);

    v.update_efile_status(true, 4711, "12.50");
    EXPECT_EQ(package()->get_invoice_amount(), "12.50");
    EXPECT_EQ(local->get_vlid(), 4711);
    EXPECT_TRUE(local_w3->get_efiled_successful_flag());
    EXPECT_EQ(ny->get_vlid(), 0);
    v.complete_current_transaction();
    ASSERT_NE(v.save(nullptr), 0);

    CVellument back;
    back.open(co.win(kName).c_str(), "", "", "", false, true);
    ASSERT_EQ(back.get_transaction_count(), 2);
    EXPECT_EQ(back.get_latest_action(Vellument::FILING_TYPE_FEDERAL, ""), "eFiled");
    EXPECT_EQ(back.get_latest_action(Vellument::FILING_TYPE_STATE, "NY"), "Printed");
    EXPECT_EQ(back.get_latest_action(Vellument::FILING_TYPE_EMPLOYEE, ""), "Printed");
    EXPECT_EQ(back.get_latest_action(Vellument::FILING_TYPE_EMPLOYER, ""), "Printed");
    const CCopy* local_copy = back.get_current_status()->get_copy_by_type(Vellument::FILING_TYPE_LOCAL, "2044");
    ASSERT_NE(local_copy, nullptr);
    EXPECT_EQ(local_copy->get_vlid(), 4711);
    EXPECT_TRUE(back.get_transaction(0)->get_package()->get_filing_at(2)->get_form_at(0)->get_result_printed());

    // Task numbers live in memory only: on a reopened trail no task finds a form.
    back.get_current_package()->add_filing(
        make_filing(Vellument::FILING_TYPE_EMPLOYEE, "", true, false, {make_form(Vellument::FORM_TYPE_W2, "x")}));
    EXPECT_TRUE(back.update_from_viewer_task_list(list_win().c_str()));
    EXPECT_EQ(back.get_current_package()->get_filing_at(0)->get_print_success_count(), 0);
}

TEST_F(Rounds, HowOneFormCounts)
{
    const Vellument::ActionType filing = Vellument::ACTION_FILING, correction = Vellument::ACTION_CORRECTION;
    const FILING_TYPE employee = Vellument::FILING_TYPE_EMPLOYEE;
    struct Case {
        Vellument::ActionType action;
        FILING_TYPE filing_type;
        bool records;
        bool filing_printed;
        FORM_TYPE form_type;
        Result result;
        bool all_ok;
        bool counted;
        bool form_flag;
    };
    const std::vector<Case> cases = {
        {filing, employee, false, true, Vellument::FORM_TYPE_W2, kPrinted, true, true, true},
        {filing, employee, false, true, Vellument::FORM_TYPE_W2, {"Succeeded", "N"}, true, false, false},
        {filing, employee, false, false, Vellument::FORM_TYPE_W2, kPrinted, true, false, false},
        {filing, employee, false, true, Vellument::FORM_TYPE_W2, {"succeeded", "Y"}, false, false, false},
        {correction, employee, false, true, Vellument::FORM_TYPE_W2C, {"Succeeded", "N"}, true, true, true},
        {filing, employee, false, true, Vellument::FORM_TYPE_W2C, {"Succeeded", "N"}, true, false, false},
        {correction, Vellument::FILING_TYPE_STATE, false, true, Vellument::FORM_TYPE_W2C, {"Succeeded", "N"}, true,
         false, false},
        {filing, employee, false, true, Vellument::FORM_TYPE_NOTICE, {"Error", "N"}, false, true, false},
        {filing, employee, false, false, Vellument::FORM_TYPE_INSTRUCTIONS, {"Cancelled", nullptr}, false, true, true},
        {filing, employee, false, true, Vellument::FORM_TYPE_DIVIDER, kPrinted, true, true, false},
        {filing, employee, false, true, Vellument::FORM_TYPE_DIVIDER, {"Error", "Y"}, false, false, false},
        {filing, Vellument::FILING_TYPE_EMPLOYER, false, true, Vellument::FORM_TYPE_W2, kPrinted, true, false, false},
        {filing, Vellument::FILING_TYPE_FEDERAL, true, true, Vellument::FORM_TYPE_W2, kPrinted, true, true, true},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(i);
        v.clear_current_package();
        v.get_current_transaction()->set_action(c.action);
        CForm* form = make_form(c.form_type, "W-2 copy");
        CFiling* filing = add(make_filing(c.filing_type, "", c.filing_printed, false, {form}));
        filing->set_records_flag(c.records);

        EXPECT_EQ(run_viewer({{1, c.result}}), c.all_ok);
        EXPECT_EQ(form->get_viewer_result_code(), c.result.code != nullptr ? c.result.code : "");
        EXPECT_EQ(filing->get_print_success_count(), c.counted ? 1 : 0);
        // One form: counting it completes the filing, whatever the form's own flag.
        EXPECT_EQ(c.records ? filing->get_records_successful_flag() : filing->get_printed_successful_flag(), c.counted);
        EXPECT_EQ(form->get_records_successful_flag(), c.records && c.form_flag);
        EXPECT_EQ(form->get_printed_successful_flag(), !c.records && c.form_flag);
        EXPECT_FALSE(package()->get_call_efiler_flag());  // nothing to e-file
    }

    // A count taken past the form count (counted before, or the list applied twice) sets no flag.
    v.clear_current_package();
    CFiling* twice = add(make_filing(employee, "", true, false, {make_form(Vellument::FORM_TYPE_W2, "w")}));
    twice->set_print_success_count(1);
    EXPECT_TRUE(run_viewer({{1, kPrinted}}));
    EXPECT_EQ(twice->get_print_success_count(), 2);
    EXPECT_FALSE(twice->get_printed_successful_flag());
    twice->set_print_success_count(0);
    v.update_from_viewer_task_list(list_win().c_str());
    v.update_from_viewer_task_list(list_win().c_str());
    EXPECT_EQ(twice->get_print_success_count(), 2);
    EXPECT_TRUE(twice->get_printed_successful_flag());  // set the first time, never cleared
}

TEST_F(Rounds, ExactlyTwoPrintedFederalFormsCarryTheEmployerAndPayerCopies)
{
    for (int federal_printed = 1; federal_printed <= 3; ++federal_printed) {
        SCOPED_TRACE(federal_printed);
        v.clear_current_package();
        add(make_filing(Vellument::FILING_TYPE_FEDERAL, "FE", false, true,
                        {make_form(Vellument::FORM_TYPE_W3, "FEDERAL W-3"), make_form(Vellument::FORM_TYPE_W2, "federal"),
                         make_form(Vellument::FORM_TYPE_W2, "Federal copy 1")}));
        CForm* employer_w2 = make_form(Vellument::FORM_TYPE_W2, "employer's W-2");
        CForm* employer_notice = make_form(Vellument::FORM_TYPE_NOTICE, "Employer notice");
        CFiling* employer = add(make_filing(Vellument::FILING_TYPE_EMPLOYER, "", true, false, {employer_w2, employer_notice}));
        CForm* payer_1099 = make_form(Vellument::FORM_TYPE_1099, "Payer 1099");
        CFiling* payer = add(make_filing(Vellument::FILING_TYPE_PAYER, "", true, false, {payer_1099}));
        payer->set_records_flag(true);

        std::map<int, Result> results;
        for (int task = 1; task <= 3; ++task)
            results[task] = {"Succeeded", task <= federal_printed ? "Y" : "N"};
        results[4] = {"Failed", "N"};  // the employer's own task: the rule doesn't look at it
        EXPECT_FALSE(run_viewer(results));
        EXPECT_FALSE(package()->get_call_efiler_flag());  // a failure, though a filing is to be e-filed

        const bool carried = federal_printed == 2;
        EXPECT_EQ(employer->get_print_success_count(), carried ? 3 : 1);  // the notice counts twice
        EXPECT_EQ(employer->get_printed_successful_flag(), carried);
        EXPECT_EQ(employer_w2->get_printed_successful_flag(), carried);
        EXPECT_EQ(employer_w2->get_result_printed(), carried);
        EXPECT_FALSE(employer_notice->get_printed_successful_flag() || employer_notice->get_result_printed());
        EXPECT_EQ(payer->get_records_successful_flag(), carried);
        EXPECT_EQ(payer_1099->get_records_successful_flag(), carried);
        EXPECT_FALSE(payer_1099->get_printed_successful_flag());
    }
}

TEST_F(Rounds, ListsThatGiveNoResultChangeNothing)
{
    const std::string head = "<ViewerTasks Category=\"W2\" Subcategory=\"US\">";
    const std::string done = "<Task TaskNum=\"1\" ResultCode=\"Succeeded\" ResultPrinted=\"Y\"/>";
    struct Case {
        std::string text;  // empty: no file
        bool result;
        bool applied;  // task 1 reached its form
    };
    const std::vector<Case> cases = {
        {"", false, false},
        {head + "<Task TaskNum=\"1\" ResultCode=\"Succeeded\"", false, false},
        {std::string("\0\xff<Task", 7), false, false},
        {head + "<Task TaskNum=\"2\" ResultCode=\"Succeeded\"/></ViewerTasks>", false, false},
        // Damaged results that a lenient parser would take for a list of successes.
        {head + "<Task TaskNum=\"1\" TaskNum=\"1\" ResultCode=\"Succeeded\" ResultPrinted=\"Y\"/></ViewerTasks>", false,
         false},
        {head + done + "</ViewerTasks><ViewerTasks/>", false, false},
        {head + done + "</ViewerTasks>trailing", false, false},
        {head + "<Task TaskNum=\"1\" ResultCode=\"Succeeded\" InfoMessage=\"&bogus; & <\"/></ViewerTasks>", false,
         false},
        {head + "<Task TaskNum=\"1\" ResultCode=\"Succeeded\" InfoMessage=\"&#1;\"/></ViewerTasks>", false, false},
        // Tasks in a namespace are no tasks to //Task.
        {"<ViewerTasks xmlns=\"urn:x\">" + done + "</ViewerTasks>", false, false},
        {head + done + "<Task TaskNum=\"3\" ResultCode=\"Failed\"/></ViewerTasks>", false, true},
        {head + done + "<Task TaskNum=\"2147483647\"/><Task TaskNum=\"-1\"/><Task TaskNum=\"2\"/></ViewerTasks>", true,
         true},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        v.clear_current_package();
        CForm* first = make_form(Vellument::FORM_TYPE_W2, "first");
        CForm* third = make_form(Vellument::FORM_TYPE_W2, "third");
        first->set_task_number(1);
        third->set_task_number(3);
        third->set_viewer_result_code("old");
        CFiling* filing = add(make_filing(Vellument::FILING_TYPE_EMPLOYEE, "", true, false, {first, third}));
        package()->set_call_efiler_flag(true);
        std::filesystem::remove(list_disk());
        if (!cases[i].text.empty())
            testutil::write_file(list_disk(), cases[i].text);

        EXPECT_EQ(v.update_from_viewer_task_list(list_win().c_str()), cases[i].result);
        EXPECT_EQ(first->get_viewer_result_code(), cases[i].applied ? "Succeeded" : "");
        EXPECT_EQ(third->get_viewer_result_code(), "old");  // behind a gap, or named by no task
        EXPECT_EQ(filing->get_print_success_count(), cases[i].applied ? 1 : 0);
        EXPECT_EQ(package()->get_call_efiler_flag(), !cases[i].applied);  // untouched without a task 1
    }
}

TEST_F(Rounds, EfileListAndOutcomeByFilingType)
{
    CForm* federal_1099 = make_form(Vellument::FORM_TYPE_1099, "Federal 1099", "1099");
    federal_1099->set_payer_kind_string("NEC");
    CFiling* oh = add(make_filing(Vellument::FILING_TYPE_STATE, "OH", false, true, {make_form(Vellument::FORM_TYPE_W2, "W2")}));
    add(make_filing(Vellument::FILING_TYPE_EMPLOYEE, "", false, true, {make_form(Vellument::FORM_TYPE_W2, "EW2")}));
    add(make_filing(Vellument::FILING_TYPE_RECIPIENT, "", false, true, {make_form(Vellument::FORM_TYPE_1099, "R")}));
    add(make_filing(Vellument::FILING_TYPE_STATE, "NY", false, true,
                    {make_form(Vellument::FORM_TYPE_W2C, "W2C"), make_form(Vellument::FORM_TYPE_W3, "NYW3")}));
    add(make_filing(Vellument::FILING_TYPE_FEDERAL, "FE", false, true, {federal_1099}));
    add(make_filing(Vellument::FILING_TYPE_REVIEW, "", false, true, {make_form(Vellument::FORM_TYPE_1096, "R96")}));
    CFiling* kept = add(make_filing(Vellument::FILING_TYPE_FEDERAL, "FE", true, false, {make_form(Vellument::FORM_TYPE_W2, "No")}));
    add(make_filing(Vellument::FILING_TYPE_UNKNOWN, "??", false, true, {make_form(Vellument::FORM_TYPE_W2, "Odd")}));
    package()->set_filing_options(Vellument::PACKAGE_CHOICE_COMPLETE | Vellument::PACKAGE_CHOICE_LOCAL);

    v.create_efile_task_list(co.win("Histories\\Efile.xml").c_str());
    EXPECT_EQ(co.read("Histories/Efile.xml"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root efilechoice=\"31\">\n"
              "\t<state abbr=\"OH\" />\n\t<state abbr=\"NY\" />\n"
              "\t<history path=\"\" stateabbr=\"NY\" formname=\"NYW3\" />\n"
              "\t<history path=\"\" stateabbr=\"\" formname=\"NEC1099\" />\n"
              "\t<history path=\"\" stateabbr=\"\" formname=\"R96\" />\n</root>\n");
    LogCapture log;
    v.create_efile_task_list(co.win("NoSuchFolder\\Deeper\\Efile.xml").c_str());
    EXPECT_TRUE(log.contains("[Vellument] Save error = "));

    // A failed step changes nothing; a later success stands alone.
    package()->set_invoice_amount("old");
    v.update_efile_status(false, 99, "1.00");
    EXPECT_EQ(package()->get_invoice_amount(), "old");
    EXPECT_FALSE(oh->get_efiled_successful_flag());
    v.update_efile_status(true, 0, nullptr);
    EXPECT_EQ(package()->get_invoice_amount(), "");
    EXPECT_TRUE(oh->get_efiled_successful_flag() && oh->get_replaceable_flag());
    EXPECT_TRUE(oh->get_form_at(0)->get_efiled_successful_flag());
    EXPECT_FALSE(kept->get_efiled_successful_flag() || kept->get_replaceable_flag());
    EXPECT_FALSE(kept->get_form_at(0)->get_efiled_successful_flag());
    v.update_efile_status(true, 31337, "5.00");
    EXPECT_EQ(oh->get_vlid(), 31337);
    EXPECT_EQ(kept->get_vlid(), 0);
}

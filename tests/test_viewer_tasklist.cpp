#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/CViewerTaskList.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/TaskListFunctions.h>

#include "company_fixture.h"

using namespace vlmtest;
using Vellument::FORM_TYPE;

namespace {

typedef std::vector<std::pair<std::string, std::string>> Attributes;

Attributes attributes_of(COXMLNode* node)
{
    Attributes result;
    std::shared_ptr<COXMLNamedNodeMap> map = node->attributes();
    for (int i = 0; i < map->length(); ++i)
        result.emplace_back(map->item(i)->nodeName(), map->item(i)->getText());
    return result;
}

// A list file read back: the root's attributes, then each Task's, in document order.
struct ListFile {
    Attributes root;
    std::vector<Attributes> tasks;
    explicit ListFile(const std::string& disk_path)
    {
        std::unique_ptr<COXMLDocument> doc(COXMLDocument::load(disk_path.c_str(), nullptr, nullptr, 0));
        if (!doc)
            throw std::runtime_error("no list file");
        root = attributes_of(doc->getDocumentElement());
        std::shared_ptr<COXMLNodeList> list = doc->getElementsByTagName("Task");
        for (int i = 0; i < list->length(); ++i)
            tasks.push_back(attributes_of(list->item(i)));
    }
    std::vector<std::string> all(const std::string& name) const
    {
        std::vector<std::string> values;
        for (const Attributes& task : tasks) {
            auto at = std::find_if(task.begin(), task.end(), [&](const auto& a) { return a.first == name; });
            values.push_back(at == task.end() ? "-" : at->second);
        }
        return values;
    }
};

CForm* make_form(FORM_TYPE type, const std::string& name, bool special = false)
{
    CForm* form = new CForm();
    form->set_type(type);
    form->set_form_name(name);
    form->set_description(name);
    form->set_special_paper(special);
    form->set_paper_warning(name.empty() ? "" : "load " + name);
    form->set_task_number(99);
    return form;
}

CFiling* make_filing(Vellument::FILING_TYPE type, const char* identifier, std::vector<CForm*> forms)
{
    CFiling* filing = new CFiling();
    filing->set_type(type);
    filing->set_identifier(identifier);
    for (CForm* form : forms)
        filing->add_form(form);
    return filing;
}

// A W-2 vellument of the test company with its one fresh transaction.
class Listing : public ::testing::Test {
protected:
    void SetUp() override
    {
        v.open(co.win(kName).c_str(), "", "2021", "", false, true);
        v.set_form_type_string("W-2_SSA");
    }
    ListFile write(bool reprint)
    {
        v.create_viewer_task_list(co.win("Histories\\Tasks.xml").c_str(), reprint);
        return ListFile(co.resolve("Histories/Tasks.xml"));
    }
    Company co;
    CVellument v;
};

} // namespace

TEST(ViewerTaskListClass, SelectAndResultsAnswerAsTheQueriesDo)
{
    struct Case {
        std::string text;  // empty: no file at all
        bool loads;
        std::vector<int> walk;
        bool all_succeeded;
    };
    const std::string head = "<ViewerTasks Category=\"W2\">";
    const std::vector<Case> cases = {
        {"", false, {}, true},
        {head + "<Task TaskNum=\"1\">", false, {}, true},
        {head + "</ViewerTasks>", true, {}, true},
        // A gap ends the walk; the result check still sees the task behind it.
        {head + "<Task TaskNum=\"1\" ResultCode=\"Succeeded\"/><Task TaskNum=\"2\"/>"
                "<Task TaskNum=\"4\" ResultCode=\"Aborted\"/></ViewerTasks>",
         true, {1, 2}, false},
        {head + "<Task TaskNum=\"1\" ResultCode=\"succeeded\"/></ViewerTasks>", true, {1}, false},
        {head + "<Task TaskNum=\"01\"/><Task TaskNum=\" 1\"/><Task TaskNum=\"2\"/></ViewerTasks>", true, {}, true},
        {head + "<Task TaskNum=\"1\" Description=\"a\"/><Task TaskNum=\"1\" Description=\"b\"/>"
                "<Group><Task TaskNum=\"2\" Description=\"c\" ResultCode=\"\"/></Group></ViewerTasks>",
         true, {1, 2}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        testutil::TempDir dir;
        const std::string path = dir.file("list.xml");
        if (!c.text.empty())
            testutil::write_file(path, c.text);
        CViewerTaskList list;
        ASSERT_EQ(list.LoadList(path.c_str()), c.loads);
        std::vector<int> walk;
        for (int n = list.SelectTask(1) ? 1 : 0; n != 0 && walk.size() < 9; n = list.SelectNextTask())
            walk.push_back(n);
        EXPECT_EQ(walk, c.walk);
        EXPECT_EQ(list.GetAllSucceeded(), c.all_succeeded);

        std::unique_ptr<COXMLDocument> doc(COXMLDocument::load(path.c_str(), nullptr, nullptr, 0));
        for (int n = -1; n <= 5; ++n) {
            const std::string query = "//Task[@TaskNum=\"" + std::to_string(n) + "\"]";
            COXMLNode* expected = doc ? doc->selectSingleNode(query.c_str()) : nullptr;
            ASSERT_EQ(list.SelectTask(n), expected != nullptr) << n;
            if (expected != nullptr) {
                EXPECT_EQ(std::string(list.GetTaskAttribute("Description")), expected->getAttribute("Description"));
            }
        }
    }
}

TEST(ViewerTaskListClass, SaveReplacesAFileButNeverWhatItCannotDelete)
{
    testutil::TempDir dir;
    testutil::write_file(dir.file("list.xml"), "stale");
    CViewerTaskList list;  // no category ever set
    EXPECT_EQ(list.AddTask(), 1);
    EXPECT_EQ(list.AddTask(), 2);
    list.SetTaskAttribute("Description", "second");
    list.SaveList(dir.file("list.xml").c_str());
    ListFile file(dir.file("list.xml"));
    EXPECT_TRUE(file.root.empty());
    EXPECT_EQ(file.tasks[1], (Attributes{{"TaskNum", "2"}, {"Description", "second"}}));

    std::filesystem::create_directories(dir.file("busy/inside"));
    list.SaveList(dir.file("busy").c_str());
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("busy/inside")));
}

TEST_F(Listing, TaskOrderAndPaperMessages)
{
    using F = std::vector<std::pair<FORM_TYPE, const char*>>;
    const FORM_TYPE W2 = Vellument::FORM_TYPE_W2, W3 = Vellument::FORM_TYPE_W3;
    struct Case {
        bool reprint;
        std::vector<F> filings;  // a name starting with 's' is on special paper
        std::vector<std::string> order;
        std::vector<std::string> messages;
    };
    const std::vector<Case> cases = {
        // Reprint: each filing's first summary form, then its other forms; special paper plays no part.
        {true, {{{W2, "a"}, {W3, "sb"}}, {}, {{Vellument::FORM_TYPE_1099, "c"}, {Vellument::FORM_TYPE_1096, "sd"}}},
         {"sb", "a", "sd", "c"}, {"load sb", "load a", "load sd", "load c"}},
        {true, {{{Vellument::FORM_TYPE_1096, "x"}, {Vellument::FORM_TYPE_1096, "y"}, {Vellument::FORM_TYPE_1099, "z"}}},
         {"x", "z"}, {"load x", "load z"}},
        {true, {{{Vellument::FORM_TYPE_W2C, "c"}, {Vellument::FORM_TYPE_W3C, "w3c"}}}, {"c", "w3c"}, {"load c", "load w3c"}},
        {true, {{{W3, "only"}}}, {"only"}, {"load only"}},
        {true, {{}}, {}, {}},
        // Ordinary passes: special forms of all filings first, each asking for its paper, then the
        // plain run asks once.
        {false, {{{W2, "a"}, {W2, "sb"}}, {{W2, "s"}, {W2, ""}, {W2, "d"}}},
         {"sb", "s", "a", "", "d"}, {"load sb", "", "load a", "-", "-"}},
        {false, {{{W2, "a"}, {W2, "b"}}}, {"a", "b"}, {"load a", "-"}},
        {false, {{{W2, "s1"}, {W2, ""}}}, {"s1", ""}, {"load s1", ""}},  // an empty warning is still written
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.order));
        v.clear_current_package();
        std::vector<CForm*> all;
        for (const F& forms : c.filings) {
            std::vector<CForm*> made;
            for (const auto& f : forms) {
                made.push_back(make_form(f.first, f.second, f.second[0] == 's'));
                if (std::string(f.second) == "s")
                    made.back()->set_paper_warning("");
            }
            all.insert(all.end(), made.begin(), made.end());
            v.get_current_package()->add_filing(make_filing(Vellument::FILING_TYPE_FEDERAL, "FE", made));
        }
        const ListFile file = write(c.reprint);
        EXPECT_EQ(file.all("FormName"), c.order);
        EXPECT_EQ(file.all("PaperMessage"), c.messages);
        for (CForm* form : all) {  // a form without a task keeps its old number
            auto at = std::find(c.order.begin(), c.order.end(), form->get_form_name());
            EXPECT_EQ(form->get_task_number(), at == c.order.end() ? 99 : int(at - c.order.begin()) + 1);
        }
    }
}

TEST_F(Listing, PrintingRunGeneratesOnlyWhatTheFilingSelects)
{
    v.get_current_transaction()->set_action(Vellument::ACTION_PRINTING);
    CForm* w2 = make_form(Vellument::FORM_TYPE_W2, "W2_NY");
    w2->set_location("C:\\Elsewhere\\Histories\\ny.pdf");  // from another company folder
    w2->set_exml_location("C:\\Elsewhere\\Histories\\ny.xml");
    w2->set_krf_version("7.1");
    w2->set_krf_db_path("D:\\Data\\krf.db");
    w2->set_krf_filter_number(3);
    w2->set_krf_filter_number_2(-4);
    w2->set_form_dir("D:\\Forms");
    w2->set_force_print(true);
    w2->set_flags(Vellument::FORM_FLAGS_EDITABLE);
    CFiling* state = make_filing(Vellument::FILING_TYPE_STATE, "NY", {w2, make_form(Vellument::FORM_TYPE_W3, "W3")});
    v.get_current_package()->add_filing(state);
    const std::string co_dir = co.company_dir();

    ListFile file = write(false);
    EXPECT_EQ(file.root, (Attributes{{"Category", "W2"}, {"Subcategory", "US"}}));
    EXPECT_EQ(file.tasks[0], (Attributes{{"TaskNum", "1"}, {"Description", "W2_NY"}, {"FormName", "W2_NY"},
                                         {"PrintRequired", "Y"}, {"ReportInputFile", co_dir + "Histories\\ny.pdf"},
                                         {"KrfDbDir", ""}, {"KrfVer", "7.1"}, {"DisplayMode", "PrintMail"},
                                         {"ReportMode", "Draft"}, {"PaperMessage", "load W2_NY"}}));
    EXPECT_EQ(file.all("ReportState"), (std::vector<std::string>{"-", "NY"}));

    state->set_regenerate_state_w2(true);
    state->set_efiled_flag(true);
    w2->set_prior_exml_location("C:\\Old\\Histories\\prior.xml");
    file = write(false);
    EXPECT_EQ(file.tasks[0], (Attributes{{"TaskNum", "1"}, {"Description", "W2_NY"}, {"FormName", "W2_NY"},
                                         {"PrintRequired", "Y"}, {"KrfDatabaseFile", "D:\\Data\\krf.db"},
                                         {"KrfVer", "7.1"}, {"KrfFilterNum", "3"}, {"KrfFilterNum2", "-4"},
                                         {"ReportOutputFile", co_dir + "Histories\\ny.pdf"},
                                         {"XmlHistoryOutputFile", co_dir + "Histories\\ny.xml"},
                                         {"XmlHistoryInputFile", co_dir + "Histories\\prior.xml"},
                                         {"FormDir", "D:\\Forms"}, {"DisplayMode", "Efile"}, {"ReportMode", "Draft"},
                                         {"PaperMessage", "load W2_NY"}}));
    EXPECT_EQ(file.all("KrfFilterNum"), (std::vector<std::string>{"3", "-"}));  // the W-3 still works from history

    // An e-file package in the status (".kxn" in any case) stands in for the data references.
    v.get_current_status()->set_kxn_path("C:\\Pkg\\Filing.kxn");
    file = write(false);
    EXPECT_EQ(file.all("KrfFile"), (std::vector<std::string>{co_dir + "Filing.kxn", co_dir + "Filing.kxn"}));
    EXPECT_EQ(file.all("KrfVer"), (std::vector<std::string>{"-", "-"}));
    EXPECT_EQ(file.all("KrfDbDir"), (std::vector<std::string>{"-", "-"}));

    // Any other action generates every form.
    v.get_current_transaction()->set_action(Vellument::ACTION_CORRECTION);
    file = write(false);
    EXPECT_EQ(file.all("ReportInputFile"), (std::vector<std::string>{"-", "-"}));
}

TEST(CreateViewerTaskList, NoTransactionStillWritesTheRoot)
{
    testutil::TempDir dir;
    for (const char* type : {"1099-NEC", "T4"}) {
        CVellument v;
        v.set_form_type_string(type);
        v.create_viewer_task_list(dir.file("t.xml").c_str(), true);
        ListFile file(dir.file("t.xml"));
        EXPECT_EQ(file.root[0].second, type[0] == '1' ? "1099" : "");
        EXPECT_EQ(file.root[1], std::make_pair(std::string("Subcategory"), std::string(type[0] == '1' ? "NEC" : "")));
        EXPECT_TRUE(file.tasks.empty());
    }
}

TEST(TaskListHelpers, ModesFirstMatchWins)
{
    CFiling filing;
    CForm form;
    CViewerTaskList list;
    list.AddTask();
    auto modes = [&] {
        set_viewer_task_modes(&list, &filing, &form);
        return std::string(list.GetTaskAttribute("DisplayMode")) + "/" + list.GetTaskAttribute("ReportMode");
    };
    form.set_flags(Vellument::FORM_FLAGS_EDITABLE);
    EXPECT_EQ(modes(), "PrintMail/Draft");
    filing.set_efiled_flag(true);
    EXPECT_EQ(modes(), "Efile/Draft");
    form.set_flags(Vellument::FORM_FLAGS_READ_ONLY);
    EXPECT_EQ(modes(), "Efile/History");
    filing.set_records_flag(true);
    EXPECT_EQ(modes(), "Record/History");
    form.set_flags(Vellument::FORM_FLAGS_BACKGROUND);
    EXPECT_EQ(modes(), "Background/History");
}

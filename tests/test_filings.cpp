#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPathHandling.h>
#include <vellument/DateTime.h>
#include <vellument/Ostrel_XML.h>

#include "xml_test_util.h"

using namespace Vellument;
using testutil::attribute_names;
using testutil::parse;
using testutil::has_attribute;

namespace {

const char* const kDateFormat = "%m/%d/%Y %H:%M:%S";

void expect_list(const attributeDicList& list, const std::vector<std::vector<std::string>>& expected)
{
    ASSERT_EQ(list.size(), expected.size());
    for (size_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(list[i].attributeName, expected[i][0]);
        EXPECT_EQ(list[i].attributeValue, expected[i][1]) << expected[i][0];
        EXPECT_EQ(list[i].attributeType, expected[i][2]) << expected[i][0];
    }
}

typedef bool (CFiling::*FlagGetter)() const;
typedef void (CFiling::*FlagSetter)(bool) const;
typedef int (CFiling::*CountGetter)() const;
typedef void (CFiling::*CountSetter)(int) const;

// The fourteen flags and eight counters of a filing's own record.
const std::vector<std::pair<FlagSetter, FlagGetter>> kOwnFlags = {
    {&CFiling::set_records_flag, &CFiling::get_records_flag},
    {&CFiling::set_efiled_successful_flag, &CFiling::get_efiled_successful_flag},
    {&CFiling::set_printed_successful_flag, &CFiling::get_printed_successful_flag},
    {&CFiling::set_records_successful_flag, &CFiling::get_records_successful_flag},
    {&CFiling::set_regenerate_state_w2, &CFiling::get_regenerate_state_w2},
    {&CFiling::set_reprint_state_w2, &CFiling::get_reprint_state_w2},
    {&CFiling::set_reprint_local_w2, &CFiling::get_reprint_local_w2},
    {&CFiling::set_regenerate_employee_w2, &CFiling::get_regenerate_employee_w2},
    {&CFiling::set_reprint_select_employees, &CFiling::get_reprint_select_employees},
    {&CFiling::set_reprint_employer_w2, &CFiling::get_reprint_employer_w2},
    {&CFiling::set_reprint_payer_1099, &CFiling::get_reprint_payer_1099},
    {&CFiling::set_regenerate_recipient_1099, &CFiling::get_regenerate_recipient_1099},
    {&CFiling::set_reprint_select_recipients, &CFiling::get_reprint_select_recipients},
    {&CFiling::set_force_print_flag, &CFiling::get_force_print_flag}};
const std::vector<std::pair<CountSetter, CountGetter>> kOwnCounters = {
    {&CFiling::set_employee_count, &CFiling::get_employee_count},
    {&CFiling::set_ew2_employee_count, &CFiling::get_ew2_employee_count},
    {&CFiling::set_state_employee_count, &CFiling::get_state_employee_count},
    {&CFiling::set_local_employee_count, &CFiling::get_local_employee_count},
    {&CFiling::set_corrected_employee_count, &CFiling::get_corrected_employee_count},
    {&CFiling::set_deleted_employee_count, &CFiling::get_deleted_employee_count},
    {&CFiling::set_added_employee_count, &CFiling::get_added_employee_count},
    {&CFiling::set_print_success_count, &CFiling::get_print_success_count}};

class FilingTest : public ::testing::Test {
protected:
    void SetUp() override { CPathHandling::set_company_dir("C:\\CO\\"); }
    void TearDown() override { CPathHandling::set_company_dir(""); }

    // Every base field set and every flag true, so a field that is not carried shows.
    static void fill_base(const CFilingBase& unit)
    {
        unit.set_type(FILING_TYPE_STATE);
        unit.set_identifier("MN");
        unit.set_krf_file_location("C:\\Old\\Drafts\\data.krf");
        unit.set_vlid(4711);
        for (auto setter : {&CFilingBase::set_printed_flag, &CFilingBase::set_mailed_flag,
                            &CFilingBase::set_efiled_flag, &CFilingBase::set_corrected_flag,
                            &CFilingBase::set_replacement_flag, &CFilingBase::set_replaceable_flag})
            (unit.*setter)(true);
        CDateTime date;
        ASSERT_TRUE(date.parse("01/15/2024 13:05:09"));
        unit.set_date(date);
    }

    template <class T>
    static T* make(FORM_TYPE type, const char* name)
    {
        T* record = new T;
        record->set_type(type);
        record->set_form_name(name);
        return record;
    }

    static std::vector<std::string> history_names(const CCopy& copy)
    {
        std::vector<std::string> names;
        for (int i = 0; i < copy.get_history_count(); ++i)
            names.push_back(copy.get_history_at(i)->get_form_name());
        return names;
    }
};

} // namespace

TEST_F(FilingTest, FieldTableOfTheCopyConstructors)
{
    CFiling filing;
    fill_base(filing);
    CPathHandling::set_company_dir("E:\\NEW\\");

    // Everything of the base but the mailed flag.
    CFiling filing_copy(&filing);
    CCopy copy_of_filing(&filing);
    CCopy copy_of_copy(&copy_of_filing);
    for (const CFilingBase* unit : std::vector<const CFilingBase*>{&filing_copy, &copy_of_filing, &copy_of_copy}) {
        EXPECT_EQ(unit->get_type(), FILING_TYPE_STATE);
        EXPECT_EQ(unit->get_identifier(), "MN");
        EXPECT_EQ(unit->get_krf_file_location(), "E:\\NEW\\Drafts\\data.krf");
        EXPECT_EQ(unit->get_vlid(), 4711);
        EXPECT_FALSE(unit->get_mailed_flag());
        EXPECT_TRUE(unit->get_printed_flag() && unit->get_efiled_flag() && unit->get_corrected_flag() &&
                    unit->get_replacement_flag() && unit->get_replaceable_flag());
        EXPECT_EQ(unit->get_date().format(kDateFormat), "01/15/2024 13:05:09");
    }

    // Back from the status side: mailed crosses, efiled and the date don't.
    CCopy copy;
    fill_base(copy);
    copy.set_deleted_flag(true);
    CFiling back(&copy);
    EXPECT_EQ(back.get_identifier(), "MN");
    EXPECT_EQ(back.get_vlid(), 4711);
    EXPECT_TRUE(back.get_mailed_flag());
    EXPECT_TRUE(back.get_printed_flag() && back.get_corrected_flag() && back.get_replacement_flag() &&
                back.get_replaceable_flag());
    EXPECT_FALSE(back.get_efiled_flag());
    EXPECT_EQ(back.get_date().get_days(), 0.0);

    // Deleted is the copy's own and survives only the copy's copy constructor.
    EXPECT_TRUE(CCopy(&copy).get_deleted_flag());
    EXPECT_FALSE(CCopy(&back).get_deleted_flag());
}

TEST_F(FilingTest, FilingCopyCarriesItsFieldsButNotTheFormsRunFields)
{
    CFiling source;
    source.set_filing_name("Minnesota");
    for (const auto& flag : kOwnFlags)
        (source.*flag.first)(true);
    for (size_t i = 0; i < kOwnCounters.size(); ++i)
        (source.*kOwnCounters[i].first)(static_cast<int>(i) + 1);
    CForm* form = make<CForm>(FORM_TYPE_W2, "W2");
    form->set_viewer_result_code("Succeeded");
    form->set_task_number(7);
    form->set_completion(FORM_COMPLETION_APPEND);
    form->set_location("C:\\CO\\Histories\\w2.pdf");
    source.add_form(form);
    source.add_form(make<CForm>(FORM_TYPE_W3, "W3"));

    auto copy = std::make_unique<CFiling>(&source);
    EXPECT_EQ(copy->get_filing_name(), "Minnesota");
    for (size_t i = 0; i < kOwnFlags.size(); ++i)
        EXPECT_TRUE((copy.get()->*kOwnFlags[i].second)()) << "flag " << i;
    for (size_t i = 0; i < kOwnCounters.size(); ++i)
        EXPECT_EQ((copy.get()->*kOwnCounters[i].second)(), static_cast<int>(i) + 1) << "counter " << i;

    ASSERT_EQ(copy->get_form_count(), 2);
    CForm* copied = copy->get_form_at(0);
    EXPECT_NE(copied, form);
    EXPECT_EQ(copied->get_form_name(), "W2");
    EXPECT_EQ(copied->get_location(), "C:\\CO\\Histories\\w2.pdf");
    EXPECT_EQ(copied->get_viewer_result_code(), "");
    EXPECT_EQ(copied->get_task_number(), 0);
    EXPECT_EQ(copied->get_completion(), FORM_COMPLETION_REPLACE);
    EXPECT_EQ(copy->get_form_at(1)->get_form_name(), "W3");

    // Deep: the copy outlives its source's forms, and its own copy outlives it.
    source.delete_all_forms();
    EXPECT_EQ(copy->get_form_count(), 2);
    auto second = std::make_unique<CFiling>(copy.get());
    copy.reset();
    EXPECT_EQ(second->get_form_at(1)->get_form_name(), "W3");
}

TEST_F(FilingTest, CopyAndFilingTradeFormsAndHistories)
{
    // Forms made in memory are Replace, so are their histories; the filing's own fields stay behind.
    CFiling filing;
    filing.set_efiled_successful_flag(true);
    filing.set_employee_count(12);
    filing.add_form(make<CForm>(FORM_TYPE_W2, "a"));
    filing.add_form(make<CForm>(FORM_TYPE_W3, "b"));
    CCopy copy(&filing);
    EXPECT_EQ(history_names(copy), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(copy.get_history_at(0)->get_completion(), FORM_COMPLETION_REPLACE);
    EXPECT_EQ(copy.get_history_at(1)->get_type(), FORM_TYPE_W3);

    // A form read from a file is Append, and its history says so.
    auto doc = parse("<Filing><Form Type=\"W-2\" Completion=\"Replace\"/></Filing>");
    CFiling read(doc->getDocumentElement());
    CCopy read_copy(&read);
    ASSERT_EQ(read_copy.get_history_count(), 1);
    EXPECT_EQ(read_copy.get_history_at(0)->get_completion(), FORM_COMPLETION_APPEND);

    // Back again: each history becomes a Replace form, in order.
    copy.get_history_at(0)->set_completion(FORM_COMPLETION_APPEND);
    CFiling back(&copy);
    ASSERT_EQ(back.get_form_count(), 2);
    EXPECT_EQ(back.get_form_at(0)->get_form_name(), "a");
    EXPECT_EQ(back.get_form_at(0)->get_completion(), FORM_COMPLETION_REPLACE);
    EXPECT_FALSE(back.get_efiled_successful_flag());
    EXPECT_EQ(back.get_employee_count(), 0);

    // A copy of a copy is deep and keeps each history's completion.
    CCopy deep(&copy);
    copy.remove_history_at(0);
    copy.remove_history_at(0);
    EXPECT_EQ(history_names(deep), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(deep.get_history_at(0)->get_completion(), FORM_COMPLETION_APPEND);
}

TEST_F(FilingTest, CompleteFormWalkSkipsTheNeighbourThatMovesUp)
{
    std::unique_ptr<CForm> replace_w2(make<CForm>(FORM_TYPE_W2, "new"));

    CCopy mixed;
    for (auto entry : {std::make_pair(FORM_TYPE_W2, "w2a"), std::make_pair(FORM_TYPE_W3, "w3"),
                       std::make_pair(FORM_TYPE_W2, "w2b")})
        mixed.add_history(make<CHistory>(entry.first, entry.second));
    mixed.complete_form(replace_w2.get());
    EXPECT_EQ(history_names(mixed), (std::vector<std::string>{"w3", "new"}));

    // Of three W-2s the first and third go; the second slid into the freed place and stays.
    CCopy same;
    same.add_history(make<CHistory>(FORM_TYPE_W2, "1"));
    CHistory* middle = make<CHistory>(FORM_TYPE_W2, "2");
    same.add_history(middle);
    same.add_history(make<CHistory>(FORM_TYPE_W2, "3"));
    same.complete_form(replace_w2.get());
    EXPECT_EQ(history_names(same), (std::vector<std::string>{"2", "new"}));
    EXPECT_EQ(same.get_history_at(0), middle);
    EXPECT_EQ(same.get_history_at(1)->get_completion(), FORM_COMPLETION_REPLACE);

    // Append, and a completion outside the table, remove nothing.
    std::unique_ptr<CForm> append_w2(make<CForm>(FORM_TYPE_W2, "app"));
    append_w2->set_completion(FORM_COMPLETION_APPEND);
    same.complete_form(append_w2.get());
    append_w2->set_completion(static_cast<FORM_COMPLETION>(7));
    same.complete_form(append_w2.get());
    EXPECT_EQ(history_names(same), (std::vector<std::string>{"2", "new", "app", "app"}));
    EXPECT_EQ(same.get_history_at(2)->get_completion(), FORM_COMPLETION_APPEND);

    CCopy empty;
    empty.complete_form(replace_w2.get());
    empty.complete_form(nullptr);
    EXPECT_EQ(history_names(empty), (std::vector<std::string>{"new"}));
}

TEST_F(FilingTest, RemovalAndBadIndexes)
{
    CFiling filing;
    CForm* first = make<CForm>(FORM_TYPE_W2, "first");
    filing.add_form(first);
    filing.add_form(make<CForm>(FORM_TYPE_W3, "second"));
    filing.add_form(make<CForm>(FORM_TYPE_NOTICE, "third"));
    filing.add_form(nullptr);
    for (int bad : {-1, 3}) {
        EXPECT_THROW(filing.get_form_at(bad), std::invalid_argument) << bad;
        EXPECT_THROW(filing.delete_form_at(bad), std::invalid_argument) << bad;
        EXPECT_THROW(filing.remove_form_at(bad), std::invalid_argument) << bad;
    }
    ASSERT_EQ(filing.get_form_count(), 3);
    EXPECT_EQ(filing.get_form_at(0), first);

    // remove hands the form back alive and the caller deletes it; the sanitizer build sees a
    // double free or a leak if either side gets this wrong.
    filing.remove_form_at(0);
    std::unique_ptr<CForm> handed_back(first);
    EXPECT_EQ(handed_back->get_form_name(), "first");
    filing.delete_form_at(1);
    ASSERT_EQ(filing.get_form_count(), 1);
    EXPECT_EQ(filing.get_form_at(0)->get_form_name(), "second");
    filing.delete_all_forms();
    EXPECT_EQ(filing.get_form_count(), 0);

    CCopy copy;
    copy.add_history(make<CHistory>(FORM_TYPE_W2, "h1"));
    copy.add_history(make<CHistory>(FORM_TYPE_W3, "h2"));
    copy.add_history(nullptr);
    for (int bad : {-1, 2}) {
        EXPECT_THROW(copy.get_history_at(bad), std::invalid_argument) << bad;
        EXPECT_THROW(copy.remove_history_at(bad), std::invalid_argument) << bad;
    }
    EXPECT_EQ(history_names(copy), (std::vector<std::string>{"h1", "h2"}));
    copy.remove_history_at(0);
    EXPECT_EQ(history_names(copy), (std::vector<std::string>{"h2"}));
}

TEST_F(FilingTest, CountersUnderTwoNamesShareOneField)
{
    const std::vector<std::pair<CountSetter, CountGetter>> recipient_names = {
        {&CFiling::set_recipient_count, &CFiling::get_recipient_count},
        {&CFiling::set_state_recipient_count, &CFiling::get_state_recipient_count},
        {&CFiling::set_corrected_recipient_count, &CFiling::get_corrected_recipient_count},
        {&CFiling::set_deleted_recipient_count, &CFiling::get_deleted_recipient_count},
        {&CFiling::set_added_recipient_count, &CFiling::get_added_recipient_count}};
    const std::vector<std::pair<CountSetter, CountGetter>> employee_names = {
        kOwnCounters[0], kOwnCounters[2], kOwnCounters[4], kOwnCounters[5], kOwnCounters[6]};

    CFiling filing;
    for (size_t i = 0; i < recipient_names.size(); ++i) {
        (filing.*recipient_names[i].first)(static_cast<int>(10 + i));
        (filing.*employee_names[i].first)(static_cast<int>(20 + i));  // the other name overwrites
    }
    for (size_t i = 0; i < recipient_names.size(); ++i) {
        EXPECT_EQ((filing.*recipient_names[i].second)(), static_cast<int>(20 + i)) << i;
        EXPECT_EQ((filing.*employee_names[i].second)(), static_cast<int>(20 + i)) << i;
    }
    EXPECT_EQ(filing.get_ew2_employee_count(), 0);
    EXPECT_EQ(filing.get_local_employee_count(), 0);
}

TEST_F(FilingTest, FilingWriterAndReaderDiffer)
{
    CFiling filing;
    fill_base(filing);
    filing.set_efiled_successful_flag(true);
    filing.set_employee_count(3);
    filing.set_corrected_employee_count(2);
    filing.add_form(make<CForm>(FORM_TYPE_W2, "f1"));
    filing.add_form(make<CForm>(FORM_TYPE_W3, "f2"));

    std::unique_ptr<COXMLDocument> doc(COXMLDocument::createDocument());
    COXMLNode* node = filing.create_xml_node(doc.get());
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->nodeName(), "Filing");
    EXPECT_EQ(attribute_names(node),
              (std::vector<std::string>{"Date", "Type", "Identifier", "VLID", "Printed", "Mailed", "Efiled",
                                        "Corrected", "Replaceable", "Replacement", "KRFPath", "EfiledSuccessful",
                                        "PrintedSuccessful", "RecordsSuccessful", "EmployeeCount",
                                        "CorrectedCount"}));
    EXPECT_STREQ(node->getAttribute("Date"), "01/15/2024 13:05:09");
    EXPECT_STREQ(node->getAttribute("Mailed"), "true");
    EXPECT_STREQ(node->getAttribute("KRFPath"), "C:\\CO\\Drafts\\data.krf");
    EXPECT_STREQ(node->getAttribute("PrintedSuccessful"), "false");
    EXPECT_STREQ(node->getAttribute("CorrectedCount"), "2");
    std::shared_ptr<COXMLNodeList> forms = node->getElementsByTagName("Form");
    ASSERT_EQ(forms->length(), 2);
    EXPECT_STREQ(forms->item(1)->getAttribute("Form_Name"), "f2");

    // Read back under another company directory.
    doc->appendChild(node, true);
    CPathHandling::set_company_dir("D:\\New\\");
    CFiling read(doc->getDocumentElement());
    EXPECT_EQ(read.get_date().format(kDateFormat), "01/15/2024 13:05:09");
    EXPECT_EQ(read.get_vlid(), 4711);
    EXPECT_TRUE(read.get_mailed_flag() && read.get_replaceable_flag() && read.get_efiled_successful_flag());
    EXPECT_EQ(read.get_krf_file_location(), "D:\\New\\Drafts\\data.krf");
    EXPECT_EQ(read.get_employee_count(), 3);
    EXPECT_EQ(read.get_corrected_employee_count(), 2);
    ASSERT_EQ(read.get_form_count(), 2);
    EXPECT_EQ(read.get_form_at(0)->get_completion(), FORM_COMPLETION_APPEND);

    // An older writer's FilingName and bare numbers are read; neither is written back.
    auto old = parse("<Filing Type=\"4\" FilingName=\"Old\" VLID=\"x\" Printed=\"1\" Efiled=\"TRUE\"/>");
    CFiling from_old(old->getDocumentElement());
    EXPECT_EQ(from_old.get_type(), FILING_TYPE_EMPLOYEE);
    EXPECT_EQ(from_old.get_filing_name(), "Old");
    EXPECT_EQ(from_old.get_vlid(), 0);
    EXPECT_TRUE(from_old.get_printed_flag());
    EXPECT_FALSE(from_old.get_efiled_flag());
    EXPECT_EQ(from_old.get_form_count(), 0);
    COXMLNode* rewritten = from_old.create_xml_node(doc.get());
    EXPECT_STREQ(rewritten->getAttribute("Type"), "Employee");
    EXPECT_FALSE(has_attribute(rewritten, "FilingName"));
    EXPECT_FALSE(has_attribute(rewritten, "Date"));

    from_old.set_type(static_cast<FILING_TYPE>(9));
    EXPECT_STREQ(from_old.create_xml_node(doc.get())->getAttribute("Type"), "Unknown");
}

TEST_F(FilingTest, CopyDocumentForm)
{
    CCopy copy;
    fill_base(copy);
    copy.add_history(make<CHistory>(FORM_TYPE_W2, "h1"));
    copy.add_history(make<CHistory>(FORM_TYPE_W3, "h2"));
    std::unique_ptr<COXMLDocument> doc(COXMLDocument::createDocument());
    COXMLNode* node = copy.create_xml_node(doc.get());
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->nodeName(), "Copy");
    EXPECT_EQ(attribute_names(node),
              (std::vector<std::string>{"Date", "Type", "Identifier", "VLID", "Printed", "Mailed", "Efiled",
                                        "Corrected", "Replaceable", "Replacement", "KRFPath", "Deleted"}));
    EXPECT_STREQ(node->getAttribute("Deleted"), "false");
    std::shared_ptr<COXMLNodeList> histories = node->getElementsByTagName("History");
    ASSERT_EQ(histories->length(), 2);
    EXPECT_STREQ(histories->item(0)->getAttribute("Form_Name"), "h1");

    // Each copy finds only its own histories; a missing Deleted reads as false.
    auto text = parse("<Status><Copy Type=\"Federal\" Identifier=\"FE\" Deleted=\"true\">"
                      "<History Type=\"W-2\" Form_Name=\"x\"/><History Type=\"1\" Form_Name=\"y\"/></Copy>"
                      "<Copy Type=\"1\"><History Form_Name=\"z\"/></Copy></Status>");
    std::shared_ptr<COXMLNodeList> copies = text->getDocumentElement()->getElementsByTagName("Copy");
    ASSERT_EQ(copies->length(), 2);
    CCopy first(copies->item(0));
    CCopy second(copies->item(1));
    EXPECT_TRUE(first.get_deleted_flag());
    EXPECT_FALSE(second.get_deleted_flag());
    EXPECT_EQ(first.get_type(), FILING_TYPE_FEDERAL);
    EXPECT_EQ(history_names(first), (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(first.get_history_at(1)->get_type(), FORM_TYPE_W2);
    EXPECT_EQ(history_names(second), (std::vector<std::string>{"z"}));

    CCopy none(static_cast<COXMLNode*>(nullptr));
    EXPECT_EQ(none.get_history_count(), 0);
    EXPECT_EQ(none.create_xml_node(nullptr), nullptr);
}

TEST_F(FilingTest, AttributeListsHoldTheirValuesInOrder)
{
    CCopy copy;
    fill_base(copy);
    copy.set_deleted_flag(true);
    copy.set_replaceable_flag(false);
    // No Replaceable in the base list: it belongs to the copy's.
    const attributeDicList base = copy.getAndFillMapBase();
    ASSERT_EQ(base.size(), 10u);
    for (const attributeDic& row : base)
        EXPECT_NE(row.attributeName, "Replaceable");
    EXPECT_EQ(base[0].attributeValue, "01/15/2024 13:05:09");
    EXPECT_EQ(base[1].attributeValue, "State");
    EXPECT_EQ(base[9].attributeValue, "C:\\CO\\Drafts\\data.krf");
    attributeDicList first = copy.getAndFillMap();
    expect_list(first, {{"Replaceable", "false", "BOOLEAN"}, {"Deleted", "true", "BOOLEAN"}});

    // A later call for another copy leaves the first list as it was.
    CCopy other;
    other.set_replaceable_flag(true);
    attributeDicList second = other.getAndFillMap();
    EXPECT_EQ(first[0].attributeValue, "false");
    EXPECT_EQ(second[0].attributeValue, "true");

    CFiling filing;
    filing.set_efiled_successful_flag(true);
    filing.set_records_successful_flag(true);
    filing.set_employee_count(17);
    filing.set_corrected_recipient_count(4);
    expect_list(filing.getAndFillMap(),
                {{"EfiledSuccessful", "true", "BOOLEAN"}, {"PrintedSuccessful", "false", "BOOLEAN"},
                 {"RecordsSuccessful", "true", "BOOLEAN"}, {"EmployeeCount", "17", "INT"},
                 {"CorrectedCount", "4", "INT"}});
}

TEST_F(FilingTest, FormsAndHistoriesAreReadAtAnyDepth)
{
    // A filing takes every Form below it and a copy every History, also where they are nested.
    const int depth = 40;
    std::string filing_text, copy_text;
    for (int i = 0; i < depth; ++i) {
        filing_text += "<Filing><Form Form_Name=\"f\">";
        copy_text += "<Copy><History Form_Name=\"h\">";
    }
    for (int i = 0; i < depth; ++i) {
        filing_text += "</Form></Filing>";
        copy_text += "</History></Copy>";
    }
    auto filing_doc = parse(filing_text.c_str());
    auto copy_doc = parse(copy_text.c_str());
    ASSERT_TRUE(filing_doc && copy_doc);
    CFiling filing(filing_doc->getDocumentElement());
    CCopy copy(copy_doc->getDocumentElement());
    EXPECT_EQ(filing.get_form_count(), depth);
    EXPECT_EQ(copy.get_history_count(), depth);
}

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <vellument/CForm.h>
#include <vellument/CFormBase.h>
#include <vellument/CHistory.h>
#include <vellument/CPathHandling.h>
#include <vellument/Ostrel_XML.h>

#include "xml_test_util.h"

using namespace Vellument;
using testutil::attribute_names;
using testutil::parse;

namespace {

const std::vector<std::string> kBaseNames = {
    "Type", "Flags", "Completion", "Description", "Location", "EXMLLocation", "Form_Name",
    "KRF_DB_Path", "KRFVersion", "KRFFilter_Number", "KRFFilter_Number2", "Divider_Form"};

class FormTest : public ::testing::Test {
protected:
    void SetUp() override { CPathHandling::set_company_dir("C:\\CO\\"); }
    void TearDown() override { CPathHandling::set_company_dir(""); }

    // A form with every base field set, and every run field set to something not the default.
    static void fill(const CForm& form)
    {
        form.set_type(FORM_TYPE_W2C);
        form.set_flags(FORM_FLAGS_READ_ONLY);
        form.set_description("Federal W-2C");
        form.set_location("C:\\Else\\Histories\\w2c.pdf");
        form.set_exml_location("D:\\x\\Drafts\\w2c.xml");
        form.set_form_name("SSA_W2C");
        form.set_krf_db_path("C:\\KRF\\db.krf");
        form.set_krf_version("7.1");
        form.set_krf_filter_number(11);
        form.set_krf_filter_number_2(-3);
        form.set_divider_form("DIV");
        form.set_prior_exml_location("C:\\Y\\Histories\\prior.xml");
        form.set_payer_kind_string("kind");
        form.set_form_dir("C:\\forms");
        form.set_form_set("set");
        form.set_viewer_result_code("Succeeded");
        form.set_paper_warning("warn");
        form.set_task_number(7);
        form.set_employee_count(9);
        form.set_result_printed(true);
        form.set_efiled_successful_flag(true);
        form.set_printed_successful_flag(true);
        form.set_records_successful_flag(true);
        form.set_force_print(true);
        form.set_special_paper(true);
    }
};

} // namespace

TEST_F(FormTest, CompletionDependsOnHowTheFormWasMade)
{
    CForm made;
    CHistory history;
    EXPECT_EQ(made.get_completion(), FORM_COMPLETION_REPLACE);
    EXPECT_EQ(history.get_completion(), FORM_COMPLETION_APPEND);
    EXPECT_EQ(CFormBase().get_completion(), FORM_COMPLETION_APPEND);

    // A history keeps the completion of what it copies; a form always restarts as Replace.
    CHistory from_form(&made);
    EXPECT_EQ(from_form.get_completion(), FORM_COMPLETION_REPLACE);
    CForm from_history(&history);
    EXPECT_EQ(from_history.get_completion(), FORM_COMPLETION_REPLACE);

    // Completion is written but never read: a file's "Replace" comes back as Append.
    auto doc = parse("<Form Type=\"W-2\" Completion=\"Replace\"/>");
    CForm read(doc->getDocumentElement());
    CHistory read_history(doc->getDocumentElement());
    EXPECT_EQ(read.get_completion(), FORM_COMPLETION_APPEND);
    EXPECT_EQ(read_history.get_completion(), FORM_COMPLETION_APPEND);
    CHistory history_of_read(&read);
    EXPECT_EQ(history_of_read.get_completion(), FORM_COMPLETION_APPEND);

    std::unique_ptr<COXMLDocument> out(COXMLDocument::createDocument());
    COXMLNode* node = read.create_xml_node(out.get());
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->getAttribute("Completion"), "Append");

    // A value outside the table is written as Append.
    made.set_completion(static_cast<FORM_COMPLETION>(5));
    EXPECT_EQ(made.get_completion_string(), "Append");
}

TEST_F(FormTest, CopyTakesTheFormBaseOnly)
{
    CForm source;
    fill(source);
    CPathHandling::set_company_dir("E:\\NEW\\");
    CForm copy(&source);

    // Every base field crosses: the two lists agree row for row.
    attributeDicList source_list = source.getAndFillMapBase();
    attributeDicList copy_list = copy.getAndFillMapBase();
    ASSERT_EQ(copy_list.size(), source_list.size());
    for (size_t i = 0; i < copy_list.size(); ++i)
        EXPECT_EQ(copy_list[i].attributeValue, source_list[i].attributeValue) << copy_list[i].attributeName;
    EXPECT_EQ(copy.get_location(), "E:\\NEW\\Histories\\w2c.pdf");

    // None of the run fields cross.
    EXPECT_EQ(copy.get_prior_exml_location() + copy.get_payer_kind_string() + copy.get_form_dir() +
                  copy.get_form_set() + copy.get_viewer_result_code() + copy.get_paper_warning(),
              "");
    EXPECT_EQ(copy.get_task_number() + copy.get_employee_count(), 0);
    EXPECT_FALSE(copy.get_result_printed() || copy.get_efiled_successful_flag() ||
                 copy.get_printed_successful_flag() || copy.get_records_successful_flag() ||
                 copy.get_force_print() || copy.get_special_paper());

    // The copy is independent of its source.
    source.set_description("changed");
    EXPECT_EQ(copy.get_description(), "Federal W-2C");
    CHistory history(&source);
    EXPECT_EQ(history.get_description(), "changed");
    EXPECT_EQ(history.get_krf_filter_number_2(), -3);
}

TEST_F(FormTest, PathsAreHeldRelativeAndGivenOutUnderThePresentDirectory)
{
    CForm form;
    form.set_location("C:\\Old\\Histories\\a.pdf");
    form.set_exml_location("C:\\Old\\Sub\\c.xml");
    form.set_prior_exml_location("C:\\Old\\Drafts\\p.xml");
    form.set_krf_db_path("C:\\Old\\Histories\\k.db");
    EXPECT_EQ(form.get_location(), "C:\\CO\\Histories\\a.pdf");
    EXPECT_EQ(form.get_exml_location(), "C:\\CO\\c.xml");
    EXPECT_EQ(form.get_prior_exml_location(), "C:\\CO\\Drafts\\p.xml");

    CPathHandling::set_company_dir("D:\\New\\");
    EXPECT_EQ(form.get_location(), "D:\\New\\Histories\\a.pdf");
    EXPECT_EQ(form.get_prior_exml_location(), "D:\\New\\Drafts\\p.xml");
    EXPECT_EQ(form.get_krf_db_path(), "C:\\Old\\Histories\\k.db");

    form.set_location("");
    EXPECT_EQ(form.get_location(), "");

    // A file's paths carry the directory of the machine that wrote it; only the tail counts.
    auto doc = parse("<Form Location=\"Q:\\Far\\Histories\\f.pdf\" EXMLLocation=\"Q:\\Far\\x\\f.xml\""
                     " KRF_DB_Path=\"Q:\\Far\\Histories\\k.db\"/>");
    CForm read(doc->getDocumentElement());
    EXPECT_EQ(read.get_location(), "D:\\New\\Histories\\f.pdf");
    EXPECT_EQ(read.get_exml_location(), "D:\\New\\f.xml");
    EXPECT_EQ(read.get_krf_db_path(), "Q:\\Far\\Histories\\k.db");
}

TEST_F(FormTest, EmptyFormDirLeavesTheOldValue)
{
    CForm form;
    form.set_form_dir("C:\\forms");
    form.set_form_dir("");
    EXPECT_EQ(form.get_form_dir(), "C:\\forms");
    form.set_form_dir("D:\\other");
    EXPECT_EQ(form.get_form_dir(), "D:\\other");
}

TEST_F(FormTest, WritersSetEveryAttributeInOrder)
{
    std::unique_ptr<COXMLDocument> doc(COXMLDocument::createDocument());

    // A form with nothing set still writes every attribute.
    CForm empty;
    COXMLNode* node = empty.create_xml_node(doc.get());
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->nodeName(), "Form");
    std::vector<std::string> form_names = kBaseNames;
    form_names.push_back("ViewerResultCode");
    form_names.push_back("ResultPrinted");
    EXPECT_EQ(attribute_names(node), form_names);
    EXPECT_STREQ(node->getAttribute("Type"), "Unknown");
    EXPECT_STREQ(node->getAttribute("Completion"), "Replace");
    EXPECT_STREQ(node->getAttribute("KRFFilter_Number"), "0");

    CForm full;
    fill(full);
    node = full.create_xml_node(doc.get());
    EXPECT_EQ(attribute_names(node), form_names);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"Flags", "Read Only"}, {"Location", "C:\\CO\\Histories\\w2c.pdf"},
        {"KRFFilter_Number2", "-3"}, {"ResultPrinted", "true"}};
    for (const auto& attribute : expected)
        EXPECT_EQ(node->getAttribute(attribute.first.c_str()), attribute.second) << attribute.first;

    // A history is the form base alone under its own name.
    CHistory history(&full);
    node = history.create_xml_node(doc.get());
    EXPECT_STREQ(node->nodeName(), "History");
    EXPECT_EQ(attribute_names(node), kBaseNames);

    EXPECT_EQ(full.create_xml_node(nullptr), nullptr);
    EXPECT_EQ(full.CFormBase::create_xml_node(doc.get(), nullptr), nullptr);
}

TEST_F(FormTest, ReaderAcceptsOldNumbersAndBadTexts)
{
    // Bare numbers of older writers read, and are written back as texts.
    auto doc = parse("<Form Type=\"4\" Flags=\"3\" KRFFilter_Number=\"12x\" KRFFilter_Number2=\"x12\""
                     " ResultPrinted=\"1\" ViewerResultCode=\"Failed\" Divider_Form=\"dv\"/>");
    CForm form(doc->getDocumentElement());
    EXPECT_EQ(form.get_type(), FORM_TYPE_1099);
    EXPECT_EQ(form.get_flags(), FORM_FLAGS_READ_ONLY);
    EXPECT_EQ(form.get_krf_filter_number(), 12);
    EXPECT_EQ(form.get_krf_filter_number_2(), 0);
    EXPECT_TRUE(form.get_result_printed());
    EXPECT_EQ(form.get_viewer_result_code(), "Failed");
    EXPECT_EQ(form.get_divider_form(), "dv");
    std::unique_ptr<COXMLDocument> out(COXMLDocument::createDocument());
    COXMLNode* node = form.create_xml_node(out.get());
    EXPECT_STREQ(node->getAttribute("Type"), "1099");
    EXPECT_STREQ(node->getAttribute("Flags"), "Read Only");

    // A number without a text reads as itself and is written as Unknown; nonsense reads as 0.
    doc = parse("<History Type=\"26\" Flags=\"Hidden\" ResultPrinted=\"TRUE\"/>");
    CHistory history(doc->getDocumentElement());
    EXPECT_EQ(static_cast<int>(history.get_type()), 26);
    EXPECT_EQ(history.get_type_string(), "Unknown");
    EXPECT_EQ(history.get_flags(), FORM_FLAGS_NONE);
    CForm strict(doc->getDocumentElement());
    EXPECT_FALSE(strict.get_result_printed());

    // A missing element reads as an empty element would, without a crash.
    CForm none(static_cast<COXMLNode*>(nullptr));
    EXPECT_EQ(none.get_completion(), FORM_COMPLETION_APPEND);
    EXPECT_EQ(none.get_type(), FORM_TYPE_UNKNOWN);
}

TEST_F(FormTest, AttributeListsHoldTheirValuesInOrder)
{
    CForm form;
    fill(form);
    attributeDicList base = form.getAndFillMapBase();
    ASSERT_EQ(base.size(), kBaseNames.size());
    EXPECT_EQ(base[5].attributeValue, "C:\\CO\\Drafts\\w2c.xml");
    EXPECT_EQ(base[10].attributeValue, "-3");

    // The two type words of the form list stand swapped against their values.
    attributeDicList own = form.getAndFillMap();
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own[0].attributeValue, "Succeeded");
    EXPECT_EQ(own[1].attributeValue, "true");

    // Each call hands out its own copy.
    CForm other;
    attributeDicList second = other.getAndFillMapBase();
    EXPECT_EQ(base[0].attributeValue, "W-2C");
    EXPECT_EQ(second[0].attributeValue, "Unknown");
    EXPECT_EQ(second[2].attributeValue, "Replace");

    EXPECT_TRUE(CHistory(&form).getAndFillMap().empty());
}

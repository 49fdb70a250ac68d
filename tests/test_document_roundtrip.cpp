// The vellument document as a whole: a hand-written file with every element and attribute is
// read, written, read and written again, and the two writes must be the same bytes. The writer
// and the reader don't mirror each other; each place where they differ has a test of its own.
// The root element is read and written here, the way the vellument object does it.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <vellument/AuditUtil.h>
#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/DateTime.h>
#include <vellument/Ostrel_XML.h>

#include "test_util.h"
#include "xml_test_util.h"

using namespace Vellument;
using testutil::attribute_names;
using testutil::data_file;
using testutil::has_attribute;

namespace {

const char* const kDateFormat = "%m/%d/%Y %H:%M:%S";

// What the root element holds.
struct Trail {
    int version = 200;
    std::string period_start, period_end, reg_mode, form_type, vendor_code, filing_year, filing_ein;
    CDateTime modified;
    CDictionary dictionary;
    std::vector<std::unique_ptr<CTransaction>> transactions;
};

void read_trail(COXMLDocument* document, Trail& trail)
{
    COXMLNode* root = document->getDocumentElement();
    ASSERT_NE(nullptr, root);
    trail.version = std::max(200, AuditUtil::to_int(root->getAttribute("Version")));
    trail.period_start = root->getAttribute("PeriodStart");
    trail.period_end = root->getAttribute("PeriodEnd");
    trail.reg_mode = root->getAttribute("RegMode");
    trail.filing_year = root->getAttribute("FilingYear");
    trail.filing_ein = root->getAttribute("FilingEIN");
    trail.vendor_code = root->getAttribute("VendorCode");
    trail.form_type = root->getAttribute("FormType");
    const char* modified = root->getAttribute("ModifiedDate");
    if (*modified != '\0')
        trail.modified.parse(modified);
    if (COXMLNode* dictionary = root->selectSingleNode("./Dictionary")) {
        CDictionary entries(dictionary);
        copy_dictionary(&entries, &trail.dictionary);
    }
    std::shared_ptr<COXMLNodeList> transactions = root->getElementsByTagName("Transaction");
    ASSERT_TRUE(transactions);
    for (int i = 0; i < transactions->length(); ++i)
        trail.transactions.push_back(std::make_unique<CTransaction>(transactions->item(i)));
}

void write_trail(const Trail& trail, const std::string& path)
{
    std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
    COXMLNode* root = document->createElement("AuditTrail");
    root->setAttribute("Version", "200");
    root->setAttribute("PeriodStart", trail.period_start.c_str());
    root->setAttribute("PeriodEnd", trail.period_end.c_str());
    root->setAttribute("RegMode", trail.reg_mode.c_str());
    root->setAttribute("FormType", trail.form_type.c_str());
    root->setAttribute("VendorCode", trail.vendor_code.c_str());
    root->setAttribute("FilingYear", trail.filing_year.c_str());
    root->setAttribute("ModifiedDate", trail.modified.format(kDateFormat).c_str());
    root->setAttribute("FilingEIN", trail.filing_ein.c_str());
    if (!trail.dictionary.empty())
        root->appendChild(trail.dictionary.create_xml_node(document.get()), true);
    for (const auto& transaction : trail.transactions)
        root->appendChild(transaction->create_xml_node(document.get()), true);
    document->appendChild(root, true);
    ASSERT_NE(0, document->save(path.c_str()));
}

std::unique_ptr<COXMLDocument> load(const std::string& path)
{
    return std::unique_ptr<COXMLDocument>(COXMLDocument::load(path.c_str(), nullptr, nullptr, 0));
}

COXMLNode* nth(COXMLNode* node, const char* tag, int index)
{
    std::shared_ptr<COXMLNodeList> list = node->getElementsByTagName(tag);
    if (!list || index >= list->length())
        return nullptr;
    return list->item(index);
}

// Writes one transaction as the root of a file and loads that file again.
class Written {
public:
    explicit Written(const CTransaction& transaction)
    {
        std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
        document->appendChild(transaction.create_xml_node(document.get()), true);
        std::string path = dir_.file("t.xml");
        EXPECT_NE(0, document->save(path.c_str()));
        loaded_ = load(path);
    }
    COXMLNode* transaction() { return loaded_ ? loaded_->getDocumentElement() : nullptr; }
    COXMLNode* element(const char* tag, int index = 0) { return transaction() ? nth(transaction(), tag, index) : nullptr; }
    std::unique_ptr<CTransaction> read_back() { return std::make_unique<CTransaction>(transaction()); }

private:
    testutil::TempDir dir_;
    std::unique_ptr<COXMLDocument> loaded_;
};

const std::vector<std::string> kPackageOrder = {
    "KXNPath", "FilingChoice", "EmployeeCount", "StateEmployeeCount", "LocalEmployeeCount", "CorrectedCount",
    "BuilderVersion", "InvoiceAmount", "AddedCount", "DeletedCount", "CorrectedEW2EmployeeCount",
    "AddedEW2EmployeeCount", "DeletedEW2EmployeeCount", "AdditionalMode", "WebServiceFail", "PackageDate"};
const std::vector<std::string> kStatusOrder(kPackageOrder.begin(), kPackageOrder.begin() + 6);
const std::vector<std::string> kFilingOrder = {
    "Date", "Type", "Identifier", "VLID", "Printed", "Mailed", "Efiled", "Corrected", "Replaceable", "Replacement",
    "KRFPath", "EfiledSuccessful", "PrintedSuccessful", "RecordsSuccessful", "EmployeeCount", "CorrectedCount"};
const std::vector<std::string> kHistoryOrder = {
    "Type", "Flags", "Completion", "Description", "Location", "EXMLLocation", "Form_Name", "KRF_DB_Path",
    "KRFVersion", "KRFFilter_Number", "KRFFilter_Number2", "Divider_Form"};

class CompanyDir : public ::testing::Test {
protected:
    void SetUp() override { CPathHandling::set_company_dir("D:\\New\\"); }
    void TearDown() override { CPathHandling::set_company_dir(""); }
};

} // namespace

// ---------------------------------------------------------------------------------------------
// The whole document

class DocumentRoundTrip : public CompanyDir {};

TEST_F(DocumentRoundTrip, SecondWriteEqualsTheFirstByteForByte)
{
    testutil::TempDir dir;
    std::unique_ptr<COXMLDocument> source = load(data_file("full_vellument.xml"));
    ASSERT_NE(nullptr, source) << data_file("full_vellument.xml");

    Trail first;
    ASSERT_NO_FATAL_FAILURE(read_trail(source.get(), first));

    // The reader took in what the file holds.
    EXPECT_EQ(350, first.version);
    EXPECT_EQ("W-2_SSA", first.form_type);
    EXPECT_EQ("02/03/2024 04:05:06", first.modified.format(kDateFormat));
    EXPECT_EQ(3u, first.dictionary.size());
    EXPECT_EQ("root & \"quoted\" <text>", first.dictionary.at("note"));
    ASSERT_EQ(29u, first.transactions.size());
    std::vector<int> actions;
    for (const auto& t : first.transactions)
        actions.push_back(t->get_action());
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0,
                                0, 0, 0}),
              actions);
    std::vector<int> package_choices, status_choices;
    for (std::size_t i = 1; i <= 13; ++i) {
        package_choices.push_back(first.transactions[i]->get_package()->get_filing_options());
        status_choices.push_back(first.transactions[i]->get_status()->get_filing_options());
    }
    EXPECT_EQ((std::vector<int>{1, 2, 12, 15, 16, 17, 18, 19, 28, 31, 0, 5, 12}), package_choices);
    EXPECT_EQ((std::vector<int>{1, 2, 12, 15, 16, 17, 18, 19, 28, 31, 0, 0, 0}), status_choices);

    CTransaction& main = *first.transactions[0];
    EXPECT_EQ(3u, main.get_dictionary()->size());
    CPackage* package = main.get_package();
    EXPECT_EQ("D:\\New\\Drafts\\pkg.KXN", package->get_kxn_path());
    EXPECT_EQ(3, package->get_filing_options());
    EXPECT_EQ(14, package->get_ew2_employee_count());
    EXPECT_EQ("$1,234.50", package->get_invoice_amount());
    EXPECT_EQ(6, package->get_deleted_ew2_employee_count());
    EXPECT_TRUE(package->get_web_service_unavailable_flag());
    EXPECT_EQ("01/15/2024 13:05:09", package->get_package_date().format(kDateFormat));

    ASSERT_EQ(20, package->get_filing_count());
    std::vector<int> filing_types;
    for (int i = 0; i < package->get_filing_count(); ++i)
        filing_types.push_back(package->get_filing_at(i)->get_type());
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0}), filing_types);
    CFiling* federal = package->get_filing_at(0);
    EXPECT_EQ("Federal W-2", federal->get_filing_name());
    EXPECT_EQ("D:\\New\\Histories\\fed.krf", federal->get_krf_file_location());
    EXPECT_EQ(0.0, package->get_filing_at(1)->get_date().get_days());
    EXPECT_EQ(0, package->get_filing_at(1)->get_date().get_status());
    EXPECT_EQ(1, package->get_filing_at(2)->get_date().get_status());
    EXPECT_EQ(1, package->get_filing_at(3)->get_date().get_status());

    std::vector<int> form_types, form_flags;
    for (int i = 0; i < federal->get_form_count(); ++i) {
        form_types.push_back(federal->get_form_at(i)->get_type());
        form_flags.push_back(federal->get_form_at(i)->get_flags());
        EXPECT_EQ(FORM_COMPLETION_APPEND, federal->get_form_at(i)->get_completion());
    }
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 20, 21, 22, 23, 24, 25, 32, 30, 31, 0, 0}), form_types);
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 0, 1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), form_flags);
    form_types.clear();
    CFiling* numbered = package->get_filing_at(1);
    for (int i = 0; i < numbered->get_form_count(); ++i)
        form_types.push_back(numbered->get_form_at(i)->get_type());
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33,
                                34, 0, 0}),
              form_types);
    EXPECT_EQ("C:\\OldCo\\Data\\db.krf", federal->get_form_at(0)->get_krf_db_path());
    EXPECT_EQ("D:\\New\\Histories\\W2_fed.pdf", federal->get_form_at(0)->get_location());

    CStatus* status = main.get_status();
    EXPECT_EQ("D:\\New\\Drafts\\status.KXN", status->get_kxn_path());
    EXPECT_EQ(24, status->get_ew2_employee_count());
    ASSERT_EQ(19, status->get_copy_count());
    EXPECT_TRUE(status->get_copy_at(0)->get_deleted_flag());
    EXPECT_EQ(3, status->get_copy_at(0)->get_history_count());
    EXPECT_EQ(status->get_copy_at(2), status->get_copy_by_type(FILING_TYPE_STATE, "MN"));
    EXPECT_EQ("01/13/2024 10:00:00", status->get_copy_at(3)->get_date().format(kDateFormat));

    // First write, and what it looks like.
    const std::string path1 = dir.file("first.VLM");
    ASSERT_NO_FATAL_FAILURE(write_trail(first, path1));
    const std::string bytes1 = testutil::read_file(path1);
    EXPECT_EQ(std::string::npos, bytes1.find("C:\\OldCo\\Histories"));
    EXPECT_EQ(std::string::npos, bytes1.find("C:\\OldCo\\Drafts"));
    EXPECT_NE(std::string::npos, bytes1.find("D:\\New\\Histories\\fed.krf"));
    EXPECT_NE(std::string::npos, bytes1.find("C:\\OldCo\\Data\\db.krf"));

    std::unique_ptr<COXMLDocument> written = load(path1);
    ASSERT_NE(nullptr, written);
    COXMLNode* root = written->getDocumentElement();
    EXPECT_EQ((std::vector<std::string>{"Version", "PeriodStart", "PeriodEnd", "RegMode", "FormType", "VendorCode",
                                        "FilingYear", "ModifiedDate", "FilingEIN"}),
              attribute_names(root));
    EXPECT_STREQ("200", root->getAttribute("Version"));
    std::vector<std::string> action_texts;
    std::shared_ptr<COXMLNodeList> transactions = root->getElementsByTagName("Transaction");
    ASSERT_EQ(29, transactions->length());
    for (int i = 0; i < transactions->length(); ++i) {
        EXPECT_EQ(std::vector<std::string>{"Action"}, attribute_names(transactions->item(i)));
        action_texts.push_back(transactions->item(i)->getAttribute("Action"));
    }
    const std::vector<std::string> names = {"None", "Filing", "Printing", "Correction", "Edit", "Status Change",
                                            "Server Deletion", "Reload", "User Edit", "Server Download", "Recover",
                                            "Bug Fix", "Orphan Employer or Payer"};
    for (std::size_t i = 0; i < actions.size(); ++i)
        EXPECT_EQ(names[static_cast<std::size_t>(actions[i])], action_texts[i]) << i;

    COXMLNode* main_element = transactions->item(0);
    COXMLNode* package_element = main_element->selectSingleNode("./Package");
    ASSERT_NE(nullptr, package_element);
    EXPECT_EQ(kPackageOrder, attribute_names(package_element));
    EXPECT_STREQ("Federal & State", package_element->getAttribute("FilingChoice"));
    EXPECT_EQ(kStatusOrder, attribute_names(main_element->selectSingleNode("./Status")));
    EXPECT_EQ(kFilingOrder, attribute_names(nth(main_element, "Filing", 0)));
    std::vector<std::string> undated(kFilingOrder.begin() + 1, kFilingOrder.end());
    EXPECT_EQ(undated, attribute_names(nth(main_element, "Filing", 1)));
    std::vector<std::string> form_order = kHistoryOrder;
    form_order.push_back("ViewerResultCode");
    form_order.push_back("ResultPrinted");
    EXPECT_EQ(form_order, attribute_names(nth(main_element, "Form", 0)));
    EXPECT_EQ(kHistoryOrder, attribute_names(nth(main_element, "History", 0)));
    std::vector<std::string> copy_order(kFilingOrder.begin(), kFilingOrder.begin() + 11);
    copy_order.push_back("Deleted");
    EXPECT_EQ(copy_order, attribute_names(nth(main_element, "Copy", 0)));
    // A package without filings carries the base attributes only; an empty dictionary is left out.
    EXPECT_EQ(kStatusOrder, attribute_names(transactions->item(1)->selectSingleNode("./Package")));
    EXPECT_EQ(nullptr, transactions->item(1)->selectSingleNode("./Dictionary"));

    // Read and write again: the same bytes.
    Trail second;
    ASSERT_NO_FATAL_FAILURE(read_trail(written.get(), second));
    EXPECT_EQ(200, second.version);
    const std::string path2 = dir.file("second.VLM");
    ASSERT_NO_FATAL_FAILURE(write_trail(second, path2));
    const std::string bytes2 = testutil::read_file(path2);
    EXPECT_FALSE(bytes1.empty());
    EXPECT_TRUE(bytes1 == bytes2) << "first write:\n" << bytes1 << "\nsecond write:\n" << bytes2;
}

// ---------------------------------------------------------------------------------------------
// Where writer and reader differ

class FormatDifference : public CompanyDir {};

TEST_F(FormatDifference, Ew2EmployeeCountIsReadButNeverWritten)
{
    CTransaction transaction;
    transaction.get_package()->set_ew2_employee_count(7);
    transaction.get_package()->add_filing(new CFiling());
    transaction.get_status()->set_ew2_employee_count(8);
    Written once(transaction);
    EXPECT_FALSE(has_attribute(once.element("Package"), "EW2EmployeeCount"));
    EXPECT_FALSE(has_attribute(once.element("Status"), "EW2EmployeeCount"));
    std::unique_ptr<CTransaction> back = once.read_back();
    EXPECT_EQ(0, back->get_package()->get_ew2_employee_count());
    EXPECT_EQ(0, back->get_status()->get_ew2_employee_count());
    // Older files that hold it are read: the full document checks that.
}

TEST_F(FormatDifference, BareNumbersAreReadAndWrittenAsText)
{
    std::unique_ptr<COXMLDocument> old(COXMLDocument::loadXML(
        "<Transaction Action=\"7\"><Package FilingChoice=\"3\"><Filing Type=\"4\"><Form Type=\"4\" Flags=\"3\"/>"
        "</Filing></Package><Status FilingChoice=\"5\"><Copy Type=\"2\"><History Type=\"26\" Flags=\"1\"/></Copy>"
        "</Status></Transaction>",
        nullptr, nullptr, 0));
    ASSERT_NE(nullptr, old);
    CTransaction transaction(old->getDocumentElement());
    EXPECT_EQ(ACTION_RELOAD, transaction.get_action());
    EXPECT_EQ(FILING_TYPE_EMPLOYEE, transaction.get_package()->get_filing_at(0)->get_type());
    EXPECT_EQ(FORM_TYPE_1099, transaction.get_package()->get_filing_at(0)->get_form_at(0)->get_type());
    EXPECT_EQ(26, transaction.get_status()->get_copy_at(0)->get_history_at(0)->get_type());

    Written once(transaction);
    EXPECT_STREQ("Reload", once.transaction()->getAttribute("Action"));
    EXPECT_STREQ("Federal & State", once.element("Package")->getAttribute("FilingChoice"));
    EXPECT_STREQ("Employee", once.element("Filing")->getAttribute("Type"));
    EXPECT_STREQ("1099", once.element("Form")->getAttribute("Type"));
    EXPECT_STREQ("Read Only", once.element("Form")->getAttribute("Flags"));
    // A choice without a text stays a number; a form type without one is lost.
    EXPECT_STREQ("5", once.element("Status")->getAttribute("FilingChoice"));
    EXPECT_STREQ("State", once.element("Copy")->getAttribute("Type"));
    EXPECT_STREQ("Unknown", once.element("History")->getAttribute("Type"));
    EXPECT_STREQ("Background", once.element("History")->getAttribute("Flags"));
    std::unique_ptr<CTransaction> back = once.read_back();
    EXPECT_EQ(5, back->get_status()->get_filing_options());
    EXPECT_EQ(0, back->get_status()->get_copy_at(0)->get_history_at(0)->get_type());
}

TEST_F(FormatDifference, PackageWithoutFilingsLosesItsOwnAttributes)
{
    CTransaction transaction;
    CPackage* package = transaction.get_package();
    package->set_kxn_path("C:\\Co\\Drafts\\p.KXN");
    package->set_employee_count(4);
    package->set_builder_version("9.9");
    package->set_deleted_ew2_employee_count(5);
    package->set_web_service_unavailable_flag(true);
    package->set_package_date(CDateTime(40000.0));

    Written once(transaction);
    EXPECT_EQ(kStatusOrder, attribute_names(once.element("Package")));
    EXPECT_STREQ("D:\\New\\Drafts\\p.KXN", once.element("Package")->getAttribute("KXNPath"));
    CDateTime before = CDateTime::now();
    std::unique_ptr<CTransaction> back = once.read_back();
    CPackage* read = back->get_package();
    EXPECT_EQ(4, read->get_employee_count());
    EXPECT_EQ("", read->get_builder_version());
    EXPECT_EQ(0, read->get_deleted_ew2_employee_count());
    EXPECT_FALSE(read->get_web_service_unavailable_flag());
    // The date comes back as the time of reading.
    EXPECT_GE(read->get_package_date().get_days(), before.get_days());
    EXPECT_EQ(0, read->get_package_date().get_status());

    // With one filing the same package keeps everything.
    package->add_filing(new CFiling());
    Written with_filing(transaction);
    EXPECT_EQ(kPackageOrder, attribute_names(with_filing.element("Package")));
    std::unique_ptr<CTransaction> kept_transaction = with_filing.read_back();
    CPackage* kept = kept_transaction->get_package();
    EXPECT_EQ("9.9", kept->get_builder_version());
    EXPECT_EQ(5, kept->get_deleted_ew2_employee_count());
    EXPECT_TRUE(kept->get_web_service_unavailable_flag());
    EXPECT_EQ(40000.0, kept->get_package_date().get_days());
}

TEST_F(FormatDifference, ZeroDatesLeaveNoAttribute)
{
    CTransaction transaction;
    CFiling* filing = new CFiling();
    ASSERT_EQ(0.0, filing->get_date().get_days());
    transaction.get_package()->add_filing(filing);
    transaction.get_package()->set_package_date(CDateTime(0.0));
    CCopy* copy = new CCopy();
    transaction.get_status()->add_copy(copy);

    Written once(transaction);
    EXPECT_FALSE(has_attribute(once.element("Package"), "PackageDate"));
    EXPECT_FALSE(has_attribute(once.element("Filing"), "Date"));
    EXPECT_FALSE(has_attribute(once.element("Copy"), "Date"));
    CDateTime before = CDateTime::now();
    std::unique_ptr<CTransaction> back = once.read_back();
    EXPECT_GE(back->get_package()->get_package_date().get_days(), before.get_days());
    EXPECT_EQ(0.0, back->get_package()->get_filing_at(0)->get_date().get_days());
    EXPECT_EQ(0, back->get_package()->get_filing_at(0)->get_date().get_status());
    EXPECT_EQ(0.0, back->get_status()->get_copy_at(0)->get_date().get_days());
    // The attribute list, unlike the document, holds the zero date.
    EXPECT_EQ("12/30/1899 00:00:00", back->get_status()->get_copy_at(0)->getAndFillMapBase()[0].attributeValue);
}

TEST_F(FormatDifference, InvalidDatesAreWrittenAsInvalidDateTimeOnce)
{
    CTransaction transaction;
    CFiling* filing = new CFiling();
    filing->set_date(CDateTime(45000.25, CDateTime::invalid));
    transaction.get_package()->add_filing(filing);
    CDateTime out_of_range;
    EXPECT_FALSE(out_of_range.parse("01/01/0099"));  // before year 100: -1.0, invalid
    transaction.get_package()->set_package_date(out_of_range);

    Written once(transaction);
    EXPECT_STREQ("Invalid DateTime", once.element("Filing")->getAttribute("Date"));
    EXPECT_STREQ("Invalid DateTime", once.element("Package")->getAttribute("PackageDate"));
    std::unique_ptr<CTransaction> back = once.read_back();
    CDateTime filing_date = back->get_package()->get_filing_at(0)->get_date();
    CDateTime package_date = back->get_package()->get_package_date();
    EXPECT_EQ(0.0, filing_date.get_days());
    EXPECT_EQ(CDateTime::invalid, filing_date.get_status());
    EXPECT_EQ(0.0, package_date.get_days());
    EXPECT_EQ(CDateTime::invalid, package_date.get_status());
    EXPECT_EQ("Invalid DateTime", back->get_package()->get_filing_at(0)->getAndFillMapBase()[0].attributeValue);

    // From then on the zero day count leaves the attributes out.
    Written twice(*back);
    EXPECT_FALSE(has_attribute(twice.element("Filing"), "Date"));
    EXPECT_FALSE(has_attribute(twice.element("Package"), "PackageDate"));
}

TEST_F(FormatDifference, MemoryOnlyFieldsDoNotSurviveTheFile)
{
    CTransaction transaction;
    transaction.set_number(5);
    transaction.set_is_test(true);
    transaction.set_action(ACTION_EDIT);
    CPackage* package = transaction.get_package();
    package->set_call_efiler_flag(true);
    CFiling* filing = new CFiling();
    filing->set_records_flag(true);
    filing->set_force_print_flag(true);
    filing->set_state_employee_count(4);
    filing->increment_print_success_count();
    filing->set_efiled_successful_flag(true);
    filing->set_corrected_employee_count(6);
    CForm* form = new CForm();
    form->set_task_number(7);
    form->set_paper_warning("warn");
    form->set_special_paper(true);
    form->set_viewer_result_code("Succeeded");
    filing->add_form(form);
    package->add_filing(filing);

    std::unique_ptr<CTransaction> back = Written(transaction).read_back();
    EXPECT_EQ(ACTION_EDIT, back->get_action());
    EXPECT_EQ(0, back->get_number());
    EXPECT_FALSE(back->get_is_test());
    EXPECT_FALSE(back->get_package()->get_call_efiler_flag());
    CFiling* read = back->get_package()->get_filing_at(0);
    EXPECT_FALSE(read->get_records_flag());
    EXPECT_FALSE(read->get_force_print_flag());
    EXPECT_EQ(0, read->get_state_employee_count());
    EXPECT_EQ(0, read->get_print_success_count());
    EXPECT_TRUE(read->get_efiled_successful_flag());
    EXPECT_EQ(6, read->get_corrected_employee_count());
    CForm* read_form = read->get_form_at(0);
    EXPECT_EQ(0, read_form->get_task_number());
    EXPECT_EQ("", read_form->get_paper_warning());
    EXPECT_FALSE(read_form->get_special_paper());
    EXPECT_EQ("Succeeded", read_form->get_viewer_result_code());
}

TEST_F(FormatDifference, DictionaryElementOnlyWithEntries)
{
    CTransaction transaction;
    Written empty(transaction);
    EXPECT_EQ(nullptr, empty.transaction()->selectSingleNode("./Dictionary"));
    EXPECT_TRUE(empty.read_back()->get_dictionary()->empty());

    (*transaction.get_dictionary())["STARTOVER"] = "1";
    Written full(transaction);
    ASSERT_NE(nullptr, full.transaction()->selectSingleNode("./Dictionary"));
    EXPECT_EQ("1", full.read_back()->get_dictionary()->at("STARTOVER"));
}

// Package, status, transaction and dictionary: ownership, the two-name accessors, the copy
// lookup with its "FE" fallback, removal, and the merge of a package into a new status.

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/Ostrel_XML.h>

#include "test_util.h"

using namespace Vellument;

// The status records have no virtual operation; transactions and dictionaries are deleted
// through their virtual destructors.
static_assert(!std::is_polymorphic<CStatusBase>::value && !std::is_polymorphic<CPackage>::value &&
                  !std::is_polymorphic<CStatus>::value,
              "status records are not polymorphic");
static_assert(std::has_virtual_destructor<CTransaction>::value && std::has_virtual_destructor<CDictionary>::value,
              "transaction and dictionary have virtual destructors");

namespace {

// A copy of that type and identifier, handed to the status when one is given.
CCopy* make_copy(FILING_TYPE type, const char* identifier, CStatus* owner = nullptr)
{
    CCopy* copy = new CCopy();
    copy->set_type(type);
    copy->set_identifier(identifier);
    if (owner != nullptr)
        owner->add_copy(copy);
    return copy;
}

std::string value_of(const attributeDicList& list, const std::string& name)
{
    for (const attributeDic& row : list)
        if (row.attributeName == name)
            return row.attributeValue;
    ADD_FAILURE() << "no row " << name;
    return std::string();
}

// Parses an XML text and keeps the document for as long as the nodes are used.
struct ParsedXml {
    explicit ParsedXml(const std::string& text)
        : document(COXMLDocument::loadXML(text.c_str(), nullptr, nullptr, 0))
    {
    }
    COXMLNode* root() { return document ? document->getDocumentElement() : nullptr; }
    std::unique_ptr<COXMLDocument> document;
};

} // namespace

// ---------------------------------------------------------------------------------------------
// Status base and package

TEST(StatusBase, EveryCounterHasOneFieldUnderBothNames)
{
    CPackage package;
    package.set_employee_count(3);
    package.set_state_recipient_count(4);
    package.set_local_recipient_count(5);
    package.set_corrected_recipient_count(6);
    package.set_deleted_recipient_count(7);
    package.set_added_recipient_count(8);
    const int got[] = {package.get_recipient_count(), package.get_state_employee_count(),
                       package.get_local_employee_count(), package.get_corrected_employee_count(),
                       package.get_deleted_employee_count(), package.get_added_employee_count()};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(3 + i, got[i]);

    package.set_recipient_count(30);
    package.set_added_employee_count(80);
    EXPECT_EQ(30, package.get_employee_count());
    EXPECT_EQ(80, package.get_added_recipient_count());
    // The ew2 counters are fields of their own.
    EXPECT_EQ(0, package.get_ew2_employee_count());
    EXPECT_EQ(0, package.get_corrected_ew2_employee_count());
}

TEST(StatusBase, KxnPathFollowsTheCompanyDirectory)
{
    CPathHandling::set_company_dir("C:\\Co\\");
    CStatus status;
    status.set_kxn_path("C:\\Co\\Drafts\\X.KXN");
    CPathHandling::set_company_dir("D:\\New\\");
    EXPECT_EQ("D:\\New\\Drafts\\X.KXN", status.get_kxn_path());

    // A copy holds the absolute form, so it no longer follows a move of the company directory,
    // but reads the same as the source at the time of copying.
    CStatus copy(&status);
    EXPECT_EQ("D:\\New\\Drafts\\X.KXN", copy.get_kxn_path());
    CPathHandling::set_company_dir("E:\\Other\\");
    EXPECT_EQ("E:\\Other\\Drafts\\X.KXN", status.get_kxn_path());
    EXPECT_EQ("D:\\New\\Drafts\\X.KXN", copy.get_kxn_path());

    status.set_kxn_path("");
    EXPECT_EQ("", status.get_kxn_path());
    CPathHandling::set_company_dir("");
}

TEST(StatusBase, AttributeListHoldsEachValueInItsOwnRow)
{
    CPathHandling::set_company_dir("C:\\Co\\");
    CStatus status;
    status.set_kxn_path("C:\\Old\\Drafts\\k.KXN");
    status.set_filing_options(3);
    status.set_employee_count(1);
    status.set_state_employee_count(2);
    status.set_local_employee_count(3);
    status.set_corrected_employee_count(4);
    status.set_ew2_employee_count(99);
    attributeDicList list = status.getAndFillMapBase();
    EXPECT_EQ("C:\\Co\\Drafts\\k.KXN", value_of(list, "KXNPath"));
    EXPECT_EQ("Federal & State", value_of(list, "FilingChoice"));
    EXPECT_EQ("2", value_of(list, "StateEmployeeCount"));
    EXPECT_EQ("4", value_of(list, "CorrectedCount"));
    EXPECT_TRUE(status.getAndFillMap().empty());

    // Two lists filled one after the other don't share storage.
    CStatus other;
    other.set_employee_count(50);
    attributeDicList second = other.getAndFillMapBase();
    EXPECT_EQ("1", value_of(list, "EmployeeCount"));
    EXPECT_EQ("50", value_of(second, "EmployeeCount"));
    CPathHandling::set_company_dir("");
}

TEST(Package, AttributeListOfTheOwnFields)
{
    CPackage package;
    package.set_invoice_amount("12.50");
    package.set_added_employee_count(1);
    package.set_deleted_ew2_employee_count(5);
    package.set_additional_filing_mode_flag(true);
    package.set_web_service_unavailable_flag(false);
    CDateTime date;
    ASSERT_TRUE(date.parse("01/15/2024 13:05:09"));
    package.set_package_date(date);

    attributeDicList list = package.getAndFillMap();
    EXPECT_EQ("12.50", value_of(list, "InvoiceAmount"));
    EXPECT_EQ("1", value_of(list, "AddedCount"));
    EXPECT_EQ("5", value_of(list, "DeletedEW2EmployeeCount"));
    EXPECT_EQ("true", value_of(list, "AdditionalMode"));
    EXPECT_EQ("false", value_of(list, "WebServiceFail"));
    EXPECT_EQ("01/15/2024 13:05:09", value_of(list, "PackageDate"));
    EXPECT_EQ("STRING", list[7].attributeType);
    EXPECT_EQ("BOOLEAN", list[8].attributeType);

    // The list, unlike the document, holds a zero date too.
    package.set_package_date(CDateTime(0.0));
    EXPECT_EQ("12/30/1899 00:00:00", value_of(package.getAndFillMap(), "PackageDate"));
}

TEST(Package, CopyIsDeepAndKeepsEveryField)
{
    CPathHandling::set_company_dir("C:\\Co\\");
    auto source = std::make_unique<CPackage>();
    source->set_employee_count(1);
    source->set_state_employee_count(2);
    source->set_local_employee_count(3);
    source->set_corrected_employee_count(4);
    source->set_ew2_employee_count(5);
    source->set_deleted_employee_count(6);
    source->set_added_employee_count(7);
    source->set_corrected_ew2_employee_count(8);
    source->set_added_ew2_employee_count(9);
    source->set_deleted_ew2_employee_count(10);
    source->set_filing_options(17);
    source->set_kxn_path("C:\\Co\\Drafts\\p.KXN");
    source->set_call_efiler_flag(true);
    source->set_web_service_unavailable_flag(true);
    source->set_additional_filing_mode_flag(true);
    source->set_builder_version("b");
    source->set_invoice_amount("i");
    source->set_package_date(CDateTime(45000.5, 1));

    CFiling* filing = new CFiling();
    filing->set_type(FILING_TYPE_STATE);
    filing->set_identifier("MN");
    CForm* form = new CForm();
    form->set_type(FORM_TYPE_W2);
    form->set_viewer_result_code("Succeeded");
    filing->add_form(form);
    source->add_filing(filing);
    source->add_filing(new CFiling());

    CPackage copy(source.get());
    const int counters[] = {copy.get_employee_count(), copy.get_state_employee_count(),
                            copy.get_local_employee_count(), copy.get_corrected_employee_count(),
                            copy.get_ew2_employee_count(), copy.get_deleted_employee_count(),
                            copy.get_added_employee_count(), copy.get_corrected_ew2_employee_count(),
                            copy.get_added_ew2_employee_count(), copy.get_deleted_ew2_employee_count()};
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(i + 1, counters[i]);
    EXPECT_EQ(17, copy.get_filing_options());
    EXPECT_EQ("C:\\Co\\Drafts\\p.KXN", copy.get_kxn_path());
    EXPECT_TRUE(copy.get_call_efiler_flag());
    EXPECT_TRUE(copy.get_web_service_unavailable_flag());
    EXPECT_TRUE(copy.get_additional_filing_mode_flag());
    EXPECT_EQ("b", copy.get_builder_version());
    EXPECT_EQ("i", copy.get_invoice_amount());
    EXPECT_EQ(45000.5, copy.get_package_date().get_days());
    EXPECT_EQ(1, copy.get_package_date().get_status());

    ASSERT_EQ(2, copy.get_filing_count());
    CFiling* copied = copy.get_filing_at(0);
    EXPECT_NE(filing, copied);
    EXPECT_EQ(FILING_TYPE_STATE, copied->get_type());
    EXPECT_EQ("MN", copied->get_identifier());
    ASSERT_EQ(1, copied->get_form_count());
    // The forms come over as their form base only.
    EXPECT_EQ("", copied->get_form_at(0)->get_viewer_result_code());
    EXPECT_EQ(FORM_TYPE_W2, copied->get_form_at(0)->get_type());

    // Changing and then destroying the source leaves the copy whole.
    filing->set_identifier("WI");
    source->delete_filings();
    EXPECT_EQ(0, source->get_filing_count());
    source.reset();
    EXPECT_EQ("MN", copy.get_filing_at(0)->get_identifier());
    copy.get_filing_at(1)->set_vlid(4);

    CPackage from_null(static_cast<const CPackage*>(nullptr));
    EXPECT_EQ(0, from_null.get_filing_count());
    CPathHandling::set_company_dir("");
}

TEST(Package, BadFilingIndexRaisesAndChangesNothing)
{
    CPackage package;
    EXPECT_THROW(package.get_filing_at(0), std::invalid_argument);
    package.add_filing(new CFiling());
    package.add_filing(nullptr);
    EXPECT_EQ(1, package.get_filing_count());
    EXPECT_THROW(package.get_filing_at(-1), std::invalid_argument);
    EXPECT_THROW(package.get_filing_at(1), std::invalid_argument);
    EXPECT_EQ(1, package.get_filing_count());
    EXPECT_NO_THROW(package.get_filing_at(0));
}

// ---------------------------------------------------------------------------------------------
// Status: copies and their lookup

TEST(Status, FederalLevelLookupFallsBackToFE)
{
    CStatus status;
    CCopy* federal = make_copy(FILING_TYPE_FEDERAL, "FE", &status);
    CCopy* state_fe = make_copy(FILING_TYPE_STATE, "FE", &status);
    make_copy(FILING_TYPE_LOCAL, "FE", &status);
    CCopy* employee = make_copy(FILING_TYPE_EMPLOYEE, "FE", &status);
    CCopy* minnesota = make_copy(FILING_TYPE_STATE, "MN", &status);
    CCopy* payer_bare = make_copy(FILING_TYPE_PAYER, "", &status);

    EXPECT_EQ(federal, status.get_copy_by_type(FILING_TYPE_FEDERAL, "XX"));
    EXPECT_EQ(federal, status.get_copy_by_type(FILING_TYPE_FEDERAL, ""));
    EXPECT_EQ(federal, status.get_copy_by_type(FILING_TYPE_FEDERAL, nullptr));
    EXPECT_EQ(employee, status.get_copy_by_type(FILING_TYPE_EMPLOYEE, "XX"));
    // State and local have to match exactly.
    EXPECT_EQ(nullptr, status.get_copy_by_type(FILING_TYPE_STATE, "XX"));
    EXPECT_EQ(nullptr, status.get_copy_by_type(FILING_TYPE_LOCAL, "XX"));
    EXPECT_EQ(state_fe, status.get_copy_by_type(FILING_TYPE_STATE, "FE"));
    EXPECT_EQ(minnesota, status.get_copy_by_type(FILING_TYPE_STATE, "MN"));
    // An exact key wins over the fallback; null counts as the empty identifier.
    EXPECT_EQ(payer_bare, status.get_copy_by_type(FILING_TYPE_PAYER, nullptr));
    EXPECT_EQ(nullptr, status.get_copy_by_type(FILING_TYPE_EMPLOYER, nullptr));
    // The key holds the type's number, not its text: a type with no text is a key of its own.
    EXPECT_EQ(nullptr, status.get_copy_by_type(static_cast<FILING_TYPE>(11), "FE"));

    CStatus empty;
    EXPECT_EQ(nullptr, empty.get_copy_by_type(FILING_TYPE_FEDERAL, "FE"));
}

TEST(Status, DuplicateKeysAndRemovalAt)
{
    CStatus status;
    CCopy* first = make_copy(FILING_TYPE_STATE, "MN", &status);
    CCopy* second = make_copy(FILING_TYPE_STATE, "MN", &status);
    CCopy* other = make_copy(FILING_TYPE_FEDERAL, "FE", &status);
    EXPECT_EQ(3, status.get_copy_count());
    EXPECT_EQ(second, status.get_copy_by_type(FILING_TYPE_STATE, "MN"));

    EXPECT_THROW(status.remove_copy_at(3), std::invalid_argument);
    EXPECT_THROW(status.remove_copy_at(-1), std::invalid_argument);
    EXPECT_THROW(status.get_copy_at(3), std::invalid_argument);
    EXPECT_EQ(3, status.get_copy_count());
    EXPECT_EQ(second, status.get_copy_by_type(FILING_TYPE_STATE, "MN"));

    // Removing the later one erases the key: the earlier copy stays but can't be found by type.
    status.remove_copy_at(1);
    EXPECT_EQ(2, status.get_copy_count());
    EXPECT_EQ(first, status.get_copy_at(0));
    EXPECT_EQ(other, status.get_copy_at(1));
    EXPECT_EQ(nullptr, status.get_copy_by_type(FILING_TYPE_STATE, "MN"));
    EXPECT_EQ(other, status.get_copy_by_type(FILING_TYPE_FEDERAL, "FE"));

    status.remove_copy_at(0);
    EXPECT_EQ(1, status.get_copy_count());
    EXPECT_EQ(other, status.get_copy_at(0));

    // Removing the earlier of two duplicates must not leave the index pointing at a dead copy.
    CStatus twice;
    make_copy(FILING_TYPE_STATE, "MN", &twice);
    CCopy* later = make_copy(FILING_TYPE_STATE, "MN", &twice);
    twice.remove_copy_at(0);
    EXPECT_EQ(1, twice.get_copy_count());
    EXPECT_EQ(later, twice.get_copy_at(0));
    EXPECT_EQ(nullptr, twice.get_copy_by_type(FILING_TYPE_STATE, "MN"));
}

TEST(Status, RemovalByTypeUsesTheFallbackAndOwnKey)
{
    CStatus status;
    make_copy(FILING_TYPE_FEDERAL, "FE", &status);
    CCopy* state = make_copy(FILING_TYPE_STATE, "MN", &status);
    CCopy* employer = make_copy(FILING_TYPE_EMPLOYER, "", &status);

    status.remove_copy_by_type(FILING_TYPE_STATE, "WI");
    status.remove_copy_by_type(FILING_TYPE_PAYER, "");
    EXPECT_EQ(3, status.get_copy_count());

    status.remove_copy_by_type(FILING_TYPE_FEDERAL, "XX");
    EXPECT_EQ(2, status.get_copy_count());
    EXPECT_EQ(state, status.get_copy_at(0));
    EXPECT_EQ(employer, status.get_copy_at(1));
    EXPECT_EQ(nullptr, status.get_copy_by_type(FILING_TYPE_FEDERAL, "FE"));

    status.remove_copy_by_type(FILING_TYPE_EMPLOYER, nullptr);
    EXPECT_EQ(1, status.get_copy_count());
    EXPECT_EQ(state, status.get_copy_at(0));
    EXPECT_EQ(state, status.get_copy_by_type(FILING_TYPE_STATE, "MN"));
}

TEST(Status, CopyIdentityChangedAfterAddingDoesNotLeaveAStalePointer)
{
    // Not allowed by the rules, but a mistake of a caller must not turn into a use after free.
    CStatus status;
    CCopy* copy = make_copy(FILING_TYPE_STATE, "MN", &status);
    copy->set_identifier("WI");
    status.remove_copy_at(0);
    EXPECT_EQ(nullptr, status.get_copy_by_type(FILING_TYPE_STATE, "MN"));
    EXPECT_EQ(nullptr, status.get_copy_by_type(FILING_TYPE_STATE, "WI"));
    EXPECT_EQ(0, status.get_copy_count());
}

TEST(Status, CopyConstructorIsDeepAndAnyEfiled)
{
    auto source = std::make_unique<CStatus>();
    CCopy* federal = make_copy(FILING_TYPE_FEDERAL, "FE");
    federal->set_efiled_flag(true);
    federal->set_deleted_flag(true);
    source->add_copy(federal);
    source->add_copy(make_copy(FILING_TYPE_STATE, "MN"));
    source->set_filing_options(2);

    CStatus copy(source.get());
    ASSERT_EQ(2, copy.get_copy_count());
    CCopy* copied = copy.get_copy_by_type(FILING_TYPE_FEDERAL, "XX");
    ASSERT_NE(nullptr, copied);
    EXPECT_NE(federal, copied);
    EXPECT_EQ(copied, copy.get_copy_at(0));
    EXPECT_TRUE(copied->get_efiled_flag());
    EXPECT_TRUE(copied->get_deleted_flag());
    EXPECT_EQ(2, copy.get_filing_options());
    EXPECT_TRUE(copy.getAnyEfiledStatus());

    source.reset();
    EXPECT_EQ("MN", copy.get_copy_by_type(FILING_TYPE_STATE, "MN")->get_identifier());
    CStatus any;
    EXPECT_FALSE(any.getAnyEfiledStatus());
    any.add_copy(make_copy(FILING_TYPE_FEDERAL, "FE"));
    any.add_copy(make_copy(FILING_TYPE_STATE, "MN"));
    EXPECT_FALSE(any.getAnyEfiledStatus());
    any.get_copy_at(1)->set_efiled_flag(true);
    EXPECT_TRUE(any.getAnyEfiledStatus());
}

TEST(Status, CreateFromPackageMergesChoiceAndTakesCounters)
{
    CPathHandling::set_company_dir("C:\\Co\\");
    CStatus status;
    status.set_filing_options(1);
    status.set_employee_count(100);
    status.set_ew2_employee_count(100);
    status.set_state_employee_count(100);
    status.set_local_employee_count(100);
    status.set_corrected_employee_count(100);
    status.set_kxn_path("C:\\Co\\Drafts\\old.KXN");
    CCopy* federal = make_copy(FILING_TYPE_FEDERAL, "FE", &status);

    CPackage package;
    package.set_filing_options(2);
    package.set_employee_count(1);
    package.set_ew2_employee_count(2);
    package.set_state_employee_count(3);
    package.set_local_employee_count(4);
    package.set_corrected_employee_count(0);
    package.set_kxn_path("C:\\Elsewhere\\Drafts\\new.KXN");
    package.add_filing(new CFiling());

    std::unique_ptr<CStatus> merged(CStatus::create_status_from_package(&status, &package));
    ASSERT_NE(nullptr, merged);
    EXPECT_EQ(3, merged->get_filing_options());
    EXPECT_EQ(1, merged->get_employee_count());
    EXPECT_EQ(2, merged->get_ew2_employee_count());
    EXPECT_EQ(3, merged->get_state_employee_count());
    EXPECT_EQ(4, merged->get_local_employee_count());
    EXPECT_EQ(0, merged->get_corrected_employee_count());
    // Stored relative again, so it follows the company directory.
    CPathHandling::set_company_dir("D:\\New\\");
    EXPECT_EQ("D:\\New\\Drafts\\new.KXN", merged->get_kxn_path());
    // The copies are the status's, deep-copied; the package's filings play no part.
    ASSERT_EQ(1, merged->get_copy_count());
    EXPECT_NE(federal, merged->get_copy_at(0));
    EXPECT_EQ(merged->get_copy_at(0), merged->get_copy_by_type(FILING_TYPE_FEDERAL, "FE"));

    // Both inputs as they were.
    EXPECT_EQ(1, status.get_filing_options());
    EXPECT_EQ(100, status.get_employee_count());
    EXPECT_EQ(1, status.get_copy_count());
    EXPECT_EQ("D:\\New\\Drafts\\old.KXN", status.get_kxn_path());
    EXPECT_EQ(2, package.get_filing_options());
    EXPECT_EQ(1, package.get_filing_count());

    std::unique_ptr<CStatus> from_nothing(CStatus::create_status_from_package(nullptr, &package));
    EXPECT_EQ(2, from_nothing->get_filing_options());
    EXPECT_EQ(0, from_nothing->get_copy_count());
    CPathHandling::set_company_dir("");
}

// ---------------------------------------------------------------------------------------------
// Transaction

TEST(Transaction, DefaultsAndOwnership)
{
    CTransaction transaction;
    EXPECT_EQ(ACTION_NONE, transaction.get_action());
    EXPECT_FALSE(transaction.get_is_test());
    EXPECT_EQ(0, transaction.get_number());
    ASSERT_NE(nullptr, transaction.get_package());
    ASSERT_NE(nullptr, transaction.get_status());
    ASSERT_NE(nullptr, transaction.get_dictionary());
    EXPECT_TRUE(transaction.get_dictionary()->empty());

    // Replacing setters delete what they held (checked for leaks by the sanitizer build).
    CPackage* package = new CPackage();
    transaction.set_package(package);
    EXPECT_EQ(package, transaction.get_package());
    CStatus* status = new CStatus();
    transaction.set_status(status);
    EXPECT_EQ(status, transaction.get_status());
    CDictionary* dictionary = new CDictionary();
    (*dictionary)["a"] = "1";
    transaction.set_dictionary(dictionary);
    EXPECT_EQ("1", (*transaction.get_dictionary())["a"]);

    // Handing back the pointer already held must keep it alive.
    transaction.set_package(package);
    transaction.set_status(status);
    transaction.set_dictionary(dictionary);
    EXPECT_EQ(0, transaction.get_package()->get_filing_count());
    EXPECT_EQ(0, transaction.get_status()->get_copy_count());
    EXPECT_EQ(1u, transaction.get_dictionary()->size());
}

// Not documents the library writes, but a hostile file or a careless caller must not leave a hole.
TEST(Transaction, TakesOverItsStatusAndFillsMissingParts)
{
    CStatus* status = new CStatus();
    status->add_copy(make_copy(FILING_TYPE_FEDERAL, "FE"));
    {
        CTransaction transaction(status);
        EXPECT_EQ(status, transaction.get_status());
        EXPECT_NE(nullptr, transaction.get_package());
        EXPECT_NE(nullptr, transaction.get_dictionary());
    }
    // The status died with the transaction: the sanitizer build reports a leak or double free.
    CTransaction from_null(static_cast<CStatus*>(nullptr));
    EXPECT_NE(nullptr, from_null.get_status());

    ParsedXml xml("<Transaction Action=\"Edit\"/>");
    ASSERT_NE(nullptr, xml.root());
    CTransaction read(xml.root());
    EXPECT_EQ(ACTION_EDIT, read.get_action());
    ASSERT_NE(nullptr, read.get_package());
    ASSERT_NE(nullptr, read.get_status());
    ASSERT_NE(nullptr, read.get_dictionary());
    EXPECT_TRUE(read.get_dictionary()->empty());
    CTransaction from_no_node(static_cast<COXMLNode*>(nullptr));
    EXPECT_EQ(ACTION_NONE, from_no_node.get_action());
    EXPECT_NE(nullptr, from_no_node.get_status());

    // The writer survives parts set to null.
    read.set_package(nullptr);
    read.set_status(nullptr);
    read.set_dictionary(nullptr);
    std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
    COXMLNode* element = read.create_xml_node(document.get());
    ASSERT_NE(nullptr, element);
    EXPECT_STREQ("Transaction", element->nodeName());
    EXPECT_EQ(nullptr, read.create_xml_node(nullptr));
}

// ---------------------------------------------------------------------------------------------
// Dictionary

TEST(Dictionary, CopyDictionaryMergesAndConstructorsCopy)
{
    CDictionary target;
    target["a"] = "1";
    target["b"] = "2";
    CDictionary source;
    source["b"] = "3";
    source["c"] = "4";
    copy_dictionary(&source, &target);
    EXPECT_EQ(3u, target.size());
    EXPECT_EQ("1", target["a"]);
    EXPECT_EQ("3", target["b"]);
    EXPECT_EQ("4", target["c"]);
    EXPECT_EQ(2u, source.size());

    CDictionary empty;
    copy_dictionary(&empty, &target);
    copy_dictionary(nullptr, &target);
    copy_dictionary(&source, nullptr);
    copy_dictionary(&target, &target);
    EXPECT_EQ(3u, target.size());

    CDictionary from_null_copy(static_cast<const CDictionary*>(nullptr));
    CDictionary from_null_node(static_cast<COXMLNode*>(nullptr));
    EXPECT_TRUE(from_null_copy.empty());
    EXPECT_TRUE(from_null_node.empty());

    auto owned = std::make_unique<CDictionary>();
    (*owned)["k"] = "v";
    CDictionary copy(owned.get());
    owned.reset();
    EXPECT_EQ("v", copy.at("k"));
}

TEST(Dictionary, ReadsEveryAttributeAndWritesThemInKeyOrder)
{
    ParsedXml xml("<Dictionary zeta=\"last\" alpha=\"first &amp; more\" mid=\"\"/>");
    ASSERT_NE(nullptr, xml.root());
    CDictionary dictionary(xml.root());
    ASSERT_EQ(3u, dictionary.size());
    EXPECT_EQ("first & more", dictionary.at("alpha"));
    EXPECT_EQ("", dictionary.at("mid"));

    std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
    COXMLNode* element = dictionary.create_xml_node(document.get());
    ASSERT_NE(nullptr, element);
    EXPECT_STREQ("Dictionary", element->nodeName());
    std::shared_ptr<COXMLNamedNodeMap> attributes = element->attributes();
    ASSERT_EQ(3, attributes->length());
    EXPECT_STREQ("alpha", attributes->item(0)->nodeName());
    EXPECT_STREQ("first & more", attributes->item(0)->getText());
    EXPECT_STREQ("mid", attributes->item(1)->nodeName());
    EXPECT_STREQ("zeta", attributes->item(2)->nodeName());
}

TEST(Dictionary, KeysThatAreNoXmlNamesAreNotWritten)
{
    CDictionary dictionary;
    dictionary["good_key"] = "1";
    dictionary[""] = "2";
    dictionary["has space"] = "3";
    dictionary["9lives"] = "4";
    dictionary["a<b"] = "5";
    std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
    COXMLNode* element = dictionary.create_xml_node(document.get());
    ASSERT_NE(nullptr, element);
    document->appendChild(element, true);
    std::shared_ptr<COXMLNamedNodeMap> attributes = element->attributes();
    ASSERT_EQ(1, attributes->length());
    EXPECT_STREQ("good_key", attributes->item(0)->nodeName());

    // And what was written reads back.
    testutil::TempDir dir;
    ASSERT_NE(0, document->save(dir.file("d.xml").c_str()));
    std::unique_ptr<COXMLDocument> loaded(COXMLDocument::load(dir.file("d.xml").c_str(), nullptr, nullptr, 0));
    ASSERT_NE(nullptr, loaded);
    CDictionary back(loaded->getDocumentElement());
    EXPECT_EQ(1u, back.size());
    EXPECT_EQ("1", back.at("good_key"));
}

// ---------------------------------------------------------------------------------------------
// Nested records

TEST(NestedDocument, PackagesAndStatusesReadRecordsAtAnyDepth)
{
    // A package and a status take every Filing and Copy below them, not only their own
    // children: each of the nested transactions reads its own records and all deeper ones.
    const int depth = 50;
    std::string text = "<AuditTrail>";
    for (int i = 0; i < depth; ++i)
        text += "<Transaction Action=\"Filing\"><Status><Copy Type=\"Federal\" Identifier=\"FE\"/></Status>"
                "<Package><Wrapper><Filing Type=\"State\"/></Wrapper>";
    for (int i = 0; i < depth; ++i)
        text += "</Package></Transaction>";
    text += "</AuditTrail>";
    ParsedXml xml(text);
    ASSERT_NE(nullptr, xml.root());

    std::shared_ptr<COXMLNodeList> transactions = xml.root()->getElementsByTagName("Transaction");
    ASSERT_EQ(depth, transactions->length());
    for (int i = 0; i < transactions->length(); ++i) {
        CTransaction transaction(transactions->item(i));
        EXPECT_EQ(depth - i, transaction.get_package()->get_filing_count()) << i;
        // The status is a sibling of the package, so it holds only its own copy.
        EXPECT_EQ(1, transaction.get_status()->get_copy_count()) << i;
    }
}

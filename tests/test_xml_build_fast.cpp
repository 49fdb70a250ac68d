// The records write their attributes on a shorter way than setAttribute; what they store must be
// what setAttribute stores for the same text, byte for byte in the saved file.

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

#include <vellument/CCopy.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_XML.h>

#include "test_util.h"

namespace {

using Doc = std::unique_ptr<COXMLDocument>;

// The same element tree made again through createElement and setAttribute alone.
COXMLNode* twin(COXMLDocument* document, COXMLNode* original)
{
    COXMLNode* copy = document->createElement(original->nodeName());
    std::shared_ptr<COXMLNamedNodeMap> attributes = original->attributes();
    for (int i = 0; i < attributes->length(); ++i)
        copy->setAttribute(attributes->item(i)->nodeName(), attributes->item(i)->getText());
    if (std::shared_ptr<COXMLNodeList> children = original->selectNodes("./*", true))
        for (int i = 0; i < children->length(); ++i)
            copy->appendChild(twin(document, children->item(i)), true);
    return copy;
}

void fill_form(const CFormBase* form, const std::string& description)
{
    form->set_type(Vellument::FORM_TYPE_W2);
    form->set_description(description);
    form->set_location(".\\Histories\\caf\xE9.PDF");
    form->set_form_name("");
    form->set_krf_version("tab\there\r\nline");
    form->set_krf_filter_number(INT_MIN);
    form->set_krf_filter_number_2(-7);
    form->set_divider_form("x\x7F<&>\"'");
}

} // namespace

TEST(XMLBuildFast, RecordsStoreWhatSetAttributeStores)
{
    testutil::TempDir dir;
    CPathHandling::set_company_dir("C:\\Co\\");

    CTransaction transaction;
    transaction.set_action(Vellument::ACTION_STATUS_CHANGE);
    CPackage* package = new CPackage();
    package->set_kxn_path("C:\\Co\\Histories\\\xC0.KXN");
    package->set_builder_version("1.0\x01");
    package->set_invoice_amount("");
    package->set_deleted_ew2_employee_count(INT_MAX);
    package->set_web_service_unavailable_flag(true);
    package->set_package_date(CDateTime(45000.5));
    CFiling* filing = new CFiling();
    filing->set_identifier("S\xE9");
    filing->set_vlid(-1);
    filing->set_date(CDateTime(45000.25, CDateTime::invalid));
    filing->set_records_successful_flag(true);
    CForm* form = new CForm();
    fill_form(form, "a\x01" "b\x1F" "c");
    form->set_viewer_result_code("\x80\xFF");
    form->set_result_printed(true);
    filing->add_form(form);
    package->add_filing(filing);
    transaction.set_package(package);
    CStatus* status = new CStatus();
    CCopy* copy = new CCopy();
    copy->set_deleted_flag(true);
    copy->set_krf_file_location(".\\Histories\\DATA.KRF");
    CHistory* history = new CHistory();
    fill_form(history, "plain");
    copy->add_history(history);
    status->add_copy(copy);
    transaction.set_status(status);

    Doc built(COXMLDocument::createDocument());
    COXMLNode* root = built->appendChild(transaction.create_xml_node(built.get()), true);
    ASSERT_NE(root, nullptr);
    // Elements made for a save are the same node objects when found again.
    EXPECT_EQ(built->getDocumentElement(), root);
    COXMLNode* written_form = built->getElementsByTagName("Form")->item(0);
    ASSERT_NE(written_form, nullptr);
    EXPECT_EQ(written_form, root->selectSingleNode("//Form"));
    EXPECT_STREQ(written_form->getAttribute("Description"), "a?b?c");
    EXPECT_STREQ(written_form->getAttribute("ViewerResultCode"), "\x80\xFF");
    EXPECT_STREQ(written_form->getAttribute("KRFFilter_Number"), "-2147483648");

    Doc again(COXMLDocument::createDocument());
    again->appendChild(twin(again.get(), root), true);
    const std::string built_path = dir.file("built.xml");
    const std::string again_path = dir.file("again.xml");
    ASSERT_NE(built->save(built_path.c_str()), 0);
    ASSERT_NE(again->save(again_path.c_str()), 0);
    const std::string bytes = testutil::read_file(built_path);
    EXPECT_EQ(bytes, testutil::read_file(again_path));
    EXPECT_NE(bytes.find("Identifier=\"S\xC3\xA9\""), std::string::npos);
    EXPECT_NE(bytes.find("KRFVersion=\"tab&#09;here&#13;&#10;line\""), std::string::npos);
    EXPECT_NE(bytes.find("Date=\"Invalid DateTime\""), std::string::npos);
}

// A file that the kernel won't copy by itself (on another file system, or claiming to be empty as
// /proc files do) is copied by reading it.
TEST(FileSystemCopy, FileThatClaimsNoSizeIsCopiedWhole)
{
    testutil::TempDir dir;
    std::string expected;
    ASSERT_TRUE(Ostrel::FileSystem::ReadFile("/proc/version", expected));
    ASSERT_FALSE(expected.empty());
    ASSERT_TRUE(Ostrel::FileSystem::CopyFileA("/proc/version", dir.file("version").c_str(), false));
    EXPECT_EQ(testutil::read_file(dir.file("version")), expected);
}

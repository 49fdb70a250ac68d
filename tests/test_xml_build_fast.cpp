// The records write their attributes on a shorter way than setAttribute, and a save prints them
// without building a tree; what they store and print must be what setAttribute and the tree's
// printing give for the same text, byte for byte in the saved file.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_XML.h>

#include "log_capture.h"
#include "save_sameness.h"
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

// A trail whose every level holds, in one transaction or another, a value the text can't carry as
// it stands, beside plain values with characters to escape, empty parts and dictionaries.
void fill_odd_trail(CVellument& v)
{
    v.get_dictionary()->insert({{"Zeta", "a&b<c>d\"e'f"}, {"1bad", "x"}, {"STARTOVER", "0"}});
    const char* const odd[] = {"plain & <fine> \"quoted\" 'too'", "form\x80", "history\xE9", "filing\x01",
                               "copy\xC3\xA9", "package\t", "status\xFF"};
    for (int i = 0; i < 7; ++i) {
        const std::string plain = odd[0];
        const auto pick = [&](int level) { return std::string(i == level ? odd[level] : odd[0]); };
        CPackage* package = v.get_current_package();
        package->set_builder_version(pick(5).c_str());
        package->set_package_date(CDateTime(i % 2 == 0 ? 0.0 : 45000.5));
        CStatus* status = v.get_current_status();
        status->set_kxn_path(("C:\\Co\\" + pick(6) + ".KXN").c_str());
        if (i != 2) {
            CFiling* filing = new CFiling();
            filing->set_identifier(pick(3));
            filing->set_date(CDateTime(i % 2 == 0 ? 0.0 : 44000.25));
            CForm* form = new CForm();
            fill_form(form, plain);
            form->set_viewer_result_code(pick(1));
            filing->add_form(form);
            package->add_filing(filing);
        }
        CCopy* copy = new CCopy();
        copy->set_identifier(plain);
        copy->set_krf_file_location(".\\Histories\\" + pick(4) + ".KRF");
        CHistory* history = new CHistory();
        fill_form(history, pick(2));
        copy->add_history(history);
        copy->add_history(new CHistory());
        status->add_copy(copy);
        if (i % 3 == 0)
            v.get_current_dictionary()->insert({{"Step", std::to_string(i)}, {"no good", "y"}});
        v.get_current_transaction()->set_action(Vellument::ACTION_PRINTING);
        v.clear_current_status();
    }
}

} // namespace

TEST(XMLBuildFast, SavePrintsWhatTheTreePrints)
{
    testutil::TempDir dir;
    const std::string company = Ostrel::FileSystem::ToWindowsPath(dir.path().c_str());
    // A root value beyond ASCII sends the whole save through the tree.
    for (const char* ein : {"12-3456789", "12-345678\xE9"}) {
        CVellument v;
        v.open((company + "\\TRAIL.XML").c_str(), ein, "2021", "V&<\"", false, true);
        fill_odd_trail(v);
        std::vector<std::string> lines;
        {
            vlmtest::LogCapture log;
            ASSERT_NE(v.save((company + "\\SAVED.XML").c_str()), 0);
            lines = log.lines;
        }
        const std::string saved = testutil::read_file(dir.file("SAVED.XML"));
        EXPECT_EQ(saved, save_sameness::printed_by_the_tree(v, dir.file("SAVED.XML"), dir.file("tree.xml"))) << ein;
        // Each dictionary's refusal is logged once, before the save says it is writing.
        std::vector<std::size_t> refusals;
        std::size_t saving = lines.size();
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].find("is no XML name") != std::string::npos)
                refusals.push_back(i);
            if (lines[i].rfind("[Vellument] Saving", 0) == 0)
                saving = std::min(saving, i);
        }
        EXPECT_EQ(refusals.size(), 4u) << ein;
        EXPECT_TRUE(refusals.empty() || refusals.back() < saving) << ein;
    }
}

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

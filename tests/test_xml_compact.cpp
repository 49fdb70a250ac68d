// A read-only open reads the records from a compact tree of the checked text where it can, and
// from the parser's tree where the text holds more. Both must give the same: each document here
// is opened as it is and with a DOCTYPE, which sends it to the parser, and the two vellument
// objects (and what they logged) must agree; the compact tree itself must hold what the
// parser's tree holds, name for name and value for value.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_WellFormed.h"
#include "company_fixture.h"
#include "compact_sameness.h"

using namespace vlmtest;

namespace {

std::string replace_all(std::string text, const std::string& from, const std::string& to)
{
    for (std::string::size_type at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string full_vellument()
{
    return testutil::read_file((std::filesystem::path(VELLUMENT_TEST_DATA_DIR) / "full_vellument.xml").string());
}

std::string trail(const std::string& body, const std::string& root_attributes = "Version=\"200\"")
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<AuditTrail " + root_attributes + ">\n" + body +
           "</AuditTrail>\n";
}

const char kStatus[] = "<Status KXNPath=\"\" FilingChoice=\"None\" EmployeeCount=\"0\"/>";

std::string transaction(const std::string& package_body, const std::string& status = kStatus)
{
    return "<Transaction Action=\"Filing\"><Package PackageDate=\"01/15/2024 13:05:09\">" + package_body +
           "</Package>" + status + "</Transaction>\n";
}

struct Case {
    const char* name;
    std::string text;
    bool compact;  // the compact tree takes it
};

std::vector<Case> cases()
{
    const std::string full = full_vellument();
    const std::string form = "<Form Type=\"W-2\" Description=\"d\" Location=\"C:\\Co\\Histories\\a.pdf\"/>";
    std::string nested;  // each Filing collects every Filing below it: refused as too costly to read
    for (int i = 0; i < 300; ++i)
        nested += "<Filing VLID=\"" + std::to_string(i) + "\">";
    for (int i = 0; i < 300; ++i)
        nested += "</Filing>";
    return {
        {"every element and attribute", full, true},
        {"CR LF line ends", replace_all(full, "\n", "\r\n"), true},
        {"single quotes, blanks around =", replace_all(replace_all(full, "\"", "'"), "='", " =\t'"), true},
        {"tabs, line ends and references in values",
         trail(transaction("<Filing Identifier=\"a\tb\r\nc\rd\ne  f\" FilingName=\"&#9;&#10;&#13;&#x20AC;&#233;&lt;&gt;"
                           "&amp;&quot;&apos;\" KRFPath=\"C:\\Co\\&#x48;istories\\x.krf\">" +
                           form + "</Filing>")),
         true},
        {"non-ASCII names and values",
         trail("<Dictionary \xC3\xA9t\xC3\xA9=\"\xE2\x82\xAC 5\" k=\"\xE6\x97\xA5\xE6\x9C\xAC\"/>" +
                   transaction("<Filing Identifier=\"\xC3\xBC\"><Formul\xC3\xA4r/>" + form + "</Filing>"),
               "FilingEIN=\"\xC3\x9F\""),
         true},
        {"records at odd depths, duplicates, unknown elements",
         trail("<Transaction Action=\"7\"><Dictionary a=\"1\"/><Dictionary a=\"2\"/><X><Package/></X>"
               "<Package BuilderVersion=\"first\"><Filing Identifier=\"outer\" Note=\"x>y\"><Y>" + form +
               "<Filing Identifier=\"inner\">" + form + "</Filing></Y></Filing><Form Type=\"W-3\"/></Package>"
               "<Package BuilderVersion=\"second\"/><Status><Copy Identifier=\"c\"><Copy Identifier=\"d\">"
               "<History Type=\"T4\"/></Copy></Copy><History/></Status></Transaction>\n"
               "<Z><Transaction Action=\"Bug Fix\"><Status/></Transaction></Z>\n"
               "<Transaction/>\n"),
         true},
        {"attributes in another order", trail(transaction(
             "<Filing CorrectedCount=\"4\" KRFPath=\".\\x.krf\" Date=\"01/02/2020 03:04:05\" Type=\"State\" "
             "EmployeeCount=\"3\" VLID=\"9\" Identifier=\"S\"><Form Divider_Form=\"v\" KRFFilter_Number2=\"7\" "
             "Type=\"1099\" Flags=\"2\"/></Filing>")), true},
        {"comments and processing instructions",
         "<?xml version=\"1.0\"?><!-- a > b --><?pi x?>\n<AuditTrail FilingYear=\"2020\"><!-- c -->"
         "<?pi <y> ?>" + transaction("<!-- <Filing/> --><Filing Identifier=\"f\"/>") + "</AuditTrail><!-- end -->",
         true},
        {"windows-1252 file", "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\n" +
                                  trail(transaction("<Filing Identifier=\"\xE9\x80\"/>")).substr(39),
         true},
        {"text content", trail(transaction("<Filing Identifier=\"t\">some text</Filing>")), false},
        {"CDATA", trail(transaction("<Filing Identifier=\"t\"><![CDATA[x]]></Filing>")), false},
        {"namespaces", trail(transaction("<Filing xmlns=\"urn:x\" Identifier=\"n\"/>")), false},
        {"missing package and status", trail("<Transaction Action=\"Edit\"/>"), true},
        {"no attributes, no children", "<AuditTrail/>", true},
        {"nesting too costly to read", trail(transaction(nested)), true},
        {"malformed", trail(transaction("<Filing Identifier=\"a\" Identifier=\"b\"/>")), false},
    };
}

// The compact tree of the text, if it takes it, beside the parser's document of the same file.
TEST(XMLCompact, TreeHoldsWhatTheParserHolds)
{
    testutil::TempDir dir;
    for (const Case& c : cases()) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file("doc.xml");
        ASSERT_TRUE(Ostrel::FileSystem::WriteBinaryFile(path.c_str(), c.text.data(), c.text.size()));
        std::unique_ptr<COXMLDocument> parsed(COXMLDocument::load(path.c_str(), nullptr, nullptr, 0));
        std::string bytes = c.text;
        if (bytes.find("windows-1252") != std::string::npos)
            bytes = Ostrel::Format::AnsiToUtf8(bytes);
        const std::string before = bytes;
        oxml::WellFormedResult check;
        oxml::CompactTree tree;
        const oxml::CompactTree::Outcome outcome = oxml::check_well_formed(bytes.data(), bytes.size(), check)
                                                       ? tree.build(bytes, check)
                                                       : oxml::CompactTree::kFailed;
        const bool built = outcome == oxml::CompactTree::kBuilt;
        EXPECT_EQ(built, c.compact);
        if (outcome == oxml::CompactTree::kNotHeld) {
            EXPECT_EQ(bytes, before);  // the parser reads them next
        }
        if (!built)
            continue;
        ASSERT_TRUE(parsed);
        EXPECT_EQ(compact_sameness::tree_difference(tree, *parsed), "");
    }
}

// Opens the file read-only: what the object holds and what was logged, the file's name left out.
std::string open_read_only(const Company& co, const std::string& relative)
{
    LogCapture log;
    std::string result;
    try {
        CVellument v;
        v.open(co.win(relative).c_str(), "", "", "", false, true);
        result = compact_sameness::dump(v);
    } catch (int thrown) {
        result = "threw " + std::to_string(thrown) + "\n";
    }
    for (const std::string& line : log.lines)
        result += replace_all(replace_all(line, co.key(relative), "FILE"), co.win(relative), "FILE");
    return result;
}

TEST(XMLCompact, OpenGivesWhatTheParserGives)
{
    Company co;
    for (const Case& c : cases()) {
        SCOPED_TRACE(c.name);
        co.write(kDisk, c.text);
        co.write("Drafts/Vellument_W2_2021.VLM", compact_sameness::with_doctype(c.text));
        // Records without a date take the time of reading: the two opens are compared when the
        // clock didn't move on while they ran.
        std::string compact, parsed;
        for (int attempt = 0; attempt < 3; ++attempt) {
            compact = open_read_only(co, kName);
            parsed = open_read_only(co, "Drafts\\Vellument_W2_2021.VLM");
            if (open_read_only(co, kName) == compact)
                break;
        }
        EXPECT_EQ(compact, parsed);
    }
}

} // namespace

// The mirror's reader builds plain ASCII rows straight into the document and leaves other texts
// to the toolkit tree: both roads must give what the toolkit tree gives, children in its order.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_XML.h>

#include "company_fixture.h"

using namespace vlmtest;

namespace {

// The element names below a node, in document order.
std::string children_of(COXMLDocument& document, const char* xpath)
{
    std::string names;
    std::shared_ptr<COXMLNodeList> nodes = document.selectNodes(xpath, false);
    for (int i = 0; nodes && i < nodes->length(); ++i)
        names += std::string(nodes->item(i)->nodeName()) + " ";
    return names;
}

} // namespace

TEST(MirrorFastPaths, ChildOrderAndTextsOutsideAsciiComeBackAsTheToolkitTreeGives)
{
    Company co;
    const std::string db_path = co.disk("mirror.db");
    const std::string copy = "<Copy Type=\"Federal\"><History Type=\"W-2\"/></Copy>";
    const std::string filing = "<Filing Type=\"Federal\"><Form Type=\"W-2\" Description=\"plain\"/></Filing>";
    co.write_saved(trail("Version=\"200\" FormType=\"W-2_SSA\" FilingYear=\"2021\"",
                         transaction("Filing", copy, filing, "a=\"1\"") + transaction("None", copy, filing)));
    CVellument v;
    v.open(co.win(kName).c_str(), "", "", "", false, false);
    ASSERT_TRUE(v.save_to_vellument_database(db_path, "", ""));

    // A first transaction with a dictionary has its status placed before its package; the
    // others keep the order in which they were read.
    CvellumentDB mapper;
    std::unique_ptr<COXMLDocument> document(mapper.readRecords(&v, db_path, ""));
    ASSERT_TRUE(document);
    EXPECT_EQ(children_of(*document, "/AuditTrail/Transaction[1]/*"), "Dictionary Status Package ");
    EXPECT_EQ(children_of(*document, "/AuditTrail/Transaction[2]/*"), "Package Status ");

    // A code page letter is carried over, a control character that XML can't hold is dropped,
    // and a dictionary key that is no XML name is mended, as the toolkit tree does.
    {
        Ostrel::DatabaseEx db;
        ASSERT_TRUE(db.OpenFile(db_path, ""));
        ASSERT_TRUE(db.ExecuteAndBindStatement("UPDATE VLMformBase SET Description = ?;", {{"Caf\xE9\x01!", 0}}, false));
        ASSERT_TRUE(db.Execute("UPDATE VLMdictionaryEntry SET Key = '1st';"));
    }
    CvellumentDB second;
    document.reset(second.readRecords(&v, db_path, ""));
    ASSERT_TRUE(document);
    EXPECT_NE(document->selectSingleNode("/AuditTrail/Transaction[1]/Dictionary[@_1st='1']"), nullptr);

    CVellument back;
    ASSERT_TRUE(back.read_from_vellument_database(co.win(kName).c_str(), "", "", "", db_path, ""));
    ASSERT_EQ(back.get_transaction_count(), 2);
    CForm* form = back.get_transaction(1)->get_package()->get_filing_at(0)->get_form_at(0);
    EXPECT_EQ(form->get_description(), "Caf\xE9!");
}

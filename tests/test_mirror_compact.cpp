// The whole read from the mirror takes its records from a read-only tree built from the rows,
// while readRecords hands out the full document. Both must give the same records: here the
// whole read is set against readRecords' document, saved and read back by the parser.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_XML.h>

#include "company_fixture.h"
#include "compact_sameness.h"

using namespace vlmtest;

namespace {

const char kVellument[] = "Histories\\Vellument_W2_2024.VLM";
const char kReference[] = "Drafts\\Vellument_W2_2024.VLM";

class MirrorCompact : public ::testing::Test {
protected:
    void SetUp() override
    {
        db_path = co.disk("mirror.db");
        co.write_saved(testutil::read_file(testutil::data_file("full_vellument.xml")),
                       kVellument);
        writer.open(co.win(kVellument).c_str(), "", "", "", false, false);
        ASSERT_TRUE(writer.save_to_vellument_database(db_path, "", ""));
    }

    void execute(const std::string& sql)
    {
        Ostrel::DatabaseEx db;
        ASSERT_TRUE(db.OpenFile(db_path, ""));
        ASSERT_TRUE(db.Execute(sql.c_str())) << sql;
    }

    // The records of the whole read, or "none".
    std::string whole_read()
    {
        CVellument v;
        if (!v.read_from_vellument_database(co.win(kVellument).c_str(), "", "2024", "", db_path, ""))
            return "none";
        return compact_sameness::dump(v);
    }

    // The records of readRecords' document: saved, then opened read-only with a DOCTYPE, which
    // keeps the file from the compact reader. "none" where the whole read finds none.
    std::string through_document()
    {
        CvellumentDB mapper;
        std::unique_ptr<COXMLDocument> document(mapper.readRecords(&writer, db_path, ""));
        if (!document)
            return "none";
        const std::string saved = co.disk("saved.xml");
        EXPECT_NE(document->save(saved.c_str()), 0);
        co.write("Drafts/Vellument_W2_2024.VLM", compact_sameness::with_doctype(testutil::read_file(saved)));
        CVellument v;
        try {
            v.open(co.win(kReference).c_str(), "", "", "", false, true);
        } catch (int) {
            return "none";  // a trail without a transaction
        }
        return compact_sameness::dump(v);
    }

    // Records without a date take the time of reading: compared when the clock stood still.
    void expect_same()
    {
        std::string whole, reference;
        for (int attempt = 0; attempt < 3; ++attempt) {
            whole = whole_read();
            reference = through_document();
            if (whole_read() == whole)
                break;
        }
        EXPECT_EQ(whole, reference);
    }

    Company co;
    std::string db_path;
    CVellument writer;
};

TEST_F(MirrorCompact, RecordsAreThoseOfTheFullDocument)
{
    expect_same();
    EXPECT_NE(whole_read(), "none");

    // A key given twice keeps its first place with the last value.
    execute("INSERT INTO VLMdictionaryEntry(Key, Value, parentID, tableVer) "
            "SELECT Key, 'again', parentID, tableVer FROM VLMdictionaryEntry WHERE Key = 'alpha';");
    expect_same();
    EXPECT_NE(whole_read().find("alpha=again"), std::string::npos);

    // A namespace declaration hides its element from lookups by plain name: the transaction's
    // dictionary is then not read.
    execute("UPDATE VLMdictionaryEntry SET Key = 'xmlns' WHERE Key = 'zeta';");
    expect_same();
    EXPECT_EQ(whole_read().find("mid=m i d"), std::string::npos);

    // Texts outside ASCII take the toolkit tree's road.
    execute("UPDATE VLMformBase SET Description = 'Caf' || char(233) || ' ' || char(8364);");
    execute("UPDATE VLMdictionaryEntry SET Key = 'cl' || char(233) WHERE Key = 'STARTOVER';");
    expect_same();
}

TEST_F(MirrorCompact, EmptyTrailAndEmptyTables)
{
    // A trail without transactions: no current transaction, either way.
    execute("DELETE FROM VLMtransaction;");
    expect_same();
    EXPECT_EQ(whole_read(), "none");

    execute("DELETE FROM VLMauditTrail;");
    expect_same();
    EXPECT_EQ(whole_read(), "none");
}

} // namespace

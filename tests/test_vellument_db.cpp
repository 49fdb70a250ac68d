// The SQL mirror of velluments: the schema as other programs read it, the round trip against the
// file's, migration, deletion of one vellument among several, atomic writes, hostile documents and
// the local list.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CPackage.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/LocalList.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_XML.h>

#include "company_fixture.h"
#include "test_util.h"

using Ostrel::DatabaseEx;
using Ostrel::RecordSet;
using namespace vlmtest;
using testutil::data_file;

namespace {

const char* const kTables[] = {"VLMvellument",  "VLMauditTrail", "VLMcopy",        "VLMfiling",     "VLMfilingBase",
                               "VLMform",       "VLMformBase",   "VLMhistory",     "VLMpackage",    "VLMstatus",
                               "VLMstatusBase", "VLMtransaction", "VLMdictionary", "VLMdictionaryEntry"};

// Every row of every table, in key order: the whole mirror as text.
std::string dump_tables(const std::string& path, const std::string& password = "")
{
    DatabaseEx db;
    if (!db.OpenFile(path, password))
        return "<no database>";
    std::string text;
    for (const char* table : kTables) {
        RecordSet rows;
        text += std::string("[") + table + "]\n";
        if (!rows.Open((std::string("SELECT * FROM ") + table + " ORDER BY 1;").c_str(), &db)) {
            text += "<missing>\n";
            continue;
        }
        for (rows.MoveFirst(); !rows.IsEOF(); rows.MoveNext()) {
            for (int i = 0; i < rows.GetFieldCount(); ++i)
                text += rows.GetFieldValue(i) + "|";
            text += "\n";
        }
    }
    return text;
}

int count_rows(const std::string& path, const std::string& table)
{
    DatabaseEx db;
    RecordSet rows;
    if (!db.OpenFile(path, "") || !rows.Open(("SELECT count(*) FROM " + table + ";").c_str(), &db))
        return -1;
    return std::atoi(rows.GetFieldValue(0).c_str());
}

// Dictionary attributes come back in map order: sort them for comparison.
std::string sorted_dictionaries(const std::string& xml)
{
    std::string result;
    std::string::size_type from = 0;
    for (;;) {
        const std::string::size_type open = xml.find("<Dictionary ", from);
        const std::string::size_type close = open == std::string::npos ? open : xml.find("/>", open);
        if (close == std::string::npos)
            break;
        result.append(xml, from, open - from);
        std::vector<std::string> parts;
        std::string::size_type at = open + 12;
        while (at < close) {
            const std::string::size_type quote = xml.find('"', at);
            const std::string::size_type end = quote == std::string::npos ? quote : xml.find('"', quote + 1);
            if (end == std::string::npos || end > close)
                break;
            std::string part = xml.substr(at, end + 1 - at);
            part.erase(0, part.find_first_not_of(" \t"));
            parts.push_back(part);
            at = end + 1;
        }
        std::sort(parts.begin(), parts.end());
        result += "<Dictionary";
        for (const std::string& part : parts)
            result += " " + part;
        result += "/>";
        from = close + 2;
    }
    result.append(xml, from, std::string::npos);
    return result;
}

// A small trail: three transactions with dictionaries, copies with histories, filings with forms.
std::string small_document(const std::string& form_type, const std::string& year)
{
    const std::string copy =
        "<Copy Type=\"Federal\" Identifier=\"FE\" VLID=\"7\" Printed=\"true\" Date=\"01/02/2021 03:04:05\" "
        "Deleted=\"true\"><History Type=\"W-2\" Description=\"it's &quot;quoted&quot;\"/><History Type=\"W-3\"/></Copy>"
        "<Copy Type=\"State\" Identifier=\"MN\"/>";
    const std::string filing =
        "<Filing Type=\"Federal\" Identifier=\"FE\" EfiledSuccessful=\"true\"><Form Type=\"W-2\" "
        "Location=\"C:\\Co\\a.pdf\"/></Filing>";
    return trail("Version=\"200\" FormType=\"" + form_type + "\" FilingYear=\"" + year +
                     "\" FilingEIN=\"12-3\" VendorCode=\"V\" ModifiedDate=\"02/03/2021 04:05:06\"",
                 "<Dictionary root=\"r\"/>" + transaction("Filing", copy, filing, "a=\"1\" b=\"2\"") +
                     transaction("Status Change", copy) + transaction("None", "", filing, "c=\"3\""));
}

const char kFull[] = "Histories\\Vellument_W2_2024.VLM";
const char kMisc[] = "Histories\\Vellument_M_2021.VLM";

class Mirror : public ::testing::Test {
protected:
    Mirror() : db_path(co.disk("mirror.db")) {}

    // Writes a document under the company and opens it as the application does.
    std::unique_ptr<CVellument> open_document(const std::string& relative, const std::string& xml)
    {
        co.write_saved(xml, relative);
        std::unique_ptr<CVellument> v(new CVellument());
        v->open(co.win(relative).c_str(), "", "", "", false, false);
        return v;
    }
    std::unique_ptr<CVellument> open_w2() { return open_document(kName, small_document("W-2_SSA", "2021")); }
    std::unique_ptr<CVellument> open_misc() { return open_document(kMisc, small_document("1099-MISC", "2021")); }

    // Reads the vellument of that name back from the mirror.
    bool read_back(CVellument& v, const char* relative, const std::string& password = "")
    {
        return v.read_from_vellument_database(co.win(relative).c_str(), "", "", "", db_path, password);
    }

    Company co;
    std::string db_path;
};

// Fails the nth statement run through Execute (of those that start with prefix), as a full disk
// or a lost lock would.
class FailingDatabase : public DatabaseEx {
public:
    explicit FailingDatabase(int fail_at, std::string prefix = "") : fail_at_(fail_at), prefix_(std::move(prefix)) {}
    bool Execute(const char* sql) override
    {
        if (sql != nullptr && std::string(sql).rfind(prefix_, 0) == 0 && ++calls == fail_at_)
            return false;
        return DatabaseEx::Execute(sql);
    }
    int calls = 0;

private:
    int fail_at_;
    std::string prefix_;
};

} // namespace

TEST_F(Mirror, SchemaStandsAsOtherProgramsReadIt)
{
    auto v = open_w2();
    ASSERT_TRUE(v->save_to_vellument_database(db_path, "", ""));

    const std::vector<std::string> expected = {
        "table|VLMvellument|CREATE TABLE VLMvellument( vellumentID INTEGER PRIMARY KEY,FormType STRING, FilingYear "
        "INT, Extension STRING, tableVer INT ,childID     INTEGER REFERENCES VLMauditTrail (auditTrailID) )",
        "table|VLMauditTrail|CREATE TABLE VLMauditTrail(  auditTrailID INTEGER  PRIMARY KEY,Version INT, PeriodStart "
        "DATE, PeriodEnd DATE, RegMode STRING, FormType STRING, VendorCode STRING, FilingYear INT, ModifiedDate "
        "DATETIME, FilingEIN STRING, tableVer INT , parentID INTEGER REFERENCES VLMvellument (vellumentID), "
        "dictionaryID INTEGER REFERENCES VLMdictionary(dictionaryID) )",
        "table|VLMcopy|CREATE TABLE VLMcopy(  copyID INTEGER PRIMARY KEY,Replaceable BOOLEAN, Deleted BOOLEAN, "
        "tableVer INT , parentID INTEGER REFERENCES VLMstatus (statusID),baseID   INTEGER REFERENCES "
        "VLMfilingBase(filingBaseID)  )",
        "table|VLMfiling|CREATE TABLE VLMfiling( filingID INTEGER PRIMARY KEY,EfiledSuccessful BOOLEAN, "
        "PrintedSuccessful BOOLEAN, RecordsSuccessful BOOLEAN, EmployeeCount INT, CorrectedCount INT, tableVer INT , "
        "parentID INTEGER REFERENCES VLMpackage (packageID),baseID INTEGER REFERENCES VLMfilingBase(filingBaseID)  )",
        "table|VLMfilingBase|CREATE TABLE VLMfilingBase( filingBaseID    INTEGER  PRIMARY KEY,Date DATETIME, Type "
        "STRING, Identifier STRING, VLID INT, Printed BOOLEAN, Mailed BOOLEAN, Efiled BOOLEAN, Corrected BOOLEAN, "
        "Replacement BOOLEAN, KRFPath STRING, tableVer INT  )",
        "table|VLMform|CREATE TABLE VLMform( formID INTEGER PRIMARY KEY,ViewerResultCode BOOLEAN, ResultPrinted "
        "STRING, tableVer INT , parentID INTEGER REFERENCES VLMfiling (filingID),baseID INTEGER REFERENCES "
        "VLMformBase(formBaseID)  )",
        "table|VLMformBase|CREATE TABLE VLMformBase( formBaseID INTEGER PRIMARY KEY,Type STRING, Flags STRING, "
        "Completion STRING, Description STRING, Location STRING, EXMLLocation STRING, Form_Name STRING, KRF_DB_Path "
        "STRING, KRFVersion STRING, KRFFilter_Number STRING, KRFFilter_Number2 STRING, Divider_Form STRING, tableVer "
        "INT  )",
        "table|VLMhistory|CREATE TABLE VLMhistory( historyID INTEGER PRIMARY KEY,tableVer INT , parentID  INTEGER "
        "REFERENCES VLMcopy (copyID),baseID INTEGER REFERENCES VLMformBase(formBaseID)  )",
        "table|VLMpackage|CREATE TABLE VLMpackage( packageID INTEGER  PRIMARY KEY,BuilderVersion STRING, "
        "InvoiceAmount STRING, AddedCount INT, DeletedCount INT, CorrectedEW2EmployeeCount INT, AddedEW2EmployeeCount "
        "INT, DeletedEW2EmployeeCount INT, AdditionalMode STRING, WebServiceFail BOOLEAN, PackageDate DATETIME, "
        "tableVer INT , parentID INTEGER  REFERENCES VLMtransaction (transactionID),baseID INTEGER  REFERENCES "
        "VLMstatusBase(statusBaseID)  )",
        "table|VLMstatus|CREATE TABLE VLMstatus(  statusID INTEGER PRIMARY KEY,tableVer INT , baseID INTEGER "
        "REFERENCES VLMstatusBase (statusBaseID), parentID INTEGER REFERENCES VLMtransaction(transactionID)  )",
        "table|VLMstatusBase|CREATE TABLE VLMstatusBase( statusBaseID INTEGER PRIMARY KEY,KXNPath STRING, "
        "FilingChoice STRING, EmployeeCount INT, StateEmployeeCount INT, LocalEmployeeCount INT, CorrectedCount INT, "
        "tableVer INT  )",
        "table|VLMtransaction|CREATE TABLE VLMtransaction(  transactionID INTEGER PRIMARY KEY,Action STRING, Number "
        "INT, tableVer INT , parentID INTEGER REFERENCES VLMvellument (vellumentID), dictionaryID INTEGER REFERENCES "
        "VLMdictionary(dictionaryID), packageID INTEGER REFERENCES VLMpackage(packageID), statusID INTEGER REFERENCES "
        "VLMstatusBase(statusBaseID) )",
        "table|VLMdictionary|CREATE TABLE VLMdictionary( dictionaryID INTEGER PRIMARY KEY,tableVer INT  )",
        "table|VLMdictionaryEntry|CREATE TABLE VLMdictionaryEntry( entryID  INTEGER PRIMARY KEY,Key STRING, Value "
        "STRING, tableVer INT , parentID INTEGER REFERENCES VLMdictionary(dictionaryID) )",
        "view|VLMcurrentVellument|CREATE VIEW VLMcurrentVellument AS SELECT * FROM VLMvellument INNER JOIN "
        "VLMauditTrail ON VLMauditTrail.auditTrailID = VLMvellument.childID AND VLMvellument.formType = 'W2' AND "
        "VLMvellument.filingYear = 2021",
        "view|VLMcopyView|CREATE VIEW VLMcopyView AS SELECT * FROM VLMcopy INNER JOIN VLMfilingBase ON "
        "VLMcopy.baseID = VLMfilingBase.filingBaseID",
        "view|VLMfilingView|CREATE VIEW VLMfilingView AS SELECT * FROM VLMfiling INNER JOIN VLMfilingBase ON "
        "VLMfiling.baseID = VLMfilingBase.filingBaseID",
        "view|VLMformView|CREATE VIEW VLMformView AS SELECT * FROM VLMform INNER JOIN VLMformBase ON VLMform.baseID = "
        "VLMformBase.formBaseID",
        "view|VLMhistoryView|CREATE VIEW VLMhistoryView AS SELECT * FROM VLMhistory INNER JOIN VLMformBase ON "
        "VLMhistory.baseID = VLMformBase.formBaseID",
        "view|VLMstatusView|CREATE VIEW VLMstatusView AS SELECT * FROM VLMstatus INNER JOIN VLMstatusBase ON "
        "VLMstatus.baseID = VLMstatusBase.statusBaseID",
        "view|VLMpackageView|CREATE VIEW VLMpackageView AS SELECT * FROM VLMpackage INNER JOIN VLMstatusBase ON "
        "VLMpackage.baseID = VLMstatusBase.statusBaseID",
    };
    DatabaseEx db;
    ASSERT_TRUE(db.OpenFile(db_path, ""));
    RecordSet rows;
    ASSERT_TRUE(rows.Open("SELECT type, name, sql FROM sqlite_master ORDER BY rowid;", &db));
    std::vector<std::string> schema;
    for (; !rows.IsEOF(); rows.MoveNext())
        schema.push_back(rows.GetFieldValue(0) + "|" + rows.GetFieldValue(1) + "|" + rows.GetFieldValue(2));
    EXPECT_EQ(schema, expected);

    // Every row carries the schema version, and the links tie the tree together.
    for (const char* table : kTables) {
        ASSERT_TRUE(rows.Open((std::string("SELECT DISTINCT tableVer FROM ") + table + ";").c_str(), &db));
        EXPECT_EQ(rows.GetRecordCount(), 1) << table;
        EXPECT_EQ(rows.GetFieldValue(0), "2") << table;
    }
    ASSERT_TRUE(rows.Open("SELECT Number, Action, dictionaryID IS NULL FROM VLMtransaction ORDER BY 1;", &db));
    ASSERT_EQ(rows.GetRecordCount(), 3);
    rows.MoveNext();
    EXPECT_EQ(rows.GetFieldValue(0) + rows.GetFieldValue(1) + rows.GetFieldValue(2), "1Status Change1");
    ASSERT_TRUE(rows.Open("SELECT count(*) FROM VLMhistoryView WHERE Type = 'W-3';", &db));
    EXPECT_EQ(rows.GetFieldValue(0), "2");
}

TEST_F(Mirror, RoundTripEqualsTheFileRoundTripButForFilingReplaceable)
{
    auto v = open_document(kFull, testutil::read_file(data_file("full_vellument.xml")));
    const int transactions = v->get_transaction_count();
    ASSERT_GT(transactions, 10);
    ASSERT_TRUE(v->save_to_vellument_database(db_path, "secret", ""));

    CVellument back;
    ASSERT_TRUE(read_back(back, kFull, "secret"));
    ASSERT_EQ(back.get_transaction_count(), transactions);
    ASSERT_NE(0, back.save(co.win("from_db.xml").c_str()));

    // The read answers child rows from grouped scans; with an index on each parent column every
    // query runs as its statement instead, and the vellument must come back the same.
    {
        DatabaseEx db;
        ASSERT_TRUE(db.OpenFile(db_path, "secret"));
        for (const char* table : {"VLMauditTrail", "VLMtransaction", "VLMpackage", "VLMstatus", "VLMcopy",
                                  "VLMfiling", "VLMform", "VLMhistory", "VLMdictionaryEntry"})
            ASSERT_TRUE(db.Execute(
                (std::string("CREATE INDEX ") + table + "_p ON " + table + " (parentID);").c_str()));
    }
    CVellument by_statements;
    ASSERT_TRUE(read_back(by_statements, kFull, "secret"));
    ASSERT_NE(0, by_statements.save(co.win("by_statements.xml").c_str()));
    EXPECT_EQ(co.read("by_statements.xml"), co.read("from_db.xml"));

    // The mirror has no column for a filing's Replaceable: it comes back false.
    bool had_replaceable = false;
    for (int t = 0; t < v->get_transaction_count(); ++t) {
        CPackage* package = v->get_transaction(t)->get_package();
        for (int f = 0; f < package->get_filing_count(); ++f) {
            had_replaceable = had_replaceable || package->get_filing_at(f)->get_replaceable_flag();
            package->get_filing_at(f)->set_replaceable_flag(false);
        }
    }
    EXPECT_TRUE(had_replaceable);
    ASSERT_NE(0, v->save(co.win("from_file.xml").c_str()));
    const std::string from_file = co.read("from_file.xml");
    EXPECT_NE(from_file.find("<Copy "), std::string::npos);
    const std::string sorted = sorted_dictionaries(from_file);
    EXPECT_NE(sorted.find("<Dictionary STARTOVER=\"1\" empty=\"\" note="), std::string::npos) << sorted;
    EXPECT_EQ(sorted_dictionaries(co.read("from_db.xml")), sorted);
}

TEST_F(Mirror, EncryptedMirrorNeedsItsPasswordUnlessDecryptFilesSaysOtherwise)
{
    auto v = open_w2();
    ASSERT_TRUE(v->save_to_vellument_database(db_path, "pw", ""));
    CVellument wrong;
    EXPECT_FALSE(read_back(wrong, kName, "wrong"));
    CVellument right;
    EXPECT_TRUE(read_back(right, kName, "pw"));
    EXPECT_EQ(right.get_transaction_count(), 3);

    // DecryptFiles other than "N" opens databases without their password.
    const std::string settings = Ostrel::FileSystem::MapPath(
        (Ostrel::FileSystem::GetOstrelLocalAppDataDirectory() + "Settings.ini").c_str());
    const std::string kept = testutil::read_file(settings);
    testutil::write_file(settings, "[Debug]\r\ndecryptfiles=y\r\n");
    const std::string plain = co.disk("plain.db");
    EXPECT_TRUE(v->save_to_vellument_database(plain, "pw", ""));
    EXPECT_EQ(testutil::read_file(plain).rfind("SQLite format 3", 0), 0u);
    testutil::write_file(settings, "[DEBUG]\r\nDecryptFiles=n\r\n");
    CVellument keyed;  // the plain file refuses a key
    EXPECT_FALSE(keyed.read_from_vellument_database(co.win("Histories\\Vellument_W2_2021.VLM").c_str(), "", "", "",
                                                    plain, "pw"));
    testutil::write_file(settings, kept);
}

TEST_F(Mirror, OlderSchemaIsDroppedAndBuiltAnew)
{
    auto v = open_w2();
    CvellumentDB mapper;
    ASSERT_TRUE(mapper.writeRecords(v.get(), db_path, ""));
    ASSERT_TRUE(mapper.createTables());  // standing tables of this version: nothing happens
    ASSERT_TRUE(mapper.getDatabase()->Execute("UPDATE VLMvellument SET tableVer = 1;"));
    ASSERT_GT(count_rows(db_path, "VLMform"), 0);

    EXPECT_TRUE(mapper.createTables());
    for (const char* table : kTables)
        EXPECT_EQ(count_rows(db_path, table), 0) << table;

    // The next save mirrors the document again.
    ASSERT_TRUE(v->save_to_vellument_database(db_path, "", ""));
    EXPECT_EQ(count_rows(db_path, "VLMtransaction"), 3);

    // A read meets version 1 and gives up, with all tables dropped.
    ASSERT_TRUE(mapper.getDatabase()->Execute("UPDATE VLMvellument SET tableVer = 1;"));
    std::unique_ptr<COXMLDocument> document(mapper.readRecords(v.get(), nullptr));
    EXPECT_EQ(document, nullptr);
    EXPECT_EQ(count_rows(db_path, "VLMvellument"), -1);
}

TEST_F(Mirror, DeletingOneIdentityLeavesTheOthers)
{
    auto tlm = open_document("Histories\\Vellument_W2_2021.TLM", small_document("W-2_SSA", "2021"));
    auto misc = open_misc();
    auto w2 = open_w2();
    CvellumentDB mapper;
    ASSERT_TRUE(mapper.writeRecords(tlm.get(), db_path, ""));
    ASSERT_TRUE(mapper.writeRecords(misc.get(), db_path, ""));
    const std::string before = dump_tables(db_path);
    ASSERT_TRUE(mapper.writeRecords(w2.get(), db_path, ""));
    ASSERT_NE(dump_tables(db_path), before);

    const std::string name = w2->get_vellument_name();
    CVellument other;
    other.set_vellument_name("C:\\ELSEWHERE\\KEEP.VLM");
    other.set_form_type_string("W-2_SSA");
    LogCapture log;
    EXPECT_TRUE(other.delete_record(db_path, "", name));
    EXPECT_EQ(other.get_vellument_name(), "C:\\ELSEWHERE\\KEEP.VLM");
    EXPECT_TRUE(log.contains("Cleared records for W2 2021 VLM"));
    EXPECT_EQ(dump_tables(db_path), before);

    // Again: nothing there, still true.
    EXPECT_TRUE(other.delete_record(db_path, "", name));
    EXPECT_TRUE(log.contains("Specified entry doesn't exist in db FormType: W2, FilingYear: 2021 Extension: VLM"));
    EXPECT_EQ(dump_tables(db_path), before);
}

TEST_F(Mirror, FailureMidWriteLeavesTheDatabaseAsItWas)
{
    auto first = open_misc();
    auto second = open_w2();

    // On an empty database the failure can strike the schema itself.
    for (int fail_at : {1, 7, 14}) {
        FailingDatabase failing(fail_at);
        ASSERT_TRUE(failing.OpenFile(db_path, ""));
        CvellumentDB mapper;
        EXPECT_FALSE(mapper.writeRecords(first.get(), &failing)) << fail_at;
        EXPECT_EQ(failing.GetTransactionDepth(), 0);
        EXPECT_EQ(count_rows(db_path, "VLMvellument"), -1) << fail_at;
    }
    CvellumentDB plain;
    ASSERT_TRUE(plain.writeRecords(first.get(), db_path, ""));
    const std::string before = dump_tables(db_path);

    int statements = 0;
    {
        testutil::TempDir scratch;
        std::filesystem::copy_file(db_path, scratch.file("copy.db"));
        FailingDatabase counting(-1);
        ASSERT_TRUE(counting.OpenFile(scratch.file("copy.db"), ""));
        CvellumentDB mapper;
        ASSERT_TRUE(mapper.writeRecords(second.get(), &counting));
        statements = counting.calls;
    }
    ASSERT_GT(statements, 20);
    for (int fail_at : {2, statements / 2, statements - 8}) {
        FailingDatabase failing(fail_at);
        ASSERT_TRUE(failing.OpenFile(db_path, ""));
        CvellumentDB mapper;
        EXPECT_FALSE(mapper.writeRecords(second.get(), &failing)) << fail_at;
        EXPECT_EQ(dump_tables(db_path), before) << fail_at;
    }

    // Through the vellument with a database of the caller's, a failed write leaves the file alone.
    const std::string file = co.read("Histories/Vellument_W2_2021.VLM");
    second->get_current_dictionary()->insert({"changed", "yes"});
    FailingDatabase failing(2, "UPDATE VLMform ");
    ASSERT_TRUE(failing.OpenFile(db_path, ""));
    EXPECT_FALSE(second->save_to_vellument_database(&failing, ""));
    EXPECT_EQ(co.read("Histories/Vellument_W2_2021.VLM"), file);
    EXPECT_TRUE(failing.GetOpen());  // still the caller's
}

TEST_F(Mirror, HostileFilingYearNeverRunsAsSql)
{
    auto good = open_misc();
    ASSERT_TRUE(good->save_to_vellument_database(db_path, "", ""));
    const std::string before = dump_tables(db_path);

    // Such a year, the empty one too, fails each operation as its statements would fail.
    for (const char* year : {"2021; DROP TABLE VLMform", "2021 OR 1=1", "0) OR (1=1", "2021'--"}) {
        auto hostile = open_document(kMisc, small_document("1099-MISC", year));
        EXPECT_EQ(hostile->get_filing_year(), year);
        LogCapture log;
        EXPECT_FALSE(hostile->save_to_vellument_database(db_path, "", "")) << year;
        for (const char* line : {"[CvellumentDB] Error executing select statement\n",
                                 "[CvellumentDB] Error inserting into Vellument table\n",
                                 "[CvellumentDB] Error writing records\n"})
            EXPECT_TRUE(log.contains(line)) << year << line;
        EXPECT_FALSE(log.contains("Invalid filing year"));
        EXPECT_FALSE(hostile->delete_record(db_path, "", hostile->get_vellument_name()) &&
                     dump_tables(db_path) != before)
            << year;
        CVellument reader;
        EXPECT_FALSE(reader.read_from_vellument_database("C:\\X\\Vellument_M_.VLM", "", year, "", db_path, ""))
            << year;
        EXPECT_TRUE(log.contains("[CvellumentDB] Error, vellument with specified year and type does not exist\n"));
        EXPECT_EQ(dump_tables(db_path), before) << year;
    }
    // The empty year, through the mapper (the vellument's own calls take the year from the name).
    auto empty = open_document(kMisc, small_document("1099-MISC", ""));
    CvellumentDB mapper;
    LogCapture log;
    EXPECT_FALSE(mapper.writeRecords(empty.get(), db_path, ""));
    EXPECT_EQ(log.lines, (std::vector<std::string>{"Attempting to write records for M  VLM",
                                                   "[CvellumentDB] Error executing select statement\n",
                                                   "[CvellumentDB] Error inserting into Vellument table\n",
                                                   "[CvellumentDB] Error writing records\n"}));
    log.clear();
    EXPECT_EQ(mapper.readRecords(empty.get(), db_path, ""), nullptr);
    EXPECT_TRUE(log.contains("[CvellumentDB] Error, vellument with specified year and type does not exist\n"));
    log.clear();
    EXPECT_TRUE(mapper.DeleteRecords(empty.get(), db_path, ""));
    EXPECT_TRUE(log.contains("[CvellumentDB] Error executing select statement\n"));
    EXPECT_EQ(dump_tables(db_path), before);
    CVellument reader;
    EXPECT_TRUE(read_back(reader, kMisc));
}

// The database file is as open to tampering as the document: garbage keys, odd dictionary names
// and rows in the wrong places must give a result, not a crash.
TEST_F(Mirror, TamperedRowsAreReadAndDeletedSafely)
{
    auto v = open_w2();
    ASSERT_TRUE(v->save_to_vellument_database(db_path, "", ""));
    {
        DatabaseEx db;
        ASSERT_TRUE(db.OpenFile(db_path, ""));
        for (const char* sql : {
                 "UPDATE VLMtransaction SET packageID = 'abc' WHERE Number = 0;",
                 "UPDATE VLMtransaction SET statusID = -7 WHERE Number = 1;",
                 "UPDATE VLMcopy SET baseID = NULL;",
                 "UPDATE VLMform SET parentID = (SELECT max(filingID) FROM VLMfiling);",
                 "INSERT INTO VLMdictionaryEntry (Key, Value, parentID) SELECT '', 'empty name', dictionaryID FROM "
                 "VLMdictionary;",
                 "INSERT INTO VLMdictionaryEntry (Key, Value, parentID) SELECT 'bad <name>', '\"v\" & ''w''', "
                 "dictionaryID FROM VLMdictionary;",
                 "INSERT INTO VLMhistory (tableVer, parentID, baseID) SELECT 2, copyID, 999999 FROM VLMcopy;",
             })
            ASSERT_TRUE(db.Execute(sql)) << sql;
    }
    CVellument back;
    read_back(back, kName);
    EXPECT_LE(back.get_transaction_count(), 3);
    ASSERT_NE(0, back.save(co.win("tampered.xml").c_str()));

    CVellument other;
    other.set_form_type_string("W-2_SSA");
    EXPECT_TRUE(other.delete_record(db_path, "", v->get_vellument_name()));
    EXPECT_EQ(count_rows(db_path, "VLMvellument"), 0);
    EXPECT_EQ(count_rows(db_path, "VLMtransaction"), 0);
}

TEST_F(Mirror, ReaderSeesOnlyTheLastWrittenFormTypeAndYear)
{
    auto w2 = open_w2();
    auto misc = open_misc();
    CvellumentDB mapper;
    ASSERT_TRUE(mapper.writeRecords(w2.get(), db_path, ""));
    std::unique_ptr<COXMLDocument> document(mapper.readRecords(w2.get(), nullptr));
    ASSERT_NE(document, nullptr);
    COXMLNode* root = document->getDocumentElement();
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->nodeName(), "AuditTrail");
    EXPECT_STREQ(root->getAttribute("FormType"), "W-2_SSA");
    EXPECT_NE(root->selectSingleNode("./Dictionary"), nullptr);

    ASSERT_TRUE(mapper.writeRecords(misc.get(), nullptr));
    document.reset(mapper.readRecords(w2.get(), nullptr));
    EXPECT_EQ(document, nullptr);
    document.reset(mapper.readRecords(misc.get(), nullptr));
    EXPECT_NE(document, nullptr);

    // A second write without a delete adds transaction 0 again (the stored maximum is 0 only
    // when one transaction is there): with three stored, nothing new is added.
    const int before = count_rows(db_path, "VLMtransaction");
    ASSERT_TRUE(mapper.writeRecords(misc.get(), nullptr));
    EXPECT_EQ(count_rows(db_path, "VLMtransaction"), before);

    // The path already open stays open, whatever password comes with it.
    EXPECT_TRUE(mapper.setDatabase(db_path, "another"));
    EXPECT_EQ(mapper.getDatabasePassword(), "");
}

TEST_F(Mirror, CallersDatabaseStaysTheCallers)
{
    auto v = open_w2();
    DatabaseEx db;
    ASSERT_TRUE(db.OpenFile(db_path, ""));
    {
        CvellumentDB mapper;
        DatabaseEx closed;
        EXPECT_FALSE(mapper.setDatabase(&closed));
        ASSERT_TRUE(mapper.setDatabase(&db));
        EXPECT_EQ(mapper.getDatabase(), &db);
        // A path of its own gives the mapper a database of its own, and leaves the caller's alone.
        EXPECT_TRUE(mapper.setDatabase(co.disk("own.db"), ""));
        EXPECT_NE(mapper.getDatabase(), &db);
        ASSERT_TRUE(mapper.setDatabase(&db));
        ASSERT_TRUE(mapper.writeRecords(v.get(), nullptr));
    }
    EXPECT_TRUE(db.GetOpen());
    EXPECT_TRUE(v->save_to_vellument_database(&db, ""));
    EXPECT_TRUE(db.GetOpen());
    CVellument back;
    EXPECT_TRUE(back.read_from_vellument_database(co.win("Histories\\Vellument_W2_2021.VLM").c_str(), "", "", "", &db));
    EXPECT_EQ(back.get_transaction_count(), 3);
}

TEST_F(Mirror, OpenSavesThroughTheMirrorItLastUsed)
{
    // A fresh object has no database: an outside edit is closed in the trail and the file is
    // written all the same.
    LogCapture log;
    co.write_saved(small_document("W-2_SSA", "2022"), "Histories\\Vellument_W2_2022.VLM");
    co.write("Histories/Vellument_W2_2022.VLM", small_document("W-2_SSA", "2022") + "\n");
    CVellument reopened;
    reopened.open(co.win("Histories\\Vellument_W2_2022.VLM").c_str(), "", "", "", false, false);
    EXPECT_NE(co.read("Histories/Vellument_W2_2022.VLM").find("User Edit"), std::string::npos);
    EXPECT_TRUE(log.contains("[CvellumentDB] Error setting database"));
    EXPECT_FALSE(log.contains("SAVING VELLUMENT TO DB"));

    // After a save to a database, the save that open makes goes there too.
    ASSERT_TRUE(reopened.save_to_vellument_database(db_path, "", ""));
    const int rows = count_rows(db_path, "VLMtransaction");
    co.write("Histories/Vellument_W2_2022.VLM", small_document("W-2_SSA", "2022"));
    reopened.open(co.win("Histories\\Vellument_W2_2022.VLM").c_str(), "", "", "", false, false);
    EXPECT_TRUE(log.contains("SAVING VELLUMENT TO DB " + db_path));
    EXPECT_GT(count_rows(db_path, "VLMtransaction"), rows);

    // A read-only object writes nothing anywhere.
    CVellument read_only;
    read_only.open(co.win("Histories\\Vellument_W2_2022.VLM").c_str(), "", "", "", false, true);
    EXPECT_TRUE(read_only.save_to_vellument_database(co.disk("never.db"), "", ""));
    EXPECT_FALSE(std::filesystem::exists(co.disk("never.db")));
}

TEST_F(Mirror, NameGivesYearAndFormTypeAsOpenDoes)
{
    // Of the name's last 8 characters the first 4, however short the name.
    CVellument read_short;
    EXPECT_FALSE(read_short.read_from_vellument_database("A_1.VLM", "", "", "", db_path, ""));
    EXPECT_EQ(read_short.get_filing_year(), "A_1.");
    CVellument delete_short;
    delete_short.delete_record(db_path, "", "A_1.VLM");
    EXPECT_EQ(delete_short.get_filing_year(), "A_1.");
    CVellument read_full;
    const std::string full = co.win("Vellument_W2_2021.VLM");
    EXPECT_FALSE(read_full.read_from_vellument_database(full.c_str(), "", "", "", db_path, ""));
    EXPECT_EQ(read_full.get_filing_year(), "2021");

    // A name without any underscore has no form type: the caller hears of it as from open.
    const std::string plain = co.win("Plain.VLM");
    CVellument reader;
    EXPECT_THROW(reader.read_from_vellument_database(plain.c_str(), "", "2021", "", db_path, ""),
                 std::invalid_argument);
    DatabaseEx db;
    ASSERT_TRUE(db.OpenFile(db_path, ""));
    EXPECT_THROW(reader.read_from_vellument_database(plain.c_str(), "", "2021", "", &db), std::invalid_argument);
    CVellument deleter;
    deleter.set_vellument_name("Kept.VLM");
    EXPECT_THROW(deleter.delete_record(db_path, "", plain), std::invalid_argument);
    EXPECT_EQ(deleter.get_vellument_name(), "Kept.VLM");
}

TEST(LocalList, LoadedFromTheReferenceDatabase)
{
    testutil::TempDir dir;
    const std::string path = dir.file("reference.db");
    setenv("VELLUMENT_REFERENCE_DB", path.c_str(), 1);
    MessageBoxSpy boxes;

    CListMap map;
    build_list_map_from_db("LocalList", map);
    ASSERT_EQ(boxes.texts, std::vector<std::string>{"[Decision Tree] Error opening OstrelDataDatabase\n"});
    EXPECT_TRUE(map.empty());
    {
        DatabaseEx db;
        ASSERT_TRUE(db.OpenFile(path, ""));
        ASSERT_TRUE(db.Execute("CREATE TABLE LocalList (LocalCode STRING, Server STRING, Note STRING);"));
        ASSERT_TRUE(db.Execute("INSERT INTO LocalList VALUES ('PA-PHL', 'PHL', 'first'), ('OH-CLE', 'CLE', NULL), "
                               "('PA-PHL', 'PHL2', 'later');"));
    }
    build_list_map_from_db("LocalList", map);
    build_list_map_from_db("Missing", map);
    ASSERT_EQ(boxes.texts.size(), 2u);
    EXPECT_EQ(boxes.texts[1], "[Decision Tree] Error opening Missing Record Set\n");
    ASSERT_EQ(map.size(), 2u);
    EXPECT_EQ((*map["PA-PHL"])["Server"], "PHL2");
    EXPECT_EQ((*map["PA-PHL"])["Note"], "later");
    EXPECT_EQ((*map["OH-CLE"])["Note"], "");
    EXPECT_EQ(map["OH-CLE"]->size(), 3u);

    delete_list_map(&map);
    EXPECT_TRUE(map.empty());
    delete_list_map(&map);
    delete_list_map(nullptr);
    build_list_map_from_db("LocalList", map);
    EXPECT_EQ(map.size(), 2u);
    delete_list_map(&map);

    // Each vellument reads the list; with the database in place nobody is bothered.
    { CVellument v; }
    EXPECT_EQ(boxes.texts.size(), 2u);
    unsetenv("VELLUMENT_REFERENCE_DB");
    { CVellument v; }
    EXPECT_EQ(boxes.texts.size(), 3u);
}

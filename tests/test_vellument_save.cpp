#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>

#include "company_fixture.h"

using namespace vlmtest;

namespace {

const char kBak[] = "Histories/Vellument_W2_2021.BAK";

// A library-saved vellument with one transaction whose status holds the given copies.
void make_saved(const Company& co, const std::string& copies = "", const std::string& dictionary = "")
{
    co.write_saved(trail("FormType=\"W-2_SSA\" FilingYear=\"2021\" ModifiedDate=\"01/02/2003 04:05:06\"",
                         dictionary + transaction("Filing", copies)));
}

// Lowers the process's file size limit for its lifetime: a write past it fails part-way with
// EFBIG, for root as for anyone.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        previous_handler_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &previous_);
        struct rlimit limit = previous_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previous_handler_);
    }

private:
    struct rlimit previous_;
    void (*previous_handler_)(int);
};

// The saved vellument of the company, and an object to open it.
class SavedVellument : public ::testing::Test {
protected:
    void SetUp() override
    {
        make_saved(co);
        first = co.read(kDisk);
    }
    void open(bool read_only = false) { v.open(co.win(kName).c_str(), "", "", "", false, read_only); }

    Company co;
    std::string first;
    CVellument v;
};

} // namespace

TEST_F(SavedVellument, SaveKeepsTheTrailBacksUpAndRecordsTheHash)
{
    open();
    v.get_current_transaction()->set_action(Vellument::ACTION_EDIT);
    v.get_current_dictionary()->insert({"Note", "kept"});
    ASSERT_NE(v.save(nullptr), 0);

    EXPECT_EQ(co.read(kBak), first);
    EXPECT_EQ(co.setting(co.key(kName)), md5_hex(co.read(kDisk)));
    EXPECT_EQ(co.setting("UploadSucceeded_" + co.key(kName)), "Not Found");  // nothing e-filed: no upload
    // The modified date of a live file is the object's, not the time of saving.
    EXPECT_NE(co.read(kDisk).find("ModifiedDate=\"01/02/2003 04:05:06\""), std::string::npos);

    CVellument back;
    back.open(co.win(kName).c_str(), "", "", "", false, false);  // its own save: no edit found
    ASSERT_EQ(back.get_transaction_count(), 1);
    EXPECT_EQ(back.get_current_transaction()->get_action(), Vellument::ACTION_EDIT);
    EXPECT_EQ(back.get_current_dictionary()->at("Note"), "kept");
}

TEST_F(SavedVellument, SaveToAnotherName)
{
    open();
    v.get_current_transaction()->set_action(Vellument::ACTION_EDIT);

    // Another live file: the backup is still of the object's own file, the hash is of the target.
    ASSERT_NE(v.save(co.win("Histories\\Other.VLM").c_str()), 0);
    EXPECT_EQ(co.read(kDisk), first);
    EXPECT_EQ(co.read(kBak), first);
    EXPECT_EQ(co.setting(co.win("Histories\\Other.VLM")), md5_hex(co.read("Histories/Other.VLM")));
    EXPECT_EQ(co.setting(co.key(kName)), md5_hex(first));

    // A plain XML: no backup, no hash.
    std::remove(co.resolve(kBak).c_str());
    const auto before = co.read("Histories/Vellument.INI");
    ASSERT_NE(v.save(co.win("Drafts\\Other.XML").c_str()), 0);
    EXPECT_NE(co.read("Drafts/Other.XML").find("Action=\"Edit\""), std::string::npos);
    EXPECT_FALSE(co.exists(kBak));
    EXPECT_EQ(co.read("Histories/Vellument.INI"), before);

    // A test-mode file: no backup or hash either. The time of saving goes to the document
    // object, which has no attributes of its own: the element keeps the vellument's date.
    ASSERT_NE(v.save(co.win("Histories\\Vellument_W2_2021.TLM").c_str()), 0);
    const std::string tlm = co.read("Histories/Vellument_W2_2021.TLM");
    EXPECT_NE(tlm.find("ModifiedDate=\"01/02/2003 04:05:06\""), std::string::npos) << tlm.substr(0, 300);
    EXPECT_EQ(tlm.find("ModifiedDate=", tlm.find("ModifiedDate=") + 1), std::string::npos);
    EXPECT_FALSE(co.exists(kBak));
    EXPECT_EQ(co.read("Histories/Vellument.INI"), before);
    EXPECT_EQ(v.get_modified_date().format("%m/%d/%Y %H:%M:%S"), "01/02/2003 04:05:06");
}

TEST_F(SavedVellument, WriteFailingPartWayLeavesThePreviousFileWhole)
{
    open();
    for (int i = 0; i < 400; ++i) {
        v.get_current_dictionary()->insert({"Entry" + std::to_string(i), std::string(40, 'x')});
        v.clear_current_status();
    }

    MessageBoxSpy boxes;
    int result = 1;
    {
        FileSizeLimit limit(16 * 1024);  // the old file and the settings file fit, the new one doesn't
        result = v.save(nullptr);
    }
    EXPECT_EQ(result, 0);
    ASSERT_EQ(boxes.texts.size(), 1u);
    EXPECT_EQ(boxes.texts[0].rfind("Error saving vellument " + co.key(kName) + " with error result ", 0), 0u)
        << boxes.texts[0];
    EXPECT_EQ(co.read(kDisk), first);
    EXPECT_EQ(co.read(kBak), first);
    // No temporary file is left, and the hash on record is that of the file that stands.
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(co.disk("Histories")))
        files += entry.is_regular_file() ? 1 : 0;
    EXPECT_EQ(files, 3u);  // the vellument, its backup, the settings file
    CVellument back;
    back.open(co.win(kName).c_str(), "", "", "", false, false);
    EXPECT_EQ(back.get_transaction_count(), 1);

    // A target whose directory is a file fails at once, with the same report.
    co.write("Histories/Blocked", "file");
    EXPECT_EQ(v.save(co.win("Histories\\Blocked\\X.VLM").c_str()), 0);
    EXPECT_EQ(boxes.texts.size(), 2u);
}

TEST(VellumentSave, UploadDecision)
{
    // Until a server answers, every upload is recorded as failed.
    struct Case {
        const char* copies;
        const char* dictionary;
        const char* upload_status;  // before the save; null for none
        bool uploads;
        const char* expected;  // after it
    } cases[] = {
        {"<Copy Type=\"Federal\" Efiled=\"true\"/>", "", nullptr, true, "false"},
        {"", "<Dictionary STARTOVER=\"1\"/>", "true", true, "false"},
        {"", "<Dictionary STARTOVER=\"1\"/>", "false", false, "false"},
        {"", "<Dictionary STARTOVER=\"1\"/>", nullptr, false, "Not Found"},
        {"", "<Dictionary STARTOVER=\"2\"/>", "true", false, "true"},
    };
    for (const Case& c : cases) {
        Company co;
        make_saved(co, c.copies, c.dictionary);
        const std::string key = "UploadSucceeded_" + co.key(kName);
        if (c.upload_status != nullptr)
            _SetValue(co.settings().c_str(), key.c_str(), c.upload_status);
        CVellument v;
        v.open(co.win(kName).c_str(), "", "", "", false, false);
        LogCapture log;
        ASSERT_NE(v.save(nullptr), 0);
        EXPECT_EQ(log.contains("[Vellument] Calling StoreVellument"), c.uploads) << c.copies << c.dictionary;
        EXPECT_EQ(co.setting(key), c.expected) << c.copies << c.dictionary;
    }
}

TEST_F(SavedVellument, ReadOnlyObjectStillSaves)
{
    open(true);
    v.get_current_transaction()->set_action(Vellument::ACTION_EDIT);
    ASSERT_NE(v.save(nullptr), 0);
    EXPECT_NE(co.read(kDisk).find("Action=\"Edit\""), std::string::npos);
}

// A damaged trail opens as a fresh document, and its bytes go to the backup of the next save.
TEST(VellumentSave, DamagedFileSurvivesInTheBackup)
{
    Company co;
    const std::string damaged = trail("FormType=\"W-2_SSA\" FilingYear=\"2021\" FilingYear=\"2021\"",
                                      transaction("Filing") + "&bogus;");
    co.write_saved(damaged);
    CVellument v;
    v.open(co.win(kName).c_str(), "", "2021", "", false, false);
    ASSERT_EQ(v.get_transaction_count(), 1);
    EXPECT_EQ(v.get_current_transaction()->get_action(), Vellument::ACTION_NONE);
    ASSERT_NE(v.save(nullptr), 0);
    EXPECT_EQ(co.read(kBak), damaged);
}

#include <gtest/gtest.h>

#include <string>

#include <vellument/CPathHandling.h>

namespace {

class PathHandling : public ::testing::Test {
protected:
    void SetUp() override { CPathHandling::set_company_dir("C:\\CO\\"); }
    void TearDown() override { CPathHandling::set_company_dir(""); }
};

} // namespace

TEST_F(PathHandling, CompanyDirStripsCapitalSubdirectories)
{
    EXPECT_EQ(CPathHandling::get_company_dir(), "C:\\CO\\");
    CPathHandling::set_company_dir("C:\\CO\\HISTORIES\\");
    EXPECT_EQ(CPathHandling::get_company_dir(), "C:\\CO\\");
    CPathHandling::set_company_dir("C:\\CO\\DRAFTS\\");
    EXPECT_EQ(CPathHandling::get_company_dir(), "C:\\CO\\");
    CPathHandling::set_company_dir("C:\\Co\\Histories\\");
    EXPECT_EQ(CPathHandling::get_company_dir(), "C:\\Co\\Histories\\");
    // Every occurrence goes, histories first; a removed one is not searched again.
    CPathHandling::set_company_dir("C:\\HISTORIES\\A\\HISTORIES\\");
    EXPECT_EQ(CPathHandling::get_company_dir(), "C:\\A\\");
    CPathHandling::set_company_dir("C:\\A\\HISTORIES\\HISTORIES\\");
    EXPECT_EQ(CPathHandling::get_company_dir(), "C:\\A\\HISTORIES\\");
    CPathHandling::set_company_dir("C:\\A\\HISTORIES\\DRAFTS\\");
    EXPECT_EQ(CPathHandling::get_company_dir(), "C:\\A\\");
    CPathHandling::set_company_dir(nullptr);
    EXPECT_EQ(CPathHandling::get_company_dir(), "");
}

TEST_F(PathHandling, FindCompanyDirEnd)
{
    EXPECT_EQ(CPathHandling::find_company_dir_end("C:\\Co\\Histories\\Drafts\\a.pdf"), 5);
    EXPECT_EQ(CPathHandling::find_company_dir_end("C:\\Co\\Drafts\\Histories\\a.pdf"), 12);
    EXPECT_EQ(CPathHandling::find_company_dir_end("C:\\Co\\Drafts\\x\\a.pdf"), 5);
    EXPECT_EQ(CPathHandling::find_company_dir_end("C:\\Co\\Sub\\a.pdf"), 9);
    EXPECT_EQ(CPathHandling::find_company_dir_end("C:\\Co\\HISTORIES\\a.pdf"), 15);
    EXPECT_EQ(CPathHandling::find_company_dir_end("a.pdf"), -1);
    EXPECT_EQ(CPathHandling::find_company_dir_end(""), -1);
    EXPECT_EQ(CPathHandling::find_company_dir_end(nullptr), -1);
}

TEST_F(PathHandling, Conversions)
{
    struct Row {
        const char* input;
        bool relative;
        const char* expected;
    };
    const Row rows[] = {
        {"C:\\Old\\Histories\\a.pdf", true, ".\\Histories\\a.pdf"},
        {"C:\\Old\\Drafts\\b.pdf", true, ".\\Drafts\\b.pdf"},
        {"C:\\Old\\Sub\\c.pdf", true, ".\\c.pdf"},
        {"C:\\OLD\\HISTORIES\\a.pdf", true, ".\\a.pdf"},
        {"a.pdf", true, ".\\a.pdf"},
        {"", true, ""},
        {".\\Histories\\a.pdf", true, ".\\Histories\\a.pdf"},
        {".\\a.pdf", true, ".\\a.pdf"},
        {".\\Histories\\a.pdf", false, "C:\\CO\\Histories\\a.pdf"},
        {".\\a.pdf", false, "C:\\CO\\a.pdf"},
        {"C:\\X\\a.pdf", false, "C:\\X\\a.pdf"},
        {"C:\\X.\\a.pdf", false, "C:\\CO\\\\X.\\a.pdf"},
        {"", false, ""},
        {".", false, "."},
        {".\\", false, "C:\\CO\\"},
    };
    for (const Row& row : rows) {
        std::string got = row.relative ? CPathHandling::convert_path_to_relative(row.input)
                                       : CPathHandling::convert_path_to_absolute(row.input);
        EXPECT_EQ(got, row.expected) << (row.relative ? "relative of " : "absolute of ") << row.input;
    }
    EXPECT_EQ(CPathHandling::convert_path_to_relative(nullptr), "");
    EXPECT_EQ(CPathHandling::convert_path_to_absolute(nullptr), "");
}

TEST_F(PathHandling, PathsFollowAMovedCompany)
{
    const std::string stored = CPathHandling::convert_path_to_relative("C:\\Old\\Histories\\2024\\a.pdf");
    EXPECT_EQ(stored, ".\\Histories\\2024\\a.pdf");
    EXPECT_EQ(CPathHandling::convert_path_to_relative(stored.c_str()), stored);
    CPathHandling::set_company_dir("D:\\NEW\\HISTORIES\\");
    EXPECT_EQ(CPathHandling::convert_path_to_absolute(stored.c_str()), "D:\\NEW\\Histories\\2024\\a.pdf");
    EXPECT_EQ(CPathHandling::convert_path_to_relative(
                  CPathHandling::convert_path_to_absolute(stored.c_str()).c_str()),
              stored);
}

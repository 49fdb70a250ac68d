#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_IniFile.h>

#include "log_capture.h"
#include "test_util.h"

using Ostrel::Error;
using vlmtest::LogCapture;
using Ostrel::Profile::GetPrivateProfileStringA;
using Ostrel::Profile::WritePrivateProfileStringA;

namespace {

// A string literal with its NUL bytes.
template <std::size_t N>
std::string bytes(const char (&text)[N])
{
    return std::string(text, N - 1);
}

struct Read {
    unsigned long length;
    std::string text;
};

Read read(const std::string& path, const char* section, const char* key, const char* def = "<default>",
          unsigned long size = 256)
{
    std::vector<char> buffer(size + 1, 'Z');
    unsigned long n = GetPrivateProfileStringA(section, key, def, buffer.data(), size, path.c_str());
    return Read{n, std::string(buffer.data(), n)};
}

std::string value(const std::string& path, const char* section, const char* key)
{
    return read(path, section, key).text;
}

class IniFile : public ::testing::Test {
protected:
    testutil::TempDir dir;
    std::string path = dir.file("Vellument.INI");
};

} // namespace

TEST_F(IniFile, NamesIgnoreCaseAndBlanksAndQuotesComeOff)
{
    testutil::write_file(path,
                         "; a comment=with an equals sign\r\n"
                         "  [ Vellument ]  \r\n"
                         "  Hash  =  abc def  \r\n"
                         "Quoted=\"  spaced  \"\r\n"
                         "Single='x'\r\n"
                         "Open=\"unmatched\r\n"
                         "Mixed=\"x'\r\n"
                         "OneQuote=\"\r\n"
                         "Inner=a\"b\"\r\n"
                         "Empty=\r\n"
                         "Eq=a=b\r\n"
                         "just some text\r\n"
                         ";Hidden=1\r\n"
                         "hash=second\r\n"
                         "[Other]\r\n"
                         "Only=1\r\n");
    EXPECT_EQ(value(path, "VELLUMENT", "HASH"), "abc def");
    EXPECT_EQ(value(path, "vellument", "hash"), "abc def");  // the first of two wins
    EXPECT_EQ(value(path, "  Vellument ", " Hash "), "abc def");
    EXPECT_EQ(value(path, "VELLUMENT", "Quoted"), "  spaced  ");
    EXPECT_EQ(value(path, "VELLUMENT", "Open"), "\"unmatched");
    EXPECT_EQ(value(path, "VELLUMENT", "OneQuote"), "\"");
    EXPECT_EQ(value(path, "VELLUMENT", "Inner"), "a\"b\"");
    EXPECT_EQ(value(path, "VELLUMENT", "Eq"), "a=b");

    Read empty = read(path, "VELLUMENT", "Empty");
    EXPECT_EQ(empty.length, 0u);
    EXPECT_EQ(Error::GetLastError(), Error::SUCCESS);

    // Comments, lines without '=' and keys of other sections are not keys here.
    EXPECT_EQ(value(path, "VELLUMENT", ";Hidden"), "<default>");
    EXPECT_EQ(value(path, "VELLUMENT", "just some text"), "<default>");
    EXPECT_EQ(value(path, "VELLUMENT", "Only"), "<default>");
    EXPECT_EQ(Error::GetLastError(), Error::FILE_NOT_FOUND);
    EXPECT_EQ(value(path, "Other", "only"), "1");
    EXPECT_EQ(value(path, "Missing", "Only"), "<default>");
}

TEST_F(IniFile, MissingFileGivesTheDefault)
{
    Read r = read(dir.file("none.ini"), "VELLUMENT", "Key", "dflt  \t");
    EXPECT_EQ(r.text, "dflt");  // trailing blanks of the default go
    EXPECT_EQ(Error::GetLastError(), Error::FILE_NOT_FOUND);
    EXPECT_EQ(read(dir.file("no/such/dir/x.ini"), "S", "K", nullptr).length, 0u);
    EXPECT_EQ(read(dir.path(), "S", "K").text, "<default>");  // a directory is no settings file
}

TEST_F(IniFile, ValueIsCutToTheBuffer)
{
    testutil::write_file(path, "[S]\nK=abcdefgh\n");
    Read r = read(path, "S", "K", "", 5);
    EXPECT_EQ(r.length, 4u);
    EXPECT_EQ(r.text, "abcd");
    EXPECT_EQ(read(path, "S", "K", "", 1).length, 0u);
    EXPECT_EQ(read(path, "S", "missing", "0123456789", 4).text, "012");
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(GetPrivateProfileStringA("S", "K", "", buffer, 0, path.c_str()), 0u);
    EXPECT_EQ(buffer[0], 'x');
}

TEST_F(IniFile, LfCrlfNulAndNoLineEnd)
{
    testutil::write_file(path, "[A]\nk=lf\n[B]\r\nk=crlf\r\n");
    EXPECT_EQ(value(path, "A", "k"), "lf");
    EXPECT_EQ(value(path, "B", "k"), "crlf");

    testutil::write_file(path, bytes("[S]\r\na=1\0junk=2\r\nb=2\r\n[T]\r\nc=3"));
    EXPECT_EQ(value(path, "S", "a"), "1");
    EXPECT_EQ(value(path, "S", "junk"), "<default>");
    EXPECT_EQ(value(path, "S", "b"), "2");
    EXPECT_EQ(value(path, "T", "c"), "3");

    testutil::write_file(path, bytes("\0\0[S]\0\nk\0=v\n"));
    EXPECT_EQ(value(path, "S", "k"), "<default>");

    testutil::write_file(path, "\xEF\xBB\xBF[S]\r\nk=bom\r\n");
    EXPECT_EQ(value(path, "S", "k"), "bom");
}

TEST_F(IniFile, NullSectionOrKeyListsNames)
{
    testutil::write_file(path, "[One]\nA=1\nb=2\na=3\n[Two]\nC=4\n[one]\nD=5\n");
    Read sections = read(path, nullptr, nullptr);
    EXPECT_EQ(sections.text, bytes("One\0Two\0"));
    Read keys = read(path, "ONE", nullptr);
    EXPECT_EQ(keys.text, bytes("A\0b\0D\0"));
    Read cut = read(path, nullptr, "x", "", 6);
    EXPECT_EQ(cut.length, 4u);
    EXPECT_EQ(cut.text, bytes("One\0"));
    EXPECT_EQ(read(dir.file("none.ini"), nullptr, nullptr).length, 0u);
}

TEST_F(IniFile, NewFileIsSectionAndKeyWithCrlf)
{
    ASSERT_TRUE(WritePrivateProfileStringA("VELLUMENT", "C:\\Data\\W2.VLM", "0123abcd", path.c_str()));
    EXPECT_EQ(Error::GetLastError(), Error::SUCCESS);
    EXPECT_EQ(testutil::read_file(path), "[VELLUMENT]\r\nC:\\Data\\W2.VLM=0123abcd\r\n");
    EXPECT_EQ(value(path, "vellument", "c:\\data\\w2.vlm"), "0123abcd");
}

TEST_F(IniFile, WriteReplacesInPlaceAndKeepsEverythingElse)
{
    const std::string before =
        "; settings kept by hand\n"
        "\n"
        "[Other]\n"
        "Key=other section\n"
        "\n"
        "[Vellument]\n"
        "  ; note about the key\n"
        "  My Key  = old value \n"
        "Second=2\n"
        "\n"
        "[Last]\n"
        "x=1\n";
    testutil::write_file(path, before);
    ASSERT_TRUE(WritePrivateProfileStringA("VELLUMENT", "MY KEY", "new", path.c_str()));
    std::string expected = before;
    expected.replace(expected.find("  My Key  = old value "), 22, "My Key=new");
    EXPECT_EQ(testutil::read_file(path), expected);

    // A new key goes after the section's last line, before the blank that parts it from the next.
    ASSERT_TRUE(WritePrivateProfileStringA("Vellument", "Third", "3", path.c_str()));
    expected.insert(expected.find("Second=2\n") + 9, "Third=3\n");
    EXPECT_EQ(testutil::read_file(path), expected);

    // A missing section is appended with the file's own line end.
    ASSERT_TRUE(WritePrivateProfileStringA("New", "k", "v", path.c_str()));
    expected += "[New]\nk=v\n";
    EXPECT_EQ(testutil::read_file(path), expected);

    // Writing the same value again leaves the file as it is.
    ASSERT_TRUE(WritePrivateProfileStringA("new", "K", "v", path.c_str()));
    EXPECT_EQ(testutil::read_file(path), expected);

    // Nothing but the settings file is left in the directory.
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
        names.push_back(entry.path().filename().string());
    EXPECT_EQ(names, std::vector<std::string>{"Vellument.INI"});
}

TEST_F(IniFile, WriteFindsTheEndOfFilesWithoutALineEnd)
{
    testutil::write_file(path, "[S]\r\na=1");
    ASSERT_TRUE(WritePrivateProfileStringA("S", "b", "2", path.c_str()));
    EXPECT_EQ(testutil::read_file(path), "[S]\r\na=1\r\nb=2\r\n");

    testutil::write_file(path, "[S]\r\na=1");
    ASSERT_TRUE(WritePrivateProfileStringA("T", "b", "2", path.c_str()));
    EXPECT_EQ(testutil::read_file(path), "[S]\r\na=1\r\n[T]\r\nb=2\r\n");

    testutil::write_file(path, bytes("[S]\r\nz=\0x\r\na=1\r\n"));
    ASSERT_TRUE(WritePrivateProfileStringA("S", "a", "2", path.c_str()));
    EXPECT_EQ(testutil::read_file(path), bytes("[S]\r\nz=\0x\r\na=2\r\n"));
}

TEST_F(IniFile, NullValueDeletesTheKeyAndNullKeyTheSection)
{
    testutil::write_file(path, "[A]\r\nk=1\r\nK=dup\r\nj=2\r\n[B]\r\nk=3\r\n[a]\r\nk=4\r\n");
    ASSERT_TRUE(WritePrivateProfileStringA("a", "k", nullptr, path.c_str()));
    EXPECT_EQ(testutil::read_file(path), "[A]\r\nj=2\r\n[B]\r\nk=3\r\n[a]\r\n");
    ASSERT_TRUE(WritePrivateProfileStringA("A", nullptr, nullptr, path.c_str()));
    EXPECT_EQ(testutil::read_file(path), "[B]\r\nk=3\r\n");
    ASSERT_TRUE(WritePrivateProfileStringA("B", "absent", nullptr, path.c_str()));
    EXPECT_EQ(testutil::read_file(path), "[B]\r\nk=3\r\n");
    ASSERT_TRUE(WritePrivateProfileStringA("B", "k", nullptr, dir.file("none.ini").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir.file("none.ini")));
}

TEST_F(IniFile, FlushAndRefusedWrites)
{
    EXPECT_TRUE(WritePrivateProfileStringA(nullptr, nullptr, nullptr, path.c_str()));
    EXPECT_TRUE(WritePrivateProfileStringA(nullptr, nullptr, nullptr, nullptr));
    EXPECT_FALSE(std::filesystem::exists(path));

    testutil::write_file(path, "[S]\r\nk=1\r\n");
    EXPECT_FALSE(WritePrivateProfileStringA("S", "k", "1\r\nevil=1", path.c_str()));
    EXPECT_EQ(Error::GetLastError(), Error::INVALID_PARAMETER);
    EXPECT_FALSE(WritePrivateProfileStringA("S", "a=b", "1", path.c_str()));
    EXPECT_FALSE(WritePrivateProfileStringA("S]", "a", "1", path.c_str()));
    EXPECT_FALSE(WritePrivateProfileStringA("S", "[T]", "1", path.c_str()));
    EXPECT_FALSE(WritePrivateProfileStringA(nullptr, "k", "1", path.c_str()));
    EXPECT_FALSE(WritePrivateProfileStringA("S", "k", "1", nullptr));
    EXPECT_EQ(testutil::read_file(path), "[S]\r\nk=1\r\n");

    EXPECT_FALSE(WritePrivateProfileStringA("S", "k", "1", dir.file("missing/Vellument.INI").c_str()));
    EXPECT_EQ(Error::GetLastError(), Error::PATH_NOT_FOUND);
}

TEST_F(IniFile, WindowsFormPathsWork)
{
    std::string windows = "Z:" + path;
    for (char& c : windows) {
        if (c == '/')
            c = '\\';
    }
    ASSERT_TRUE(WritePrivateProfileStringA("VELLUMENT", "k", "v", windows.c_str()));
    EXPECT_EQ(value(path, "VELLUMENT", "k"), "v");
    EXPECT_EQ(_GetValue(windows, "VELLUMENT", "k", "", true), "v");
}

TEST_F(IniFile, GetValueDefaultsForAbsentValues)
{
    testutil::write_file(path,
                         "[DEBUG]\r\n"
                         "DecryptFiles=\r\n"
                         "Null=<NULL>\r\n"
                         "LowerNull=<null>\r\n"
                         "Typed=Not Found\r\n"
                         "TestMode=y\r\n");
    EXPECT_EQ(_GetValue(path, "DEBUG", "DecryptFiles", "N", true), "N");
    EXPECT_EQ(_GetValue(path, "DEBUG", "Null", "dflt", true), "dflt");
    EXPECT_EQ(_GetValue(path, "DEBUG", "Missing", "dflt", true), "dflt");
    EXPECT_EQ(_GetValue(path, "debug", "testmode", "N", true), "y");
    EXPECT_EQ(_GetValue(dir.file("none.ini"), "DEBUG", "TestMode", "N", true), "N");
    // The caller tells a missing hash by the text, so a hand-typed "Not Found" reads as absent.
    EXPECT_EQ(_GetValue(path, "DEBUG", "Typed", "Not Found", true),
              _GetValue(path, "DEBUG", "Absent", "Not Found", true));
}

TEST_F(IniFile, GetValueGivesTheAnsiCodePage)
{
    testutil::write_file(path,
                         "[S]\r\n"
                         "Utf8=Caf\xC3\xA9 \xE2\x82\xAC\r\n"
                         "Ansi=Caf\xE9\r\n"
                         "Cjk=\xE4\xB8\xAD\r\n"
                         "Plain=abc\r\n");
    EXPECT_EQ(_GetValue(path, "S", "Utf8", "", true), "Caf\xE9 \x80");
    EXPECT_EQ(_GetValue(path, "S", "Ansi", "", true), "Caf\xE9");
    EXPECT_EQ(_GetValue(path, "S", "Cjk", "", true), "?");
}

TEST_F(IniFile, LongValueIsCutAt65535)
{
    testutil::write_file(path, "[VELLUMENT]\r\nLong=" + std::string(70000, 'v') + "\r\nAfter=1\r\n");
    EXPECT_EQ(_GetValue(path, "VELLUMENT", "Long", "", true), std::string(65535, 'v'));
    EXPECT_EQ(_GetValue(path, "VELLUMENT", "After", "", true), "1");
}

TEST_F(IniFile, SetValueWritesSectionVellumentAndLogs)
{
    LogCapture log;
    EXPECT_TRUE(_SetValue(path.c_str(), "C:\\A.VLM", "hash1"));
    EXPECT_TRUE(_SetValue(path.c_str(), "UploadSucceeded_C:\\A.VLM", "true"));
    EXPECT_TRUE(_SetValue(path.c_str(), "c:\\a.vlm", "hash2"));
    EXPECT_EQ(testutil::read_file(path), "[VELLUMENT]\r\nC:\\A.VLM=hash2\r\nUploadSucceeded_C:\\A.VLM=true\r\n");
    EXPECT_TRUE(log.has(3, "[IniFile] Writing value [VELLUMENT] C:\\A.VLM=hash1 to \"" + path + "\"\n"));

    EXPECT_EQ(_GetValue(path, "VELLUMENT", "C:\\A.VLM", "Not Found", true), "hash2");
    EXPECT_TRUE(log.has(3, "[IniFile] Reading value [VELLUMENT] C:\\A.VLM=hash2 from \"" + path + "\"\n"));

    const std::string bad = dir.file("missing/Vellument.INI");
    EXPECT_FALSE(_SetValue(bad.c_str(), "k", "v"));
    EXPECT_EQ(Error::GetLastError(), Error::PATH_NOT_FOUND);
    EXPECT_TRUE(log.has(1, "[IniFile] Error writing value [VELLUMENT] k=v to \"" + bad + "\"\n"));
}

TEST_F(IniFile, UpdaterSectionsLogAnEmptyValue)
{
    struct Cwd {
        std::string saved = std::filesystem::current_path().string();
        ~Cwd() { std::filesystem::current_path(saved); }
    } cwd;
    std::filesystem::current_path(dir.path());
    testutil::write_file(dir.file("UPDATER.INI"), "[PATHS]\r\nHome=\r\n[CONFIG]\r\nMODE=NORMAL\r\nDATAFILE=\r\n");
    testutil::write_file(dir.file("other.ini"), "[CONFIG]\r\nMODE=NORMAL\r\nDATAFILE=\r\n");
    testutil::write_file(dir.file("quiet.ini"), "[CONFIG]\r\nMODE=TEST\r\nDATAFILE=\r\n");

    LogCapture log;
    EXPECT_EQ(_GetValue("UPDATER.INI", "PATHS", "Home", "d", true), "d");
    EXPECT_TRUE(log.has(1, "[IniFile] Error reading value [PATHS] Home from \"UPDATER.INI\"\n"));
    EXPECT_EQ(_GetValue("other.ini", "CONFIG", "DATAFILE", "d", true), "d");
    EXPECT_TRUE(log.has(1, "[IniFile] Error reading value [CONFIG] DATAFILE from \"other.ini\"\n"));
    log.clear();
    EXPECT_EQ(_GetValue("quiet.ini", "CONFIG", "DATAFILE", "d", true), "d");
    EXPECT_EQ(_GetValue("./UPDATER.INI", "PATHS", "Home", "d", true), "d");
    EXPECT_TRUE(log.lines.empty());
}

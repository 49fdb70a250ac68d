#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_FileSystem.h>

#include "test_util.h"

namespace fs = std::filesystem;
using Ostrel::Error;
using Ostrel::FileSystem;
using Names = std::vector<std::string>;

namespace {

Names ListDir(const std::string& dir)
{
    Names names;
    for (const auto& entry : fs::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// A temporary tree mapped to drive Q: for the length of a test.
class MappedTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        testutil::write_file(tmp.file("co/Histories/Vellument_W2_2021.VLM"), "<Vellument/>");
        FileSystem::SetDrive('Q', tmp.path().c_str());
    }
    void TearDown() override { FileSystem::SetDrive('Q', nullptr); }

    testutil::TempDir tmp;
};

} // namespace

TEST_F(MappedTree, UpperCasedPathFindsFileAtEveryLevel)
{
    const std::string expected = tmp.file("co/Histories/Vellument_W2_2021.VLM");
    EXPECT_EQ(FileSystem::MapPath("Q:\\CO\\HISTORIES\\VELLUMENT_W2_2021.VLM"), expected);
    EXPECT_EQ(FileSystem::MapPath("q:\\Co\\hIsToRiEs\\vellument_w2_2021.vlm"), expected);
    EXPECT_EQ(Error::GetLastError(), 0u);

    // Through Z:, with the temporary directory's own components upper-cased too.
    std::string via_z = "Z:" + expected;
    std::transform(via_z.begin(), via_z.end(), via_z.begin(), [](char c) {
        return c == '/' ? '\\' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    });
    std::string contents;
    ASSERT_TRUE(FileSystem::ReadFile(via_z.c_str(), contents)) << via_z;
    EXPECT_EQ(contents, "<Vellument/>");

    // The name as written wins; among several case matches, the first in byte order.
    testutil::write_file(tmp.file("dup/abc"), "lower");
    testutil::write_file(tmp.file("dup/ABC"), "upper");
    testutil::write_file(tmp.file("dup/aBc"), "mixed");
    for (auto [path, text] : {std::pair{"Q:\\dup\\abc", "lower"}, {"Q:\\dup\\aBc", "mixed"}, {"Q:\\DUP\\Abc", "upper"}}) {
        ASSERT_TRUE(FileSystem::ReadFile(path, contents)) << path;
        EXPECT_EQ(contents, text) << path;
    }
}

TEST_F(MappedTree, NewNamesKeepTheirSpellingInTheResolvedDirectory)
{
    ASSERT_TRUE(FileSystem::WriteFileAtomic("Q:\\CO\\HISTORIES\\New_File.TXT", "x", 1));
    EXPECT_EQ(testutil::read_file(tmp.file("co/Histories/New_File.TXT")), "x");

    // Below a missing component names are kept as given, even where one would match by case.
    EXPECT_EQ(FileSystem::MapPath("Q:\\CO\\NewDir\\HISTORIES"), tmp.file("co/NewDir/HISTORIES"));
    ASSERT_TRUE(FileSystem::CreateDirectoryA("Q:\\CO\\NewDir\\Sub"));
    EXPECT_TRUE(fs::is_directory(tmp.file("co/NewDir/Sub")));

    // "." and ".." fold by the text, before the disk is asked, and never climb above the drive.
    EXPECT_EQ(FileSystem::MapPath("Q:\\co\\missing\\..\\.\\HISTORIES\\"), tmp.file("co/Histories/"));
    EXPECT_EQ(FileSystem::MapPath("Q:\\..\\..\\co"), tmp.file("co"));
}

TEST_F(MappedTree, NonAsciiNamesAreAnsiInTheDataAndUtf8OnDisk)
{
    const std::string windows = "Q:\\co\\Soci\xE9t\xE9.txt";  // Windows-1252
    const std::string disk = tmp.file("co/Soci\xC3\xA9t\xC3\xA9.txt");
    ASSERT_TRUE(FileSystem::WriteBinaryFile(windows.c_str(), "1", 1));
    EXPECT_TRUE(fs::exists(disk));
    EXPECT_EQ(FileSystem::ToWindowsPath(disk.c_str()), windows);
    EXPECT_TRUE(FileSystem::GetFileExists("Q:\\CO\\SOCI\xE9T\xE9.TXT"));
    EXPECT_FALSE(FileSystem::GetFileExists("Q:\\CO\\SOCI\xC9T\xC9.TXT"));  // only ASCII letters fold
}

TEST_F(MappedTree, PosixPathsAreTakenAsTheyStand)
{
    const std::string wrong_case = tmp.path() + "/CO/histories/vellument_w2_2021.vlm";
    EXPECT_EQ(FileSystem::MapPath(wrong_case.c_str()), wrong_case);
    EXPECT_FALSE(FileSystem::GetFileExists(wrong_case.c_str()));
    EXPECT_EQ(Error::GetLastError(), 3u);
    EXPECT_EQ(FileSystem::MapPath("relative/Name.txt"), "relative/Name.txt");
}

TEST_F(MappedTree, DriveTableFromEnvironmentAndSetDrive)
{
    testutil::TempDir other;
    testutil::write_file(other.file("Data/f.txt"), "other");
    const std::string env = "K=" + tmp.path() + "/ ; L:=" + other.path() + ";junk;=x;M=";
    ASSERT_EQ(setenv("VELLUMENT_DRIVES", env.c_str(), 1), 0);

    EXPECT_EQ(FileSystem::MapPath("k:\\CO"), tmp.file("co"));
    EXPECT_EQ(FileSystem::MapPath("L:\\data\\F.TXT"), other.file("Data/f.txt"));
    EXPECT_EQ(FileSystem::MapPath("L:"), other.path());
    EXPECT_EQ(FileSystem::MapPath("\\srv\\x"), "/srv/x");
    EXPECT_EQ(FileSystem::MapPath("Z:\\srv\\x"), "/srv/x");

    // An unknown letter maps to nothing, and operations on it fail with "path not found".
    EXPECT_EQ(FileSystem::MapPath("M:\\x"), "");
    EXPECT_EQ(Error::GetLastError(), 3u);
    std::string contents;
    EXPECT_FALSE(FileSystem::ReadFile("J:\\x.txt", contents));
    EXPECT_EQ(Error::GetLastError(), 3u);

    // SetDrive overrides the environment; an empty root removes a letter, Z: included.
    FileSystem::SetDrive('K', other.path().c_str());
    EXPECT_EQ(FileSystem::MapPath("K:\\Data"), other.file("Data"));
    FileSystem::SetDrive('K', "");
    EXPECT_EQ(FileSystem::MapPath("K:\\Data"), "");
    FileSystem::SetDrive('Z', nullptr);
    EXPECT_EQ(FileSystem::MapPath("Z:\\tmp"), "");
    FileSystem::SetDrive('Z', "/");

    unsetenv("VELLUMENT_DRIVES");  // a change of the environment is seen
    EXPECT_EQ(FileSystem::MapPath("L:\\Data"), "");
}

TEST_F(MappedTree, ToWindowsPathUsesTheLongestDriveRoot)
{
    EXPECT_EQ(FileSystem::ToWindowsPath("/srv/co/x"), "Z:\\srv\\co\\x");
    EXPECT_EQ(FileSystem::ToWindowsPath("/"), "Z:\\");
    EXPECT_EQ(FileSystem::ToWindowsPath(tmp.path().c_str()), "Q:\\");
    EXPECT_EQ(FileSystem::ToWindowsPath((tmp.path() + "/co//./Histories/").c_str()), "Q:\\co\\Histories\\");
    // Leaving the drive's root by ".." or by a longer name is not being under it.
    EXPECT_EQ(FileSystem::ToWindowsPath((tmp.path() + "/co/../../x").c_str()).substr(0, 2), "Z:");
    EXPECT_EQ(FileSystem::ToWindowsPath((tmp.path() + "x/y").c_str()).substr(0, 2), "Z:");

    const std::string file = tmp.file("co/Histories/Vellument_W2_2021.VLM");
    EXPECT_EQ(FileSystem::MapPath(FileSystem::ToWindowsPath(file.c_str()).c_str()), file);
}

TEST(FileSystemErrors, LastErrorCodesOfFailedOperations)
{
    testutil::TempDir tmp;
    testutil::write_file(tmp.file("present.txt"), "p");
    std::string contents = "stale";

    EXPECT_FALSE(FileSystem::ReadFile(tmp.file("absent.txt").c_str(), contents));
    EXPECT_EQ(Error::GetLastError(), 2u);
    EXPECT_TRUE(contents.empty());
    EXPECT_FALSE(FileSystem::ReadFile(tmp.file("nodir/absent.txt").c_str(), contents));
    EXPECT_EQ(Error::GetLastError(), 3u);
    EXPECT_FALSE(FileSystem::GetFileExists(tmp.file("present.txt/x").c_str()));  // a file as a directory
    EXPECT_EQ(Error::GetLastError(), 3u);
    EXPECT_FALSE(FileSystem::DeleteFileA(tmp.file("absent.txt").c_str()));
    EXPECT_EQ(Error::GetLastError(), 2u);
    EXPECT_EQ(FileSystem::OpenFile(tmp.file("nodir/x").c_str(), "rb"), nullptr);
    EXPECT_EQ(Error::GetLastError(), 3u);
    EXPECT_TRUE(FileSystem::GetFileExists(tmp.file("present.txt").c_str()));
    EXPECT_EQ(Error::GetLastError(), 0u);

    // A directory passes the status query but is not a file.
    EXPECT_TRUE(FileSystem::GetStatus(tmp.path().c_str()));
    EXPECT_FALSE(FileSystem::GetFileExists(tmp.path().c_str()));
    EXPECT_FALSE(FileSystem::ReadFile(tmp.path().c_str(), contents));
    EXPECT_FALSE(FileSystem::DeleteFileA(tmp.path().c_str()));

    EXPECT_FALSE(FileSystem::GetFileExists(nullptr));
    EXPECT_EQ(Error::GetLastError(), 87u);
    EXPECT_EQ(FileSystem::OpenFile(tmp.file("present.txt").c_str(), nullptr), nullptr);
    EXPECT_FALSE(FileSystem::WriteFileAtomic(tmp.file("n").c_str(), nullptr, 3));

    // Kept per thread.
    Error::SetLastError(5);
    unsigned long seen_in_thread = 99;
    std::thread([&] { seen_in_thread = Error::GetLastError(); FileSystem::GetFileExists("/nonexistent/x"); }).join();
    EXPECT_EQ(seen_in_thread, 0u);
    EXPECT_EQ(Error::GetLastError(), 5u);
}

TEST(FileSystemRead, MaxSizeBoundsTheReadAndSpecialFilesAreRefused)
{
    testutil::TempDir tmp;
    testutil::write_file(tmp.file("ten"), "0123456789");
    std::string contents;
    EXPECT_TRUE(FileSystem::ReadFile(tmp.file("ten").c_str(), contents, 10));
    EXPECT_EQ(contents, "0123456789");
    EXPECT_FALSE(FileSystem::ReadFile(tmp.file("ten").c_str(), contents, 9));
    // A /proc file claims size 0 but has content: the bound holds while reading.
    EXPECT_FALSE(FileSystem::ReadFile("/proc/self/status", contents, 8));
    EXPECT_TRUE(FileSystem::ReadFile("/proc/self/status", contents));
    // A FIFO is refused at once instead of blocking.
    ASSERT_EQ(mkfifo(tmp.file("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(FileSystem::ReadFile(tmp.file("fifo").c_str(), contents));
}

TEST(FileSystemWrite, AtomicWriteReplacesWholeAndLeavesNoTemporaryFile)
{
    testutil::TempDir tmp;
    const std::string target = tmp.file("doc.VLM");
    testutil::write_file(target, "old contents that are longer");
    ASSERT_EQ(chmod(target.c_str(), 0640), 0);

    ASSERT_TRUE(FileSystem::WriteFileAtomic(target.c_str(), "new", 3));
    EXPECT_EQ(Error::GetLastError(), 0u);
    EXPECT_EQ(testutil::read_file(target), "new");
    EXPECT_EQ(ListDir(tmp.path()), Names{"doc.VLM"});
    struct stat st;
    ASSERT_EQ(stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);

    // Through a symbolic link the file is replaced and the link stays.
    ASSERT_EQ(symlink(target.c_str(), tmp.file("link").c_str()), 0);
    ASSERT_TRUE(FileSystem::WriteFileAtomic(tmp.file("link").c_str(), "", 0));
    EXPECT_TRUE(fs::is_symlink(tmp.file("link")));
    EXPECT_EQ(testutil::read_file(target), "");

    // WriteBinaryFile truncates in place.
    ASSERT_TRUE(FileSystem::WriteBinaryFile(target.c_str(), "a\0b", 3));
    ASSERT_TRUE(FileSystem::WriteBinaryFile(target.c_str(), "z", 1));
    EXPECT_EQ(testutil::read_file(target), "z");
}

TEST(FileSystemWrite, FailedAtomicWriteLeavesTheOldFile)
{
    testutil::TempDir tmp;
    testutil::write_file(tmp.file("blocker"), "i am a file");
    // Failures that bind root too: the directory is a file, or missing, or the target a directory.
    EXPECT_FALSE(FileSystem::WriteFileAtomic(tmp.file("blocker/doc.VLM").c_str(), "x", 1));
    EXPECT_EQ(Error::GetLastError(), 3u);
    EXPECT_FALSE(FileSystem::WriteFileAtomic(tmp.file("nodir/doc.VLM").c_str(), "x", 1));
    EXPECT_EQ(Error::GetLastError(), 3u);
    testutil::write_file(tmp.file("dir/inner"), "keep");
    EXPECT_FALSE(FileSystem::WriteFileAtomic(tmp.file("dir").c_str(), "x", 1));
    EXPECT_EQ(Error::GetLastError(), 5u);
    EXPECT_EQ(testutil::read_file(tmp.file("dir/inner")), "keep");

    // A copy whose source fails half way (reading address 0 of our own memory): the temporary
    // file already exists when the failure comes, and must go.
    testutil::write_file(tmp.file("keep.VLM"), "old");
    EXPECT_FALSE(FileSystem::CopyFileA("/proc/self/mem", tmp.file("keep.VLM").c_str(), false));
    EXPECT_EQ(testutil::read_file(tmp.file("keep.VLM")), "old");
    EXPECT_EQ(ListDir(tmp.path()), (Names{"blocker", "dir", "keep.VLM"}));

    std::string before, after;
    ASSERT_TRUE(FileSystem::ReadFile("/proc/version", before));
    EXPECT_FALSE(FileSystem::WriteFileAtomic("/proc/version", "x", 1));
    ASSERT_TRUE(FileSystem::ReadFile("/proc/version", after));
    EXPECT_EQ(before, after);
}

TEST(FileSystemWrite, ReadOnlyDirectoryRefusesAndKeepsTheOldFile)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "permissions don't bind root";
    testutil::TempDir tmp;
    const std::string dir = tmp.file("ro");
    testutil::write_file(dir + "/doc.VLM", "old");
    ASSERT_EQ(chmod(dir.c_str(), 0555), 0);
    EXPECT_FALSE(FileSystem::WriteFileAtomic((dir + "/doc.VLM").c_str(), "new", 3));
    EXPECT_EQ(Error::GetLastError(), 5u);
    EXPECT_FALSE(FileSystem::CopyFileA((dir + "/doc.VLM").c_str(), (dir + "/copy").c_str(), false));
    EXPECT_EQ(testutil::read_file(dir + "/doc.VLM"), "old");
    EXPECT_EQ(ListDir(dir), Names{"doc.VLM"});
    chmod(dir.c_str(), 0755);
}

TEST(FileSystemCopy, OverwriteAndFailIfExists)
{
    testutil::TempDir tmp;
    std::string big(300000, '\0');
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>((i * 7919) >> 3);
    testutil::write_file(tmp.file("src"), big);
    testutil::write_file(tmp.file("dst"), "old");

    EXPECT_FALSE(FileSystem::CopyFileA(tmp.file("src").c_str(), tmp.file("dst").c_str(), true));
    EXPECT_EQ(Error::GetLastError(), 80u);
    EXPECT_EQ(testutil::read_file(tmp.file("dst")), "old");
    EXPECT_TRUE(FileSystem::CopyFileA(tmp.file("src").c_str(), tmp.file("dst").c_str(), false));
    EXPECT_EQ(testutil::read_file(tmp.file("dst")), big);
    EXPECT_TRUE(FileSystem::CopyFileA(tmp.file("src").c_str(), tmp.file("new").c_str(), true));
    EXPECT_EQ(testutil::read_file(tmp.file("new")), big);
    EXPECT_TRUE(FileSystem::CopyFileA(tmp.file("src").c_str(), tmp.file("src").c_str(), false));
    EXPECT_EQ(testutil::read_file(tmp.file("src")), big);

    EXPECT_FALSE(FileSystem::CopyFileA(tmp.file("absent").c_str(), tmp.file("dst").c_str(), false));
    EXPECT_EQ(Error::GetLastError(), 2u);
    EXPECT_FALSE(FileSystem::CopyFileA(tmp.path().c_str(), tmp.file("dst2").c_str(), false));
    EXPECT_EQ(ListDir(tmp.path()), (Names{"dst", "new", "src"}));
}

TEST(FileSystemRename, NeverReplacesAnExistingFile)
{
    testutil::TempDir tmp;
    testutil::write_file(tmp.file("a"), "A");
    testutil::write_file(tmp.file("b"), "B");
    EXPECT_EQ(FileSystem::Rename(tmp.file("a").c_str(), tmp.file("b").c_str()), -1);
    EXPECT_EQ(Error::GetLastError(), 183u);
    EXPECT_EQ(testutil::read_file(tmp.file("b")), "B");
    EXPECT_EQ(FileSystem::Rename(tmp.file("a").c_str(), tmp.file("c").c_str()), 0);
    EXPECT_EQ(ListDir(tmp.path()), (Names{"b", "c"}));
    EXPECT_EQ(FileSystem::Rename(tmp.file("a").c_str(), tmp.file("d").c_str()), -1);
    EXPECT_EQ(Error::GetLastError(), 2u);
}

TEST(FileSystemDirectories, CreateDirectoryMakesParents)
{
    testutil::TempDir tmp;
    EXPECT_TRUE(FileSystem::CreateDirectoryA(tmp.file("a/b/c").c_str()));
    EXPECT_TRUE(fs::is_directory(tmp.file("a/b/c")));
    EXPECT_TRUE(FileSystem::CreateDirectoryA(tmp.file("a/b/c/").c_str()));
    testutil::write_file(tmp.file("f"), "");
    EXPECT_FALSE(FileSystem::CreateDirectoryA(tmp.file("f").c_str()));
    EXPECT_EQ(Error::GetLastError(), 183u);
    EXPECT_FALSE(FileSystem::CreateDirectoryA(tmp.file("f/g").c_str()));
    EXPECT_EQ(Error::GetLastError(), 3u);
}

TEST(FileSystemNames, DirectoryAndFileNameParts)
{
    EXPECT_EQ(FileSystem::GetDirectory("C:\\co\\Histories\\Vellument.INI"), "C:\\co\\Histories\\");
    EXPECT_EQ(FileSystem::GetFileName("C:\\co\\Histories\\Vellument.INI"), "Vellument.INI");
    EXPECT_EQ(FileSystem::GetDirectory("/srv/co/x.VLM"), "/srv/co/");
    EXPECT_EQ(FileSystem::GetDirectory("C:x.txt"), "C:");
    EXPECT_EQ(FileSystem::GetFileName("C:x.txt"), "x.txt");
    EXPECT_EQ(FileSystem::GetDirectory("plain"), "");
    EXPECT_EQ(FileSystem::GetFileName(nullptr), "");
}

TEST(FileSystemAppData, FolderIsMadeAndGivenInWindowsForm)
{
    testutil::TempDir tmp;
    const std::string saved = std::getenv("VELLUMENT_APPDATA") ? std::getenv("VELLUMENT_APPDATA") : "";
    const std::string dir = tmp.file("deep/AppData");
    setenv("VELLUMENT_APPDATA", dir.c_str(), 1);
    std::string windows = FileSystem::GetOstrelLocalAppDataDirectory();
    EXPECT_TRUE(fs::is_directory(dir));
    ASSERT_EQ(windows.substr(1, 2), ":\\");
    EXPECT_EQ(windows.back(), '\\');
    EXPECT_EQ(FileSystem::MapPath((windows + "Settings.ini").c_str()), dir + "/Settings.ini");

    // Without the override: the family's folder under XDG_DATA_HOME.
    unsetenv("VELLUMENT_APPDATA");
    const std::string saved_xdg = std::getenv("XDG_DATA_HOME") ? std::getenv("XDG_DATA_HOME") : "";
    setenv("XDG_DATA_HOME", tmp.file("xdg").c_str(), 1);
    windows = FileSystem::GetOstrelLocalAppDataDirectory();
    EXPECT_EQ(FileSystem::MapPath(windows.c_str()), tmp.file("xdg/Ostrel/"));
    EXPECT_TRUE(fs::is_directory(tmp.file("xdg/Ostrel")));

    saved_xdg.empty() ? unsetenv("XDG_DATA_HOME") : setenv("XDG_DATA_HOME", saved_xdg.c_str(), 1);
    if (!saved.empty())
        setenv("VELLUMENT_APPDATA", saved.c_str(), 1);
}

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <vellument/CkByteData.h>
#include <vellument/CkCrypt2.h>
#include <vellument/CkString.h>
#include <vellument/CkStringBuilder.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/XString.h>

#include "company_fixture.h"

namespace {

// "&name;" with a name of ASCII letters and digits.
bool isEntity(const std::string& s)
{
    const char* alnum = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    return s.size() > 2 && s.front() == '&' && s.back() == ';' &&
           s.find_first_not_of(alnum, 1) == s.size() - 1;
}

// The library's hash sequence: digest, "hex" text, lower-cased by the caller.
std::string hashText(const std::string& path, const char* algorithm = "md5")
{
    CkCrypt2 crypt;
    crypt.put_HashAlgorithm(algorithm);
    CkByteData digest;
    crypt.HashFile(path.c_str(), digest);
    CkStringBuilder sb;
    EXPECT_TRUE(sb.AppendEncoded(digest, "hex"));
    return Ostrel::Format::ToLowerAscii(sb.GetAsString());
}

std::string hashOfContent(const std::string& content, const char* algorithm = "md5")
{
    testutil::TempDir dir;
    testutil::write_file(dir.file("data.bin"), content);
    return hashText(dir.file("data.bin"), algorithm);
}

std::string encode(const std::string& ansi)
{
    CkString s;
    s.Append(ansi.c_str());
    s.EntityEncode();
    return std::string(s.GetString(), static_cast<std::size_t>(s.getSizeAnsi()));
}

} // namespace

TEST(ToolkitHash, Md5MatchesRfc1321Vectors)
{
    const char* vectors[][2] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& v : vectors)
        EXPECT_EQ(hashOfContent(v[0]), v[1]) << "input \"" << v[0] << "\"";
}

TEST(ToolkitHash, DigestIsRawBytesAndHexIsCapitals)
{
    testutil::TempDir dir;
    testutil::write_file(dir.file("abc"), "abc");
    CkCrypt2 crypt;
    crypt.put_HashAlgorithm("MD-5");
    EXPECT_STREQ(crypt.hashAlgorithm(), "md5");
    CkByteData digest;
    ASSERT_TRUE(crypt.HashFile(dir.file("abc").c_str(), digest));
    ASSERT_EQ(digest.getSize(), 16u);
    EXPECT_EQ(digest.getData()[0], 0x90);
    EXPECT_EQ(digest.getData()[15], 0x72);

    CkStringBuilder upper, lower;
    EXPECT_TRUE(upper.AppendEncoded(digest, "HeX"));
    EXPECT_STREQ(upper.GetAsString(), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_TRUE(lower.AppendEncoded(digest, "hexlower"));
    EXPECT_STREQ(lower.GetAsString(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(ToolkitHash, LargeFileMatchesOpenSsl)
{
    // Several megabytes, not a whole number of read chunks, with every byte value.
    std::string content(5 * 1024 * 1024 + 12345, '\0');
    unsigned int x = 12345;
    for (char& c : content) {
        x = x * 1103515245u + 12345u;
        c = static_cast<char>(x >> 16);
    }
    testutil::TempDir dir;
    std::string path = dir.file("big.bin");
    testutil::write_file(path, content);
    EXPECT_EQ(hashText(path), vlmtest::md5_hex(content));
}

TEST(ToolkitHash, PathsInWindowsFormGoThroughTheFileLayer)
{
    testutil::TempDir dir;
    testutil::write_file(dir.file("Sub/File.VLM"), "abc");
    std::string windows = "Z:" + dir.path() + "/Sub/File.VLM";
    for (char& c : windows)
        if (c == '/')
            c = '\\';
    EXPECT_EQ(hashText(windows), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(ToolkitHash, UnreadableInputGivesEmptyDigestWithoutThrowing)
{
    testutil::TempDir dir;
    CkCrypt2 crypt;
    crypt.put_HashAlgorithm("md5");
    CkByteData digest;
    const char stale[] = "stale";
    // Nor is anything but a regular file read: a FIFO with no writer or /dev/zero would never end.
    ASSERT_EQ(mkfifo(dir.file("fifo.VLM").c_str(), 0600), 0);
    ASSERT_EQ(symlink("/dev/zero", dir.file("zero.VLM").c_str()), 0);
    for (const std::string& path : {dir.file("missing.VLM"), dir.path(), std::string(), dir.file("fifo.VLM"),
                                     dir.file("zero.VLM")}) {
        digest.append(stale, 5);
        EXPECT_NO_THROW(EXPECT_FALSE(crypt.HashFile(path.c_str(), digest))) << path;
        EXPECT_EQ(digest.getSize(), 0u) << path;
    }
    EXPECT_FALSE(crypt.HashFile(nullptr, digest));
    EXPECT_EQ(hashText(dir.file("missing.VLM")), "");
}

TEST(ToolkitHash, OtherAlgorithmsByName)
{
    EXPECT_EQ(hashOfContent("abc", "SHA-1"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(hashOfContent("abc", "sha-256"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // Names the class knows of but doesn't compute, and names it doesn't know, give nothing.
    EXPECT_EQ(hashOfContent("abc", "md4"), "");
    EXPECT_EQ(hashOfContent("abc", "whirlpool-ish"), "");
}

TEST(ToolkitStringBuilder, EncodingsAndUnknownNames)
{
    CkByteData data;
    data.append("\x00\xFF\x10", 3);
    CkStringBuilder sb;
    EXPECT_FALSE(sb.AppendEncoded(data, "hexadecimal"));
    EXPECT_FALSE(sb.AppendEncoded(data, nullptr));
    EXPECT_STREQ(sb.GetAsString(), "");
    EXPECT_TRUE(sb.AppendEncoded(data, "hex"));
    EXPECT_TRUE(sb.Append("-"));
    EXPECT_TRUE(sb.AppendEncoded(data, "Base64"));
    EXPECT_STREQ(sb.GetAsString(), "00FF10-AP8Q");
    EXPECT_EQ(sb.get_Length(), 11);

    const char* base64[][2] = {{"f", "Zg=="}, {"fo", "Zm8="}, {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}};
    for (const auto& v : base64) {
        CkByteData bytes;
        bytes.append(v[0], static_cast<unsigned long>(std::strlen(v[0])));
        CkStringBuilder b;
        EXPECT_TRUE(b.AppendEncoded(bytes, "base64"));
        EXPECT_STREQ(b.GetAsString(), v[1]);
    }
}

TEST(ToolkitStringBuilder, ResultStaysValidForNineFurtherCalls)
{
    CkStringBuilder sb;
    std::vector<const char*> results;
    for (int i = 0; i < 10; ++i) {
        sb.Append(i == 0 ? "caf\xE9" : "x");  // ANSI in, ANSI out
        results.push_back(sb.GetAsString());
    }
    EXPECT_STREQ(results[0], "caf\xE9");
    EXPECT_STREQ(results[9], "caf\xE9xxxxxxxxx");
    EXPECT_EQ(std::set<const char*>(results.begin(), results.end()).size(), 10u);
    EXPECT_EQ(sb.get_Length(), 13);
    sb.Clear();
    EXPECT_EQ(sb.get_Length(), 0);
    EXPECT_STREQ(results[1], "caf\xE9x");
}

TEST(ToolkitString, AppendDropsALeadingByteOrderMark)
{
    CkString s;
    s.Append("\xEF\xBB\xBFone ");
    s.append("\xEF\xBB\xBF");
    s.Append("two\xEF\xBB\xBF");
    EXPECT_STREQ(s.GetString(), "one two\xEF\xBB\xBF");
    s.clear();
    // Every ANSI byte comes back as it went in, the code page's holes included.
    std::string all;
    for (int b = 1; b < 256; ++b)
        all.push_back(static_cast<char>(b));
    s.Append(all.c_str());
    EXPECT_EQ(std::string(s.getString()), all);
}

TEST(ToolkitString, EntityTable)
{
    // The rows outside Latin-1, in full.
    const std::pair<int, const char*> rows[] = {
        {34, "&quot;"}, {38, "&amp;"}, {39, "&apos;"}, {60, "&lt;"}, {62, "&gt;"}, {128, "&euro;"},
        {130, "&sbquo;"}, {135, "&Dagger;"}, {138, "&Scaron;"}, {154, "&scaron;"}, {159, "&Yuml;"},
        // A sample of the Latin-1 rows.
        {161, "&iexcl;"}, {173, "&shy;"}, {208, "&ETH;"}, {255, "&yuml;"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(encode(std::string(1, static_cast<char>(row.first))), row.second) << row.first;

    // Every byte alone: the rows are exactly these bytes, each a distinct well-formed entity.
    std::set<std::string> entities;
    std::string unchanged;
    for (int b = 1; b < 256; ++b) {
        std::string in(1, static_cast<char>(b));
        std::string out = encode(in);
        if (out == in) {
            unchanged.push_back(static_cast<char>(b));
            continue;
        }
        EXPECT_TRUE(isEntity(out)) << b << " " << out;
        entities.insert(out);
    }
    EXPECT_EQ(entities.size(), 124u);
    std::string expected;
    for (int b = 1; b < 128; ++b)
        if (b != 34 && b != 38 && b != 39 && b != 60 && b != 62)
            expected.push_back(static_cast<char>(b));
    expected += "\x81\x83\x8D\x8E\x8F\x90\x9D\x9E\xA0";
    EXPECT_EQ(unchanged, expected);
}

TEST(ToolkitString, EntityEncodeWholeText)
{
    EXPECT_EQ(encode("&amp;"), "&amp;amp;");
    EXPECT_EQ(encode("<a x='1'>Caf\xE9\xA0\x83\t\"</a>"),
              "&lt;a x=&apos;1&apos;&gt;Caf&eacute;\xA0\x83\t&quot;&lt;/a&gt;");
    EXPECT_EQ(encode(""), "");

    // The result is the ANSI form; encoding again encodes the ampersands.
    CkString s;
    s.Append("\xE9");
    s.EntityEncode();
    EXPECT_EQ(s.getSizeAnsi(), 8);
    s.EntityEncode();
    EXPECT_STREQ(s.GetString(), "&amp;eacute;");
}

TEST(ToolkitXString, FormsAreMadeFromTheCurrentOne)
{
    XString x;
    EXPECT_TRUE(x.isEmpty());
    EXPECT_STREQ(x.getAnsi(), "");
    x.appendAnsi("caf\xE9 ");
    EXPECT_STREQ(x.getUtf8(), "caf\xC3\xA9 ");
    x.appendUtf8("\xE2\x82\xAC\xE4\xB8\xAD");  // euro sign, then a character 1252 lacks
    EXPECT_STREQ(x.getAnsi(), "caf\xE9 \x80?");
    EXPECT_EQ(x.getNumChars(), 7u);
    EXPECT_EQ(x.getUtf16(), u"caf\u00E9 \u20AC\u4E2D");

    XString copy(x);
    x.clear();
    EXPECT_EQ(x.getSizeUtf8(), 0u);
    EXPECT_STREQ(copy.getUtf8(), "caf\xC3\xA9 \xE2\x82\xAC\xE4\xB8\xAD");
}

#include <gtest/gtest.h>

#include <vellument/Ostrel_Format.h>

using namespace Ostrel::Format;

TEST(Format, EveryAnsiByteSurvivesUtf8AndWide)
{
    std::string all;
    for (int b = 1; b < 256; ++b)
        all.push_back(static_cast<char>(b));
    std::string utf8 = AnsiToUtf8(all);
    EXPECT_TRUE(IsValidUtf8(utf8.data(), utf8.size()));
    EXPECT_EQ(Utf8ToAnsi(utf8), all);
    EXPECT_EQ(WideToAnsi(AnsiToWide(all)), all);
    EXPECT_EQ(WideToAnsi(Utf8ToWide(utf8)), all);
}

TEST(Format, CodePageTableAndHoles)
{
    EXPECT_EQ(AnsiToUtf8("\x80"), "\xE2\x82\xAC");   // euro sign
    EXPECT_EQ(AnsiToUtf8("\xE9"), "\xC3\xA9");       // e acute
    EXPECT_EQ(AnsiToUtf8("\x9F"), "\xC5\xB8");       // Y diaeresis
    for (unsigned char hole : {0x81, 0x8D, 0x8F, 0x90, 0x9D}) {
        EXPECT_EQ(Cp1252ToUnicode(hole), static_cast<char32_t>(hole));
        EXPECT_EQ(UnicodeToCp1252(hole), hole);
    }
    EXPECT_EQ(UnicodeToCp1252(0x20AC), 0x80);
    EXPECT_EQ(UnicodeToCp1252(0x0080), -1);  // a C1 control that 1252 doesn't hold
}

TEST(Format, CharactersOutsideTheCodePageBecomeQuestionMarks)
{
    EXPECT_EQ(Utf8ToAnsi("a\xE4\xB8\xAD" "b"), "a?b");        // CJK
    EXPECT_EQ(Utf8ToAnsi("\xF0\x9F\x98\x80"), "?");           // emoji, four bytes
    EXPECT_EQ(WideToAnsi(u"\u4E2D\U0001F600"), "??");
}

TEST(Format, InvalidUtf8KeepsItsBytesOnTheWayToAnsi)
{
    // A Windows-1252 text that was never UTF-8 comes through unchanged.
    EXPECT_EQ(Utf8ToAnsi("caf\xE9"), "caf\xE9");
    // Overlong, surrogate and truncated sequences are bytes, not characters.
    EXPECT_EQ(Utf8ToAnsi("\xC0\xAF"), "\xC0\xAF");
    EXPECT_EQ(Utf8ToAnsi("\xED\xA0\x80"), "\xED\xA0\x80");
    EXPECT_EQ(Utf8ToAnsi("x\xE2\x82"), "x\xE2\x82");
    EXPECT_FALSE(IsValidUtf8("\xC0\xAF", 2));
    EXPECT_FALSE(IsValidUtf8("\xF4\x90\x80\x80", 4));  // above U+10FFFF
    EXPECT_TRUE(IsValidUtf8("\xF4\x8F\xBF\xBF", 4));
}

TEST(Format, WideConversionCountsInvalidBytesOneByOne)
{
    // The settings reader relies on this count to tell plain ASCII from other text.
    EXPECT_EQ(Utf8ToWide("abc").size(), 3u);
    EXPECT_EQ(Utf8ToWide("caf\xE9").size(), 4u);
    EXPECT_EQ(Utf8ToWide("caf\xE9")[3], u'\uFFFD');
    EXPECT_EQ(Utf8ToWide("caf\xC3\xA9").size(), 4u);
    EXPECT_EQ(Utf8ToWide("\xF0\x9F\x98\x80").size(), 2u);  // a surrogate pair
    EXPECT_EQ(WideToUtf8(Utf8ToWide("\xF0\x9F\x98\x80")), "\xF0\x9F\x98\x80");
    EXPECT_EQ(WideToUtf8(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

TEST(Format, TextHelpers)
{
    EXPECT_EQ(ToUpperAscii("Vellument_w2.vlm\xE9"), "VELLUMENT_W2.VLM\xE9");
    EXPECT_TRUE(EqualsNoCaseAscii("Histories", "HISTORIES"));
    EXPECT_FALSE(EqualsNoCaseAscii("Histories", "HISTORIE"));
    EXPECT_EQ(TextOf(nullptr), "");
    // Left to right, and a replacement is not searched again; an empty pattern changes nothing.
    EXPECT_EQ(ReplaceAll("C:\\CO\\HISTORIES\\HISTORIES\\", "\\HISTORIES\\", "\\"), "C:\\CO\\HISTORIES\\");
    EXPECT_EQ(ReplaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(ReplaceAll("abc", "", "x"), "abc");
}

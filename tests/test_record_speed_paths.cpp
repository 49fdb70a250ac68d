#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <vellument/CPathHandling.h>

#include "records/EnumText.h"

using namespace Vellument;
using namespace Vellument::Text;

namespace {

// The reading tables in their plainest form: every text of the writing direction and the bare
// numbers older documents wrote.
std::map<std::string, int> reading(int first, int last, std::string (*to_text)(int))
{
    std::map<std::string, int> table;
    for (int n = first; n <= last; ++n) {
        table.emplace(std::to_string(n), n);
        table.emplace(to_text(n), n);
    }
    return table;
}

// Texts near every known one: case, blanks, signs, leading zeros, prefixes, a NUL inside.
std::vector<std::string> candidates(const std::map<std::string, int>& table)
{
    std::vector<std::string> out = {"", " ", "-0", "+1", "00", "007", "100", "4294967296", "x", "12abc"};
    for (int n = -3; n <= 40; ++n)
        out.push_back(std::to_string(n));
    for (const auto& row : table) {
        const std::string& t = row.first;
        out.insert(out.end(), {t, " " + t, t + " ", "0" + t, t + "x", t.substr(0, t.size() / 2), t + '\0',
                               t + std::string(1, '\0') + "x"});
        std::string lower = t, upper = t;
        for (char& c : lower)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        for (char& c : upper)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        out.insert(out.end(), {lower, upper});
    }
    return out;
}

template <typename E>
void expect_reads_like(const std::map<std::string, int>& table, E (*read_string)(const std::string&),
                       E (*read_chars)(const char*))
{
    for (const std::string& text : candidates(table)) {
        auto hit = table.find(text);
        const int expected = hit != table.end() ? hit->second : 0;
        EXPECT_EQ(read_string(text), expected) << '"' << text << '"';
        // The attribute form ends at its NUL, as a string built from it would.
        const std::string cut = text.c_str();
        hit = table.find(cut);
        EXPECT_EQ(read_chars(text.c_str()), hit != table.end() ? hit->second : 0) << '"' << cut << '"';
    }
    EXPECT_EQ(read_chars(nullptr), 0);
}

} // namespace

TEST(RecordSpeedPaths, EnumReadersMatchTheirTablesForEveryNearText)
{
    auto action = [](int n) { return action_to_string(static_cast<ActionType>(n)); };
    auto filing = [](int n) { return filing_type_to_string(static_cast<FILING_TYPE>(n)); };
    auto flags = [](int n) { return form_flags_to_string(static_cast<FORM_FLAGS>(n)); };
    auto form = [](int n) { return form_type_to_string(static_cast<FORM_TYPE>(n)); };
    expect_reads_like<ActionType>(reading(0, 12, action), string_to_action, string_to_action);
    expect_reads_like<FILING_TYPE>(reading(0, 8, filing), string_to_filing_type, string_to_filing_type);
    expect_reads_like<FORM_FLAGS>(reading(0, 4, flags), string_to_form_flags, string_to_form_flags);
    std::map<std::string, int> forms = reading(0, 9, form);
    // 26 and the like are written as "Unknown", which keeps reading as 0: insert leaves it so.
    for (const auto& row : reading(20, 34, form))
        forms.insert(row);
    expect_reads_like<FORM_TYPE>(forms, string_to_form_type, string_to_form_type);
}

TEST(RecordSpeedPaths, PackageChoiceReadsItsTextsElseLikeAtoi)
{
    std::map<std::string, int> texts;
    for (int n : {0, 1, 2, 3, 12, 15, 16, 17, 18, 19, 28, 31})
        texts.emplace(package_choice_to_string(n), n);
    for (const std::string& text : candidates(texts)) {
        auto hit = texts.find(text.c_str());
        long atoi_like = std::strtol(text.c_str(), nullptr, 10);
        atoi_like = atoi_like > INT_MAX ? INT_MAX : atoi_like < INT_MIN ? INT_MIN : atoi_like;
        const int expected = hit != texts.end() ? hit->second : static_cast<int>(atoi_like);
        EXPECT_EQ(string_to_package_choice(text.c_str()), expected) << '"' << text << '"';
        if (text.find('\0') == std::string::npos) {
            EXPECT_EQ(string_to_package_choice(text), expected) << '"' << text << '"';
        }
    }
}

namespace {

// The company directory's cut found the slow, obvious way.
int plain_cut(const std::string& path)
{
    std::size_t at = path.find("\\Histories\\");
    if (at == std::string::npos)
        at = path.find("\\Drafts\\");
    if (at == std::string::npos)
        at = path.rfind('\\');
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

} // namespace

TEST(RecordSpeedPaths, CompanyDirCutMatchesThePlainSearchOnEveryMixOfSegments)
{
    // Every path of up to four pieces from near-miss segments, in every order.
    const std::vector<std::string> pieces = {"\\Histories\\", "\\Drafts\\", "\\HISTORIES\\", "\\Histories",
                                             "\\Drafts", "\\Histor\\", "\\Draft\\", "\\", "\\\\", "a", "Histories\\",
                                             "\\D", "\\H"};
    std::vector<std::string> paths = {""};
    for (int depth = 0; depth < 4; ++depth) {
        std::vector<std::string> longer;
        for (const std::string& p : paths)
            for (const std::string& piece : pieces)
                longer.push_back(p + piece);
        paths.insert(paths.end(), longer.begin(), longer.end());
    }
    for (const std::string& path : paths) {
        const int cut = plain_cut(path);
        ASSERT_EQ(CPathHandling::find_company_dir_end(path.c_str()), cut) << path;
        const std::string relative = path.empty() ? "" : ".\\" + path.substr(static_cast<std::size_t>(cut + 1));
        ASSERT_EQ(CPathHandling::convert_path_to_relative(path.c_str()), relative) << path;
    }
}

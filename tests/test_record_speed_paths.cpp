#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <vellument/AuditUtil.h>
#include <vellument/CCopy.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>

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

namespace {

// What a status's lookup by type has to give, kept the plainest way: the copy added last under
// "type|identifier", the entry of a removed copy gone under its present key and wherever it names
// the copy.
struct CopyModel {
    std::map<std::string, const CCopy*> keys;

    static std::string key(int type, const std::string& identifier) { return std::to_string(type) + "|" + identifier; }
    void add(const CCopy* c) { keys[key(c->get_type(), c->get_identifier())] = c; }
    void forget(const CCopy* c)
    {
        keys.erase(key(c->get_type(), c->get_identifier()));
        for (auto it = keys.begin(); it != keys.end();)
            it = it->second == c ? keys.erase(it) : std::next(it);
    }
    const CCopy* find(int type, const std::string& identifier) const
    {
        auto it = keys.find(key(type, identifier));
        if (it != keys.end())
            return it->second;
        if (type == FILING_TYPE_STATE || type == FILING_TYPE_LOCAL)
            return nullptr;
        it = keys.find(key(type, "FE"));
        return it != keys.end() ? it->second : nullptr;
    }
};

} // namespace

TEST(RecordSpeedPaths, CopyLookupFollowsAddsRemovalsAndChangedIdentities)
{
    // Long runs of adds between lookups, repeated keys, identities changed after adding.
    CStatus status;
    CopyModel model;
    const char* identifiers[] = {"FE", "MN", "WI", "", "CA", "NY"};
    unsigned seed = 12345;
    auto next = [&seed](unsigned n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    for (int step = 0; step < 3000; ++step) {
        // The first steps only add and look up, so that many adds wait to be sorted in.
        const unsigned what = step < 500 && next(10) < 7 ? 0 : next(10);
        const int type = static_cast<int>(next(6));
        const char* identifier = identifiers[next(6)];
        if (what < 5 || status.get_copy_count() == 0) {
            CCopy* copy = new CCopy();
            copy->set_type(static_cast<FILING_TYPE>(type));
            copy->set_identifier(identifier);
            status.add_copy(copy);
            model.add(copy);
        } else if (what < 6) {
            const int at = static_cast<int>(next(static_cast<unsigned>(status.get_copy_count())));
            status.get_copy_at(at)->set_identifier(identifier);  // the index keeps the old key
        } else if (what < 7) {
            const int at = static_cast<int>(next(static_cast<unsigned>(status.get_copy_count())));
            model.forget(status.get_copy_at(at));
            status.remove_copy_at(at);
        } else if (what < 8) {
            if (const CCopy* found = model.find(type, identifier))
                model.forget(found);
            status.remove_copy_by_type(static_cast<FILING_TYPE>(type), identifier);
        } else {
            ASSERT_EQ(status.get_copy_by_type(static_cast<FILING_TYPE>(type), identifier),
                      model.find(type, identifier))
                << "step " << step;
        }
    }
    // And a deep copy indexes its copies afresh.
    CStatus carried(&status);
    for (int i = 0; i < carried.get_copy_count(); ++i) {
        const CCopy* c = carried.get_copy_at(i);
        const CCopy* found = carried.get_copy_by_type(c->get_type(), c->get_identifier().c_str());
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->get_type(), c->get_type());
    }
}

TEST(RecordSpeedPaths, NumbersReadLikeStrtolAroundEveryLength)
{
    for (std::string digits = "9"; digits.size() <= 12; digits += std::to_string(digits.size() % 10)) {
        for (const std::string& text : {digits, digits + "x", "0" + digits, " " + digits, "-" + digits, digits + "5"}) {
            long expected = std::strtol(text.c_str(), nullptr, 10);
            expected = expected > INT_MAX ? INT_MAX : expected < INT_MIN ? INT_MIN : expected;
            EXPECT_EQ(AuditUtil::to_int(text.c_str()), expected) << text;
        }
    }
}

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "records/EnumText.h"

using namespace Vellument;
using namespace Vellument::Text;

namespace {

typedef std::vector<std::pair<int, const char*>> Rows;

// Every text of a table is written for its value and read back to it, and the old bare number of
// each value reads to it as well.
template <typename E>
void expect_table(const Rows& rows, std::string (*to_text)(E), E (*from_text)(const std::string&))
{
    for (const auto& row : rows) {
        SCOPED_TRACE(row.second);
        EXPECT_EQ(to_text(static_cast<E>(row.first)), row.second);
        EXPECT_EQ(from_text(row.second), row.first);
        EXPECT_EQ(from_text(std::to_string(row.first)), row.first);
    }
}

} // namespace

TEST(EnumText, ActionTable)
{
    expect_table<ActionType>({{0, "None"}, {1, "Filing"}, {5, "Status Change"}, {9, "Server Download"},
                              {12, "Orphan Employer or Payer"}},
                             action_to_string, string_to_action);
    EXPECT_EQ(string_to_action("status change"), ACTION_NONE); // case-sensitive
    EXPECT_EQ(string_to_action("Unknown Step"), ACTION_NONE);
    EXPECT_EQ(string_to_action("13"), ACTION_NONE);
    EXPECT_EQ(string_to_action("07"), ACTION_NONE);
    EXPECT_EQ(string_to_action(" 7"), ACTION_NONE);
    EXPECT_EQ(string_to_action(""), ACTION_NONE);
    EXPECT_EQ(action_to_string(static_cast<ActionType>(13)), "None");
    EXPECT_EQ(action_to_string(static_cast<ActionType>(-1)), "None");
}

TEST(EnumText, FilingTypeTable)
{
    expect_table<FILING_TYPE>({{0, "Unknown"}, {1, "Federal"}, {6, "Review"}, {8, "Payer"}},
                              filing_type_to_string, string_to_filing_type);
    EXPECT_EQ(string_to_filing_type(""), FILING_TYPE_UNKNOWN);
    EXPECT_EQ(string_to_filing_type("federal"), FILING_TYPE_UNKNOWN);
    EXPECT_EQ(string_to_filing_type("9"), FILING_TYPE_UNKNOWN);
    // A value without a text is written as "Unknown" and so comes back as 0.
    EXPECT_EQ(string_to_filing_type(filing_type_to_string(static_cast<FILING_TYPE>(9))), FILING_TYPE_UNKNOWN);
}

TEST(EnumText, FormTypeTableWithGaps)
{
    expect_table<FORM_TYPE>({{0, "Unknown"}, {1, "W-2"}, {8, "W-2C"}, {9, "W-3C"}, {20, "T4"},
                             {25, "RL1 Summary"}, {30, "Aca Recipient"}, {32, "Aca Notice"}},
                            form_type_to_string, string_to_form_type);
    // Old numbers 26-29, 33, 34 read although they have no text, and are written as "Unknown".
    for (int n : {26, 27, 28, 29, 33, 34}) {
        EXPECT_EQ(string_to_form_type(std::to_string(n)), n);
        EXPECT_EQ(form_type_to_string(static_cast<FORM_TYPE>(n)), "Unknown");
    }
    // Outside the two number ranges nothing is read.
    for (const char* text : {"10", "15", "19", "35", "-1", "w-2", ""})
        EXPECT_EQ(string_to_form_type(text), FORM_TYPE_UNKNOWN) << text;
}

TEST(EnumText, FormFlagsTable)
{
    expect_table<FORM_FLAGS>({{0, "None"}, {1, "Background"}, {2, "Editable"}, {3, "Read Only"}, {4, "Record"}},
                             form_flags_to_string, string_to_form_flags);
    EXPECT_EQ(string_to_form_flags("5"), FORM_FLAGS_NONE);
    EXPECT_EQ(string_to_form_flags("ReadOnly"), FORM_FLAGS_NONE);
    EXPECT_EQ(form_flags_to_string(static_cast<FORM_FLAGS>(5)), "None");
}

TEST(EnumText, CompletionDefaultsToAppendWhenWritten)
{
    expect_table<FORM_COMPLETION>({{0, "Replace"}, {1, "Append"}}, completion_to_string, string_to_completion);
    EXPECT_EQ(completion_to_string(static_cast<FORM_COMPLETION>(2)), "Append");
    EXPECT_EQ(completion_to_string(static_cast<FORM_COMPLETION>(-1)), "Append");
    EXPECT_EQ(string_to_completion("append"), FORM_COMPLETION_REPLACE);
}

TEST(EnumText, PackageChoiceTable)
{
    const Rows rows = {{0, "None"}, {3, "Federal & State"}, {12, "Employee"}, {15, "Complete"},
                       {19, "Federal & State & Local"}, {31, "Complete & Local"}};
    for (const auto& row : rows) {
        EXPECT_EQ(package_choice_to_string(row.first), row.second);
        EXPECT_EQ(string_to_package_choice(row.second), row.first);
        EXPECT_EQ(string_to_package_choice(std::to_string(row.first)), row.first);
    }
}

TEST(EnumText, PackageChoiceKeepsUnlistedNumbers)
{
    // Unlike the enumerations, an unknown choice survives as its number.
    EXPECT_EQ(package_choice_to_string(5), "5");
    EXPECT_EQ(string_to_package_choice("5"), 5);
    EXPECT_EQ(package_choice_to_string(-7), "-7");
    EXPECT_EQ(string_to_package_choice(package_choice_to_string(-7)), -7);
    EXPECT_EQ(package_choice_to_string(2147483647), "2147483647");
    EXPECT_EQ(string_to_package_choice(""), 0);
    EXPECT_EQ(string_to_package_choice("x"), 0);
    EXPECT_EQ(string_to_package_choice("12abc"), 12);
    EXPECT_EQ(string_to_package_choice("federal"), 0);
    // Huge numbers saturate instead of wrapping into some other choice.
    EXPECT_EQ(string_to_package_choice("99999999999999999999"), 2147483647);
    EXPECT_EQ(string_to_package_choice("-99999999999999999999"), -2147483647 - 1);
}

#include <gtest/gtest.h>

#include <string>

#include <vellument/FormCodes.h>

using namespace Vellument;

TEST(FormCodes, FormTypeFromString)
{
    EXPECT_EQ(get_form_type_from_string("W2"), FORM_TYPES_W2);
    EXPECT_EQ(get_form_type_from_string("W-2_SSA"), FORM_TYPES_W2);
    EXPECT_EQ(get_form_type_from_string("1099-NEC"), FORM_TYPES_1099_NEC);
    EXPECT_EQ(get_form_type_from_string("T5018_OFFICIAL_FORM"), FORM_TYPES_T5018);
    EXPECT_EQ(get_form_type_from_string("RL-1_OFFICIAL_FORM"), FORM_TYPES_RL1);
    EXPECT_EQ(get_form_type_from_string("W-2_SSA_VI"), 16);
    EXPECT_EQ(get_form_type_from_string("W-2_SSA_PR"), 19);
    // Misses: the Northern Mariana W-2 has a task list row but no value; lookups are case-sensitive.
    for (const char* text : {"W-2_SSA_MP", "w2", "RL-1", "", "1099-misc"})
        EXPECT_EQ(get_form_type_from_string(text), FORM_TYPES_UNKNOWN) << text;
    EXPECT_EQ(get_form_type_from_string(nullptr), FORM_TYPES_UNKNOWN);
}

TEST(FormCodes, NameMiddle)
{
    const char* middles[] = {"W2_", "M_", "D_", "I_", "R_", "P_", "G_", "S_",
                             "8_", "N_", "T4_", "T5_", "RL1_", "ACAB_", "ACAC_", "K_"};
    for (int n = 0; n < 16; ++n)
        EXPECT_EQ(get_vellument_name_middle(static_cast<FORM_TYPES>(n)), middles[n]) << n;
    EXPECT_EQ(get_vellument_name_middle(FORM_TYPES_UNKNOWN), "");
    for (int n : {16, 17, 18, 19, 20, -1})
        EXPECT_EQ(get_vellument_name_middle(static_cast<FORM_TYPES>(n)), "Unknown") << n;
}

TEST(FormCodes, TaskListCategory)
{
    tasklist_category_info info = get_task_list_category_info("W-2_SSA_MP");
    EXPECT_STREQ(info.category, "W2");
    EXPECT_STREQ(info.subcategory, "MP");
    info = get_task_list_category_info("W2");
    EXPECT_STREQ(info.category, "W2");
    EXPECT_STREQ(info.subcategory, "US");
    info = get_task_list_category_info("1099-1098");
    EXPECT_STREQ(info.category, "1099");
    EXPECT_STREQ(info.subcategory, "1098");
    for (const char* text : {"T4", "T5018", "", "1099-nec"}) {
        info = get_task_list_category_info(text);
        ASSERT_NE(info.category, nullptr);
        ASSERT_NE(info.subcategory, nullptr);
        EXPECT_STREQ(info.category, "") << text;
        EXPECT_STREQ(info.subcategory, "") << text;
    }
    info = get_task_list_category_info(nullptr);
    EXPECT_STREQ(info.category, "");
}

TEST(FormCodes, Is1099)
{
    for (const char* text : {"1099-1098", "1099-K", "1099-W2G", "T5018", "T5018_OFFICIAL_FORM"})
        EXPECT_TRUE(form_type_is_1099(text)) << text;
    for (const char* text : {"T4", "W2", "RL1", "1099", "1099-nec", ""})
        EXPECT_FALSE(form_type_is_1099(text)) << text;
    EXPECT_FALSE(form_type_is_1099(nullptr));
}

TEST(FormCodes, FormCodeToFormTypeString)
{
    const char* rows[][2] = {{"W2", "W-2_SSA"}, {"M", "1099-MISC"}, {"R", "1099-R"},     {"D", "1099-DIV"},
                             {"I", "1099-INT"}, {"P", "1099-PATR"}, {"G", "1099-W2G"},   {"S", "1099-S"},
                             {"8", "1099-1098"}, {"N", "1099-NEC"}, {"K", "1099-K"},     {"T4", "T4"},
                             {"T5", "T5018"}};
    for (const auto& row : rows) {
        EXPECT_EQ(convert_form_code_to_form_type_string(row[0]), row[1]);
        // A code is its file name middle less the underscore, so the two tables must agree.
        EXPECT_EQ(get_vellument_name_middle(get_form_type_from_string(row[1])), std::string(row[0]) + "_");
    }
    for (const char* text : {"X", "m", "RL1", ""})
        EXPECT_EQ(convert_form_code_to_form_type_string(text), "") << text;
    EXPECT_EQ(convert_form_code_to_form_type_string(nullptr), "");
}

TEST(FormCodes, LocalCode)
{
    EXPECT_EQ(convert_local_code("2341"), "ZP");
    EXPECT_EQ(convert_local_code("5053"), "ZQ");
    EXPECT_EQ(convert_local_code("9999"), "9999");
    EXPECT_EQ(convert_local_code(" 2341"), " 2341");
    EXPECT_EQ(convert_local_code(""), "");
    EXPECT_EQ(convert_local_code(nullptr), "");
}

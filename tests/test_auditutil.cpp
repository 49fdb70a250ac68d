#include <gtest/gtest.h>

#include <climits>

#include <vellument/AuditUtil.h>

using namespace AuditUtil;

TEST(AuditUtil, ToIntReadsTheLeadingNumber)
{
    EXPECT_EQ(to_int(""), 0);
    EXPECT_EQ(to_int("12x"), 12);
    EXPECT_EQ(to_int("x12"), 0);
    EXPECT_EQ(to_int("  42"), 42);
    EXPECT_EQ(to_int("-7"), -7);
    EXPECT_EQ(to_int("+3"), 3);
    EXPECT_EQ(to_int("0x10"), 0);  // base 10 only
    EXPECT_EQ(to_int(nullptr), 0);
}

TEST(AuditUtil, ToIntSaturatesLikeA32BitLong)
{
    EXPECT_EQ(to_int("2147483647"), INT_MAX);
    EXPECT_EQ(to_int("2147483648"), INT_MAX);
    EXPECT_EQ(to_int("99999999999999999999"), INT_MAX);
    EXPECT_EQ(to_int("-2147483648"), INT_MIN);
    EXPECT_EQ(to_int("-99999999999"), INT_MIN);
}

TEST(AuditUtil, ToBoolIsAnExactLookup)
{
    EXPECT_TRUE(to_bool("true"));
    EXPECT_TRUE(to_bool("1"));
    for (const char* text : {"false", "0", "", "True", "TRUE", "2", " true", "true ", "1 ", "yes"})
        EXPECT_FALSE(to_bool(text)) << text;
    EXPECT_FALSE(to_bool(nullptr));
}

TEST(AuditUtil, ToStringEdges)
{
    EXPECT_EQ(to_string(true), "true");
    EXPECT_EQ(to_string(false), "false");
    EXPECT_EQ(to_string(INT_MIN), "-2147483648");
    EXPECT_EQ(to_string(INT_MAX), "2147483647");
    EXPECT_EQ(to_int(to_string(INT_MIN).c_str()), INT_MIN);
}

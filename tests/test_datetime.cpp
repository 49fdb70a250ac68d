#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include <vellument/DateTime.h>

namespace {

const char* const kStored = "%m/%d/%Y %H:%M:%S";

std::string stored(double days)
{
    return CDateTime(days).format(kStored);
}

// Parses and expects success; gives the day count.
double parsed(const char* text)
{
    CDateTime dt(123.0, CDateTime::null);
    EXPECT_TRUE(dt.parse(text)) << text;
    EXPECT_EQ(dt.get_status(), CDateTime::valid) << text;
    return dt.get_days();
}

// Parses and expects failure with the given value.
void fails(const char* text, double value)
{
    CDateTime dt(123.0);
    EXPECT_FALSE(dt.parse(text)) << (text ? text : "(null)");
    EXPECT_EQ(dt.get_status(), CDateTime::invalid) << (text ? text : "(null)");
    EXPECT_EQ(dt.get_days(), value) << (text ? text : "(null)");
}

} // namespace

TEST(DateTime, DefaultIsTheZeroDate)
{
    CDateTime dt;
    EXPECT_EQ(dt.get_days(), 0.0);
    EXPECT_EQ(dt.get_status(), CDateTime::valid);
    EXPECT_EQ(dt.format(kStored), "12/30/1899 00:00:00");
    EXPECT_EQ(dt.format("%m/%d/%Y"), "12/30/1899");
}

TEST(DateTime, StatusDecidesTheText)
{
    CDateTime dt(45306.5);
    dt.set_status(CDateTime::null);
    EXPECT_EQ(dt.get_status(), CDateTime::null);
    EXPECT_EQ(dt.format(kStored), "");
    dt.set_status(CDateTime::invalid);
    EXPECT_EQ(dt.format(kStored), "Invalid DateTime");
    EXPECT_EQ(dt.format("%Y"), "Invalid DateTime");
    EXPECT_THROW(dt.format(nullptr), std::invalid_argument);
    EXPECT_THROW(CDateTime(0.0, CDateTime::null).format(nullptr), std::invalid_argument);
}

// Day counts and their stored text: 1900 is no leap year, negative counts run the time of day
// forward, everything rounds to the nearest second, and the range is the years 100 to 9999.
TEST(DateTime, StoredTextOfDayCounts)
{
    const std::pair<double, const char*> rows[] = {
        {45306.0 + 47109.0 / 86400.0, "01/15/2024 13:05:09"},
        {1.0, "12/31/1899 00:00:00"},
        {2.0, "01/01/1900 00:00:00"},
        {60.0, "02/28/1900 00:00:00"},
        {36585.0, "02/29/2000 00:00:00"},
        {-1.25, "12/29/1899 06:00:00"},
        {-1.75, "12/29/1899 18:00:00"},
        {-0.5, "12/30/1899 12:00:00"},
        {-2.5, "12/28/1899 12:00:00"},
        {-36522.0, "01/01/1800 00:00:00"},
        {0.99999999, "12/31/1899 00:00:00"},
        {-0.99999999, "12/31/1899 00:00:00"},
        {1.4 / 86400.0, "12/30/1899 00:00:01"},
        {1.6 / 86400.0, "12/30/1899 00:00:02"},
        {-1.0 - 0.4 / 86400.0, "12/29/1899 00:00:00"},
        {-657434.0, "01/01/100 00:00:00"},
        {-657434.5, "01/01/100 12:00:00"},
        {2958465.0, "12/31/9999 00:00:00"},
        {2958465.0 + 86399.0 / 86400.0, "12/31/9999 23:59:59"},
        {-657435.0, "Invalid DateTime"},
        {-657435.5, "Invalid DateTime"},
        {2958466.0, "Invalid DateTime"},
        {2958465.999999999, "Invalid DateTime"},
        {1e300, "Invalid DateTime"},
        {-1e300, "Invalid DateTime"},
        {std::numeric_limits<double>::quiet_NaN(), "Invalid DateTime"},
        {std::numeric_limits<double>::infinity(), "Invalid DateTime"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(stored(row.first), row.second) << row.first;

    EXPECT_EQ(parsed("12/29/1899 06:00:00"), -1.25);
    EXPECT_EQ(parsed("12/28/1899 12:00"), -2.5);
    EXPECT_EQ(parsed("12/30/1899 12:00:00"), 0.5);
    EXPECT_EQ(parsed("01/01/100"), -657434.0);
    EXPECT_EQ(parsed("12/31/9999 23:59:59"), 2958465.0 + 86399.0 / 86400.0);
}

TEST(DateTime, OtherFormatsGoThroughStrftime)
{
    CDateTime dt(45306.0 + 47109.0 / 86400.0);
    EXPECT_EQ(dt.format("%m/%d/%Y"), "01/15/2024");
    EXPECT_EQ(dt.format("%A %j %y %I%p"), "Monday 015 24 01PM");
    EXPECT_EQ(CDateTime(0.0).format("%a"), "Sat");
    EXPECT_EQ(CDateTime(-1.0).format("%a"), "Fri");
    EXPECT_EQ(CDateTime(36585.0).format("%a %j"), "Tue 060");
    EXPECT_EQ(CDateTime(-657434.0).format("%a"), "Fri");  // proleptic Gregorian
    EXPECT_EQ(dt.format(""), "");
    // A result longer than the buffer of 256 characters is not written.
    EXPECT_LT(dt.format(std::string(300, 'x').c_str()).size(), 256u);
}

// The fast writer of the stored format and strftime agree everywhere in the range.
TEST(DateTime, StoredFormatMatchesStrftimeAndParsesBack)
{
    const double first = -657434.0, last = 2958465.0;
    for (double day = first; day <= last; day += 997.3) {
        for (double fraction : {0.0, 0.25, 0.5000057, 0.999988}) {
            const double days = std::trunc(day) + (day < 0 ? -fraction : fraction);
            CDateTime dt(days);
            const std::string text = dt.format(kStored);
            std::string reference = dt.format("%m/%d/%Y %H:%M:%S%%");
            ASSERT_FALSE(reference.empty());
            reference.pop_back();
            ASSERT_EQ(text, reference) << days;

            CDateTime back;
            ASSERT_TRUE(back.parse(text.c_str())) << text;
            ASSERT_EQ(back.format(kStored), text);
            ASSERT_NEAR(back.get_days(), days, 1.0 / 86400.0) << text;
        }
    }
}

TEST(DateTime, ParsesTheAcceptedForms)
{
    const double jan15 = 45306.0;
    EXPECT_EQ(parsed("01/15/2024 13:05:09"), jan15 + 47109.0 / 86400.0);
    EXPECT_EQ(parsed("01/15/2024 13:05"), jan15 + 47100.0 / 86400.0);
    EXPECT_EQ(parsed("01/15/2024"), jan15);
    EXPECT_EQ(parsed("1/15/2024 1:05:09"), jan15 + 3909.0 / 86400.0);
    EXPECT_EQ(parsed("1/5/2024 9:5:7"), 45296.0 + (9 * 3600 + 5 * 60 + 7) / 86400.0);
    EXPECT_EQ(parsed("  01/15/2024 13:05:09\t"), jan15 + 47109.0 / 86400.0);
    EXPECT_EQ(parsed("01-15-2024"), jan15);
    EXPECT_EQ(parsed("2024-01-15 13:05:09"), jan15 + 47109.0 / 86400.0);
    EXPECT_EQ(CDateTime(parsed("01/15/2024 13:05:09")).format(kStored), "01/15/2024 13:05:09");
}

TEST(DateTime, ParseRulesOfTheUsLocale)
{
    const double jan13 = 45304.0;
    // A first field over 12 is the day.
    EXPECT_EQ(parsed("13/01/2024"), jan13);
    EXPECT_EQ(parsed("31/12/2023"), parsed("12/31/2023"));
    // Two-digit years are 20yy.
    EXPECT_EQ(parsed("1/13/24"), jan13);
    EXPECT_EQ(parsed("01/13/99"), parsed("01/13/2099"));
    EXPECT_EQ(parsed("01/13/5"), parsed("01/13/2005"));
    // AM and PM.
    EXPECT_EQ(parsed("01/13/2024 1:05:09 PM"), parsed("01/13/2024 13:05:09"));
    EXPECT_EQ(parsed("01/13/2024 1:05 pm"), parsed("01/13/2024 13:05"));
    EXPECT_EQ(parsed("01/13/2024 12:00:00 AM"), jan13);
    EXPECT_EQ(parsed("01/13/2024 12:30 PM"), parsed("01/13/2024 12:30"));
    EXPECT_EQ(parsed("01/13/2024 11:59:59AM"), parsed("01/13/2024 11:59:59"));
    // Leap days.
    EXPECT_EQ(parsed("02/29/2024"), 45351.0);
    EXPECT_EQ(parsed("02/29/2000"), 36585.0);
}

TEST(DateTime, TextThatIsNoDateOrAnImpossibleDate)
{
    for (const char* text : {"", "   ", "Invalid DateTime", "hello", "01/15", "01/15/", "/01/15/2024", "01/15/2024x",
                             "01/15/2024 13", "01/15/2024 13:", "01/15/2024 13:05:09 extra", "01/15/2024 13:05:09:01",
                             "01/15/2024T13:05", "01/15-2024", "001/15/2024", "13/13/2024", "00/10/2024",
                             "10/00/2024", "02/30/2024", "02/29/2023", "02/29/1900", "04/31/2024",
                             "01/15/2024 25:00:00", "01/15/2024 24:00", "01/15/2024 12:60", "01/15/2024 12:00:60",
                             "01/15/2024 13:00 PM", "01/15/2024 1:00 XM", "01/15/2024 123:00"})
        fails(text, 0.0);
    fails(nullptr, 0.0);
}

// The system parser calls a year past 9999 no date at all: 0.0, which a record leaves out of
// the file. A year before 100 is its overflow case, -1.0.
TEST(DateTime, YearsOutOfRange)
{
    fails("1/1/10000 00:00:00", 0.0);
    fails("12/31/99999999999999999999 23:59:59", 0.0);
    fails("01/01/0099", -1.0);
    fails("01/01/099", -1.0);
    fails("01/01/000", -1.0);
}

TEST(DateTime, ParseAfterAFailureIsValidAgain)
{
    CDateTime dt;
    EXPECT_FALSE(dt.parse("02/30/2024"));
    EXPECT_TRUE(dt.parse("02/28/2024"));
    EXPECT_EQ(dt.get_status(), CDateTime::valid);
    EXPECT_EQ(dt.format("%m/%d/%Y"), "02/28/2024");
}

TEST(DateTime, NowIsLocalTimeToTheSecond)
{
    for (int attempt = 0; attempt < 5; ++attempt) {
        const std::time_t before = std::time(nullptr);
        const CDateTime now = CDateTime::now();
        const std::time_t after = std::time(nullptr);
        if (before != after)
            continue;  // the clock ticked in between; try again
        ASSERT_EQ(now.get_status(), CDateTime::valid);
        std::tm tm;
        ASSERT_NE(localtime_r(&before, &tm), nullptr);
        char expected[64];
        std::strftime(expected, sizeof expected, kStored, &tm);
        EXPECT_EQ(now.format(kStored), expected);
        const double seconds = (now.get_days() - std::trunc(now.get_days())) * 86400.0;
        EXPECT_NEAR(seconds, std::round(seconds), 1e-4);
        return;
    }
    FAIL() << "the clock never held still for a call";
}

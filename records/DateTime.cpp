#include <vellument/DateTime.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <stdexcept>

namespace {

constexpr long long kSecondsPerDay = 86400;

// Days from 1970-01-01 of a proleptic Gregorian date; exact for every year.
constexpr long long days_from_civil(long long y, long long m, long long d)
{
    y -= m <= 2 ? 1 : 0;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const long long yoe = y - era * 400;
    const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civil_from_days(long long z, int& year, int& month, int& day)
{
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const long long doe = z - era * 146097;
    const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long long mp = (5 * doy + 2) / 153;
    const long long d = doy - (153 * mp + 2) / 5 + 1;
    const long long m = mp < 10 ? mp + 3 : mp - 9;
    year = static_cast<int>(yoe + era * 400 + (m <= 2 ? 1 : 0));
    month = static_cast<int>(m);
    day = static_cast<int>(d);
}

long long floor_div(long long a, long long b)
{
    long long q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0)))
        --q;
    return q;
}

// Day 0 of the OLE count, 12/30/1899, in days from 1970-01-01.
constexpr long long kOleEpoch = days_from_civil(1899, 12, 30);
// First and last second that a date-time may hold: 01/01/100 00:00:00 and 12/31/9999 23:59:59,
// in seconds from 12/30/1899 00:00:00.
constexpr long long kFirstSecond = (days_from_civil(100, 1, 1) - kOleEpoch) * kSecondsPerDay;
constexpr long long kLastSecond = (days_from_civil(9999, 12, 31) - kOleEpoch) * kSecondsPerDay + kSecondsPerDay - 1;
constexpr double kFirstDay = static_cast<double>(days_from_civil(100, 1, 1) - kOleEpoch);
constexpr double kLastDay = static_cast<double>(days_from_civil(9999, 12, 31) - kOleEpoch);

bool is_leap(int year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int days_in_month(int year, int month)
{
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap(year) ? 29 : kDays[month - 1];
}

struct Fields {
    int year, month, day, hour, minute, second, wday, yday;
};

// Breaks an OLE day count into calendar fields, rounded to the nearest second. The integer part
// counts days from 12/30/1899; the fraction is the time of day, forward even when the count is
// negative (-1.25 is 12/29/1899 06:00:00).
bool split(double days, Fields& f)
{
    // Checked on the double first, so that the conversions below can't overflow.
    if (!std::isfinite(days) || days <= kFirstDay - 1.0 || days >= kLastDay + 1.0)
        return false;
    const double whole = std::trunc(days);
    const double fraction = std::fabs(days - whole);
    const long long total = static_cast<long long>(whole) * kSecondsPerDay + std::llround(fraction * kSecondsPerDay);
    if (total < kFirstSecond || total > kLastSecond)
        return false;
    const long long day = floor_div(total, kSecondsPerDay);
    const long long second_of_day = total - day * kSecondsPerDay;
    const long long unix_day = day + kOleEpoch;
    civil_from_days(unix_day, f.year, f.month, f.day);
    f.hour = static_cast<int>(second_of_day / 3600);
    f.minute = static_cast<int>(second_of_day / 60 % 60);
    f.second = static_cast<int>(second_of_day % 60);
    long long wday = (unix_day + 4) % 7;  // 1970-01-01 was a Thursday
    f.wday = static_cast<int>(wday < 0 ? wday + 7 : wday);
    f.yday = static_cast<int>(unix_day - days_from_civil(f.year, 1, 1));
    return true;
}

// The OLE day count of a valid calendar date and time of day.
double join(int year, int month, int day, int hour, int minute, int second)
{
    const long long date = days_from_civil(year, month, day) - kOleEpoch;
    const double time = (hour * 3600 + minute * 60 + second) / static_cast<double>(kSecondsPerDay);
    return date >= 0 ? static_cast<double>(date) + time : static_cast<double>(date) - time;
}

char* put2(char* out, int value)
{
    out[0] = static_cast<char>('0' + value / 10);
    out[1] = static_cast<char>('0' + value % 10);
    return out + 2;
}

// "%m/%d/%Y %H:%M:%S" without strftime: it is the text form of every stored date-time.
std::string format_standard(const Fields& f)
{
    char buffer[24];
    char* p = put2(buffer, f.month);
    *p++ = '/';
    p = put2(p, f.day);
    *p++ = '/';
    // %Y is the plain year, without padding below 1000; split() keeps it within 100..9999.
    if (f.year >= 1000)
        *p++ = static_cast<char>('0' + f.year / 1000);
    p = put2(p, f.year / 10 % 100);
    *p++ = static_cast<char>('0' + f.year % 10);
    *p++ = ' ';
    p = put2(p, f.hour);
    *p++ = ':';
    p = put2(p, f.minute);
    *p++ = ':';
    p = put2(p, f.second);
    return std::string(buffer, static_cast<std::size_t>(p - buffer));
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// Reads a run of digits; the value saturates, the count is exact.
int read_number(const char*& p, int& digits)
{
    long long value = 0;
    digits = 0;
    while (*p >= '0' && *p <= '9') {
        if (value < 1000000000)
            value = value * 10 + (*p - '0');
        ++digits;
        ++p;
    }
    return static_cast<int>(value > 1000000000 ? 1000000000 : value);
}

enum class ParseResult { ok, no_date, out_of_range };

ParseResult parse_text(const char* text, double& days)
{
    if (text == nullptr)
        return ParseResult::no_date;
    const char* p = text;
    while (is_blank(*p))
        ++p;

    int d1 = 0, d2 = 0, d3 = 0;
    const int n1 = read_number(p, d1);
    if (d1 == 0)
        return ParseResult::no_date;
    const char separator = *p;
    if (separator != '/' && separator != '-' && separator != '.')
        return ParseResult::no_date;
    ++p;
    const int n2 = read_number(p, d2);
    if (d2 == 0 || d2 > 2 || *p != separator)
        return ParseResult::no_date;
    ++p;
    const int n3 = read_number(p, d3);
    if (d3 == 0)
        return ParseResult::no_date;

    int year, month, day;
    if (d1 >= 3) {
        // Year first, as in 2024-01-15.
        if (d3 > 2)
            return ParseResult::no_date;
        year = n1;
        month = n2;
        day = n3;
    } else {
        month = n1;
        day = n2;
        year = d3 <= 2 ? 2000 + n3 : n3;
        // A first field that can't be a month is the day.
        if (month > 12 && day <= 12) {
            int t = month;
            month = day;
            day = t;
        }
    }

    int hour = 0, minute = 0, second = 0;
    const char* q = p;
    while (is_blank(*q))
        ++q;
    if (*q != '\0') {
        if (q == p)
            return ParseResult::no_date;  // the time must stand apart from the date
        p = q;
        int dh = 0, dm = 0, ds = 0;
        hour = read_number(p, dh);
        if (dh == 0 || dh > 2 || *p != ':')
            return ParseResult::no_date;
        ++p;
        minute = read_number(p, dm);
        if (dm == 0 || dm > 2)
            return ParseResult::no_date;
        if (*p == ':') {
            ++p;
            second = read_number(p, ds);
            if (ds == 0 || ds > 2)
                return ParseResult::no_date;
        }
        while (is_blank(*p))
            ++p;
        int meridian = 0;  // 1 AM, 2 PM
        if ((p[0] == 'A' || p[0] == 'a' || p[0] == 'P' || p[0] == 'p') && (p[1] == 'M' || p[1] == 'm')) {
            meridian = (p[0] == 'A' || p[0] == 'a') ? 1 : 2;
            p += 2;
            while (is_blank(*p))
                ++p;
        }
        if (*p != '\0')
            return ParseResult::no_date;
        if (meridian != 0) {
            if (hour > 12)
                return ParseResult::no_date;
            hour = hour % 12 + (meridian == 2 ? 12 : 0);
        }
    }

    if (month < 1 || month > 12 || day < 1 || day > 31)
        return ParseResult::no_date;
    // The system parser calls a year past 9999 no date at all; one before 100 is out of range.
    if (year > 9999)
        return ParseResult::no_date;
    if (year < 100)
        return ParseResult::out_of_range;
    if (day > days_in_month(year, month) || hour > 23 || minute > 59 || second > 59)
        return ParseResult::no_date;
    days = join(year, month, day, hour, minute, second);
    return ParseResult::ok;
}

} // namespace

CDateTime::CDateTime() : days_(0.0), status_(valid) {}

CDateTime::CDateTime(double days, int status) : days_(days), status_(status) {}

double CDateTime::get_days() const
{
    return days_;
}

int CDateTime::get_status() const
{
    return status_;
}

void CDateTime::set_status(int status)
{
    status_ = status;
}

std::string CDateTime::format(const char* fmt) const
{
    if (fmt == nullptr)
        throw std::invalid_argument("CDateTime::format: null format text");
    if (status_ == null)
        return std::string();
    Fields f;
    if (status_ != valid || !split(days_, f))
        return "Invalid DateTime";
    if (std::strcmp(fmt, "%m/%d/%Y %H:%M:%S") == 0)
        return format_standard(f);

    std::tm tm;
    std::memset(&tm, 0, sizeof tm);
    tm.tm_year = f.year - 1900;
    tm.tm_mon = f.month - 1;
    tm.tm_mday = f.day;
    tm.tm_hour = f.hour;
    tm.tm_min = f.minute;
    tm.tm_sec = f.second;
    tm.tm_wday = f.wday;
    tm.tm_yday = f.yday;
    tm.tm_isdst = -1;
    char buffer[256];
    const std::size_t n = std::strftime(buffer, sizeof buffer, fmt, &tm);
    return std::string(buffer, n);
}

bool CDateTime::parse(const char* text)
{
    double days = 0.0;
    switch (parse_text(text, days)) {
    case ParseResult::ok:
        days_ = days;
        status_ = valid;
        return true;
    case ParseResult::out_of_range:
        days_ = -1.0;
        status_ = invalid;
        return false;
    case ParseResult::no_date:
    default:
        days_ = 0.0;
        status_ = invalid;
        return false;
    }
}

CDateTime CDateTime::now()
{
    const std::time_t t = std::time(nullptr);
    std::tm tm;
    if (t == static_cast<std::time_t>(-1) || localtime_r(&t, &tm) == nullptr)
        return CDateTime(0.0, invalid);
    const int year = tm.tm_year + 1900;
    // A leap second shows as second 60; the day count has no room for it.
    const int second = tm.tm_sec > 59 ? 59 : tm.tm_sec;
    if (year < 100 || year > 9999)
        return CDateTime(0.0, invalid);
    return CDateTime(join(year, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, second), valid);
}

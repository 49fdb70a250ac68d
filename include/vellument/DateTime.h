#ifndef VELLUMENT_DATETIME_H
#define VELLUMENT_DATETIME_H

#include <string>

#include <vellument/export.h>

// A date-time as an OLE automation day count (day 0 is 12/30/1899 00:00:00) with a status beside it.
class VELLUMENT_API CDateTime {
public:
    enum Status { valid = 0, invalid = 1, null = 2 };

    CDateTime();
    explicit CDateTime(double days, int status = valid);

    double get_days() const;
    int get_status() const;
    void set_status(int status);

    // strftime fields over the calendar value. Status null gives "", status invalid or a day count
    // outside 01/01/100 to 12/31/9999 gives "Invalid DateTime". A null format throws std::invalid_argument.
    std::string format(const char* fmt) const;
    // US month/day/year with an optional time. True and status valid on success; on failure
    // false and status invalid, with 0.0 for text that is no date and -1.0 for a value out of range.
    bool parse(const char* text);
    // The machine's local time, to the second.
    static CDateTime now();

private:
    double days_;
    int status_;
};

#endif

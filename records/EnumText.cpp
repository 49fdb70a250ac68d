#include "records/EnumText.h"

#include <vellument/AuditUtil.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Vellument {
namespace Text {

namespace {

// One row of a text table. The tables are constant and tiny, so a scan that compares lengths
// first finds a text faster than any tree, and nothing is built at start-up.
struct Row {
    int value;
    const char* text;
    std::size_t length;
};

template <std::size_t N>
constexpr Row row(int value, const char (&text)[N])
{
    return Row{value, text, N - 1};
}

constexpr Row kActions[] = {
    row(ACTION_NONE, "None"),
    row(ACTION_FILING, "Filing"),
    row(ACTION_PRINTING, "Printing"),
    row(ACTION_CORRECTION, "Correction"),
    row(ACTION_EDIT, "Edit"),
    row(ACTION_STATUS_CHANGE, "Status Change"),
    row(ACTION_SERVER_DELETION, "Server Deletion"),
    row(ACTION_RELOAD, "Reload"),
    row(ACTION_USER_EDIT, "User Edit"),
    row(ACTION_SERVER_DOWNLOAD, "Server Download"),
    row(ACTION_RECOVER, "Recover"),
    row(ACTION_BUG_FIX, "Bug Fix"),
    row(ACTION_ORPHAN_EMPLOYER_OR_PAYER, "Orphan Employer or Payer"),
};

constexpr Row kFilingTypes[] = {
    row(FILING_TYPE_UNKNOWN, "Unknown"),
    row(FILING_TYPE_FEDERAL, "Federal"),
    row(FILING_TYPE_STATE, "State"),
    row(FILING_TYPE_LOCAL, "Local"),
    row(FILING_TYPE_EMPLOYEE, "Employee"),
    row(FILING_TYPE_EMPLOYER, "Employer"),
    row(FILING_TYPE_REVIEW, "Review"),
    row(FILING_TYPE_RECIPIENT, "Recipient"),
    row(FILING_TYPE_PAYER, "Payer"),
};

constexpr Row kFormTypes[] = {
    row(FORM_TYPE_UNKNOWN, "Unknown"),
    row(FORM_TYPE_W2, "W-2"),
    row(FORM_TYPE_W3, "W-3"),
    row(FORM_TYPE_NOTICE, "Notice"),
    row(FORM_TYPE_1099, "1099"),
    row(FORM_TYPE_1096, "1096"),
    row(FORM_TYPE_INSTRUCTIONS, "Instructions"),
    row(FORM_TYPE_DIVIDER, "Divider"),
    row(FORM_TYPE_W2C, "W-2C"),
    row(FORM_TYPE_W3C, "W-3C"),
    row(FORM_TYPE_T4, "T4"),
    row(FORM_TYPE_T4_SUMMARY, "T4 Summary"),
    row(FORM_TYPE_T5018, "T5018"),
    row(FORM_TYPE_T5018_SUMMARY, "T5018 Summary"),
    row(FORM_TYPE_RL1, "RL1"),
    row(FORM_TYPE_RL1_SUMMARY, "RL1 Summary"),
    row(FORM_TYPE_ACA_NOTICE, "Aca Notice"),
    row(FORM_TYPE_ACA_RECIPIENT, "Aca Recipient"),
    row(FORM_TYPE_ACA_SUMMARY, "Aca Summary"),
};

constexpr Row kFormFlags[] = {
    row(FORM_FLAGS_NONE, "None"),
    row(FORM_FLAGS_BACKGROUND, "Background"),
    row(FORM_FLAGS_EDITABLE, "Editable"),
    row(FORM_FLAGS_READ_ONLY, "Read Only"),
    row(FORM_FLAGS_RECORD, "Record"),
};

constexpr Row kCompletions[] = {
    row(FORM_COMPLETION_REPLACE, "Replace"),
    row(FORM_COMPLETION_APPEND, "Append"),
};

constexpr Row kPackageChoices[] = {
    row(0, "None"),
    row(1, "Federal"),
    row(2, "State"),
    row(3, "Federal & State"),
    row(12, "Employee"),
    row(15, "Complete"),
    row(16, "Local"),
    row(17, "Federal & Local"),
    row(18, "State & Local"),
    row(19, "Federal & State & Local"),
    row(28, "Employee & Local"),
    row(31, "Complete & Local"),
};

template <std::size_t N>
const Row* find_value(const Row (&rows)[N], int value)
{
    for (const Row& r : rows)
        if (r.value == value)
            return &r;
    return nullptr;
}

template <std::size_t N>
const Row* find_text(const Row (&rows)[N], const char* text, std::size_t length)
{
    for (const Row& r : rows)
        if (r.length == length && std::memcmp(r.text, text, length) == 0)
            return &r;
    return nullptr;
}

template <std::size_t N>
std::string text_of(const Row (&rows)[N], int value, const char* fallback)
{
    const Row* r = find_value(rows, value);
    return r != nullptr ? std::string(r->text, r->length) : std::string(fallback);
}

// A bare number as older documents wrote it: decimal digits only, no sign, no blank and no leading
// zero (so "07" and " 7" are no numbers). -1 for anything else; numbers past two digits never
// name a value here.
int old_number(const char* text, std::size_t length)
{
    if (length == 0 || length > 2 || (length == 2 && text[0] == '0'))
        return -1;
    int value = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// The reading direction: every text of the writing table, or a bare number in [first, last].
template <std::size_t N>
int value_of(const Row (&rows)[N], const char* text, std::size_t length, int first, int last)
{
    if (const Row* r = find_text(rows, text, length))
        return r->value;
    const int n = old_number(text, length);
    return n >= first && n <= last ? n : 0;
}

std::size_t length_of(const char* text)
{
    return text != nullptr ? std::strlen(text) : 0;
}

const char* or_empty(const char* text)
{
    return text != nullptr ? text : "";
}

} // namespace

std::string action_to_string(ActionType action)
{
    return text_of(kActions, action, "None");
}

ActionType string_to_action(const char* text)
{
    return static_cast<ActionType>(value_of(kActions, or_empty(text), length_of(text), 0, 12));
}

ActionType string_to_action(const std::string& text)
{
    return static_cast<ActionType>(value_of(kActions, text.data(), text.size(), 0, 12));
}

std::string filing_type_to_string(FILING_TYPE type)
{
    return text_of(kFilingTypes, type, "Unknown");
}

FILING_TYPE string_to_filing_type(const char* text)
{
    return static_cast<FILING_TYPE>(value_of(kFilingTypes, or_empty(text), length_of(text), 0, 8));
}

FILING_TYPE string_to_filing_type(const std::string& text)
{
    return static_cast<FILING_TYPE>(value_of(kFilingTypes, text.data(), text.size(), 0, 8));
}

std::string form_type_to_string(FORM_TYPE type)
{
    return text_of(kFormTypes, type, "Unknown");
}

namespace {

// Older documents wrote 0 to 9 and 20 to 34; the numbers without a text still read as values.
int form_type_of(const char* text, std::size_t length)
{
    if (const Row* r = find_text(kFormTypes, text, length))
        return r->value;
    const int n = old_number(text, length);
    return (n >= 0 && n <= 9) || (n >= 20 && n <= 34) ? n : 0;
}

} // namespace

FORM_TYPE string_to_form_type(const char* text)
{
    return static_cast<FORM_TYPE>(form_type_of(or_empty(text), length_of(text)));
}

FORM_TYPE string_to_form_type(const std::string& text)
{
    return static_cast<FORM_TYPE>(form_type_of(text.data(), text.size()));
}

std::string form_flags_to_string(FORM_FLAGS flags)
{
    return text_of(kFormFlags, flags, "None");
}

FORM_FLAGS string_to_form_flags(const char* text)
{
    return static_cast<FORM_FLAGS>(value_of(kFormFlags, or_empty(text), length_of(text), 0, 4));
}

FORM_FLAGS string_to_form_flags(const std::string& text)
{
    return static_cast<FORM_FLAGS>(value_of(kFormFlags, text.data(), text.size(), 0, 4));
}

std::string completion_to_string(FORM_COMPLETION completion)
{
    return text_of(kCompletions, completion, "Append");
}

FORM_COMPLETION string_to_completion(const std::string& text)
{
    return static_cast<FORM_COMPLETION>(value_of(kCompletions, text.data(), text.size(), 0, 1));
}

std::string package_choice_to_string(int choice)
{
    if (const Row* r = find_value(kPackageChoices, choice))
        return std::string(r->text, r->length);
    char buffer[16];
    int n = std::snprintf(buffer, sizeof buffer, "%d", choice);
    return std::string(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
}

namespace {

int package_choice_of(const char* text, std::size_t length)
{
    if (const Row* r = find_text(kPackageChoices, text, length))
        return r->value;
    // Anything else, the listed numbers among it, is what atoi makes of it: leading blanks, a sign
    // and digits up to the first other character; no number (and so "") is 0. Out-of-range values
    // saturate rather than wrap. Both callers' texts end in a NUL, where atoi stops as well.
    return AuditUtil::to_int(text);
}

} // namespace

int string_to_package_choice(const char* text)
{
    return package_choice_of(or_empty(text), length_of(text));
}

int string_to_package_choice(const std::string& text)
{
    return package_choice_of(text.data(), text.size());
}

} // namespace Text
} // namespace Vellument

#include "records/EnumText.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>

namespace Vellument {
namespace Text {

namespace {

// Each table is built on first use and only read afterwards. A miss is the map's out_of_range,
// caught right here and turned into the default of the conversion.
template <typename Key, typename Value>
Value lookup(const std::map<Key, Value>& table, const Key& key, const Value& fallback)
{
    try {
        return table.at(key);
    } catch (const std::out_of_range&) {
        return fallback;
    }
}

const std::map<int, std::string>& action_texts()
{
    static const std::map<int, std::string> table = {
        {ACTION_NONE, "None"},
        {ACTION_FILING, "Filing"},
        {ACTION_PRINTING, "Printing"},
        {ACTION_CORRECTION, "Correction"},
        {ACTION_EDIT, "Edit"},
        {ACTION_STATUS_CHANGE, "Status Change"},
        {ACTION_SERVER_DELETION, "Server Deletion"},
        {ACTION_RELOAD, "Reload"},
        {ACTION_USER_EDIT, "User Edit"},
        {ACTION_SERVER_DOWNLOAD, "Server Download"},
        {ACTION_RECOVER, "Recover"},
        {ACTION_BUG_FIX, "Bug Fix"},
        {ACTION_ORPHAN_EMPLOYER_OR_PAYER, "Orphan Employer or Payer"},
    };
    return table;
}

const std::map<int, std::string>& filing_type_texts()
{
    static const std::map<int, std::string> table = {
        {FILING_TYPE_UNKNOWN, "Unknown"},
        {FILING_TYPE_FEDERAL, "Federal"},
        {FILING_TYPE_STATE, "State"},
        {FILING_TYPE_LOCAL, "Local"},
        {FILING_TYPE_EMPLOYEE, "Employee"},
        {FILING_TYPE_EMPLOYER, "Employer"},
        {FILING_TYPE_REVIEW, "Review"},
        {FILING_TYPE_RECIPIENT, "Recipient"},
        {FILING_TYPE_PAYER, "Payer"},
    };
    return table;
}

const std::map<int, std::string>& form_type_texts()
{
    static const std::map<int, std::string> table = {
        {FORM_TYPE_UNKNOWN, "Unknown"},
        {FORM_TYPE_W2, "W-2"},
        {FORM_TYPE_W3, "W-3"},
        {FORM_TYPE_NOTICE, "Notice"},
        {FORM_TYPE_1099, "1099"},
        {FORM_TYPE_1096, "1096"},
        {FORM_TYPE_INSTRUCTIONS, "Instructions"},
        {FORM_TYPE_DIVIDER, "Divider"},
        {FORM_TYPE_W2C, "W-2C"},
        {FORM_TYPE_W3C, "W-3C"},
        {FORM_TYPE_T4, "T4"},
        {FORM_TYPE_T4_SUMMARY, "T4 Summary"},
        {FORM_TYPE_T5018, "T5018"},
        {FORM_TYPE_T5018_SUMMARY, "T5018 Summary"},
        {FORM_TYPE_RL1, "RL1"},
        {FORM_TYPE_RL1_SUMMARY, "RL1 Summary"},
        {FORM_TYPE_ACA_NOTICE, "Aca Notice"},
        {FORM_TYPE_ACA_RECIPIENT, "Aca Recipient"},
        {FORM_TYPE_ACA_SUMMARY, "Aca Summary"},
    };
    return table;
}

const std::map<int, std::string>& form_flags_texts()
{
    static const std::map<int, std::string> table = {
        {FORM_FLAGS_NONE, "None"},
        {FORM_FLAGS_BACKGROUND, "Background"},
        {FORM_FLAGS_EDITABLE, "Editable"},
        {FORM_FLAGS_READ_ONLY, "Read Only"},
        {FORM_FLAGS_RECORD, "Record"},
    };
    return table;
}

const std::map<int, std::string>& completion_texts()
{
    static const std::map<int, std::string> table = {
        {FORM_COMPLETION_REPLACE, "Replace"},
        {FORM_COMPLETION_APPEND, "Append"},
    };
    return table;
}

const std::map<int, std::string>& package_choice_texts()
{
    static const std::map<int, std::string> table = {
        {0, "None"},
        {1, "Federal"},
        {2, "State"},
        {3, "Federal & State"},
        {12, "Employee"},
        {15, "Complete"},
        {16, "Local"},
        {17, "Federal & Local"},
        {18, "State & Local"},
        {19, "Federal & State & Local"},
        {28, "Employee & Local"},
        {31, "Complete & Local"},
    };
    return table;
}

// The reading direction: every text of the writing table, plus the bare numbers in [first, last]
// that older documents wrote in place of the text.
std::map<std::string, int> reading_table(const std::map<int, std::string>& texts, int first, int last)
{
    std::map<std::string, int> table;
    for (const auto& row : texts)
        table.emplace(row.second, row.first);
    for (int n = first; n <= last; ++n)
        table.emplace(std::to_string(n), n);
    return table;
}

} // namespace

std::string action_to_string(ActionType action)
{
    return lookup(action_texts(), static_cast<int>(action), std::string("None"));
}

ActionType string_to_action(const std::string& text)
{
    static const std::map<std::string, int> table = reading_table(action_texts(), 0, 12);
    return static_cast<ActionType>(lookup(table, text, 0));
}

std::string filing_type_to_string(FILING_TYPE type)
{
    return lookup(filing_type_texts(), static_cast<int>(type), std::string("Unknown"));
}

FILING_TYPE string_to_filing_type(const std::string& text)
{
    static const std::map<std::string, int> table = reading_table(filing_type_texts(), 0, 8);
    return static_cast<FILING_TYPE>(lookup(table, text, 0));
}

std::string form_type_to_string(FORM_TYPE type)
{
    return lookup(form_type_texts(), static_cast<int>(type), std::string("Unknown"));
}

FORM_TYPE string_to_form_type(const std::string& text)
{
    // Older documents wrote 0 to 9 and 20 to 34; the numbers without a text still read as values.
    static const std::map<std::string, int> table = [] {
        std::map<std::string, int> t = reading_table(form_type_texts(), 0, 9);
        for (int n = 20; n <= 34; ++n)
            t.emplace(std::to_string(n), n);
        return t;
    }();
    return static_cast<FORM_TYPE>(lookup(table, text, 0));
}

std::string form_flags_to_string(FORM_FLAGS flags)
{
    return lookup(form_flags_texts(), static_cast<int>(flags), std::string("None"));
}

FORM_FLAGS string_to_form_flags(const std::string& text)
{
    static const std::map<std::string, int> table = reading_table(form_flags_texts(), 0, 4);
    return static_cast<FORM_FLAGS>(lookup(table, text, 0));
}

std::string completion_to_string(FORM_COMPLETION completion)
{
    return lookup(completion_texts(), static_cast<int>(completion), std::string("Append"));
}

FORM_COMPLETION string_to_completion(const std::string& text)
{
    static const std::map<std::string, int> table = reading_table(completion_texts(), 0, 1);
    return static_cast<FORM_COMPLETION>(lookup(table, text, 0));
}

std::string package_choice_to_string(int choice)
{
    try {
        return package_choice_texts().at(choice);
    } catch (const std::out_of_range&) {
        char buffer[16];
        int n = std::snprintf(buffer, sizeof buffer, "%d", choice);
        return std::string(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
    }
}

int string_to_package_choice(const std::string& text)
{
    static const std::map<std::string, int> table = [] {
        std::map<std::string, int> t;
        for (const auto& row : package_choice_texts()) {
            t.emplace(row.second, row.first);
            t.emplace(std::to_string(row.first), row.first);
        }
        t.emplace(std::string(), 0);
        return t;
    }();
    try {
        return table.at(text);
    } catch (const std::out_of_range&) {
        // atoi: leading blanks, a sign and digits up to the first other character; no number is 0.
        // Out-of-range values saturate rather than wrap.
        long value = std::strtol(text.c_str(), nullptr, 10);
        if (value > INT_MAX)
            return INT_MAX;
        if (value < INT_MIN)
            return INT_MIN;
        return static_cast<int>(value);
    }
}

} // namespace Text
} // namespace Vellument

#include "Ostrel/Database_Text.h"

#include <cstdlib>
#include <cstring>

namespace Ostrel {
namespace detail {

namespace {

// Past the comment that starts at p: "--" to the end of its line, "/*" to its close or to the end of
// the text. p itself when none starts there.
const char* past_comment(const char* p)
{
    if (p[0] == '-' && p[1] == '-') {
        while (*p != '\0' && *p != '\n')
            ++p;
    } else if (p[0] == '/' && p[1] == '*') {
        p += 2;
        while (*p != '\0' && !(p[0] == '*' && p[1] == '/'))
            ++p;
        if (*p != '\0')
            p += 2;
    }
    return p;
}

} // namespace

// True when text holds nothing but blanks, semicolons and comments: what may follow the one
// statement that a call runs.
bool only_trivia(const char* text)
{
    const char* p = text;
    while (p != nullptr && *p != '\0') {
        const char c = *p;
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v' || c == ';') {
            ++p;
        } else if (past_comment(p) != p) {
            p = past_comment(p);  // an unclosed comment runs to the end, as SQLite reads it
        } else {
            return false;
        }
    }
    return true;
}

std::string case_folded(const std::string& text)
{
    std::string folded = text;
    for (char& c : folded)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return folded;
}

// A keyword, compared without regard to ASCII case; keyword is in lower case.
bool is_keyword(const char* word, std::size_t size, const char* keyword)
{
    for (std::size_t i = 0; i < size; ++i) {
        char c = word[i];
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        if (keyword[i] == '\0' || c != keyword[i])
            return false;
    }
    return keyword[size] == '\0';
}

// Whether the statement's first word is SELECT.
bool is_select(const char* sql)
{
    const char* p = sql;
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n')
        ++p;
    const char* start = p;
    while (is_word_char(*p))
        ++p;
    return is_keyword(start, static_cast<std::size_t>(p - start), "select");
}

// Statements often differ only in the integer keys spliced into them. Their shape, with each such
// integer replaced by a parameter mark, is prepared once and the integers are bound. Shaped are:
// - INSERT, UPDATE and DELETE statements without a SELECT inside, every integer literal;
// - SELECT statements, only integers compared by "=" (also "==", "<=", ">=", "!=") after the
//   statement's own FROM, so that the result's column names, which SQLite takes from the text of
//   the result columns, stay as written.
// In either case only when every number met is a plain decimal integer: elsewhere a literal can
// mean more than its value (ORDER BY 1, a type's length). False: prepare the text as it stands.
bool shape_of(const char* sql, std::string& shape, std::vector<Slot>& slots)
{
    shape.clear();
    slots.clear();
    const char* p = sql;
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n')
        ++p;
    std::string verb;
    for (const char* q = p; is_word_char(*q) && verb.size() < 8; ++q)
        verb += static_cast<char>((*q >= 'a' && *q <= 'z') ? *q - 'a' + 'A' : *q);
    const bool select = verb == "SELECT";
    if (!select && verb != "INSERT" && verb != "UPDATE" && verb != "DELETE")
        return false;

    bool any_literal = false;
    bool past_from = false;     // a SELECT's own FROM has been met
    int depth = 0;              // of parentheses
    char last_sign = '\0';      // the last character other than a blank, outside words
    bool after_distinct = false;  // "IS [NOT] DISTINCT FROM" is an operator, not the FROM clause
    shape.reserve(std::strlen(sql));
    slots.reserve(16);
    // Text is copied in runs; only an integer literal breaks a run.
    const char* run = sql;
    while (*p != '\0') {
        const char c = *p;
        if (c == '\'' || c == '"' || c == '`' || c == '[') {
            const char close = c == '[' ? ']' : c;
            ++p;
            while (*p != '\0') {
                if (*p == close) {
                    ++p;
                    if (close == ']' || *p != close)
                        break;  // a doubled quote stands for itself
                }
                ++p;
            }
            last_sign = c;
        } else if (past_comment(p) != p) {
            p = past_comment(p);
        } else if (c == '?') {
            if (p[1] >= '0' && p[1] <= '9')
                return false;  // numbered marks would mix with ours
            slots.push_back(Slot{false, 0});
            last_sign = c;
            ++p;
        } else if (c == ':' || c == '@' || c == '$') {
            return false;  // named marks likewise
        } else if (c == '.' && p[1] >= '0' && p[1] <= '9') {
            return false;
        } else if (c >= '0' && c <= '9') {
            const char* start = p;
            while (*p >= '0' && *p <= '9')
                ++p;
            if (is_word_char(*p) || *p == '.' || p - start > 18)
                return false;  // a real, hex or oversized number keeps its exact literal meaning
            if (!select || (past_from && last_sign == '=')) {
                shape.append(run, start);
                shape += '?';
                run = p;
                slots.push_back(Slot{true, std::strtoll(start, nullptr, 10)});
                any_literal = true;
            }
            last_sign = '0';
        } else if (is_word_char(c)) {
            const char* start = p;
            while (is_word_char(*p))
                ++p;
            const std::size_t size = static_cast<std::size_t>(p - start);
            if (is_keyword(start, size, "select")) {
                if (!select)
                    return false;
            } else if (select && depth == 0 && !after_distinct && is_keyword(start, size, "from")) {
                past_from = true;
            }
            after_distinct = is_keyword(start, size, "distinct");
            last_sign = 'a';
        } else {
            if (c == '(')
                ++depth;
            else if (c == ')' && depth > 0)
                --depth;
            if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
                last_sign = c;
            ++p;
        }
    }
    shape.append(run, p);
    return any_literal;
}


} // namespace detail
} // namespace Ostrel

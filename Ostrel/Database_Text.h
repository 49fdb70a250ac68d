#ifndef VELLUMENT_OSTREL_DATABASE_TEXT_H
#define VELLUMENT_OSTREL_DATABASE_TEXT_H

// Reading SQL text: what the database layer needs to know of a statement before SQLite sees it.

#include <cstddef>
#include <string>
#include <vector>

namespace Ostrel {
namespace detail {

// True when text holds nothing but blanks, semicolons and comments: what may follow the one
// statement that a call runs.
bool only_trivia(const char* text);

// ASCII letters in lower case, as SQLite compares names.
std::string case_folded(const std::string& text);

// Characters of SQL words (identifiers and keywords), bytes of UTF-8 sequences included. Asked for
// every character of every statement, so a table made at compile time.
struct WordChars {
    bool table[256];
};

constexpr WordChars make_word_chars()
{
    WordChars chars{};
    for (int c = 0; c < 256; ++c)
        chars.table[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                         c == '$' || c >= 0x80;
    return chars;
}

inline constexpr WordChars kWordChars = make_word_chars();

inline bool is_word_char(char c)
{
    return kWordChars.table[static_cast<unsigned char>(c)];
}

// A keyword, compared without regard to ASCII case; keyword is in lower case.
bool is_keyword(const char* word, std::size_t size, const char* keyword);

// Whether the statement's first word is SELECT.
bool is_select(const char* sql);

// One parameter mark of a statement's shape: an integer taken out of the text, or the next of the
// caller's parameters.
struct Slot {
    bool literal;
    long long value;
};

// A statement with its integer keys turned into parameter marks, and what to bind to each mark:
// see Database_Text.cpp. False: prepare the text as it stands.
bool shape_of(const char* sql, std::string& shape, std::vector<Slot>& slots);

} // namespace detail
} // namespace Ostrel

#endif

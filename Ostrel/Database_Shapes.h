#ifndef VELLUMENT_OSTREL_DATABASE_SHAPES_H
#define VELLUMENT_OSTREL_DATABASE_SHAPES_H

// The shapes of the statements run lately, so that a statement need not be read again: a write
// runs the same few texts row after row, differing only in their integer keys.

#include <cstddef>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "Ostrel/Database_Text.h"

struct sqlite3_stmt;

namespace Ostrel {
namespace detail {

// A prepared statement kept by the database layer, under the text it was prepared from.
struct CachedStatement {
    std::string sql;
    sqlite3_stmt* statement;
};
using StatementList = std::list<CachedStatement>;

class ShapeMemory {
public:
    // What is known of one text. statement is the caller's: its prepared statement for the shape
    // and where it keeps it, or null when it has none at hand.
    struct Known {
        bool shaped = false;  // the text had integer keys taken out; else it runs as it stands
        std::string shape;    // with its keys as marks (when shaped)
        sqlite3_stmt* statement = nullptr;
        StatementList::iterator entry;
    };

    // The shape of sql with the slots to bind, from memory or read and remembered. A text that
    // differs from a remembered one only in the digits of its integer keys has that one's shape.
    // Null: sql runs as it stands (and slots are empty).
    Known* find(const char* sql, std::vector<Slot>& slots);

    // The caller dropped this statement: no shape points at it any more.
    void forget(const sqlite3_stmt* statement);
    void forget_all();

private:
    struct Entry {
        Known known;
        std::string sql;       // the text it was learned from
        std::size_t key = 0;   // of the text up to its first digit (see key_of)
        std::vector<std::pair<std::size_t, std::size_t>> literals;  // offset and length of each key
        std::vector<Slot> slots;
    };
    static const std::size_t kRemembered = 32;

    static std::size_t key_of(const char* sql, std::size_t& length);
    static bool matches(const Entry& entry, const char* sql, std::size_t length, std::vector<Slot>& slots);
    Known* learn(const char* sql, std::size_t length, std::size_t key, std::vector<Slot>& slots);

    Entry m_entries[kRemembered];
    std::size_t m_used = 0;
    std::size_t m_next = 0;
};

} // namespace detail
} // namespace Ostrel

#endif

#include "Ostrel/Database_Shapes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Ostrel {
namespace detail {

namespace {

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// Where each key of sql went in its shape: the shape is the text with each key's digits replaced
// by one mark, so the two differ first where a key starts. False when they don't line up.
bool locate_literals(const std::string& sql, const std::string& shape, const std::vector<Slot>& slots,
                     std::vector<std::pair<std::size_t, std::size_t>>& literals)
{
    literals.clear();
    std::size_t expected = 0;
    for (const Slot& slot : slots)
        expected += slot.literal ? 1 : 0;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < sql.size()) {
        if (j < shape.size() && sql[i] == shape[j]) {
            ++i;
            ++j;
            continue;
        }
        if (j >= shape.size() || shape[j] != '?' || !is_digit(sql[i]))
            return false;
        const std::size_t start = i;
        while (i < sql.size() && is_digit(sql[i]))
            ++i;
        literals.emplace_back(start, i - start);
        ++j;
    }
    return j == shape.size() && literals.size() == expected;
}

} // namespace

std::size_t ShapeMemory::key_of(const char* sql, std::size_t& length)
{
    length = std::strlen(sql);
    const std::size_t prefix = std::strcspn(sql, "0123456789");
    // Not a hash of the whole prefix: its length and two stretches of it tell the few texts of
    // the moment apart, and a text that only looks alike is still compared in full.
    std::size_t key = prefix;
    for (const std::size_t at : {prefix / 2, prefix}) {
        std::uint64_t bytes = 0;
        const std::size_t from = at >= sizeof(bytes) ? at - sizeof(bytes) : 0;
        std::memcpy(&bytes, sql + from, std::min(sizeof(bytes), prefix - from));
        key = key * 1099511628211ULL ^ static_cast<std::size_t>(bytes);
    }
    return key;
}

bool ShapeMemory::matches(const Entry& entry, const char* sql, std::size_t length, std::vector<Slot>& slots)
{
    const std::string& known = entry.sql;
    if (!entry.known.shaped)
        return length == known.size() && std::memcmp(sql, known.data(), length) == 0;
    // Equal text between the keys, and digits where the keys stand.
    const char* at = sql;
    const char* const end = sql + length;
    std::size_t from = 0;
    slots = entry.slots;
    std::size_t slot = 0;
    for (const auto& literal : entry.literals) {
        const std::size_t between = literal.first - from;
        if (static_cast<std::size_t>(end - at) < between || std::memcmp(at, known.data() + from, between) != 0)
            return false;
        at += between;
        const char* digits = at;
        long long value = 0;
        while (at < end && is_digit(*at)) {
            if (at - digits == 18)
                return false;  // a longer one is kept as its literal, as the reader would keep it
            value = value * 10 + (*at - '0');
            ++at;
        }
        if (at == digits)
            return false;
        while (!slots[slot].literal)
            ++slot;
        slots[slot++].value = value;
        from = literal.first + literal.second;
    }
    // The rest, with what follows the last key (never a digit), decides that the keys end alike.
    const std::size_t rest = known.size() - from;
    return static_cast<std::size_t>(end - at) == rest && std::memcmp(at, known.data() + from, rest) == 0;
}

ShapeMemory::Known* ShapeMemory::find(const char* sql, std::vector<Slot>& slots)
{
    std::size_t length = 0;
    const std::size_t key = key_of(sql, length);
    for (std::size_t i = 0; i < m_used; ++i) {
        Entry& entry = m_entries[i];
        if (entry.key == key && matches(entry, sql, length, slots)) {
            if (!entry.known.shaped) {
                slots.clear();
                return nullptr;
            }
            return &entry.known;
        }
    }
    return learn(sql, length, key, slots);
}

ShapeMemory::Known* ShapeMemory::learn(const char* sql, std::size_t length, std::size_t key,
                                       std::vector<Slot>& slots)
{
    Entry& entry = m_entries[m_next];
    m_next = (m_next + 1) % kRemembered;
    if (m_used < kRemembered)
        ++m_used;
    entry.known = Known();
    entry.key = key;
    entry.sql.assign(sql, length);
    entry.known.shaped = shape_of(sql, entry.known.shape, slots) &&
                         locate_literals(entry.sql, entry.known.shape, slots, entry.literals);
    if (!entry.known.shaped) {
        // Read as it stands, from now on without reading it again.
        entry.known.shape.clear();
        entry.literals.clear();
        entry.slots.clear();
        slots.clear();
        return nullptr;
    }
    entry.slots = slots;
    return &entry.known;
}

void ShapeMemory::forget(const sqlite3_stmt* statement)
{
    for (std::size_t i = 0; i < m_used; ++i)
        if (m_entries[i].known.statement == statement)
            m_entries[i].known.statement = nullptr;
}

void ShapeMemory::forget_all()
{
    for (std::size_t i = 0; i < m_used; ++i)
        m_entries[i].known.statement = nullptr;
}

} // namespace detail
} // namespace Ostrel

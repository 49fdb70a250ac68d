#ifndef VELLUMENT_RECORDS_SHAREDBLOCK_H
#define VELLUMENT_RECORDS_SHAREDBLOCK_H

#include <cstddef>
#include <new>

// A base class's private record with room behind it for the derived class's own record: one
// allocation per record object instead of two. The base makes and frees the block; the derived
// class constructs and destroys its record in the room.
namespace shared_block {

constexpr std::size_t span(std::size_t size)
{
    return (size + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);
}

template <typename Record>
Record* make(std::size_t extra)
{
    void* block = ::operator new(span(sizeof(Record)) + extra);
    try {
        return new (block) Record;
    } catch (...) {
        ::operator delete(block);
        throw;
    }
}

template <typename Record>
void destroy(Record* record)
{
    record->~Record();
    ::operator delete(record);
}

template <typename Record>
void* room_behind(Record* record)
{
    return reinterpret_cast<char*>(record) + span(sizeof(Record));
}

} // namespace shared_block

#endif

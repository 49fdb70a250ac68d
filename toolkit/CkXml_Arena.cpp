// The block allocator behind the toolkit's XML trees.

#include "toolkit/CkXml_Tree.h"

#include <cstdlib>

#include <sanitizer/asan_interface.h>

namespace ckxml {
namespace {

// Blocks start small, since most trees are a reply of a few elements, and double up to a size
// past which a larger block saves nothing.
const std::size_t kFirstBlock = 512;
const std::size_t kLargestBlock = std::size_t(1) << 20;

// Bytes left poisoned behind every piece when the address sanitizer watches.
const std::size_t kGuard = 16;

} // namespace

Arena::~Arena()
{
    while (last_ != nullptr) {
        Block* previous = last_->previous;
        ASAN_UNPOISON_MEMORY_REGION(last_, last_->bytes);
        std::free(last_);
        last_ = previous;
    }
}

void* Arena::allocateSlow(std::size_t size, std::size_t align)
{
    const std::size_t header = sizeof(Block);
    if (size > static_cast<std::size_t>(-1) / 2)
        throw std::bad_alloc();
    const std::size_t nextSize = blockSize_ == 0 ? kFirstBlock : std::min(blockSize_ * 2, kLargestBlock);
    if (size + align > nextSize / 2) {
        // A large request gets a block of its own, and the current block stays in use.
        void* memory = std::malloc(header + size + align);
        if (memory == nullptr)
            throw std::bad_alloc();
        Block* block = static_cast<Block*>(memory);
        block->bytes = header + size + align;
        ASAN_POISON_MEMORY_REGION(static_cast<char*>(memory) + header, size + align);
        if (last_ == nullptr) {
            block->previous = nullptr;
            last_ = block;
        } else {
            block->previous = last_->previous;
            last_->previous = block;
        }
        const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(static_cast<char*>(memory) + header);
        return reinterpret_cast<void*>((at + align - 1) & ~static_cast<std::uintptr_t>(align - 1));
    }
    void* memory = std::malloc(nextSize);
    if (memory == nullptr)
        throw std::bad_alloc();
    blockSize_ = nextSize;
    Block* block = static_cast<Block*>(memory);
    block->bytes = nextSize;
    ASAN_POISON_MEMORY_REGION(static_cast<char*>(memory) + header, nextSize - header);
    block->previous = last_;
    last_ = block;
    next_ = static_cast<char*>(memory) + header;
    end_ = static_cast<char*>(memory) + nextSize;
    return bump(size, align);
}

void* Arena::allocateGuarded(std::size_t size, std::size_t align)
{
    if (size > static_cast<std::size_t>(-1) / 2)
        throw std::bad_alloc();
    void* p = bump(size + kGuard, std::max<std::size_t>(align, 8));
    ASAN_UNPOISON_MEMORY_REGION(p, size);
    return p;
}

} // namespace ckxml

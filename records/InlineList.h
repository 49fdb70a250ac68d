#ifndef VELLUMENT_RECORDS_INLINELIST_H
#define VELLUMENT_RECORDS_INLINELIST_H

#include <cstddef>
#include <cstring>
#include <type_traits>

// A growable array of plain values that keeps its first N inside itself: a copy's histories and a
// filing's forms are mostly a handful, and a block of their own for each record would be as many
// allocations again.
template <typename T, std::size_t N>
class InlineList {
    static_assert(std::is_trivially_copyable<T>::value && N > 0, "plain values only");

public:
    InlineList() = default;
    // Takes the values over; `other` is left empty.
    InlineList(InlineList&& other) noexcept
    {
        if (other.data_ == other.inline_) {
            std::memcpy(inline_, other.inline_, other.size_ * sizeof(T));
        } else {
            data_ = other.data_;
            capacity_ = other.capacity_;
        }
        size_ = other.size_;
        other.data_ = other.inline_;
        other.size_ = 0;
        other.capacity_ = N;
    }
    InlineList(const InlineList&) = delete;
    InlineList& operator=(const InlineList&) = delete;
    ~InlineList()
    {
        if (data_ != inline_)
            delete[] data_;
    }

    std::size_t size() const { return size_; }
    T* begin() { return data_; }
    T* end() { return data_ + size_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + size_; }
    T& operator[](std::size_t i) { return data_[i]; }
    const T& operator[](std::size_t i) const { return data_[i]; }

    void reserve(std::size_t n)
    {
        if (n > capacity_)
            grow_to(n);
    }
    void push_back(T value)
    {
        if (size_ == capacity_)
            grow_to(capacity_ * 2);
        data_[size_++] = value;
    }
    T* erase(T* at)
    {
        std::memmove(at, at + 1, static_cast<std::size_t>(end() - at - 1) * sizeof(T));
        --size_;
        return at;
    }

private:
    void grow_to(std::size_t n)
    {
        T* block = new T[n];
        std::memcpy(block, data_, size_ * sizeof(T));
        if (data_ != inline_)
            delete[] data_;
        data_ = block;
        capacity_ = n;
    }

    T inline_[N];
    T* data_ = inline_;
    std::size_t size_ = 0;
    std::size_t capacity_ = N;
};

#endif

#ifndef VELLUMENT_RECORDS_PACKEDTEXT_H
#define VELLUMENT_RECORDS_PACKEDTEXT_H

#include <cstddef>
#include <cstring>
#include <string>

// The texts of a record given one after the other, in order, each as a head and a tail, gathered
// in one block without a string of their own: a record read from a document fills its texts so.
template <std::size_t N>
class PackedTextBuilder {
public:
    void add(const char* head, const char* tail)
    {
        if (count_ >= N)
            return;
        append(head, std::strlen(head));
        append(tail, std::strlen(tail));
        ends_[count_++] = size_;
        append("", 1);
    }
    // Those not given are empty.
    void finish()
    {
        while (count_ < N)
            add("", "");
    }
    const char* data() const { return spilled_ ? spill_.data() : local_; }
    std::size_t size() const { return size_; }
    const std::size_t (&ends() const)[N] { return ends_; }

private:
    // On the stack, but for texts longer than any form's.
    void append(const char* bytes, std::size_t n)
    {
        if (!spilled_ && size_ + n > sizeof local_) {
            spill_.assign(local_, size_);
            spilled_ = true;
        }
        if (spilled_)
            spill_.append(bytes, n);
        else
            std::memcpy(local_ + size_, bytes, n);
        size_ += n;
    }

    char local_[256];
    std::string spill_;
    bool spilled_ = false;
    std::size_t size_ = 0;
    std::size_t ends_[N] = {};
    std::size_t count_ = 0;
};

// The texts of a record in one buffer, each followed by a NUL. A trail holds tens of thousands of
// records of a dozen mostly short texts: one block for all of them, instead of a string object
// (and often a block) for each, roughly halves what a record costs in memory and in allocations.
// Texts that fit in Inline bytes, NULs included, stay inside the record itself, without a block.
template <std::size_t N, std::size_t Inline = 0>
class PackedText {
public:
    PackedText() : data_(inline_), size_(N), capacity_(kInline)
    {
        std::memset(inline_, 0, N);
        for (std::size_t i = 0; i < N; ++i)
            ends_[i] = i;
    }
    PackedText(const PackedText& other) : data_(inline_), size_(0), capacity_(kInline) { copy_from(other); }
    PackedText& operator=(const PackedText& other)
    {
        if (this != &other)
            copy_from(other);
        return *this;
    }
    ~PackedText() { release(); }

    std::string get(std::size_t i) const { return std::string(data_ + start(i), ends_[i] - start(i)); }
    // The text up to its first NUL, as a c_str() of it would give; valid until the next change.
    const char* c_str(std::size_t i) const { return data_ + start(i); }

    void set(std::size_t i, const std::string& value)
    {
        const std::size_t from = start(i);
        const std::size_t old_size = ends_[i] - from;
        const std::size_t new_size = size_ - old_size + value.size();
        if (new_size <= capacity_) {
            std::memmove(data_ + from + value.size(), data_ + ends_[i], size_ - ends_[i]);
            std::memcpy(data_ + from, value.data(), value.size());
        } else {
            char* block = new char[new_size];
            std::memcpy(block, data_, from);
            std::memcpy(block + from, value.data(), value.size());
            std::memcpy(block + from + value.size(), data_ + ends_[i], size_ - ends_[i]);
            release();
            data_ = block;
            capacity_ = new_size;
        }
        size_ = new_size;
        for (std::size_t j = i; j < N; ++j)
            ends_[j] = ends_[j] - old_size + value.size();
    }

    using Builder = PackedTextBuilder<N>;

    // Takes the texts of a builder; those it wasn't given are empty.
    void assign(Builder&& built)
    {
        built.finish();
        place(built.data(), built.size(), built.ends());
    }

private:
    static constexpr std::size_t kInline = Inline > N ? Inline : N;

    std::size_t start(std::size_t i) const { return i == 0 ? 0 : ends_[i - 1] + 1; }

    void release()
    {
        if (data_ != inline_)
            delete[] data_;
        data_ = inline_;
        capacity_ = kInline;
    }

    // The texts become these bytes, inside the record where they fit.
    void place(const char* bytes, std::size_t size, const std::size_t (&ends)[N])
    {
        if (size > capacity_ || (data_ != inline_ && size <= kInline)) {
            char* block = size <= kInline ? inline_ : new char[size];
            release();
            data_ = block;
            capacity_ = block == inline_ ? kInline : size;
        }
        std::memcpy(data_, bytes, size);
        size_ = size;
        for (std::size_t i = 0; i < N; ++i)
            ends_[i] = ends[i];
    }

    void copy_from(const PackedText& other) { place(other.data_, other.size_, other.ends_); }

    char* data_;             // inline_, or a block of its own
    std::size_t size_;       // bytes of the texts, NULs included
    std::size_t capacity_;   // of data_
    std::size_t ends_[N];    // where the NUL after each text stands
    char inline_[kInline];
};

#endif

#ifndef VELLUMENT_RECORDS_PACKEDTEXT_H
#define VELLUMENT_RECORDS_PACKEDTEXT_H

#include <cstddef>
#include <string>

// The texts of a record in one buffer, each followed by a NUL. A trail holds tens of thousands of
// records of a dozen mostly short texts: one block for all of them, instead of a string object
// (and often a block) for each, roughly halves what a record costs in memory and in allocations.
template <std::size_t N>
class PackedText {
public:
    PackedText() : text_(N, '\0')
    {
        for (std::size_t i = 0; i < N; ++i)
            ends_[i] = i;
    }

    std::string get(std::size_t i) const { return std::string(text_.data() + start(i), ends_[i] - start(i)); }
    // The text up to its first NUL, as a c_str() of it would give; valid until the next change.
    const char* c_str(std::size_t i) const { return text_.c_str() + start(i); }

    void set(std::size_t i, const std::string& value)
    {
        const std::size_t from = start(i);
        const std::size_t old_size = ends_[i] - from;
        text_.replace(from, old_size, value);
        for (std::size_t j = i; j < N; ++j)
            ends_[j] = ends_[j] - old_size + value.size();
    }

    // All texts at once, in one block of the size they need.
    void assign(const std::string (&values)[N])
    {
        std::size_t total = N;
        for (const std::string& value : values)
            total += value.size();
        std::string text;
        text.reserve(total);
        std::size_t ends[N];
        for (std::size_t i = 0; i < N; ++i) {
            text += values[i];
            ends[i] = text.size();
            text += '\0';
        }
        text_.swap(text);
        for (std::size_t i = 0; i < N; ++i)
            ends_[i] = ends[i];
    }

    // The texts given one after the other, in order, each as a head and a tail, gathered in one
    // block without a string of their own: a record read from a document fills its texts so.
    class Builder {
    public:
        explicit Builder(std::size_t expected) { text_.reserve(expected); }
        void add(const char* head, const char* tail)
        {
            if (count_ >= N)
                return;
            text_ += head;
            text_ += tail;
            ends_[count_++] = text_.size();
            text_ += '\0';
        }

    private:
        friend class PackedText;
        std::string text_;
        std::size_t ends_[N] = {};
        std::size_t count_ = 0;
    };

    // Takes the texts of a builder; those it wasn't given are empty.
    void assign(Builder&& built)
    {
        while (built.count_ < N)
            built.add("", "");
        text_.swap(built.text_);
        for (std::size_t i = 0; i < N; ++i)
            ends_[i] = built.ends_[i];
    }

private:
    std::size_t start(std::size_t i) const { return i == 0 ? 0 : ends_[i - 1] + 1; }

    std::string text_;
    std::size_t ends_[N];  // where the NUL after each text stands
};

#endif

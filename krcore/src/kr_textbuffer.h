// kr_textbuffer.h — a growable, zero-terminated text of either width, for the library's units.
// The file functions and the tag reader collect text here a character at a time and hand the
// finished block (C allocator) to a string object with assignPtr, so a long text costs a few
// reallocations instead of one per character. Allocation goes through krInternal, so fault
// injection reaches it; a failed append leaves the text as it was and answers false.
#ifndef KRCORE_KR_TEXTBUFFER_H
#define KRCORE_KR_TEXTBUFFER_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "kr_alloc.h"

namespace krInternal {

template <class Char>
class TextBuffer {
public:
    TextBuffer() : data_(nullptr), length_(0), capacity_(0) {}

    ~TextBuffer() { freeBlock(data_); }

    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    bool append(const Char* text, size_t count) {
        if (count == 0) return true;
        if (count > kMaxLength - length_ || !reserve(length_ + count)) return false;
        memcpy(data_ + length_, text, count * sizeof(Char));
        length_ += count;
        data_[length_] = Char(0);
        return true;
    }

    bool append(Char c) {
        if (length_ + 1 >= capacity_ && !reserve(length_ + 1)) return false;
        data_[length_++] = c;
        data_[length_] = Char(0);
        return true;
    }

    bool appendText(const Char* text) {
        size_t count = 0;
        while (text[count] != Char(0))
            ++count;
        return append(text, count);
    }

    // The text so far; null while nothing was appended.
    const Char* text() const { return data_; }

    size_t length() const { return length_; }

    void truncate(size_t length) {
        if (length >= length_) return;
        length_ = length;
        data_[length_] = Char(0);
    }

    // Hands the block over to the caller (free() it); null when the text is empty, which the
    // string classes take as their empty string. The buffer starts empty again.
    Char* release() {
        Char* block = length_ == 0 ? nullptr : data_;
        if (block == nullptr) freeBlock(data_);
        data_ = nullptr;
        length_ = capacity_ = 0;
        return block;
    }

private:
    static constexpr size_t kMaxLength = (PTRDIFF_MAX / sizeof(Char)) - 1;

    // Room for length characters and the terminating zero.
    bool reserve(size_t length) {
        if (length + 1 <= capacity_) return true;
        size_t capacity = capacity_ < 64 ? 64 : capacity_ * 2;
        while (capacity < length + 1)
            capacity *= 2;
        Char* grown = static_cast<Char*>(reallocBlock(data_, capacity * sizeof(Char)));
        if (grown == nullptr) return false;
        data_ = grown;
        capacity_ = capacity;
        return true;
    }

    Char* data_;     // capacity_ characters; null before the first append
    size_t length_;  // characters before the terminating zero
    size_t capacity_;
};

}  // namespace krInternal

#endif  // KRCORE_KR_TEXTBUFFER_H

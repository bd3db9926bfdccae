// Turns a fuzzer's bytes into what the text functions take: a heap block of
// exactly the text and its terminator, so that AddressSanitizer sees any read
// past the end, and a few leading control bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace orvafuzz {

struct Text {
    std::unique_ptr<char[]> bytes;
    size_t length;  // without the terminator
    char* get() const { return bytes.get(); }
};

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    // The next byte, or 0 when none is left.
    uint8_t Byte() {
        if (size_ == 0) return 0;
        --size_;
        return *data_++;
    }

    bool Empty() const { return size_ == 0; }

    // The bytes up to the next 0 (or the end), at most limit of them.
    Text NextText(size_t limit = SIZE_MAX) {
        const void* zero = std::memchr(data_, 0, size_);
        size_t n = zero != nullptr ? static_cast<size_t>(static_cast<const uint8_t*>(zero) - data_) : size_;
        size_t take = n < limit ? n : limit;
        Text text{std::unique_ptr<char[]>(new char[take + 1]), take};
        std::memcpy(text.bytes.get(), data_, take);
        text.bytes[take] = '\0';
        size_t used = zero != nullptr ? n + 1 : n;
        data_ += used;
        size_ -= used;
        return text;
    }

private:
    const uint8_t* data_;
    size_t size_;
};

// Stops the run the way libFuzzer reports it: a crash with a message.
#define ORVAFUZZ_CHECK(condition)                                                  \
    do {                                                                           \
        if (!(condition)) {                                                        \
            std::fprintf(stderr, "check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__); \
            std::abort();                                                          \
        }                                                                          \
    } while (0)

}  // namespace orvafuzz

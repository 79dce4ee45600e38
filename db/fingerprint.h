// All that a file holds, in short: enough to see whether it still does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace store {

class Fingerprint {
public:
    Fingerprint() = default;
    explicit Fingerprint(std::string_view bytes) { add(bytes); }

    // Bytes that are appended.
    void add(std::string_view bytes) {
        for (; !bytes.empty() && size_ % wordSize != 0; bytes.remove_prefix(1))
            addByte(bytes.front());
        for (; bytes.size() >= wordSize; bytes.remove_prefix(wordSize)) {
            uint64_t word = 0;
            std::memcpy(&word, bytes.data(), wordSize);
            addWord(word);
            size_ += wordSize;
        }
        for (const char byte : bytes)
            addByte(byte);
    }

    // Bytes that were added.
    size_t size() const { return size_; }

    bool operator==(const Fingerprint&) const = default;

private:
    static constexpr size_t wordSize = sizeof(uint64_t);

    // A start reads all of the live file: a byte at a time took a tenth of it.
    void addWord(uint64_t word) {
        constexpr uint64_t prime = 0x9E3779B97F4A7C15;
        hash_ = (hash_ ^ word) * prime;
        hash_ ^= hash_ >> 32U;
    }
    void addByte(char byte) {
        rest_ |= uint64_t{static_cast<unsigned char>(byte)} << 8 * (size_ % wordSize);
        if (++size_ % wordSize == 0)
            addWord(std::exchange(rest_, 0));
    }

    size_t size_ = 0;
    uint64_t hash_ = 0;  // of whole words
    uint64_t rest_ = 0;  // bytes behind them, the first one lowest
};

}  // namespace store

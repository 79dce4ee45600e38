// All that a file holds, in short: enough to see whether it still does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace store {

class Fingerprint {
public:
    Fingerprint() = default;
    explicit Fingerprint(std::string_view bytes) { add(bytes); }

    // Bytes that are appended.
    void add(std::string_view bytes) {
        constexpr uint64_t prime = 0x100000001B3;
        for (const char byte : bytes)
            hash_ = (hash_ ^ static_cast<unsigned char>(byte)) * prime;
        size_ += bytes.size();
    }

    // Bytes that were added.
    size_t size() const { return size_; }

    bool operator==(const Fingerprint&) const = default;

private:
    size_t size_ = 0;
    uint64_t hash_ = 0xCBF29CE484222325;  // FNV-1a
};

}  // namespace store

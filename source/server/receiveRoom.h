// What a client's message is received into, as large as a message may be.
//
// It is not cleared for each message, so nobody may read behind the end of the one that came. A build with
// AddressSanitizer sees to that.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "common/messageCodes.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

class ReceiveRoom {
public:
    ReceiveRoom() = default;
    ~ReceiveRoom() { open(bytes_); }
    ReceiveRoom(const ReceiveRoom&) = delete;
    ReceiveRoom& operator=(const ReceiveRoom&) = delete;

    static constexpr unsigned int size() { return receiveBufferSize; }
    unsigned char* data() { return bytes_.data(); }

    // The message of so many bytes that is in it; nothing more is received into it.
    std::span<unsigned char> message(unsigned int size) {
        const std::span<unsigned char> all(bytes_);
        close(all.subspan(size));
        return all.first(size);
    }

private:
#ifdef __SANITIZE_ADDRESS__
    static void close(std::span<unsigned char> bytes) {
        __asan_poison_memory_region(bytes.data(), bytes.size());
    }
    static void open(std::span<unsigned char> bytes) {
        __asan_unpoison_memory_region(bytes.data(), bytes.size());
    }
#else
    static void close(std::span<unsigned char>) {}
    static void open(std::span<unsigned char>) {}
#endif

    std::array<unsigned char, receiveBufferSize> bytes_;
};

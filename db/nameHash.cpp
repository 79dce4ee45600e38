#include "db/nameHash.h"

#include <sys/random.h>

#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstring>

namespace store {
namespace {

using Key = std::array<uint64_t, 2>;

// Never waits: where the system has no random numbers yet, somebody would have to know when we started.
Key drawKey() {
    Key key{};
    if (getrandom(key.data(), sizeof key, GRND_NONBLOCK) != sizeof key) {
        key[0] ^= static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        key[1] ^= reinterpret_cast<uintptr_t>(&key);
    }
    return key;
}

const Key processKey = drawKey();

class SipState {
public:
    explicit SipState(const Key& key)
        : v0_(key[0] ^ 0x736f6d6570736575U),
          v1_(key[1] ^ 0x646f72616e646f6dU),
          v2_(key[0] ^ 0x6c7967656e657261U),
          v3_(key[1] ^ 0x7465646279746573U) {}

    void take(uint64_t word) {
        v3_ ^= word;
        mix();
        v0_ ^= word;
    }
    uint64_t finish() {
        v2_ ^= 0xFF;
        mix();
        mix();
        mix();
        return v0_ ^ v1_ ^ v2_ ^ v3_;
    }

private:
    void mix() {
        v0_ += v1_;
        v1_ = std::rotl(v1_, 13) ^ v0_;
        v0_ = std::rotl(v0_, 32);
        v2_ += v3_;
        v3_ = std::rotl(v3_, 16) ^ v2_;
        v0_ += v3_;
        v3_ = std::rotl(v3_, 21) ^ v0_;
        v2_ += v1_;
        v1_ = std::rotl(v1_, 17) ^ v2_;
        v2_ = std::rotl(v2_, 32);
    }

    uint64_t v0_;
    uint64_t v1_;
    uint64_t v2_;
    uint64_t v3_;
};

}  // namespace

uint32_t hashOfName(std::string_view name) {
    SipState state(processKey);
    const uint64_t length = name.size();
    for (; name.size() >= sizeof(uint64_t); name.remove_prefix(sizeof(uint64_t))) {
        uint64_t word = 0;
        std::memcpy(&word, name.data(), sizeof word);
        state.take(word);
    }
    uint64_t last = length << 56U;
    for (size_t i = 0; i < name.size(); ++i)
        last |= uint64_t{static_cast<unsigned char>(name[i])} << (8 * i);
    state.take(last);
    return static_cast<uint32_t>(state.finish());
}

}  // namespace store

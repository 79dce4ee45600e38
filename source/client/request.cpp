#include "client/request.h"

#include <cstring>

namespace client {

std::string numberBytes(uint32_t number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

std::span<const unsigned char> asValue(const std::string& bytes) {
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

bool Packer::add(uint32_t code, const Parameter& entry) {
    const bool full =
        message_ && (code != code_ || message_->bytes().size() + entrySize(entry) > receiveBufferSize);
    if (full)
        finish();
    if (!message_)
        message_.emplace(code);
    code_ = code;
    message_->add(entry);
    return full;
}

void Packer::finish() {
    if (message_)
        connection_.queue(message_->bytes());
    message_.reset();
}

}  // namespace client

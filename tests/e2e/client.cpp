#include "client.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>

#include "common/marshalling.h"

namespace {

std::optional<std::string> receiveBytes(int fd, size_t size) {
    std::string bytes(size, '\0');
    const ssize_t received = recv(fd, bytes.data(), size, MSG_WAITALL);
    EXPECT_FALSE(received == -1 && errno == EAGAIN) << "the daemon does not answer";
    if (received != static_cast<ssize_t>(size))
        return std::nullopt;
    return bytes;
}

uint32_t wordAt(const std::string& bytes, size_t at) {
    return readWord(reinterpret_cast<const unsigned char*>(bytes.data()) + at);
}

}  // namespace

std::string word(uint32_t number) { return {reinterpret_cast<const char*>(&number), sizeof number}; }

std::string text(const std::string& value) { return {value.c_str(), value.size() + 1}; }

Entry dword(const std::string& name, uint32_t number, uint32_t pKey) {
    return {.name = name, .value = word(number), .type = ostrelTypeDword, .pKey = pKey};
}

Entry question(const std::string& name, uint32_t number) { return {.name = name, .value = word(number)}; }

std::string list(uint32_t code, const std::vector<Entry>& entries) {
    ParametersBuilder builder(code);
    for (const Entry& entry : entries) {
        auto* bytes = reinterpret_cast<const unsigned char*>(entry.value.data());
        builder.add(
            {entry.name, {bytes, entry.value.size()}, entry.type, entry.pKey, entry.owner, entry.tpltName});
    }
    auto bytes = builder.bytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string frame(const std::string& payload) {
    return word(static_cast<uint32_t>(payload.size())) + word(0) + payload;
}

Client::Client(int type) : link_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | type, 0)) {
    timeval timeout{40, 0};  // several stallers in a row take 25 s
    setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    sockaddr_un address{AF_UNIX, "/tmp/ostrel.sock"};
    // Without a daemon all that follows fails.
    (void)connect(fd(), reinterpret_cast<const sockaddr*>(&address), 18);
}

void Client::sendRaw(const std::string& bytes) const {
    [[maybe_unused]] const ssize_t sent = ::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void Client::sayName(const std::string& name) const {
    send(word(code::connect) + word(static_cast<uint32_t>(name.size())) + name);
}

std::optional<Reply> Client::receive() const {
    auto header = receiveBytes(fd(), 8);
    auto payload = header ? receiveBytes(fd(), wordAt(*header, 0)) : std::nullopt;
    if (!payload)
        return std::nullopt;
    Reply reply{wordAt(*payload, 0), {}};
    auto* bytes = reinterpret_cast<const unsigned char*>(payload->data());
    auto entries = parseParameters({bytes + 4, payload->size() - 4});
    EXPECT_TRUE(entries.has_value());
    for (const Parameter& entry : entries.value_or(std::vector<Parameter>()))
        reply.entries.push_back({std::string(entry.name), std::string(entry.value.begin(), entry.value.end()),
                                 entry.type, entry.pKey, entry.owner, std::string(entry.tpltName)});
    return reply;
}

std::optional<Reply> Client::ask(const std::string& payload) const {
    send(payload);
    return receive();
}

bool Client::closed() const {
    pollfd wait{fd(), POLLIN, 0};
    char byte = 0;
    return poll(&wait, 1, 3000) == 1 && recv(fd(), &byte, 1, MSG_DONTWAIT) <= 0;
}

std::optional<uint32_t> Client::number(const std::string& key, uint32_t pKey) const {
    return askNumber(code::read, question(key, pKey));
}

std::optional<uint32_t> Client::count(const std::string& name, uint32_t owner) const {
    return askNumber(code::ownerQty, question(name, owner));
}

// Every answer's code is the next one behind its request's.
std::optional<uint32_t> Client::askNumber(uint32_t request, const Entry& entry) const {
    const auto reply = ask(list(request, {entry}));
    if (!reply || reply->code != request + 1)
        return std::nullopt;
    return wordAt(reply->entries.at(0).value, 0);
}

bool Client::set(const std::string& key, uint32_t number, uint32_t pKey) const {
    return commit({list(code::notify, {dword(key, number, pKey)})});
}

bool Client::commit(const std::vector<std::string>& messages) const {
    std::string sequence = frame(list(code::startWriting));
    for (const std::string& message : messages)
        sequence += frame(message);
    sendRaw(sequence + frame(list(code::commit)) + frame(list(code::read)));
    for (;;) {
        auto reply = receive();
        if (!reply || reply->code == code::readAnswer)
            return reply.has_value();
    }
}

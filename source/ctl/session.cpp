#include "ctl/session.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "ctl/failure.h"
#include "common/messageCodes.h"

namespace {

// Room for the answer to any one request frame: each of its entries may bring a value of the daemon's largest
// size.
constexpr std::size_t longestAnswer = std::size_t{1} << 20U;
constexpr std::size_t codeSize = 4;

void appendWord(std::vector<unsigned char>& bytes, std::uint32_t word) {
    const auto* begin = reinterpret_cast<const unsigned char*>(&word);
    bytes.insert(bytes.end(), begin, begin + sizeof word);
}

// Shown in the daemon's log.
std::string clientName() {
    const passwd* user = getpwuid(geteuid());
    std::string name = user != nullptr ? user->pw_name : std::to_string(geteuid());
    return "ostrelCtl " + name + " " + std::to_string(getpid());
}

}  // namespace

Session::Session() : buffer_(longestAnswer) {
    constexpr unsigned int unusedPort = 0;
    if (!link_.connectTo(unusedPort))
        throw Failure(Status::notRunning, std::string("the daemon is not running, or not within reach (") +
                                              std::strerror(errno) + ")");
    std::string name = clientName();
    std::vector<unsigned char> connect;
    appendWord(connect, messageCode::connect);
    appendWord(connect, static_cast<std::uint32_t>(name.size()));
    connect.insert(connect.end(), name.begin(), name.end());
    sendBytes(std::move(connect));
}

void Session::sendBytes(std::vector<unsigned char> bytes) {
    if (!link_.sendMessage(static_cast<unsigned int>(bytes.size()), bytes.data()))
        throw ConnectionClosed();
}

void Session::send(ParametersBuilder message) {
    auto bytes = message.bytes();
    sendBytes({bytes.begin(), bytes.end()});
}

Answer Session::receive() {
    unsigned int size = 0;
    if (!link_.receiveMessage(static_cast<unsigned int>(buffer_.size()), &size, buffer_.data()))
        throw ConnectionClosed();
    Answer answer;
    answer.bytes.assign(buffer_.begin(), buffer_.begin() + size);
    std::optional<std::vector<Parameter>> entries;
    if (size >= codeSize)
        entries = parseParameters(std::span<const unsigned char>(answer.bytes).subspan(codeSize));
    if (!entries)
        throw Failure(Status::refused, "the daemon's answer makes no sense");
    answer.code = readWord(answer.bytes.data());
    answer.entries = std::move(*entries);
    return answer;
}

Answer Session::ask(ParametersBuilder message) {
    send(std::move(message));
    return receive();
}

void Session::confirm() {
    if (ask(ParametersBuilder(messageCode::read)).code != messageCode::readAnswer)
        throw ConnectionClosed();
}

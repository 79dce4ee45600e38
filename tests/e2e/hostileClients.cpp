#include "hostileClients.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace hostile {

namespace {

using Random = std::mt19937;

constexpr uint32_t owner = 77;

uint32_t below(Random& random, uint32_t end) { return static_cast<uint32_t>(random() % end); }

template <typename Choices>
auto anyOf(Random& random, const Choices& choices) {
    return *(std::begin(choices) + below(random, static_cast<uint32_t>(std::size(choices))));
}

Entry anyEntry(Random& random) {
    static const std::string names[] = {"h.number", "h.text",    "h.list", "h.gone",
                                        "hall",     "hall.size", "none",   ""};
    static const std::string values[] = {"", "\1", word(7), text("some text"), std::string(300, 'x')};
    static const std::string templateNames[] = {"", "hall", "none"};
    return {anyOf(random, names), anyOf(random, values),    static_cast<ostrelValueType>(below(random, 8)),
            below(random, 4),     below(random, 2) * owner, anyOf(random, templateNames)};
}

std::string anyFrame(Random& random) {
    static const uint32_t codes[] = {0,
                                     code::connect,
                                     code::notify,
                                     code::notify,
                                     code::notify,
                                     code::erase,
                                     code::read,
                                     code::readAnswer,
                                     code::startWriting,
                                     code::startWriting,
                                     code::commit,
                                     code::commit,
                                     code::rollback,
                                     code::instanciate,
                                     code::deinstanciate,
                                     code::deinstanciateOwner,
                                     code::ownerQty,
                                     code::pKeyList};
    std::vector<Entry> entries(below(random, 4));
    std::generate(entries.begin(), entries.end(), [&] { return anyEntry(random); });
    return frame(list(anyOf(random, codes), entries));
}

// Random bytes, a huge, small or negative word, a hole or a repetition, anywhere.
void mutate(Random& random, std::string& bytes) {
    static const uint32_t words[] = {0, 1, 127, 128, 4096, 4097, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    const size_t at = below(random, static_cast<uint32_t>(bytes.size()) + 1);
    const size_t size = below(random, 12);
    switch (below(random, 4)) {
        case 0:
            for (size_t i = at; i < std::min(at + size, bytes.size()); ++i)
                bytes[i] = static_cast<char>(random());
            break;
        case 1:
            bytes.replace(at, 4, word(anyOf(random, words)));
            break;
        case 2:
            bytes.erase(at, size);
            break;
        default:
            bytes.insert(at, bytes.substr(at, size));
    }
}

// Without the byte of the shutdown's code: a stream out of step may take any bytes for a code.
std::string harmless(std::string bytes) {
    std::replace(bytes.begin(), bytes.end(), 'd', 'e');
    return bytes;
}

}  // namespace

std::string defaults() {
    return "h.number Dword 0\nh.text String \"text\"\nh.gone Dword 0\nh.list[1] Dword 1\n"
           "hall[1] instance hall 5\nh.long String \"" +
           std::string(4000, 'x') + "\"\n";
}

std::string templates() { return "[hall]\nsize Dword 1\n"; }

std::string sequence(uint32_t number) {
    const Entry element = dword("h.list", 9, 2);
    return frame(list(code::startWriting)) +
           frame(list(code::notify, {dword("h.number", number), dword("h.gone", 1), element})) +
           frame(list(code::erase, {{"h.gone"}})) +
           frame(list(code::instanciate, {{.name = "hall", .owner = owner, .tpltName = "hall"}})) +
           frame(list(code::deinstanciate, {element})) +
           frame(list(code::deinstanciateOwner, {{.name = "hall", .owner = owner}})) +
           frame(list(code::commit));
}

std::string reads() {
    return frame(word(code::connect) + word(7) + "hostile") +
           frame(list(code::read, {question("h.text"), question("h.list", 1)})) +
           frame(list(code::ownerQty, {question("hall", 5)})) +
           frame(list(code::pKeyList, {question("hall", 5), question("")})) + frame(list(code::read));
}

void sendAndLeave(const std::string& bytes, bool politely) {
    const Client client;
    client.sendRaw(harmless(bytes));
    if (!politely)
        return;
    shutdown(client.fd(), SHUT_WR);
    char answers[4096];
    while (recv(client.fd(), answers, sizeof answers, 0) > 0) {
    }
}

void randomSession(Random& random) {
    std::string bytes;
    for (uint32_t i = below(random, 8); i > 0; --i)
        bytes += anyFrame(random);
    for (uint32_t i = below(random, 4); i > 0; --i)
        mutate(random, bytes);
    sendAndLeave(bytes, below(random, 2) == 0);
}

void sendUrgently(const std::string& bytes, size_t at) {
    const Client client;
    client.sendRaw(harmless(bytes.substr(0, at)));
    EXPECT_TRUE(send(client.fd(), "!", 1, MSG_OOB | MSG_NOSIGNAL) == 1 || errno != EOPNOTSUPP);
    client.sendRaw(harmless(bytes.substr(at)));
}

std::vector<Client> stallers() {
    std::vector<Client> clients(3);
    clients[0].sendRaw(reads().substr(0, 9));
    clients[1].sendRaw(sequence(1).substr(0, 30));
    clients[2].send(list(code::read, std::vector<Entry>(130, question("h.long"))));
    return clients;
}

}  // namespace hostile

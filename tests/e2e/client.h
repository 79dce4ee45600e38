// A client that speaks the protocol frame by frame, so that tests can also misuse it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/messageCodes.h"
#include "common/ostrelLink.h"
#include "ostrel/plugin.h"

namespace code = messageCode;

struct Entry {
    std::string name;
    std::string value{};
    ostrelValueType type = ostrelTypeNone;
    uint32_t pKey = 0;
    uint32_t owner = 0;
    std::string tpltName{};

    bool operator==(const Entry&) const = default;
};

std::string word(uint32_t number);
// A text value with its NUL.
std::string text(const std::string& value);
Entry dword(const std::string& name, uint32_t number, uint32_t pKey = 0);
// A request entry whose value is a number: a primary key or an owner.
Entry question(const std::string& name, uint32_t number = 0);
// Code, count, entries.
std::string list(uint32_t code, const std::vector<Entry>& entries = {});
std::string frame(const std::string& payload);

struct Reply {
    uint32_t code = 0;
    std::vector<Entry> entries;

    bool operator==(const Reply&) const = default;
};

class Client {
public:
    // When no daemon runs, nothing is sent and nothing received. The type is added to the socket's.
    explicit Client(int type = 0);

    int fd() const { return link_.fd; }
    // Nothing is asserted: the daemon may have closed the connection.
    void sendRaw(const std::string& bytes) const;
    void send(const std::string& payload) const { sendRaw(frame(payload)); }
    void sayName(const std::string& name) const;
    // The next frame; nothing when the daemon closed the connection. A silent daemon fails the test.
    std::optional<Reply> receive() const;
    std::optional<Reply> ask(const std::string& payload) const;
    // True when the daemon closes the connection within three seconds.
    bool closed() const;

    // The value of one Dword; nothing when the daemon answers with a failure.
    std::optional<uint32_t> number(const std::string& key, uint32_t pKey = 0) const;
    // How many instances or elements the owner has; nothing as above.
    std::optional<uint32_t> count(const std::string& name, uint32_t owner = 0) const;
    // Runs a whole sequence and commits. True when it was committed.
    bool set(const std::string& key, uint32_t number, uint32_t pKey = 0) const;
    bool commit(const std::vector<std::string>& messages) const;

private:
    std::optional<uint32_t> askNumber(uint32_t request, const Entry& entry) const;

    ostrelLink link_;
};

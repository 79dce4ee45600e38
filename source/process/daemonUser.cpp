#include "process/daemonUser.h"

#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace process {
namespace {

constexpr char setting[] = "OSTREL_DAEMON_USER";
constexpr size_t entrySize = 16384;

// NAME (NUMBER)
std::string userText(uid_t user) {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, entrySize> room{};
    std::string number = std::to_string(user);
    if (getpwuid_r(user, &entry, room.data(), room.size(), &found) != 0 || found == nullptr)
        return number;
    return std::string(found->pw_name) + " (" + number + ')';
}

std::optional<uid_t> userNamed(const std::string& name) {
    uid_t number = 0;
    auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc() && end == name.data() + name.size())
        return number;
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, entrySize> room{};
    if (getpwnam_r(name.c_str(), &entry, room.data(), room.size(), &found) != 0 || found == nullptr)
        return std::nullopt;
    return found->pw_uid;
}

}  // namespace

std::string namedUser(const std::string& byProgram) {
    if (!byProgram.empty())
        return byProgram;
    const char* value = secure_getenv(setting);
    return value != nullptr ? value : "";
}

std::optional<std::string> distrust(uid_t server, const std::string& name) {
    const uid_t own = geteuid();
    if (server == 0 || server == own)
        return std::nullopt;
    std::string trusted = own == 0 ? "root" : "root, " + userText(own);
    if (!name.empty()) {
        const std::optional<uid_t> named = userNamed(name);
        if (named == server)
            return std::nullopt;
        trusted += named ? " or " + userText(*named) : " or " + name + ", whom nobody knows";
    }
    return "is served by user " + userText(server) + ", and user " + userText(own) + " trusts only " +
           trusted + " there; " + setting + " names another";
}

std::optional<std::string> distrustPeer(int fd, const std::string& path, const std::string& name) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return path + ": nobody tells who serves it: " + std::strerror(errno);
    std::optional<std::string> reason = distrust(peer.uid, name);
    return reason ? path + ' ' + *reason : reason;
}

}  // namespace process

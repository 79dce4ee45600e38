#include "ctl/serverProcess.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "process/descriptor.h"
#include "process/localAddress.h"
#include "text/fixedPaths.h"

Peer peerOfSocket() {
    // Nothing is sent and nothing waited for, so this also works while the daemon is busy; not, however, when
    // its queue of clients is full.
    Peer peer;
    const process::Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd)
        return peer;
    const sockaddr_un address = process::localAddress(socketPath);
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        peer.queueFull = errno == EAGAIN;
    else if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0)
        peer = {credentials.pid, credentials.uid};
    return peer;
}

// The process that holds the database's lock. It is looked up, not tried: a lock held for a moment could end
// a daemon that starts just then.
pid_t holderOfDatabase() {
    struct stat info {};
    if (stat((std::string(livePath) + ".lock").c_str(), &info) != 0)
        return 0;
    const std::string inode = ":" + std::to_string(info.st_ino);
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string strength;
        std::string mode;
        std::string file;
        pid_t process = 0;
        // "->" in place of the kind: one that waits for the lock.
        if (words >> number >> kind >> strength >> mode >> process >> file && kind == "FLOCK" &&
            file.ends_with(inode))
            return process;
    }
    return 0;
}

std::string programOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::error_code error;
    std::string path = std::filesystem::read_symlink(folder + "/exe", error);
    if (!error)
        return path;
    // Another user's process tells its name only.
    std::string name;
    std::getline(std::ifstream(folder + "/comm"), name);
    return name;
}

bool isStopped(pid_t process) {
    std::string line;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/stat"), line);
    // The state stands behind the program's name, which may hold anything, too.
    const size_t nameEnd = line.rfind(") ");
    return nameEnd != std::string::npos && line.find_first_of("Tt", nameEnd) == nameEnd + 2;
}

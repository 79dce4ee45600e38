#include "dnsmasq/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <utility>

namespace dnsmasq {
namespace {

constexpr mode_t fileMode = 0644;

[[noreturn]] void failFile(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

Descriptor openFile(const std::string& path, int flags) {
    Descriptor file(open(path.c_str(), flags | O_CLOEXEC, fileMode));
    if (!file)
        failFile(path);
    return file;
}

void syncFile(const Descriptor& file, const std::string& path) {
    if (fsync(file.get()) != 0)
        failFile(path);
}

void writeDurably(const std::string& path, std::string_view text) {
    Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC);
    while (!text.empty()) {
        ssize_t written = write(file.get(), text.data(), text.size());
        if (written < 0)
            failFile(path);
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    syncFile(file, path);
}

}  // namespace

Descriptor::~Descriptor() {
    if (fd_ >= 0)
        close(fd_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

std::string readFile(const std::string& path) {
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        if (errno == ENOENT)
            return {};
        failFile(path);
    }
    std::string text;
    std::array<char, 4096> piece{};
    for (;;) {
        ssize_t size = read(file.get(), piece.data(), piece.size());
        if (size == 0 || (size < 0 && errno == ESRCH))
            return text;
        if (size < 0)
            failFile(path);
        text.append(piece.data(), static_cast<std::size_t>(size));
    }
}

void replaceFile(const std::string& path, const std::string& text) {
    std::string fresh = path + ".new";
    writeDurably(fresh, text);
    if (std::rename(fresh.c_str(), path.c_str()) != 0)
        failFile(path);
    std::string directory = path.substr(0, path.rfind('/'));
    syncFile(openFile(directory, O_RDONLY | O_DIRECTORY), directory);
}

bool fileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void removeFile(const std::string& path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        failFile(path);
}

}  // namespace dnsmasq

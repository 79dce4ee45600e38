// The address of a socket in the file system.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>

namespace process {

template <size_t size>
sockaddr_un localAddress(const char (&path)[size]) {
    sockaddr_un address{};
    static_assert(size <= sizeof address.sun_path);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, size);
    return address;
}

}  // namespace process

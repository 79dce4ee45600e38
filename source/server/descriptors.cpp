#include "server/descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "common/ostrelUtils.h"

namespace {

constexpr rlim_t mostDescriptors = 4096;
constexpr int enoughForSelect = 2 * FD_SETSIZE;
constexpr int fewForClientsToLeave = 64;

int descriptorLimit = 0;

// All above 2 that are open.
std::vector<int> inherited() {
    std::vector<int> descriptors;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        const int fd = std::atoi(entry->path().filename().c_str());
        if (fd > STDERR_FILENO)
            descriptors.push_back(fd);
    }
    return descriptors;
}

// False on a kernel that does not know the call or the flags.
bool closeRange(int flags) { return close_range(STDERR_FILENO + 1, ~0U, flags) == 0; }

}  // namespace

void fillStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) != -1)
            continue;
        // The lowest free number is this one. Without the device a descriptor that takes no writes will do.
        if (open("/dev/null", O_RDWR) < 0)
            static_cast<void>(open("/", O_PATH));
    }
}

void closeInherited() {
    if (closeRange(0))
        return;
    for (const int fd : inherited())
        close(fd);
}

void hideInherited() {
    if (closeRange(CLOSE_RANGE_CLOEXEC))
        return;
    for (const int fd : inherited())
        fcntl(fd, F_SETFD, FD_CLOEXEC);
}

void raiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    setenv(descriptorLimitVariable, std::to_string(limit.rlim_cur).c_str(), 1);
    limit.rlim_cur = std::min(limit.rlim_max, mostDescriptors);
    setrlimit(RLIMIT_NOFILE, &limit);
    descriptorLimit = static_cast<int>(limit.rlim_cur);
}

int firstClientDescriptor() {
    return descriptorLimit >= enoughForSelect ? FD_SETSIZE
                                              : std::min(fewForClientsToLeave, descriptorLimit / 2);
}

int mostClients() { return descriptorLimit - firstClientDescriptor(); }

#include "common/privateFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ostrel/plugin/file.hpp>
#include <system_error>

void makePrivateFolder(const std::string& path) {
    auto check = [&path](bool isDone) {
        if (!isDone)
            throw std::system_error(errno, std::generic_category(), path);
    };
    check(mkdir(path.c_str(), 0700) == 0 || errno == EEXIST);
    const ostrel::plugin::Descriptor folder(
        open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    check(static_cast<bool>(folder));
    struct stat info {};
    check(fstat(folder.get(), &info) == 0);
    if (info.st_uid != geteuid())
        errno = EPERM;
    check(info.st_uid == geteuid() && fchmod(folder.get(), 0700) == 0);
}

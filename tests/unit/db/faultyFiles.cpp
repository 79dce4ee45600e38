#include "faultyFiles.h"

#include <cerrno>

Faults faults;

namespace {

using store::FileCalls;
using store::systemFiles;

bool fails() {
    ++faults.calls;
    const bool failing = faults.first != 0 && faults.calls >= faults.first && faults.calls <= faults.last;
    errno = failing ? faults.error : errno;
    return failing;
}

template <auto member, class Status, class... Arguments>
void wrap(FileCalls& calls, Status (*FileCalls::*)(Arguments...)) {
    calls.*member = [](Arguments... arguments) {
        return fails() ? Status{-1} : (systemFiles.*member)(arguments...);
    };
}

// A test's machine does not lose its power: no need to wait for the disk.
int faultySync(int) {
    ++faults.forced;
    return fails() ? -1 : 0;
}

ssize_t faultyWrite(int fd, const void* bytes, size_t size) {
    if (!fails())
        return systemFiles.write(fd, bytes, size);
    if (systemFiles.write(fd, bytes, size / 2) < 0)
        faults.error = errno;
    errno = faults.error;
    return -1;
}

template <auto... members>
FileCalls makeFaultyFiles() {
    FileCalls calls = systemFiles;
    (wrap<members>(calls, members), ...);
    calls.write = faultyWrite;
    calls.fsync = faultySync;
    calls.fdatasync = faultySync;
    return calls;
}

}  // namespace

const FileCalls faultyFiles =
    makeFaultyFiles<&FileCalls::open, &FileCalls::read, &FileCalls::ftruncate, &FileCalls::fstat,
                    &FileCalls::stat, &FileCalls::flock, &FileCalls::rename, &FileCalls::link,
                    &FileCalls::unlink, &FileCalls::mkdir>();

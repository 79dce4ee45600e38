// One process per database.
#pragma once

#include <chrono>
#include <string>

#include "db/files.h"

namespace store {

// The right to change the live file: a lock on a file beside it, since a rewrite replaces the live file
// itself. It is given back when the object or the process ends; a child that is forked does not have it.
//
// Every failure comes back with errno set.
class Lock {
public:
    // livePath: as it was given, also when that is a link: there other processes look for the lock.
    Lock(const FileCalls& calls, const std::string& livePath);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    const std::string& path() const { return path_; }

    // Makes the lock file and its folder where they are missing. False with EWOULDBLOCK: another process has
    // the lock, and has had it for the whole of the time.
    bool take(std::chrono::milliseconds patience = {});
    // False also when the lock file was removed or replaced meanwhile: others may lock the one that they
    // find.
    bool isHeld() const;

private:
    bool tryOnce();
    static void leaveInChild();

    const FileCalls& calls_;
    const std::string path_;
    File file_;
    struct stat status_ {};  // of file_
    Lock* next_;             // of the process's other ones
    static Lock* first_;
};

}  // namespace store

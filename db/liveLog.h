// The live file on disk: read at the start, appended to by every commit, rewritten when it is not trusted or
// mostly dead. It knows transactions as text only.
//
// What the file holds up to size_ is durable and good. After a failure the file may hold more than that; then
// no transaction is acknowledged before the rest is cut off or the whole file is rewritten. Every failure is
// logged here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "db/files.h"
#include "db/logFormat.h"

namespace store {

class LiveLog {
public:
    // The directory must exist. calls must outlive the object.
    LiveLog(const FileCalls& calls, std::string path);

    const std::string& path() const { return path_; }

    // Opens the file and returns all of it. First of all, once.
    std::string read();
    // Takes over what was read: cuts a torn tail off, keeps a damaged file beside. Once, after read().
    void recover(const LogScan& scan);

    // Before it replaces the file, the next rewrite gives what stands there a second name.
    void keepAtRewrite() { mustKeep_ = true; }

    // False: rewrite() must succeed before the next append(). Notices when the file was removed or changed by
    // others.
    bool isTrusted();
    // Makes the transaction durable, with one forced write. lines: that it consists of. False: it is not in
    // the file, and will not be after a crash (if the disk let us do anything about it).
    bool append(std::string transaction, size_t lines);
    // Replaces the file by the one transaction, durably. False: the old content is still the durable one, or
    // either.
    bool rewrite(std::string transaction, size_t lines);

    // Most lines are dead when only liveLines are left, and the file is large enough to care.
    bool isMostlyDead(size_t liveLines) const;

private:
    bool keepBeside();
    bool writeFresh(File& file, const std::string& path, const std::string& text, struct stat& status);
    void cutTail();
    void remember(const struct stat& status);

    const FileCalls& calls_;
    const std::string path_;
    File file_;
    dev_t device_ = 0;  // of file_, with inode_: to notice that another file stands at path_
    ino_t inode_ = 0;
    size_t size_ = 0;
    size_t lines_ = 0;
    uint64_t number_ = 0;      // of the last transaction
    size_t deadAt_;            // bytes from which on a rewrite is worth its cost
    bool isAttached_ = false;  // the directories above it are durable
    bool mustRewrite_ = false;
    bool mustKeep_ = false;    // what stands at path_ must not be replaced before it has a second name
    bool unreadable_ = false;  // the file holds what nobody could read: never replace it
};

}  // namespace store

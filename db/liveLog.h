// The live file on disk: read at the start, written to by every commit, rewritten when it is not trusted or
// mostly dead. It knows transactions as text only.
//
// What the file holds up to size_ is durable and good; behind it stands at most a room (db/room.h), whose
// bytes were read, or forced, as they are. After a failure something else may stand there; then no
// transaction is acknowledged, and no number used again, before that is cut off, durably, or the whole file
// is rewritten. Blanks are never put back: a disk may make one write of two and leave the other out. The file
// changes by a write over the room and on behind it, by a cut at size_, or by the rename of a complete,
// synced copy, and in no other way; and only while its caller has the database's lock. Every failure is
// logged here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "db/files.h"
#include "db/fingerprint.h"
#include "db/logFormat.h"

namespace store {

class LiveLog {
public:
    // The file, or a link to it, which is followed inside root (empty: as the system does). calls must
    // outlive the object.
    LiveLog(const FileCalls& calls, std::string path, std::string root = {});

    const std::string& path() const { return path_; }
    // In the folder that takes the file's copies; nothing when the system does not tell.
    std::optional<uint64_t> freeBytes() const;

    // Opens the file and returns all of it. First of all, once. Changes nothing: not the room either.
    std::string read();
    // Takes over what was read, once. Changes nothing.
    void recover(const LogScan& scan, std::string_view text);
    // With the lock, before the first change, once: cuts a torn tail off, which is kept beside if it may have
    // been more than that, and clears up after a crash.
    void settle();
    // For a caller that has gained the lock after read(). False: the file is not what was read or left here,
    // byte for byte, and nothing can be committed until a restart reads it; or it cannot be read now. A file
    // that is gone is no reason.
    bool isAsLeft();

    // Before it replaces the file, the next rewrite gives what stands there a second name.
    void keepAtRewrite() { mustKeep_ = true; }
    // Keeps lines that the next rewrite leaves out, in a file beside that is named after them, once. False:
    // they stand in the live file only.
    bool keepLines(const std::string& lines);

    // Directly before append(). False: rewrite() must succeed first. Notices when the file was removed or
    // changed by others who did not know of the room.
    bool isTrusted();

    enum class Appended {
        done,     // durably
        noSpace,  // on the disk; the file is as before
        failed    // it does not count; isTrusted() tells whether the file is as before
    };
    // With one write and one forced write. lines: that it consists of. Allocates memory only before the
    // write.
    Appended append(const std::string& transaction, size_t lines);
    // Replaces the file by the one transaction, durably, with the owner and mode that it had. False: the old
    // content is still the durable one, or either.
    bool rewrite(std::string transaction, size_t lines);

    // Most lines or bytes are dead when only these are left, and the file is large enough to care.
    bool isMostlyDead(size_t liveLines, size_t liveBytes) const;
    // Not before the file has grown a lot more.
    void postponeRewrite() { deadAt_ = 2 * size_; }

private:
    bool close(const char* reason);
    bool follow();
    Appended write(const std::string& transaction, size_t room);
    bool keepTail();
    bool keepBeside();
    bool isKeptAs(const std::string& kept) const;
    bool replace(File& file, const std::string& path, const std::string& text, const std::string& room,
                 struct stat& status);
    void cutTail();

    const FileCalls& calls_;
    const std::string path_;
    const std::string root_;
    std::string target_;  // where the file is: path_, or where that leads
    File file_;
    std::optional<struct stat> status_;  // of the file as it was last seen; nothing: it was never there
    Fingerprint left_;     // of all but the room that the file held when it was read or written last
    Fingerprint good_;     // of what settle() leaves
    std::string tail_;     // that settle() keeps beside
    size_t size_ = 0;      // of what counts
    size_t end_ = 0;       // of the whole file
    size_t fillable_ = 0;  // bytes behind size_ that a write may cover and leave the file's size as it is
    size_t lines_ = 0;
    uint64_t number_ = 0;        // of the last transaction
    size_t deadAt_;              // bytes from which on a rewrite is worth its cost
    bool lacksNewline_ = false;  // the next write brings it
    bool isSettled_ = false;
    bool mustCut_ = false;     // a torn tail stands behind size_
    bool isAttached_ = false;  // the directories above it are durable
    bool mustRewrite_ = false;
    bool mustKeep_ = false;  // what stands at path_ must not be replaced before it has a second name
    bool isClosed_ = false;  // the file holds what was never read here: nothing may be changed
};

}  // namespace store

// One write sequence: the changes as they travel.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>

#include "client/connection.h"
#include "client/request.h"
#include "client/stagedChanges.h"

namespace client {

class Sequence {
public:
    enum class Kind {
        commit,
        trial  // each change is answered for, and all are rolled back
    };
    // sent: how many of the changes have left.
    using Progress = std::function<void(size_t sent, size_t changes)>;

    // All must outlive the object.
    Sequence(Connection& connection, StagedChanges& changes, Kind kind, const Progress& progress)
        : connection_(connection), changes_(changes), kind_(kind), progress_(progress), packer_(connection) {}

    // Returns when the daemon has done all; gives the new instances their keys. Sets mayBeApplied as soon as
    // the commit has left. Sends without a pause, except for a change that needs a key which the daemon has
    // to tell first. Throws Failure, and ConnectionLost when the daemon refuses or ends.
    void run(const Deadline& deadline);

    // Of a trial: the changes at the front which the daemon accepted before it closed the connection.
    size_t accepted() const { return accepted_; }

private:
    struct Mark {
        size_t bytes;    // once so many have been sent,
        size_t changes;  // so many changes have left
    };

    void queueChange(size_t number, const Deadline& deadline);
    uint32_t resolve(ostrelIndex index, const Deadline& deadline);
    void queueEnd();
    void takeAnswer(const Answer& answer);
    void flush(const Deadline& deadline);
    void reportProgress();

    Connection& connection_;
    StagedChanges& changes_;
    const Kind kind_;
    const Progress& progress_;
    Packer packer_;
    std::deque<Mark> marks_;
    size_t commitEnd_ = 0;  // once so many bytes have been sent, the commit has left; 0: not yet queued
    size_t accepted_ = 0;
};

}  // namespace client

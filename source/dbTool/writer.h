// The right to write the live file, and the writing.
#pragma once

#include "db/liveLog.h"
#include "db/lock.h"
#include "dbTool/snapshot.h"

class Writer {
public:
    // Takes the store's lock for the object's life; a snapshot that is taken after that stays true. Throws
    // Failure: Status::inUse when a daemon has the lock.
    explicit Writer(const store::Paths& paths);

    // Replaces the live file by the model's changes, durably. lastNumber: of the last transaction so far; the
    // new one counts on from it. keep: the old file stays beside as ostrdb.txt.damaged-N. Throws Failure.
    void write(const Snapshot& snapshot, const store::Model& model, uint64_t lastNumber, bool keep);

    // Cuts an unfinished transaction off the live file, durably. Throws Failure.
    void cutTornTail(const Snapshot& snapshot);

private:
    store::Lock lock_;
};

// Throws Failure when the live file is damaged: what stands behind the damage would be lost by a rewrite.
// Tells of an unfinished transaction, which is lost anyway.
void requireSound(const Snapshot& snapshot);

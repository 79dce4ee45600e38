// A transaction driven by one client: from its start message to commit, rollback or failure.
#pragma once

struct ostrelConnection;

// Receives and serves the sequence's messages. True: committed, or rolled back on request; false: nothing was
// changed (memory may have run out), and the caller drops the connection. Main thread, with bllLock held;
// plug-ins are called after a commit.
bool HandleWriteSequence(ostrelConnection* connection);

// What follows a commit: the plug-ins are told of listOfChangedStuff, which is then empty, and what they
// stored meanwhile is replayed. popBackStoredMessage's result. What is thrown ends the process: the changes
// are durable, and nobody may be told that they were refused.
bool tellCommitted() noexcept;

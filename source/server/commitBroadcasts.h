// What plug-ins are told after a commit, in which order.
//
// Both tell them of listOfChangedStuff, which is then empty. Main thread only; plug-ins are called.
#pragma once

// Of a client's commit: first the change, then the triggers. What a trigger does finds all services adapted.
void broadcastClientsChanges();

// Of a commit of stored operations: first the triggers, then the change. A trigger may remove at once what
// the operations made needless: the change broadcast tells of that, too, and what its restarts store is the
// next replay's.
void broadcastReplayedChanges();

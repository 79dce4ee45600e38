// How a message that changes the database is served, whichever it is.
#pragma once

#include <cstdint>
#include <span>

#include "log/logPlace.h"
#include "ostrel/plugin.h"

class ostrelLink;

// What tells one of these messages from the others. What is null by default may be left out: such a text is
// not logged, such a step not taken.
struct ChangeHandler {
    uint32_t code;
    LogPlace place;
    const char* received;          // logged before
    const char* served = nullptr;  // and, if all went well, after
    const char* undecodable;
    const char* dumpTag = nullptr;  // of the lines that dump the values

    // For each value, in list order:
    // Counts the change. False, with nothing counted, when it makes the sequence too large.
    bool (*count)(const OstrelValue& value);
    // One call of the database; an instance's primary key is put into the value. False: refused.
    bool (*apply)(long transaction, OstrelValue& value);
    void (*logRefused)(LogPlace place, const OstrelValue& value);
    // What the entry of listOfChangedStuff carries beside the name.
    void (*note)(OstrelValue& changed, const OstrelValue& value) = nullptr;

    // For a client that waits for an answer: to what was applied, and to what does not decode. False, with a
    // line in the log, when the answer cannot be built or sent.
    bool (*answer)(ostrelLink& link, std::span<const OstrelValue> values) = nullptr;
    bool (*answerUndecodable)(ostrelLink& link) = nullptr;

    // Applies the values to the open transaction, each at once. False at the first that is refused, with a
    // line in the log; the transaction is left to the caller's rollback.
    bool applyAll(long transaction, std::span<OstrelValue> values) const;

    // Serves a message. body: its payload after the code. False: it was not applied whole, or not answered,
    // and the transaction has been rolled back.
    bool operator()(long transaction, std::span<unsigned char> body, ostrelLink& link) const;
};

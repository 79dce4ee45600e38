// What the C interface's objects hold, and how its functions call on them.
#pragma once

#include <new>
#include <optional>
#include <string>

#include "client/callFailure.h"
#include "client/session.h"
#include "client/stagedChanges.h"
#include "ostrel/client.h"

struct ostrelSession {
    explicit ostrelSession(const char* program) : session(program) {}

    client::Session session;
    std::string error;
};

struct ostrelTransaction {
    client::StagedChanges changes;
    std::string error;
    std::optional<client::Fault> found;
    ostrelFault fault{};  // found, as it is handed out
};

namespace client {

inline void setError(std::string& error, const char* text) noexcept {
    try {
        error = text;
    } catch (...) {
        error.clear();  // no memory for it
    }
}

// Calls use; error tells what became of it.
template <class Use>
ostrelStatus guard(std::string& error, Use use) noexcept {
    try {
        error.clear();
        use();
        return OSTREL_DONE;
    } catch (const Failure& failure) {
        setError(error, failure.what());
        return failure.status();
    } catch (const std::bad_alloc&) {
        setError(error, "out of memory");
    } catch (...) {
        setError(error, "internal error");
    }
    return OSTREL_FAILED;
}

inline void requireGiven(bool given) {
    if (!given)
        throw Failure(OSTREL_INVALID, "a null argument");
}

template <class Use>
ostrelStatus onSession(ostrelSession* session, Use use) noexcept {
    return session == nullptr ? OSTREL_INVALID : guard(session->error, [&] { use(session->session); });
}

}  // namespace client

// A commit has no answer of its own, and no refusal but the closed connection. So the client asks something
// behind the commit: the answer means committed.
#include "ctl/transaction.h"

#include <optional>
#include <string>

#include "ctl/failure.h"
#include "ctl/session.h"
#include "common/messageCodes.h"

namespace {

// Appends the new instances' primary keys.
void takeKeys(const Answer& answer, std::vector<std::uint32_t>& keys) {
    if (answer.code != messageCode::instanciateAnswer)
        throw ConnectionClosed();
    for (const Parameter& entry : answer.entries)
        keys.push_back(entry.valueAsNumber());
}

// Sends the next of the changes, as many as one message takes.
void sendNext(Session& session, std::span<const Request>& changes, std::vector<std::uint32_t>& keys) {
    bool answered = changes.front().code == messageCode::instanciate;
    session.send(takeMessage(changes));
    if (answered)
        takeKeys(session.receive(), keys);
}

// Tries the changes one by one in a write sequence that is rolled back, with an empty instantiation behind
// each: it is answered when the change before it was accepted. Nothing when all were.
std::optional<std::size_t> findRefused(std::span<const Request> changes) {
    Session session;
    session.send(ParametersBuilder(messageCode::startWriting));
    std::vector<std::uint32_t> keys;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        std::span<const Request> one = changes.subspan(i, 1);
        try {
            sendNext(session, one, keys);
            takeKeys(session.ask(ParametersBuilder(messageCode::instanciate)), keys);
        } catch (const ConnectionClosed&) {
            return i;
        }
    }
    session.send(ParametersBuilder(messageCode::rollback));
    session.confirm();
    return std::nullopt;
}

Failure refusal(std::span<const Request> changes) {
    std::optional<std::size_t> refused;
    try {
        refused = findRefused(changes);
    } catch (const ConnectionClosed&) {
    } catch (const Failure&) {
        return {Status::notRunning,
                "the daemon ended before it answered; its next start shows whether the changes are stored"};
    }
    if (!refused)
        return {Status::refused,
                "not committed, although no change is refused by itself; the daemon's log tells why"};
    const Request& change = changes[*refused];
    std::string place = change.line == 0 ? "" : "line " + std::to_string(change.line) + ": ";
    return {Status::refused, place + change.name + " is refused; nothing is changed"};
}

}  // namespace

std::vector<std::uint32_t> commitChanges(std::span<const Request> changes) {
    Session session;
    std::vector<std::uint32_t> keys;
    try {
        session.send(ParametersBuilder(messageCode::startWriting));
        for (std::span<const Request> rest = changes; !rest.empty();)
            sendNext(session, rest, keys);
        session.send(ParametersBuilder(messageCode::commit));
        session.confirm();
    } catch (const ConnectionClosed&) {
        throw refusal(changes);
    }
    return keys;
}

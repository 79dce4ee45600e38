#include "client/session.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "client/daemonProcess.h"
#include "client/explain.h"
#include "text/characters.h"

namespace client {
namespace {

constexpr size_t longestProgram = 64;

std::string userName() {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 1024> room{};
    if (getpwuid_r(geteuid(), &entry, room.data(), room.size(), &found) == 0 && found != nullptr)
        return found->pw_name;
    return std::to_string(geteuid());
}

// One line of the daemon's log shall stay one.
std::string printable(std::string_view text) {
    std::string result(text.substr(0, longestProgram));
    std::ranges::replace_if(result, store::isControl, '?');
    return result;
}

Failure gone() { return {OSTREL_GONE, "the daemon ended while it was asked"}; }

std::string describe(const StagedChanges& changes, const Fault& fault) {
    const Change& change = changes.at(fault.change);
    std::string text = change.line == 0 ? "" : "line " + std::to_string(change.line) + ": ";
    text += change.name;
    if (change.index != 0 && !StagedChanges::isNewInstance(change.index))
        text += '[' + std::to_string(change.index) + ']';
    return text + ": " + fault.reason;
}

}  // namespace

Refusal::Refusal(const StagedChanges& changes, Fault fault)
    : Failure(OSTREL_REFUSED, "refused, nothing is changed: " + describe(changes, fault)),
      fault_(std::move(fault)) {}

Session::Session(std::string_view program)
    : name_(printable(program) + ' ' + userName() + ' ' + std::to_string(getpid())) {}

Connection& Session::connected(const Deadline& deadline) {
    if (!connection_)
        connection_.emplace(name_, daemonUser_, deadline);
    return *connection_;
}

// Calls use with a connection; a second time when the first was an old one, which may have been lost long
// ago.
template <class Use>
auto Session::ask(const Deadline& deadline, Use use) {
    bool mayBeLost = connection_.has_value();
    while (true) {
        try {
            return use(connected(deadline));
        } catch (const ConnectionLost&) {
            connection_.reset();
            if (!mayBeLost)
                throw gone();
            mayBeLost = false;
        } catch (...) {
            connection_.reset();
            throw;
        }
    }
}

void Session::connect() {
    const Deadline deadline(timeout_);
    ask(deadline, [&](Connection& connection) { connection.confirm(deadline); });
}

void Session::shutdown() {
    const Deadline deadline(timeout_);
    ask(deadline, [&](Connection& connection) { connection.confirm(deadline); });
    const DaemonProcess process(connection_->daemon().process);
    try {
        connection_->queue(messageCode::shutdown);
        connection_->receive(deadline);
    } catch (const ConnectionLost&) {
        connection_.reset();
        if (!process.awaitEnd(deadline))
            throw Failure(OSTREL_BUSY, "the daemon has dropped its clients, but not ended in time");
        return;
    } catch (...) {
        connection_.reset();
        throw;
    }
    connection_.reset();
    throw Failure(OSTREL_FAILED, "the daemon's answer makes no sense");
}

std::vector<std::optional<store::Value>> Session::read(std::span<const Key> keys) {
    const Deadline deadline(timeout_);
    return ask(deadline, [&](Connection& connection) { return readValues(connection, keys, deadline); });
}

uint32_t Session::count(const std::string& name, uint32_t owner) {
    const Deadline deadline(timeout_);
    return ask(deadline,
               [&](Connection& connection) { return countInstances(connection, name, owner, deadline); });
}

List Session::list(const std::string& name, uint32_t owner) {
    const Deadline deadline(timeout_);
    return ask(deadline,
               [&](Connection& connection) { return listInstances(connection, name, owner, deadline); });
}

void Session::run(StagedChanges& changes, Sequence::Kind kind) {
    if (changes.isSpoiled()) {
        const std::optional<Fault>& fault = changes.stagingFault();
        throw Failure(OSTREL_INVALID,
                      "a change could not be staged" + (fault ? ": " + describe(changes, *fault) : ""));
    }
    if (changes.mayBeApplied)
        throw Failure(OSTREL_INVALID, "the transaction was, or may have been, applied already");
    if (changes.list().empty())
        return;
    const Deadline deadline(timeout_);
    // While the daemon is busy nothing is sent that it would apply when nobody expects it any more.
    ask(deadline, [&](Connection& connection) { connection.confirm(deadline); });
    try {
        send(changes, kind, deadline);
    } catch (...) {
        connection_.reset();
        if (!changes.mayBeApplied)
            changes.forgetKeys();
        throw;
    }
    if (kind == Sequence::Kind::trial)
        changes.forgetKeys();
}

void Session::send(StagedChanges& changes, Sequence::Kind kind, const Deadline& deadline) {
    const DaemonIdentity daemon = connection_->daemon();
    Sequence sequence(*connection_, changes, kind, progress_);
    try {
        sequence.run(deadline);
    } catch (const ConnectionLost&) {
        std::optional<size_t> refused;
        if (kind == Sequence::Kind::trial)
            refused = sequence.accepted();
        refuse(changes, refused, daemon, deadline);
    }
}

// Throws what it means that the connection was closed inside the sequence.
void Session::refuse(StagedChanges& changes, std::optional<size_t> refused, const DaemonIdentity& daemon,
                     const Deadline& deadline) {
    connection_.reset();
    try {
        connected(deadline).confirm(deadline);
    } catch (const ConnectionLost&) {
        throw gone();
    } catch (const Failure& failure) {
        throw failure.status() == OSTREL_BUSY ? failure : gone();
    }
    if (!(connection_->daemon() == daemon))
        throw gone();
    changes.mayBeApplied = false;
    changes.forgetKeys();
    if (!refused)
        refused = findRefused(changes, deadline);
    if (!refused || *refused >= changes.list().size())
        throw Failure(OSTREL_REFUSED,
                      "not stored, although no change is refused by itself; the daemon's log tells why");
    throw Refusal(changes, {*refused, explain(changes.at(*refused), deadline)});
}

std::optional<size_t> Session::findRefused(StagedChanges& changes, const Deadline& deadline) {
    const Sequence::Progress silent;
    Sequence trial(*connection_, changes, Sequence::Kind::trial, silent);
    std::optional<size_t> refused;
    try {
        trial.run(deadline);
    } catch (const ConnectionLost&) {
        refused = trial.accepted();
        connection_.reset();
    } catch (const Failure&) {
        connection_.reset();
    }
    changes.forgetKeys();
    return refused;
}

std::string Session::explain(const Change& change, const Deadline& deadline) {
    try {
        return ask(deadline,
                   [&](Connection& connection) { return explainRefusal(connection, change, deadline); });
    } catch (const Failure&) {
        return "the daemon does not tell why";
    }
}

}  // namespace client

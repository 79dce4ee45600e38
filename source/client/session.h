// What the C interface's session does, with exceptions.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/callFailure.h"
#include "client/connection.h"
#include "client/reading.h"
#include "client/sequence.h"
#include "client/stagedChanges.h"

namespace client {

// A change was refused, and it is known which.
class Refusal : public Failure {
public:
    Refusal(const StagedChanges& changes, Fault fault);
    const Fault& fault() const { return fault_; }

private:
    Fault fault_;
};

// Each function throws Failure, and keeps no connection on which an answer may still come.
class Session {
public:
    explicit Session(std::string_view program);

    void setTimeout(std::chrono::milliseconds timeout) { timeout_ = timeout; }
    void setDaemonUser(std::string user) { daemonUser_ = std::move(user); }
    void setProgress(Sequence::Progress progress) { progress_ = std::move(progress); }

    void connect();
    void shutdown();
    std::vector<std::optional<store::Value>> read(std::span<const Key> keys);
    uint32_t count(const std::string& name, uint32_t owner);
    List list(const std::string& name, uint32_t owner);
    void apply(StagedChanges& changes) { run(changes, Sequence::Kind::commit); }
    void check(StagedChanges& changes) { run(changes, Sequence::Kind::trial); }

private:
    Connection& connected(const Deadline& deadline);
    template <class Use>
    auto ask(const Deadline& deadline, Use use);
    void run(StagedChanges& changes, Sequence::Kind kind);
    void send(StagedChanges& changes, Sequence::Kind kind, const Deadline& deadline);
    void refuse(StagedChanges& changes, std::optional<size_t> refused, const DaemonIdentity& daemon,
                const Deadline& deadline);
    std::optional<size_t> findRefused(StagedChanges& changes, const Deadline& deadline);
    std::string explain(const Change& change, const Deadline& deadline);

    std::string name_;
    std::string daemonUser_;  // empty: none is named
    std::chrono::milliseconds timeout_ = std::chrono::seconds(30);
    Sequence::Progress progress_;
    std::optional<Connection> connection_;
};

}  // namespace client

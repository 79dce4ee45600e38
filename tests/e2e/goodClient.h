// A client that commits and reads without pause and knows what the database must hold: after its n-th
// transaction everything of its own is a function of n, so that it can tell at each answer, and after each
// end of the daemon, whether something was lost, torn or invented.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "client.h"

class GoodClient {
public:
    using Duration = std::chrono::steady_clock::duration;

    // What the client with this number finds at first, for the factory files.
    static std::string defaults(unsigned int number);
    static std::string templates() { return "[room]\nsize Dword 1\n"; }

    // Begins at once, in a thread of its own. Without mayEnd a lost connection fails the test.
    explicit GoodClient(unsigned int number, bool mayEnd = false);
    // Waits for the transaction under way.
    ~GoodClient();
    GoodClient(const GoodClient&) = delete;
    GoodClient& operator=(const GoodClient&) = delete;

    uint32_t committed() const { return committed_; }
    // Connections that were lost.
    int losses() const { return losses_; }
    // Of a commit with the reads that check it, over one connection, since the last look.
    Duration slowest() { return slowest_.exchange({}); }

private:
    void run(const std::stop_token& stop);
    bool resume(const Client& client);
    bool holds(const Client& client) const;
    bool found(const Client& client, uint32_t transaction) const;
    bool commit(const Client& client, uint32_t transaction) const;
    std::vector<Entry> values(uint32_t transaction) const;

    const std::string name_;
    const uint32_t owner_;
    const bool mayEnd_;
    std::atomic<uint32_t> committed_ = 0;
    std::atomic<int> losses_ = 0;
    std::atomic<Duration> slowest_ = Duration::zero();
    std::jthread thread_;
};

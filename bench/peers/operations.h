// The rows of the tables. Each returns JSON objects: what is measured, and the figures of each peer.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "peer.h"
#include "rounds.h"

struct Plan {
    Effort reads;
    Effort commits;
    int deviceCommits;       // per peer and row
    std::vector<int> sizes;  // numbers of keys
    int starts;              // of each peer, for the median
    std::string device;      // below /sys/block; empty when there is none of our own
};

constexpr int usualKeys = 1000;

// The peers run, filled with usualKeys.
nlohmann::json readRows(std::vector<PeerEntry>& peers, const Plan& plan);
nlohmann::json commitRows(std::vector<PeerEntry>& peers, const Plan& plan);
// The peers are stopped; start-up, memory, and commits at each size.
nlohmann::json sizeRows(std::vector<PeerEntry>& peers, const Plan& plan, const std::string& folder);

// What sizeRows starts for a peer in the client's process: opens it, reads a key, tells so on standard
// output, and waits to be killed.
void holdOpen(std::vector<PeerEntry>& peers, const std::string& name);

nlohmann::json rowOf(const char* id, const std::vector<Figure>& figures);
// Commits that many values with each call, to other keys each time.
std::function<void()> committer(Client& client, int keys, int count);

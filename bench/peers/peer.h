// What is measured side by side: a store of named numbers, and a client of it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// One connection to a server, or one open handle of a store that lives in the client's own process. A failure
// throws PeerError.
class Client {
public:
    Client() = default;
    virtual ~Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Reads these keys with one request, or as one snapshot, and takes their values.
    virtual void read(int firstKey, int count) = 0;
    // Gives these keys, at most 50, a value in one transaction, which is durable on return where the peer
    // can.
    virtual void commit(int firstKey, int count, uint32_t value) = 0;

    // The two halves of reading one key, for several clients at once. Servers only.
    virtual void ask(int key);
    virtual void take();
};

// Keeps its files in a folder of its own; what it starts ends with it at the latest.
class Peer {
public:
    Peer() = default;
    virtual ~Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // Leaves the stopped peer with this many keys, keyName(0) and on, each a number, and nothing else.
    virtual void fill(int keys) = 0;
    virtual void start() = 0;
    virtual void stop() = 0;
    // Connects to, or opens, what was started or filled.
    virtual std::unique_ptr<Client> connect() = 0;
    // The server's process while it runs; 0 for a peer in the client's process.
    virtual pid_t process() const { return 0; }
};

struct PeerEntry {
    std::string name;
    std::string difference;  // from ostrel, for the reader of the tables
    std::unique_ptr<Peer> peer;
    bool isServer = true;
    bool isDurable = true;   // a commit is on the disk when it returns
    int mostKeys = 1000000;  // with more, its commits take seconds each
};

// The peers, each below this folder, whose libraries were there when this was built. A line on standard error
// names the others. The first is the floor, the bare echo server; the second ostrel.
std::vector<PeerEntry> makePeers(const std::filesystem::path& folder);

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <optional>

#include "bench/measure.h"
#include "bench/subject.h"
#include "operations.h"
#include "peerError.h"

using nlohmann::json;

namespace {

// A process of its own that holds this peer open, as a server would be.
Process startHolder(const PeerEntry& entry, const std::string& folder) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw PeerError("no pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl("/proc/self/exe", "ostrelBenchPeers", "--hold", entry.name.c_str(), folder.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    char ready = 0;
    const ssize_t count = read(ends[0], &ready, 1);
    close(ends[0]);
    Process holder(pid);
    if (count != 1)
        throw PeerError(entry.name + ": cannot be opened");
    return Process(holder.release());
}

// Seconds to the first answer, and bytes of memory afterwards. A server runs afterwards.
json startOf(const PeerEntry& entry, const Plan& plan, const std::string& folder) {
    std::vector<double> seconds;
    std::vector<double> memory;
    for (int i = 0; i < plan.starts; ++i) {
        entry.peer->stop();
        if (entry.isServer) {
            seconds.push_back(secondsOf([&] { entry.peer->start(); }));
            memory.push_back(static_cast<double>(privateMemory(entry.peer->process())));
        } else {
            std::optional<Process> holder;
            seconds.push_back(secondsOf([&] { holder.emplace(startHolder(entry, folder).release()); }));
            memory.push_back(static_cast<double>(privateMemory(holder->pid())));
            holder.reset();
            entry.peer->start();
        }
    }
    return {{"peer", entry.name}, {"start", median(seconds)}, {"memory", median(memory)}};
}

json sizeRow(std::vector<PeerEntry>& peers, int keys, const Plan& plan, const std::string& folder) {
    json row{{"keys", keys}, {"figures", json::array()}};
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<Contestant> contestants;
    for (const PeerEntry& entry : peers) {
        if (keys > entry.mostKeys || entry.name == "ostrel library")
            continue;
        entry.peer->stop();
        entry.peer->fill(keys);
        row["figures"].push_back(startOf(entry, plan, folder));
        clients.push_back(entry.peer->connect());
        contestants.push_back({entry.name, committer(*clients.back(), keys, 1)});
    }
    // What filling left to write is not to be part of the first commits.
    sync();
    const std::vector<Figure> figures = measureRounds(contestants, plan.commits);
    for (size_t i = 0; i < figures.size(); ++i) {
        row["figures"][i]["seconds"] = figures[i].seconds;
        row["figures"][i]["ratio"] = figures[i].ratio;
    }
    return row;
}

}  // namespace

json sizeRows(std::vector<PeerEntry>& peers, const Plan& plan, const std::string& folder) {
    json rows = json::array();
    for (const int keys : plan.sizes) {
        std::fprintf(stderr, "%d keys\n", keys);
        rows.push_back(sizeRow(peers, keys, plan, folder));
    }
    for (const PeerEntry& entry : peers)
        entry.peer->stop();
    return rows;
}

void holdOpen(std::vector<PeerEntry>& peers, const std::string& name) {
    for (const PeerEntry& entry : peers) {
        if (entry.name != name)
            continue;
        const std::unique_ptr<Client> client = entry.peer->connect();
        client->read(0, 1);
        if (write(STDOUT_FILENO, "+", 1) == 1)
            pause();
    }
}

#include "operations.h"

#include <unistd.h>

#include "device.h"

using nlohmann::json;

namespace {

using Clients = std::vector<std::unique_ptr<Client>>;

json readRow(std::vector<PeerEntry>& peers, const char* id, int count, Effort effort) {
    Clients clients;
    std::vector<Contestant> contestants;
    for (const PeerEntry& entry : peers) {
        clients.push_back(entry.peer->connect());
        contestants.push_back({entry.name, [&client = *clients.back(), count] { client.read(0, count); }});
    }
    return rowOf(id, measureRounds(contestants, effort));
}

// All ask for one key, then all take the answer.
json crowdRow(std::vector<PeerEntry>& peers, const char* id, int crowd, Effort effort) {
    std::vector<Clients> crowds;
    crowds.reserve(peers.size());
    std::vector<Contestant> contestants;
    for (const PeerEntry& entry : peers) {
        // The library has no halves of a request.
        if (!entry.isServer || entry.name == "ostrel library")
            continue;
        Clients& clients = crowds.emplace_back();
        for (int i = 0; i < crowd; ++i)
            clients.push_back(entry.peer->connect());
        contestants.push_back({entry.name, [&clients] {
                                   for (const auto& client : clients)
                                       client->ask(0);
                                   for (const auto& client : clients)
                                       client->take();
                               }});
    }
    std::vector<Figure> figures = measureRounds(contestants, effort);
    for (Figure& figure : figures)
        figure.seconds /= crowd;
    return rowOf(id, figures);
}

json connectRow(std::vector<PeerEntry>& peers, Effort effort) {
    std::vector<Contestant> contestants;
    for (const PeerEntry& entry : peers)
        contestants.push_back({entry.name, [&peer = *entry.peer] { peer.connect()->read(0, 1); }});
    return rowOf("connect", measureRounds(contestants, effort));
}

// What reaches the device for each commit; the file system's own journal is part of it.
void addDevice(json& row, const Clients& clients, int count, const Plan& plan) {
    for (size_t i = 0; i < clients.size(); ++i) {
        const std::function<void()> commit = committer(*clients[i], usualKeys, count);
        commit();
        sync();
        const std::optional<DeviceCounts> before = readDevice(plan.device);
        if (!before)
            return;
        for (int done = 0; done < plan.deviceCommits; ++done)
            commit();
        const std::optional<DeviceCounts> after = readDevice(plan.device);
        json& figure = row["figures"][i];
        figure["bytes"] =
            static_cast<double>(after->bytesWritten - before->bytesWritten) / plan.deviceCommits;
        figure["flushes"] = static_cast<double>(after->flushes - before->flushes) / plan.deviceCommits;
    }
}

json commitRow(std::vector<PeerEntry>& peers, const char* id, int count, const Plan& plan) {
    Clients clients;
    std::vector<Contestant> contestants;
    for (const PeerEntry& entry : peers) {
        clients.push_back(entry.peer->connect());
        contestants.push_back({entry.name, committer(*clients.back(), usualKeys, count)});
    }
    json row = rowOf(id, measureRounds(contestants, plan.commits));
    addDevice(row, clients, count, plan);
    return row;
}

}  // namespace

json rowOf(const char* id, const std::vector<Figure>& figures) {
    json row{{"id", id}, {"figures", json::array()}};
    for (const Figure& figure : figures)
        row["figures"].push_back(
            {{"peer", figure.name}, {"seconds", figure.seconds}, {"ratio", figure.ratio}});
    return row;
}

std::function<void()> committer(Client& client, int keys, int count) {
    return [&client, keys, count] {
        // Never the value that a key has: some peers see that nothing changes, and write nothing.
        static uint32_t number = 1000;
        ++number;
        const auto places = static_cast<uint32_t>(keys / count);
        client.commit(static_cast<int>(number % places) * count, count, number);
    };
}

json readRows(std::vector<PeerEntry>& peers, const Plan& plan) {
    json rows = json::array();
    rows.push_back(readRow(peers, "read1", 1, plan.reads));
    rows.push_back(readRow(peers, "read100", 100, plan.reads));
    rows.push_back(crowdRow(peers, "clients10", 10, plan.reads));
    rows.push_back(crowdRow(peers, "clients50", 50, plan.reads));
    rows.push_back(connectRow(peers, plan.reads));
    return rows;
}

json commitRows(std::vector<PeerEntry>& peers, const Plan& plan) {
    json rows = json::array();
    rows.push_back(commitRow(peers, "commit1", 1, plan));
    rows.push_back(commitRow(peers, "commit50", 50, plan));
    return rows;
}

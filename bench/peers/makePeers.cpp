#include <cstdio>

#include "ostrelPeer.h"
#include "peer.h"
#include "peerError.h"
#ifdef OSTREL_HAS_DCONF
#include "dconfPeer.h"
#endif
#ifdef OSTREL_HAS_LMDB
#include "lmdbPeer.h"
#endif
#ifdef OSTREL_HAS_REDIS
#include "redisPeer.h"
#endif
#ifdef OSTREL_HAS_SQLITE
#include "sqlitePeer.h"
#endif

void Client::ask(int) { throw PeerError("no request of its own"); }
void Client::take() { throw PeerError("no request of its own"); }

namespace {

void add(std::vector<PeerEntry>& peers, const char* name, const char* difference,
         std::unique_ptr<Peer> peer) {
    PeerEntry entry;
    entry.name = name;
    entry.difference = difference;
    entry.peer = std::move(peer);
    peers.push_back(std::move(entry));
}

[[maybe_unused]] void missing(const char* name) {
    std::fprintf(stderr, "%s is left out: its library was not there when this was built\n", name);
}

}  // namespace

std::vector<PeerEntry> makePeers([[maybe_unused]] const std::filesystem::path& folder) {
    std::vector<PeerEntry> peers;
    add(peers, "floor", "the bare echo server: no data; a commit is an append and fdatasync", makeEcho());
    add(peers, "ostrel", "three writes and three reads each way", makeOstrel());
    add(peers, "ostrel library", "the client library: a request is one write", makeOstrelLibrary());
#ifdef OSTREL_HAS_REDIS
    add(peers, "Redis", "no types, no plug-ins; one write and one read; keeps nothing on a commit",
        makeRedis(folder / "redis", false));
    peers.back().isDurable = false;
    add(peers, "Redis AOF", "the same, each commit appended and forced; no rollback",
        makeRedis(folder / "redisAof", true));
#else
    missing("Redis");
#endif
#ifdef OSTREL_HAS_SQLITE
    add(peers, "SQLite",
        "in the client's process; types of a column not enforced; no plug-ins; many processes may write",
        makeSqlite(folder / "sqlite"));
    peers.back().isServer = false;
#else
    missing("SQLite");
#endif
#ifdef OSTREL_HAS_LMDB
    add(peers, "LMDB", "in the client's process, reads from mapped memory; no types, no plug-ins",
        makeLmdb(folder / "lmdb"));
    peers.back().isServer = false;
#else
    missing("LMDB");
#endif
#ifdef OSTREL_HAS_DCONF
    add(peers, "dconf",
        "reads in the client's process; a service writes the whole file anew on each commit; watchers, no "
        "plug-ins",
        makeDconf(folder / "dconf"));
    peers.back().isServer = false;
    peers.back().mostKeys = 10000;
#else
    missing("dconf");
#endif
    return peers;
}

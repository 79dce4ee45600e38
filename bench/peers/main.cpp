// Measures ostrel side by side with other stores. Runs inside an appliance, see `make bench-peers`.
#include <sys/mount.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "bench/measure.h"
#include "operations.h"
#include "peerError.h"
#include "text/fixedPaths.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

Plan planOf(bool quick, const std::string& device) {
    if (quick)
        return {{5, 0.01}, {5, 0.02}, 20, {1000, 10000}, 1, device};
    return {{31, 0.05}, {31, 0.05}, 300, {10000, 100000, 1000000}, 3, device};
}

// The live file belongs on the same file system as what the peers store.
void prepareAppliance(const fs::path& programs, const fs::path& folder) {
    fs::create_directories(folder / "ostrel");
    if (mount((folder / "ostrel").c_str(), "/vemra/var", nullptr, MS_BIND, nullptr) != 0)
        throw PeerError("the folder for ostrel's files cannot be mounted");
    for (const auto& entry : fs::directory_iterator(pluginFolder))
        fs::remove(entry.path());
    fs::copy_file(programs / "idle.ostr", fs::path(pluginFolder) / "idle.ostr");
    fs::resize_file(templatesPath, 0);
}

json peersAsJson(const std::vector<PeerEntry>& peers) {
    json list = json::array();
    for (const PeerEntry& entry : peers)
        list.push_back(
            {{"name", entry.name}, {"difference", entry.difference}, {"durable", entry.isDurable}});
    return list;
}

void measure(std::vector<PeerEntry>& peers, const Plan& plan, const std::string& folder, const char* output) {
    for (const PeerEntry& entry : peers) {
        entry.peer->fill(usualKeys);
        entry.peer->start();
    }
    json result{{"peers", peersAsJson(peers)}, {"device", !plan.device.empty()}};
    std::fprintf(stderr, "reads\n");
    result["reads"] = readRows(peers, plan);
    std::fprintf(stderr, "commits\n");
    result["commits"] = commitRows(peers, plan);
    result["sizes"] = sizeRows(peers, plan, folder);
    std::ofstream(output) << result.dump(1) << '\n';
}

}  // namespace

// usage: ostrelBenchPeers FOLDER RESULT [DEVICE|-] [quick]: the folder for what is stored; the file that gets
// the figures as JSON; the folder's block device, when nothing else is on it.
int main(int argc, char** argv) {
    try {
        if (argc == 4 && std::strcmp(argv[1], "--hold") == 0) {
            std::vector<PeerEntry> peers = makePeers(argv[3]);
            holdOpen(peers, argv[2]);
            return 1;
        }
        if (argc < 4)
            throw PeerError("usage: ostrelBenchPeers FOLDER RESULT DEVICE|- [quick]");
        const std::string folder = argv[1];
        const std::string device = std::strcmp(argv[3], "-") == 0 ? "" : argv[3];
        prepareAppliance(fs::canonical("/proc/self/exe").parent_path(), folder);
        pinToOneProcessor();
        std::vector<PeerEntry> peers = makePeers(folder);
        measure(peers, planOf(argc > 4, device), folder, argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}

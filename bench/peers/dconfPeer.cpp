#include "dconfPeer.h"

#include <dconf.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "bench/subject.h"
#include "peerError.h"

namespace fs = std::filesystem;

namespace {

std::string pathOf(int key) { return "/bench/" + keyName(key); }

class DconfClient : public Client {
public:
    DconfClient() : client_(dconf_client_new()) {}
    ~DconfClient() override { g_object_unref(client_); }
    DconfClient(const DconfClient&) = delete;
    DconfClient& operator=(const DconfClient&) = delete;

    void read(int firstKey, int count) override {
        for (int i = firstKey; i < firstKey + count; ++i) {
            GVariant* value = dconf_client_read(client_, pathOf(i).c_str());
            if (value == nullptr)
                throw PeerError("dconf: no such key");
            sum_ += g_variant_get_uint32(value);
            g_variant_unref(value);
        }
    }
    void commit(int firstKey, int count, uint32_t value) override {
        DConfChangeset* changes = dconf_changeset_new();
        for (int i = firstKey; i < firstKey + count; ++i)
            dconf_changeset_set(changes, pathOf(i).c_str(), g_variant_new_uint32(value));
        const bool done = dconf_client_change_sync(client_, changes, nullptr, nullptr, nullptr) != 0;
        dconf_changeset_unref(changes);
        if (!done)
            throw PeerError("dconf: not written");
    }

private:
    DConfClient* client_;
    uint32_t sum_ = 0;
};

// The bus and the service are found by the environment, which the process reads once: one of these at most.
class Dconf : public Peer {
public:
    explicit Dconf(const fs::path& folder) : folder_(folder) {}

    void fill(int keys) override {
        stop();
        fs::remove_all(folder_);
        fs::create_directories(folder_ / "run");
        setenv("XDG_CONFIG_HOME", (folder_ / "config").c_str(), 1);
        setenv("XDG_RUNTIME_DIR", (folder_ / "run").c_str(), 1);
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + bus()).c_str(), 1);
        start();
        DconfClient().commit(0, keys, 7);
    }
    void start() override {
        if (bus_)
            return;
        const pid_t pid = fork();
        if (pid == 0) {
            const int log = open((folder_ / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            dup2(log, STDERR_FILENO);
            execl("/usr/bin/dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nosyslog",
                  ("--address=unix:path=" + bus()).c_str(), nullptr);
            _exit(127);
        }
        bus_.emplace(pid);
        for (int tries = 0; !fs::exists(bus()); ++tries) {
            if (tries == 4000)
                throw PeerError("dconf: its bus does not start");
            usleep(500);
        }
    }
    // The client library keeps its connection: the bus stays for as long as this process has one.
    void stop() override {}
    std::unique_ptr<Client> connect() override { return std::make_unique<DconfClient>(); }

private:
    std::string bus() const { return folder_.parent_path() / "dconf.bus"; }

    fs::path folder_;
    std::optional<Process> bus_;
};

}  // namespace

std::unique_ptr<Peer> makeDconf(const fs::path& folder) { return std::make_unique<Dconf>(folder); }

// Everything at once: good clients, hostile ones and crowds, plug-ins that fail, write, dawdle or end the
// daemon, killed and stopped daemons, hang-ups. OSTREL_SOAK_MINUTES says for how long; the normal run takes
// seconds.
//
// In the first half daemons come and go; the second belongs to one daemon, whose memory must stay flat.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <iomanip>
#include <iostream>
#include <random>
#include <thread>
#include <utility>

#include "daemon.h"
#include "goodClient.h"
#include "hostileClients.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr Seconds grownUp = 3s;     // a younger daemon is still growing
constexpr int writeConfWrites = 0;  // among the signals that end a daemon

Seconds lengthOfSoak() {
    const char* minutes = std::getenv("OSTREL_SOAK_MINUTES");
    return minutes != nullptr ? Seconds(60 * std::strtod(minutes, nullptr)) : 8s;
}

class Soak : public testing::Test {
protected:
    Soak() {
        daemon.factory(
            "echo Dword 0\n" + GoodClient::defaults(0) + GoodClient::defaults(1) + hostile::defaults(),
            GoodClient::templates() + hostile::templates());
        daemon.plugin("q", "");
        daemon.verbose = false;
        std::cout << "seed " << seed << '\n';
    }

    // Most plug-ins fail most of the time; none of that may reach a client.
    void changeScripts() {
        static const std::string scripts[] = {
            "",
            "writeConf throw\nrestart return 0\n",
            "restart throwNumber\ntrigger throw\n",
            "restart write echo 0 1\nrestart remove hall 9\n",
            "restart write echo 0 2\nrestart sleep 1\n",
            "writeConf sleep 20\ntrigger write echo 0 3\n",
            "trigger remove hall 9\ntrigger write none 0 3\ndie return 0\ninit fill h.list 900\n"};
        daemon.script("p", "watch *\n" + scripts[random() % std::size(scripts)]);
        daemon.script("q", "watch good*\ntriggerOn good0.*\n" + scripts[random() % std::size(scripts)]);
    }

    // From the start of a daemon to its end.
    void live(Seconds length, int end) {
        changeScripts();
        daemon.endsEarly = end == writeConfWrites;
        daemon.start();
        ++lives;
        const auto start = Clock::now();
        size_t memory = 0;
        int losses = 0;
        while (Clock::now() - start < length && !HasFailure()) {
            tick(length);
            if (memory == 0 && Clock::now() - start > std::min(length / 2, Seconds(1min))) {
                memory = daemon.usage().memory;
                losses = good[0].losses() + good[1].losses();
            }
        }
        // Long answers and crowds leave the heap as large as they once made it.
        if (length > grownUp && !HasFailure()) {
            EXPECT_TRUE(isSanitized || daemon.usage().memory <= memory + 4 * memorySlack);
            EXPECT_EQ(good[0].losses() + good[1].losses(), losses) << "a living daemon keeps its clients";
        }
        stallers.clear();  // what ends the daemon may be a good client's commit
        if (end == writeConfWrites)
            daemon.script("p", "writeConf write echo 0 4\n");
        else
            daemon.signal(end);
        EXPECT_EQ(daemon.wait(), end == SIGTERM ? 0 : end == SIGKILL ? -SIGKILL : 255);
    }

    void tick(Seconds longest) {
        std::this_thread::sleep_for(std::min(longest, Seconds(std::chrono::milliseconds(random() % 200))));
        changeScripts();
        daemon.calls();
        if (random() % 4 == 0)
            daemon.signal(SIGHUP);
        std::deque<Client> crowd;
        for (auto size = random() % 8 == 0 ? 500U : 0U; size > 0; --size)
            crowd.emplace_back(SOCK_NONBLOCK);
        if (Clock::now() - stalled > 1min) {
            stalled = Clock::now();
            stallers = hostile::stallers();
        }
        struct stat file {};
        stat("/vemra/var/ostrdb.txt", &file);
        rewrites += file.st_ino != std::exchange(inode, file.st_ino);
        if (Clock::now() - reported > 5s)
            report();
    }

    uint32_t commits() const { return good[0].committed() + good[1].committed(); }

    void report() {
        const Daemon::Usage usage = daemon.usage();
        const auto slowest = std::max(good[0].slowest(), good[1].slowest());
        EXPECT_LT(slowest, 3 * 5s + 3s);
        reported = Clock::now();
        std::cout << std::fixed << std::setprecision(0) << std::setw(6)
                  << Seconds(Clock::now() - begun).count() << " s  lives " << lives << "  commits "
                  << commits() << "  hostile " << sessions << "  slowest ms "
                  << Seconds(slowest).count() * 1000 << "  memory KiB " << usage.memory / 1024
                  << "  descriptors " << usage.descriptors << "  rewrites " << rewrites << std::endl;
    }

    const unsigned int seed = std::random_device{}();
    std::mt19937 random{seed};
    Daemon daemon;
    int lives = 0;
    int rewrites = 0;
    ino_t inode = 0;
    std::vector<Client> stallers;
    const Clock::time_point begun = Clock::now();
    Clock::time_point stalled = begun;
    Clock::time_point reported = begun;
    std::atomic<uint64_t> sessions = 0;
    GoodClient good[2] = {GoodClient(0, true), GoodClient(1, true)};
    std::jthread hostileClients{[this](const std::stop_token& stop) {
        for (std::mt19937 ownRandom(seed); !stop.stop_requested(); ++sessions) {
            hostile::randomSession(ownRandom);
            hostile::sendUrgently(hostile::sequence(2), ownRandom() % 200);
        }
    }};
};

TEST_F(Soak, NothingIsLostAndMemoryStaysFlat) {
    const Seconds length = lengthOfSoak();
    while (Clock::now() - begun < length / 2 && !HasFailure()) {
        constexpr int ends[] = {SIGKILL, SIGKILL, SIGTERM, writeConfWrites};
        const auto longest = random() % 8 == 0 ? 3000U : 200U;
        live(std::chrono::milliseconds(random() % longest), ends[random() % std::size(ends)]);
    }
    live(length / 2, SIGTERM);
    const uint32_t before = commits();
    daemon.start();
    EXPECT_TRUE(eventually([&] { return commits() > before + 10; }));
    EXPECT_TRUE(sessions > 0 && (rewrites > 1 || commits() < 1000));
    report();
    std::cout << (HasFailure() ? "FAILED" : "nothing lost") << ": " << commits() << " commits, " << sessions
              << " hostile sessions, " << lives << " lives, " << rewrites << " rewrites\n";
}

}  // namespace

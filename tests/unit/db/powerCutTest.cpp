// Every moment at which the power may go, with all that it may leave of the files; and every call that may
// fail.
#include <cerrno>
#include <climits>

#include "common/ostrelUtils.h"
#include "simulatedDisk.h"
#include "testStore.h"

namespace {

constexpr char liveFile[] = "/vemra/var/live.txt";
constexpr char keys[] = "a b v[1] v[2] wifi.ssid[1] wifi.ssid[2] wifi.ssid[3] wifi@7 big z";

// The store's life, as steps of which each is one transaction or one start.
class Workload : public TestStore {
public:
    Workload() {
        ostrelSetPrintLevel(0);
        simulatedDisk = &disk;
        disk.write("/defaults", "a Dword 1\nb Dword 2\nv[1] Dword 1\nbig String \"\"\nz Dword 0\n");
        disk.write("/templates", "[wlan]\nssid String \"home\"\n");
    }
    ~Workload() {
        simulatedDisk = &disk;
        db.reset();
        simulatedDisk = outer_;
        ostrelSetPrintLevel(7);
    }
    Workload(const Workload&) = delete;
    Workload& operator=(const Workload&) = delete;

    void start() {
        hasStarted = true;
        static const ostrelDbCfg cfg{};
        db.reset();
        db = std::make_unique<store::Database>(&cfg, store::Paths{"/defaults", liveFile, "/templates"},
                                               simulatedFiles);
    }
    std::string state() const { return values(keys); }
    bool setBig(size_t size) { return put("big", 0, std::string(size, 'x') + '\0', ostrelTypeString); }
    void startOn(const std::string& live) {
        db.reset();
        disk.write(liveFile, live);
        start();
    }

    // False: refused.
    using Step = std::function<bool(Workload&)>;
    static const std::vector<Step>& steps();

    SimulatedDisk disk;
    bool hasStarted = false;

private:
    SimulatedDisk* const outer_ = simulatedDisk;
};

const std::vector<Workload::Step>& Workload::steps() {
    static const std::vector<Step> steps = {
        [](Workload& w) { return w.start(), true; },
        [](Workload& w) { return w.set("a", 5) && w.set("b", 6) && w.commit(); },
        [](Workload& w) {
            const unsigned int key = w.make("wlan", "wifi", 7);
            return key != 0 && w.put("wifi.ssid", key, std::string("net\0", 4), ostrelTypeString) &&
                   w.commit();
        },
        [](Workload& w) { return w.set("v", 3, 2) && w.erase("a") && w.remove("v", {1}) && w.commit(); },
        // Several sectors at once.
        [](Workload& w) {
            return w.setBig(600) && w.set("b", 7) && w.make("wlan", "wifi", 7) != 0 && w.commit();
        },
        [](Workload& w) { return w.remove("wifi", {1}) && w.commit(); },
        [](Workload& w) { return w.start(), true; },
        // What a crash leaves, what damage leaves, and a file that someone put in its place.
        [](Workload& w) { return w.startOn(w.disk.read(liveFile) + "a Dword 9\nb"), true; },
        [](Workload& w) { return w.set("a", 6) && w.commit(); },
        [](Workload& w) { return w.startOn(w.disk.read(liveFile) + "a Dword 9\n@commit 7\n"), true; },
        [](Workload& w) { return w.set("a", 7) && w.commit(); },
        [](Workload& w) {
            return w.disk.write(liveFile, w.disk.read(liveFile)), w.set("a", 8) && w.commit();
        },
        // The last of these finds most of the file superseded.
        [](Workload& w) { return w.setBig(22000) && w.commit(); },
        [](Workload& w) { return w.setBig(22001) && w.commit(); },
        [](Workload& w) { return w.setBig(22002) && w.commit(); },
        [](Workload& w) { return w.setBig(22003) && w.commit(); },
        [](Workload& w) { return w.setBig(10) && w.commit(); },
        [](Workload& w) { return w.set("a", 9) && w.commit(); }};
    return steps;
}

// Reopens what was left. Expects one of two states, a commit that works, and that the next start finds it.
void expectEither(const SimulatedDisk& left, const std::string& before, const std::string& after) {
    Workload reopened;
    reopened.disk = left;
    reopened.start();
    const std::string state = reopened.state();
    EXPECT_TRUE(state == before || state == after) << state << "\nneither " << before << "\nnor " << after;
    EXPECT_TRUE(reopened.set("z", 42) && reopened.commit());
    const std::string next = reopened.state();
    reopened.start();
    EXPECT_TRUE(reopened.state() == next && contains(next, "42")) << next;
}

TEST(PowerCut, LeavesTheStateBeforeOrAfterTheTransaction) {
    std::vector<std::string> states = {""};
    Workload plan;
    for (const Workload::Step& step : Workload::steps()) {
        ASSERT_TRUE(step(plan)) << states.size();
        states.push_back(plan.state());
    }
    Workload workload;
    int cuts = 0;
    size_t step = 0;
    workload.disk.beforeForce = [&] {
        if (testing::Test::HasFailure())
            return;
        const std::string& before = step == 0 ? states[1] : states[step];
        workload.disk.forEachCut([&](const SimulatedDisk& left) {
            ++cuts;
            if (!testing::Test::HasFailure())
                expectEither(left, before, states[step + 1]);
        });
        EXPECT_FALSE(testing::Test::HasFailure()) << "in step " << step;
    };
    for (; step < Workload::steps().size() && !testing::Test::HasFailure(); ++step)
        ASSERT_TRUE(Workload::steps()[step](workload));
    EXPECT_GT(cuts, 2000);
    std::cout << cuts << " cuts\n";
}

void expectDurable(const SimulatedDisk& disk, const std::string& state) {
    disk.forEachCut([&](const SimulatedDisk& left) {
        Workload reopened;
        reopened.disk = left;
        reopened.start();
        EXPECT_EQ(reopened.state(), state);
    });
}

// A step during which calls fail; then the disk works again.
void expectRecovery(Workload& workload, const Workload::Step& step, const std::string& before) {
    SimulatedDisk& disk = workload.disk;
    const bool isDone = step(workload);
    disk.first = disk.last = 0;
    // What could not be read at a start is read at the next.
    if (workload.hasStarted)
        workload.start();
    EXPECT_TRUE(before.empty() || (isDone && !workload.hasStarted) || workload.state() == before)
        << workload.state() << "\nis not " << before;
    workload.db->dataWriteRollback(workload.handle());
    const std::string kept = workload.state();
    if (isDone && !workload.hasStarted)
        expectDurable(disk, kept);
    EXPECT_TRUE(workload.set("z", 42) && workload.commit());
    const std::string last = kept.substr(0, kept.rfind(' ')) + " 42";
    expectDurable(disk, last);
    workload.start();
    EXPECT_EQ(workload.state(), last);
}

// Each call of each step, and all from it on.
TEST(FailingCalls, LoseNothingAndPass) {
    int reached = 0;
    for (int error : {ENOSPC, EIO, EROFS}) {
        for (bool isLasting : {false, true}) {
            const std::vector<Workload::Step>& steps = Workload::steps();
            for (size_t number = 0; number < steps.size(); ++number) {
                bool isReached = true;
                for (int call = 1; isReached && !testing::Test::HasFailure(); ++call) {
                    SCOPED_TRACE("step " + std::to_string(number) + " call " + std::to_string(call));
                    Workload workload;
                    for (size_t i = 0; i < number; ++i)
                        steps[i](workload);
                    workload.hasStarted = false;
                    SimulatedDisk& disk = workload.disk;
                    const std::string before = workload.db ? workload.state() : "";
                    disk.first = disk.calls + call;
                    disk.last = isLasting ? INT_MAX : disk.first;
                    disk.error = error;
                    expectRecovery(workload, steps[number], before);
                    isReached = disk.hasFailed;
                    reached += isReached ? 1 : 0;
                }
            }
        }
    }
    EXPECT_GT(reached, 500);
    std::cout << reached << " failures\n";
}

}  // namespace

// Every moment at which the power may go, with all that it may leave of the files; and every call that may
// fail.
#include <cerrno>
#include <climits>

#include "testStore.h"

namespace {

constexpr char keys[] = "a b v[1] v[2] wifi.ssid[1] wifi.ssid[2] wifi.ssid[3] wifi@7 text z";

// The store's life, as steps of which each is one transaction or one start.
struct Workload : TestStore {
    Workload() {
        ostrelSetPrintLevel(0);
        defaults = "a Dword 1\nb Dword 2\nv[1] Dword 1\ntext String \"\"\nz Dword 0\n";
        templates = "[wlan]\nssid String \"home\"\n";
    }
    std::string state() const { return values(keys); }
    bool putText(const std::string& name, const std::string& text, unsigned int index = 0) {
        return put(name, index, {text, ostrelTypeString});
    }
    std::string whole() const { return disk.read(liveFile); }
    // Takes all of the room but so many bytes.
    bool fill(size_t left) {
        // Of which a commit with a text of 1,000 bytes takes so many.
        const size_t taken =
            std::string("text String \"\"\n@commit 10 2027-01-15T08:00:00Z 1015 00000000\n").size();
        const size_t room = whole().size() - live().size();
        return room > taken + left && putText("text", std::string(room - taken - left, 'f')) && commit() &&
               whole().ends_with('\n');
    }
    bool startOn(const std::string& live) {
        db.reset();
        disk.write(liveFile, live);
        start();
        return true;
    }

    bool isGone = false;  // not by the store
};

// False: refused.
using Step = std::function<bool(Workload&)>;
const std::vector<Step> steps = {
    [](Workload& w) { return w.start(), true; },
    [](Workload& w) { return w.set("a", 5) && w.set("b", 6) && w.commit(); },
    [](Workload& w) {
        return w.make("wlan", "wifi", 7) == 1 && w.putText("wifi.ssid", "net", 1) && w.commit();
    },
    [](Workload& w) { return w.set("v", 3, 2) && w.erase("a") && w.remove("v", {1}) && w.commit(); },
    // Several sectors at once.
    [](Workload& w) {
        return w.putText("text", std::string(900, 'x')) && w.set("b", 7) && w.make("wlan", "wifi", 7) != 0 &&
               w.commit();
    },
    [](Workload& w) { return w.putText("text", "") && w.remove("wifi", {1}) && w.commit(); },
    [](Workload& w) { return w.start(), true; },
    // What a crash leaves, what damage leaves, and a file that someone put in its place.
    [](Workload& w) { return w.startOn(w.whole() + "a Dword 9\nb"); },
    [](Workload& w) { return w.set("a", 6) && w.commit(); },
    [](Workload& w) { return w.startOn(w.whole() + "a Dword 9\n@commit 7\n"); },
    [](Workload& w) { return w.startOn(w.damaged(w.whole())); },
    [](Workload& w) { return w.set("a", 7) && w.commit(); },
    [](Workload& w) { return w.disk.write(liveFile, w.whole()), w.set("a", 8) && w.commit(); },
    // Most of the file is superseded.
    [](Workload& w) { return w.startOn(w.padded()); },
    [](Workload& w) { return w.putText("text", "short") && w.commit(); },
    [](Workload& w) { return w.set("a", 9) && w.commit(); },
    // An editor took the last line break, of the room and of a transaction; then the room's blanks are there.
    [](Workload& w) { return w.startOn(w.whole().substr(0, w.whole().size() - 1)); },
    [](Workload& w) { return w.set("a", 20) && w.commit(); },
    [](Workload& w) { return w.startOn(w.live().substr(0, w.live().size() - 1)); },
    [](Workload& w) { return w.set("a", 21) && w.commit(); },
    [](Workload& w) {
        return w.startOn(w.live().substr(0, w.live().size() - 1) + std::string(1000, ' ') + '\n');
    },
    [](Workload& w) { return w.set("a", 22) && w.commit(); },
    // To the room's end, and over it by one byte and by many.
    [](Workload& w) { return w.fill(2); }, [](Workload& w) { return w.set("a", 10) && w.commit(); },
    [](Workload& w) { return w.fill(1); }, [](Workload& w) { return w.startOn(w.live() + "#    \n"); },
    [](Workload& w) { return w.putText("text", "over") && w.commit(); },
    // Full of what is superseded, with room for a copy of the rest.
    [](Workload& w) { return w.startOn(w.padded()); },
    [](Workload& w) {
        w.disk.capacity = w.disk.usedBytes() + 1200;
        const bool isDone = w.putText("text", std::string(1500, 'y')) && w.commit();
        w.disk.capacity = SIZE_MAX;
        return isDone;
    },
    // Someone removed the folder, lock and all.
    [](Workload& w) {
        w.isGone = true;
        w.disk.removeFolder("/vemra/var");
        w.isGone = !(w.set("a", 11) && w.commit());
        return !w.isGone;
    },
    // New firmware: what it does not allow is kept beside the file.
    [](Workload& w) {
        w.defaults.replace(w.defaults.find("text String"), 14, "text Dword 7");
        return w.startOn(w.padded());
    },
    [](Workload& w) { return w.set("a", 12) && w.commit(); }};

// What each step leaves when all goes well.
struct Stage {
    std::string state;
    std::string defaults;
    SimulatedDisk disk;
};
const std::vector<Stage>& stages() {
    static const std::vector<Stage> result = [] {
        std::vector<Stage> made;
        Workload workload;
        for (const Step& step : steps) {
            EXPECT_TRUE(step(workload)) << made.size();
            workload.disk.forEachCut([&](const SimulatedDisk& left) {
                made.push_back({workload.state(), workload.defaults, left});
            });
        }
        EXPECT_EQ(made.size(), steps.size()) << "all is durable";
        return made;
    }();
    return result;
}

// Reopens what was left. Expects one of two states, a commit that works, and that the next start finds it.
void expectEither(const SimulatedDisk& left, const std::string& before, const std::string& after,
                  const std::string& defaults) {
    Workload reopened;
    reopened.disk = left;
    reopened.defaults = defaults;
    reopened.start();
    const std::string state = reopened.state();
    EXPECT_TRUE(state == before || state == after) << state << "\nneither " << before << "\nnor " << after;
    EXPECT_TRUE(reopened.set("z", 42) && reopened.commit());
    const std::string next = reopened.state();
    reopened.start();
    EXPECT_TRUE(reopened.state() == next && contains(next, "42")) << next;
}

// Sanitizers make a start so slow that only a sample of all cuts is tried.
bool isSpared() {
    static int cuts = 0;
    return isSanitized && ++cuts % 37 != 0;
}

// A cut is not called damage.
void expectNoDamage(const SimulatedDisk& left) {
    EXPECT_NE(store::scanLog(left.read(liveFile)).end, store::LogScan::End::damaged) << left.read(liveFile);
}

TEST(PowerCut, LeavesTheStateBeforeOrAfterTheTransaction) {
    Workload workload;
    int cuts = 0;
    size_t step = 0;
    int starts = 0;  // before the step
    workload.disk.beforeForce = [&] {
        workload.disk.forEachCut([&](const SimulatedDisk& left) {
            ++cuts;
            if (testing::Test::HasFailure() || workload.isGone || isSpared())
                return;
            expectEither(left, stages()[step == 0 ? 0 : step - 1].state, stages()[step].state,
                         workload.defaults);
            if (workload.starts == starts)
                expectNoDamage(left);
        });
    };
    for (; step < steps.size() && !testing::Test::HasFailure(); ++step) {
        starts = workload.starts;
        ASSERT_TRUE(steps[step](workload));
    }
    EXPECT_FALSE(testing::Test::HasFailure()) << "in step " << step - 1;
    EXPECT_GT(cuts, 2000);
    std::cout << cuts << " cuts\n";
}

void expectDurable(const Workload& workload, const std::string& state) {
    workload.disk.forEachCut(
        [&](const SimulatedDisk& left) { expectEither(left, state, state, workload.defaults); });
}

void expectCutsLeave(const Workload& workload, const std::string& before, const std::string& after) {
    workload.disk.forEachCut([&](const SimulatedDisk& left) {
        if (!isSpared())
            expectEither(left, before, after, workload.defaults);
    });
}

std::string withZ(const std::string& state, int z) {
    return state.substr(0, state.rfind(' ') + 1) + std::to_string(z);
}

// The system has the transaction, and the next daemon reads it as it does any other.
TEST(PowerCut, LeavesWhatAKilledDaemonHadNotForced) {
    struct Killed {};
    Workload workload;
    workload.start();
    EXPECT_TRUE(workload.set("a", 5) && workload.commit() && workload.set("a", 6));
    workload.disk.beforeForce = [] { throw Killed(); };
    EXPECT_THROW(workload.commit(), Killed);
    workload.disk.beforeForce = nullptr;
    workload.db.reset();
    workload.start();
    const std::string state = workload.state();
    EXPECT_TRUE(state.starts_with('6')) << state;
    expectDurable(workload, state);
    workload.disk.beforeForce = [&] { workload.disk.forEachCut(expectNoDamage); };
    EXPECT_TRUE(workload.set("b", 7) && workload.commit());
}

// A step during which calls fail; then the disk works again. True when one failed.
constexpr int all = INT_MAX;
bool recovers(size_t number, int call, int failures, int error) {
    Workload workload;
    if (number != 0) {
        // A copy of its own.
        stages()[number - 1].disk.forEachCut([&](const SimulatedDisk& left) { workload.disk = left; });
        workload.defaults = stages()[number - 1].defaults;
        workload.start();
    }
    const std::string before = workload.db ? workload.state() : "";
    const int starts = workload.starts;
    const bool isLasting = failures == all;
    workload.disk.mostMixes = isSanitized ? 2 : 8;
    SimulatedDisk::Faults& faults = workload.disk.faults;
    faults = {.first = call, .last = isLasting ? all : call + failures - 1, .error = error};
    const bool isDone = steps[number](workload);
    const bool hasFailed = faults.hasFailed();
    faults = {};
    const bool hasStarted = workload.starts != starts;
    // Of a long file each cut costs too much.
    const auto isShort = [&] { return workload.whole().size() < 20000; };
    // What was refused does not come back, unless nothing works any more.
    if (!isDone && !hasStarted && !isLasting && !workload.isGone && isShort())
        expectDurable(workload, before);
    std::string expected = hasStarted ? stages()[number].state : before;
    if (hasStarted) {
        // What could not be read is read at the next start, whether or not a commit came before.
        if (!isLasting && workload.set("z", 41) && workload.commit())
            expected = withZ(expected, 41);
        workload.start();
    }
    EXPECT_TRUE(before.empty() || (isDone && !hasStarted) || workload.state() == expected)
        << workload.state() << "\nis not " << expected;
    workload.db->dataWriteRollback(workload.handle());
    const std::string kept = workload.state();
    if (isDone && !hasStarted && isShort())
        expectDurable(workload, kept);
    // The number of what was refused is used again.
    const std::string last = withZ(kept, 42);
    workload.disk.beforeForce = [&] {
        if (!testing::Test::HasFailure() && !isLasting && !workload.isGone && isShort())
            expectCutsLeave(workload, kept, last);
    };
    EXPECT_TRUE(workload.set("z", 42) && workload.commit());
    workload.disk.beforeForce = nullptr;
    expectDurable(workload, last);
    workload.start();
    EXPECT_EQ(workload.state(), last);
    return hasFailed;
}

// Each call of each step, and all from it on.
TEST(FailingCalls, LoseNothingAndPass) {
    int reached = 0;
    for (const int error : {ENOSPC, EIO, EROFS}) {
        if (isSanitized && error != EIO)
            continue;
        for (const int failures : {1, 2, all}) {
            if (failures == 2 && error != EIO)
                continue;
            for (size_t number = 0; number < steps.size(); ++number) {
                for (int call = 1; !testing::Test::HasFailure(); call += isSanitized ? 7 : 1) {
                    SCOPED_TRACE("step " + std::to_string(number) + " call " + std::to_string(call));
                    if (!recovers(number, call, failures, error))
                        break;
                    ++reached;
                }
            }
        }
    }
    EXPECT_GT(reached, isSanitized ? 200 : 2000);
    std::cout << reached << " failures\n";
}

}  // namespace

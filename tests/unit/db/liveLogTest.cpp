// The live file: what a transaction and a rewrite put into it, and what becomes of it after damage.
#include <cerrno>

#include "db/room.h"
#include "testStore.h"

namespace {

class LiveLog : public testing::Test, protected TestStore {
protected:
    LiveLog() {
        defaults = "a Dword 0\nb Dword 0\nv[1] Dword 10\ns[1] instance t 0\n";
        templates = "[t]\nm Dword 5\n";
        open();
    }
    // The file's size after a commit of a and b.
    size_t commitPair(uint32_t number) {
        EXPECT_TRUE(set("a", number) && set("b", number) && commit());
        return live().size();
    }
};

TEST_F(LiveLog, ADamagedFileIsKeptAndTheTransactionsBeforeTheDamageCount) {
    const size_t begin = commitPair(1);
    const size_t end = commitPair(2);
    commitPair(3);
    const std::string whole = live();
    const std::string torn = openOn(whole + "a Dword 4\n@comm");
    EXPECT_EQ(live(), whole);
    EXPECT_TRUE(contains(torn, std::string(liveFile) + ":11: an unfinished transaction is cut off\n"))
        << torn;
    std::string damaged;
    std::string kept;
    const auto expectNoneLost = [&] {
        disk.forEachCut([&](const SimulatedDisk& left) {
            EXPECT_TRUE(left.read(liveFile) == damaged || left.read(kept) == damaged);
        });
    };
    // What stands behind a closing line, in place of its line break, costs that transaction nothing. The last
    // transaction may have been acknowledged, or left by a power cut: nobody can tell.
    for (size_t at = begin; at < whole.size() - 1; ++at) {
        const bool isLast = at >= end;
        damaged = whole + (at % 3 == 0 ? store::makeRoom(600) : "");
        damaged[at] = static_cast<char>(damaged[at] ^ 1);
        kept = liveFile + (isLast ? ".torn" : ".damaged-" + std::to_string(at - begin + 1));
        disk.hasLinks = at % 2 != 0;  // else it is copied
        disk.beforeForce = at < begin + 2 ? std::function<void()>(expectNoneLost) : nullptr;
        const std::string log = openOn(damaged);
        ASSERT_TRUE(contains(log, " is kept as " + kept + '\n')) << log;
        ASSERT_EQ(disk.read(kept), isLast ? damaged.substr(end) : damaged);
        for (int restart = 0; restart < 2; ++restart) {
            ASSERT_EQ(values("a b"), at < end - 1 ? "1 1" : "2 2") << at;
            ASSERT_EQ(open(), "");
        }
    }
}

TEST_F(LiveLog, ATransactionSaysItsNetChangeAndARewriteAllChanges) {
    size_t size = live().size();
    EXPECT_TRUE(commit() && live().size() == size) << "nothing to say";
    EXPECT_TRUE(set("b", 7) && set("a", 5) && set("a", 6) && set("v", 3, 3) && set("v", 2, 2) &&
                remove("v", {3}) && make("t", "s") == 2 && make("t", "s", 0x62) == 3 && set("s.m", 9, 2) &&
                set("s.m", 8, 3) && remove("s", {3, 1}) && commit());
    EXPECT_EQ(live().substr(size, live().find('@', size) - size),
              "s last 3\ns[1] removed # default\ns[2] instance t 0\na Dword 6\nb Dword 7\ns[2].m Dword 9\n"
              "v[2] Dword 2\n");
    size = live().size();
    EXPECT_TRUE(set("a", 7) && set("a", 6) && erase("b") && set("b", 7) && commit() && live().size() == size)
        << "as committed already";
    EXPECT_TRUE(set("a", 0) && erase("b") && commit());
    EXPECT_GT(live().size(), size) << "the user's choice of a default is a change";
    disk.write(liveFile, "precious");
    const std::string log = outputOf([this] { EXPECT_TRUE(set("v", 3, 3) && commit()); });
    EXPECT_TRUE(contains(log, "is not as it was left (changed by someone else)")) << log;
    EXPECT_EQ(disk.read(std::string(liveFile) + ".damaged-1"), "precious") << log;
    EXPECT_TRUE(
        live().starts_with("s[1] removed # default\ns last 3\ns[2] instance t 0\na Dword 0\n"
                           "b erased # default\ns[2].m Dword 9\nv[2] Dword 2\n@commit 4 "))
        << live();
    EXPECT_TRUE(contains(live(), "\nv[3] Dword 3\n@commit 5 ")) << live();
}

TEST_F(LiveLog, ACommitForcesOneWriteAndRepeatsInterruptedCalls) {
    commitPair(1);
    disk.faults = {};
    commitPair(2);
    EXPECT_EQ(disk.faults.forced, 1);
    const int calls = disk.faults.calls;
    for (int call = 3; call <= calls; ++call) {  // the first two look whose files these are
        disk.faults = {.first = call, .last = call, .error = EINTR};
        commitPair(2 + static_cast<uint32_t>(call));
        EXPECT_EQ(disk.faults.calls, calls + 1) << "once more, and no rewrite";
    }
    EXPECT_EQ(open(), "");
    // What could not be synced may be lost although a later sync succeeds: the file is written anew, at once.
    disk.faults = {.first = 4, .last = 4, .error = EIO};  // after the looks and the write
    outputOf([this] { EXPECT_TRUE(set("a", 1) && !commit()); });
    EXPECT_EQ(disk.faults.forced, 4) << "the commit, the cut, the new file, its directory";
    disk.faults = {};
    commitPair(1);
    EXPECT_EQ(disk.faults.forced, 1);
}

TEST_F(LiveLog, ACommitGoesIntoTheRoomAndTheOneThatPassesItsEndMakesTheNext) {
    const auto room = [this] { return disk.read(liveFile).size() - live().size(); };
    int changes = 0;  // of the file's size
    for (uint32_t number = 1; number <= 200; ++number) {
        const size_t size = disk.read(liveFile).size();
        commitPair(number);
        changes += disk.read(liveFile).size() == size ? 0 : 1;
        ASSERT_TRUE(!contains(live(), "#") && room() > 0) << "one room, at the end";
    }
    EXPECT_LE(changes, 5) << "of 4 KiB each";
    defaults += "text String \"\"\n";
    const std::string written = live();
    EXPECT_EQ(openOn(written), "");
    EXPECT_EQ(room(), 0U) << "a start makes none";
    EXPECT_TRUE(put("text", 0, {std::string(8000, 'x'), ostrelTypeString}) && commit());
    EXPECT_TRUE(room() == 65536) << "where transactions are large";
    openOn(written);
    disk.capacity = disk.usedBytes() + 300;
    EXPECT_EQ(outputOf([this] { commitPair(1), commitPair(2); }), "");
    EXPECT_EQ(room(), 0U) << "on a full disk";
    disk.capacity = SIZE_MAX;
    commitPair(3);
    // What a hand wrote behind it is noticed, and kept.
    const std::string edited = disk.read(liveFile) + "a Dword 9\n";
    disk.change(liveFile, edited);
    outputOf([this] { commitPair(4); });
    EXPECT_EQ(disk.read(std::string(liveFile) + ".damaged-1"), edited);
    // A room in the middle is read over.
    std::string later = "a Dword 8\n";
    store::closeTransaction(later, store::scanLog(live()).lastNumber + 1, 0);
    EXPECT_EQ(openOn(disk.read(liveFile) + later + disk.read(liveFile).substr(live().size())), "");
    commitPair(5);
    EXPECT_EQ(open() + values("a b"), "5 5");
    // A power cut left the blanks where a line break should be.
    EXPECT_EQ(openOn(live().substr(0, live().size() - 1) + std::string(900, ' ') + '\n'), "");
    const size_t size = disk.read(liveFile).size();
    commitPair(6);
    EXPECT_TRUE(disk.read(liveFile).size() == size && !contains(live(), "  \na Dword 6")) << live();
    EXPECT_EQ(open() + values("a b"), "6 6");
}

TEST_F(LiveLog, ALongFileIsRewrittenWhenMostOfItsLinesAreSuperseded) {
    for (unsigned int key = 2; key <= 41; ++key)
        EXPECT_TRUE(make("t", "s") == key && commit());
    openOn(padded());  // 110 lines, of which the 40 instances and their last key count
    disk.capacity = disk.usedBytes() + 200;
    EXPECT_TRUE(contains(outputOf([this] { commitPair(1); }), "cannot write")) << "no room for the new one";
    EXPECT_EQ(outputOf([this] { commitPair(2); }), "") << "not tried at every commit";
    disk.capacity = SIZE_MAX;
    openOn(padded());
    commitPair(3);
    EXPECT_LT(live().size(), 2000U);
}

}  // namespace

// The live file: what a transaction and a rewrite put into it, and what becomes of it after crashes and
// damage.
#include <cerrno>

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
    std::string openOn(const std::string& text) {
        db.reset();
        write(livePath(), text);
        return open();
    }
};

TEST_F(LiveLog, ADamagedFileIsKeptAndTheTransactionsBeforeTheDamageCount) {
    const size_t begin = commitPair(1);
    const size_t end = commitPair(2);
    commitPair(3);
    const std::string whole = live();
    // The last transaction was acknowledged, too: only what an append can leave counts as torn.
    for (size_t at = begin; at < whole.size(); ++at) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 1);
        const std::string log = openOn(damaged);
        const std::string name = livePath() + ".damaged-" + std::to_string(at - begin + 1);
        ASSERT_TRUE(contains(log, livePath() + " is kept as " + name + '\n')) << log;
        ASSERT_EQ(read(name), damaged);
        for (int restart = 0; restart < 2; ++restart) {
            ASSERT_EQ(values("a b"), at < end ? "1 1" : "2 2") << at;
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
    EXPECT_EQ(
        live().substr(size, live().find('@', size) - size),
        "s last 3\ns[1] removed\ns[2] instance t 0\na Dword 6\nb Dword 7\ns[2].m Dword 9\nv[2] Dword 2\n");
    size = live().size();
    EXPECT_TRUE(set("a", 7) && set("a", 6) && erase("b") && set("b", 7) && commit() && live().size() == size)
        << "as committed already";
    EXPECT_TRUE(set("a", 0) && erase("b") && commit());
    EXPECT_GT(live().size(), size) << "the user's choice of a default is a change";
    write(livePath() + ".foreign", "precious");
    std::filesystem::rename(livePath() + ".foreign", livePath());
    const std::string log = outputOf([this] { EXPECT_TRUE(set("v", 3, 3) && commit()); });
    EXPECT_TRUE(contains(log, "is not as it was left")) << log;
    EXPECT_EQ(read(livePath() + ".damaged-1"), "precious") << log;
    EXPECT_TRUE(
        live().starts_with("s[1] removed\ns last 3\ns[2] instance t 0\na Dword 0\nb erased\n"
                           "s[2].m Dword 9\nv[2] Dword 2\n@commit 4 "))
        << live();
    EXPECT_TRUE(contains(live(), "\nv[3] Dword 3\n@commit 5 ")) << live();
}

TEST_F(LiveLog, ACommitForcesOneWriteAndRepeatsInterruptedCalls) {
    commitPair(1);
    faults = {};
    commitPair(2);
    EXPECT_EQ(faults.forced, 1);
    const int calls = faults.calls;
    for (int call = 2; call <= calls; ++call) {  // the first looks whose file it is and cannot be interrupted
        faults = {.first = call, .last = call, .error = EINTR};
        commitPair(2 + static_cast<uint32_t>(call));
    }
    // What could not be synced may be lost although a later sync succeeds: the file is written anew.
    faults = {.first = 3, .last = 3, .error = EIO};  // after stat and write
    outputOf([this] { EXPECT_TRUE(set("a", 1) && !commit()); });
    faults = {};
    commitPair(1);
    EXPECT_EQ(faults.forced, 3) << "the new file, its directory, the commit";
}

TEST_F(LiveLog, ADamagedFileIsCopiedWhereLinksAreNotSupported) {
    store::FileCalls noLinks = faultyFiles;
    noLinks.link = [](const char*, const char*) {
        errno = EPERM;
        return -1;
    };
    files = &noLinks;
    openOn("@commit 1\n");
    EXPECT_EQ(read(livePath() + ".damaged-1"), "@commit 1\n");
    commitPair(1);
    EXPECT_EQ(open(), "");
    db.reset();  // before noLinks
}

}  // namespace

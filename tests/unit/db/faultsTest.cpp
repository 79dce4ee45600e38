// Every file call fails in turn: what was acknowledged stays, what was refused does not come back, and it
// works again.
#include <cerrno>

#include "testStore.h"

namespace {

// Commits write a number under a key of their own and under some that all share, and a text so long that the
// third commit has the file rewritten.
class FaultyStore : public TestStore {
public:
    FaultyStore() { mayCreate = true; }

    void commitOne(int number) {
        for (int shared = 0; shared < 8; ++shared)
            ASSERT_TRUE(set("shared" + std::to_string(shared), static_cast<uint32_t>(number)));
        ASSERT_TRUE(set("own" + std::to_string(number), static_cast<uint32_t>(number)));
        ASSERT_TRUE(setText("text", std::string(25000, 'x')));
        (commit() ? acknowledged : refused).push_back(number);
        // Cut off at once, not only before the next commit.
        if (faults.first == faults.last && !refused.empty() && refused.back() == number) {
            EXPECT_FALSE(contains(live(), "own" + std::to_string(number) + ' '));
        }
    }

    // The whole of each commit, or nothing of it. mayHave: one more that may be there.
    void check(int mayHave = 0) {
        int last = 0;
        for (int number = 1; number < 10; ++number) {
            const bool isThere = get("own" + std::to_string(number)) == std::to_string(number);
            const bool isExpected = std::ranges::find(acknowledged, number) != acknowledged.end();
            EXPECT_TRUE(isThere == isExpected || number == mayHave) << "commit " << number;
            last = isThere ? number : last;
        }
        for (int shared = 0; shared < 8; ++shared)
            EXPECT_EQ(get("shared" + std::to_string(shared)), std::to_string(last));
    }

    // Puts a file into place, whole or with its second transaction torn or damaged, then starts on it and
    // commits.
    void run(const std::string& kind, Faults failing) {
        open();
        commitOne(1);
        const size_t size = live().size();
        commitOne(2);
        db.reset();
        std::string text = live();
        if (kind == "torn")
            text.resize(size + 5);
        if (kind == "damaged")
            text[size + 5] = '?';
        if (kind != "whole")
            acknowledged.pop_back();
        write(livePath(), text);
        faults = failing;
        wasRead = !contains(open(), "nothing can be committed until a restart");
        outputOf([this] {
            for (int number = 3; number < 8; ++number)
                commitOne(number);
            if (wasRead)
                check();
        });
        wasReached = faults.calls >= failing.first;
        faults = {};
    }

    bool wasRead = true;     // the live file, at the start
    bool wasReached = true;  // the first call that was to fail
    std::vector<int> acknowledged;
    std::vector<int> refused;
};

class Faulty : public testing::TestWithParam<std::tuple<const char*, int, bool>> {};

TEST_P(Faulty, CallsFail) {
    const auto [kind, error, isLasting] = GetParam();
    bool wasReached = true;
    for (int call = 1; wasReached; ++call) {
        SCOPED_TRACE(call);
        FaultyStore store;
        store.run(kind, {.first = call, .last = isLasting ? 1000000 : call, .error = error});
        wasReached = store.wasReached;
        int mayHave = 0;
        if (isLasting) {
            // As if the power failed with the disk: nobody was told of the commit that was under way.
            mayHave = store.refused.empty() ? 0 : store.refused.front();
            store.open();
            store.check(mayHave);
        }
        // A live file that could not be read refuses commits until it can; everything else recovers by
        // itself.
        const bool recovers = store.wasRead || isLasting;
        outputOf([&] { store.commitOne(8); });
        EXPECT_EQ(store.acknowledged.back() == 8, recovers);
        const std::string log = store.open();
        EXPECT_TRUE(log.empty() || !recovers) << log;
        store.check(mayHave);
        EXPECT_TRUE(kind != std::string("damaged") ||
                    contains(store.read(store.livePath() + ".damaged-1"), "?"));
        EXPECT_TRUE(wasReached || call > 20) << "few calls were tried";
    }
}

INSTANTIATE_TEST_SUITE_P(Disk, Faulty,
                         testing::Combine(testing::Values("whole", "torn", "damaged"),
                                          testing::Values(ENOSPC, EIO, EROFS), testing::Bool()));

TEST(Faults, InterruptedCallsAreRepeatedAndACommitForcesOneWrite) {
    FaultyStore store;
    store.open();
    faults = {};
    EXPECT_TRUE(store.set("k", 1) && store.commit());
    EXPECT_EQ(faults.forced, 1);
    const int calls = faults.calls;
    for (int call = 2; call <= calls; ++call) {  // the first looks whose file it is and cannot be interrupted
        faults = {.first = call, .last = call, .error = EINTR};
        EXPECT_TRUE(store.set("k", static_cast<uint32_t>(call)) && store.commit());
    }
}

// What could not be synced may be lost although a later sync succeeds.
TEST(Faults, AfterAFailedSyncTheFileIsWrittenAnew) {
    FaultyStore store;
    store.open();
    faults = {.first = 3, .last = 3, .error = EIO};  // after stat and write
    outputOf([&] { EXPECT_TRUE(store.set("k", 1) && !store.commit()); });
    faults = {};
    EXPECT_TRUE(store.set("k", 2) && store.commit());
    EXPECT_EQ(faults.forced, 3) << "the new file, its directory, the commit";
}

TEST(Faults, ADamagedFileIsCopiedWhereLinksAreNotSupported) {
    FaultyStore store;
    store::FileCalls noLinks = faultyFiles;
    noLinks.link = [](const char*, const char*) {
        errno = EPERM;
        return -1;
    };
    store.files = &noLinks;
    store.run("damaged", {});
    EXPECT_TRUE(contains(store.read(store.livePath() + ".damaged-1"), "?"));
    store.check();
}

}  // namespace

// The live file after crashes and damage, its rewrite, and its lock.
#include "testStore.h"

namespace {

class LiveLog : public testing::Test, protected TestStore {
protected:
    LiveLog() {
        defaults = "a Dword 0\nb Dword 0\n";
        templates = "[t]\nm String \"x\"\n";
        open();
    }
    // Sizes of the file before and after a commit of a and b.
    std::pair<size_t, size_t> commitPair(uint32_t number) {
        const size_t before = live().size();
        EXPECT_TRUE(set("a", number) && set("b", number) && commit());
        return {before, live().size()};
    }
};

TEST_F(LiveLog, ATailTornAtAnyByteIsCutOff) {
    commitPair(1);
    const auto [begin, end] = commitPair(2);
    const std::string whole = live();
    for (size_t size = begin + 1; size < end; ++size) {
        db.reset();
        write(livePath(), whole.substr(0, size));
        const std::string log = open();
        ASSERT_EQ(lineCount(log), 1U) << log;
        ASSERT_TRUE(contains(log, "an unfinished transaction is cut off")) << log;
        ASSERT_EQ(values("a b"), "1 1");
        ASSERT_EQ(live(), whole.substr(0, begin));
        commitPair(3);
        ASSERT_EQ(open(), "");
        ASSERT_EQ(values("a b"), "3 3");
    }
}

TEST_F(LiveLog, ADamagedFileIsKeptAndTheTransactionsBeforeTheDamageCount) {
    commitPair(1);
    const auto [begin, end] = commitPair(2);
    commitPair(3);
    const std::string whole = live();
    auto openDamaged = [&, kept = 0](size_t at) mutable {
        db.reset();
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 1);
        write(livePath(), damaged);
        const std::string log = open();
        const std::string name = livePath() + ".damaged-" + std::to_string(++kept);
        EXPECT_TRUE(contains(log, livePath() + " is kept as " + name + '\n')) << log;
        EXPECT_EQ(read(name), damaged);
        std::string found = values("a b");
        EXPECT_EQ(open(), "");
        EXPECT_EQ(values("a b"), found);
        return found;
    };
    for (size_t at = begin; at < end; ++at)
        ASSERT_EQ(openDamaged(at), "1 1") << at;
    // The last transaction was acknowledged, too: only what an append can leave counts as torn.
    for (size_t at = end; at < whole.size(); ++at)
        ASSERT_EQ(openDamaged(at), "2 2") << at;
}

TEST_F(LiveLog, ARewriteKeepsEverythingAndTheNumbersCountOn) {
    mayCreate = true;
    defaults += "gone Dword 1\ns[1] instance t 0\ns[2] instance t 0\n";
    open();
    EXPECT_TRUE(erase("gone") && remove("s", {1}) && setText("s.m", "two", 2) && set("v", 1, 1));
    EXPECT_EQ(make("t", "s", 9), 3U);
    EXPECT_EQ(make("t", "s", 9), 4U);
    EXPECT_TRUE(commit() && remove("s", {4}) && commit());
    size_t largest = 0;
    uint32_t commits = 0;
    while (live().size() >= largest) {
        largest = live().size();
        faults.forced = 0;
        ASSERT_LT(largest, 200000U) << "never rewritten";
        commitPair(++commits);
    }
    EXPECT_GT(largest, 65000U);
    EXPECT_EQ(faults.forced, 3) << "the commit, the new file, its directory";
    const std::string rewritten = live();
    EXPECT_TRUE(rewritten.starts_with("s last 4\ns[1] removed\ns[3] instance t 9\na Dword " +
                                      std::to_string(commits) + "\nb Dword " + std::to_string(commits) +
                                      "\ngone erased\ns[2].m String \"two\"\nv[1] Dword 1\n@commit " +
                                      std::to_string(commits + 4) + " "))
        << rewritten;
    EXPECT_EQ(open(), "");
    EXPECT_EQ(values("a gone s.m[2] v[1]"), std::to_string(commits) + " none two 1");
    EXPECT_EQ(keys("s"), Keys{2});
    EXPECT_EQ(keys("s", 9), Keys{3});
    EXPECT_EQ(make("t", "s"), 5U);
    rollback();
    commitPair(7);
    EXPECT_TRUE(contains(live(), "@commit " + std::to_string(commits + 5) + " "));
}

TEST_F(LiveLog, WhatOthersDoToTheFileIsNoticedAndKept) {
    commitPair(1);
    std::filesystem::remove(livePath());
    std::string log = outputOf([this] { commitPair(2); });
    EXPECT_TRUE(contains(log, "is not as it was left")) << log;
    write(livePath() + ".foreign", "precious");
    std::filesystem::rename(livePath() + ".foreign", livePath());
    log = outputOf([this] { commitPair(3); });
    EXPECT_EQ(read(livePath() + ".damaged-1"), "precious") << log;
    EXPECT_EQ(open(), "");
    EXPECT_EQ(values("a b"), "3 3");
}

TEST_F(LiveLog, ASecondDatabaseOnTheSameFileEndsItsProcess) {
    const std::string before = live();
    const ostrelDbCfg cfg{};
    EXPECT_EXIT(store::Database(&cfg, {"", livePath(), ""}), testing::ExitedWithCode(255), "");
    EXPECT_EQ(live(), before);
    commitPair(1);
}

}  // namespace

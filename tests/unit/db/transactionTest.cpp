// One transaction: who sees it, what it leaves in the file, how it ends.
#include <map>
#include <random>

#include "testStore.h"

namespace {

class Transactions : public testing::Test, protected TestStore {
protected:
    Transactions() {
        defaults = "a Dword 1\nb Dword 2\nv[1] Dword 10\n";
        templates = "[t]\nm Dword 5\n";
        open();
    }
};

TEST_F(Transactions, IsSeenByItselfAtOnceAndByOthersAfterTheCommit) {
    EXPECT_TRUE(set("a", 100) && set("a", 101) && set("v", 20, 2) && erase("b"));
    const unsigned int key = make("t", "s", 3);
    EXPECT_EQ(get("s.m", key, handle()), "5");
    EXPECT_TRUE(set("s.m", 6, key));
    EXPECT_EQ(values("a v[2] b s.m[1]", handle()), "101 20 none 6");
    EXPECT_EQ(values("a v[2] b s.m[1]"), "1 none 2 none");
    EXPECT_EQ(keys("s", 3), Keys{});
    EXPECT_TRUE(commit());
    EXPECT_EQ(values("a v[2] b s.m[1]"), "101 20 none 6");
    EXPECT_EQ(keys("s", 3), Keys{1});
}

TEST_F(Transactions, RollbackUndoesAllAlsoAfterARefusal) {
    EXPECT_TRUE(set("a", 100) && erase("v"));
    EXPECT_EQ(make("t", "s"), 1U);
    EXPECT_FALSE(set("unknown", 1));
    const std::string before = live();
    rollback();
    EXPECT_EQ(values("a v[1]"), "1 10");
    EXPECT_EQ(make("t", "s"), 1U);
    EXPECT_EQ(live(), before);
}

TEST_F(Transactions, OnlyTheOpenHandleCounts) {
    const long first = handle();
    EXPECT_EQ(handle(), first) << "a second start joins the open transaction";
    EXPECT_TRUE(set("a", 100));
    for (const long wrong : {first + 1, 0L, -1L, 4294967295L}) {
        const unsigned char one[4] = {1};
        unsigned int key = 1;
        EXPECT_EQ(db->createElement(wrong, "a", 4, one, ostrelTypeDword), -1);
        EXPECT_EQ(db->reWriteElement(wrong, "v", 1, 4, one, ostrelTypeDword), -1);
        EXPECT_EQ(db->destroyElement(wrong, "a"), -1);
        EXPECT_EQ(db->instanciateTmplt(wrong, "t", "s", 0, &key), -1);
        EXPECT_EQ(db->removeInstance(wrong, "v", &key, 1), -1);
        EXPECT_EQ(db->removeInstances(wrong, "v", 0), -1);
        EXPECT_EQ(db->dataWriteRollback(wrong), -1);
        EXPECT_NE(db->dataCommit(wrong), 0);
    }
    EXPECT_EQ(db->dataCommit(first), 0);
    EXPECT_EQ(get("a"), "100");
    EXPECT_NE(db->dataCommit(first), 0) << "it has ended";
    EXPECT_NE(handle(), first);
}

TEST_F(Transactions, TheFileGetsTheNetChangeOnly) {
    const size_t start = live().size();
    EXPECT_TRUE(commit() && live().size() == start) << "nothing to say";
    EXPECT_TRUE(set("b", 7) && set("a", 5) && set("a", 6) && set("v", 3, 3) && set("v", 2, 2) &&
                remove("v", {3}));
    EXPECT_EQ(make("t", "s"), 1U);
    EXPECT_EQ(make("t", "s", 0x62), 2U);
    EXPECT_TRUE(set("s.m", 9, 1) && set("s.m", 8, 2) && remove("s", {2}) && commit());
    const std::string said = live().substr(start);
    EXPECT_EQ(said.substr(0, said.find('@')),
              "s last 2\ns[1] instance t 0\na Dword 6\nb Dword 7\ns[1].m Dword 9\nv[2] Dword 2\n");
    const size_t full = live().size();
    EXPECT_TRUE(set("a", 7) && set("a", 6) && set("v", 2, 2) && erase("b") && set("b", 7) && commit());
    EXPECT_EQ(live().size(), full) << "as committed already";
    EXPECT_TRUE(set("v", 10, 1) && commit());
    EXPECT_GT(live().size(), full) << "a user's choice of the default's value is a change";
    defaults = "a Dword 1\nb Dword 2\nv[1] Dword 11\n";
    open();
    EXPECT_EQ(get("v", 1), "10");
}

// The model of many random transactions is a plain map.
TEST_F(Transactions, RandomChangesSurviveRestarts) {
    mayCreate = true;
    open();
    std::map<std::string, std::string> expected;  // by keys such as n1[2]
    std::minstd_rand random(1);
    for (int round = 0; round < 300; ++round) {
        auto next = expected;
        for (auto change = random() % 5; change-- > 0;) {
            const std::string name = "n" + std::to_string(random() % 6);
            const auto index = static_cast<unsigned int>(random() % 4);
            const auto value = static_cast<uint32_t>(random() % 4);
            if (value != 0) {
                EXPECT_TRUE(set(name, value, index));
                next[name + '[' + std::to_string(index) + ']'] = std::to_string(value);
            } else {
                EXPECT_EQ(erase(name), std::erase_if(next, [&](const auto& row) {
                                           return row.first.starts_with(name);
                                       }) != 0);
            }
        }
        if (random() % 4 == 0) {
            rollback();
        } else {
            EXPECT_TRUE(commit());
            expected = std::move(next);
        }
        EXPECT_EQ(random() % 10 == 0 ? open() : "", "");
        for (unsigned int n = 0; n < 24; ++n) {
            const std::string key = "n" + std::to_string(n / 4) + '[' + std::to_string(n % 4) + ']';
            ASSERT_EQ(values(key), expected.contains(key) ? expected[key] : "none") << round;
        }
    }
}

}  // namespace

// Structures made from templates, their members, owners and primary keys; vectors beside them.
#include "testStore.h"

namespace {

constexpr unsigned int own = 7;

class Instances : public testing::Test, protected TestStore {
protected:
    Instances() {
        defaults =
            "w[1] instance wlan 0\nw.ssid[1] String \"factory\"\nvector[1] Dword 1\nvector[9] Dword 9\n";
        templates =
            "[wlan]\nssid String \"home\"\nch Dword 6\n[other]\nrate Dword 54\n[deep]\nb.c Dword 1\n[c]\nc "
            "Dword 1\n";
        open();
    }
};

TEST_F(Instances, MembersComeFromTheTemplateAndStayOverARestart) {
    EXPECT_EQ(make("nope", "w"), 0U);
    EXPECT_EQ(make("wlan", "w", own), 2U);
    EXPECT_EQ(make("other", "w", own), 3U);
    EXPECT_TRUE(setText("w.ssid", "two", 2) && set("w.ch", 11, 1) && commit());
    for (int restart = 0; restart < 2; ++restart) {
        EXPECT_EQ(values("w.ssid[1] w.ch[1] w.ssid[2] w.ch[2]"), "factory 11 two 6");
        EXPECT_EQ(values("w.rate[3] w.ssid[3] w.rate[1]"), "54 none none");
        EXPECT_EQ(keys("w"), Keys{1});
        EXPECT_EQ(keys("w", own), (Keys{2, 3}));
        EXPECT_EQ(keys("w.ssid", own), (Keys{2, 3})) << "a member answers as its structure";
        EXPECT_EQ(open(), "");
    }
}

TEST_F(Instances, WhatIsNoMemberOfAnInstanceIsRefused) {
    mayCreate = true;
    open();
    EXPECT_FALSE(setText("w.ssid", "x", 2)) << "no such instance";
    EXPECT_FALSE(set("w.rate", 1, 1)) << "no such member";
    EXPECT_FALSE(set("w.ssid", 1, 1)) << "another type";
    EXPECT_FALSE(set("w", 1, 1)) << "a structure, not a vector";
    EXPECT_EQ(make("wlan", "vector"), 0U) << "a vector, not a structure";
    EXPECT_EQ(make("c", "w.ssid"), 0U) << "a member, not a structure";
    EXPECT_TRUE(set("w", 1) && set("w.rate", 1)) << "plain values are apart";
    EXPECT_EQ(make("wlan", "new"), 1U);
    EXPECT_FALSE(set("new.rate", 1, 1) || set("new", 1, 1));
    EXPECT_TRUE(remove("new", {1}));
    EXPECT_FALSE(setText("new.ssid", "x", 1)) << "removed within the transaction";
    EXPECT_EQ(make("wlan", std::string(127, 's')), 0U) << "its members' names would be too long";
}

TEST_F(Instances, ANameIsNeverAVectorAndAMemberNorTwoStructuresMember) {
    mayCreate = true;
    open();
    EXPECT_TRUE(set("a.b.c", 1, 1));
    EXPECT_EQ(make("deep", "a"), 0U);
    EXPECT_TRUE(commit());
    EXPECT_EQ(make("deep", "a"), 0U) << "also as committed";
    EXPECT_EQ(make("deep", "x"), 1U);
    EXPECT_EQ(make("c", "x.b"), 0U) << "x.b.c is x's";
    EXPECT_EQ(make("c", "x.b.c"), 0U);
    EXPECT_TRUE(commit());
    EXPECT_EQ(make("c", "x.b"), 0U);
    EXPECT_EQ(make("other", "a"), 1U) << "a.b.c is a vector already and stays one";
    EXPECT_TRUE(set("a.b.c", 2, 2) && commit());
    EXPECT_EQ(open(), "");
    EXPECT_EQ(keys("a.b.c"), (Keys{1, 2}));
    EXPECT_TRUE(remove("x", {1}) && commit());
    EXPECT_EQ(make("c", "x.b"), 1U) << "freed by the commit";
}

TEST_F(Instances, RemovalTakesTheMembersAndKeysAreNeverGivenAgain) {
    EXPECT_EQ(make("wlan", "w", own), 2U);
    EXPECT_EQ(make("wlan", "w", own), 3U);
    EXPECT_TRUE(setText("w.ssid", "x", 3) && commit());
    EXPECT_FALSE(remove("w", {3, 4}) || remove("w", {0}));
    EXPECT_EQ(get("w.ssid", 3, handle()), "x") << "all are checked before the first is removed";
    EXPECT_TRUE(set("w.ch", 9, 3) && remove("w", {1, 3, 3}) && remove("w", {}));
    EXPECT_EQ(get("w.ssid", 3, handle()), "none");
    EXPECT_FALSE(remove("w", {3})) << "removed already";
    EXPECT_TRUE(commit());
    for (int restart = 0; restart < 2; ++restart) {
        EXPECT_EQ(keys("w"), Keys{});
        EXPECT_EQ(keys("w", own), Keys{2});
        EXPECT_EQ(values("w.ssid[1] w.ssid[3]"), "none none");
        EXPECT_EQ(make("wlan", "w"), 4U);
        rollback();
        EXPECT_EQ(make("wlan", "w"), 4U) << "what was rolled back may be given again";
        rollback();
        EXPECT_EQ(open(), "");
    }
    EXPECT_EQ(make("wlan", "w", own), 4U);
    EXPECT_TRUE(removeOwned("w", own) && commit());
    open();
    EXPECT_EQ(make("wlan", "w"), 5U) << "also when made and removed in one transaction";
    EXPECT_EQ(keys("w", own), Keys{});
    rollback();
    defaults += "full[4294967295] instance wlan 0\n";
    open();
    EXPECT_EQ(make("wlan", "full"), 0U);
}

TEST_F(Instances, VectorElementsAreRemovedByTheirIndex) {
    EXPECT_EQ(keys("vector"), (Keys{1, 9}));
    EXPECT_EQ(keys("vector", own), Keys{});
    EXPECT_FALSE(remove("vector", {1, 2}) || remove("vector", {0}));
    EXPECT_FALSE(remove("w.ssid", {1}) || removeOwned("w.ssid", 0)) << "a member goes with its instance";
    EXPECT_TRUE(remove("vector", {1}) && commit());
    EXPECT_EQ(keys("vector"), Keys{9});
    EXPECT_TRUE(removeOwned("vector", own) && removeOwned("unknown", own) && commit());
    EXPECT_EQ(keys("vector"), Keys{9}) << "no match is no failure";
    EXPECT_TRUE(removeOwned("vector", 0) && commit());
    open();
    EXPECT_EQ(keys("vector"), Keys{});
    EXPECT_EQ(db->removeInstance(handle(), "vector", nullptr, 1), -1);
    unsigned int key = 9;
    EXPECT_EQ(db->removeInstance(handle(), "vector", &key, -1), -1);
}

}  // namespace

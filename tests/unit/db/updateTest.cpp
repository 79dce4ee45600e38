// New firmware under old changes, and the factory reset.
#include "testStore.h"

namespace {

class Update : public testing::Test, protected TestStore {
protected:
    Update() {
        defaults = "a Dword 1\nb Dword 2\nc Dword 3\nv[1] Dword 1\ns[1] instance t 0\n";
        templates = "[t]\nm Dword 5\nn Dword 6\n";
        open();
    }
};

TEST_F(Update, NewDefaultsReachWhatNobodyChanged) {
    EXPECT_TRUE(set("a", 100) && erase("b") && set("s.m", 50, 1) && set("v", 2, 2) && commit());
    defaults =
        "a Dword 11\nb Dword 12\nc Dword 13\nd Dword 14\nv[1] Dword 11\ns[1] instance t 0\ns[1].n Dword 16\n";
    EXPECT_EQ(open(), "");
    EXPECT_EQ(values("a b c d"), "100 none 13 14");
    EXPECT_EQ(values("v[1] v[2]"), "11 2");
    EXPECT_EQ(values("s.m[1] s.n[1]"), "50 16");
    db.reset();
    std::filesystem::remove(livePath());
    EXPECT_EQ(open(), "");
    EXPECT_EQ(values("a b s.m[1] v[2]"), "11 12 5 none");
}

TEST_F(Update, ADefaultOfAnotherTypeWins) {
    EXPECT_TRUE(set("a", 100) && set("v", 100, 1) && set("v", 2, 2) && set("s.m", 50, 1) && commit());
    defaults = "a String \"new\"\nv[1] String \"new\"\ns[1] instance t 0\n";
    templates = "[t]\nm String \"new\"\n";
    const std::string log = open();
    EXPECT_EQ(values("a v[1] v[2] s.m[1]"), "new new none new");
    EXPECT_EQ(lineCount(log), 4U) << log;
    EXPECT_TRUE(contains(log, livePath() + ":2: the default has another type and wins")) << log;
    EXPECT_TRUE(setText("a", "text") && commit());
    open();
    EXPECT_EQ(get("a"), "text");
}

TEST_F(Update, ChangesOfKeysThatTheDefaultsDropStay) {
    EXPECT_TRUE(set("a", 100) && erase("b") && set("v", 100, 1) && commit());
    defaults = "";
    EXPECT_EQ(open(), "");
    EXPECT_EQ(values("a b v[1]"), "100 none 100");
    EXPECT_TRUE(set("a", 101)) << "known by its value";
    EXPECT_FALSE(set("b", 1)) << "nothing knows it";
    std::filesystem::remove(livePath());
    outputOf([this] { EXPECT_TRUE(commit()) << "into a file that is written anew"; });
    defaults = "a Dword 1\nb Dword 2\n";
    EXPECT_EQ(open(), "");
    EXPECT_EQ(values("a b"), "101 none") << "still erased";
}

TEST_F(Update, InstancesOutliveTheirTemplateAndTheDefaults) {
    EXPECT_EQ(make("t", "s", 4), 2U);
    EXPECT_TRUE(set("s.m", 7, 2) && set("s.n", 8, 1) && commit());
    defaults = "";
    templates = "[t]\nn Dword 66\n";
    std::string log = open();
    EXPECT_TRUE(contains(log, "there is no such instance"))
        << "its change of n went with the default instance: " << log;
    EXPECT_EQ(values("s.m[2] s.n[2] s.m[1]"), "7 66 none");
    EXPECT_TRUE(set("s.m", 70, 2) && commit());
    templates = "";
    log = open();
    EXPECT_TRUE(contains(log, "the template \"t\" is gone; its instance stays")) << log;
    EXPECT_EQ(values("s.m[2] s.n[2]"), "70 none");
    EXPECT_EQ(keys("s", 4), Keys{2});
    templates = "[t]\nm Dword 5\n";
    open();
    EXPECT_EQ(make("t", "s"), 3U);
    EXPECT_TRUE(remove("s", {2}) && commit());
    EXPECT_EQ(get("s.m", 2), "none");
}

TEST_F(Update, AUsersInstanceWinsWhollyOverANewDefaultOne) {
    EXPECT_EQ(make("t", "s", 4), 2U);
    EXPECT_TRUE(remove("s", {1}) && commit());
    defaults = "s[1] instance t 0\ns[2] instance u 0\ns[2].x Dword 9\ns[7] instance t 0\n";
    templates = "[t]\nm Dword 5\n[u]\nx Dword 1\nm Dword 2\n";
    EXPECT_EQ(open(), "");
    EXPECT_EQ(values("s.m[2] s.x[2] s.m[1]"), "5 none none");
    EXPECT_EQ(keys("s"), Keys{7});
    EXPECT_EQ(keys("s", 4), Keys{2});
    EXPECT_TRUE(remove("s", {2}) && commit());
    EXPECT_EQ(make("t", "s"), 8U);
    rollback();
    EXPECT_EQ(open(), "");
    EXPECT_EQ(keys("s"), Keys{7}) << "removed instances stay removed";
    EXPECT_EQ(keys("s", 4), Keys{});
}

TEST_F(Update, ANewDefaultStructureWinsOverAVectorOfItsName) {
    mayCreate = true;
    open();
    EXPECT_TRUE(set("x", 1, 1) && set("y.m", 1, 1) && set("y.m", 2, 2) && commit());
    defaults = "x[1] instance t 0\ny[2] instance t 0\n";
    const std::string log = open();
    EXPECT_TRUE(contains(log, "the name is a structure's")) << log;
    EXPECT_TRUE(contains(log, "the name is a structure member's")) << log;
    EXPECT_EQ(values("x.m[1] y.m[2] y.m[1]"), "5 5 none");
}

}  // namespace

// What becomes of changes when the firmware's files change under them.
#include <random>

#include "testStore.h"

namespace {

const std::string droppedPrefix = liveFile + std::string(".dropped-");

std::string droppedOf(const std::string& lines) { return droppedPrefix + store::hexCrc(lines); }

// Two devices that do the same and get the same firmware; one of them rewrites its file now and then.
class TwoDevices {
public:
    explicit TwoDevices(unsigned int seed) : random_(seed) { ostrelSetPrintLevel(0); }

    void run() {
        for (int life = 0; life < 6 && !testing::Test::HasFailure(); ++life) {
            const std::string firmware = someFirmware();
            for (TestStore* device : {&one_, &other_}) {
                use(*device);
                device->defaults = firmware;
                device->templates = "[t]\nm Dword 1\n[u]\nm Dword 2\nn Dword 3\n";
                device->mayCreate = true;
                device->start();
            }
            history_ += "--- " + firmware;
            compare();
            if (below(2) != 0)
                rewrite();
            for (int i = 0; i < 8; ++i)
                change();
        }
    }

private:
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }
    static void use(TestStore& device) { SimulatedDisk::current = &device.disk; }

    std::string someFirmware() {
        std::string text = "z Dword 0\n";
        for (const char* line :
             {"a Dword 1\n", "b Dword 1\n", "v[1] Dword 1\n", "v[2] Dword 1\n", "s[1] instance t 0\n",
              "s[2] instance u 0\ns[2].m Dword 9\n", "s[3] instance t 0\ns[3].m Dword 8\n"})
            text += below(2) != 0 ? line : "";
        return text;
    }
    // The commit after what makes most of the file dead.
    void rewrite() {
        use(other_);
        other_.openOn(other_.padded());
        ++number_;
        for (TestStore* device : {&one_, &other_}) {
            use(*device);
            EXPECT_TRUE(device->set("z", number_) && device->commit());
        }
        EXPECT_LT(other_.live().size(), 10000U);
        history_ += "rewritten\n";
        compare();
    }
    void change() {
        const unsigned int kind = below(6);
        const std::string name = below(2) != 0 ? "a" : "b";
        const unsigned int key = 1 + below(3);
        const unsigned int number = below(3);
        unsigned int made[2] = {};
        bool done[2] = {};
        for (TestStore* device : {&one_, &other_}) {
            const size_t which = device == &one_ ? 0 : 1;
            use(*device);
            switch (kind) {
                case 0:
                    done[which] = device->set(name, number);
                    break;
                case 1:
                    done[which] = device->erase(name);
                    break;
                case 2:
                    done[which] = device->set("v", number, key);
                    break;
                case 3:
                    done[which] = device->remove("v", {key});
                    break;
                case 4:
                    made[which] = device->make("t", "s");
                    done[which] = made[which] != 0 && device->set("s.m", number, made[which]);
                    break;
                default:
                    done[which] = device->remove("s", {key});
            }
            EXPECT_TRUE(device->commit());
        }
        history_ +=
            std::to_string(kind) + ' ' + name + ' ' + std::to_string(key) + (done[0] ? "\n" : " refused\n");
        EXPECT_TRUE(done[0] == done[1] && made[0] == made[1]) << history_;
        compare();
    }
    void compare() {
        constexpr char keys[] = "a b v[1] v[2] v[3] v@0 s@0 s.m[1] s.m[2] s.m[3] s.n[2] s.m[4] s.m[5] z";
        use(one_);
        const std::string values = one_.values(keys);
        use(other_);
        ASSERT_EQ(values, other_.values(keys)) << history_;
    }

    std::mt19937 random_;
    TestStore one_;
    TestStore other_;
    unsigned int number_ = 0;  // of rewrites
    std::string history_;
};

TEST(Firmware, ARewriteDoesNotChangeWhatLaterFirmwareMakesOfTheFile) {
    for (unsigned int seed = 1; seed <= (isSanitized ? 30U : 300U) && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        TwoDevices(seed).run();
    }
}

// What a firmware did not allow stays in the file, until a rewrite. What was committed meanwhile is newer,
// whatever the next firmware allows.
TEST(Firmware, WhatIsNewerBeatsWhatWasNotInForce) {
    for (const bool isRewritten : {false, true}) {
        TestStore store;
        store.mayCreate = true;
        const auto text = [](const std::string& bytes) { return store::Value{bytes, ostrelTypeString}; };
        const auto start = [&](const std::string& defaults, const std::string& templates) {
            store.defaults = "z Dword 0\n" + defaults;
            store.templates = templates;
            store.open();
        };
        const std::string host = "[host]\nname String \"\"\n";
        start("v[1] String \"x\"\nk String \"x\"\ne String \"x\"\n", host + "[m]\nm Dword 1\n");
        EXPECT_TRUE(store.put("v", 2, text("a")) && store.put("q.name", 1, text("b")) && store.commit());
        EXPECT_TRUE(store.put("k", 0, text("a")) && store.erase("e") && store.commit());
        EXPECT_TRUE(store.put("e", 0, text("c")) && store.make("m", "s") == 1 && store.set("s.m", 6, 1) &&
                    store.make("host", "w") == 1 && store.commit());
        start("v[1] instance host 0\nq[1] instance host 0\nk Byte 1\ne Byte 1\nw[1] Dword 1\n",
              host + "[m]\nm String \"\"\n");
        EXPECT_EQ(store.values("k e s.m[1]"), "1 1 ");
        outputOf([&] {
            EXPECT_TRUE(store.make("host", "v") == 2 && store.put("v.name", 2, text("pc")) &&
                        store.make("host", "q") == 2 && store.put("k", 0, {"\7", ostrelTypeByte}) &&
                        store.put("s.m", 1, text("x")) && store.set("w", 5, 2) && store.commit());
        });
        if (isRewritten) {
            store.openOn(store.padded());
            outputOf([&] { EXPECT_TRUE(store.set("z", 1) && store.commit()); });
            EXPECT_LT(store.live().size(), 1000U);
        }
        start("k String \"z\"\n", host + "[m]\nm Dword 1\n");
        EXPECT_EQ(store.values("v.name[2] v[2] v@0 q@0 q.name[1] k s.m[1] w[2] w@0"),
                  "pc none 2 2 none z 1 5 2")
            << isRewritten << '\n'
            << store.live();
    }
}

// An older version's rows do not say whether there was a default: what is there now decides.
TEST(Firmware, OlderRowsAreJudgedByWhatIsThere) {
    TestStore store;
    store.defaults = "a Dword 1\ns[1] instance t 0\n";
    store.templates = "[t]\nm Dword 5\n";
    std::string live =
        "b Dword 3\nb erased\nc erased\na Dword 2\na erased\ns[1] removed\ns[2] instance t 0\ns[2] removed\n";
    store::closeTransaction(live, 1, 0);
    store.openOn(live);
    store.defaults += "b Dword 1\nc Dword 1\ns[2] instance t 0\n";
    store.openOn(store.padded());
    EXPECT_EQ(store.values("a b c s@0"), "none none none ");
    EXPECT_TRUE(store.set("a", 7) && store.commit());
    EXPECT_TRUE(store.live().starts_with("s[1] removed # default\ns[2] removed # default\n")) << store.live();
}

TEST(Firmware, WhatItNoLongerAllowsIsKeptBesideBeforeTheRewriteOnce) {
    TestStore store;
    store.defaults = "a Dword 1\nb Dword 1\n";
    store.open();
    EXPECT_TRUE(store.set("a", 5) && store.commit() && store.set("b", 6) && store.commit());
    // Of a version that knows more.
    std::string unknown = "z Newtype 1\n";
    store::closeTransaction(unknown, 4, 0);
    store.openOn(store.live() + unknown);
    store.defaults = "a String \"\"\nb Dword 1\n";
    const std::string padded = store.padded();
    const std::string keptLines = "a Dword 5\nz Newtype 1\n";
    const std::string kept = droppedOf(keptLines);
    for (int start = 0; start < 2; ++start) {
        store.openOn(padded);
        // Without the copy there is no rewrite.
        store.disk.isReadOnly = true;
        outputOf([&] { EXPECT_TRUE(store.set("b", 7) && store.commit()); });
        EXPECT_GT(store.live().size(), padded.size());
        EXPECT_EQ(store.disk.read(kept), "");
        store.disk.isReadOnly = false;
    }
    store.openOn(padded);
    const std::string log = outputOf([&] { EXPECT_TRUE(store.set("b", 8) && store.commit()); });
    EXPECT_TRUE(contains(log, "of /vemra/var/live.txt is kept as " + kept + '\n')) << log;
    EXPECT_LT(store.live().size(), 200U);
    store.openOn(padded);
    EXPECT_EQ(outputOf([&] { EXPECT_TRUE(store.set("b", 8) && store.commit()); }), "")
        << "it is there already";
    EXPECT_EQ(store.disk.read(kept), keptLines);
}

TEST(Firmware, AMissingFileOfItForgetsNothing) {
    TestStore store;
    const std::string defaults = "a Dword 1\ns[1] instance t 0\n";
    const std::string templates = "[t]\nm Dword 5\n";
    store.defaults = defaults;
    store.templates = templates;
    store.mayCreate = true;
    store.open();
    EXPECT_TRUE(store.set("s.m", 6, 1) && store.set("a", 2) && store.set("own", 3) && store.commit());
    const std::string padded = store.padded();
    for (const bool hasDefaults : {false, true}) {
        store.defaults = hasDefaults ? defaults : "";
        store.templates = hasDefaults ? "" : templates;
        store.openOn(padded);
        outputOf([&] { EXPECT_TRUE(store.set("own", 4) && store.commit()); });
        EXPECT_TRUE(store.live().starts_with(padded)) << "not rewritten";
    }
    store.defaults = defaults;
    store.templates = templates;
    store.open();
    EXPECT_EQ(store.values("a own s.m[1]"), "2 4 6");
    // What clients have created needs no default.
    store.openOn("");
    store.defaults = store.templates = "";
    store.open();
    EXPECT_TRUE(store.set("own", 5) && store.commit());
    store.openOn(store.padded());
    EXPECT_TRUE(store.set("own", 6) && store.commit());
    EXPECT_LT(store.live().size(), 200U);
}

}  // namespace

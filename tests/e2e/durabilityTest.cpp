// What was acknowledged is there after any end of the daemon.
#include <gtest/gtest.h>
#include <signal.h>

#include <random>
#include <thread>

#include "client.h"
#include "daemon.h"

namespace {

class Durability : public testing::Test {
protected:
    Durability() { daemon.factory("a Dword 0\nb Dword 0\n"); }
    Daemon daemon;
};

// Each commit writes the same number under two keys.
TEST_F(Durability, KilledAtAnyMomentNothingAcknowledgedIsLost) {
    std::mt19937 random(std::random_device{}());
    std::uint32_t acknowledged = 0;
    for (int round = 0; round < 25; ++round) {
        daemon.start();
        std::uint32_t tried = acknowledged;
        std::jthread commits([&] {
            Client client;
            while (client.commit({list(6, {dword("a", tried + 1)}), list(6, {dword("b", tried + 1)})}))
                acknowledged = ++tried;
        });
        std::this_thread::sleep_for(
            std::chrono::microseconds(std::uniform_int_distribution(0, 20000)(random)));
        daemon.signal(SIGKILL);
        EXPECT_EQ(daemon.wait(), -SIGKILL);
        commits.join();
        daemon.start();
        auto found = Client().number("a");
        ASSERT_TRUE(found == acknowledged || found == acknowledged + 1) << *found << ' ' << acknowledged;
        EXPECT_EQ(Client().number("b"), found);
        acknowledged = *found;
        EXPECT_EQ(daemon.stop(), 0);
    }
    EXPECT_GT(acknowledged, 25U) << "the rounds did commit";
}

TEST_F(Durability, ReadOnlyDiskRefusesCommitsAndServesReads) {
    daemon.start();
    Client client;
    EXPECT_TRUE(client.commit({list(6, {dword("a", 1)})}));
    EXPECT_EQ(daemon.stop(), 0);
    ASSERT_EQ(system("mount --bind /vemra/var /vemra/var && mount -o remount,ro,bind /vemra/var"), 0);
    daemon.start();
    EXPECT_FALSE(Client().commit({list(6, {dword("a", 2)})}));
    EXPECT_TRUE(daemon.logged("[ostrelServer] Warning, commit failed\n"));
    EXPECT_EQ(Client().number("a"), 1U);
    ASSERT_EQ(system("mount -o remount,rw,bind /vemra/var"), 0);
    EXPECT_TRUE(Client().commit({list(6, {dword("a", 3)})})) << "it works again when the disk does";
    EXPECT_EQ(Client().number("a"), 3U);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(system("umount /vemra/var"), 0);
}

}  // namespace

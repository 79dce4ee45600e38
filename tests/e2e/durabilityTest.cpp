// What was acknowledged is there after any end of the daemon.
#include <gtest/gtest.h>
#include <signal.h>

#include "client.h"
#include "daemon.h"

namespace {

class Durability : public testing::Test {
protected:
    Durability() { daemon.factory("a Dword 0\nb Dword 0\n"); }
    Daemon daemon;
};

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

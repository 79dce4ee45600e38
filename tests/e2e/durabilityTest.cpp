// What was acknowledged is there after any end of the daemon.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "client.h"
#include "daemon.h"
#include "text.h"
#include "tool.h"

namespace fs = std::filesystem;

namespace {

const std::string liveFile = "/vemra/var/ostrdb.txt";

class Durability : public testing::Test {
protected:
    Durability() { daemon.factory("a Dword 0\nb Dword 0\n"); }

    bool commit(uint32_t number) { return Client().set("a", number); }
    // Restarted, the daemon reads the same.
    void expectKept(uint32_t number) {
        EXPECT_EQ(daemon.stop(), 0);
        daemon.start();
        EXPECT_EQ(Client().number("a"), number);
    }

    Daemon daemon;
};

TEST_F(Durability, ReadOnlyDiskRefusesCommitsAndServesReads) {
    daemon.start();
    const Client client;
    EXPECT_TRUE(client.set("a", 1));
    EXPECT_EQ(daemon.stop(), 0);
    ASSERT_EQ(system("mount --bind /vemra/var /vemra/var && mount -o remount,ro,bind /vemra/var"), 0);
    daemon.start();
    EXPECT_FALSE(Client().set("a", 2));
    EXPECT_TRUE(daemon.logged("[ostrelServer] Warning, commit failed\n"));
    EXPECT_EQ(Client().number("a"), 1U);
    ASSERT_EQ(system("mount -o remount,rw,bind /vemra/var"), 0);
    EXPECT_TRUE(Client().set("a", 3)) << "it works again when the disk does";
    EXPECT_EQ(Client().number("a"), 3U);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(system("umount /vemra/var"), 0);
}

// A device with a full disk still boots.
TEST_F(Durability, FullDiskIsServedAndTakesCommitsWhenThereIsRoom) {
    fs::create_directories("/vemra/var");
    ASSERT_EQ(system("mount -t tmpfs -o size=128k,mode=755 small /vemra/var"), 0);
    daemon.start();
    EXPECT_TRUE(commit(1) && commit(2));
    EXPECT_EQ(daemon.stop(), 0);
    const char* fill = "head -c 1m /dev/zero >>/vemra/var/other 2>/dev/null";
    EXPECT_NE(system(fill), 0);
    const Outcome compacted = runTool("ostrelDbTool compact");
    EXPECT_EQ(compacted.status, 1);
    EXPECT_TRUE(matches(compacted.errors, "it takes [0-9]+ bytes, and 0 are free there")) << compacted.errors;
    fs::remove(liveFile + ".lock");
    EXPECT_NE(system(fill), 0);
    daemon.start();
    EXPECT_EQ(Client().number("a"), 2U);
    fs::remove("/vemra/var/other");
    EXPECT_TRUE(commit(5));
    expectKept(5);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(system("umount /vemra/var"), 0);
}

TEST_F(Durability, LiveFileIsNeverOpenedWhenItIsNoFile) {
    fs::create_directories("/vemra/var");
    for (const char* kind : {"mkfifo ", "mkdir "}) {
        fs::remove_all(liveFile);
        ASSERT_EQ(system((kind + liveFile).c_str()), 0);
        daemon.start();
        EXPECT_EQ(Client().number("a"), 0U);
        EXPECT_FALSE(commit(3));
        EXPECT_EQ(daemon.stop(), 0);
        EXPECT_EQ(runTool("ostrelDbTool check").status, 1);
    }
}

TEST_F(Durability, RefusesWhatAPluginHasStoredForGood) {
    daemon.start();
    daemon.script("p",
                  "restart write b 0 9\nrestart execute cd /vemra/var; rm ostrdb.txt; mkdir ostrdb.txt\n");
    EXPECT_TRUE(commit(1));
    EXPECT_TRUE(daemon.logged("error: commit failed\n"));
    daemon.script("p", "");
    fs::remove(liveFile);
    EXPECT_TRUE(commit(2));
    EXPECT_EQ(Client().number("b"), 0U) << "not tried again";
    expectKept(2);
}

TEST_F(Durability, ChildOfAPluginDoesNotKeepTheDatabase) {
    daemon.script("p", "watch *\ninit leaveChild 30\n");
    daemon.start();
    EXPECT_TRUE(commit(1));
    expectKept(1);
}

TEST_F(Durability, ModeOfTheLiveFileIsKept) {
    daemon.start();
    EXPECT_TRUE(commit(1));
    fs::permissions(liveFile, fs::perms(0600));
    EXPECT_EQ(chown(liveFile.c_str(), 7, 8), 0);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(runTool("ostrelDbTool compact").status, 0);
    daemon.start();
    fs::remove_all("/vemra/var");
    EXPECT_TRUE(commit(2));
    struct stat info {};
    ASSERT_EQ(stat(liveFile.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600U);
    EXPECT_EQ(info.st_uid, 7U);
    EXPECT_EQ(info.st_gid, 8U);
    expectKept(2);
}

}  // namespace

// Where the live file stands and who may change it: links, locks, owners, folders that go, full disks,
// editors.
#include <cerrno>
#include <climits>

#include "testStore.h"

namespace {

const std::string lockFile = liveFile + std::string(".lock");

class LiveFile : public testing::Test, protected TestStore {
protected:
    LiveFile() { defaults = "a Dword 0\nb Dword 0\ntext String \"\"\n"; }

    // Its log is not of interest.
    bool change(uint32_t number) {
        bool isDone = false;
        outputOf([&] { isDone = set("a", number) && commit(); });
        return isDone;
    }
    bool putText(size_t size) {
        bool isDone = false;
        outputOf([&] { isDone = put("text", 0, {std::string(size, 'x'), ostrelTypeString}) && commit(); });
        return isDone;
    }
};

TEST_F(LiveFile, IsRewrittenWhenMostOfItsBytesAreSuperseded) {
    mayCreate = true;
    open();
    // Lines enough that few of them are dead.
    for (unsigned int index = 1; index <= 100; ++index)
        EXPECT_TRUE(set("v", index, index));
    EXPECT_TRUE(commit());
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(putText(60000 + static_cast<size_t>(i)));
        EXPECT_LT(live().size(), 250000U);
    }
    // What is alive, and the lines of it as they are in the file, do not count as dead.
    EXPECT_TRUE(put("text", 0, {std::string(60000, '\x01'), ostrelTypeString}) && commit());
    const size_t size = live().size();
    EXPECT_TRUE(change(1) && change(2));
    EXPECT_GT(live().size(), size);
}

TEST_F(LiveFile, MakesRoomOnAFullDiskOnceAndAgainWhenThereIsMore) {
    defaults += "more String \"\"\n";
    open();
    EXPECT_TRUE(putText(20000) && putText(20001) && putText(20002));
    openOn(live());
    disk.capacity = disk.usedBytes() + 25000;
    EXPECT_TRUE(put("more", 0, {std::string(24000, 'm'), ostrelTypeString}) && commit());
    EXPECT_FALSE(putText(2000)) << "no room for a copy";
    const std::string full = live();
    const int calls = [&] {
        disk.faults = {};
        EXPECT_FALSE(putText(2000));
        return disk.faults.calls;
    }();
    EXPECT_LT(calls, 16) << "and no second try";
    EXPECT_EQ(live(), full);
    disk.capacity += 46000;
    EXPECT_TRUE(putText(48000));
    EXPECT_LT(live().size(), full.size() + 48000) << "the superseded went first";
    EXPECT_TRUE(contains(live(), std::string(48000, 'x')));
    EXPECT_EQ(open(), "");
}

TEST_F(LiveFile, LosesNothingByAnEditor) {
    open();
    EXPECT_TRUE(change(1) && change(2));
    const std::string written = live();
    std::string dos = "\xEF\xBB\xBF";
    for (const char c : written)
        dos += c == '\n' ? "\r\n" : std::string(1, c);
    // Blanks behind each closing line.
    std::string blanks = written;
    for (size_t at = 0; (at = blanks.find('@', at)) != std::string::npos; at = blanks.find('\n', at))
        blanks.insert(blanks.find('\n', at), 2, ' ');
    for (const std::string& text : {written, dos, written.substr(0, written.size() - 1),
                                    dos.substr(0, dos.size() - 2), blanks + "#\n"}) {
        EXPECT_EQ(openOn(text), "");
        EXPECT_EQ(disk.read(liveFile), text);
        EXPECT_EQ(get("a", 0), "2");
        EXPECT_TRUE(change(3) && change(4));
        EXPECT_EQ(open(), "");
        EXPECT_EQ(get("a", 0), "4") << live();
        EXPECT_TRUE(live().starts_with(text.substr(0, text.rfind('#'))));
    }
    EXPECT_TRUE(contains(openOn(written.substr(0, written.size() - 3) + "00"), "damaged"))
        << "nobody vouches for it";
}

TEST_F(LiveFile, ALinkIsFollowedAndNothingIsMadeForItsTarget) {
    const std::string target = "/data/deep/live.txt";
    disk.symlinks[liveFile] = "../../data/deep/live.txt";
    disk.symlinks["/vemra/var/../../data/deep/live.txt"] = target;  // as the disk finds it
    open();
    EXPECT_FALSE(change(1)) << "not mounted";
    EXPECT_FALSE(disk.isFolder("/data"));
    disk.addFolder("/data/deep");
    EXPECT_TRUE(change(2));
    EXPECT_TRUE(contains(disk.read(target), "a Dword 2\n"));
    openOn("");
    disk.write(target, damaged(disk.read(target)));
    open();
    EXPECT_TRUE(contains(disk.read(target), "a Dword 2\n"));
    EXPECT_NE(disk.read(target + ".damaged-1"), "") << "its copies are beside it,";
    EXPECT_TRUE(disk.isFile(lockFile)) << "its lock where others look for it";
}

// What was mounted late must not be replaced by what little the daemon knows.
TEST_F(LiveFile, OneThatComesAfterTheStartIsNotReplaced) {
    disk.symlinks[liveFile] = "/data/live.txt";
    open();
    EXPECT_FALSE(change(1));
    disk.addFolder("/data");
    disk.write("/data/live.txt", "precious");
    EXPECT_FALSE(change(2) || change(3));
    EXPECT_EQ(disk.read("/data/live.txt"), "precious");
}

TEST_F(LiveFile, KeepsItsModeOverARewriteAndItsCopiesHaveIt) {
    open();
    EXPECT_TRUE(change(1));
    disk.setMode(liveFile, 0640);
    disk.beforeWrite = [&](const std::string& path) {
        EXPECT_TRUE(!disk.isFile(path) || disk.modeOf(path) == 0640) << path;
    };
    EXPECT_TRUE(change(2));
    disk.write(liveFile, "changed by someone");
    disk.setMode(liveFile, 0640);
    disk.hasLinks = false;
    EXPECT_TRUE(change(3));
    disk.beforeWrite = nullptr;
    EXPECT_EQ(disk.modeOf(liveFile), 0640U);
    EXPECT_EQ(disk.modeOf(liveFile + std::string(".damaged-1")), 0640U);
}

TEST_F(LiveFile, WithoutTheLockAStartChangesNothingAndNoCommitSucceeds) {
    open();
    EXPECT_TRUE(change(1));
    const std::string good = live();
    for (const std::string& found : {good + "a Dword 9\nb", damaged(good), padded()}) {
        db.reset();
        disk.write(liveFile, found);
        disk.write(lockFile, "");
        disk.write(liveFile + std::string(".new"), "old");
        disk.capacity = 0;
        disk.isReadOnly = true;
        open();
        EXPECT_EQ(get("a", 0), "1");
        EXPECT_FALSE(change(5));
        EXPECT_EQ(live(), found);
        EXPECT_FALSE(disk.isFile(liveFile + std::string(".damaged-1")));
        disk.isReadOnly = false;
        disk.capacity = SIZE_MAX;
        // Gained late, it is worth something only when nobody else was there meanwhile.
        const bool isChanged = found == padded();
        if (isChanged)
            disk.write(liveFile, found.substr(0, found.size() - 2) + "0\n");
        EXPECT_EQ(change(6), !isChanged);
        EXPECT_EQ(change(7), !isChanged);
        EXPECT_EQ(disk.isFile(liveFile + std::string(".new")), isChanged);
        disk.write(liveFile + std::string(".damaged-1"), "");
        disk.write(liveFile, good);
    }
}

TEST_F(LiveFile, ALockThatWasRemovedIsMadeAgainUnlessAnotherHasIt) {
    disk.write(lockFile, "an older version's");
    open();
    EXPECT_EQ(disk.modeOf(lockFile), 0600U) << "whoever may open it may lock it";
    EXPECT_TRUE(change(1));
    disk.write(lockFile, "");
    EXPECT_TRUE(change(2));
    EXPECT_TRUE(disk.isFile(lockFile) && disk.modeOf(lockFile) == 0600);
    disk.write(lockFile, "");
    disk.isLockedElsewhere = true;
    const std::string before = live();
    EXPECT_FALSE(change(3));
    EXPECT_EQ(live(), before);
    disk.isLockedElsewhere = false;
    EXPECT_TRUE(change(4));
    // As long as it was, and not the same: also where another daemon's transaction stands in the room.
    const std::string whole = disk.read(liveFile);
    std::string other = whole;
    other[other.find("Dword 4") + 6] = '5';
    std::string longer = live() + "a Dword 5\n#";
    longer += whole.substr(longer.size());
    for (const std::string& found : {other, longer}) {
        openOn(whole);
        disk.write(lockFile, "");
        disk.change(liveFile, found);
        EXPECT_FALSE(change(6) || change(7));
        EXPECT_EQ(disk.read(liveFile), found);
    }
}

TEST_F(LiveFile, IsMadeAgainWithItsFoldersAlsoByACommitOfNothing) {
    open();
    EXPECT_TRUE(change(1));
    for (const char* folder : {"/vemra/var", "/vemra"}) {
        disk.removeFolder(folder);
        disk.isReadOnly = true;
        EXPECT_FALSE(change(1)) << "as committed already, but nowhere to be found";
        disk.isReadOnly = false;
        EXPECT_TRUE(change(1));
        EXPECT_TRUE(contains(live(), "a Dword 1\n"));
        disk.removeFolder(folder);
        EXPECT_TRUE(change(2) && contains(live(), "a Dword 2\n") && change(1));
        disk.forEachCut(
            [&](const SimulatedDisk& left) { EXPECT_TRUE(contains(left.read(liveFile), "a Dword 1\n")); });
    }
}

TEST_F(LiveFile, ADamagedOneIsKeptOnceOnAFullDisk) {
    open();
    EXPECT_TRUE(change(1));
    // The last may be damage, and takes no space where there are links.
    const std::string doubtful = live() + "a Dword 9\n@commit 7\n";
    for (const auto& [found, hasLinks] :
         {std::pair(damaged(live()), true), {damaged(live()), false}, {doubtful, true}}) {
        const std::string kept = liveFile + std::string(".damaged-");
        disk.hasLinks = hasLinks;
        openOn("");
        disk.write(liveFile, found);
        // Not for the new file, too.
        disk.capacity = disk.usedBytes() + (hasLinks ? 0 : found.size()) + 10;
        for (int start = 0; start < 3; ++start)
            open();
        EXPECT_EQ(live(), found);
        EXPECT_EQ(disk.read(kept + '1'), found);
        EXPECT_FALSE(disk.isFile(kept + '2'));
        disk.capacity = SIZE_MAX;
        open();
        EXPECT_FALSE(disk.isFile(kept + '2'));
        EXPECT_NE(live(), found);
        disk.write(kept + '1', "");
    }
}

}  // namespace

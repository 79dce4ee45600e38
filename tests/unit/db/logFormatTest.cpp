// The live file as text: what a closing line vouches for.
#include "db/logFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "db/room.h"

namespace {

TEST(LogFormat, AClosingLineVouchesForItsTransaction) {
    std::string first = "a Dword 1\n";
    store::closeTransaction(first, 41, 1800000000);
    EXPECT_TRUE(first.starts_with("a Dword 1\n@commit 41 2027-01-15T08:00:00Z 10 ")) << first;
    std::string second = "b Dword 1\nc Dword 2\n";
    store::closeTransaction(second, 42, 0);
    const store::LogScan whole = store::scanLog(first + second);
    EXPECT_EQ(whole.end, store::LogScan::End::whole);
    EXPECT_EQ(std::make_tuple(whole.lastNumber, whole.goodLines, whole.transactions),
              std::make_tuple(42U, 3U, 2U));
    // A repeated and an exchanged transaction are damage, although each is whole.
    EXPECT_EQ(store::scanLog(first + first).end, store::LogScan::End::damaged);
    EXPECT_EQ(store::scanLog(second + first).end, store::LogScan::End::damaged);
    // Behind what nothing closes, and with an editor's line breaks.
    std::string edited = "x Dword 1\n" + second;
    for (size_t at = 0; (at = edited.find('\n', at)) != std::string::npos; at += 2)
        edited.insert(at, 1, '\r');
    EXPECT_EQ(store::splitLog(edited).back().number, 42U);
    const std::string room = store::makeRoom(600);
    EXPECT_EQ(store::splitLog(room + second + room).size(), 1U);
    // The check value of "123456789" for CRC-32 is widely known.
    EXPECT_EQ(store::hexCrc("123456789"), "cbf43926");
    EXPECT_EQ(store::hexCrc("1"), "83dcefb7");
}

}  // namespace

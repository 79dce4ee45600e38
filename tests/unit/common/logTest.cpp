#include <gmock/gmock.h>

#include <filesystem>

#include "common/ostrelUtils.h"
#include "unit/capture.h"

namespace {

class Log : public testing::Test {
protected:
    void TearDown() override {
        ostrelSetPrintLevel(7);
        ostrelShowPrefix(0);
    }
    static std::string line(int level, const char* file = "/a/b/file", const char* function = "f") {
        return outputOf([=] { ostrelPrintLine(level, file, 12, function, "text %d", 5); });
    }
};

TEST_F(Log, MaskSelectsLevels) {
    EXPECT_EQ(line(0) + line(8), "");
    EXPECT_EQ(line(4), "text 5\n");
    ostrelSetPrintLevel(3);
    EXPECT_EQ(line(4) + line(3) + line(1), "text 5\n\033[41m**** ERROR ****\033[m text 5\n");
    int evaluated = 0;
    OSTREL_LOG_AT((LogPlace{"test", "f"}), 4, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0) << "the arguments of a hidden line";
}

TEST_F(Log, PrefixIsPaddedTo65AndCutAt255) {
    ostrelShowPrefix(1);
    const std::string text = line(2);
    EXPECT_THAT(text, testing::MatchesRegex("\\[NOT\\] [0-9]+\\.[0-9]{3}:file:12:f\\(\\): *text 5\n"));
    EXPECT_EQ(text.find("text"), 67U);
    EXPECT_THAT(line(5, nullptr, nullptr), testing::ContainsRegex("^\\[---\\] [0-9.]+:-:12:-: "));
    EXPECT_TRUE(contains(line(4, std::string(50, 'y').c_str()), ":f():  text"));
    EXPECT_EQ(line(1, std::string(300, 'x').c_str()).find("  \033[41m"), 255U);
}

TEST_F(Log, ExecuteReportsTheRawStatusAndCutsLongCommands) {
    EXPECT_EQ(outputOf([] { EXPECT_EQ(ostrelExecute("exit %d", 1), 256); }),
              "exec: [exit 1]\n\033[41m**** ERROR ****\033[m error: [exit 1]: 256\n");
    const std::string log =
        outputOf([] { EXPECT_EQ(ostrelExecute("true %s", std::string(600, 'x').c_str()), 0); });
    EXPECT_EQ(log, "exec: [true " + std::string(505, 'x') + "]\n");
}

TEST_F(Log, WriteFileReplacesTheContent) {
    const std::string path = testing::TempDir() + "ostrelWriteFile";
    EXPECT_EQ(ostrelWriteFile(path.c_str(), "long text") + ostrelWriteFile(path.c_str(), "new"), 2);
    EXPECT_EQ(std::filesystem::file_size(path), 3U);
    std::filesystem::remove(path);
    EXPECT_EQ(ostrelWriteFile("/missing/x", ""), 0);
}

TEST_F(Log, OwnerNumberTakesTheFirstFourBytes) {
    EXPECT_EQ(ostrelStringToOwner(nullptr), 0U);
    EXPECT_EQ(ostrelStringToOwner("ab"), 0x6261U);
    EXPECT_EQ(ostrelStringToOwner("\xFFxyz!"), 0x7A7978FFU);
}

}  // namespace

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <regex>

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
    EXPECT_EQ(line(0), "");
    EXPECT_EQ(line(4), "text 5\n");
    EXPECT_EQ(line(8), "");
    ostrelSetPrintLevel(3);
    EXPECT_EQ(line(4), "");
    EXPECT_EQ(line(3), "text 5\n");
    EXPECT_EQ(line(1), "\033[41m**** ERROR ****\033[m text 5\n");
}

TEST_F(Log, PrefixIsPaddedTo65) {
    ostrelShowPrefix(1);
    std::string text = line(2);
    EXPECT_TRUE(std::regex_match(text, std::regex("\\[NOT\\] \\d+\\.\\d{3}:file:12:f\\(\\): *text 5\n")))
        << text;
    EXPECT_EQ(text.find("text"), 67U);
    EXPECT_TRUE(std::regex_search(line(5, nullptr, nullptr), std::regex("^\\[---\\] [0-9.]+:-:12:-: ")));
    std::string longName(300, 'x');
    text = line(1, longName.c_str());
    EXPECT_EQ(text.find("  \033[41m"), 255U) << text;
    std::string justLonger(50, 'y');
    EXPECT_TRUE(contains(line(4, justLonger.c_str()), ":f():  text"));
}

TEST_F(Log, HiddenArgumentsAreNotEvaluated) {
    constexpr char logModule[] = "test";
    ostrelSetPrintLevel(3);
    int evaluated = 0;
    EXPECT_EQ(outputOf([&] { OSTREL_LOG_AS("f", 4, "%d", ++evaluated); }), "");
    EXPECT_EQ(evaluated, 0);
}

TEST_F(Log, ExecuteReportsTheRawStatusAndCutsLongCommands) {
    EXPECT_EQ(outputOf([] { EXPECT_EQ(ostrelExecute("exit %d", 1), 256); }),
              "exec: [exit 1]\n\033[41m**** ERROR ****\033[m error: [exit 1]: 256\n");
    std::string log = outputOf([] { EXPECT_EQ(ostrelExecute("true %s", std::string(600, 'x').c_str()), 0); });
    EXPECT_EQ(log, "exec: [true " + std::string(505, 'x') + "]\n");
}

TEST_F(Log, WriteFileReplacesTheContent) {
    std::string path = testing::TempDir() + "ostrelWriteFile";
    EXPECT_EQ(ostrelWriteFile(path.c_str(), "long text"), 1);
    EXPECT_EQ(ostrelWriteFile(path.c_str(), "new"), 1);
    std::string content;
    std::getline(std::ifstream(path), content, '\0');
    EXPECT_EQ(content, "new");
    std::remove(path.c_str());
    EXPECT_TRUE(contains(outputOf([] { EXPECT_EQ(ostrelWriteFile("/missing/x", ""), 0); }),
                         "error: opening file /missing/x"));
}

TEST_F(Log, OwnerNumberTakesTheFirstFourBytes) {
    EXPECT_EQ(ostrelStringToOwner(nullptr), 0U);
    EXPECT_EQ(ostrelStringToOwner("ab"), 0x6261U);
    EXPECT_EQ(ostrelStringToOwner("\xFF"
                                  "bcde"),
              0x646362FFU);
}

TEST_F(Log, OpenLogRedirectsAndTruncatesAndEndsQuietlyWithoutItsFolder) {
    std::string path = testing::TempDir() + "ostrelOpenLog";
    EXPECT_EXIT(
        {
            for (int i = 0; i < 2; ++i) {
                OpenLog(path.data());
                ostrelPrintLine(4, "f", 1, "g", "open %d", i);
            }
            Die("reason");
        },
        testing::ExitedWithCode(255), "");
    std::string content;
    std::getline(std::ifstream(path), content, '\0');
    EXPECT_EQ(content, "open 1\nFATAL ERROR :reason\n");
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644U);
    std::remove(path.c_str());
    char missing[] = "/missing/folder/log";
    EXPECT_EXIT(OpenLog(missing), testing::ExitedWithCode(0), "^$");
    EXPECT_EQ(OpenLog(nullptr), 0);
}

}  // namespace

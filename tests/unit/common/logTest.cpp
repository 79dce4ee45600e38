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
    EXPECT_EQ(line(0) + line(8), "");
    EXPECT_EQ(line(4), "text 5\n");
    ostrelSetPrintLevel(3);
    EXPECT_EQ(line(4), "");
    EXPECT_EQ(line(3), "text 5\n");
    EXPECT_EQ(line(1), "\033[41m**** ERROR ****\033[m text 5\n");
    constexpr char logModule[] = "test";
    int evaluated = 0;
    OSTREL_LOG_AS("f", 4, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0) << "the arguments of a hidden line";
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
    EXPECT_EQ(ostrelWriteFile("/missing/x", ""), 0);
}

TEST_F(Log, OwnerNumberTakesTheFirstFourBytes) {
    EXPECT_EQ(ostrelStringToOwner(nullptr), 0U);
    EXPECT_EQ(ostrelStringToOwner("ab"), 0x6261U);
    EXPECT_EQ(ostrelStringToOwner("\xFFxyz!"), 0x7A7978FFU);
}

}  // namespace

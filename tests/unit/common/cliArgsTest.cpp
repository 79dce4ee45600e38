#include "common/cliArgs.h"

#include <vector>

#include "unit/capture.h"

namespace {

class CliArgs : public testing::Test {
protected:
    int parse(std::vector<std::string> arguments) {
        kept = std::move(arguments);
        std::vector<char*> argv;
        for (std::string& argument : kept)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        output = outputOf([&] { result = CliArgs_Parse(table, static_cast<int>(kept.size()), argv.data()); });
        return result;
    }

    char* file = nullptr;
    int number = -1;
    int flag = 0;
    int result = -1;
    std::vector<std::string> kept;
    std::string output;
    TParser_Arg table[5] = {
        {"-f", "--file", "a file", "path", &file, CLIARG_STRING, 0, 0},
        {nullptr, "--number", "a number", nullptr, &number, CLIARG_INTEGER, 1, 0},
        {"-v", nullptr, "verbose", "a long text", &flag, CLIARG_FLAG, 0, 0},
        {"-x", "--no-target", "broken", nullptr, nullptr, CLIARG_FLAG, 0, 0},
        {nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, 0},
    };
};

TEST_F(CliArgs, LastValueWinsAndValuesMayLookLikeOptions) {
    EXPECT_EQ(parse({"-f", "a", "--number", "12x", "--file", "-v", "-v"}), 1);
    EXPECT_STREQ(file, "-v");
    EXPECT_EQ(number, 12);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(output, "");
    EXPECT_EQ(table[0].found + table[1].found + table[2].found + table[3].found, 3);
}

TEST_F(CliArgs, EachFailureHasItsMessage) {
    EXPECT_EQ(parse({"-v", "--file=a"}), 0);
    EXPECT_EQ(output, "unknown argument '--file=a'\n");
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(parse({"--file"}), 0);
    EXPECT_EQ(output, "argument missing for option --file\n");
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(parse({}), 0);
    EXPECT_EQ(output, "missing required option --number\n");
    EXPECT_EQ(parse({"-x"}), 0);
    EXPECT_EQ(output, "error: null memory pointer\n");
}

TEST_F(CliArgs, UsageAlignsItsColumns) {
    char program[] = "prog";
    EXPECT_EQ(outputOf([&] { CliArgs_Usage(program, table); }),
              "Usage: prog [-f path] --number  [-v] [-x] \n"
              "Full arguments list:\n"
              "      -f --file      path          (a file)\n"
              "    *    --number                  (a number)\n"
              "      -v                           (verbose)\n"
              "      -x --no-target               (broken)\n"
              "\n");
}

}  // namespace

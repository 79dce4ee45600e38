// The messages; what is stored is the fuzz target's business.
#include "common/cliArgs.h"

#include <vector>

#include "unit/capture.h"

namespace {

char* file = nullptr;
int number = 0;
int flag = 0;
const std::vector<TParser_Arg> rows = {
    {"-f", "--file", "a file", "path", &file, CLIARG_STRING, 0, 0},
    {nullptr, "--number", "a number", nullptr, &number, CLIARG_INTEGER, 1, 0},
    {"-v", nullptr, "verbose", "a long text", &flag, CLIARG_FLAG, 0, 0},
    {"-x", "--no-target", "broken", nullptr, nullptr, CLIARG_FLAG, 0, 0},
    {nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, 0},
};

// Of a refused command line.
std::string messageFor(std::vector<std::string> arguments) {
    std::vector<TParser_Arg> table = rows;
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    return outputOf(
        [&] { EXPECT_EQ(CliArgs_Parse(table.data(), static_cast<int>(arguments.size()), argv.data()), 0); });
}

TEST(CliArgs, EachFailureHasItsMessage) {
    EXPECT_EQ(messageFor({"-v", "--file=a"}), "unknown argument '--file=a'\n");
    EXPECT_EQ(messageFor({"--file"}), "argument missing for option --file\n");
    EXPECT_EQ(messageFor({}), "missing required option --number\n");
    EXPECT_EQ(messageFor({"-x"}), "error: null memory pointer\n");
}

TEST(CliArgs, UsageAlignsItsColumns) {
    std::vector<TParser_Arg> table = rows;
    char program[] = "prog";
    EXPECT_EQ(outputOf([&] { CliArgs_Usage(program, table.data()); }),
              "Usage: prog [-f path] --number  [-v] [-x] \n"
              "Full arguments list:\n"
              "      -f --file      path          (a file)\n"
              "    *    --number                  (a number)\n"
              "      -v                           (verbose)\n"
              "      -x --no-target               (broken)\n"
              "\n");
}

}  // namespace

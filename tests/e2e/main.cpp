// Runs the tests inside an appliance of their own; only listing them happens outside.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "common/ostrelUtils.h"

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc + 1);
    testing::InitGoogleTest(&argc, argv);
    constexpr char insideMark[] = "OSTREL_TEST_APPLIANCE";
    printMask = 0;  // the links of the tests' own clients would log
    if (GTEST_FLAG_GET(list_tests) || std::getenv(insideMark) != nullptr)
        return RUN_ALL_TESTS();
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;  // for crowds of clients
    setrlimit(RLIMIT_NOFILE, &limit);
    setenv(insideMark, "1", 1);
    char appliance[] = APPLIANCE;
    char image[] = IMAGE;
    std::string self = std::filesystem::read_symlink("/proc/self/exe");
    arguments.front() = self.data();
    arguments.insert(arguments.begin(), {appliance, image});
    execv(appliance, arguments.data());
    std::perror(appliance);
    return 1;
}

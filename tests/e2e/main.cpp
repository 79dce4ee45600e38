// Runs the tests inside an appliance of their own; only listing them happens outside.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc + 1);
    testing::InitGoogleTest(&argc, argv);
    constexpr char insideMark[] = "OSTREL_TEST_APPLIANCE";
    if (GTEST_FLAG_GET(list_tests) || std::getenv(insideMark) != nullptr)
        return RUN_ALL_TESTS();
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

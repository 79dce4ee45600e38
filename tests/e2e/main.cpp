// Runs the tests inside an appliance of their own; only listing them happens outside.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

constexpr char insideMark[] = "OSTREL_TEST_APPLIANCE";

[[noreturn]] void enterAppliance(int argc, char** argv) {
    setenv(insideMark, "1", 1);
    char appliance[] = APPLIANCE;
    char image[] = IMAGE;
    char self[] = "/proc/self/exe";
    std::vector<char> path(4096, '\0');
    if (readlink(self, path.data(), path.size() - 1) < 0)
        std::abort();
    std::vector<char*> arguments{appliance, image, path.data()};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    arguments.push_back(nullptr);
    execv(appliance, arguments.data());
    std::perror(appliance);
    std::exit(1);
}

}  // namespace

int main(int argc, char** argv) {
    bool listing = false;
    for (int i = 1; i < argc; ++i)
        listing = listing || std::string_view(argv[i]) == "--gtest_list_tests";
    if (!listing && std::getenv(insideMark) == nullptr)
        enterAppliance(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

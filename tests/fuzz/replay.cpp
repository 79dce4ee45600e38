// Feeds a fuzz target with the files of its corpus, where there is no fuzzer.
//
// usage: fuzz.TARGET FOLDER
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"

int main(int argc, char** argv) {
    int inputs = 0;
    if (argc != 2 || std::freopen("/dev/null", "w", stdout) == nullptr)  // the log
        return EXIT_FAILURE;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
        std::fprintf(stderr, "%s\n", entry.path().c_str());  // first: what follows may crash
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    return inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

#include "server/pluginSymbols.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

const std::string symbolFile = testing::TempDir() + "pluginSymbols." + std::to_string(getpid());

std::optional<ExtraSymbols> readFrom(const std::string& content) {
    std::ofstream(symbolFile, std::ios::binary) << content;
    return readExtraSymbols(symbolFile);
}

// Cut, and with extremes: in the header, in the symbols, which stand near it, and in what tells of the
// tables.
TEST(PluginSymbols, BearAnyByteOfTheFile) {
    std::ifstream file(COLLIDES, std::ios::binary);
    const std::string good(std::istreambuf_iterator<char>(file), {});
    ASSERT_EQ(readFrom(good)->plain, std::vector<std::string>{"_Z5plainPi"});
    uint64_t sections = 0;
    std::memcpy(&sections, &good.at(40), sizeof sections);
    for (size_t at = 0; at < good.size(); at += at < 64 ? 1 : at < 2048 ? 4 : at < sections ? 197 : 3) {
        readFrom(good.substr(0, at));
        for (uint32_t word : {0U, 8U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
            std::string damaged = good;
            std::memcpy(&damaged[at], &word, std::min(sizeof word, good.size() - at));
            readFrom(damaged);
        }
    }
    EXPECT_FALSE(readFrom(""));
    EXPECT_FALSE(readFrom(good.substr(0, sections)));
    EXPECT_FALSE(readExtraSymbols("/dev/zero"));
    std::filesystem::remove(symbolFile);
}

}  // namespace

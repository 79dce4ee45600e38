#include "scale.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "measure.h"
#include "ostrel/client.hpp"
#include "subject.h"
#include "text/fixedPaths.h"

namespace {

constexpr double microsecond = 1e-6;

void print(const std::string& what, double seconds, int items) {
    std::printf("%-44s %9.2f us per item\n", what.c_str(), seconds / items / microsecond);
    std::fflush(stdout);
}

// In transactions of some thousand, as their length is bounded.
template <class Stage>
double secondsOfAll(ostrel::Session& session, int items, Stage stage) {
    constexpr int itemsOfCommit = 2000;
    return secondsOf([&] {
        for (int first = 0; first < items; first += itemsOfCommit) {
            ostrel::Transaction transaction;
            for (int i = first; i < std::min(items, first + itemsOfCommit); ++i)
                stage(transaction, static_cast<uint32_t>(i) + 1);
            session.apply(transaction);
        }
    });
}

void measureOwners(int owners) {
    const std::string size = ", " + std::to_string(owners) + " owners";
    std::ofstream(templatesPath) << "[t]\nmember Dword 1\n";
    const Process server = startServer(1);
    std::filesystem::resize_file(templatesPath, 0);
    ostrel::Session session("bench");
    print("new instance" + size,
          secondsOfAll(session, owners,
                       [](auto& transaction, uint32_t owner) { transaction.newInstance("t", "s", owner); }),
          owners);
    const int asked = std::min(owners, 5000);
    print("instances of one owner" + size, secondsOf([&] {
              for (int i = 1; i <= asked; ++i)
                  session.list("s", static_cast<uint32_t>(i * (owners / asked)));
          }),
          asked);
    print("removal of one owner's" + size,
          secondsOfAll(session, owners,
                       [](auto& transaction, uint32_t owner) { transaction.removeOwned("s", owner); }),
          owners);
}

// One structure whose instances have different templates.
void measureTemplates(int templates) {
    const std::string size = ", " + std::to_string(templates) + " templates of 10 members";
    const int instances = 10 * templates;
    std::filesystem::remove(livePath);
    {
        std::ofstream file(templatesPath);
        std::ofstream defaults(defaultsPath);
        for (int i = 0; i < templates; ++i) {
            file << "[t" << i << "]\n";
            for (int member = 0; member < 10; ++member)
                file << 'm' << i << '_' << member << " Byte 1\n";
        }
        defaults << keyName(0) << " Dword 1\n";
        for (int i = 1; i <= instances; ++i)
            defaults << "s[" << i << "] instance t" << i % templates << " 0\n";
    }
    std::optional<Process> server;
    const double start = secondsOf([&] { server.emplace(launchServer().release()); });
    std::filesystem::resize_file(templatesPath, 0);
    print("start, an instance of any" + size, start, instances);
    ostrel::Session session("bench");
    print("new instance" + size,
          secondsOfAll(session, 2000,
                       [](auto& transaction, uint32_t) { transaction.newInstance("t1", "s", 0); }),
          2000);
    print("removal of an instance" + size,
          secondsOfAll(session, 2000, [](auto& transaction, uint32_t key) { transaction.remove("s", key); }),
          2000);
}

// All keys are changed, and a copy stands in the file's place: the next commit writes it anew.
void measureRewrite(int keys) {
    constexpr int keysOfCommit = 2000;
    const Process server = startServer(keys);
    Connection client(socketPath);
    for (int first = 0; first < keys; first += keysOfCommit)
        commitMany(client, first, std::min(keysOfCommit, keys - first), 1);
    std::vector<double> seconds;
    for (uint32_t value = 2; value < 7; ++value) {
        const std::string copy = std::string(livePath) + ".copy";
        std::filesystem::copy_file(livePath, copy);
        std::filesystem::rename(copy, livePath);
        seconds.push_back(secondsOf([&] { commitOne(client, 0, value); }));
        std::filesystem::remove(std::string(livePath) + ".damaged-1");
    }
    print("rewrite, a key of " + std::to_string(keys), median(seconds), keys);
}

}  // namespace

void measureScale() {
    for (const int keys : {10000, 100000, 1000000})
        measureRewrite(keys);
    for (const int owners : {10000, 100000})
        measureOwners(owners);
    for (const int templates : {100, 1000})
        measureTemplates(templates);
}

// Measures the daemon against the least that could be done instead. Runs inside an appliance, see `make
// bench`.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "echoServer.h"
#include "measure.h"
#include "ostrel/client.hpp"
#include "scale.h"
#include "subject.h"
#include "text/fixedPaths.h"

namespace fs = std::filesystem;

namespace {

constexpr double microsecond = 1e-6;

void print(const char* what, const Comparison& result, const char* aim) {
    std::printf("%-44s %9.1f us  bare %9.1f us  ratio %5.2f (%.2f to %.2f)  aim %s\n", what,
                result.ours / microsecond, result.baseline / microsecond, result.ratio, result.lowest,
                result.highest, aim);
    std::fflush(stdout);
}

// The appliance's files are in memory; a forced write only costs something on a disk.
void useDisk(const fs::path& folder) {
    fs::create_directories(folder);
    fs::create_directories("/vemra/var");
    if (mount(folder.c_str(), "/vemra/var", nullptr, MS_BIND, nullptr) != 0)
        std::perror("the disk's folder cannot be mounted; forced writes are measured in memory");
    for (const auto& entry : fs::directory_iterator("/vemra/var"))
        fs::remove(entry.path());
}

void compareReads() {
    Process server = startServer(1000);
    Process echo = startEcho();
    Connection ours(socketPath);
    Connection bare(echoPath);
    for (int keys : {1, 100}) {
        std::string request = readRequest(0, keys);
        uint32_t replySize = ours.ask(request);
        std::string echoed = echoRequest(echoTask::reply, replySize, request.size());
        Comparison result = compare(
            41, keys == 1 ? 2000 : 500, [&] { ours.ask(request); }, [&] { bare.ask(echoed); });
        print(keys == 1 ? "read one key" : "read 100 keys in one request", result,
              keys == 1 ? "1.10" : "1.50");
        if (keys > 1)
            std::printf("%-44s %9.0f values per second\n", "", keys / result.ours);
    }
    Connection idle(socketPath);
    Connection idleBare(echoPath);
    std::string request = readRequest(0, 1);
    uint32_t replySize = idle.ask(request);
    std::string echoed = echoRequest(echoTask::reply, replySize, request.size());
    idleBare.ask(echoed);
    print(
        "connect and read one key, beside idle clients",
        compare(
            41, 300, [&] { Connection(socketPath).ask(request); }, [&] { Connection(echoPath).ask(echoed); }),
        "1.50");
}

// Many requests for one key before the first answer is taken: of one connection, then of one for each
// request.
void compareMany() {
    const Process server = startServer(1000);
    const Process echo = startEcho();
    const std::string request = readRequest(0, 1);
    const uint32_t replySize = Connection(socketPath).ask(request);
    const std::string echoed = echoRequest(echoTask::reply, replySize, request.size());

    constexpr size_t inFlight = 32;
    Connection ours(socketPath);
    Connection bare(echoPath);
    const auto askTogether = [](Connection& connection, const std::string& payload) {
        connection.sendTogether(std::vector<std::string>(inFlight, payload));
        for (size_t i = 0; i < inFlight; ++i)
            connection.receive();
    };
    print("32 requests in flight",
          compare(
              41, 60, [&] { askTogether(ours, request); }, [&] { askTogether(bare, echoed); }),
          "1.05");

    using Connections = std::deque<Connection>;
    const auto askOnEach = [](Connections& connections, const std::string& payload) {
        for (const Connection& connection : connections)
            connection.send(payload);
        for (Connection& connection : connections)
            connection.receive();
    };
    for (const int count : {10, 50}) {
        Connections ofOurs;
        Connections ofBare;
        for (int i = 0; i < count; ++i) {
            ofOurs.emplace_back(socketPath);
            ofBare.emplace_back(echoPath);
        }
        print(count == 10 ? "10 clients at once" : "50 clients at once",
              compare(
                  41, 600 / count, [&] { askOnEach(ofOurs, request); }, [&] { askOnEach(ofBare, echoed); }),
              count == 10 ? "1.10" : "1.05");
    }
}

// A frame in one write, against a client that writes its three parts one by one.
void compareClients() {
    Process server = startServer(1000);
    Connection threeWrites(socketPath);
    std::string request = readRequest(0, 1);
    ostrel::Session library("bench");
    const std::string name = keyName(0);
    print("read one key with the client library",
          compare(
              41, 2000, [&] { library.read(name); }, [&] { threeWrites.ask(request); }),
          "0.67");
}

void compareCommits() {
    Process echo = startEcho();
    Connection bare(echoPath);
    Process server = startServer(1000);
    Connection ours(socketPath);
    constexpr int sample = 100;
    uint32_t value = 1000;
    commitOne(ours, 0, value++);
    auto before = fs::file_size(livePath);
    for (int i = 0; i < sample; ++i)
        commitOne(ours, i, value++);
    auto appended = static_cast<uint32_t>((fs::file_size(livePath) - before) / sample);
    uint32_t replySize = ours.ask(readRequest(0, 0));
    std::string echoed = echoRequest(echoTask::appendAndSync, replySize, 40, appended);
    int key = 0;
    print("durable commit of one key",
          compare(
              41, 40, [&] { commitOne(ours, key++ % 1000, value++); }, [&] { bare.ask(echoed); }),
          "1.15");
}

// The two servers cannot run at once, so their rounds are not interleaved; both are compared with the bare
// append.
void compareSizes() {
    Process echo = startEcho();
    Connection bare(echoPath);
    std::string echoed = echoRequest(echoTask::appendAndSync, 8, 40, 100);
    for (int keys : {1000, 1000000}) {
        Process server = startServer(keys);
        Connection ours(socketPath);
        uint32_t value = 0;
        Comparison result = compare(
            21, 40,
            [&] {
                commitOne(ours, static_cast<int>(value) % 1000, value + 7);
                ++value;
            },
            [&] { bare.ask(echoed); });
        print(keys == 1000 ? "commit with 1,000 keys" : "commit with 1,000,000 keys", result, "the same");
    }
}

// The two servers cannot run at once.
double secondsOfCommit(int keys) {
    const Process server = startServer(keys);
    Connection ours(socketPath);
    std::vector<double> seconds;
    for (uint32_t i = 1; i <= 21; ++i)
        seconds.push_back(secondsOf([&] { commitMany(ours, 0, keys, i); }));
    return median(seconds);
}

void measureWatchers(const fs::path& watching) {
    constexpr int keys = 1000;
    const double alone = secondsOfCommit(keys);
    for (int i = 0; i < 20; ++i)
        fs::copy_file(watching, fs::path(pluginFolder) / ("watching" + std::to_string(i) + ".ostr"));
    const double watched = secondsOfCommit(keys);
    std::printf("%-44s %9.0f us  with 20 plug-ins of 50 patterns %9.0f us more  aim 1,000\n",
                "commit of 1,000 keys", alone / microsecond, (watched - alone) / microsecond);
    for (int i = 0; i < 20; ++i)
        fs::remove(fs::path(pluginFolder) / ("watching" + std::to_string(i) + ".ostr"));
}

void measureStart() {
    constexpr int keys = 100000;
    constexpr double nameAndValue = 14 + 4;
    std::vector<double> seconds;
    size_t memory = 0;
    for (int i = 0; i < 7; ++i) {
        writeDefaults(keys);
        seconds.push_back(secondsOf([&] { memory = privateMemory(launchServer().pid()); }));
    }
    size_t base = privateMemory(startServer(10).pid());
    std::printf("%-44s %9.0f ms  aim 500 ms\n", "start with 100,000 keys, to the first answer",
                median(seconds) * 1000);
    std::printf("%-44s %9.0f bytes beyond its name and value  aim 200\n", "memory of a key",
                static_cast<double>(memory - base) / keys - nameAndValue);
}

}  // namespace

int main(int, char** argv) {
    useDisk(fs::path(argv[0]).parent_path() / "benchData");
    for (const auto& entry : fs::directory_iterator(pluginFolder))
        fs::remove(entry.path());
    fs::copy_file(fs::path(argv[0]).parent_path() / "idle.ostr", fs::path(pluginFolder) / "idle.ostr");
    fs::resize_file(templatesPath, 0);
    pinToOneProcessor();
    compareReads();
    compareMany();
    compareClients();
    compareCommits();
    compareSizes();
    measureWatchers(fs::path(argv[0]).parent_path() / "watching.ostr");
    measureScale();
    measureStart();
    return 0;
}

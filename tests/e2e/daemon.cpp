#include "daemon.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "client.h"
#include "files.h"

namespace fs = std::filesystem;

const fs::path pluginFolder = "/vemra/default/ostrPlugins";

bool eventually(const std::function<bool()>& condition, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A log of thousands of clients would hide the failure.
std::string lastLines(const std::string& text) {
    constexpr size_t longest = 20000;
    return text.size() <= longest ? text : text.substr(text.find('\n', text.size() - longest));
}

Daemon::Daemon() {
    for (const char* path :
         {"/vemra/var", "/tmp/log", "/tmp/log.kept", "/tmp/output", "/tmp/calls", "/tmp/ostrel.sock"})
        fs::remove_all(path);
    factory("");
    noPlugins();
    plugin("p", "watch *\n");
}

Daemon::~Daemon() {
    if (pid_ != -1) {
        signal(SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (testing::Test::HasFailure())
        std::cerr << lastLines(log()) << output();
}

void Daemon::factory(const std::string& defaults, const std::string& templates) const {
    writeFile("/vemra/default/ostrDbDflt.txt", defaults);
    writeFile("/vemra/default/ostrDbTmplt.txt", templates);
}

void Daemon::script(const std::string& name, const std::string& script) const {
    writeFile("/tmp/" + name + ".script", script);
}

void Daemon::plugin(const std::string& name, const std::string& script, const std::string& object) const {
    this->script(name, script);
    fs::copy_file(fs::path(PLUGINS) / (object + ".ostr"), pluginFolder / (name + ".ostr"),
                  fs::copy_options::overwrite_existing);
}

void Daemon::noPlugins() const {
    fs::remove_all(pluginFolder);
    fs::create_directories(pluginFolder);
}

void Daemon::start(const std::string& options) {
    launch((verbose ? "-d -v -l /tmp/log " : "-d -l /tmp/log ") + options);
    ASSERT_TRUE(eventually([] { return Client().ask(list(code::read)).has_value(); }))
        << "it does not come up";
}

void Daemon::launch(const std::string& options) {
    pid_ = fork();
    if (pid_ == 0) {
        if (endsEarly)
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        close_range(STDERR_FILENO + 1, ~0U, 0);
        const rlimit limit{softDescriptorLimit != 0 ? softDescriptorLimit : descriptorLimit, descriptorLimit};
        if (descriptorLimit != 0)
            setrlimit(RLIMIT_NOFILE, &limit);
        // As some parents hand it on; a shell cannot.
        const std::string command =
            "exec env --ignore-signal=CHLD /vemra/bin/ostrelServer " + options + " >/tmp/output 2>&1";
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(126);
    }
}

int Daemon::run(const std::string& options) {
    launch(options);
    return wait();
}

void Daemon::signal(int number) const { kill(pid_, number); }

int Daemon::wait() {
    int status = 0;
    if (!eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
        ADD_FAILURE() << "the daemon does not end";
        return -1000;
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int Daemon::stop() {
    signal(SIGTERM);
    return wait();
}

Daemon::Usage Daemon::usage() const {
    const fs::path process = "/proc/" + std::to_string(pid_);
    size_t pages = 0;
    std::ifstream(process / "statm") >> pages >> pages;
    const auto count = std::distance(fs::directory_iterator(process / "fd"), fs::directory_iterator());
    const std::string status = readFile(process / "status");
    const size_t kilobytes = std::stoul(status.substr(status.find("VmHWM:") + 6));
    return {static_cast<size_t>(count), pages * 4096, kilobytes * 1024};
}

void Daemon::limitMemory(size_t more) const {
    size_t pages = 0;
    std::ifstream("/proc/" + std::to_string(pid_) + "/statm") >> pages;
    const rlimit limit{pages * 4096 + more, RLIM_INFINITY};
    for (const auto resource : {RLIMIT_AS, RLIMIT_DATA})
        EXPECT_EQ(prlimit(pid_, resource, &limit, nullptr), 0);
}

std::string Daemon::log() const { return readFile("/tmp/log"); }

bool Daemon::logged(const std::string& part) const {
    return eventually([&] { return contains(readFile("/tmp/log.kept") + log(), part); });
}

std::string Daemon::output() const { return readFile("/tmp/output"); }

std::string Daemon::calls() const {
    std::string calls = readFile("/tmp/calls");
    fs::remove("/tmp/calls");
    std::replace(calls.begin(), calls.end(), '\n', ',');
    return calls;
}

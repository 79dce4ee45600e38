#include "daemon.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "client.h"

namespace fs = std::filesystem;

const fs::path pluginFolder = "/vemra/default/ostrPlugins";

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 2000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

Daemon::Daemon() {
    for (const char* path : {"/vemra/var", "/tmp/log", "/tmp/output", "/tmp/calls", "/tmp/ostrel.sock"})
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
        std::cerr << log() << output();
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
    launch("-d -v -l /tmp/log " + options);
    ASSERT_TRUE(eventually([] { return Client().ask(list(20)).has_value(); })) << "it does not come up";
}

void Daemon::launch(const std::string& options) {
    pid_ = fork();
    if (pid_ == 0) {
        if (endsEarly)
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        std::string command = "exec /vemra/bin/ostrelServer " + options + " >/tmp/output 2>&1";
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

std::string Daemon::log() const { return readFile("/tmp/log"); }

bool Daemon::logged(const std::string& part) const {
    return eventually([&] { return contains(log(), part); });
}

std::string Daemon::output() const { return readFile("/tmp/output"); }

std::string Daemon::calls() const {
    std::string calls = readFile("/tmp/calls");
    fs::remove("/tmp/calls");
    std::replace(calls.begin(), calls.end(), '\n', ',');
    return calls;
}

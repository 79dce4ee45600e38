#include "daemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "client.h"

namespace fs = std::filesystem;

namespace {

constexpr char server[] = "/vemra/bin/ostrelServer";
constexpr char pluginFolder[] = "/vemra/default/ostrPlugins";
constexpr char logPath[] = "/tmp/log";
constexpr char outputPath[] = "/tmp/output";
constexpr char callsPath[] = "/tmp/calls";

// For the tests that connect more clients than the usual limit has descriptors.
void allowManyDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void shortPause() { std::this_thread::sleep_for(std::chrono::milliseconds(5)); }

void writeFile(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

Daemon::Daemon() {
    allowManyDescriptors();
    for (const char* path : {"/vemra/var", pluginFolder, logPath, outputPath, callsPath, "/tmp/ostrel.sock"})
        fs::remove_all(path);
    defaults("");
    templates("");
    fs::create_directories(pluginFolder);
    plugin("p", "watch *\n");
}

Daemon::~Daemon() {
    if (pid_ != -1) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (testing::Test::HasFailure())
        std::cerr << log() << output();
}

void Daemon::defaults(const std::string& content) const {
    writeFile("/vemra/default/ostrDbDflt.txt", content);
}

void Daemon::templates(const std::string& content) const {
    writeFile("/vemra/default/ostrDbTmplt.txt", content);
}

void Daemon::script(const std::string& name, const std::string& script) const {
    writeFile("/tmp/" + name + ".script", script);
}

void Daemon::plugin(const std::string& name, const std::string& script, const std::string& object) const {
    this->script(name, script);
    fs::copy_file(fs::path(PLUGINS) / (object + ".ostr"), fs::path(pluginFolder) / (name + ".ostr"),
                  fs::copy_options::overwrite_existing);
}

void Daemon::noPlugins() const {
    for (const auto& entry : fs::directory_iterator(pluginFolder))
        fs::remove_all(entry);
}

void Daemon::start(const std::vector<std::string>& options) {
    std::vector<std::string> all = {"-d", "-v", "-l", logPath};
    all.insert(all.end(), options.begin(), options.end());
    launch(all);
    ASSERT_TRUE(eventually([] {
        Client client;
        return client.connected() && client.ask(list(20)).has_value();
    })) << "the daemon does not come up";
}

void Daemon::launch(const std::vector<std::string>& options) {
    std::vector<char*> arguments;
    std::string program = server;
    std::vector<std::string> kept = options;
    arguments.push_back(program.data());
    for (std::string& option : kept)
        arguments.push_back(option.data());
    arguments.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        if (endsEarly)
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        int out = open(outputPath, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        execv(server, arguments.data());
        _exit(126);
    }
}

int Daemon::run(const std::vector<std::string>& options) {
    launch(options);
    return wait();
}

void Daemon::signal(int number) const { kill(pid_, number); }

int Daemon::wait() {
    int status = 0;
    bool ended = eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
    EXPECT_TRUE(ended) << "the daemon does not end";
    if (!ended)
        return -1000;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int Daemon::stop() {
    signal(SIGTERM);
    return wait();
}

std::string Daemon::log() const { return readFile(logPath); }

std::string Daemon::output() const { return readFile(outputPath); }

std::string Daemon::calls() const {
    std::string calls = readFile(callsPath);
    fs::remove(callsPath);
    for (char& character : calls) {
        if (character == '\n')
            character = ',';
    }
    return calls;
}

bool Daemon::logged(const std::string& part) const {
    return eventually([&] { return contains(log(), part); });
}

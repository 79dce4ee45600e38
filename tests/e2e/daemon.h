// The real server on its real paths, started and watched by a test.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
bool contains(const std::string& text, const std::string& part);
std::size_t occurrences(const std::string& text, const std::string& part);

void shortPause();

// Polls until the condition holds; false when it does not within ten seconds.
template <typename Condition>
bool eventually(Condition condition) {
    for (int i = 0; i < 2000; ++i) {
        if (condition())
            return true;
        shortPause();
    }
    return false;
}

class Daemon {
public:
    // Clears what a former test's daemon left, then puts in place one scripted plug-in p that watches
    // everything.
    Daemon();
    // Kills a daemon that still runs.
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Before start.
    void defaults(const std::string& content) const;
    void templates(const std::string& content) const;
    // Installs a test plug-in under a name; a scripted one obeys the script.
    void plugin(const std::string& name, const std::string& script,
                const std::string& object = "scripted") const;
    // Changes the script of an installed one, also while it is loaded.
    void script(const std::string& name, const std::string& script) const;
    void noPlugins() const;

    // In debug mode, verbose, with the log in /tmp/log, until it answers.
    void start(const std::vector<std::string>& options = {});
    // With exactly these options; waits for nothing.
    void launch(const std::vector<std::string>& options);
    // Runs to the end with exactly these options.
    int run(const std::vector<std::string>& options);
    void signal(int number) const;
    // The exit status; -N for the signal N. Fails the test when it does not end in time.
    int wait();
    // An orderly stop by SIGTERM.
    int stop();

    pid_t pid() const { return pid_; }
    std::string log() const;
    // What launch and run saw on standard output.
    std::string output() const;
    // The calls of the scripted plug-ins since the last look, joined by commas.
    std::string calls() const;
    bool logged(const std::string& part) const;

    // A daemon that ends in the middle of things does not release its memory: leak checks off.
    bool endsEarly = false;

private:
    pid_t pid_ = -1;
};

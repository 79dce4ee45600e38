// The real server on its real paths, started and watched by a test.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

#include "unit/capture.h"

// Polls until the condition holds; false when it does not in time.
bool eventually(const std::function<bool()>& condition,
                std::chrono::seconds limit = std::chrono::seconds(10));

// How much more memory than before is none. (Of no use with AddressSanitizer: it keeps what is freed.)
constexpr size_t memorySlack = size_t{1} << 20U;

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
    void factory(const std::string& defaults, const std::string& templates = "") const;
    // Installs a test plug-in under a name; a scripted one obeys the script.
    void plugin(const std::string& name, const std::string& script,
                const std::string& object = "scripted") const;
    // Changes the script of an installed one, also while it is loaded.
    void script(const std::string& name, const std::string& script) const;
    void noPlugins() const;

    // In debug mode, with the log in /tmp/log, until it answers.
    void start(const std::string& options = "");
    // With exactly these options; waits for nothing.
    void launch(const std::string& options);
    // Runs to the end with exactly these options.
    int run(const std::string& options);
    void signal(int number) const;
    // The exit status; -N for the signal N. Fails the test when it does not end in time.
    int wait();
    // An orderly stop by SIGTERM.
    int stop();

    std::string log() const;
    // Also in what was kept of a long one.
    bool logged(const std::string& part) const;
    // What launch and run saw on standard output.
    std::string output() const;
    // The calls of the scripted plug-ins since the last look, joined by commas.
    std::string calls() const;

    // What it holds just now; memory is what is resident, in bytes, and peak the most of it that ever was.
    struct Usage {
        size_t descriptors = 0;
        size_t memory = 0;
        size_t peak = 0;
    };
    Usage usage() const;
    // From now on it gets no more than so many bytes of address space beside what it has.
    void limitMemory(size_t more) const;

    // For start().
    bool verbose = true;
    // How many descriptors it may have; 0: as many as the test.
    rlim_t descriptorLimit = 0;
    rlim_t softDescriptorLimit = 0;  // 0: the same
    // A daemon that ends in the middle of things does not release its memory: leak checks off.
    bool endsEarly = false;

private:
    pid_t pid_ = -1;
};

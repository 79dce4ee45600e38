// The servers that are measured, and a client that treats both alike: three writes, then three reads a frame.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// A child process; killed and reaped at the end.
class Process {
public:
    explicit Process(pid_t pid) : pid_(pid) {}
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    pid_t pid() const { return pid_; }
    // The caller ends the process from now on.
    pid_t release() { return std::exchange(pid_, 0); }

private:
    pid_t pid_;
};

Process startEcho();
// Makes the next server start with this many default keys and nothing else.
void writeDefaults(int keys);
// The real server; returns when it has answered.
Process launchServer();
Process startServer(int keys);
std::string keyName(int number);

class Connection {
public:
    explicit Connection(const char* path);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void send(const std::string& payload) const;
    // A whole write sequence in one write, as a client would that has all of it.
    void sendTogether(const std::vector<std::string>& payloads) const;
    // Returns the reply's payload size.
    uint32_t receive();
    uint32_t ask(const std::string& payload) {
        send(payload);
        return receive();
    }

private:
    int fd_;
    std::string reply_;
};

constexpr char echoPath[] = "/tmp/echo.sock";

std::string readRequest(int firstKey, int count);
std::string echoRequest(unsigned int task, uint32_t replySize, size_t requestSize, uint32_t append = 0);
// One transaction that gives the keys from the first on this value; it is durable on return.
void commitMany(Connection& connection, int firstKey, int count, uint32_t value);
void commitOne(Connection& connection, int key, uint32_t value);
// Resident bytes of a process that are its own.
size_t privateMemory(pid_t pid);

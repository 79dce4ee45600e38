#include "ostrelPeer.h"

#include <optional>

#include "bench/echoServer.h"
#include "bench/subject.h"
#include "ostrel/client.hpp"
#include "text/fixedPaths.h"

namespace {

// The sizes of ostrel's frames for the same question: a list, and for each key its fields, name and value.
size_t requestSize(int keys) { return readRequest(0, keys).size(); }
uint32_t replySize(int keys) {
    return static_cast<uint32_t>(requestSize(keys)) + 4 * static_cast<uint32_t>(keys);
}
// A transaction's bytes in the live file: its two lines, and one for each value.
uint32_t appendSize(int keys) { return 40 + 32 * static_cast<uint32_t>(keys); }

class EchoClient : public Client {
public:
    void read(int, int count) override {
        if (count != keys_) {
            keys_ = count;
            request_ = echoRequest(echoTask::reply, replySize(count), requestSize(count));
        }
        connection_.ask(request_);
    }
    void commit(int, int count, uint32_t) override {
        connection_.ask(echoRequest(echoTask::appendAndSync, 8, requestSize(count), appendSize(count)));
    }
    void ask(int) override { connection_.send(single_); }
    void take() override { connection_.receive(); }

private:
    Connection connection_{echoPath};
    int keys_ = 0;
    std::string request_;
    std::string single_ = echoRequest(echoTask::reply, replySize(1), requestSize(1));
};

class Echo : public Peer {
public:
    void fill(int) override {}
    void start() override { server_.emplace(startEcho().release()); }
    void stop() override { server_.reset(); }
    std::unique_ptr<Client> connect() override { return std::make_unique<EchoClient>(); }
    pid_t process() const override { return server_->pid(); }

private:
    std::optional<Process> server_;
};

class OstrelClient : public Client {
public:
    void read(int firstKey, int count) override {
        if (firstKey != firstKey_ || count != count_) {
            firstKey_ = firstKey;
            count_ = count;
            request_ = readRequest(firstKey, count);
        }
        connection_.ask(request_);
    }
    void commit(int firstKey, int count, uint32_t value) override {
        commitMany(connection_, firstKey, count, value);
    }
    void ask(int key) override { connection_.send(readRequest(key, 1)); }
    void take() override { connection_.receive(); }

private:
    Connection connection_{socketPath};
    int firstKey_ = 0;
    int count_ = 0;
    std::string request_;
};

class Ostrel : public Peer {
public:
    void fill(int keys) override { writeDefaults(keys); }
    void start() override { server_.emplace(launchServer().release()); }
    void stop() override { server_.reset(); }
    std::unique_ptr<Client> connect() override { return std::make_unique<OstrelClient>(); }
    pid_t process() const override { return server_->pid(); }

private:
    std::optional<Process> server_;
};

class LibraryClient : public Client {
public:
    void read(int firstKey, int count) override {
        if (static_cast<int>(keys_.size()) != count) {
            keys_.clear();
            for (int i = firstKey; i < firstKey + count; ++i)
                keys_.push_back({keyName(i)});
        }
        if (count == 1)
            session_.read(keys_.front().name);
        else
            session_.readMany(keys_);
    }
    void commit(int firstKey, int count, uint32_t value) override {
        ostrel::Transaction changes;
        for (int i = firstKey; i < firstKey + count; ++i)
            changes.set(keyName(i), 0, {.type = ostrelTypeDword, .number = value});
        session_.apply(changes);
    }

private:
    ostrel::Session session_{"bench"};
    std::vector<ostrel::Key> keys_;
};

class OstrelLibrary : public Peer {
public:
    void fill(int) override {}
    void start() override {}
    void stop() override {}
    std::unique_ptr<Client> connect() override { return std::make_unique<LibraryClient>(); }
};

}  // namespace

std::unique_ptr<Peer> makeEcho() { return std::make_unique<Echo>(); }
std::unique_ptr<Peer> makeOstrel() { return std::make_unique<Ostrel>(); }
std::unique_ptr<Peer> makeOstrelLibrary() { return std::make_unique<OstrelLibrary>(); }

#include "redisPeer.h"

#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <unistd.h>

#include <cstdio>
#include <optional>

#include "bench/subject.h"
#include "peerError.h"

namespace fs = std::filesystem;

namespace {

// The server's program under a name that no service of the machine starts with its installation.
constexpr char program[] = "/usr/bin/redis-check-rdb";

struct FreeReply {
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

class RedisClient : public Client {
public:
    explicit RedisClient(const std::string& socket) : context_(redisConnectUnix(socket.c_str())) {
        if (context_ == nullptr || context_->err != 0) {
            redisFree(context_);
            throw PeerError("redis: no connection");
        }
    }
    ~RedisClient() override { redisFree(context_); }
    RedisClient(const RedisClient&) = delete;
    RedisClient& operator=(const RedisClient&) = delete;

    void read(int firstKey, int count) override {
        if (firstKey != firstKey_ || count != count_) {
            firstKey_ = firstKey;
            count_ = count;
            words_ = {count == 1 ? "GET" : "MGET"};
            for (int i = firstKey; i < firstKey + count; ++i)
                words_.push_back(keyName(i));
        }
        const Reply reply = run(words_);
        if (count > 1 && reply->elements != static_cast<size_t>(count))
            throw PeerError("redis: not all keys were read");
    }
    void commit(int firstKey, int count, uint32_t value) override {
        std::vector<std::string> words{count == 1 ? "SET" : "MSET"};
        for (int i = firstKey; i < firstKey + count; ++i) {
            words.push_back(keyName(i));
            words.push_back(std::to_string(value));
        }
        run(words);
    }
    void ask(int key) override {
        redisAppendCommand(context_, "GET %s", keyName(key).c_str());
        for (int done = 0; done == 0;)
            if (redisBufferWrite(context_, &done) != REDIS_OK)
                throw PeerError("redis: not sent");
    }
    void take() override {
        void* reply = nullptr;
        if (redisGetReply(context_, &reply) != REDIS_OK)
            throw PeerError("redis: no answer");
        freeReplyObject(reply);
    }

    Reply run(const std::vector<std::string>& words) {
        arguments_.clear();
        lengths_.clear();
        for (const std::string& word : words) {
            arguments_.push_back(word.data());
            lengths_.push_back(word.size());
        }
        Reply reply(static_cast<redisReply*>(
            redisCommandArgv(context_, static_cast<int>(words.size()), arguments_.data(), lengths_.data())));
        if (!reply || reply->type == REDIS_REPLY_ERROR)
            throw PeerError("redis: " + words.front() + " failed");
        return reply;
    }

private:
    redisContext* context_;
    int firstKey_ = 0;
    int count_ = 0;
    std::vector<std::string> words_;
    std::vector<const char*> arguments_;
    std::vector<size_t> lengths_;
};

class Redis : public Peer {
public:
    Redis(const fs::path& folder, bool synced) : folder_(folder), synced_(synced) {}

    void fill(int keys) override {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        start();
        constexpr int step = 1000;
        RedisClient client(socket());
        for (int i = 0; i < keys; i += step)
            client.commit(i, std::min(step, keys - i), 7);
        // Also the appending one then starts from a compact file, as after a rewrite of its own.
        client.run({synced_ ? "BGREWRITEAOF" : "SAVE"});
        while (synced_ && rewrites(client))
            usleep(10000);
        stop();
    }
    void start() override {
        const pid_t pid = fork();
        if (pid == 0)
            runServer();
        server_.emplace(pid);
        for (int tries = 0; tries < 60000; ++tries) {
            if (answers())
                return;
            usleep(500);
        }
        throw PeerError("redis: does not start");
    }
    void stop() override { server_.reset(); }
    std::unique_ptr<Client> connect() override { return std::make_unique<RedisClient>(socket()); }
    pid_t process() const override { return server_->pid(); }

private:
    std::string socket() const { return folder_ / "socket"; }

    // It accepts clients before it has loaded its file, and refuses them until then.
    bool answers() const {
        try {
            RedisClient(socket()).run({"GET", keyName(0)});
            return true;
        } catch (const PeerError&) {
            return false;
        }
    }
    static bool rewrites(RedisClient& client) {
        const Reply reply = client.run({"INFO", "persistence"});
        const std::string text(reply->str, reply->len);
        return text.find("aof_rewrite_in_progress:1") != std::string::npos ||
               text.find("aof_rewrite_scheduled:1") != std::string::npos;
    }
    [[noreturn]] void runServer() const {
        fs::remove(socket());
        const int log = open((folder_ / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        execl(program, "redis-server", "--port", "0", "--unixsocket", socket().c_str(), "--dir",
              folder_.c_str(), "--save", "", "--appendonly", synced_ ? "yes" : "no", "--appendfsync",
              "always", "--daemonize", "no", "--auto-aof-rewrite-percentage", "0", nullptr);
        _exit(127);
    }

    fs::path folder_;
    bool synced_;
    std::optional<Process> server_;
};

}  // namespace

std::unique_ptr<Peer> makeRedis(const fs::path& folder, bool synced) {
    return std::make_unique<Redis>(folder, synced);
}

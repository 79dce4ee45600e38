#include "lmdbPeer.h"

#include <lmdb.h>

#include "bench/subject.h"
#include "peerError.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t largestMap = size_t{1} << 30;

void check(int status) {
    if (status != MDB_SUCCESS)
        throw PeerError(std::string("lmdb: ") + mdb_strerror(status));
}

MDB_val bytesOf(std::string& name) { return {name.size(), name.data()}; }

class LmdbClient : public Client {
public:
    explicit LmdbClient(const fs::path& folder) {
        check(mdb_env_create(&environment_));
        check(mdb_env_set_mapsize(environment_, largestMap));
        check(mdb_env_open(environment_, folder.c_str(), 0, 0600));
        MDB_txn* transaction = nullptr;
        check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction));
        check(mdb_dbi_open(transaction, nullptr, 0, &base_));
        check(mdb_txn_commit(transaction));
    }
    ~LmdbClient() override { mdb_env_close(environment_); }
    LmdbClient(const LmdbClient&) = delete;
    LmdbClient& operator=(const LmdbClient&) = delete;

    void read(int firstKey, int count) override {
        MDB_txn* transaction = nullptr;
        check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction));
        for (int i = firstKey; i < firstKey + count; ++i) {
            std::string name = keyName(i);
            MDB_val key = bytesOf(name);
            MDB_val value{};
            check(mdb_get(transaction, base_, &key, &value));
            sum_ += *static_cast<const uint32_t*>(value.mv_data);
        }
        mdb_txn_abort(transaction);
    }
    void commit(int firstKey, int count, uint32_t value) override {
        MDB_txn* transaction = nullptr;
        check(mdb_txn_begin(environment_, nullptr, 0, &transaction));
        for (int i = firstKey; i < firstKey + count; ++i) {
            std::string name = keyName(i);
            MDB_val key = bytesOf(name);
            MDB_val bytes{sizeof value, &value};
            check(mdb_put(transaction, base_, &key, &bytes, 0));
        }
        check(mdb_txn_commit(transaction));
    }

private:
    MDB_env* environment_ = nullptr;
    MDB_dbi base_ = 0;
    uint32_t sum_ = 0;
};

class Lmdb : public Peer {
public:
    explicit Lmdb(const fs::path& folder) : folder_(folder) {}

    void fill(int keys) override {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        LmdbClient(folder_).commit(0, keys, 7);
    }
    void start() override {}
    void stop() override {}
    std::unique_ptr<Client> connect() override { return std::make_unique<LmdbClient>(folder_); }

private:
    fs::path folder_;
};

}  // namespace

std::unique_ptr<Peer> makeLmdb(const fs::path& folder) { return std::make_unique<Lmdb>(folder); }

#include "sqlitePeer.h"

#include <sqlite3.h>

#include "bench/subject.h"
#include "peerError.h"

namespace fs = std::filesystem;

namespace {

class SqliteClient : public Client {
public:
    explicit SqliteClient(const fs::path& file) {
        check(sqlite3_open(file.c_str(), &base_));
        run("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
            "CREATE TABLE IF NOT EXISTS keys(name TEXT PRIMARY KEY, value INTEGER) WITHOUT ROWID");
        read_ = prepare("SELECT value FROM keys WHERE name = ?");
        write_ = prepare("INSERT OR REPLACE INTO keys VALUES (?, ?)");
    }
    ~SqliteClient() override {
        sqlite3_finalize(read_);
        sqlite3_finalize(write_);
        sqlite3_close(base_);
    }
    SqliteClient(const SqliteClient&) = delete;
    SqliteClient& operator=(const SqliteClient&) = delete;

    void read(int firstKey, int count) override {
        if (count > 1)
            run("BEGIN");
        for (int i = firstKey; i < firstKey + count; ++i) {
            bindName(read_, i);
            if (sqlite3_step(read_) != SQLITE_ROW)
                throw PeerError("sqlite: no such key");
            sum_ += sqlite3_column_int64(read_, 0);
            sqlite3_reset(read_);
        }
        if (count > 1)
            run("COMMIT");
    }
    void commit(int firstKey, int count, uint32_t value) override {
        run("BEGIN");
        for (int i = firstKey; i < firstKey + count; ++i) {
            bindName(write_, i);
            sqlite3_bind_int64(write_, 2, value);
            if (sqlite3_step(write_) != SQLITE_DONE)
                throw PeerError("sqlite: not written");
            sqlite3_reset(write_);
        }
        run("COMMIT");
    }

private:
    void check(int status) const {
        if (status != SQLITE_OK)
            throw PeerError(std::string("sqlite: ") + sqlite3_errmsg(base_));
    }
    void run(const char* statement) const {
        check(sqlite3_exec(base_, statement, nullptr, nullptr, nullptr));
    }
    sqlite3_stmt* prepare(const char* text) const {
        sqlite3_stmt* statement = nullptr;
        check(sqlite3_prepare_v2(base_, text, -1, &statement, nullptr));
        return statement;
    }
    static void bindName(sqlite3_stmt* statement, int key) {
        const std::string name = keyName(key);
        sqlite3_bind_text(statement, 1, name.data(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
    }

    sqlite3* base_ = nullptr;
    sqlite3_stmt* read_ = nullptr;
    sqlite3_stmt* write_ = nullptr;
    int64_t sum_ = 0;
};

class Sqlite : public Peer {
public:
    explicit Sqlite(const fs::path& folder) : folder_(folder) {}

    void fill(int keys) override {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        SqliteClient(file()).commit(0, keys, 7);
    }
    void start() override {}
    void stop() override {}
    std::unique_ptr<Client> connect() override { return std::make_unique<SqliteClient>(file()); }

private:
    fs::path file() const { return folder_ / "base"; }

    fs::path folder_;
};

}  // namespace

std::unique_ptr<Peer> makeSqlite(const fs::path& folder) { return std::make_unique<Sqlite>(folder); }

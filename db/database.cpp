#include "db/database.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

#include "db/loader.h"
#include "db/log.h"
#include "db/ostrelDb.h"
#include "log/storeLines.h"
#include "text/grammar.h"
#include "text/shown.h"

namespace store {
namespace {

constexpr int failedCommit = 1;

enum class FactoryFile { read, missing, unreadable };

FactoryFile readFactoryFile(const FileCalls& files, const std::string& path, std::string& text) {
    File file(files);
    struct stat status {};
    if (!file.open(path, O_RDONLY | O_NONBLOCK)) {
        if (errno == ENOENT)
            return FactoryFile::missing;
    } else if (file.status(status) && S_ISREG(status.st_mode) && file.readAll(text)) {
        return FactoryFile::read;
    }
    const bool isFile = !file.isOpen() || S_ISREG(status.st_mode);
    STORE_ERROR("cannot read %s: %s; it counts as empty", path.c_str(),
                isFile ? std::strerror(errno) : kindOf(status.st_mode));
    text.clear();
    return FactoryFile::unreadable;
}

class LogReport final : public LoadReport {
public:
    void fault(const LinePlace& place, LineFault fault, const char* reason) override {
        STORE_ERROR("%s:%zu: %s%s", place.path.c_str(), place.number, reason,
                    fault == LineFault::templateGone ? "" : "; the line is skipped");
        hasOrphans = hasOrphans || fault == LineFault::instanceGone || fault == LineFault::templateGone;
        if (fault != LineFault::templateGone)
            skipped.append(place.text).append(1, '\n');
    }

    bool hasOrphans = false;  // changes to what a missing file may have
    std::string skipped;      // lines
};

// Takes the rows of a transaction that is in the live file into the committed database.
class Committer final : public RowVisitor {
public:
    explicit Committer(Model& model) : model_(model) {}

    void value(const RowKey& key, const Value& value) override { apply(key, model_.setValue(key, value)); }
    void erased(const RowKey& key, Origin origin) override { apply(key, model_.erase(key, origin)); }
    void instance(const RowKey& key, const Instance& instance) override {
        apply(key, model_.addInstance(key, instance));
    }
    void removed(const RowKey& key, Origin origin) override {
        apply(key, model_.removeInstance(key, origin));
    }
    void lastKey(std::string_view structure, uint32_t last) override {
        apply({structure}, model_.setLastKey(structure, last));
    }

private:
    // The transaction refuses whatever the model would refuse.
    static void apply(const RowKey& key, const Result& result) {
        if (!result.ok()) {
            STORE_ERROR("a committed change of %.*s was not applied: %s", static_cast<int>(key.name.size()),
                        key.name.data(), result.refusal);
        }
    }

    Model& model_;
};

int answer(const Result& result, const char* operation, const char* name) {
    if (result.ok())
        return 0;
    STORE_DEBUG("%s of <%s> refused: %s", operation, name != nullptr ? shown(name).c_str() : "(null)",
                result.refusal);
    return refused;
}

}  // namespace

Database::Database(const ostrelDbCfg* cfg, const Paths& paths, const FileCalls& files)
    : mayCreate_(cfg != nullptr && cfg->keyCreateAllowed),
      lock_(files, paths.live),
      log_(files, paths.live, paths.root) {
    // A tool may have it for a moment.
    constexpr std::chrono::seconds patience{2};
    const bool isLocked = lock_.take(patience);
    if (!isLocked && errno == EWOULDBLOCK)
        Die(knownLine::databaseInUse);
    if (!isLocked)
        STORE_ERROR("cannot lock %s: %s; nothing can be committed until that works", lock_.path().c_str(),
                    std::strerror(errno));
    mayRewrite_ = load(paths, files);
    mustCompare_ = !isLocked;
    if (!isLocked)
        return;
    log_.settle();
    if (!log_.isTrusted())
        rewrite();
}

// False: the live file has changes that may be good ones, but not with what is there of the factory's files.
bool Database::load(const Paths& paths, const FileCalls& files) {
    LogReport factory;
    std::string templates;
    std::string defaults;
    const FactoryFile found[] = {readFactoryFile(files, paths.templates, templates),
                                 readFactoryFile(files, paths.defaults, defaults)};
    loadTemplates({paths.templates, templates}, model_, factory);
    loadDefaults({paths.defaults, defaults}, model_, factory);
    const std::string live = log_.read();
    const LogScan scan = scanLog(live);
    LogReport changes;
    loadChanges({paths.live, std::string_view(live).substr(0, scan.goodBytes)}, model_, changes);
    log_.recover(scan, live);
    dropped_ = std::move(changes.skipped);
    if (live.empty() || std::ranges::count(found, FactoryFile::unreadable) == 0)
        return live.empty() || std::ranges::count(found, FactoryFile::missing) == 0 || !changes.hasOrphans;
    return false;
}

// Looks after the lock, which someone may have removed, or nobody could make at the start.
bool Database::mayChange() {
    const bool isHeld = lock_.isHeld();
    mustCompare_ = mustCompare_ || !isHeld;
    if (!isHeld && !lock_.take()) {
        STORE_ERROR("cannot lock %s: %s", lock_.path().c_str(), std::strerror(errno));
        return false;
    }
    if (mustCompare_ && !log_.isAsLeft())
        return false;
    mustCompare_ = false;
    log_.settle();
    return true;
}

long Database::dataStartWriteTransaction() {
    if (!open_) {
        handle_ = handle_ + 1 == invalidTransaction ? handle_ + 2 : handle_ + 1;
        open_.emplace(model_);
    }
    return handle_;
}

// The file first, the memory only if that worked: what is read is always what a restart would find.
int Database::dataCommit(long handle) {
    if (!open_ || handle != handle_) {
        answer({"not the open transaction"}, "commit", nullptr);
        return failedCommit;
    }
    const Transaction transaction = *std::move(open_);
    open_.reset();
    LineWriter writer;
    transaction.visit(writer);
    const bool isUpToDate = bringUpToDate();
    if (writer.lines == 0)
        return isUpToDate || model_.changes() == 0 ? 0 : failedCommit;
    if (!isUpToDate || !append(writer.text, writer.lines))
        return failedCommit;
    take(transaction);
    return 0;
}

// True: the file says all that is committed, and the next transaction can go behind it.
bool Database::bringUpToDate() { return mayChange() && (log_.isTrusted() || rewrite()); }

bool Database::append(const std::string& transaction, size_t lines) {
    LiveLog::Appended result = log_.append(transaction, lines);
    if (result == LiveLog::Appended::noSpace && makeSpace() && log_.isTrusted())
        result = log_.append(transaction, lines);
    if (result == LiveLog::Appended::done) {
        freeWhenFull_.reset();
        return true;
    }
    // What was refused must not be there at the next start: where it could not be cut off, it goes now.
    if (!log_.isTrusted())
        rewrite();
    return false;
}

// On a full disk, by leaving out what is superseded. What did not help is tried again when something has
// changed.
bool Database::makeSpace() {
    const std::optional<uint64_t> free = log_.freeBytes();
    if (freeWhenFull_ && free.value_or(0) <= *freeWhenFull_)
        return false;
    freeWhenFull_ = free.value_or(0);
    return rewrite();
}

// The transaction is durable: from here on there is no way back, and without memory none forward.
void Database::take(const Transaction& transaction) noexcept {
    Committer committer(model_);
    transaction.visit(committer);
    if (log_.isMostlyDead(model_.changes(), model_.changedBytes()))
        rewrite();
}

bool Database::rewrite() {
    try {
        return tryRewrite();
    } catch (const std::bad_alloc&) {
        STORE_ERROR("%s is not rewritten: there is no memory", log_.path().c_str());
        return false;
    }
}

bool Database::tryRewrite() {
    if (!mayRewrite_) {
        log_.postponeRewrite();
        STORE_ERROR("%s is not rewritten: a file of the defaults or templates could not be read at the start",
                    log_.path().c_str());
        return false;
    }
    if (!dropped_.empty() && !log_.keepLines(dropped_)) {
        log_.postponeRewrite();
        return false;
    }
    LineWriter writer;
    writer.text.reserve(model_.changedBytes() + 128);
    model_.visitChanges(writer);
    if (!log_.rewrite(std::move(writer.text), writer.lines))
        return false;
    dropped_.clear();
    return true;
}

int Database::dataWriteRollback(long handle) {
    if (!open_ || handle != handle_) {
        return answer({"not the open transaction"}, "rollback", nullptr);
    }
    open_.reset();
    return 0;
}

int Database::dataRead(long handle, const char* name, ostrelValueType type, int* size, unsigned char* buffer,
                       unsigned int pKey) const {
    if (name == nullptr || size == nullptr || buffer == nullptr ||
        (handle != 0 && (!open_ || handle != handle_))) {
        return refused;
    }
    const Value* value = handle != 0 ? open_->find(name, pKey) : model_.find(name, pKey);
    if (value == nullptr || value->type != type || *size < 0 || static_cast<size_t>(*size) < sizeOf(*value))
        return refused;
    // A text's NUL stands behind its bytes.
    std::memcpy(buffer, value->bytes.c_str(), sizeOf(*value));
    *size = static_cast<int>(sizeOf(*value));
    return 0;
}

int Database::getType(const char* name, unsigned int pKey, ostrelValueType* type) const {
    const Value* value = name != nullptr && type != nullptr ? model_.find(name, pKey) : nullptr;
    if (value == nullptr)
        return refused;
    *type = value->type;
    return 0;
}

int Database::getVectorSize(const char* name, unsigned int owner) const {
    return name != nullptr ? static_cast<int>(model_.list(name, owner, nullptr, 0)) : 0;
}

int Database::getInstances(const char* name, unsigned int owner, unsigned int* keys, int* count) const {
    if (name == nullptr || count == nullptr || *count < 0 || (keys == nullptr && *count > 0))
        return refused;
    const auto room = static_cast<size_t>(*count);
    *count = static_cast<int>(std::min(model_.list(name, owner, keys, room), room));
    return 0;
}

Result Database::check(long handle, const char* name) const {
    if (!open_ || handle != handle_)
        return {"not the open transaction"};
    return name == nullptr ? Result{"the name is null"} : Result{};
}

Result Database::write(long handle, const char* name, unsigned int pKey, int size, const unsigned char* value,
                       ostrelValueType type) {
    if (const Result result = check(handle, name); !result.ok())
        return result;
    if (value == nullptr || size < 0)
        return {"there is no value"};
    Value made;
    if (const Result result = makeValue(type, {value, static_cast<size_t>(size)}, made); !result.ok())
        return result;
    return open_->write(name, pKey, std::move(made), mayCreate_);
}

int Database::createElement(long handle, const char* name, int size, const unsigned char* value,
                            ostrelValueType type) {
    return answer(write(handle, name, 0, size, value, type), "write", name);
}

int Database::reWriteElement(long handle, const char* name, unsigned int pKey, int size,
                             const unsigned char* value, ostrelValueType type) {
    return answer(pKey != 0 ? write(handle, name, pKey, size, value, type) : Result{"the index is 0"},
                  "rewrite", name);
}

int Database::destroyElement(long handle, const char* name) {
    const Result result = check(handle, name);
    return answer(result.ok() ? open_->destroy(name) : result, "erase", name);
}

int Database::instanciateTmplt(long handle, const char* tpltName, const char* name, unsigned int owner,
                               unsigned int* pKey) {
    Result result = check(handle, name);
    if (result.ok() && tpltName == nullptr) {
        result = {"the template is null"};
    }
    unsigned int key = 0;
    if (result.ok())
        result = open_->instantiate(tpltName, name, owner, key);
    if (result.ok() && pKey != nullptr)
        *pKey = key;
    return answer(result, "instance", name);
}

int Database::removeInstance(long handle, const char* name, unsigned int* pKeys, int count) {
    Result result = check(handle, name);
    if (result.ok() && (count < 0 || (pKeys == nullptr && count > 0))) {
        result = {"there are no primary keys"};
    }
    if (result.ok()) {
        result = open_->remove(name, {pKeys, static_cast<size_t>(count)});
    }
    return answer(result, "removal", name);
}

int Database::removeInstances(long handle, const char* name, unsigned int owner) {
    const Result result = check(handle, name);
    return answer(result.ok() ? open_->removeOwned(name, owner) : result, "removal", name);
}

}  // namespace store

#include "db/database.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "db/grammar.h"
#include "db/loader.h"
#include "db/lock.h"
#include "db/log.h"

namespace store {
namespace {

constexpr int refused = -1;
constexpr int failedCommit = 1;
// Callers read this handle as none.
constexpr long noHandle = 4294967295;

File takeLock(const FileCalls& files, const std::string& livePath) {
    const std::string directory = directoryOf(livePath);
    if (!makeDirectories(files, directory))
        STORE_ERROR("cannot make %s: %s", directory.c_str(), std::strerror(errno));
    return lockDatabase(files, livePath);
}

// False: there is a file, but it cannot be read.
bool readFactoryFile(const FileCalls& files, const std::string& path, std::string& text) {
    File file(files);
    const bool isOpen = file.open(path, O_RDONLY);
    if (isOpen ? file.readAll(text) : errno == ENOENT)
        return true;
    STORE_ERROR("cannot read %s: %s; it counts as empty", path.c_str(), std::strerror(errno));
    text.clear();
    return false;
}

class LogReport final : public LoadReport {
public:
    void fault(const LinePlace& place, LineFault fault, const char* reason) override {
        STORE_ERROR("%s:%zu: %s%s", place.path.c_str(), place.number, reason,
                    fault == LineFault::templateGone ? "" : "; the line is skipped");
    }
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
    STORE_DEBUG("%s of <%s> refused: %s", operation, name != nullptr ? name : "(null)", result.refusal);
    return refused;
}

}  // namespace

Database::Database(const ostrelDbCfg* cfg, const Paths& paths, const FileCalls& files)
    : mayCreate_(cfg != nullptr && cfg->keyCreateAllowed),
      lock_(takeLock(files, paths.live)),
      log_(files, paths.live) {
    LogReport report;
    std::string templates;
    std::string defaults;
    const bool hasTemplates = readFactoryFile(files, paths.templates, templates);
    const bool hasDefaults = readFactoryFile(files, paths.defaults, defaults);
    loadTemplates({paths.templates, templates}, model_, report);
    loadDefaults({paths.defaults, defaults}, model_, report);
    const std::string live = log_.read();
    mayRewrite_ = (hasTemplates && hasDefaults) || live.empty();
    const LogScan scan = scanLog(live);
    loadChanges({paths.live, std::string_view(live).substr(0, scan.goodBytes)}, model_, report);
    log_.recover(scan);
    if (!log_.isTrusted())
        rewrite();
}

bool Database::rewrite() {
    if (!mayRewrite_) {
        STORE_ERROR("%s is not rewritten: a file of the defaults or templates could not be read at the start",
                    log_.path().c_str());
        return false;
    }
    LineWriter writer;
    model_.visitChanges(writer);
    return log_.rewrite(std::move(writer.text), writer.lines);
}

long Database::dataStartWriteTransaction() {
    if (!open_) {
        handle_ = handle_ + 1 == noHandle ? handle_ + 2 : handle_ + 1;
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
    if (writer.lines == 0)
        return 0;
    if (!log_.isTrusted() && !rewrite())
        return failedCommit;
    if (!log_.append(std::move(writer.text), writer.lines))
        return failedCommit;
    Committer committer(model_);
    transaction.visit(committer);
    if (log_.isMostlyDead(model_.changes()))
        rewrite();
    return 0;
}

int Database::dataWriteRollback(long handle) {
    if (!open_ || handle != handle_) {
        return answer({"not the open transaction"}, "rollback", nullptr);
    }
    open_.reset();
    return 0;
}

int Database::dataRead(long handle, char const* name, ostrelValueType type, int* size, unsigned char* buffer,
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

int Database::getType(char const* name, unsigned int pKey, ostrelValueType* type) const {
    const Value* value = name != nullptr && type != nullptr ? model_.find(name, pKey) : nullptr;
    if (value == nullptr)
        return refused;
    *type = value->type;
    return 0;
}

int Database::getVectorSize(char const* name, unsigned int owner) const {
    return name != nullptr ? static_cast<int>(model_.list(name, owner, nullptr, 0)) : 0;
}

int Database::getInstances(char const* name, unsigned int owner, unsigned int* keys, int* count) const {
    if (name == nullptr || count == nullptr || *count < 0 || (keys == nullptr && *count > 0))
        return refused;
    const auto room = static_cast<size_t>(*count);
    *count = static_cast<int>(std::min(model_.list(name, owner, keys, room), room));
    return 0;
}

Result Database::check(long handle, char const* name) const {
    if (!open_ || handle != handle_)
        return {"not the open transaction"};
    return name == nullptr ? Result{"the name is null"} : Result{};
}

Result Database::write(long handle, char const* name, unsigned int pKey, int size, unsigned char const* value,
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

int Database::createElement(long handle, char const* name, int size, unsigned char const* value,
                            ostrelValueType type) {
    return answer(write(handle, name, 0, size, value, type), "write", name);
}

int Database::reWriteElement(long handle, char const* name, unsigned int pKey, int size,
                             unsigned char const* value, ostrelValueType type) {
    return answer(pKey != 0 ? write(handle, name, pKey, size, value, type) : Result{"the index is 0"},
                  "rewrite", name);
}

int Database::destroyElement(long handle, char const* name) {
    const Result result = check(handle, name);
    return answer(result.ok() ? open_->destroy(name) : result, "erase", name);
}

int Database::instanciateTmplt(long handle, char const* tpltName, char const* name, unsigned int owner,
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

int Database::removeInstance(long handle, char const* name, unsigned int* pKeys, int count) {
    Result result = check(handle, name);
    if (result.ok() && (count < 0 || (pKeys == nullptr && count > 0))) {
        result = {"there are no primary keys"};
    }
    if (result.ok()) {
        result = open_->remove(name, {pKeys, static_cast<size_t>(count)});
    }
    return answer(result, "removal", name);
}

int Database::removeInstances(long handle, char const* name, unsigned int owner) {
    const Result result = check(handle, name);
    return answer(result.ok() ? open_->removeOwned(name, owner) : result, "removal", name);
}

}  // namespace store

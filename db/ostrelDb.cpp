#include "db/ostrelDb.h"

#include "db/database.h"
#include "text/fixedPaths.h"

// Hidden, like all behind the class: the nested name alone would be exported with it.
class __attribute__((visibility("hidden"))) ostrelDb::Store final : public store::Database {
    using Database::Database;
};

ostrelDb::ostrelDb(ostrelDbCfg* cfg)
    : store_(std::make_unique<Store>(
          cfg, store::Paths{.defaults = defaultsPath, .live = livePath, .templates = templatesPath})) {}

ostrelDb::~ostrelDb() = default;

long ostrelDb::dataStartWriteTransaction() { return store_->dataStartWriteTransaction(); }

int ostrelDb::dataCommit(long handle) { return store_->dataCommit(handle); }

int ostrelDb::dataWriteRollback(long handle) { return store_->dataWriteRollback(handle); }

int ostrelDb::dataRead(long handle, const char* name, ostrelValueType type, int* size, unsigned char* buffer,
                       unsigned int pKey) {
    return store_->dataRead(handle, name, type, size, buffer, pKey);
}

int ostrelDb::getType(const char* name, unsigned int pKey, ostrelValueType* type) {
    return store_->getType(name, pKey, type);
}

int ostrelDb::getVectorSize(const char* name, unsigned int owner) {
    return store_->getVectorSize(name, owner);
}

int ostrelDb::getInstances(const char* name, unsigned int owner, unsigned int* keys, int* count) {
    return store_->getInstances(name, owner, keys, count);
}

int ostrelDb::createElement(long handle, const char* name, int size, const unsigned char* value,
                            ostrelValueType type) {
    return store_->createElement(handle, name, size, value, type);
}

int ostrelDb::reWriteElement(long handle, const char* name, unsigned int pKey, int size,
                             const unsigned char* value, ostrelValueType type) {
    return store_->reWriteElement(handle, name, pKey, size, value, type);
}

int ostrelDb::destroyElement(long handle, const char* name) { return store_->destroyElement(handle, name); }

int ostrelDb::instanciateTmplt(long handle, const char* tpltName, const char* name, unsigned int owner,
                               unsigned int* pKey) {
    return store_->instanciateTmplt(handle, tpltName, name, owner, pKey);
}

int ostrelDb::removeInstance(long handle, const char* name, unsigned int* pKeys, int count) {
    return store_->removeInstance(handle, name, pKeys, count);
}

int ostrelDb::removeInstances(long handle, const char* name, unsigned int owner) {
    return store_->removeInstances(handle, name, owner);
}

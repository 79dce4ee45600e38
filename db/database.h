// What ostrelDb does, on files of the caller's choice and through a file table of the caller's choice.
#pragma once

#include <optional>
#include <string>

#include "db/files.h"
#include "db/liveLog.h"
#include "db/lock.h"
#include "db/model.h"
#include "db/ostrelDb.h"
#include "db/paths.h"
#include "db/transaction.h"

namespace store {

// The operations are ostrelDb's; db/ostrelDb.h describes them.
class Database {
public:
    // files must outlive the object.
    Database(const ostrelDbCfg* cfg, const Paths& paths, const FileCalls& files = systemFiles);

    long dataStartWriteTransaction();
    int dataCommit(long handle);
    int dataWriteRollback(long handle);

    int dataRead(long handle, const char* name, ostrelValueType type, int* size, unsigned char* buffer,
                 unsigned int pKey) const;
    int getType(const char* name, unsigned int pKey, ostrelValueType* type) const;
    int getVectorSize(const char* name, unsigned int owner) const;
    int getInstances(const char* name, unsigned int owner, unsigned int* keys, int* count) const;

    int createElement(long handle, const char* name, int size, const unsigned char* value,
                      ostrelValueType type);
    int reWriteElement(long handle, const char* name, unsigned int pKey, int size, const unsigned char* value,
                       ostrelValueType type);
    int destroyElement(long handle, const char* name);
    int instanciateTmplt(long handle, const char* tpltName, const char* name, unsigned int owner,
                         unsigned int* pKey);
    int removeInstance(long handle, const char* name, unsigned int* pKeys, int count);
    int removeInstances(long handle, const char* name, unsigned int owner);

private:
    Result check(long handle, const char* name) const;
    Result write(long handle, const char* name, unsigned int pKey, int size, const unsigned char* value,
                 ostrelValueType type);
    bool load(const Paths& paths, const FileCalls& files);
    bool mayChange();
    bool bringUpToDate();
    bool append(const std::string& transaction, size_t lines);
    bool makeSpace();
    bool rewrite();
    bool tryRewrite();
    void take(const Transaction& transaction) noexcept;

    const bool mayCreate_;
    // False: changes that were read may have found nothing to apply to; a rewrite would forget them.
    bool mayRewrite_ = true;
    Lock lock_;
    bool mustCompare_ = false;  // another process may have had the lock since the live file was read
    LiveLog log_;
    Model model_;
    std::string dropped_;  // lines of the live file that did not fit: the next rewrite leaves them out
    std::optional<uint64_t> freeWhenFull_;  // bytes on the disk when a rewrite did not help
    std::optional<Transaction> open_;
    long handle_ = 0;  // of the open transaction, or the last one
};

}  // namespace store

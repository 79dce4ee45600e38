// The configuration database: defaults, the committed changes over them, and at most one open transaction.
//
// One thread at a time; every call returns before anything else may be called. Results: refused is a refusal
// (also logged by the caller), anything else is success, except where a comment says otherwise. Names are
// NUL-terminated; a null name is refused. Primary key 0 is a key's plain value.
#pragma once

#include <memory>

#include "ostrel/plugin.h"

struct ostrelDbCfg {
    bool keyCreateAllowed;  // writes may create keys that neither the defaults nor the database know
    bool reserved;          // 0
};
static_assert(sizeof(ostrelDbCfg) == 2);

// The handle that stands for no transaction; -1 does not.
constexpr long invalidTransaction = 4294967295;

// What operations on elements and instances answer when they refuse.
constexpr int refused = -1;

class OSTREL_EXPORT ostrelDb {
public:
    // Reads the template, default and live files. Ends the process (Die) when another process has the
    // database. cfg is borrowed until the object is destroyed.
    explicit ostrelDb(ostrelDbCfg* cfg);
    ~ostrelDb();
    ostrelDb(const ostrelDb&) = delete;
    ostrelDb& operator=(const ostrelDb&) = delete;

    // The handle of the open transaction, which it opens when there is none. invalidTransaction: none can be
    // opened.
    long dataStartWriteTransaction();
    // 0: durable in the live file. Anything else: the transaction is gone and the database is as before.
    int dataCommit(long handle);
    int dataWriteRollback(long handle);

    // handle 0 reads what is committed, the open transaction's handle also what that has changed. size: in,
    // the room in buffer; out, the bytes written. Refused, with nothing written, when the type differs or the
    // room is too small.
    int dataRead(long handle, const char* name, ostrelValueType type, int* size, unsigned char* buffer,
                 unsigned int pKey);
    int getType(const char* name, unsigned int pKey, ostrelValueType* type);
    // Committed instances (or elements, owner 0) of the structure, vector or member name that belong to
    // owner.
    int getVectorSize(const char* name, unsigned int owner);
    // Their primary keys, ascending. count: in, the room in keys; out, the keys written. Success is 0.
    int getInstances(const char* name, unsigned int owner, unsigned int* keys, int* count);

    int createElement(long handle, const char* name, int size, const unsigned char* value,
                      ostrelValueType type);
    int reWriteElement(long handle, const char* name, unsigned int pKey, int size, const unsigned char* value,
                       ostrelValueType type);
    int destroyElement(long handle, const char* name);
    // pKey may be null; on success it receives the new instance's primary key.
    int instanciateTmplt(long handle, const char* tpltName, const char* name, unsigned int owner,
                         unsigned int* pKey);
    int removeInstance(long handle, const char* name, unsigned int* pKeys, int count);
    int removeInstances(long handle, const char* name, unsigned int owner);

private:
    class Store;
    std::unique_ptr<Store> store_;
};

/* The interface between ostrelServer and its plug-ins, for C (C11) and C++ (C++11).
 *
 * A plug-in is a shared object whose file name ends in ".ostr". It exports ostrelGetIoFuncs(), which returns
 * its table of entries; the server calls the entries, and the plug-in calls back the functions declared here,
 * which the server's executable exports. Link a plug-in against nothing of ostrel: the loader resolves the
 * names.
 *
 * 1. Threads. The server calls every entry on its main thread, one at a time. Call the functions below on
 *    that thread only, from inside an entry; the log functions and OstrelValues_* may be called on
 *    any thread.
 * 2. Phases. Entries may always read. What a write (OstrelClientWrite*, OstrelClientDeinstanciate*,
 *    ostrelClientInstanciateStructure) does depends on the entry that it is called from:
 *      init, getWatchedValues, getTriggerList   stored, applied once all plug-ins are initialised
 *      writeConf                                forbidden: ends the daemon
 *      restart                                  stored, applied after the running broadcast
 *      trigger, die                             applied before the call returns
 *    A stored write always returns 1; the server's log tells when it fails later.
 * 3. Ownership. What is passed in is borrowed until the call returns, unless a comment says "taken". What an
 *    entry hands out (table, module name, patterns) stays the plug-in's and must live until the plug-in is
 *    unloaded.
 * 4. Null. A null name, list, value or buffer is refused with a line in the log and the result 0.
 * 5. Texts are NUL-terminated. A text value's size counts its NUL. Names are 1 to 127 bytes.
 * 6. Results. 1 is success, 0 is failure, for these functions and for the entries (where anything but 1 is a
 *    failure). Out-arguments are set on success only.
 * 7. Exceptions never leave the functions below. One that leaves an entry counts as its failure.
 * 8. Version. Layouts and symbols of this header never change; what is added gets new names.
 */
#ifndef OSTREL_PLUGIN_H
#define OSTREL_PLUGIN_H

#include "ostrel/valueType.h"

#ifdef __cplusplus
#define OSTREL_C_BEGIN extern "C" {
#define OSTREL_C_END }
#define OSTREL_CXX_SYMBOL(name)
#define OSTREL_NORETURN [[noreturn]]
#define OSTREL_NO_ARGS
#else
#define OSTREL_C_BEGIN
#define OSTREL_C_END
/* Four functions carry C++ symbols; this is how C names them. */
#define OSTREL_CXX_SYMBOL(name) __asm__(name)
#define OSTREL_NORETURN _Noreturn
#define OSTREL_NO_ARGS void
#endif
#define OSTREL_PRINTF(formatAt, argumentsAt) __attribute__((format(printf, formatAt, argumentsAt)))
#define OSTREL_EXPORT __attribute__((visibility("default")))

/* Values. */

/* One named, typed value. It owns name and tpltName (malloc) and value (array new), so C code lets the
 * OstrelValues_* functions make and destroy values and may change only pKey, owner and the bytes in place. */
#ifdef __cplusplus
class OSTREL_EXPORT OstrelValue {
public:
    OstrelValue();
    /* Copies name (not null) and, when size is not 0, the size bytes at value. */
    OstrelValue(const char* name, unsigned char* value, unsigned int size, ostrelValueType type,
                unsigned int pKey, unsigned int owner);
    ~OstrelValue();
    OstrelValue(const OstrelValue&) = delete;
    OstrelValue& operator=(const OstrelValue&) = delete;

    /* The setters copy and always return true. setTpltName does nothing while there is no name. */
    bool setName(const char* name);
    bool setValue(unsigned int size, unsigned char* bytes);
    bool setTpltName(const char* tpltName);
    bool setType(ostrelValueType type);

#else
typedef struct OstrelValue {
#endif
    char* name;
    unsigned int size;    /* bytes in value */
    unsigned char* value; /* null when size is 0 */
    ostrelValueType type;
    char* tpltName;                 /* only for an instantiation: its template */
    unsigned int pKey;              /* instance or vector element; 0: the plain value */
    unsigned int owner;             /* see ostrelStringToOwner */
    unsigned int deinstanciateKind; /* 0: none; 1: remove instance pKey; 2: remove owner's instances */
#ifdef __cplusplus
};
#else
} OstrelValue;
#endif

/* A list that owns its array (malloc) and its values. */
typedef struct OstrelValues {
    OstrelValue** values; /* null while the list is empty */
    int count;
} OstrelValues;

OSTREL_C_BEGIN

/* Null when there is no memory. The caller owns the list: release it with OstrelValues_Destroy. */
OstrelValues* OstrelValues_Create(OSTREL_NO_ARGS);
/* Releases the list and every value in it. Null is ignored. */
void OstrelValues_Destroy(OstrelValues* list);
/* Append a copy. A null text is the empty text. On a null list or name, or without memory, the list stays as
 * it was and the log says so. */
void OstrelValues_Add_Bool(OstrelValues* list, const char* name, unsigned char value);
void OstrelValues_Add_Byte(OstrelValues* list, const char* name, unsigned char value);
void OstrelValues_Add_Dword(OstrelValues* list, const char* name, unsigned int value);
void OstrelValues_Add_String(OstrelValues* list, const char* name, const char* text);
void OstrelValues_Add_IP(OstrelValues* list, const char* name, const char* text);
void OstrelValues_Add_MAC(OstrelValues* list, const char* name, const char* text);
/* What the three text functions call with their type. */
void _OstrelValues_Add_StringTyped(OstrelValues* list, const char* name, const char* text,
                                   ostrelValueType type);

/* Log and utilities. */

/* Writes one line when (level & mask) is not 0. Levels: 1 error, 2 notice, 4 debug. file and function may be
 * null. Any thread. */
void ostrelPrintLine(int level, const char* file, int line, const char* function, const char* format, ...)
    OSTREL_PRINTF(5, 6);
/* The mask of the levels that are written. The server sets both of these at start-up; leave them alone. */
void ostrelSetPrintLevel(int mask);
void ostrelShowPrefix(int on);
/* Prints the message and ends the daemon with status 255, without unloading any plug-in. */
OSTREL_NORETURN void Die(const char* message);
/* Runs a shell command of at most 510 characters (the rest is cut) and waits for it. Returns the raw status
 * of system(3): 0 is success. Never put text from the database into it. */
int ostrelExecute(const char* format, ...) OSTREL_PRINTF(1, 2);
/* Replaces the content of the file; null text empties it. Neither atomic nor synced. */
int ostrelWriteFile(const char* path, const char* text);
/* The owner number of a tag: its first four bytes, the first one lowest. 0 for null. */
unsigned int ostrelStringToOwner(const char* text);
/* Logs the milliseconds since the previous call. Main thread only. */
void TimeMark(const char* label);

OSTREL_C_END

/* Points standard output and standard error at the file, which it empties. The server's own business. Ends
 * the process when the file cannot be opened. */
int OpenLog(char* path) OSTREL_CXX_SYMBOL("_Z7OpenLogPc");

/* Reads. */

/* The type of the plain value (pKey 0), or of an instance's member or a vector's element. */
int OstrelClientGetType(const char* key, unsigned int pKey, ostrelValueType* type)
    OSTREL_CXX_SYMBOL("_Z19OstrelClientGetTypePKcjP15ostrelValueType");
/* Like OstrelClientReadValue, of the instance or element whose number stands in the buffer's first four bytes
 * (host byte order); the buffer has at least four bytes. */
int OstrelClientReadValueWithPKey(const char* key, unsigned int bufferSize, unsigned int* bytesRead,
                                  unsigned char* buffer)
    OSTREL_CXX_SYMBOL("_Z29OstrelClientReadValueWithPKeyPKcjPjPh");
/* Writes the list to the log at level 2. */
void OstrelClientDumpValues(OstrelValues* list)
    OSTREL_CXX_SYMBOL("_Z22OstrelClientDumpValuesP12OstrelValues");

OSTREL_C_BEGIN

/* Number of instances (or vector elements, whose owner is 0) that belong to owner. */
int OstrelClientGetVectorSize(const char* key, unsigned int owner, unsigned int* result);
/* The primary keys of those instances, ascending. count: in, the room in keys; out, the keys stored. */
int OstrelClientGetPrimaryKeys(const char* key, unsigned int owner, unsigned int* keys, int* count);
/* The plain value's bytes, whatever its type. Fails when the buffer (bufferSize bytes) is too small. */
int OstrelClientReadValue(const char* key, unsigned int bufferSize, unsigned int* bytesRead,
                          unsigned char* buffer);

/* Typed reads: they fail when the key has another type or does not fit. Bool and Byte write 1 byte, Dword
 * writes 4, texts at most size bytes, with their NUL. A failed read leaves 0 in the buffer's first byte. */
int OstrelClientReadValue_Bool(const char* key, unsigned char* buffer);
int OstrelClientReadValue_Byte(const char* key, unsigned char* buffer);
int OstrelClientReadValue_Dword(const char* key, unsigned char* buffer);
int OstrelClientReadValue_String(const char* key, unsigned char* buffer, unsigned int size);
int OstrelClientReadValue_IP(const char* key, unsigned char* buffer, unsigned int size);
int OstrelClientReadValue_MAC(const char* key, unsigned char* buffer, unsigned int size);
/* The same for a vector's element or an instance's member. */
int OstrelClientReadVectorElement_Bool(const char* key, unsigned int index, unsigned char* buffer);
int OstrelClientReadVectorElement_Byte(const char* key, unsigned int index, unsigned char* buffer);
int OstrelClientReadVectorElement_Dword(const char* key, unsigned int index, unsigned char* buffer);
int OstrelClientReadVectorElement_String(const char* key, unsigned int index, unsigned char* buffer,
                                         unsigned int size);
int OstrelClientReadVectorElement_IP(const char* key, unsigned int index, unsigned char* buffer,
                                     unsigned int size);
int OstrelClientReadVectorElement_MAC(const char* key, unsigned int index, unsigned char* buffer,
                                      unsigned int size);

/* Writes (rule 2 says when they take effect). */

/* All values in one transaction, or none. No broadcast follows a write that is applied at once. */
int OstrelClientWriteValues(OstrelValues* values);
/* Sets pKey to index in every value of the list, then writes it. */
int OstrelClientWriteVectorElements(OstrelValues* values, unsigned int index);
int OstrelClientWriteVectorElement(OstrelValue* value, unsigned int index);
int OstrelClientWriteValue(OstrelValue* value);
/* Removes instance (or vector element) pKey of name. */
int OstrelClientDeinstanciate(const char* name, unsigned int pKey);
/* Removes every instance of name that belongs to owner; none is no failure. */
int OstrelClientDeinstanciateOwner(const char* name, unsigned int owner);
/* Makes an instance of the template under the structure name. */
int ostrelClientInstanciateStructure(const char* tpltName, const char* name, unsigned int owner);

/* What a plug-in provides. */

/* The table of entries. Those marked optional may be null. Keys match a pattern that equals them, or that
 * ends in '*' and whose other characters they begin with. */
typedef struct OstrelIoFuncs_t {
    const char* srcFileName; /* shown in the log when the plug-in is loaded */
    /* Called once with 5 and the place for a pointer to the module's name. Failure ends the daemon. */
    int (*init)(int, char** moduleName);
    int (*die)(OSTREL_NO_ARGS);       /* optional; called once before the plug-in is unloaded */
    int (*writeConf)(OSTREL_NO_ARGS); /* optional; rewrites the service's configuration from the database */
    int (*restart)(int* reboot);      /* restarts the service; stores 1 when the device must be rebooted */
    /* Hand out the watched patterns and, optional, the trigger patterns. Failure ends the daemon. */
    int (*getWatchedValues)(unsigned int* count, char*** patterns);
    int (*getTriggerList)(unsigned int* count, char*** patterns);
    int (*trigger)(const char* key); /* optional; called for each changed key on the trigger list */
    unsigned int loadPriority;       /* init order, lower first */
    unsigned int restartPriority;    /* writeConf and restart order, lower first */
} OstrelIoFuncs_t;

/* Every plug-in defines this one. The table is never written to. */
OSTREL_EXPORT OstrelIoFuncs_t* ostrelGetIoFuncs(OSTREL_NO_ARGS);
/* Defined by a plug-in that is loaded also in reduced mode; never called. */
OSTREL_EXPORT void ostrelClientEssentialFunc(OSTREL_NO_ARGS);
OSTREL_C_END

#endif

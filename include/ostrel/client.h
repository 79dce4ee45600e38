/* The client library: reads and changes the configuration database through the running daemon. For C (C11),
 * C++ (C++11; ostrel/client.hpp makes it pleasant) and whatever can call C.
 *
 * 1. Threads. Any thread may call; a session and a transaction serve one thread at a time. No global state.
 * 2. Sessions. A session connects when it is first needed and again after a connection was lost. Everything
 *    that it asks the daemon ends within the session's timeout, counted from the call.
 * 3. Transactions are staged in memory and checked there; nothing is sent before ostrelSessionApply(). The
 *    daemon serves nobody else while it takes a transaction, so it is then sent in one go.
 * 4. Results. OSTREL_DONE is success. Otherwise ostrelSessionError() or ostrelTransactionError() tell a
 * person why. Out-arguments are set on success only, except where a comment says more.
 * 5. Ownership. What is passed in is borrowed until the call returns. What a call hands out belongs to the
 *    caller and is released with ostrelFree(), objects with the function of their own. Null is ignored there.
 * 6. Texts are NUL-terminated; their bytes are not interpreted, UTF-8 is usual. Names are 1 to 127 bytes.
 * 7. Null for an object, a name or an out-argument is refused with OSTREL_INVALID.
 * 8. Signals. None is raised. While the daemon waits for the rest of a transaction, the signals that can be
 *    are held back from the calling thread, so that it is not stopped or ended just then.
 * 9. fork. A child must not use its parent's sessions.
 * 10. Version. Layouts and symbols of this header never change; what is added gets new names.
 */
#ifndef OSTREL_CLIENT_H
#define OSTREL_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#include "ostrel/valueType.h"

#define OSTREL_CLIENT_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#define OSTREL_CLIENT_NO_ARGS
#else
#define OSTREL_CLIENT_NO_ARGS void
#endif

typedef enum ostrelStatus {
    OSTREL_DONE = 0,
    OSTREL_REFUSED = 1,      /* by the daemon; nothing is changed */
    OSTREL_INVALID = 2,      /* the arguments cannot be right; nothing was sent */
    OSTREL_NOT_RUNNING = 3,  /* there is no socket */
    OSTREL_STALE_SOCKET = 4, /* there is a socket that nobody serves: the daemon has ended */
    OSTREL_BUSY = 5,         /* the daemon serves somebody else, or a plug-in works, beyond the timeout */
    OSTREL_GONE = 6,         /* the daemon ended while it was asked */
    OSTREL_MISSING = 7,      /* a key that was to be read is not there */
    OSTREL_INCOMPLETE = 8,   /* there is more than the protocol can tell */
    OSTREL_FAILED = 9 /* out of memory, a system call failed, the daemon's answer makes no sense, or the
                       * socket is served by somebody who may not be the daemon */
} ostrelStatus;

/* The status as an English phrase, such as "the daemon is not running". */
OSTREL_CLIENT_API const char* ostrelStatusText(ostrelStatus status);

/* Releases what a call handed out. */
OSTREL_CLIENT_API void ostrelFree(void* memory);

/* Sessions. */

typedef struct ostrelSession ostrelSession;

/* Does not connect. program names the caller in the daemon's log, followed by user and process number. Null:
 * out of memory, or program is null. The timeout is 30 s. */
OSTREL_CLIENT_API ostrelSession* ostrelSessionNew(const char* program);
OSTREL_CLIENT_API void ostrelSessionFree(ostrelSession* session);

/* In milliseconds, at least 1. Of each call from the next on. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionSetTimeout(ostrelSession* session, unsigned int milliseconds);

/* Any local user can make the daemon's socket while the daemon does not run. So what serves it must be root,
 * the calling process's own user, or this one: a name or a number. Of each connection from the next on. Null
 * or "", as at first: the one that the environment variable OSTREL_DAEMON_USER names, if it does (not in a
 * process that runs with another user's rights). Of others nothing is asked: OSTREL_FAILED, and the error
 * names both users. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionSetDaemonUser(ostrelSession* session, const char* user);

/* Why the last call on the session failed; "" after a success. Borrowed until the next call. */
OSTREL_CLIENT_API const char* ostrelSessionError(const ostrelSession* session);

/* Connects if needed, and waits until the daemon has answered. The other calls do not need it. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionConnect(ostrelSession* session);

/* Ends the daemon; returns when its process has ended or, in another process namespace, has dropped the
 * connection. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionShutdown(ostrelSession* session);

/* Reading. */

typedef struct ostrelKey {
    const char* name;
    uint32_t index; /* of a vector's element; the primary key of a member's instance; 0: the plain value */
} ostrelKey;

typedef struct ostrelEntry {
    ostrelValueType type; /* ostrelTypeNone: missing */
    uint32_t number;      /* 0: a text, or missing */
    const char* text;     /* null: a number, or missing */
    size_t size;          /* of the text without its NUL */
} ostrelEntry;

/* Reads count values (any number; keys may be null when it is 0), in the order of the keys. Each group of
 * about a hundred is one request to the daemon: between groups others may commit. entries receives one
 * allocation. OSTREL_MISSING also sets entries, and the error names the missing keys. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionRead(ostrelSession* session, const ostrelKey* keys, size_t count,
                                                 ostrelEntry** entries);

/* The owner's instances of a structure; owner 0: the elements of a vector. 0 for an unknown name. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionCount(ostrelSession* session, const char* name, uint32_t owner,
                                                  uint32_t* count);

/* Their primary keys, or the elements' indices, ascending; keys receives one allocation. OSTREL_INCOMPLETE
 * also sets keys and count: the daemon tells at most about 190, and the error how many there are. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionList(ostrelSession* session, const char* name, uint32_t owner,
                                                 uint32_t** keys, size_t* count);

/* 1: its values are texts; 0: they are numbers, or it is no type. */
OSTREL_CLIENT_API int ostrelTypeIsText(ostrelValueType type);

/* The number that stands for a tag of up to four bytes, such as "dns"; further bytes do not count. */
OSTREL_CLIENT_API uint32_t ostrelOwner(const char* tag);

/* Transactions.
 *
 * Changes are made in the order in which they were staged. A staging call that fails is remembered: the
 * transaction can then no longer be applied. */

typedef struct ostrelTransaction ostrelTransaction;

/* As ostrelKey's index; or an instance that the transaction itself makes, as ostrelTransactionNewInstance()
 * has set it. */
typedef uint64_t ostrelIndex;

/* Null: out of memory. */
OSTREL_CLIENT_API ostrelTransaction* ostrelTransactionNew(OSTREL_CLIENT_NO_ARGS);
OSTREL_CLIENT_API void ostrelTransactionFree(ostrelTransaction* transaction);

/* Writes a Bool, Byte (0 to 255) or Dword. */
OSTREL_CLIENT_API ostrelStatus ostrelTransactionSetNumber(ostrelTransaction* transaction, const char* name,
                                                          ostrelIndex index, ostrelValueType type,
                                                          uint32_t number);
/* Writes an IP, MAC (each may be empty) or String. */
OSTREL_CLIENT_API ostrelStatus ostrelTransactionSetText(ostrelTransaction* transaction, const char* name,
                                                        ostrelIndex index, ostrelValueType type,
                                                        const char* text);
/* Erases the plain value and the vector elements of the name. */
OSTREL_CLIENT_API ostrelStatus ostrelTransactionErase(ostrelTransaction* transaction, const char* name);
/* Makes an instance; instance serves as index in calls on the same transaction, from the next on. */
OSTREL_CLIENT_API ostrelStatus ostrelTransactionNewInstance(ostrelTransaction* transaction,
                                                            const char* templateName, const char* structure,
                                                            uint32_t owner, ostrelIndex* instance);
/* Removes an instance with its members, or a vector's element. */
OSTREL_CLIENT_API ostrelStatus ostrelTransactionRemove(ostrelTransaction* transaction, const char* name,
                                                       ostrelIndex index);
/* Removes all instances of the owner, also when there is none. */
OSTREL_CLIENT_API ostrelStatus ostrelTransactionRemoveOwned(ostrelTransaction* transaction, const char* name,
                                                            uint32_t owner);

/* The line of a file, from 1, that the changes staged from now on come from; 0: none. Errors name it. */
OSTREL_CLIENT_API ostrelStatus ostrelTransactionSetLine(ostrelTransaction* transaction, size_t line);

OSTREL_CLIENT_API size_t ostrelTransactionCount(const ostrelTransaction* transaction);

/* The primary key that an instance received; 0 before the transaction is applied. */
OSTREL_CLIENT_API uint32_t ostrelTransactionKey(const ostrelTransaction* transaction, ostrelIndex instance);

/* Commits the changes, all or none, and waits for the outcome:
 *   OSTREL_DONE          durable; the plug-ins have been told, and what they wrote in turn is stored
 *   OSTREL_REFUSED       nothing is changed; ostrelTransactionFault() tells the change
 *   OSTREL_GONE          the daemon ended
 *   OSTREL_BUSY          no answer in time
 *   OSTREL_FAILED        a system call failed, or the daemon's answer makes no sense
 *   any other            nothing was sent
 * For GONE, BUSY and FAILED ostrelTransactionMayBeApplied() tells whether the changes had left.
 * A transaction that was, or may have been, applied cannot be applied again. One without changes is done at
 * once. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionApply(ostrelSession* session, ostrelTransaction* transaction);

/* Lets the daemon try the changes by all its rules and roll them back: nothing is stored, no plug-in is
 * called. The result is what ostrelSessionApply()'s would be now. */
OSTREL_CLIENT_API ostrelStatus ostrelSessionCheck(ostrelSession* session, ostrelTransaction* transaction);

/* After a failed ostrelSessionApply(): 1 when the daemon may have applied the changes, or (busy) may still do
 * so; read to find out. 0 when it certainly has not and will not. */
OSTREL_CLIENT_API int ostrelTransactionMayBeApplied(const ostrelTransaction* transaction);

typedef struct ostrelFault {
    size_t change; /* which of the staged changes, from 0 */
    size_t line;   /* see ostrelTransactionSetLine() */
    const char* name;
    ostrelIndex index;
    const char* reason; /* as far as it can be known: the daemon does not tell it */
} ostrelFault;

/* The change that could not be staged (the first such), or that the last call that applied or checked found
 * to be refused. Null: none, or it cannot be told. Borrowed until the next call on the transaction. */
OSTREL_CLIENT_API const ostrelFault* ostrelTransactionFault(const ostrelTransaction* transaction);

/* Why the last call that staged a change failed; "" after a success. Borrowed until the next call. */
OSTREL_CLIENT_API const char* ostrelTransactionError(const ostrelTransaction* transaction);

/* Told while ostrelSessionApply() and ostrelSessionCheck() send: how many of the changes have left. The
 * daemon serves nobody else meanwhile: it must return at once. Null switches it off. */
typedef void (*ostrelProgress)(void* context, size_t sent, size_t changes);
OSTREL_CLIENT_API ostrelStatus ostrelSessionSetProgress(ostrelSession* session, ostrelProgress progress,
                                                        void* context);

#ifdef __cplusplus
}
#endif

#endif

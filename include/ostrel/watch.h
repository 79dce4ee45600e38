/* What the plug-in watch tells every local reader: the names of the keys that change. For C (C11) and C++.
 *
 * A reader connects and receives packets: a header, then the key's name, without a NUL. Every change that is
 * committed after connect() has returned is told, until the reader is too slow: what finds no room in its
 * socket is lost, and the reader is told so. It sends nothing.
 */
#ifndef OSTREL_WATCH_H
#define OSTREL_WATCH_H

#include <stdint.h>

#include "ostrel/names.h"

/* AF_UNIX, SOCK_SEQPACKET. */
#define OSTREL_WATCH_SOCKET "/run/ostrelWatch.sock"

/* Others may be added; a reader ignores those that it does not know. */
typedef enum ostrelWatchKind {
    ostrelWatchChanged = 1,
    /* No name. From the change with this number on, changes are lost, up to the next packet's. What is read
     * from the database once this packet is there has all of them. */
    ostrelWatchLost = 2,
    /* No name, number 0. There are too many readers; the connection closes. */
    ostrelWatchRefused = 3
} ostrelWatchKind;

/* Both little-endian. */
typedef struct ostrelWatchHeader {
    uint32_t kind;   /* ostrelWatchKind */
    uint32_t number; /* of the change, counted for each reader from 1; after 4294967295 comes 0 */
} ostrelWatchHeader;

/* No packet has more bytes. */
#define OSTREL_WATCH_PACKET_SIZE (sizeof(ostrelWatchHeader) + OSTREL_LONGEST_NAME)

#endif

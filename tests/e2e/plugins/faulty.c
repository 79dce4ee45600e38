/* A plug-in that does not survive its loading. */
#define _POSIX_C_SOURCE 200809L
#include <stdlib.h>
#include <unistd.h>

void nobodyDefinesThis(void);

__attribute__((constructor)) static void load(void) {
    for (;;)
        FAULT();
}

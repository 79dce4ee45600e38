/* A plug-in that watches, and waits to be triggered by, much that never changes: what a commit pays to find
 * out. */
#include <stdio.h>

#include "ostrel/plugin.h"

enum { patternCount = 50 };

static char name[] = "watching";
static char texts[patternCount][24];
static char* all[patternCount];

static int init(int version, char** moduleName) {
    (void)version;
    for (int i = 0; i < patternCount; ++i) {
        snprintf(texts[i], sizeof texts[i], "net.if.%07d.%s", i * 20, i % 2 == 0 ? "*" : "mtu");
        all[i] = texts[i];
    }
    *moduleName = name;
    return 1;
}

static int restart(int* reboot) {
    *reboot = 0;
    return 1;
}

static int patterns(unsigned int* count, char*** list) {
    *count = patternCount;
    *list = all;
    return 1;
}

static int trigger(const char* key) { return key != 0; }

OstrelIoFuncs_t* ostrelGetIoFuncs(void) {
    static OstrelIoFuncs_t table = {.srcFileName = "watchingPlugin.c",
                                    .init = init,
                                    .restart = restart,
                                    .getWatchedValues = patterns,
                                    .getTriggerList = patterns,
                                    .trigger = trigger};
    return &table;
}

/* A plug-in that watches nothing, so that a benchmark measures the daemon alone. */
#include "ostrel/plugin.h"

static char name[] = "idle";

static int init(int version, char** moduleName) {
    (void)version;
    *moduleName = name;
    return 1;
}

static int restart(int* reboot) {
    *reboot = 0;
    return 1;
}

static int getWatchedValues(unsigned int* count, char*** patterns) {
    *count = 0;
    *patterns = 0;
    return 1;
}

OstrelIoFuncs_t* ostrelGetIoFuncs(void) {
    static OstrelIoFuncs_t table = {.srcFileName = "idlePlugin.c",
                                    .init = init,
                                    .restart = restart,
                                    .getWatchedValues = getWatchedValues};
    return &table;
}

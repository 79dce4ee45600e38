/* A plug-in in plain C: what the header promises to C programs, C++ symbols included, resolves and works. */
#include <string.h>

#include "ostrel/plugin.h"

static char name[] = "plainC";

static int init(int version, char** moduleName) {
    (void)version;
    *moduleName = name;
    return 1;
}

static int restart(int* reboot) {
    *reboot = 0;
    ostrelValueType type = ostrelTypeNone;
    unsigned int size = 0;
    unsigned char buffer[64] = {0};
    int typed = OstrelClientGetType("c.text", 0, &type);
    int read = OstrelClientReadValueWithPKey("c.text", sizeof buffer, &size, buffer);
    ostrelPrintLine(2, "plainC.c", __LINE__, __func__, "plainC read %d %d <%s> type %u size %u", typed, read,
                    (const char*)buffer, (unsigned int)type, size);

    OstrelValues* list = OstrelValues_Create();
    OstrelValues_Add_Dword(list, "c.result", 7);
    OstrelClientDumpValues(list);
    int written = OstrelClientWriteValues(list);
    OstrelValues_Destroy(list);
    return written;
}

static int getWatchedValues(unsigned int* count, char*** patterns) {
    static char pattern[] = "c.text";
    static char* list[] = {pattern};
    *count = 1;
    *patterns = list;
    return 1;
}

OstrelIoFuncs_t* ostrelGetIoFuncs(void) {
    static OstrelIoFuncs_t table = {
        .srcFileName = "plainC.c", .init = init, .restart = restart, .getWatchedValues = getWatchedValues};
    return &table;
}

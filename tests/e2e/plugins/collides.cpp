// A plug-in that is built without hiding anything.
#include "ostrel/plugin.h"

#pragma GCC visibility push(default)

struct Shared {
    inline static char name[] = "collides";
};

int plain(int*) { return 1; }
[[gnu::weak]] int weak(unsigned int* count, char***) {
    *count = 0;
    return 1;
}

#pragma GCC visibility pop

OstrelIoFuncs_t* ostrelGetIoFuncs() {
    static OstrelIoFuncs_t table = {
        .srcFileName = "collides.cpp",
        .init =
            [](int, char** name) {
                *name = Shared::name;
                return 1;
            },
        .die = nullptr,
        .writeConf = nullptr,
        .restart = plain,
        .getWatchedValues = weak,
        .getTriggerList = nullptr,
        .trigger = nullptr,
        .loadPriority = 0,
        .restartPriority = 0,
    };
    return &table;
}

// One loaded plug-in: every call into it goes through this record, which traces it and fences its exceptions.
//
// Main thread only.
#pragma once

#include "ostrel/plugin.h"

class OstrelClientPlugin {
public:
    OstrelIoFuncs_t* io = nullptr;  // the plug-in's
    unsigned int nbWatchedValues = 0;
    char** watchedValues = nullptr;  // the plug-in's
    unsigned int nbTriggers = 0;
    char** triggerList = nullptr;  // the plug-in's
    char* moduleName = nullptr;    // the plug-in's; null before init
    char* fileName;                // owned (malloc)
    char* shortFileName;           // owned (malloc); fileName without its folder
    void* dlHandle = nullptr;      // set by the loader, closed by the unloader
    unsigned int loadPriority = 0;
    unsigned int restartPriority = 0;

    explicit OstrelClientPlugin(const char* fileName);
    ~OstrelClientPlugin();
    OstrelClientPlugin(const OstrelClientPlugin&) = delete;
    OstrelClientPlugin& operator=(const OstrelClientPlugin&) = delete;

    bool setIo(OstrelIoFuncs_t* table);
    // Calls init and asks for the patterns. A failure ends the daemon.
    bool initIo();
    bool closeIo();

    // True when the entry is absent or returned 1. Without a table they end the daemon.
    bool writeConf();
    bool trigger(const char* key);
    // True when the entry returned 1; reboot is set to whether it asked for a reboot, whatever it returned.
    bool restart(bool* reboot);

    bool matchWatchedName(const char* key);
    bool matchTriggerName(const char* key);
    // The trace of a search for a trigger, whoever searches.
    void traceSearch(const char* key) const;
};

// True when the key equals a pattern, or begins with one whose last character is '*', without that.
bool matchNameInList(const char* key, unsigned int count, char** patterns);

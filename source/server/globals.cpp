#include "server/globals.h"

#include <memory>

int state = phase::idle;
std::atomic<int> quitRequested{0};
std::atomic<int> quitSignal{0};
std::atomic<int> logReloadRequested{0};
char* logFileName = nullptr;
ostrelDb* database = nullptr;

// Destroyed in the reverse order by exit.
ostrelLink chaussette;
std::vector<OstrelClientPlugin*> listOfClients;
std::vector<ostrelConnection*> listOfConnection;
std::vector<OstrelValue*> listOfStoredValues;
std::vector<OstrelValue*> listOfChangedStuff;

pthread_mutex_t bllLock;
int nbLockLine = 0;
int oldLockLine = 0;
int newLockLine = 0;

static_assert(std::atomic<int>::is_always_lock_free, "signal handlers write these flags");

void destroyRecords(std::vector<OstrelValue*>& records) {
    for (OstrelValue* record : records)
        delete record;
    records.clear();
}

OstrelValue& addChanged(const char* name) {
    auto entry = std::make_unique<OstrelValue>();
    entry->setName(name);
    listOfChangedStuff.push_back(entry.get());
    return *entry.release();
}

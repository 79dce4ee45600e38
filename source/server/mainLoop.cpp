#include "server/mainLoop.h"

#include <poll.h>

#include <cstdlib>
#include <new>
#include <vector>

#include "common/ostrelUtils.h"
#include "log/serverPlaces.h"
#include "server/connections.h"
#include "server/dispatcher.h"
#include "server/globals.h"
#include "server/logFile.h"
#include "server/pluginLoading.h"

namespace {

// Upper bounds of the waits: a flag that a signal set just before a wait is seen that much later.
constexpr int waitWithoutClientsMs = 50;
constexpr int waitWithClientsMs = 1000;

constexpr short readable = POLLIN | POLLHUP | POLLERR | POLLNVAL;
constexpr short exceptional = POLLPRI;

void serveFlags() {
    if (quitRequested != 0) {
        OSTREL_LOG_AT(logPlace::quitSignal, logLevel::notice, "exiting due to signal %d", quitSignal.load());
        OSTREL_LOG_AT(logPlace::mainProgram, logLevel::notice, "** Ostrel v0.1 exiting...**");
        shutdownServer();
    }
    if (logReloadRequested != 0) {
        OSTREL_LOG_AT(logPlace::mainProgram, logLevel::notice, "[ostrelServer] Reloading Log file");
        logReloadRequested = 0;
        reopenLog();
    }
}

// The first entry is the listener's event, the others are the connections in list order. Those for which
// there is no memory are waited for when there is, or when an earlier one has gone.
void collectWaits(std::vector<pollfd>& waits) {
    waits.clear();
    waits.push_back({newClientsFd(), POLLIN, 0});
    const BllGuard guard;
    try {
        for (const ostrelConnection* connection : listOfConnection)
            waits.push_back({connection->fd, POLLIN | POLLPRI, 0});
    } catch (const std::bad_alloc&) {
    }
}

ostrelConnection* connectionAt(int index) {
    const BllGuard guard;
    return listOfConnection[static_cast<size_t>(index)];
}

// Serves the connections that are ready. False when an exceptional condition ended the pass early.
// Connections that the listener appends meanwhile stand behind those that were waited for.
bool dispatchPass(const std::vector<pollfd>& waits) {
    int index = 0;
    for (auto wait = waits.begin() + 1; wait != waits.end(); ++wait) {
        boundLog();
        bool listed = true;
        if ((wait->revents & readable) != 0 && !popMessage(connectionAt(index))) {
            removeCnx(index);
            listed = false;
        }
        if (listed && (wait->revents & exceptional) != 0) {
            removeCnx(index);
            return false;
        }
        if (listed)
            ++index;
    }
    return true;
}

}  // namespace

void mainLoop() {
    std::vector<pollfd> waits;
    bool skipFlags = false;
    for (;;) {
        if (!skipFlags)
            serveFlags();
        skipFlags = false;
        boundLog();
        state = phase::idle;
        collectWaits(waits);
        const bool noClients = waits.size() == 1;
        if (poll(waits.data(), waits.size(), noClients ? waitWithoutClientsMs : waitWithClientsMs) <= 0)
            continue;
        if (waits.front().revents != 0)
            clearNewClients();
        if (noClients)
            continue;
        state = phase::serving;
        skipFlags = !dispatchPass(waits);
    }
}

void shutdownServer() {
    unloadPlugins();
    stopListener();
    while (!listOfConnection.empty())
        removeCnx(0);
    delete database;
    database = nullptr;
    destroyRecords(listOfStoredValues);
    destroyRecords(listOfChangedStuff);
    std::exit(0);
}

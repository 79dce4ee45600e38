#include "pluginBench/clients.h"

#include <poll.h>

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include "server/connections.h"
#include "server/descriptors.h"
#include "server/dispatcher.h"
#include "server/globals.h"

namespace pluginBench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

bool isOpen = false;

// Those of the clients in their order, behind that of new ones.
std::vector<pollfd> collectWaits() {
    std::vector<pollfd> waits{{newClientsFd(), POLLIN, 0}};
    const BllGuard guard;
    for (const ostrelConnection* connection : listOfConnection)
        waits.push_back({connection->fd, POLLIN, 0});
    return waits;
}

ostrelConnection* connectionAt(int index) {
    const BllGuard guard;
    return listOfConnection[static_cast<size_t>(index)];
}

void dispatch(const std::vector<pollfd>& waits, const Report& report) {
    int index = 0;
    for (auto wait = waits.begin() + 1; wait != waits.end(); ++wait) {
        bool isKept = true;
        if (wait->revents != 0) {
            const Watched watched(report, "a client's request");
            isKept = popMessage(connectionAt(index));
        }
        if (isKept)
            ++index;
        else
            removeCnx(index);
    }
}

}  // namespace

void openSocket() {
    raiseDescriptorLimit();
    startServing();
    isOpen = true;
}

void serveClients(const Report& report, milliseconds time) {
    if (!isOpen) {
        std::this_thread::sleep_for(time);
        return;
    }
    const auto end = Clock::now() + time;
    for (milliseconds left = time; left.count() >= 0;
         left = std::chrono::floor<milliseconds>(end - Clock::now())) {
        state = phase::idle;
        std::vector<pollfd> waits = collectWaits();
        const int ready = poll(waits.data(), waits.size(), static_cast<int>(left.count()));
        state = phase::serving;
        if (ready > 0 && waits.front().revents != 0)
            clearNewClients();
        if (ready > 0)
            dispatch(waits, report);
        if (left.count() == 0)
            break;
    }
}

void closeSocket() {
    if (!std::exchange(isOpen, false))
        return;
    stopListener();
    while (!listOfConnection.empty())
        removeCnx(0);
}

}  // namespace pluginBench

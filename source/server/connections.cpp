#include "server/connections.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>

#include "common/logText.h"
#include "common/ostrelUtils.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "server/descriptors.h"
#include "server/event.h"
#include "server/globals.h"

namespace {

constexpr unsigned int port = 9910;
constexpr std::chrono::seconds peerStall{5};
constexpr unsigned int peerRate = 64 * 1024;  // bytes per second
constexpr size_t listenerStackSize = 65536;
constexpr useconds_t memoryRetryUs = 500000;

Event& newClients() {
    static Event event;
    return event;
}

Event& stopWanted() {
    static Event event;
    return event;
}

Event& clientLeft() {
    static Event event;
    return event;
}

std::atomic<int> clients{0};  // accepted and not yet closed; the listener adds, the main thread subtracts
std::atomic<bool> stopping{false};
std::atomic<bool> listenerGone{false};
std::atomic<pid_t> listenerProcess{0};  // the process that has the thread; 0 before it is made
thread_local bool holdsLock = false;
thread_local bool isListener = false;

// Attributes of a detached thread with the listener's stack.
class ListenerAttributes {
public:
    ListenerAttributes() {
        pthread_attr_init(&attributes_);
        pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
        pthread_attr_setstacksize(&attributes_, listenerStackSize);
    }
    ~ListenerAttributes() { pthread_attr_destroy(&attributes_); }
    ListenerAttributes(const ListenerAttributes&) = delete;
    ListenerAttributes& operator=(const ListenerAttributes&) = delete;

    const pthread_attr_t* get() const { return &attributes_; }

private:
    pthread_attr_t attributes_{};
};

// False when the listener is to leave instead.
bool waitFor(int fd) {
    pollfd waits[] = {{fd, POLLIN, 0}, {stopWanted().fd(), POLLIN, 0}};
    while (poll(waits, 2, -1) < 0) {
    }
    return !stopping;
}

// Those that come meanwhile wait in the socket's queue. The same.
bool waitForRoom() {
    if (clients < mostClients())
        return !stopping;
    OSTREL_LOG_AT(logPlace::listener, logLevel::error,
                  "[ostrelServer] %d clients are connected: more have to wait until one leaves",
                  mostClients());
    while (clients >= mostClients()) {
        if (!waitFor(clientLeft().fd()))
            return false;
        clientLeft().clear();
    }
    return true;
}

// In a child that a plug-in forks, which may have other threads' locks held for ever. Clients would wait for
// answers at its copy of the listening socket when the daemon has gone, and never see that the daemon has
// closed theirs.
void leaveSocketsInChild() {
    close(chaussette.fd);
    chaussette.fd = -1;
    close_range(static_cast<unsigned int>(firstClientDescriptor()), ~0U, 0);
}

void logConnections() {
    if ((printMask & logLevel::debug) == 0)
        return;
    int index = 0;
    for (const ostrelConnection* connection : listOfConnection) {
        OSTREL_LOG_AT(logPlace::listener, logLevel::debug, "\tCnx:%02d Fd:%02d Name:%s", index++,
                      connection->fd, LogText(connection->name.get()).text());
    }
}

// The owner of the client is made before the accept, as memory may end.
void acceptClient() {
    auto connection = std::make_unique<ostrelConnection>();
    connection->link = std::make_unique<ostrelLink>();
    connection->fd = chaussette.getNewConnection();
    connection->link->fd = connection->fd;
    if (connection->fd < 0)
        return;
    {
        const BllGuard guard;
        // exit is running and the list may be gone: the client sees its socket close.
        if (stopping)
            return;
        listOfConnection.push_back(connection.get());
        static_cast<void>(connection.release());
        ++clients;
        logConnections();
    }
    newClients().set();
}

}  // namespace

BllGuard::BllGuard() {
    if (pthread_mutex_lock(&bllLock) != 0)
        Die("BLL Lock failed");
    holdsLock = true;
}

BllGuard::~BllGuard() {
    holdsLock = false;
    if (pthread_mutex_unlock(&bllLock) != 0)
        Die("BLL Unlock failed");
}

namespace {

// Makes the listener thread, with the quit and hang-up signals blocked in it: they are the main thread's.
// False when it cannot be made.
bool startListener() {
    // Made before the handler below is registered, so that they outlive it.
    newClients();
    stopWanted();
    clientLeft();

    sigset_t forMainThread;
    sigset_t before;
    sigemptyset(&forMainThread);
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGQUIT})
        sigaddset(&forMainThread, number);
    pthread_sigmask(SIG_BLOCK, &forMainThread, &before);
    pthread_t thread{};
    const int result = pthread_create(&thread, ListenerAttributes().get(), listener, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (result != 0)
        return false;
    listenerProcess = getpid();
    // Without memory for it a child keeps the sockets, as if there were no handler.
    pthread_atfork(nullptr, nullptr, leaveSocketsInChild);
    // Runs before the destructors of the globals, which were made earlier.
    std::atexit(stopListener);
    return true;
}

}  // namespace

void startServing() {
    ostrelLink::limits = {peerStall, peerRate, &quitRequested, firstClientDescriptor()};
    if (!chaussette.bindTo(port))
        Die(knownLine::cannotBind);
    if (pthread_mutex_init(&bllLock, nullptr) != 0)
        Die("Cannot init the BLL");
    if (!startListener())
        Die("Cannot spawn listener thread");
}

void stopListener() {
    // A child that a plug-in forked has no listener to wait for.
    if (listenerProcess != getpid() || isListener)
        return;
    stopping = true;
    // Ends the retries of a failing accept.
    quitRequested = 1;
    stopWanted().set();
    // The listener may be waiting for the lock with a client in its hands.
    if (holdsLock) {
        holdsLock = false;
        pthread_mutex_unlock(&bllLock);
    }
    listenerGone.wait(false);
}

void* listener(void*) {
    isListener = true;
    while (waitForRoom() && waitFor(chaussette.fd)) {
        try {
            acceptClient();
        } catch (const std::bad_alloc&) {
            OSTREL_LOG_AT(logPlace::listener, logLevel::error,
                          "[OstrelServer] Out of memory for a new client");
            usleep(memoryRetryUs);
        }
    }
    listenerGone = true;
    listenerGone.notify_all();
    return nullptr;
}

void removeCnx(int index) {
    const BllGuard guard;
    auto place = listOfConnection.begin() + index;
    std::unique_ptr<ostrelConnection> connection(*place);
    OSTREL_LOG_AT(logPlace::removeConnection, logLevel::error, "%s",
                  connection->name ? LogText(connection->name.get()).text() : "");
    listOfConnection.erase(place);
    connection.reset();
    if (clients.fetch_sub(1) == mostClients())
        clientLeft().set();
}

int newClientsFd() { return newClients().fd(); }

void clearNewClients() { newClients().clear(); }

// A thread that lets readers in while nothing changes, so that those who come and go do not fill the queue in
// front of the socket.
#pragma once

#include <atomic>
#include <mutex>
#include <ostrel/plugin.hpp>
#include <thread>

#include "watch/listener.h"
#include "watch/readers.h"

namespace watch {

// The thread calls nothing of the daemon's. Listener and readers are borrowed.
class Doorman {
public:
    // Throws std::system_error.
    Doorman(const Listener& listener, Readers& readers);
    // Waits for the thread.
    ~Doorman();
    Doorman(const Doorman&) = delete;
    Doorman& operator=(const Doorman&) = delete;

    // While it is held, listener and readers are the caller's. Waits for one admission at most, however many
    // want to come in.
    std::unique_lock<std::mutex> stepAside();

private:
    void run();
    // Both are true when the thread is to end.
    bool waitForReader() const;
    bool pause(int milliseconds) const;

    const Listener& listener_;
    Readers& readers_;
    std::mutex mutex_{};
    std::atomic<bool> isWanted_{false};  // by the caller of stepAside, who goes first
    ostrel::plugin::Descriptor end_;     // readable: the thread is to end
    std::thread thread_;
};

}  // namespace watch

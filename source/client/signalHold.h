// Holds the signals back that would stop or end the thread while the daemon waits for it.
#pragma once

#include <csignal>

namespace client {

class SignalHold {
public:
    SignalHold() {
        sigset_t held;
        sigfillset(&held);
        // The thread's own faults.
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
            sigdelset(&held, fault);
        pthread_sigmask(SIG_BLOCK, &held, &before_);
    }
    ~SignalHold() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;

private:
    sigset_t before_{};
};

}  // namespace client

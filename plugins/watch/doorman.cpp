#include "watch/doorman.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace watch {

namespace {

// The signals are the daemon's: they have to reach its own threads.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

}  // namespace

Doorman::Doorman(const Listener& listener, Readers& readers)
    : listener_(listener), readers_(readers), end_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!end_)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { run(); });
}

Doorman::~Doorman() {
    eventfd_write(end_.get(), 1);
    thread_.join();
}

std::unique_lock<std::mutex> Doorman::stepAside() {
    isWanted_ = true;
    std::unique_lock<std::mutex> lock(mutex_);
    isWanted_ = false;
    return lock;
}

bool Doorman::waitForReader() const {
    std::array<pollfd, 2> waits{{{end_.get(), POLLIN, 0}, {listener_.descriptor(), POLLIN, 0}}};
    poll(waits.data(), waits.size(), -1);
    return waits[0].revents != 0;
}

bool Doorman::pause(int milliseconds) const {
    pollfd wait{end_.get(), POLLIN, 0};
    return poll(&wait, 1, milliseconds) > 0;
}

void Doorman::run() {
    constexpr int turn = 1;
    constexpr int untilDescriptorsAreFree = 100;
    while (!waitForReader()) {
        if (isWanted_) {
            pause(turn);
            continue;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        // Admitted in one: else a reader who is accepted, and not among the others yet, would miss what is
        // told meanwhile.
        const bool hasFailed = listener_.admitOne(readers_) == Listener::Admission::failed;
        lock.unlock();
        if (hasFailed)
            pause(untilDescriptorsAreFree);
    }
}

}  // namespace watch

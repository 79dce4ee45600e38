#include "ctl/interruption.h"

#include <unistd.h>

#include <atomic>
#include <utility>

namespace {

// For the handler, which gets nothing else.
std::atomic<const Interruption*> present = nullptr;
std::atomic<bool> lineOpen = false;
std::atomic<bool> come = false;
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<void*>::is_always_lock_free);

void print(const char* text, size_t size) {
    while (size > 0) {
        const ssize_t written = write(STDERR_FILENO, text, size);
        if (written <= 0)
            return;
        text += written;
        size -= static_cast<size_t>(written);
    }
}

}  // namespace

Interruption::Interruption(const ostrel::Transaction& transaction, std::string nothingDone,
                           std::string maybeDone)
    : transaction_(transaction), nothingDone_(std::move(nothingDone)), maybeDone_(std::move(maybeDone)) {
    present = this;
    struct sigaction action {};
    action.sa_handler = tell;
    sigfillset(&action.sa_mask);
    for (size_t i = 0; i < signals_.size(); ++i) {
        sigaction(signals_[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN)
            sigaction(signals_[i], &action, nullptr);
    }
}

Interruption::~Interruption() {
    for (size_t i = 0; i < signals_.size(); ++i)
        sigaction(signals_[i], &before_[i], nullptr);
    present = nullptr;
}

void Interruption::setLineOpen(bool isOpen) { lineOpen = isOpen; }

bool Interruption::hasCome() { return come; }

// On the thread that applies: what that knows of the transaction is complete.
void Interruption::tell(int number) {
    come = true;
    if (lineOpen)
        print("\n", 1);
    const Interruption& own = *present;
    const std::string& text = own.transaction_.mayBeApplied() ? own.maybeDone_ : own.nothingDone_;
    print(text.data(), text.size());
    // Comes when this returns.
    std::signal(number, SIG_DFL);
    raise(number);
}

#include "pluginBench/report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "text/shown.h"

namespace pluginBench {

void Report::tell(char event, std::string_view text) const {
    const std::string line = event + store::shown(text) + '\n';
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = write(fd_, rest.data(), rest.size());
        if (written < 0 && errno != EINTR)
            return;
        rest.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
    }
}

Watched* Watched::innermost_ = nullptr;

Watched::Watched(const Report& report, std::string name)
    : report_(report), name_(std::move(name)), process_(getpid()), outer_(std::exchange(innermost_, this)) {
    report_.tell(event::begin, name_);
}

Watched::~Watched() {
    if (getpid() != process_) {
        report_.tell(event::fault,
                     "a child process made in " + name_ + " comes back from it, as a second daemon");
        _exit(1);
    }
    innermost_ = outer_;
    report_.tell(event::end, name_);
    if (outer_ != nullptr)
        report_.tell(event::begin, outer_->name_);
}

}  // namespace pluginBench

#include "pluginBench/report.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace pluginBench {

void Report::tell(char event, std::string_view text) const {
    std::string line(1, event);
    for (const char character : text) {
        auto byte = static_cast<unsigned char>(character);
        if (byte >= 32 && byte != 127) {
            line += character;
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x", byte);
        line += escape.data();
    }
    line += '\n';
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

#include "ctl/doctorReport.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "text/shown.h"

namespace {

constexpr int checkWidth = 14;

struct Look {
    const char* word;
    const char* colour;
};

Look lookOf(State state) {
    switch (state) {
        case State::ok:
            return {"OK", "\033[32m"};
        case State::warn:
            return {"WARN", "\033[33m"};
        case State::bad:
            break;
    }
    return {"BAD", "\033[1;31m"};
}

}  // namespace

DoctorReport::DoctorReport(bool json)
    : json_(json), coloured_(isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr) {}

void DoctorReport::add(Finding finding) {
    // Names of files and lines of the log are anybody's: nothing of them may steer a terminal.
    for (std::string* text : {&finding.check, &finding.found, &finding.advice})
        *text = store::printable(*text);
    if (!json_)
        print(finding);
    findings_.push_back(std::move(finding));
}

void DoctorReport::print(const Finding& finding) const {
    const Look look = lookOf(finding.state);
    std::cout << (coloured_ ? look.colour : "") << std::left << std::setw(4) << look.word
              << (coloured_ ? "\033[m" : "") << "  " << std::setw(checkWidth) << finding.check << "  "
              << finding.found << '\n';
    if (!finding.advice.empty())
        std::cout << std::setw(4 + 2 + checkWidth + 2) << ""
                  << "-> " << finding.advice << '\n';
    std::cout.flush();
}

bool DoctorReport::hasBad() const {
    return std::ranges::any_of(findings_, [](const Finding& finding) { return finding.state == State::bad; });
}

void DoctorReport::finish() const {
    if (!json_)
        return;
    auto array = nlohmann::ordered_json::array();
    for (const Finding& finding : findings_)
        array.push_back({{"check", finding.check},
                         {"state", lookOf(finding.state).word},
                         {"found", finding.found},
                         {"advice", finding.advice}});
    // Bytes that are no UTF-8 become U+FFFD.
    std::cout << array.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

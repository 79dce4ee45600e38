#include "pluginBench/review.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "log/logLayout.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "ostrel/plugin/knownLines.hpp"

namespace pluginBench {
namespace {

// Of a failed run; the rest of a log is for --verbose.
constexpr size_t shownLog = 16000;

// What the C++ layer says of a write where the daemon would end.
constexpr std::string_view leftOut = ostrel::plugin::knownLine::writeLeftOut;

// The daemon tells of clients that come and go at the level of errors.
bool isNews(const LogLine& line) {
    constexpr std::string_view connected = logLayout::fixedPart(knownLine::connected);
    return logPlace::removeConnection.is(line.module, line.function) ||
           (logPlace::dispatcher.is(line.module, line.function) && line.text.starts_with(connected));
}

// The host's words for a failure of an entry, which the bench sees itself.
bool isHosts(const LogLine& line) {
    using logLayout::fixedPart;
    constexpr std::string_view texts[] = {fixedPart(knownLine::writeConfFailed),
                                          fixedPart(knownLine::restartFailed),
                                          fixedPart(knownLine::entryThrew), fixedPart(knownLine::noPatterns),
                                          fixedPart(knownLine::writesInWriteConf)};
    auto isIn = [&](std::string_view text) { return line.text.find(text) != std::string::npos; };
    return (line.module == logModules::plugins || line.module == logModules::server) &&
           std::ranges::any_of(texts, isIn);
}

}  // namespace

void Review::begin(const std::string& told) {
    Part part{};
    const char* end = told.data() + told.size();
    const char* rest = std::from_chars(told.data(), end, part.step).ptr;
    rest = std::from_chars(std::min(rest + 1, end), end, part.logBegin).ptr;
    part.title.assign(std::min(rest + 1, end), end);
    parts_.push_back(std::move(part));
}

std::optional<std::string> Review::failureOf(const Part& part, const LogLine& line,
                                             const std::vector<std::string>& faults) const {
    if (line.level != LogLine::Level::error || isHosts(line))
        return std::nullopt;
    const size_t last = scenario_.steps.size() - 1;
    const size_t number = scenario_.steps[std::min(part.step, last)].number;
    if (line.text.find(leftOut) != std::string::npos)
        return scenario_.placed(number, "changes the database in writeConf: " + described(line));
    auto tells = [&](const std::string& fault) { return fault.find(line.text) != std::string::npos; };
    auto names = [&](const Expectation& expectation) {
        return expectation.kind == Expectation::Kind::log &&
               line.text.find(expectation.subject) != std::string::npos;
    };
    const bool known = std::ranges::any_of(faults, tells) ||
                       (part.step <= last && std::ranges::any_of(scenario_.steps[part.step].expected, names));
    if (known)
        return std::nullopt;
    return scenario_.placed(number, "no \"expect log\" names the error " + described(line));
}

int Review::judge(const std::vector<std::string>& faults) {
    int failing = 0;
    for (size_t i = 0; i < parts_.size(); ++i) {
        Part& part = parts_[i];
        part.lines =
            log_.lines(part.logBegin, i + 1 < parts_.size() ? parts_[i + 1].logBegin : std::string::npos);
        for (LogLine& line : part.lines) {
            if (isNews(line))
                line.level = LogLine::Level::notice;
            part.failures.push_back(failureOf(part, line, faults));
            failing += part.failures.back() ? 1 : 0;
        }
    }
    return failing;
}

void Review::print(bool all) const {
    size_t length = 0;
    for (const Part& part : parts_) {
        for (const LogLine& line : part.lines)
            length += shown(line).size();
    }
    size_t passed = 0;
    for (const Part& part : parts_) {
        const std::string heading = "log of " + part.title + ":\n";
        const char* title = heading.c_str();
        for (size_t i = 0; i < part.lines.size(); ++i) {
            const std::optional<std::string>& failure = part.failures[i];
            const std::string line = failure ? "FAILED: " + *failure : "  " + shown(part.lines[i]);
            passed += shown(part.lines[i]).size();
            if (!all && !failure && length - passed > shownLog)
                continue;
            std::printf("%s%s\n", title, line.c_str());
            title = "";
        }
    }
}

}  // namespace pluginBench

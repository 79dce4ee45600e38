#include "ctl/logFaults.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "exec/knownLines.h"
#include "log/linkPlaces.h"
#include "log/logLayout.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "ostrel/plugin/knownLines.hpp"

namespace {

using logLayout::fixedPart;

constexpr std::string_view fatalMark = fixedPart(logLayout::fatalFormat);
constexpr std::string_view ruleMark = exec::knownLine::ofRule;
// Of all of the daemon's modules; plug-ins have names of their own.
constexpr std::string_view daemonsModules = "ostrel";

// Where clients are served. What is logged there as an error is a client's doing: it came, left, or asked for
// what is refused.
constexpr LogPlace clientPlaces[] = {logPlace::dispatcher,
                                     logPlace::removeConnection,
                                     logPlace::writeSequence,
                                     logPlace::read,
                                     logPlace::ownerQty,
                                     logPlace::pKeyList,
                                     logPlace::notify,
                                     logPlace::erase,
                                     logPlace::instanciate,
                                     logPlace::deinstanciate,
                                     logPlace::deinstanciateOwner,
                                     logPlace::unmarshallParameters,
                                     logPlace::sendData,
                                     logPlace::receiveData,
                                     logPlace::receiveMessage};
// But these are the daemon's own.
constexpr std::string_view ownFaults[] = {knownLine::commitFailed, knownLine::noTransaction,
                                          knownLine::readNotAnswered, knownLine::instanceNotAnswered};
// The plug-in's name is behind them.
constexpr std::string_view pluginFailures[] = {fixedPart(knownLine::writeConfFailed),
                                               fixedPart(knownLine::restartFailed)};
// What a line says that follows from the cause in one before it.
constexpr std::string_view consequences[] = {pluginFailures[0], pluginFailures[1], knownLine::commitFailed,
                                             ostrel::plugin::knownLine::keepsOldConfiguration,
                                             ostrel::plugin::knownLine::mayNotRun};

bool holdsAny(std::string_view text, const auto& parts) {
    return std::ranges::any_of(
        parts, [text](std::string_view part) { return text.find(part) != std::string_view::npos; });
}

// "[LEVEL] TIME:MODULE:LINE:FUNCTION():", blanks, of an error a coloured tag, TEXT
struct LogLine {
    std::string_view level{};
    std::string_view module{};
    std::string_view function{};
    std::string_view text{};
};

std::optional<LogLine> parseLine(std::string_view line) {
    constexpr std::string_view placeEnd = logLayout::functionEnd;
    constexpr std::string_view errorTag = logLayout::errorTag;
    const size_t end = line.find(placeEnd);
    if (!line.starts_with('[') || end == std::string_view::npos)
        return std::nullopt;
    const std::string_view place = line.substr(0, end);
    LogLine parsed{.level = line.substr(0, line.find(' ')),
                   .function = place.substr(place.rfind(':') + 1),
                   .text = line.substr(end + placeEnd.size())};
    const size_t module = place.find(':') + 1;
    parsed.module = place.substr(module, place.find(':', module) - module);
    if (const size_t tag = line.find(errorTag); tag != std::string_view::npos)
        parsed.text = line.substr(tag + errorTag.size());
    parsed.text.remove_prefix(std::min(parsed.text.find_first_not_of(' '), parsed.text.size()));
    return parsed;
}

bool isClients(const LogLine& line) {
    const auto isAt = [&line](const LogPlace& place) { return place.is(line.module, line.function); };
    return std::ranges::any_of(clientPlaces, isAt) && !holdsAny(line.text, ownFaults);
}

// By the daemon's line that one of its entries failed.
std::optional<std::string> failedPlugin(std::string_view text) {
    for (const std::string_view failure : pluginFailures) {
        if (text.starts_with(failure))
            return std::string(text.substr(failure.size()));
    }
    return std::nullopt;
}

class Reader {
public:
    void take(std::string_view line) {
        const std::string_view before = std::exchange(loose_, {});
        if (line.starts_with(fatalMark))
            faults_.fatal = line.substr(fatalMark.size());
        else if (line.starts_with(ruleMark))
            takeRunners(line.substr(ruleMark.size()), before);
        else if (std::optional<LogLine> parsed = parseLine(line))
            takeDaemons(*parsed, before);
        else
            loose_ = line;
    }

    LogFaults finish() { return std::move(faults_); }

private:
    // NAME: TEXT
    void takeRunners(std::string_view text, std::string_view before) {
        const size_t colon = std::min(text.find(": "), text.size());
        const std::string rule = ruleName(text.substr(0, colon));
        if (text.ends_with(exec::knownLine::succeededAgain))
            faults_.services.erase(rule);
        else if (!text.ends_with(exec::knownLine::restLeftOut))
            add(faults_.services[rule], text.substr(std::min(colon + 2, text.size())), before);
    }

    void takeDaemons(const LogLine& line, std::string_view before) {
        if (line.level == logLayout::noticeLevel && line.text == ostrel::plugin::knownLine::followsAgain)
            faults_.services.erase(std::string(line.module));
        // Whatever a runner that has ended knew of them: they are run now, and a failure is told anew.
        if (line.level == logLayout::noticeLevel && line.module == exec::moduleName &&
            line.text.ends_with(exec::knownLine::allRulesDue))
            std::erase_if(faults_.services,
                          [](const auto& service) { return service.first.starts_with(ruleName("")); });
        if (line.level != logLayout::errorLevel || isClients(line))
            return;
        if (const std::optional<std::string> plugin = failedPlugin(line.text))
            add(faults_.services[*plugin], line.text, before);
        else if (line.module.starts_with(daemonsModules))
            add(faults_.own, line.text, before);
        else
            add(faults_.services[std::string(line.module)], line.text, before);
    }

    static void add(LogFaults::Lines& lines, std::string_view text, std::string_view before) {
        ++lines.count;
        const bool tellsCause = !holdsAny(text, consequences);
        if (!tellsCause && lines.toldCause)
            return;
        lines.toldCause = tellsCause;
        lines.cause = text;
        if (!before.empty())
            lines.cause.append("; in front of it: ").append(before);
    }

    static std::string ruleName(std::string_view rule) { return "exec, rule " + std::string(rule); }

    LogFaults faults_{};
    // The line before, when it is a program's own words.
    std::string_view loose_{};
};

}  // namespace

LogFaults findFaults(std::string_view log) {
    Reader reader;
    while (!log.empty()) {
        std::string_view line = log.substr(0, log.find('\n'));
        log.remove_prefix(std::min(line.size() + 1, log.size()));
        // A log that another daemon emptied begins with NULs.
        line.remove_prefix(std::min(line.find_first_not_of('\0'), line.size()));
        reader.take(line);
    }
    return reader.finish();
}

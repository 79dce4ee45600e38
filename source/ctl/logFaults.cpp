#include "ctl/logFaults.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace {

constexpr std::string_view fatalMark = "FATAL ERROR :";
constexpr std::string_view runnerMark = "ostrelExecRunner: rule ";
constexpr std::string_view failedClient = " failed for client :";

// The daemon's functions that serve clients. What these log as an error is a client's doing: it came, left,
// or asked for what is refused.
constexpr std::array<std::string_view, 15> clientFunctions{"popMessage",
                                                           "removeCnx",
                                                           "HandleWriteSequence",
                                                           "unpackReadMessage",
                                                           "unpackGetOwnerQtyMessage",
                                                           "unpackGetPKeyListMessage",
                                                           "unpackNotifyMessage",
                                                           "unpackEraseMessage",
                                                           "unpackInstanciateMessage",
                                                           "unpackDeinstanciateMessage",
                                                           "unpackDeinstanciateOwnerMessage",
                                                           "OstrelUnMarshallParameters",
                                                           "sendData",
                                                           "receiveData",
                                                           "receiveMessage"};
// But these are the daemon's own.
constexpr std::array<std::string_view, 3> ownFaults{"[ostrelServer] Warning, commit failed",
                                                    "returned invalid handle", "Marshalling message failed"};
// What a line says that follows from the cause in one before it.
constexpr std::array<std::string_view, 4> consequences{failedClient, "[ostrelServer] Warning, commit failed",
                                                       "the service has its last good configuration",
                                                       "the service may not run"};

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
    constexpr std::string_view placeEnd = "():";
    constexpr std::string_view tagEnd = "\033[m ";
    const std::size_t end = line.find(placeEnd);
    if (!line.starts_with('[') || end == std::string_view::npos)
        return std::nullopt;
    const std::string_view place = line.substr(0, end);
    LogLine parsed{.level = line.substr(0, line.find(' ')),
                   .function = place.substr(place.rfind(':') + 1),
                   .text = line.substr(end + placeEnd.size())};
    const std::size_t module = place.find(':') + 1;
    parsed.module = place.substr(module, place.find(':', module) - module);
    if (const std::size_t tag = line.find(tagEnd); tag != std::string_view::npos)
        parsed.text = line.substr(tag + tagEnd.size());
    parsed.text.remove_prefix(std::min(parsed.text.find_first_not_of(' '), parsed.text.size()));
    return parsed;
}

bool isClients(const LogLine& line) {
    return std::ranges::find(clientFunctions, line.function) != clientFunctions.end() &&
           !holdsAny(line.text, ownFaults);
}

class Reader {
public:
    void take(std::string_view line) {
        const std::string_view before = std::exchange(loose_, {});
        if (line.starts_with(fatalMark))
            faults_.fatal = line.substr(fatalMark.size());
        else if (line.starts_with(runnerMark))
            takeRunners(line.substr(runnerMark.size()), before);
        else if (std::optional<LogLine> parsed = parseLine(line))
            takeDaemons(*parsed, before);
        else
            loose_ = line;
    }

    LogFaults finish() { return std::move(faults_); }

private:
    // NAME: TEXT
    void takeRunners(std::string_view text, std::string_view before) {
        const std::size_t colon = std::min(text.find(": "), text.size());
        const std::string rule = ruleName(text.substr(0, colon));
        if (text.ends_with(": succeeded again"))
            faults_.services.erase(rule);
        else if (!text.ends_with("the rest is left out"))
            add(faults_.services[rule], text.substr(std::min(colon + 2, text.size())), before);
    }

    void takeDaemons(const LogLine& line, std::string_view before) {
        if (line.level == "[NOT]" && line.text == "follows the database again")
            faults_.services.erase(std::string(line.module));
        // Whatever a runner that has ended knew of them: they are run now, and a failure is told anew.
        if (line.level == "[NOT]" && line.module == "exec" && line.text.ends_with("all rules are due"))
            std::erase_if(faults_.services,
                          [](const auto& service) { return service.first.starts_with(ruleName("")); });
        if (line.level != "[ERR]" || isClients(line))
            return;
        if (const std::size_t name = line.text.find(failedClient); name != std::string_view::npos)
            add(faults_.services[std::string(line.text.substr(name + failedClient.size()))], line.text,
                before);
        else if (line.module.starts_with("ostrel"))
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

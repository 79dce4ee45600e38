#include "pluginBench/judge.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <optional>

#include "pluginBench/clients.h"
#include "process/childProcess.h"
#include "server/globals.h"
#include "text/grammar.h"

namespace pluginBench {
namespace {

using Clock = std::chrono::steady_clock;
using Kind = Expectation::Kind;

constexpr std::chrono::milliseconds pause{20};
constexpr std::chrono::milliseconds runCheck{2};

// Nothing when the file cannot be read.
std::optional<std::string> contentOf(const std::string& path) {
    // Anything else might have no end, or none to wait for.
    if (struct stat status{}; stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string quoted(const std::string& text) { return '"' + text + '"'; }

// What differs first.
std::string difference(const std::string& expected, const std::string& found) {
    auto [wanted, is] = std::ranges::mismatch(expected, found);
    auto number = std::count(expected.begin(), wanted, '\n') + 1;
    auto lineAt = [](const std::string& text, auto at) {
        auto begin = std::find(std::make_reverse_iterator(at), text.rend(), '\n').base();
        return at == text.end() && begin == at ? std::string("the end")
                                               : quoted(std::string(begin, std::find(at, text.end(), '\n')));
    };
    return "line " + std::to_string(number) + " is " + lineAt(found, is) + ", expected " +
           lineAt(expected, wanted);
}

std::optional<std::string> problemOfFile(const Expectation& expectation) {
    std::optional<std::string> content = contentOf(expectation.subject);
    const bool isThere = access(expectation.subject.c_str(), F_OK) == 0;
    if (expectation.kind == Kind::noFile)
        return isThere ? std::optional<std::string>("it is there") : std::nullopt;
    if (!content)
        return "it is no file that can be read";
    if (expectation.kind == Kind::line &&
        ('\n' + *content + '\n').find('\n' + expectation.content + '\n') == std::string::npos)
        return "there is no such line";
    if (expectation.kind == Kind::file && *content != expectation.content)
        return difference(expectation.content, *content);
    return std::nullopt;
}

// The committed value as the database files have it, if there is one.
std::optional<std::string> valueOf(const store::Line& line) {
    const std::string name = line.key().wholeName();
    store::Value value;
    if (database == nullptr || database->getType(name.c_str(), line.index, &value.type) == refused)
        return std::nullopt;
    constexpr int room = 1024 * 1024;
    std::string bytes(room, '\0');
    int size = room;
    if (database->dataRead(0, name.c_str(), value.type, &size, reinterpret_cast<unsigned char*>(bytes.data()),
                           line.index) == refused)
        return std::nullopt;
    value.bytes = bytes.substr(0, static_cast<size_t>(size) - (store::isText(value.type) ? 1 : 0));
    store::LineWriter writer;
    writer.value(line.key(), value);
    return writer.text.substr(0, writer.text.size() - 1);
}

std::optional<std::string> problemOfValue(const Expectation& expectation) {
    store::Line line;
    if (!store::parseLine(expectation.subject, line).ok())
        return "it is no value";
    const std::optional<std::string> found = valueOf(line);
    if (expectation.kind == Kind::noValue)
        return found ? std::optional("there is " + *found) : std::nullopt;
    if (!found)
        return "there is no such value";
    store::LineWriter wanted;
    wanted.value(line.key(), line.value);
    return *found + '\n' == wanted.text ? std::nullopt : std::optional("it is " + *found);
}

std::string listed(const std::vector<Callback>& callbacks) {
    std::string text;
    for (const Callback& callback : callbacks) {
        if (!text.empty())
            text += ", ";
        text += shown(callback);
    }
    return text.empty() ? "nothing" : text;
}

bool isBroadcast(const Callback& callback) {
    return callback.entry == "writeConf" || callback.entry == "restart" || callback.entry == "trigger";
}

// Whether both are the same call, whatever its result.
bool isSameCall(const Callback& one, const Callback& other) {
    return one.entry == other.entry && one.key == other.key && one.reboot == other.reboot;
}

}  // namespace

void Judge::judgeCallbacks(const Step& step, const std::vector<Callback>& callbacks) const {
    std::vector<Callback> expected;
    bool anyExpected = false;
    for (const Expectation& expectation : step.expected) {
        const bool broadcast = expectation.kind == Kind::callback && isBroadcast(expectation.callback);
        anyExpected = anyExpected || broadcast || expectation.kind == Kind::nothing;
        if (broadcast)
            expected.push_back(expectation.callback);
    }
    const bool same = !anyExpected || std::ranges::equal(expected, callbacks, isSameCall);
    if (!same)
        report_.tell(event::fault, scenario_.placed(step.number, "expected " + listed(expected) +
                                                                     "; called: " + listed(callbacks)));
    for (size_t i = 0; i < callbacks.size(); ++i) {
        const bool mayFail = anyExpected && same && expected[i].fails;
        if (callbacks[i].fails == mayFail || callbacks[i].throws)
            continue;
        Callback callback = callbacks[i];
        callback.fails = false;
        report_.tell(event::fault, scenario_.placed(step.number, shown(callback) + (mayFail ? " does not fail"
                                                                                            : " fails")));
    }
}

void Judge::judgeFailures(const Step& step, const Seen& seen) const {
    std::vector<Callback> expected;
    for (const Expectation& expectation : step.expected) {
        if (expectation.kind == Kind::callback && !isBroadcast(expectation.callback))
            expected.push_back(expectation.callback);
    }
    auto among = [](const std::vector<Callback>& callbacks, const Callback& callback) {
        return std::ranges::any_of(callbacks,
                                   [&](const Callback& other) { return isSameCall(other, callback); });
    };
    for (const Callback& callback : seen.failures) {
        if (!callback.throws && !among(expected, callback))
            report_.tell(event::fault, scenario_.placed(step.number, callback.entry + " fails"));
    }
    for (const Callback& callback : expected) {
        if (!among(seen.failures, callback))
            report_.tell(event::fault, scenario_.placed(step.number, callback.entry + " does not fail"));
    }
}

std::optional<std::string> Judge::problemOfRun(const std::string& command) const {
    // A plug-in that ignores the signal would have the result lost.
    struct sigaction before {};
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &usual, &before);
    // It may be a client itself.
    auto run = std::async(std::launch::async, [&] {
        return runChild({"/bin/sh", "-c", command}, scenario_.deadline);
    });
    while (run.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        serveClients(report_, runCheck);
    const ChildResult result = run.get();
    sigaction(SIGCHLD, &before, nullptr);
    if (result.end == ChildResult::End::exited && result.number == 0)
        return std::nullopt;
    std::string said = result.output + result.errors;
    while (said.ends_with('\n'))
        said.pop_back();
    const std::string how =
        result.end == ChildResult::End::exited     ? "exit status " + std::to_string(result.number)
        : result.end == ChildResult::End::killed   ? "ended by signal " + std::to_string(result.number)
        : result.end == ChildResult::End::timedOut ? "it does not end"
                                                   : "it does not run";
    return said.empty() ? how : how + ": " + said;
}

std::optional<std::string> Judge::problemOf(const Expectation& expectation) const {
    auto contains = [&](const LogLine& line) {
        return line.text.find(expectation.subject) != std::string::npos;
    };
    switch (expectation.kind) {
        case Kind::value:
        case Kind::noValue:
            return problemOfValue(expectation);
        case Kind::run:
            return problemOfRun(expectation.subject);
        case Kind::log:
            if (std::ranges::none_of(log_.lines(logBegin_), contains))
                return "the step has no such text in its log";
            return std::nullopt;
        default:
            return problemOfFile(expectation);
    }
}

// What a service does in the background may take a moment, so there are more tries than one.
void Judge::observe(const Expectation& expectation) const {
    auto limit = Clock::now() + scenario_.deadline;
    std::optional<std::string> problem = problemOf(expectation);
    while (problem && Clock::now() < limit) {
        serveClients(report_, pause);
        problem = problemOf(expectation);
    }
    if (!problem)
        report_.tell(event::print, "  as expected: " + expectation.text);
    else
        report_.tell(event::fault,
                     scenario_.placed(expectation.number, "expect " + expectation.text + ": " + *problem));
}

void Judge::judge(const Step& step, const Seen& seen) const {
    judgeCallbacks(step, seen.callbacks);
    judgeFailures(step, seen);
    for (const Expectation& expectation : step.expected) {
        if (expectation.kind != Kind::callback && expectation.kind != Kind::nothing)
            observe(expectation);
    }
}

}  // namespace pluginBench

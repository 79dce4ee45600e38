#include "pluginBench/scenario.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

#include "pluginBench/statements.h"
#include "text/cursor.h"
#include "text/grammar.h"

namespace pluginBench {
namespace {

std::vector<BlockLine> readLines(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw ScenarioError(path + ": " + std::strerror(errno));
    std::vector<BlockLine> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back({lines.size() + 1, line});
    if (file.bad())
        throw ScenarioError(path + ": it cannot be read");
    return lines;
}

bool isStarted(const Scenario& scenario) {
    return std::ranges::any_of(scenario.steps,
                               [](const Step& step) { return step.kind == Step::Kind::start; });
}

// After the last step.
bool isRunning(const Scenario& scenario) {
    bool running = false;
    for (const Step& step : scenario.steps) {
        if (step.kind != Step::Kind::file)
            running = step.kind != Step::Kind::stop;
    }
    return running;
}

class Parser {
public:
    explicit Parser(const std::string& path) : lines_(readLines(path)) { scenario_.path = path; }

    Scenario parse();

private:
    void parseStatement(const std::string& word, std::string_view rest);
    void parseSetting(const std::string& word, std::string_view rest);
    void parseStep(const std::string& word, std::string_view rest);
    void parseExpectation(std::string_view rest);
    void checkDatabaseLines(const std::vector<BlockLine>& block, bool templates) const;
    // The lines up to the one with the closing word, which the statement may choose as its last word, <<WORD.
    std::vector<BlockLine> takeBlock(std::string_view& rest);
    std::vector<Change> takeChanges(std::string_view& rest);

    std::vector<BlockLine> lines_;
    size_t at_ = 0;
    size_t number_ = 0;   // of the statement's line
    bool ended_ = false;  // the daemon has, by an expected failure
    Scenario scenario_;
};

std::vector<BlockLine> Parser::takeBlock(std::string_view& rest) {
    std::string_view closing = "end";
    if (const size_t chosen = rest.rfind("<<"); chosen != std::string_view::npos) {
        closing = store::trimmed(rest.substr(chosen + 2));
        if (closing.empty())
            throw Mistake("the closing word behind << is missing");
        rest = store::trimmed(rest.substr(0, chosen));
    }
    const size_t begin = at_ + 1;
    size_t end = begin;
    while (end < lines_.size() && store::trimmed(lines_[end].text) != closing)
        ++end;
    if (end == lines_.size())
        throw Mistake("no line \"" + std::string(closing) + "\" ends what begins here");
    at_ = end;
    return {std::make_move_iterator(lines_.begin() + static_cast<ptrdiff_t>(begin)),
            std::make_move_iterator(lines_.begin() + static_cast<ptrdiff_t>(end))};
}

void Parser::checkDatabaseLines(const std::vector<BlockLine>& block, bool templates) const {
    using LineKind = store::Line::Kind;
    for (const BlockLine& text : block) {
        store::Line line;
        const char* refusal = store::parseLine(text.text, line).refusal;
        const bool fits = line.kind == LineKind::blank || line.kind == LineKind::value ||
                          line.kind == (templates ? LineKind::heading : LineKind::instance);
        if (refusal == nullptr && !fits)
            refusal = "such a line does not belong here";
        if (refusal != nullptr)
            throw ScenarioError(scenario_.placed(text.number, refusal));
    }
}

void Parser::parseSetting(const std::string& word, std::string_view rest) {
    if (isStarted(scenario_))
        throw Mistake('"' + word + "\" belongs in front of \"start\"");
    if (word == "defaults" || word == "templates") {
        std::vector<BlockLine>& block = word == "defaults" ? scenario_.defaults : scenario_.templates;
        if (!block.empty())
            throw Mistake('"' + word + "\" are given already");
        block = takeBlock(rest);
        checkDatabaseLines(block, word == "templates");
        requireEnd(rest);
    } else if (word == "private") {
        scenario_.privateFolders.push_back(readPath(rest));
    } else if (word == "key-create") {
        scenario_.keyCreateAllowed = true;
        requireEnd(rest);
    } else {
        unsigned int number = 0;
        auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        if (error != std::errc() || end != rest.data() + rest.size() || number == 0 || number > 3600000)
            throw Mistake("the deadline is a number of milliseconds, at most 3600000");
        scenario_.deadline = std::chrono::milliseconds(number);
    }
}

std::vector<Change> Parser::takeChanges(std::string_view& rest) {
    std::vector<Change> changes;
    store::BatchReader reader;
    for (const BlockLine& line : takeBlock(rest)) {
        Change& change = changes.emplace_back();
        change.number = line.number;
        if (const auto refusal = reader.read(line.text, line.number, change.line))
            throw ScenarioError(scenario_.placed(line.number, *refusal));
    }
    return changes;
}

void Parser::parseStep(const std::string& word, std::string_view rest) {
    Step step;
    step.number = number_;
    const bool started = isRunning(scenario_);
    if (word == "file") {
        step.kind = Step::Kind::file;
        step.lines = takeBlock(rest);
        step.path = readPath(rest);
        scenario_.steps.push_back(std::move(step));
        return;
    }
    if ((word == "start") == started)
        throw Mistake(started ? "it is started already" : "nothing is started");
    if (word == "commit") {
        step.kind = Step::Kind::commit;
        step.changes = takeChanges(rest);
    } else {
        step.kind = word == "start" ? Step::Kind::start : Step::Kind::stop;
    }
    requireEnd(rest);
    scenario_.steps.push_back(std::move(step));
}

void Parser::parseExpectation(std::string_view rest) {
    if (scenario_.steps.empty())
        throw Mistake("an expectation follows the step that it is about");
    Expectation expectation =
        readExpectation(rest, [this](std::string_view& text) { return joined(takeBlock(text)); });
    using Kind = Expectation::Kind;
    if ((expectation.kind == Kind::value || expectation.kind == Kind::noValue) && !isRunning(scenario_))
        throw Mistake("nothing is started: there is no database to look at");
    expectation.number = number_;
    ended_ = endsDaemon(expectation.callback);
    scenario_.steps.back().expected.push_back(std::move(expectation));
}

void Parser::parseStatement(const std::string& word, std::string_view rest) {
    constexpr std::string_view settings[] = {"defaults", "templates", "private", "key-create", "deadline"};
    constexpr std::string_view steps[] = {"start", "commit", "stop", "file"};
    if (ended_)
        throw Mistake("the daemon has ended with the failure that is expected above");
    if (word == "expect")
        parseExpectation(rest);
    else if (std::ranges::find(settings, word) != std::ranges::end(settings))
        parseSetting(word, rest);
    else if (std::ranges::find(steps, word) != std::ranges::end(steps))
        parseStep(word, rest);
    else
        throw Mistake("unknown statement \"" + word + '"');
}

Scenario Parser::parse() {
    for (; at_ < lines_.size(); ++at_) {
        // A block is moved out of the lines, and this one may be needed for a message.
        const std::string text(store::trimmed(lines_[at_].text));
        std::string_view rest = text;
        const std::string word = takeWord(rest);
        number_ = at_ + 1;
        try {
            if (!word.empty() && !word.starts_with('#'))
                parseStatement(word, rest);
        } catch (const Mistake& mistake) {
            throw ScenarioError(scenario_.placed(number_, mistake.what()));
        }
    }
    const bool started =
        std::ranges::any_of(scenario_.steps, [](const Step& step) { return step.kind == Step::Kind::start; });
    if (!started)
        throw ScenarioError(scenario_.path + ": nothing is started");
    return std::move(scenario_);
}

}  // namespace

bool endsDaemon(const Callback& expected) {
    return expected.entry == "init" || expected.entry == "getWatchedValues" ||
           expected.entry == "getTriggerList";
}

std::string shown(const Callback& callback) {
    std::string text = callback.entry;
    if (!callback.key.empty())
        text += ' ' + callback.key;
    return text + (callback.reboot ? " reboot" : "") + (callback.fails ? " fails" : "");
}

size_t Scenario::lifeFrom(size_t first) const {
    auto begin = steps.begin() + static_cast<ptrdiff_t>(first);
    auto stop =
        std::find_if(begin, steps.end(), [](const Step& step) { return step.kind == Step::Kind::stop; });
    return static_cast<size_t>(stop - begin) + (stop == steps.end() ? 0 : 1);
}

std::string Scenario::placed(size_t line, std::string_view text) const {
    return path + ':' + std::to_string(line) + ": " + std::string(text);
}

std::string joined(const std::vector<BlockLine>& lines) {
    std::string text;
    for (const BlockLine& line : lines)
        text += line.text + '\n';
    return text;
}

Scenario readScenario(const std::string& path) { return Parser(path).parse(); }

}  // namespace pluginBench

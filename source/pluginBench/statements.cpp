#include "pluginBench/statements.h"

#include <algorithm>

#include "text/cursor.h"
#include "text/grammar.h"

namespace pluginBench {
namespace {

using Kind = Expectation::Kind;

std::string_view required(std::string_view rest, const char* what) {
    if (rest.empty())
        throw Mistake(std::string(what) + " is missing");
    return rest;
}

void requireAccepted(const char* refusal) {
    if (refusal != nullptr)
        throw Mistake(refusal);
}

void readCallback(Expectation& expectation, const std::string& word, std::string_view rest) {
    constexpr std::string_view entries[] = {
        "init", "getWatchedValues", "getTriggerList", "writeConf", "restart", "trigger", "die"};
    if (std::ranges::find(entries, word) == std::ranges::end(entries))
        throw Mistake("unknown expectation \"" + word + '"');
    expectation.kind = Kind::callback;
    Callback& callback = expectation.callback;
    callback.entry = word;
    if (word == "trigger")
        callback.key = takeWord(rest = required(rest, "the key"));
    if (std::string_view behind = rest; word == "restart" && takeWord(behind) == "reboot") {
        callback.reboot = true;
        rest = behind;
    }
    callback.fails = rest == "fails";
    if (!callback.fails)
        requireEnd(rest);
    const bool once = word != "trigger" && word != "writeConf" && word != "restart";
    if (once && !callback.fails)
        throw Mistake(word + " is always called; it can only be expected to fail");
}

// What can be observed of the surroundings.
void readObservation(Expectation& expectation, const std::string& word, std::string_view rest,
                     const TakeBlock& takeBlock) {
    store::Line line;
    if (word == "value") {
        expectation.kind = Kind::value;
        expectation.subject = required(rest, "KEY TYPE VALUE");
        requireAccepted(store::parseLine(rest, line).refusal);
        if (line.kind != store::Line::Kind::value)
            throw Mistake("KEY TYPE VALUE is expected");
    } else if (word == "file") {
        expectation.kind = Kind::file;
        expectation.content = takeBlock(rest);
        expectation.subject = readPath(rest);
        expectation.text = "file " + expectation.subject;
    } else if (word == "line") {
        expectation.kind = Kind::line;
        expectation.subject = readPath(takeWord(rest));
        expectation.content = readText(required(rest, "the line's text"));
    } else if (word == "run" || word == "log") {
        expectation.kind = word == "run" ? Kind::run : Kind::log;
        expectation.subject = required(rest, word == "run" ? "the command" : "the text");
    } else {
        const std::string what = takeWord(rest);
        if (what != "file" && what != "value")
            throw Mistake("\"no file PATH\" or \"no value KEY\" is expected");
        expectation.kind = what == "file" ? Kind::noFile : Kind::noValue;
        // The grammar knows no key alone.
        expectation.subject = what == "file" ? readPath(rest) : std::string(rest) + " Bool 0";
        if (what == "value")
            requireAccepted(store::parseLine(expectation.subject, line).refusal);
    }
}

}  // namespace

std::string takeWord(std::string_view& text) {
    std::string word(text.substr(0, text.find_first_of(store::blanks)));
    text = store::trimmed(text.substr(word.size()));
    return word;
}

void requireEnd(std::string_view rest) {
    if (!rest.empty())
        throw Mistake("unexpected \"" + std::string(rest) + '"');
}

std::string readPath(std::string_view text) {
    if (!text.starts_with('/') || (std::string(text) + '/').find("/../") != std::string::npos)
        throw Mistake("a path begins with / and has no .. in it");
    return std::string(text);
}

std::string readText(std::string_view text) {
    store::Cursor cursor(text);
    if (!cursor.at('"'))
        return std::string(text);
    std::string quoted;
    requireAccepted(cursor.takeQuoted(quoted).refusal);
    if (!cursor.atEnd())
        throw Mistake("the text goes on behind its quotes; one that begins with a quote stands in quotes");
    return quoted;
}

Expectation readExpectation(std::string_view rest, const TakeBlock& takeBlock) {
    Expectation expectation;
    expectation.text = rest;
    const std::string word = takeWord(rest);
    constexpr std::string_view observations[] = {"value", "file", "line", "run", "log", "no"};
    if (word == "nothing") {
        expectation.kind = Kind::nothing;
        requireEnd(rest);
    } else if (std::ranges::find(observations, word) != std::ranges::end(observations)) {
        readObservation(expectation, word, rest, takeBlock);
    } else {
        readCallback(expectation, word, rest);
    }
    return expectation;
}

}  // namespace pluginBench

#include <algorithm>
#include <array>
#include <iostream>
#include <nlohmann/json.hpp>

#include "ctl/output.h"
#include "ctl/words.h"
#include "text/characters.h"
#include "text/valueTypes.h"

namespace {

using Json = nlohmann::ordered_json;

std::string hexadecimal(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        auto byte = static_cast<unsigned char>(c);
        text += store::hexDigits[byte >> 4U];
        text += store::hexDigits[byte & 15U];
    }
    return text;
}

bool isUtf8(const std::string& text) {
    try {
        static_cast<void>(Json(text).dump());
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

// Only names and messages can hold what is not UTF-8 here; that becomes U+FFFD. Beside the library's own
// escapes there are some for what could steer a terminal.
std::string lineOf(const Json& json) {
    const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const size_t steering = store::steeringSize(std::string_view(text).substr(at));
        const size_t size = std::max(steering, size_t{1});
        // Within its quotes.
        shown += steering != 0 ? Json(text.substr(at, size)).dump(-1, ' ', true).substr(1, 6)
                               : text.substr(at, size);
        at += size;
    }
    return shown + '\n';
}

void print(const Json& json) { std::cout << lineOf(json); }

void addValue(Json& object, const ostrel::Value& value) {
    object["type"] = store::infoOf(value.type).name;
    if (!store::isText(value.type)) {
        object["value"] = value.number;
    } else if (isUtf8(value.text)) {
        object["value"] = value.text;
    } else {
        object["value"] = nullptr;
        object["bytes"] = hexadecimal(value.text);
    }
}

// 0 is no key and no line.
Json number(size_t number) { return number != 0 ? Json(number) : Json(); }

Json textOrNull(const std::string& text) { return !text.empty() ? Json(text) : Json(); }

const char* statusWord(ostrelStatus status) {
    constexpr std::array words = {"done", "refused", "invalid", "notRunning", "staleSocket",
                                  "busy", "gone",    "missing", "incomplete", "failed"};
    return words.at(status);
}

Json problemObject(const Problem& problem) {
    return {{"line", number(problem.line)},
            {"key", textOrNull(problem.key)},
            {"reason", textOrNull(problem.reason)}};
}

class JsonOutput final : public Output {
public:
    void values(const std::vector<ShownKey>& keys,
                const std::vector<std::optional<ostrel::Value>>& values) override {
        Json array = Json::array();
        for (size_t i = 0; i < keys.size(); ++i) {
            Json object = {{"name", keys[i].name}, {"index", keys[i].index}};
            if (values[i])
                addValue(object, *values[i]);
            else
                object.update({{"type", nullptr}, {"value", nullptr}});
            array.push_back(std::move(object));
        }
        print(array);
    }

    void count(uint32_t count) override { print(count); }
    void list(const std::vector<uint32_t>& keys) override { print(keys); }
    void newKey(uint32_t key) override { print({{"key", number(key)}}); }

    void instances(const Batch& batch) override {
        Json array = Json::array();
        for (const NewInstance& made : batch.instances)
            array.push_back({{"structure", made.structure},
                             {"label", made.label},
                             {"key", number(batch.transaction.key(*made.index))}});
        print({{"instances", std::move(array)}});
    }

    void change(const std::string& name, const std::vector<ShownKey>& keys,
                const std::vector<ostrel::Value>& values) override {
        Json array = Json::array();
        for (size_t i = 0; i < keys.size(); ++i) {
            Json object = {{"index", keys[i].index}};
            addValue(object, values[i]);
            array.push_back(std::move(object));
        }
        print({{"name", name}, {"values", std::move(array)}});
    }

    // The empty list of instances tells nothing of it, but standard error is for failures.
    void noChanges() override {}

    // The first problem stands in the object itself; of several, all follow.
    std::string text(const Failure& failure) const override {
        const std::vector<Problem>& problems = failure.problems();
        const std::string saying = failure.what();
        Json error = {{"status", statusWord(failure.status())},
                      {"text", saying.empty() ? ostrelStatusText(failure.status()) : saying},
                      {"file", textOrNull(failure.file())}};
        error.update(problemObject(problems.empty() ? Problem{} : problems.front()));
        if (problems.size() > 1) {
            for (const Problem& problem : problems)
                error["problems"].push_back(problemObject(problem));
        }
        return lineOf({{"error", std::move(error)}});
    }
};

}  // namespace

std::unique_ptr<Output> makeJson() { return std::make_unique<JsonOutput>(); }

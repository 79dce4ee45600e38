#include "ctl/commands.h"
#include "ctl/knownNames.h"
#include "ctl/lines.h"
#include "ctl/words.h"

namespace {

// A name that has elements has no value of its own; which of them, has to be said.
std::string elementsHint(ostrel::Session& session, const ostrel::Key& key) {
    if (key.index != 0)
        return "";
    const ostrel::Session::List list = session.list(key.name, 0);
    if (list.keys.empty() || !session.readMany({{key.name, list.keys.front()}}).front())
        return "";
    const std::string name = keyText(key.name, 0);
    return "a vector of " + std::to_string(session.count(key.name, 0)) + ", not a value: get '" +
           keyText(key.name, list.keys.front()) + "' prints an element, list " + name + " their indices";
}

}  // namespace

std::string whyMissing(ostrel::Session& session, const ostrel::Key& key) {
    for (const std::string& hint : {indexHint(key), elementsHint(session, key)}) {
        if (!hint.empty())
            return hint;
    }
    return "no such key, or its value is too long to be read";
}

void getValues(Context& context, std::vector<ShownKey> keys) {
    std::vector<std::optional<ostrel::Value>> values = context.session.readMany({keys.begin(), keys.end()});
    std::vector<Problem> missing;
    for (size_t i = 0; i < keys.size(); ++i) {
        if (!values[i])
            missing.push_back({.key = keys[i].text(), .reason = whyMissing(context.session, keys[i])});
    }
    findStructures(context.session, keys);
    context.output->values(keys, values);
    if (!missing.empty())
        throw Failure(OSTREL_MISSING, "", "", std::move(missing));
}

void countInstances(Context& context, const std::string& name, uint32_t owner) {
    const uint32_t count = context.session.count(name, owner);
    context.output->count(count);
    if (count == 0)
        requireKnown(name);
}

void listInstances(Context& context, const std::string& name, uint32_t owner) {
    const ostrel::Session::List list = context.session.list(name, owner);
    const std::string text = ostrelSessionError(context.session.get());
    context.output->list(list.keys);
    if (list.keys.empty())
        requireKnown(name);
    if (!list.complete)
        throw Failure(OSTREL_INCOMPLETE, keyText(name, 0) + ": " + text);
}

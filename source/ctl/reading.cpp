#include "ctl/commands.h"
#include "ctl/knownNames.h"
#include "ctl/lines.h"

void getValues(Context& context, const std::vector<ostrel::Key>& keys) {
    std::vector<std::optional<ostrel::Value>> values = context.session.readMany(keys);
    context.output->values(keys, values);
    std::vector<Problem> missing;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (!values[i])
            missing.push_back({.key = keyText(keys[i].name, keys[i].index),
                               .reason = "no such key, or its value is too long to be read"});
    }
    if (!missing.empty())
        throw Failure(OSTREL_MISSING, "", "", std::move(missing));
}

void countInstances(Context& context, const std::string& name, std::uint32_t owner) {
    const std::uint32_t count = context.session.count(name, owner);
    context.output->count(count);
    if (count == 0)
        requireKnown(name);
}

void listInstances(Context& context, const std::string& name, std::uint32_t owner) {
    ostrel::Session::List list = context.session.list(name, owner);
    std::string text = ostrelSessionError(context.session.get());
    context.output->list(list.keys);
    if (list.keys.empty())
        requireKnown(name);
    if (!list.complete)
        throw Failure(OSTREL_INCOMPLETE, keyText(name, 0) + ": " + text);
}

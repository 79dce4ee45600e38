#include "ctl/batch.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "ctl/lines.h"
#include "ctl/words.h"
#include "text/batch.h"
#include "text/characters.h"
#include "text/cursor.h"
#include "text/grammar.h"

namespace {

class Stager {
public:
    explicit Stager(Batch& batch) : batch_(batch) {}

    void take(std::string_view text, size_t number);

private:
    // As people read it; may be empty. What it tells of a member's structure is kept.
    std::string noteKey(const store::BatchLine& line);
    void stage(const store::BatchLine& line);
    void stageInstance(const store::BatchLine& line);
    // Of the line's label; null: none was staged.
    const NewInstance* instanceOf(const store::BatchLine& line) const;

    Batch& batch_;
    store::BatchReader reader_;
    std::unordered_map<std::string, size_t> numbers_;  // of the instances, by label
};

void Stager::take(std::string_view text, size_t number) {
    store::BatchLine line;
    const std::optional<std::string> refusal = reader_.read(text, number, line);
    const std::string key = noteKey(line);
    try {
        batch_.transaction.setLine(number);
        if (refusal)
            failUsage(*refusal);
        stage(line);
    } catch (const std::runtime_error& error) {  // Failure or ostrel::Error
        batch_.problems.push_back({number, key, error.what()});
    }
}

std::string Stager::noteKey(const store::BatchLine& line) {
    if (line.line.name.empty())
        return {};
    ShownKey key{{line.line.key().wholeName(), line.line.index},
                 line.line.member.empty() ? 0 : line.line.name.size()};
    // The label tells the structure when the key does not.
    if (const NewInstance* const instance = instanceOf(line);
        instance != nullptr && key.name.starts_with(instance->structure + '.'))
        key.structure = instance->structure.size();
    if (key.structure != 0)
        batch_.structures[key.name] = key.structure;
    return line.label.empty() ? key.text() : labelledKey(key.name, key.structure, line.label);
}

void Stager::stage(const store::BatchLine& line) {
    using Kind = store::Line::Kind;
    const std::string name = line.line.key().wholeName();
    if (line.line.kind == Kind::instance)
        return stageInstance(line);
    if (line.owner)
        return batch_.transaction.removeOwned(name, *line.owner);
    std::optional<ostrelIndex> index = line.line.index;
    if (!line.label.empty()) {
        const NewInstance* const instance = instanceOf(line);
        index = instance != nullptr ? instance->index : std::nullopt;
    }
    if (!index)
        return;
    if (line.line.kind == Kind::value)
        batch_.transaction.set(name, *index, fromStore(line.line.value));
    else if (line.line.kind == Kind::erased && *index == 0)
        batch_.transaction.erase(name);
    else if (line.line.kind != Kind::blank)
        batch_.transaction.remove(name, *index);
}

void Stager::stageInstance(const store::BatchLine& line) {
    const store::Instance& instance = line.line.instance;
    numbers_.emplace(line.label, batch_.instances.size());
    batch_.instances.push_back({line.label, line.line.name, instance.templateName, instance.owner});
    batch_.instances.back().index =
        batch_.transaction.newInstance(instance.templateName, line.line.name, instance.owner);
}

const NewInstance* Stager::instanceOf(const store::BatchLine& line) const {
    const auto found = numbers_.find(line.label);
    return found == numbers_.end() ? nullptr : &batch_.instances[found->second];
}

}  // namespace

Batch parseBatch(std::string_view text) {
    Batch batch;
    Stager stager(batch);
    text.remove_prefix(store::byteOrderMarkSize(text));
    for (size_t number = 1; !text.empty(); ++number) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        stager.take(line, number);
    }
    return batch;
}

#include "ctl/batch.h"

#include <algorithm>
#include <unordered_map>

#include "ctl/labels.h"
#include "ctl/lines.h"
#include "ctl/words.h"
#include "text/characters.h"
#include "text/cursor.h"
#include "text/grammar.h"

namespace {

std::string nameOf(const store::Line& line) {
    return line.member.empty() ? line.name : line.name + '.' + line.member;
}

class Reader {
public:
    explicit Reader(Batch& batch) : batch_(batch) {}

    void read(std::string_view text, std::size_t number);

private:
    // STRUCT removed OWNER; false when the line is of another form. The files have no such line, because in
    // them each instance stands for itself.
    bool parseOwned(std::string_view text);
    void parse(std::string_view text);
    void noteKey(const store::Line& line);
    void stage(const store::Line& line);
    void stageInstance(const store::Line& line);
    // Nothing: there is none, because the line that makes the label's instance is bad.
    std::optional<ostrelIndex> indexOf(const store::Line& line) const;
    // The instance of the line's label; null: none yet.
    const NewInstance* made() const;
    void make(NewInstance instance);

    Batch& batch_;
    std::unordered_map<std::string, std::size_t> numbers_;  // of the instances, by label
    std::size_t number_ = 0;
    // Of the line; may be empty.
    std::string label_;
    std::string key_;
};

void Reader::read(std::string_view text, std::size_t number) {
    number_ = number;
    key_.clear();
    label_.clear();
    try {
        batch_.transaction.setLine(number);
        parse(text);
    } catch (const std::runtime_error& error) {  // Failure or ostrel::Error
        batch_.problems.push_back({number, key_, error.what()});
    }
}

bool Reader::parseOwned(std::string_view text) {
    store::Cursor cursor(text);
    std::string structure;
    cursor.skipBlanks();
    if (!cursor.takeName(structure).ok() || !cursor.skipBlanks() || cursor.takeWord() != "removed")
        return false;
    key_ = keyText(structure, 0);
    if (!cursor.skipBlanks() || cursor.atEnd())
        failUsage("say whose: STRUCT removed OWNER; or which: STRUCT[PKEY] removed");
    std::uint32_t owner = 0;
    if (cursor.at('"')) {
        std::string tag;
        require(cursor.takeQuoted(tag));
        owner = tagOwner(tag);
    } else {
        require(cursor.takeNumber(UINT32_MAX, owner));
    }
    cursor.skipBlanks();
    if (!cursor.atEnd())
        failUsage("unexpected text behind the owner");
    batch_.transaction.removeOwned(structure, owner);
    return true;
}

void Reader::parse(std::string_view text) {
    if (parseOwned(text))
        return;
    LabelledLine labelled = takeLabel(text);
    label_ = std::move(labelled.label);
    store::Line line;
    store::Result result = store::parseLine(labelled.text, line);
    // Lines that use the label are not to be blamed for this one.
    if (!result.ok() && line.kind == store::Line::Kind::instance && !label_.empty() && made() == nullptr)
        make({label_, number_});
    require(result);
    if (!line.name.empty())
        noteKey(line);
    stage(line);
}

void Reader::noteKey(const store::Line& line) {
    ShownKey key{{nameOf(line), line.index}, line.member.empty() ? 0 : line.name.size()};
    // The label tells the structure when the key does not.
    if (const NewInstance* instance = label_.empty() ? nullptr : made();
        instance != nullptr && key.name.starts_with(instance->structure + '.'))
        key.structure = instance->structure.size();
    if (key.structure != 0)
        batch_.structures[key.name] = key.structure;
    key_ = label_.empty() ? key.text() : labelledKey(key.name, key.structure, label_);
}

void Reader::stage(const store::Line& line) {
    using Kind = store::Line::Kind;
    if (line.kind == Kind::instance)
        return stageInstance(line);
    std::optional<ostrelIndex> index = indexOf(line);
    if (!index)
        return;
    switch (line.kind) {
        case Kind::value:
            return batch_.transaction.set(nameOf(line), *index, fromStore(line.value));
        case Kind::erased:
            return *index == 0 ? batch_.transaction.erase(line.name)
                               : batch_.transaction.remove(line.name, *index);
        case Kind::removed:
            return batch_.transaction.remove(line.name, *index);
        case Kind::lastKey:
            failUsage("the daemon counts primary keys itself");
        case Kind::heading:
            failUsage("templates belong to the firmware; a batch cannot change them");
        case Kind::closing:
            failUsage("a batch is one transaction and has no closing line");
        default:
            return;
    }
}

void Reader::stageInstance(const store::Line& line) {
    if (label_.empty())
        failUsage("the daemon chooses the primary key: write " + keyText(line.name, 0) +
                  "[$LABEL] here and in the lines of its members");
    if (const NewInstance* earlier = made())
        failUsage("$" + label_ + " is made in line " + std::to_string(earlier->line) + " already");
    make({label_, number_, line.name, line.instance.templateName, line.instance.owner, std::nullopt});
    batch_.instances.back().index =
        batch_.transaction.newInstance(line.instance.templateName, line.name, line.instance.owner);
}

std::optional<ostrelIndex> Reader::indexOf(const store::Line& line) const {
    if (label_.empty())
        return line.index;
    const NewInstance* instance = made();
    if (instance == nullptr)
        failUsage("$" + label_ + " is not made before this line");
    return instance->index;
}

const NewInstance* Reader::made() const {
    auto found = numbers_.find(label_);
    return found == numbers_.end() ? nullptr : &batch_.instances[found->second];
}

void Reader::make(NewInstance instance) {
    numbers_.emplace(instance.label, batch_.instances.size());
    batch_.instances.push_back(std::move(instance));
}

}  // namespace

Batch parseBatch(std::string_view text) {
    Batch batch;
    Reader reader(batch);
    text.remove_prefix(store::byteOrderMarkSize(text));
    for (std::size_t number = 1; !text.empty(); ++number) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        reader.read(line, number);
    }
    return batch;
}

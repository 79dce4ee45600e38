#include "pluginBench/changes.h"

#include <optional>

#include "common/messageCodes.h"
#include "common/ostrelUtils.h"
#include "server/changeMessages.h"
#include "text/cursor.h"
#include "text/grammar.h"

namespace pluginBench {
namespace {

using LineKind = store::Line::Kind;

constexpr char logModule[] = "ostrelPluginBench";

// A line with the index 1 in place of its label.
struct Labelled {
    std::string text;
    std::string label{};
};

// STRUCT[$LABEL] stands in the key, in front of any text.
Labelled takeLabel(std::string_view line) {
    std::size_t begin = line.substr(0, line.find_first_of("\"#")).find("[$");
    std::size_t end = begin == std::string_view::npos ? begin : line.find(']', begin);
    if (end == std::string_view::npos)
        return {std::string(line)};
    return {std::string(line).replace(begin + 1, end - begin - 1, "1"),
            std::string(line.substr(begin + 2, end - begin - 2))};
}

struct Owned {
    std::string structure;
    unsigned int owner = 0;
};

// STRUCT removed OWNER, which the database files do not have: in them each instance stands for itself.
std::optional<Owned> parseOwned(std::string_view text) {
    store::Cursor cursor(text);
    Owned owned;
    cursor.skipBlanks();
    if (!cursor.takeName(owned.structure).ok() || !cursor.skipBlanks() || cursor.takeWord() != "removed" ||
        !cursor.skipBlanks() || cursor.atEnd())
        return std::nullopt;
    std::string tag;
    if (!(cursor.at('"') ? cursor.takeQuoted(tag) : cursor.takeNumber(UINT32_MAX, owned.owner)).ok())
        return std::nullopt;
    if (!tag.empty())
        owned.owner = ostrelStringToOwner(tag.c_str());
    cursor.skipBlanks();
    return cursor.atEnd() ? std::optional(owned) : std::nullopt;
}

// As it comes out of a message.
void fill(OstrelValue& record, const store::Line& line) {
    record.setName(line.key().wholeName().c_str());
    std::string bytes = line.value.bytes;
    if (store::isText(line.value.type))
        bytes += '\0';
    record.setValue(static_cast<unsigned int>(bytes.size()), reinterpret_cast<unsigned char*>(bytes.data()));
    record.setType(line.value.type);
}

}  // namespace

std::string problemOf(std::string_view text) {
    if (parseOwned(text))
        return {};
    Labelled labelled = takeLabel(text);
    store::Line line;
    if (store::Result result = store::parseLine(labelled.text, line); !result.ok())
        return result.refusal;
    switch (line.kind) {
        case LineKind::instance:
            return labelled.label.empty() ? "the database chooses the primary key: write " + line.name +
                                                "[$LABEL] here and in the lines of its members"
                                          : "";
        case LineKind::blank:
        case LineKind::value:
        case LineKind::erased:
        case LineKind::removed:
            return {};
        default:
            return "no change: KEY TYPE VALUE, KEY erased, STRUCT[$LABEL] instance TEMPLATE OWNER, "
                   "STRUCT[PKEY] removed or STRUCT removed OWNER is expected";
    }
}

bool Changes::apply(std::string_view text) {
    OstrelValue record;
    if (std::optional<Owned> owned = parseOwned(text)) {
        record.setName(owned->structure.c_str());
        record.owner = owned->owner;
        return applyChanges(messageCode::deinstanciateOwner, handle_, {&record, 1});
    }
    Labelled labelled = takeLabel(text);
    store::Line line;
    if (!store::parseLine(labelled.text, line).ok() || line.kind == LineKind::blank)
        return true;
    fill(record, line);
    if (line.kind == LineKind::instance) {
        record.setTpltName(line.instance.templateName.c_str());
        record.owner = line.instance.owner;
        if (!applyChanges(messageCode::instanciate, handle_, {&record, 1}))
            return false;
        instances_[labelled.label] = record.pKey;
        return true;
    }
    record.pKey = line.index;
    if (!labelled.label.empty()) {
        auto instance = instances_.find(labelled.label);
        if (instance == instances_.end()) {
            OSTREL_LOG(logLevel::error, "$%s is not made before this line", labelled.label.c_str());
            return false;
        }
        record.pKey = instance->second;
    }
    if (line.kind == LineKind::value)
        return applyChanges(messageCode::notify, handle_, {&record, 1});
    const bool plain = line.kind == LineKind::erased && record.pKey == 0;
    return applyChanges(plain ? messageCode::erase : messageCode::deinstanciate, handle_, {&record, 1});
}

}  // namespace pluginBench

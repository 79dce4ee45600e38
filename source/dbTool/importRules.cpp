#include "dbTool/importRules.h"

namespace {

using Kind = store::Line::Kind;

constexpr size_t readableSize = 4096;  // what the daemon reads for a client

store::Result checkMember(const store::Line& line, const store::Model& model) {
    const bool hasMember = model.cell(line.key().wholeName(), line.index) != nullptr;
    return model.instance(line.name, line.index) == nullptr || hasMember
               ? store::Result{}
               : store::Result{"the instance has no such member"};
}

store::Result checkElement(const store::Line& line, const store::Model& model) {
    const store::Elements* elements = model.elements(line.name);
    if (line.index == 0 ||
        (elements != nullptr && (elements->isKnownVector() || elements->structure != nullptr)))
        return {};
    const bool isUnderStructure = store::anySplit(line.name, [&](std::string_view prefix, std::string_view) {
        return model.structure(prefix) != nullptr;
    });
    return isUnderStructure ? store::Result{"there is no such instance, or it has no such member"}
                            : store::Result{};
}

store::Result checkType(const store::Line& line, const store::Model& model) {
    const store::Entry* entry = model.entry(line.name);
    if (entry == nullptr)
        return {};
    const bool hasVector = entry->elements && entry->elements->isKnownVector();
    const bool differs = (entry->plain.present && entry->plain.type != line.value.type) ||
                         (hasVector && entry->elements->type != line.value.type);
    return differs ? store::Result{"the key has another type"} : store::Result{};
}

}  // namespace

store::Result checkImported(const store::Line& line, const store::Model& model) {
    switch (line.kind) {
        case Kind::heading:
            return {"such a line is no change"};
        case Kind::closing:
            return {"transactions are not imported; export the file's changes"};
        case Kind::instance:
            return model.findTemplate(line.instance.templateName) != nullptr
                       ? store::Result{}
                       : store::Result{"unknown template"};
        case Kind::value: {
            if (!line.member.empty())
                return checkMember(line, model);
            const store::Result result = checkElement(line, model);
            return result.ok() ? checkType(line, model) : result;
        }
        default:
            return {};
    }
}

const char* warningOf(const store::Line& line, const store::Model& model) {
    if (line.kind == Kind::value && sizeOf(line.value) > readableSize)
        return "the value has more than 4096 bytes: the daemon's clients cannot read it";
    if (line.kind == Kind::erased && model.cell(line.name, line.index) == nullptr)
        return "there is nothing to erase; the line is kept for a default to come";
    if (line.kind == Kind::removed) {
        const store::Structure* structure = model.structure(line.name);
        if (structure == nullptr || !structure->instances.contains(line.index))
            return "there is no such instance; the line is kept for a default to come";
    }
    return nullptr;
}

#include "db/loader.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "db/grammar.h"
#include "db/log.h"

namespace store {
namespace {

struct NumberedLine {
    size_t number = 0;
    Line line;
};

void report(const SourceText& source, size_t number, const Result& result) {
    if (!result.ok())
        STORE_ERROR("%s:%zu: %s; the line is skipped", source.path.c_str(), number, result.refusal);
}

// Calls use(line number, line, result of parsing it) for every line with content, and reports what it
// returns.
template <class Use>
void forEachLine(const SourceText& source, Use use) {
    std::string_view rest = source.text;
    if (rest.starts_with("\xEF\xBB\xBF"))
        rest.remove_prefix(3);
    Line line;
    for (size_t number = 1; !rest.empty(); ++number) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const Result parsed = parseLine(rest.substr(0, end), line);
        if (!parsed.ok() || line.kind != Line::Kind::blank)
            report(source, number, use(number, line, parsed));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

Result misplaced() { return {"such a line does not belong in this file"}; }

Result applyChange(const SourceText& source, size_t number, const Line& line, Model& model) {
    switch (line.kind) {
        case Line::Kind::value:
            return model.setValue(line.key(), line.value);
        case Line::Kind::erased:
            return model.erase(line.key());
        case Line::Kind::instance:
            if (model.findTemplate(line.instance.templateName) == nullptr) {
                STORE_ERROR("%s:%zu: the template \"%s\" is gone; its instance stays", source.path.c_str(),
                            number, line.instance.templateName.c_str());
            }
            return model.addInstance(line.key(), line.instance);
        case Line::Kind::removed:
            return model.removeInstance(line.key());
        case Line::Kind::lastKey:
            return model.setLastKey(line.name, line.number);
        case Line::Kind::closing:
            return {};
        default:
            return misplaced();
    }
}

}  // namespace

void loadTemplates(const SourceText& source, Model& model) {
    std::string open;
    forEachLine(source, [&](size_t, Line& line, const Result& parsed) -> Result {
        if (line.kind == Line::Kind::heading) {
            // The members below a bad heading must not go to the template above it.
            open = parsed.ok() ? line.name : "";
            if (parsed.ok())
                model.addTemplate(open);
            return parsed;
        }
        if (!parsed.ok())
            return parsed;
        return line.kind == Line::Kind::value && line.index == 0
                   ? model.addTemplateMember(open, line.name, std::move(line.value))
                   : misplaced();
    });
}

void loadDefaults(const SourceText& source, Model& model) {
    model.reserve(static_cast<size_t>(std::ranges::count(source.text, '\n')) + 1);
    // Whether an indexed key is a member's or a vector's shows when all instances are known.
    std::vector<NumberedLine> indexed;
    forEachLine(source, [&](size_t number, Line& line, const Result& parsed) -> Result {
        if (!parsed.ok())
            return parsed;
        if (line.kind == Line::Kind::instance)
            return model.addDefaultInstance(line.key(), line.instance);
        if (line.kind != Line::Kind::value)
            return misplaced();
        if (line.index != 0) {
            indexed.push_back({number, std::move(line)});
            return {};
        }
        return model.addDefault(line.key(), std::move(line.value));
    });
    for (NumberedLine& entry : indexed)
        report(source, entry.number, model.addDefault(entry.line.key(), std::move(entry.line.value)));
}

void loadChanges(const SourceText& source, Model& model) {
    forEachLine(source, [&](size_t number, const Line& line, const Result& parsed) {
        return parsed.ok() ? applyChange(source, number, line, model) : parsed;
    });
}

}  // namespace store

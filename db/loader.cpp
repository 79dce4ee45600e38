#include "db/loader.h"

#include <utility>
#include <vector>

namespace store {
namespace {

struct PlacedLine {
    LinePlace place;
    Line line;
};

Result misplaced() { return {"such a line does not belong in this file"}; }

// Reports what use() refuses.
template <class Use>
void takeLines(const SourceText& source, LoadReport& report, Use use) {
    forEachLine(source, [&](const LinePlace& place, Line& line, const Result& parsed) {
        if (const Result result = use(place, line, parsed); !result.ok())
            report.fault(place, LineFault::bad, result.refusal);
    });
}

Result change(const Line& line, Model& model) {
    switch (line.kind) {
        case Line::Kind::value:
            return model.setValue(line.key(), line.value);
        case Line::Kind::erased:
            return model.erase(line.key(), line.origin);
        case Line::Kind::instance:
            return model.addInstance(line.key(), line.instance);
        case Line::Kind::removed:
            return model.removeInstance(line.key(), line.origin);
        case Line::Kind::lastKey:
            return model.setLastKey(line.name, line.number);
        default:
            return {};
    }
}

}  // namespace

void loadTemplates(const SourceText& source, Model& model, LoadReport& report) {
    std::string open;
    takeLines(source, report, [&](const LinePlace&, Line& line, const Result& parsed) -> Result {
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

void loadDefaults(const SourceText& source, Model& model, LoadReport& report) {
    model.reserve(static_cast<size_t>(std::ranges::count(source.text, '\n')) + 1);
    // Whether an indexed key is a member's or a vector's shows when all instances are known.
    std::vector<PlacedLine> indexed;
    takeLines(source, report, [&](const LinePlace& place, Line& line, const Result& parsed) -> Result {
        if (!parsed.ok())
            return parsed;
        if (line.kind == Line::Kind::instance)
            return model.addDefaultInstance(line.key(), line.instance);
        if (line.kind != Line::Kind::value)
            return misplaced();
        if (line.index != 0) {
            indexed.push_back({place, std::move(line)});
            return {};
        }
        return model.addDefault(line.key(), std::move(line.value));
    });
    for (PlacedLine& entry : indexed) {
        const Result result = model.addDefault(entry.line.key(), std::move(entry.line.value));
        if (!result.ok())
            report.fault(entry.place, LineFault::bad, result.refusal);
    }
}

void loadChanges(const SourceText& source, Model& model, LoadReport& report) {
    const Model::Replay replay(model);
    takeLines(source, report, [&](const LinePlace& place, const Line& line, const Result& parsed) {
        if (parsed.ok() && line.kind == Line::Kind::heading)
            return misplaced();
        if (parsed.ok())
            applyChange(place, line, model, report);
        return parsed;
    });
}

void applyChange(const LinePlace& place, const Line& line, Model& model, LoadReport& report) {
    const std::string& templateName = line.instance.templateName;
    if (line.kind == Line::Kind::instance && model.findTemplate(templateName) == nullptr) {
        const std::string reason = "the template \"" + templateName + "\" is gone; its instance stays";
        report.fault(place, LineFault::templateGone, reason.c_str());
    }
    const bool hasInstance = line.member.empty() || model.instance(line.name, line.index) != nullptr;
    if (const Result result = change(line, model); !result.ok())
        report.fault(place, hasInstance ? LineFault::orphaned : LineFault::instanceGone, result.refusal);
}

}  // namespace store

// The changes as plain database lines: out of the live file, and into it.
#include <iostream>
#include <iterator>
#include <optional>

#include "dbTool/changeLines.h"
#include "dbTool/commands.h"
#include "dbTool/faults.h"
#include "dbTool/importRules.h"
#include "dbTool/writer.h"

namespace {

std::string readInput(const std::string& path) {
    if (path == "-")
        return {std::istreambuf_iterator<char>(std::cin), {}};
    std::optional<std::string> text = readFile(path);
    if (!text)
        throw Failure(path + ": there is no such file", Status::usage);
    return *std::move(text);
}

// The present changes, or only the primary keys that were given: those count on whatever is replaced.
void loadPresent(const Snapshot& snapshot, const ImportOptions& options, store::Model& model) {
    Faults ignored;
    Faults faults;
    snapshot.loadFactory(model, ignored);
    if (!options.replace) {
        snapshot.loadLive(model, faults);
        return requireConsent(faults, options.force);
    }
    store::Model present;
    snapshot.loadFactory(present, ignored);
    snapshot.loadLive(present, ignored);
    std::string counters;
    forEachChange(present, [&](store::Line::Kind kind, const store::RowKey&, const std::string& line) {
        if (kind == store::Line::Kind::lastKey)
            counters += line + '\n';
    });
    loadChanges({snapshot.paths().live, counters}, model, ignored);
}

bool isErased(const store::Line& line, const store::Model& model) {
    const store::Cell* cell = model.cell(line.name, line.index);
    return cell != nullptr && !cell->present;
}

// Returns how many lines there are.
size_t apply(const store::SourceText& source, store::Model& model, Faults& faults) {
    size_t lines = 0;
    store::forEachLine(
        source, [&](const store::LinePlace& place, const store::Line& line, store::Result result) {
            ++lines;
            if (result.ok())
                result = checkImported(line, model);
            if (!result.ok())
                return faults.fault(place, store::LineFault::bad, result.refusal);
            // Erased once more, a row without a default would be forgotten.
            if (line.kind == store::Line::Kind::erased && isErased(line, model))
                return;
            // What is there is asked before the line changes it.
            const char* warning = warningOf(line, model);
            const size_t losses = faults.losses();
            applyChange(place, line, model, faults);
            if (warning != nullptr && faults.losses() == losses)
                std::cerr << "ostrelDbTool: warning: " << Fault{place.path, place.number, warning, ""}.place()
                          << '\n';
        });
    return lines;
}

}  // namespace

void exportChanges(const store::Paths& paths, const Patterns& patterns) {
    const Databases databases((Snapshot(paths)));
    forEachChange(databases.effective,
                  [&](store::Line::Kind, const store::RowKey& key, const std::string& line) {
                      if (patterns.match(key))
                          std::cout << line << '\n';
                  });
    requireKnown(databases.effective, patterns);
}

Status importChanges(const store::Paths& paths, const ImportOptions& options) {
    const std::string text = readInput(options.file);
    std::optional<Writer> writer;
    if (!options.dryRun)
        writer.emplace(paths);
    const Snapshot snapshot(paths);
    requireSound(snapshot);
    store::Model model;
    loadPresent(snapshot, options, model);
    Faults faults;
    const size_t lines = apply({options.file == "-" ? "standard input" : options.file, text}, model, faults);
    for (const Fault& fault : faults.rows())
        std::cerr << "ostrelDbTool: " << fault.whole() << '\n';
    if (faults.losses() != 0) {
        std::cerr << "ostrelDbTool: nothing is imported\n";
        return Status::findings;
    }
    if (writer)
        writer->write(snapshot, model, snapshot.scan().lastNumber, false);
    std::cout << counted(lines, "line") << (writer ? " imported" : " can be imported")
              << "; changes over the defaults: " << model.changes() << '\n';
    return Status::done;
}

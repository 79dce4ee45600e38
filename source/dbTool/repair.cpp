// Saves what can be saved of a damaged live file, and names what cannot.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>

#include "dbTool/commands.h"
#include "dbTool/merge.h"
#include "dbTool/salvage.h"
#include "dbTool/writer.h"

namespace {

constexpr char closingWord[] = "@commit";

struct DamagedFile {
    std::string path;
    std::string text;
    store::LogScan scan;
};

std::string_view goodPart(const DamagedFile& file) {
    return std::string_view(file.text).substr(0, file.scan.goodBytes);
}

// The model is the one of the good part, with the salvage upon it.
Salvage salvageOnto(const DamagedFile& file, bool singleLines, store::Model& model) {
    const std::string_view rest = std::string_view(file.text).substr(file.scan.goodBytes);
    return salvage({file.path, rest, file.scan.badLine}, file.scan.lastNumber, singleLines, model);
}

void reportSound(const store::Paths& paths) {
    std::cout << paths.live << " is sound\n";
    const std::filesystem::path live(livePlace(paths));
    const std::string kept = live.filename().string() + ".damaged-";
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(live.parent_path(), none)) {
        if (entry.path().filename().string().starts_with(kept))
            std::cout << "kept beside it: " << entry.path().string() << '\n';
    }
}

size_t print(const Faults& faults) {
    for (const Fault& fault : faults.rows()) {
        if (fault.isLoss())
            std::cout << fault.whole() << '\n';
    }
    return faults.losses();
}

void summarize(const Salvage& saved, size_t lost) {
    std::cout << "saved from behind the damage: " << counted(saved.transactions, "transaction") << ", "
              << counted(saved.lines, "single line") << "; not saved: see the " << counted(lost, "line")
              << " above\n";
}

void reportWritten(const Snapshot& snapshot, bool isWritten) {
    std::cout << (isWritten ? snapshot.paths().live + " is written anew\n" : "nothing is written\n");
}

// Where a power cut tore it, its transaction was never committed.
void printTornTail(const DamagedFile& file) {
    const std::string_view tail = std::string_view(file.text).substr(file.scan.goodBytes);
    const char* const reason =
        file.scan.end == store::LogScan::End::torn ? "never committed" : "perhaps never committed";
    store::forEachLine(
        store::SourceText{file.path, tail, file.scan.badLine},
        [reason](const store::LinePlace& place, const store::Line&, const store::Result&) {
            std::cout << Fault{place.path, place.number, reason, std::string(place.text)}.whole() << '\n';
        });
}

Status cutLive(const Snapshot& snapshot, const DamagedFile& file, Writer* writer) {
    printTornTail(file);
    if (writer != nullptr)
        writer->cutTornTail(snapshot);
    std::cout << file.path << (writer != nullptr ? " is" : " would be")
              << " cut back to its last transaction; "
              << (file.scan.end == store::LogScan::End::doubtful
                      ? "what is cut off is kept beside, as it may have been committed\n"
                      : "nothing is lost\n");
    return Status::done;
}

Status rewriteLive(const Snapshot& snapshot, const DamagedFile& file, Writer* writer, bool singleLines) {
    store::Model model;
    Faults ignored;
    Faults faults;
    snapshot.loadFactory(model, ignored);
    snapshot.loadLive(model, faults);
    const Salvage saved = salvageOnto(file, singleLines, model);
    const size_t lost = print(faults) + print(saved.faults);
    summarize(saved, lost);
    if (writer != nullptr)
        writer->write(snapshot, model, saved.lastNumber, true);
    reportWritten(snapshot, writer != nullptr);
    return lost == 0 ? Status::done : Status::findings;
}

Status repairLive(const Snapshot& snapshot, Writer* writer, bool singleLines) {
    const DamagedFile file{snapshot.paths().live, snapshot.live(), snapshot.scan()};
    switch (file.scan.end) {
        case store::LogScan::End::doubtful:
            if (singleLines)
                return rewriteLive(snapshot, file, writer, singleLines);
            [[fallthrough]];
        case store::LogScan::End::torn:
            return cutLive(snapshot, file, writer);
        case store::LogScan::End::damaged:
            return rewriteLive(snapshot, file, writer, singleLines);
        default:
            reportSound(snapshot.paths());
            return Status::done;
    }
}

std::string changesOf(const store::Model& model) {
    store::LineWriter lines;
    model.visitChanges(lines);
    return lines.text;
}

Status mergeIntoLive(const Snapshot& snapshot, Writer* writer, const DamagedFile& file, bool singleLines) {
    requireSound(snapshot);
    store::Model base;
    store::Model theirs;
    store::Model ours;
    Faults ignored;
    Faults unfit;
    for (store::Model* model : {&base, &theirs}) {
        snapshot.loadFactory(*model, ignored);
        loadChanges({file.path, goodPart(file)}, *model, ignored);
    }
    snapshot.loadFactory(ours, ignored);
    snapshot.loadLive(ours, unfit);
    const std::string before = changesOf(ours);
    const Salvage saved = salvageOnto(file, singleLines, theirs);
    const Faults losers = merge(base, theirs, ours, file.path);
    const bool isNew = changesOf(ours) != before;
    // A live file that is not written keeps also what the defaults do not fit.
    const size_t lost = print(saved.faults) + print(losers) + (isNew ? print(unfit) : 0);
    summarize(saved, lost);
    if (!isNew)
        std::cout << "there is nothing to bring into the live file\n";
    if (isNew && writer != nullptr)
        writer->write(snapshot, ours, std::max(saved.lastNumber, snapshot.scan().lastNumber),
                      unfit.losses() != 0);
    reportWritten(snapshot, isNew && writer != nullptr);
    return lost == 0 ? Status::done : Status::findings;
}

DamagedFile readDamaged(const std::string& path) {
    std::optional<std::string> text = readFile(path);
    if (!text)
        throw Failure(path + ": there is no such file", Status::usage);
    if (!text->starts_with(closingWord) && text->find('\n' + std::string(closingWord)) == std::string::npos)
        throw Failure(path + ": no live file: it has no line that begins with " + closingWord);
    DamagedFile file{path, *std::move(text), {}};
    file.scan = store::scanLog(file.text);
    return file;
}

Status repairFromKept(const Snapshot& snapshot, Writer* writer, const DamagedFile& file, bool singleLines) {
    const bool isDoubtful = file.scan.end == store::LogScan::End::doubtful;
    if (file.scan.end == store::LogScan::End::damaged || (isDoubtful && singleLines))
        return mergeIntoLive(snapshot, writer, file, singleLines);
    if (file.scan.isCut())
        printTornTail(file);
    if (isDoubtful) {
        std::cout << "repair --lines brings what is good of this into the live file\n";
        return Status::done;
    }
    std::cout << file.path << " is sound" << (file.scan.isCut() ? " but for that" : "")
              << "; export --live shows its changes\n";
    return Status::done;
}

bool isSameFile(const std::string& left, const std::string& right) {
    std::error_code none;
    return std::filesystem::equivalent(left, right, none);
}

}  // namespace

Status repair(const store::Paths& paths, const RepairOptions& options) {
    const bool isOfLive = options.file.empty() || isSameFile(options.file, livePlace(paths));
    if (isMissing(livePlace(paths))) {
        if (!isOfLive)
            throw Failure(paths.live +
                          ": there is no such file; put a copy of the kept one there and repair that");
        std::cout << paths.live << ": there is no such file; nothing to do\n";
        return Status::done;
    }
    std::optional<Writer> lock;
    if (!options.dryRun)
        lock.emplace(paths);
    Writer* writer = lock ? &*lock : nullptr;
    const Snapshot snapshot(paths);
    return isOfLive ? repairLive(snapshot, writer, options.lines)
                    : repairFromKept(snapshot, writer, readDamaged(options.file), options.lines);
}

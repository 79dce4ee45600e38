// All that is wrong with the three files.
#include <algorithm>
#include <iostream>

#include "dbTool/commands.h"
#include "dbTool/faults.h"
#include "dbTool/snapshot.h"

namespace {

class Checker {
public:
    explicit Checker(const Snapshot& snapshot) : snapshot_(snapshot) {}

    void lines(store::Model& model) {
        Faults faults;
        snapshot_.loadFactory(model, faults);
        snapshot_.loadLive(model, faults);
        for (const Fault& fault : faults.rows())
            fault.kind == store::LineFault::bad ? finding(fault.place()) : note(fault.place());
    }

    void log() {
        const store::LogScan& scan = snapshot_.scan();
        // The daemon makes the file with its first transaction in it.
        if (const std::string& text = snapshot_.live(); !text.empty() && !hasClosingLine(text))
            return finding(snapshot_.paths().live +
                           ": this is no live file: it has no line that begins with @commit");
        if (scan.end == store::LogScan::End::torn)
            note(at(scan.badLine) + "an unfinished transaction; the next start of the daemon cuts it off");
        if (scan.end == store::LogScan::End::doubtful)
            note(at(scan.badLine) +
                 "an unfinished transaction, or the last one, damaged; the next start of the "
                 "daemon cuts it off and keeps it beside");
        if (scan.end == store::LogScan::End::damaged)
            damage(scan);
    }

    void missing() {
        for (const std::string& path : snapshot_.missingFactoryFiles())
            note(path + ": there is no such file; it counts as empty");
    }

    size_t findings() const { return findings_; }
    size_t notes() const { return notes_; }

private:
    static bool hasClosingLine(const std::string& text) {
        return text.starts_with("@commit") || text.find("\n@commit") != std::string::npos;
    }

    // Of every transaction from the first bad one on.
    void damage(const store::LogScan& scan) {
        const std::string_view rest = std::string_view(snapshot_.live()).substr(scan.goodBytes);
        uint64_t last = scan.lastNumber;
        size_t whole = 0;
        size_t next = scan.badLine;
        for (const store::LogPiece& piece : store::splitLog(rest)) {
            const std::string_view text = rest.substr(piece.begin, piece.closing - piece.begin);
            lines({snapshot_.paths().live, text, next});
            const size_t line = next + breaks(text);
            next = line + breaks(rest.substr(piece.closing, piece.end - piece.closing));
            if (!piece.fault.ok()) {
                finding(at(line) + piece.fault.refusal);
            } else {
                if (piece.number != last + 1)
                    finding(at(line) + "transaction " + std::to_string(piece.number) + " follows " +
                            std::to_string(last));
                last = piece.number;
                ++whole;
            }
        }
        note(at(scan.badLine) + "the daemon goes on with the " + counted(scan.transactions, "transaction") +
             " before this line; repair can save " + std::to_string(whole) + " behind it");
    }

    void lines(const store::SourceText& text) {
        store::forEachLine(
            text, [&](const store::LinePlace& place, const store::Line& line, const store::Result& parsed) {
                if (!parsed.ok())
                    finding(at(place.number) + parsed.refusal);
                else if (line.kind == store::Line::Kind::heading)
                    finding(at(place.number) + "such a line does not belong in this file");
            });
    }

    static size_t breaks(std::string_view text) {
        return static_cast<size_t>(std::ranges::count(text, '\n'));
    }

    std::string at(size_t line) const { return snapshot_.paths().live + ':' + std::to_string(line) + ": "; }

    void finding(const std::string& text) {
        ++findings_;
        std::cout << text << '\n';
    }
    void note(const std::string& text) {
        ++notes_;
        std::cout << "note: " << text << '\n';
    }

    const Snapshot& snapshot_;
    size_t findings_ = 0;
    size_t notes_ = 0;
};

}  // namespace

Status checkFiles(const store::Paths& paths) {
    const Snapshot snapshot(paths);
    Checker checker(snapshot);
    store::Model model;
    checker.missing();
    checker.lines(model);
    checker.log();
    std::cout << counted(checker.findings(), "finding") << ", " << counted(checker.notes(), "note") << "; "
              << counted(snapshot.scan().transactions, "good transaction") << " with "
              << counted(model.changes(), "change") << '\n';
    return checker.findings() == 0 ? Status::done : Status::findings;
}

#include "dbTool/salvage.h"

#include <algorithm>

#include "db/logFormat.h"

namespace {

class Salvager {
public:
    Salvager(uint64_t lastNumber, bool singleLines, store::Model& model)
        : singleLines_(singleLines), model_(model) {
        result_.lastNumber = lastNumber;
    }

    void take(const store::LogPiece& piece, const store::SourceText& text) {
        if (!piece.fault.ok()) {
            ++broken_;
            takeBroken(piece, text);
        } else if (piece.number <= result_.lastNumber) {
            lose(text, "an older transaction, out of its place");
        } else {
            takeWhole(piece, text);
        }
    }

    Salvage result() && { return std::move(result_); }

private:
    void takeWhole(const store::LogPiece& piece, const store::SourceText& text) {
        const uint64_t missing = piece.number - result_.lastNumber - 1;
        if (missing > broken_) {
            result_.faults.add({text.path, text.firstLine,
                                counted(missing - broken_, "transaction") + " before this line missing", "",
                                store::LineFault::bad});
        }
        loadChanges(text, model_, result_.faults);
        result_.lastNumber = piece.number;
        ++result_.transactions;
        broken_ = 0;
    }

    void takeBroken(const store::LogPiece& piece, const store::SourceText& text) {
        store::forEachLine(
            text, [&](const store::LinePlace& place, const store::Line& line, const store::Result& parsed) {
                const bool isChange = parsed.ok() && line.kind != store::Line::Kind::closing &&
                                      line.kind != store::Line::Kind::heading;
                if (!singleLines_ || !isChange) {
                    result_.faults.fault(place, store::LineFault::bad,
                                         parsed.ok() ? piece.fault.refusal : parsed.refusal);
                    return;
                }
                const size_t losses = result_.faults.losses();
                applyChange(place, line, model_, result_.faults);
                if (result_.faults.losses() == losses)
                    ++result_.lines;
            });
    }

    void lose(const store::SourceText& text, const char* reason) {
        store::forEachLine(text,
                           [&](const store::LinePlace& place, const store::Line&, const store::Result&) {
                               result_.faults.fault(place, store::LineFault::bad, reason);
                           });
    }

    const bool singleLines_;
    store::Model& model_;
    Salvage result_;
    uint64_t broken_ = 0;  // pieces since the last whole transaction
};

}  // namespace

Salvage salvage(const store::SourceText& rest, uint64_t lastNumber, bool singleLines, store::Model& model) {
    Salvager salvager(lastNumber, singleLines, model);
    size_t line = rest.firstLine;
    for (const store::LogPiece& piece : store::splitLog(rest.text)) {
        // A broken piece keeps its closing line, which is a part of what is lost.
        const size_t end = piece.fault.ok() ? piece.closing : piece.end;
        salvager.take(piece, {rest.path, rest.text.substr(piece.begin, end - piece.begin), line});
        line += static_cast<size_t>(
            std::ranges::count(rest.text.substr(piece.begin, piece.end - piece.begin), '\n'));
    }
    return std::move(salvager).result();
}

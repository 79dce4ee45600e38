#include "dbTool/writer.h"

#include <cerrno>
#include <cstring>
#include <iostream>

#include "dbTool/toolFailure.h"
#include "text/grammar.h"

namespace {

// What the log is about to change is what the snapshot holds.
void takeOver(store::LiveLog& log, const Snapshot& snapshot, const store::LogScan& scan) {
    if (log.read() != snapshot.live())
        throw Failure(log.path() + " was changed by someone else meanwhile");
    log.recover(scan, snapshot.live());
    log.settle();
}

}  // namespace

Writer::Writer(const store::Paths& paths) : lock_(store::systemFiles, paths.live) {
    if (lock_.take())
        return;
    if (errno == EWOULDBLOCK)
        throw Failure("a daemon has the database; stop it first, or make the change through it",
                      Status::inUse);
    throw Failure("cannot lock " + lock_.path() + ": " + std::strerror(errno));
}

void Writer::cutTornTail(const Snapshot& snapshot) {
    const std::string& path = snapshot.paths().live;
    store::LiveLog log(store::systemFiles, path, snapshot.paths().root);
    takeOver(log, snapshot, snapshot.scan());
    if (!log.isTrusted())
        throw Failure(path + " could not be cut back");
}

void Writer::write(const Snapshot& snapshot, const store::Model& model, uint64_t lastNumber, bool keep) {
    const std::string& path = snapshot.paths().live;
    store::LiveLog log(store::systemFiles, path, snapshot.paths().root);
    // The whole file is replaced: there is no tail to cut, and what is to be kept says the caller.
    store::LogScan scan = snapshot.scan();
    scan.end = store::LogScan::End::whole;
    scan.lastNumber = lastNumber;
    takeOver(log, snapshot, scan);
    if (keep)
        log.keepAtRewrite();
    store::LineWriter lines;
    model.visitChanges(lines);
    if (!log.rewrite(std::move(lines.text), lines.lines))
        throw Failure(path + " could not be written anew");
}

void requireSound(const Snapshot& snapshot) {
    const store::LogScan& scan = snapshot.scan();
    const std::string place = snapshot.paths().live + ':' + std::to_string(scan.badLine) + ": ";
    if (scan.end == store::LogScan::End::damaged)
        throw Failure(place + "damaged; repair it first");
    if (scan.isCut())
        std::cerr << "ostrelDbTool: " << place << "an unfinished transaction is left out\n";
}

#include "dbTool/writer.h"

#include <cerrno>
#include <cstring>
#include <iostream>

#include "db/grammar.h"
#include "db/lock.h"
#include "dbTool/failure.h"

namespace {

void requireUnchanged(store::LiveLog& log, const Snapshot& snapshot) {
    if (log.read() != snapshot.live())
        throw Failure(log.path() + " was changed by someone else meanwhile");
}

}  // namespace

Writer::Writer(const std::string& livePath) : lock_(store::systemFiles) {
    const std::string directory = store::directoryOf(livePath);
    if (!makeDirectories(store::systemFiles, directory))
        throw Failure("cannot make " + directory + ": " + std::strerror(errno));
    if (tryLock(lock_, livePath))
        return;
    if (lock_.isOpen() && errno == EWOULDBLOCK)
        throw Failure("a daemon has the database; stop it first, or make the change through it",
                      Status::inUse);
    // Unlike the daemon, the tool can do without a write.
    throw Failure("cannot lock " + livePath + ".lock: " + std::strerror(errno));
}

void Writer::cutTornTail(const Snapshot& snapshot) {
    const std::string& path = snapshot.paths().live;
    store::LiveLog log(store::systemFiles, path);
    requireUnchanged(log, snapshot);
    log.recover(snapshot.scan());
    if (!log.isTrusted())
        throw Failure(path + " could not be cut back");
}

void Writer::write(const Snapshot& snapshot, const store::Model& model, uint64_t lastNumber, bool keep) {
    const std::string& path = snapshot.paths().live;
    store::LiveLog log(store::systemFiles, path);
    requireUnchanged(log, snapshot);
    // The whole file is replaced: there is no tail to cut, and what is to be kept says the caller.
    store::LogScan scan = snapshot.scan();
    scan.end = store::LogScan::End::whole;
    scan.lastNumber = lastNumber;
    log.recover(scan);
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
    if (scan.end == store::LogScan::End::torn)
        std::cerr << "ostrelDbTool: " << place << "an unfinished transaction is left out\n";
}

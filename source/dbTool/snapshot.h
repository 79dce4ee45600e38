// The three files as they stand at one moment. Reading changes nothing, and may be done while the daemon
// runs: a transaction that is being written is seen in part, so a live file that is not whole is read again;
// a rewrite replaces the file in one step.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "db/loader.h"
#include "db/logFormat.h"
#include "db/model.h"
#include "db/paths.h"

// Nothing when there is no such file. Throws Failure when it cannot be read.
std::optional<std::string> readFile(const std::string& path);

// False also when nobody can tell.
bool isMissing(const std::string& path);

// Where the live file is, links followed. Throws Failure when they go round in a circle.
std::string livePlace(const store::Paths& paths);

class Snapshot {
public:
    // A missing file counts as empty. Throws Failure when one cannot be read.
    explicit Snapshot(store::Paths paths);

    void loadFactory(store::Model& model, store::LoadReport& report) const;
    // The good transactions at the front of the live file.
    void loadLive(store::Model& model, store::LoadReport& report) const;

    const store::Paths& paths() const { return paths_; }
    const std::string& live() const { return live_; }
    const store::LogScan& scan() const { return scan_; }
    const std::vector<std::string>& missingFactoryFiles() const { return missing_; }

private:
    void readWholeLive();

    store::Paths paths_;
    std::vector<std::string> missing_;
    std::string templates_;
    std::string defaults_;
    std::string live_;
    store::LogScan scan_;
};

// The database without and with the live file. What the store would leave out is told on standard error.
struct Databases {
    explicit Databases(const Snapshot& snapshot);

    store::Model factory;
    store::Model effective;
};

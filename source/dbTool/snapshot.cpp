#include "dbTool/snapshot.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>

#include "db/files.h"
#include "db/links.h"
#include "dbTool/faults.h"
#include "dbTool/toolFailure.h"

std::optional<std::string> readFile(const std::string& path) {
    std::string text;
    store::File file(store::systemFiles);
    const bool isOpen = file.open(path, O_RDONLY);
    if (isOpen && file.readAll(text))
        return text;
    if (!isOpen && errno == ENOENT)
        return std::nullopt;
    throw Failure("cannot read " + path + ": " + std::strerror(errno));
}

bool isMissing(const std::string& path) {
    std::error_code error;
    return !std::filesystem::exists(path, error) && !error;
}

std::string livePlace(const store::Paths& paths) {
    std::optional<std::string> place = store::followLinks(store::systemFiles, paths.live, paths.root);
    if (!place)
        throw Failure(paths.live + ": " + std::strerror(errno));
    return *std::move(place);
}

namespace {

// To open what is no file may block.
std::optional<std::string> readLive(const store::Paths& paths) {
    const std::string place = livePlace(paths);
    struct stat status {};
    if (stat(place.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw Failure("cannot read " + paths.live + ": it is " + store::kindOf(status.st_mode));
    return readFile(place);
}

}  // namespace

Snapshot::Snapshot(store::Paths paths) : paths_(std::move(paths)) {
    const auto read = [this](const std::string& path) {
        const std::optional<std::string> text = readFile(path);
        if (!text)
            missing_.push_back(path);
        return text.value_or("");
    };
    templates_ = read(paths_.templates);
    defaults_ = read(paths_.defaults);
    readWholeLive();
}

void Snapshot::readWholeLive() {
    constexpr int mostReads = 6;
    constexpr std::chrono::milliseconds pause{20};
    for (int reads = 1;; ++reads) {
        live_ = readLive(paths_).value_or("");
        scan_ = store::scanLog(live_);
        if (scan_.end == store::LogScan::End::whole || reads == mostReads)
            return;
        std::this_thread::sleep_for(pause);
    }
}

void Snapshot::loadFactory(store::Model& model, store::LoadReport& report) const {
    loadTemplates({paths_.templates, templates_}, model, report);
    loadDefaults({paths_.defaults, defaults_}, model, report);
}

void Snapshot::loadLive(store::Model& model, store::LoadReport& report) const {
    loadChanges({paths_.live, std::string_view(live_).substr(0, scan_.goodBytes)}, model, report);
}

Databases::Databases(const Snapshot& snapshot) {
    Faults ignored;
    snapshot.loadFactory(factory, ignored);
    Faults faults;
    snapshot.loadFactory(effective, faults);
    snapshot.loadLive(effective, faults);
    if (faults.losses() != 0)
        std::cerr << "ostrelDbTool: " << counted(faults.losses(), "line") << " left out; check lists them\n";
    if (const store::LogScan& scan = snapshot.scan(); scan.end != store::LogScan::End::whole) {
        std::cerr << "ostrelDbTool: " << snapshot.paths().live << ':' << scan.badLine << ": "
                  << (scan.isCut() ? "an unfinished transaction is left out\n"
                                   : "damaged; all from here on is left out\n");
    }
}

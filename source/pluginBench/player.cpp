#include "pluginBench/player.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <span>
#include <utility>

#include "common/ostrelUtils.h"
#include "db/ostrelDb.h"
#include "pluginBench/changeApplier.h"
#include "pluginBench/clients.h"
#include "pluginBench/entries.h"
#include "pluginBench/judge.h"
#include "pluginBench/room.h"
#include "process/descriptor.h"
#include "server/changeMessages.h"
#include "server/globals.h"
#include "server/pluginLoading.h"
#include "server/pluginRecord.h"
#include "server/pluginSymbols.h"
#include "server/storedOperations.h"
#include "server/writeSequence.h"

namespace pluginBench {
namespace {

class Player {
public:
    Player(const Scenario& scenario, std::string plugin, const Report& report, const Log& log)
        : scenario_(scenario), plugin_(std::move(plugin)), report_(report), log_(log) {}

    // Ends the process when the scenario cannot be gone on with.
    void play(std::span<const Step> steps);

private:
    // place: among the scenario's steps, or behind them.
    void playStep(const Step& step, size_t place);
    void judgeServed(const Step& step) const;
    void start();
    void lookAtSymbols() const;
    void commit(const Step& step);
    void stop();
    void writeFile(const Step& step) const;
    void tell(const std::string& text) const { report_.tell(event::print, text); }
    void fault(const std::string& text) const { report_.tell(event::fault, text); }
    void checkReplay(bool ended) const;

    const Scenario& scenario_;
    const std::string plugin_;
    const Report& report_;
    const Log& log_;
    size_t logBegin_ = 0;  // of the step
    ostrelDbCfg configuration_{};
};

// The entry whose expected failure ends the daemon.
std::string fatalEntry(const Step& step) {
    for (const Expectation& expectation : step.expected) {
        if (endsDaemon(expectation.callback))
            return expectation.callback.entry;
    }
    return {};
}

void Player::checkReplay(bool ended) const {
    if (!ended)
        fault("a change that was stored for later is not carried out: " + log_.lastError(logBegin_));
}

void Player::lookAtSymbols() const {
    const ExtraSymbols extra = readExtraSymbols(plugin_).value_or(ExtraSymbols());
    if (!extra.plain.empty())
        tell("  exports besides            " + blankSeparated(extra.plain));
    if (!extra.shared.empty())
        fault("may have to share with other plug-ins: " + blankSeparated(extra.shared));
}

void Player::start() {
    configuration_.keyCreateAllowed = scenario_.keyCreateAllowed;
    database = std::make_unique<ostrelDb>(&configuration_).release();
    if (const std::string error = log_.lastError(logBegin_); !error.empty())
        throw ScenarioError(scenario_.path + ": " + error);
    openSocket();
    state = phase::loading;
    bool loaded = false;
    {
        const Watched loading(report_, "loading it");
        loaded = loadOnePlugin(plugin_.c_str(), 0);
    }
    if (!loaded) {
        fault("the daemon cannot use it: " + log_.lastError(logBegin_));
        report_.tell(event::done, "1");
        std::exit(1);
    }
    lookAtSymbols();
    OstrelClientPlugin& plugin = *listOfClients.front();
    watchEntries(plugin, report_);
    plugin.initIo();
    state = phase::idle;
    checkReplay(popBackStoredMessage());
    state = phase::serving;
}

void Player::commit(const Step& step) {
    destroyRecords(listOfChangedStuff);
    beginSequence();
    const long handle = database->dataStartWriteTransaction();
    ChangeApplier applier(handle);
    for (const Change& change : step.changes) {
        if (applier.apply(change.line))
            continue;
        fault(scenario_.placed(change.number, "the change is refused: " + log_.lastError(logBegin_)));
        database->dataWriteRollback(handle);
        destroyRecords(listOfChangedStuff);
        return;
    }
    if (database->dataCommit(handle) != 0) {
        fault("the commit failed");
        return;
    }
    checkReplay(tellCommitted());
}

void Player::stop() {
    {
        const Watched unloading(report_, "unloading it");
        unloadPlugins();
    }
    closeSocket();
    delete std::exchange(database, nullptr);
    destroyRecords(listOfStoredValues);
    destroyRecords(listOfChangedStuff);
}

void Player::writeFile(const Step& step) const {
    try {
        writeRoomFile(step.path, joined(step.lines));
    } catch (const ScenarioError& error) {
        throw ScenarioError(scenario_.placed(step.number, error.what()));
    }
}

// What clients changed while the step was waited for is nothing that the step calls.
void Player::judgeServed(const Step& step) const {
    for (const Callback& callback : endSeeing().callbacks) {
        if (callback.fails && !callback.throws)
            fault(scenario_.placed(step.number, shown(callback) + " after a client's change"));
    }
}

void Player::playStep(const Step& step, size_t place) {
    constexpr const char* words[] = {"start", "commit", "stop", "file "};
    const std::string title =
        words[static_cast<size_t>(step.kind)] + step.path + " (line " + std::to_string(step.number) + ')';
    logBegin_ = log_.size();
    report_.tell(event::step, std::to_string(place) + ' ' + std::to_string(logBegin_) + ' ' + title);
    tell(title);
    beginSeeing(fatalEntry(step));
    switch (step.kind) {
        case Step::Kind::start:
            start();
            break;
        case Step::Kind::commit:
            commit(step);
            break;
        case Step::Kind::stop:
            stop();
            break;
        case Step::Kind::file:
            writeFile(step);
    }
    Judge(scenario_, report_, log_, logBegin_).judge(step, endSeeing());
    judgeServed(step);
}

void Player::play(std::span<const Step> steps) {
    for (const Step& step : steps)
        playStep(step, static_cast<size_t>(&step - scenario_.steps.data()));
    if (database != nullptr) {
        Step last;
        last.kind = Step::Kind::stop;
        last.number = steps.back().number;
        playStep(last, scenario_.steps.size());
    }
}

}  // namespace

void play(const Scenario& scenario, size_t first, const std::string& plugin, const Report& report,
          const Log& log) {
    // As in the server.
    std::signal(SIGPIPE, SIG_IGN);
    if (const process::Descriptor null(open("/dev/null", O_RDONLY | O_CLOEXEC)); null.get() >= 0)
        dup2(null.get(), STDIN_FILENO);
    constexpr int errorsAndNotices = 3;
    ostrelSetPrintLevel(errorsAndNotices);
    log.take();
    // Where the room has ostrelCtl.
    const char* path = std::getenv("PATH");
    setenv("PATH", (std::string(roomPrograms) + ':' + (path != nullptr ? path : "/usr/bin:/bin")).c_str(), 1);
    try {
        Player(scenario, plugin, report, log)
            .play(std::span(scenario.steps).subspan(first, scenario.lifeFrom(first)));
        report.tell(event::done, "0");
    } catch (const std::exception& exception) {
        report.tell(event::unusable, exception.what());
    }
    // Only here: what the plug-in and a leak checker do at the end is part of the play.
    std::exit(0);
}

}  // namespace pluginBench

// Lets services be adapted by scripts: has the commands of the rules run whose keys have changed.
#include <ostrel/plugin.hpp>

#include "exec/knownLines.h"
#include "exec/rules.h"
#include "exec/runnerProcess.h"

namespace exec {

// By triggers, which name the key; writeConf and restart do not.
class Plugin {
public:
    static constexpr const char* name = moduleName;

    // Never fails: the rest of the appliance goes on without the scripts.
    void init() {
        try {
            readRules();
        } catch (const std::exception& exception) {
            ostrel::plugin::logError(exception.what());
        }
        handOver();
    }

    std::vector<std::string> triggers() const {
        std::vector<std::string> patterns;
        for (const Duty& duty : duties_)
            patterns.insert(patterns.end(), duty.rule.patterns.begin(), duty.rule.patterns.end());
        return patterns;
    }

    void trigger(const char* key) {
        for (Duty& duty : duties_)
            duty.isDue = duty.isDue || matches(duty.rule, key);
        handOver();
    }

private:
    struct Duty {
        Rule rule;
        bool isDue = false;     // and not handed over yet
        bool isUnread = false;  // by the runner, so the request is one for what changes now, too
    };

    void readRules() {
        const std::string file = exec::rulesPath;
        RuleFile found = parseRules(ostrel::plugin::readFile(file).value_or(""), file);
        for (const std::string& fault : found.faults)
            ostrel::plugin::logError(fault);
        for (Rule& rule : found.rules)
            duties_.push_back({std::move(rule)});
    }

    void askForAll() {
        for (Duty& duty : duties_) {
            duty.isDue = true;
            duty.isUnread = false;
        }
    }

    void handOver() {
        runner_.waitForEnded();
        if (duties_.empty() || !makeServing())
            return;
        noteWhatIsRead();
        for (Duty& duty : duties_) {
            if (!duty.isDue)
                continue;
            // However many keys a commit has: else they would fill the way to a runner that is slow, and
            // another rule be lost.
            duty.isUnread = duty.isUnread || runner_.ask(duty.rule);
            duty.isDue = !duty.isUnread;
            if (duty.isDue)
                ostrel::plugin::logError("the runner does not take rule " + duty.rule.name +
                                         "; it waits for the next change");
        }
    }

    void noteWhatIsRead() {
        while (std::optional<std::string> rule = runner_.nextRead()) {
            for (Duty& duty : duties_)
                duty.isUnread = duty.isUnread && duty.rule.name != *rule;
        }
    }

    // What a runner that has ended was asked for may never have run.
    bool makeServing() {
        if (runner_.isServing())
            return true;
        try {
            runner_.start();
        } catch (const std::exception& exception) {
            ostrel::plugin::logError(exception.what());
            return false;
        }
        ostrel::plugin::logNotice(std::string("the runner is started, ") + knownLine::allRulesDue);
        askForAll();
        return true;
    }

    std::vector<Duty> duties_{};
    RunnerProcess runner_{};
};

}  // namespace exec

OSTREL_PLUGIN(exec::Plugin)

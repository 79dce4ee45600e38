#include "pluginBench/entries.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <utility>

#include "common/ostrelUtils.h"
#include "server/globals.h"
#include "server/pluginRecord.h"

namespace pluginBench {
namespace {

// What restarts in one step are plausible: the host itself goes on to its bound of passes, which may take
// minutes.
constexpr int mostRestarts = 10;

// A table's entries are plain functions: what they share has no other place.
struct Interposed {
    const Report* report = nullptr;
    OstrelIoFuncs_t plugin{};  // the plug-in's own
    OstrelIoFuncs_t table{};   // the bench's
    std::string fatal{};
    Seen seen{};
    int restarts = 0;
};

Interposed interposed;

void tellException(const std::string& call, const char* what) {
    interposed.report->tell(event::fault, call + " threw an exception: " + what);
}

// Calls the entry. An exception goes on to the host.
template <typename Entry>
int callThrough(const std::string& call, Entry entry) {
    const Watched watched(*interposed.report, call);
    try {
        return entry();
    } catch (const std::exception& exception) {
        tellException(call, exception.what());
        throw;
    } catch (...) {
        tellException(call, "not a std::exception");
        throw;
    }
}

std::string element(const OstrelValue& record) {
    const std::string text = printable(record.name);
    return record.pKey == 0 ? text : text + '[' + std::to_string(record.pKey) + ']';
}

// The changes that the entry stored: those behind the first ones.
std::string storedSince(size_t first) {
    std::string text;
    for (size_t i = first; i < listOfStoredValues.size(); ++i)
        text += (text.empty() ? "stores " : ", ") + element(*listOfStoredValues[i]);
    return text;
}

// entry: called without arguments. remark: makes the end of the line from the entry's results.
template <typename Entry, typename Remark>
int call(Callback& callback, Entry entry, Remark remark) {
    const std::string name = shown(callback);
    const size_t stored = listOfStoredValues.size();
    std::chrono::steady_clock::duration spent{};
    std::string given;
    // What it gave is looked at inside, too: a bad pointer there is the entry's.
    const int result = callThrough(name, [&] {
        auto begin = std::chrono::steady_clock::now();
        const int entrysResult = entry();
        spent = std::chrono::steady_clock::now() - begin;
        given = remark();
        return entrysResult;
    });
    callback.fails = result != 1;
    char line[160];
    std::snprintf(
        line, sizeof line, "  %-24s %3d  %5lld ms", name.c_str(), result,
        static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(spent).count()));
    std::string text = line;
    for (const std::string& more : {given, storedSince(stored)})
        text += more.empty() ? "" : "  " + more;
    interposed.report->tell(event::print, text);
    return result;
}

std::string nothing() { return {}; }

// An entry without which the daemon does not start. Its process ends after it.
int callVital(const char* entry, auto function, auto remark) {
    Callback callback{entry};
    int result = 0;
    try {
        result = call(callback, function, remark);
    } catch (...) {
        interposed.report->tell(event::done, "255");
        throw;
    }
    if (result == 1)
        return result;
    if (interposed.fatal != entry)
        interposed.report->tell(
            event::fault, std::string(entry) + " returned " + std::to_string(result) + ": the daemon ends");
    interposed.report->tell(event::done, "255");
    return result;
}

int patternsOf(const char* entry, int (*function)(unsigned int*, char***), unsigned int* count,
               char*** patterns) {
    auto list = [=] {
        std::string text;
        for (unsigned int i = 0; *patterns != nullptr && i < *count; ++i)
            text += (i == 0 ? "" : " ") + std::string(printable((*patterns)[i]));
        return text;
    };
    const int result = callVital(
        entry, [=] { return function(count, patterns); }, list);
    if (result == 1 && *count != 0 && *patterns == nullptr)
        interposed.report->tell(event::fault, std::string(entry) + " gave a count of " +
                                                  std::to_string(*count) + " but no patterns");
    return result;
}

int getWatchedValues(unsigned int* count, char*** patterns) {
    return patternsOf("getWatchedValues", interposed.plugin.getWatchedValues, count, patterns);
}

int getTriggerList(unsigned int* count, char*** patterns) {
    return patternsOf("getTriggerList", interposed.plugin.getTriggerList, count, patterns);
}

int init(int five, char** moduleName) {
    return callVital(
        "init", [=] { return interposed.plugin.init(five, moduleName); },
        [=] { return std::string(printable(*moduleName)); });
}

// Notes the call before it begins: one that throws is seen, too.
int callNoted(Callback callback, auto function, auto remark) {
    std::vector<Callback>& callbacks = interposed.seen.callbacks;
    const size_t place = callbacks.size();
    callbacks.push_back(callback);
    callbacks[place].throws = true;
    const int result = call(callback, function, remark);
    callbacks[place].throws = false;
    callbacks[place].fails = result != 1;
    return result;
}

int writeConf() {
    return callNoted(
        {"writeConf"}, [] { return interposed.plugin.writeConf(); }, nothing);
}

int trigger(const char* key) {
    return callNoted(
        {"trigger", key}, [=] { return interposed.plugin.trigger(key); }, nothing);
}

int restart(int* reboot) {
    const int result = callNoted(
        {"restart"}, [=] { return interposed.plugin.restart(reboot); },
        [=] { return *reboot == 1 ? "reboot" : ""; });
    interposed.seen.callbacks.back().reboot = *reboot == 1;
    if (++interposed.restarts > mostRestarts && !listOfStoredValues.empty()) {
        interposed.report->tell(event::fault, "restart keeps writing what its plug-in watches: " +
                                                  element(*listOfStoredValues.front()) + " after " +
                                                  std::to_string(mostRestarts) + " restarts in one step");
        destroyRecords(listOfStoredValues);
    }
    return result;
}

int die() {
    Callback callback{"die"};
    const int result = call(callback, interposed.plugin.die, nothing);
    if (callback.fails)
        interposed.seen.failures.push_back(callback);
    return result;
}

}  // namespace

void watchEntries(OstrelClientPlugin& plugin, const Report& report) {
    interposed.report = &report;
    interposed.plugin = *plugin.io;
    interposed.table = interposed.plugin;
    interposed.table.init = init;
    interposed.table.restart = restart;
    interposed.table.getWatchedValues = getWatchedValues;
    interposed.table.getTriggerList = interposed.plugin.getTriggerList != nullptr ? getTriggerList : nullptr;
    interposed.table.trigger = interposed.plugin.trigger != nullptr ? trigger : nullptr;
    interposed.table.writeConf = interposed.plugin.writeConf != nullptr ? writeConf : nullptr;
    interposed.table.die = interposed.plugin.die != nullptr ? die : nullptr;
    plugin.io = &interposed.table;
    if ((interposed.plugin.trigger == nullptr) != (interposed.plugin.getTriggerList == nullptr))
        report.tell(event::fault, interposed.plugin.trigger != nullptr
                                      ? "has trigger, but no getTriggerList: it is never called"
                                      : "has getTriggerList, but no trigger: it is never called");
}

void beginSeeing(const std::string& fatal) {
    interposed.fatal = fatal;
    interposed.seen = {};
    interposed.restarts = 0;
}

Seen endSeeing() { return std::exchange(interposed.seen, {}); }

}  // namespace pluginBench

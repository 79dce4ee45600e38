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
struct Watcher {
    const Report* report = nullptr;
    OstrelIoFuncs_t plugin{};  // the plug-in's own
    OstrelIoFuncs_t table{};   // the bench's
    std::string fatal{};
    Seen seen{};
    int restarts = 0;
};

Watcher watcher;

void tellException(const std::string& call, const char* what) {
    watcher.report->tell(event::fault, call + " threw an exception: " + what);
}

// Calls the entry. An exception goes on to the host.
template <typename Entry>
int callThrough(const std::string& call, Entry entry) {
    const Watched watched(*watcher.report, call);
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
    watcher.report->tell(event::print, text);
    return result;
}

std::string nothing() { return {}; }

// An entry without which the daemon does not start. Its process ends behind it.
int callVital(const char* entry, auto function, auto remark) {
    Callback callback{entry};
    int result = 0;
    try {
        result = call(callback, function, remark);
    } catch (...) {
        watcher.report->tell(event::done, "255");
        throw;
    }
    if (result == 1)
        return result;
    if (watcher.fatal != entry)
        watcher.report->tell(
            event::fault, std::string(entry) + " returned " + std::to_string(result) + ": the daemon ends");
    watcher.report->tell(event::done, "255");
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
        watcher.report->tell(event::fault, std::string(entry) + " gave a count of " + std::to_string(*count) +
                                               " but no patterns");
    return result;
}

int getWatchedValues(unsigned int* count, char*** patterns) {
    return patternsOf("getWatchedValues", watcher.plugin.getWatchedValues, count, patterns);
}

int getTriggerList(unsigned int* count, char*** patterns) {
    return patternsOf("getTriggerList", watcher.plugin.getTriggerList, count, patterns);
}

int init(int five, char** moduleName) {
    return callVital(
        "init", [=] { return watcher.plugin.init(five, moduleName); },
        [=] { return std::string(printable(*moduleName)); });
}

// Notes the call before it begins: one that throws is seen, too.
int callNoted(Callback callback, auto function, auto remark) {
    std::vector<Callback>& callbacks = watcher.seen.callbacks;
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
        {"writeConf"}, [] { return watcher.plugin.writeConf(); }, nothing);
}

int trigger(const char* key) {
    return callNoted(
        {"trigger", key}, [=] { return watcher.plugin.trigger(key); }, nothing);
}

int restart(int* reboot) {
    const int result = callNoted(
        {"restart"}, [=] { return watcher.plugin.restart(reboot); },
        [=] { return *reboot == 1 ? "reboot" : ""; });
    watcher.seen.callbacks.back().reboot = *reboot == 1;
    if (++watcher.restarts > mostRestarts && !listOfStoredValues.empty()) {
        watcher.report->tell(event::fault, "restart keeps writing what its plug-in watches: " +
                                               element(*listOfStoredValues.front()) + " after " +
                                               std::to_string(mostRestarts) + " restarts in one step");
        destroyRecords(listOfStoredValues);
    }
    return result;
}

int die() {
    Callback callback{"die"};
    const int result = call(callback, watcher.plugin.die, nothing);
    if (callback.fails)
        watcher.seen.failures.push_back(callback);
    return result;
}

}  // namespace

void watchEntries(OstrelClientPlugin& plugin, const Report& report) {
    watcher.report = &report;
    watcher.plugin = *plugin.io;
    watcher.table = watcher.plugin;
    watcher.table.init = init;
    watcher.table.restart = restart;
    watcher.table.getWatchedValues = getWatchedValues;
    watcher.table.getTriggerList = watcher.plugin.getTriggerList != nullptr ? getTriggerList : nullptr;
    watcher.table.trigger = watcher.plugin.trigger != nullptr ? trigger : nullptr;
    watcher.table.writeConf = watcher.plugin.writeConf != nullptr ? writeConf : nullptr;
    watcher.table.die = watcher.plugin.die != nullptr ? die : nullptr;
    plugin.io = &watcher.table;
    if ((watcher.plugin.trigger == nullptr) != (watcher.plugin.getTriggerList == nullptr))
        report.tell(event::fault, watcher.plugin.trigger != nullptr
                                      ? "has trigger, but no getTriggerList: it is never called"
                                      : "has getTriggerList, but no trigger: it is never called");
}

void beginSeeing(const std::string& fatal) {
    watcher.fatal = fatal;
    watcher.seen = {};
    watcher.restarts = 0;
}

Seen endSeeing() { return std::exchange(watcher.seen, {}); }

}  // namespace pluginBench

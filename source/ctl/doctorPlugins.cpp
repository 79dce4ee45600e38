#include <algorithm>
#include <chrono>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

#include "ctl/doctorChecks.h"
#include "process/childProcess.h"
#include "text/fixedPaths.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds probeLimit{5};

using Words = std::map<std::string, std::string>;

// The "word: text" lines of the probe.
Words parse(const std::string& output) {
    Words words;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(": ");
        if (colon != std::string::npos)
            words[line.substr(0, colon)] = line.substr(colon + 2);
    }
    return words;
}

// How far a probe came that did not come back.
std::string placeOf(const Words& words) {
    if (!words.contains("loads"))
        return "when it is loaded";
    return words.contains("unloads") || words.contains("table") ? "when it is unloaded"
                                                                : "in ostrelGetIoFuncs";
}

Finding finding(const fs::path& plugin, State state, const std::string& found, const std::string& advice) {
    return {state, "plug-in", plugin.filename().string() + " " + found, advice};
}

Finding bad(const fs::path& plugin, const std::string& found, const std::string& advice) {
    return finding(plugin, State::bad, found, advice);
}

// The loader's messages usually begin with the path.
std::string withoutPath(const std::string& message, const fs::path& plugin) {
    const std::string path = plugin.string() + ": ";
    return message.starts_with(path) ? message.substr(path.size()) : message;
}

// The probe came to its end and found something that the daemon cannot use.
Finding reportUnusable(const fs::path& plugin, const Words& words) {
    const std::string& loads = words.at("loads");
    if (loads != "yes")
        return bad(
            plugin, "does not load: " + withoutPath(loads, plugin),
            "the daemon skips it: build it anew for this daemon, install the library that it misses, or "
            "remove it");
    const std::string skipped = "the daemon skips it: correct or remove it";
    auto table = words.find("table");
    if (table == words.end())
        return bad(plugin, "does not export ostrelGetIoFuncs", skipped);
    if (table->second == "null")
        return bad(plugin, "has no entry table: ostrelGetIoFuncs returns null", skipped);
    if (table->second != "present")
        return bad(plugin, "has no entry table: ostrelGetIoFuncs " + table->second, skipped);
    std::string missing;
    for (const char* entry : {"init", "restart", "getWatchedValues"}) {
        if (words.at(entry) != "present")
            missing += std::string(missing.empty() ? "" : ", ") + entry;
    }
    return bad(plugin, "lacks the entry " + missing, skipped);
}

bool isUsable(const Words& words) {
    for (const char* entry : {"table", "init", "restart", "getWatchedValues"}) {
        auto word = words.find(entry);
        if (word == words.end() || word->second != "present")
            return false;
    }
    return words.contains("unloads");
}

Finding reportSymbols(const fs::path& plugin, const Words& words) {
    const std::string advice =
        "build it with ostrel_add_plugin, or with -fvisibility=hidden and what pkg-config --libs "
        "ostrelPlugin says";
    auto shared = words.find("shares");
    auto plain = words.find("exports");
    const std::string more =
        plain == words.end() ? "" : "exports more than the daemon asks for: " + plain->second;
    if (shared == words.end())
        return finding(plugin, State::warn, more, advice);
    return bad(plugin,
               "may have to share with other plug-ins: " + shared->second + (more.empty() ? "" : "; " + more),
               advice);
}

Finding judge(const fs::path& plugin, const ChildResult& probe, const Words& words) {
    const std::string fatal =
        "it takes the daemon with it: remove it from " + std::string(pluginFolder) + ", then correct it";
    switch (probe.end) {
        case ChildResult::End::timedOut:
            return bad(plugin, "does not come back " + placeOf(words), fatal);
        case ChildResult::End::killed:
            return bad(plugin, "crashes " + placeOf(words) + " (signal " + std::to_string(probe.number) + ")",
                       fatal);
        case ChildResult::End::notStarted:
        case ChildResult::End::exited:
            break;
    }
    const bool complete =
        words.contains("unloads") || (words.contains("loads") && words.at("loads") != "yes");
    if (!complete)
        return bad(plugin,
                   "ends the process " + placeOf(words) + " (status " + std::to_string(probe.number) + ")",
                   fatal);
    if (!isUsable(words))
        return reportUnusable(plugin, words);
    if (words.contains("shares") || words.contains("exports"))
        return reportSymbols(plugin, words);
    return finding(plugin, State::ok,
                   "loads; load priority " + words.at("loadPriority") + ", restart priority " +
                       words.at("restartPriority") + (words.at("essential") == "yes" ? "; essential" : ""),
                   "");
}

// Names of plug-ins by their priority.
using Places = std::map<std::string, std::vector<std::string>>;

// The daemon's order of the others is their priorities'.
void reportTies(DoctorReport& report, const std::string& kind, const Places& places) {
    for (const auto& [priority, names] : places) {
        if (names.size() < 2)
            continue;
        std::string list;
        for (const std::string& name : names)
            list += (list.empty() ? "" : ", ") + name;
        list.append(" have the ").append(kind).append(" priority ").append(priority);
        report.ok("plug-ins", list + ": their order is the folder's, which differs between file systems");
    }
}

// In the order of their names. The daemon tries whatever ends in the suffix, folders too.
std::vector<fs::path> listPlugins(std::error_code& error) {
    std::vector<fs::path> plugins;
    for (fs::directory_iterator entry(pluginFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().filename().string().ends_with(pluginSuffix))
            plugins.push_back(entry->path());
    }
    std::ranges::sort(plugins);
    return plugins;
}

void summarise(DoctorReport& report, size_t all, size_t usable, size_t essential) {
    const std::string found = std::to_string(usable) + " of " + std::to_string(all) + " in " + pluginFolder +
                              " can be used, " + std::to_string(essential) + " of them in reduced mode";
    if (usable == 0)
        report.bad("plug-ins", found + ": the daemon cannot start",
                   "put at least one working plug-in there; its name ends in .ostr");
    else
        report.ok("plug-ins", found + (essential == 0 ? ": --reduced could not start" : ""));
}

}  // namespace

void checkPlugins(DoctorReport& report, const fs::path& programs) {
    std::error_code error;
    const std::vector<fs::path> plugins = listPlugins(error);
    if (error) {
        report.bad("plug-ins",
                   std::string(pluginFolder) + ": " + error.message() + ": the daemon cannot start",
                   "make the folder, readable for the daemon, and put the plug-ins there");
        return;
    }
    size_t usable = 0;
    size_t essential = 0;
    Places loading;
    Places restarting;
    for (const fs::path& plugin : plugins) {
        const ChildResult probe = runChild({programs / "ostrelPluginProbe", plugin}, probeLimit);
        if (probe.end == ChildResult::End::notStarted) {
            report.warn(
                "plug-ins",
                std::to_string(plugins.size()) + " not looked into: ostrelPluginProbe: " + probe.error,
                "install ostrelPluginProbe beside ostrelCtl");
            return;
        }
        Words words = parse(probe.output);
        report.add(judge(plugin, probe, words));
        if (probe.end != ChildResult::End::exited || !isUsable(words))
            continue;
        ++usable;
        if (words.at("essential") == "yes")
            ++essential;
        loading[words.at("loadPriority")].push_back(plugin.filename());
        restarting[words.at("restartPriority")].push_back(plugin.filename());
    }
    reportTies(report, "load", loading);
    reportTies(report, "restart", restarting);
    summarise(report, plugins.size(), usable, essential);
}

#include "server/pluginLoading.h"

#include <dirent.h>
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "common/ostrelUtils.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "process/closers.h"
#include "server/globals.h"
#include "server/pluginFile.h"
#include "server/pluginRecord.h"
#include "text/fixedPaths.h"

namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

bool isPluginName(std::string_view name) {
    const size_t dot = name.rfind('.');
    return dot != std::string_view::npos && name.substr(dot) == pluginSuffix;
}

// The plug-in's table; null when it has none or throws.
OstrelIoFuncs_t* askForTable(OstrelIoFuncs_t* (*getIoFuncs)()) {
    try {
        return getIoFuncs();
    } catch (const std::exception&) {
    } catch (...) {
    }
    return nullptr;
}

// The table that the library exports, when it can be used; otherwise null, after a line in the log.
OstrelIoFuncs_t* findTable(void* library, const char* fileName) {
    auto getIoFuncs = reinterpret_cast<OstrelIoFuncs_t* (*)()>(dlsym(library, "ostrelGetIoFuncs"));
    if (getIoFuncs == nullptr) {
        OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::error,
                      "error: IoBlock function not exported in plugin %s", fileName);
        return nullptr;
    }
    OstrelIoFuncs_t* table = askForTable(getIoFuncs);
    if (table == nullptr) {
        OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::error, "error: no IoBlock returned by plugin %s",
                      fileName);
        return nullptr;
    }
    if (table->init == nullptr || table->restart == nullptr || table->getWatchedValues == nullptr) {
        OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::error,
                      "error: IoBlock of plugin %s lacks init, restart or getWatchedValues", fileName);
        return nullptr;
    }
    return table;
}

// A file that is listed twice, by a link, is one library: what it hands out last may be all that is left of
// it.
void shareAnswers(const OstrelClientPlugin& asked) {
    for (OstrelClientPlugin* plugin : listOfClients) {
        if (plugin->dlHandle != asked.dlHandle)
            continue;
        plugin->moduleName = asked.moduleName;
        plugin->nbWatchedValues = asked.nbWatchedValues;
        plugin->watchedValues = asked.watchedValues;
        plugin->nbTriggers = asked.nbTriggers;
        plugin->triggerList = asked.triggerList;
    }
}

void loadDirectory(int reduced) {
    const Directory directory(opendir(pluginFolder));
    OSTREL_LOG_AT(logPlace::loadPlugins, logLevel::debug, "Plugins dir: %s", pluginFolder);
    if (!directory)
        Die(knownLine::noPluginFolder);
    while (const dirent* entry = readdir(directory.get())) {
        if (!isPluginName(entry->d_name))
            continue;
        std::array<char, 1024> path{};
        std::snprintf(path.data(), path.size(), "%s/%s", pluginFolder, entry->d_name);
        loadOnePlugin(path.data(), reduced);
    }
}

}  // namespace

void loadPlugins(int reduced) {
    loadDirectory(reduced);
    if (listOfClients.empty())
        Die(knownLine::noPlugins);
    OSTREL_LOG_AT(logPlace::loadPlugins, logLevel::debug, "Loaded %d plugins",
                  static_cast<int>(listOfClients.size()));
    OSTREL_LOG_AT(logPlace::loadPlugins, logLevel::debug, "Sorting plugins...");
    sortPlugins();
    OSTREL_LOG_AT(logPlace::loadPlugins, logLevel::debug, "Initializing plugins...");
    for (OstrelClientPlugin* plugin : listOfClients) {
        plugin->initIo();
        shareAnswers(*plugin);
        OSTREL_LOG_AT(logPlace::loadPlugins, logLevel::debug, "Plugin %s/%s initialized (prio %d)",
                      plugin->shortFileName, printable(plugin->moduleName),
                      static_cast<int>(plugin->loadPriority));
    }
}

bool loadOnePlugin(const char* fileName, int reduced) {
    OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::debug, "Loading plugin: %s", fileName);
    const std::optional<std::string> fault = faultOfPluginFile(fileName);
    process::Library library(fault ? nullptr : dlopen(fileName, RTLD_NOW));
    if (!library) {
        OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::error, "error: file %s cannot load as plugin, er=%s",
                      fileName, printable(fault ? fault->c_str() : dlerror()));
        return false;
    }
    if (reduced != 0 && dlsym(library.get(), "ostrelClientEssentialFunc") == nullptr) {
        OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::error,
                      "[ostrel] This plugin is not essential, skipping it");
        return false;
    }
    OstrelIoFuncs_t* table = findTable(library.get(), fileName);
    if (table == nullptr)
        return false;

    auto plugin = std::make_unique<OstrelClientPlugin>(fileName);
    plugin->setIo(table);
    OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::debug, "   short filename: %s", plugin->shortFileName);
    OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::debug, "   load priority:  %d",
                  static_cast<int>(plugin->loadPriority));
    OSTREL_LOG_AT(logPlace::loadOnePlugin, logLevel::debug, "   src filename:   %s",
                  printable(table->srcFileName));
    listOfClients.push_back(plugin.get());
    plugin.release()->dlHandle = library.release();
    return true;
}

// The order of equal priorities is what this exchange sort makes of the directory's order.
bool sortPlugins() {
    for (size_t i = 0; i + 1 < listOfClients.size(); ++i) {
        for (size_t j = i + 1; j < listOfClients.size(); ++j) {
            if (listOfClients[i]->loadPriority > listOfClients[j]->loadPriority)
                std::swap(listOfClients[i], listOfClients[j]);
        }
    }
    return true;
}

void unloadPlugins() {
    // A file that is listed twice, by a link, is one library with one table, and dies once.
    std::vector<void*> closed;
    for (OstrelClientPlugin* plugin : listOfClients) {
        if (std::ranges::find(closed, plugin->dlHandle) == closed.end()) {
            plugin->closeIo();
            closed.push_back(plugin->dlHandle);
        }
        dlclose(plugin->dlHandle);
        delete plugin;
    }
    listOfClients.clear();
}

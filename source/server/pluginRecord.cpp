#include "server/pluginRecord.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "common/logText.h"
#include "common/ostrelUtils.h"
#include "log/serverLines.h"
#include "ostrel/keyPattern.hpp"
#include "server/pluginsModule.h"

// The table is shared with separately built objects.
static_assert(sizeof(OstrelIoFuncs_t) == 72 && alignof(OstrelIoFuncs_t) == 8);
static_assert(offsetof(OstrelIoFuncs_t, srcFileName) == 0);
static_assert(offsetof(OstrelIoFuncs_t, init) == 8);
static_assert(offsetof(OstrelIoFuncs_t, die) == 16);
static_assert(offsetof(OstrelIoFuncs_t, writeConf) == 24);
static_assert(offsetof(OstrelIoFuncs_t, restart) == 32);
static_assert(offsetof(OstrelIoFuncs_t, getWatchedValues) == 40);
static_assert(offsetof(OstrelIoFuncs_t, getTriggerList) == 48);
static_assert(offsetof(OstrelIoFuncs_t, trigger) == 56);
static_assert(offsetof(OstrelIoFuncs_t, loadPriority) == 64);
static_assert(offsetof(OstrelIoFuncs_t, restartPriority) == 68);
static_assert(sizeof(ostrelValueType) == 4);
static_assert(sizeof(OstrelValue) == 56 && offsetof(OstrelValue, value) == 16 &&
              offsetof(OstrelValue, pKey) == 40);
static_assert(sizeof(OstrelValues) == 16 && offsetof(OstrelValues, count) == 8);

namespace {

char* copyText(std::string_view text) {
    char* copy = strndup(text.data(), text.size());
    if (copy == nullptr)
        throw std::bad_alloc();
    return copy;
}

std::string_view withoutFolder(std::string_view path) {
    const size_t slash = path.rfind('/');
    const bool named = slash != std::string_view::npos && slash + 1 < path.size();
    return named ? path.substr(slash + 1) : path;
}

void logException(LogPlace place, const OstrelClientPlugin& plugin, const char* entry, const char* what) {
    OSTREL_LOG_AT(place, logLevel::error, knownLine::entryThrew, plugin.shortFileName, entry, what);
}

// Calls an entry. Anything that it throws counts as a failed result.
template <typename... Parameters, typename... Arguments>
int callEntry(LogPlace place, const OstrelClientPlugin& plugin, const char* name, int (*entry)(Parameters...),
              Arguments... arguments) {
    try {
        return entry(arguments...);
    } catch (const std::exception& exception) {
        logException(place, plugin, name, exception.what());
    } catch (...) {
        logException(place, plugin, name, "not a std::exception");
    }
    return 0;
}

// The same with the two trace lines around the call.
template <typename... Parameters, typename... Arguments>
int traceEntry(LogPlace place, const OstrelClientPlugin& plugin, const char* name,
               int (*entry)(Parameters...), Arguments... arguments) {
    OSTREL_LOG_AT(place, logLevel::debug, ">>> Plugin[%s].%s()", plugin.shortFileName, name);
    const int result = callEntry(place, plugin, name, entry, arguments...);
    OSTREL_LOG_AT(place, logLevel::debug, "<<< Plugin[%s].%s()", plugin.shortFileName, name);
    return result;
}

// The count to go on with: none when there are no patterns to it.
unsigned int countOf(const OstrelClientPlugin& plugin, const char* entry, unsigned int count,
                     char** patterns) {
    if (count == 0 || patterns != nullptr)
        return count;
    OSTREL_LOG_AT(logPlace::initialise, logLevel::error, knownLine::noPatterns, plugin.shortFileName, entry,
                  count);
    return 0;
}

template <typename Function>
std::uintptr_t address(Function* function) {
    return reinterpret_cast<std::uintptr_t>(function);
}

}  // namespace

OstrelClientPlugin::OstrelClientPlugin(const char* path)
    : fileName(copyText(path)), shortFileName(copyText(withoutFolder(path))) {}

OstrelClientPlugin::~OstrelClientPlugin() {
    std::free(fileName);
    fileName = nullptr;
    std::free(shortFileName);
    shortFileName = nullptr;
}

bool OstrelClientPlugin::setIo(OstrelIoFuncs_t* table) {
    io = table;
    restartPriority = table->restartPriority;
    loadPriority = table->loadPriority;
    return true;
}

bool OstrelClientPlugin::initIo() {
    if (traceEntry(logPlace::initialise, *this, "init", io->init, 5, &moduleName) != 1)
        Die(knownLine::initFailed);
    if (traceEntry(logPlace::initialise, *this, "getWatchedValues", io->getWatchedValues, &nbWatchedValues,
                   &watchedValues) != 1)
        Die(knownLine::noWatchedValues);
    nbWatchedValues = countOf(*this, "getWatchedValues", nbWatchedValues, watchedValues);
    OSTREL_LOG_AT(logPlace::initialise, logLevel::debug, "Plugin %s watched values:", shortFileName);
    for (unsigned int i = 0; i < nbWatchedValues; ++i)
        OSTREL_LOG_AT(logPlace::initialise, logLevel::debug, "   [%1d] <%s>", static_cast<int>(i),
                      printable(watchedValues[i]));

    if (io->trigger != nullptr && io->getTriggerList != nullptr) {
        OSTREL_LOG_AT(logPlace::initialise, logLevel::debug, "Getting trigger list for module %s",
                      printable(moduleName));
        if (callEntry(logPlace::initialise, *this, "getTriggerList", io->getTriggerList, &nbTriggers,
                      &triggerList) != 1)
            Die(knownLine::noTriggers);
        nbTriggers = countOf(*this, "getTriggerList", nbTriggers, triggerList);
    } else {
        OSTREL_LOG_AT(logPlace::initialise, logLevel::debug,
                      "No trigger for that plugin getTriggerList:%lx trigger:%lx",
                      address(io->getTriggerList), address(io->trigger));
    }
    return true;
}

bool OstrelClientPlugin::closeIo() {
    if (io->die == nullptr) {
        OSTREL_LOG(logLevel::debug, ">>> Plugin[%s].die()", shortFileName);
        OSTREL_LOG(logLevel::debug, "<<< Plugin[%s].die() not done", shortFileName);
        return true;
    }
    if (traceEntry(OSTREL_HERE, *this, "die", io->die) == 1)
        return true;
    OSTREL_LOG(logLevel::debug, "Suicide failed for plugin");
    return false;
}

bool OstrelClientPlugin::writeConf() {
    if (io == nullptr)
        Die("No io set in writeConf");
    return io->writeConf == nullptr || traceEntry(OSTREL_HERE, *this, "writeConf", io->writeConf) == 1;
}

bool OstrelClientPlugin::trigger(const char* key) {
    if (io == nullptr)
        Die("No io set in trigger");
    return io->trigger == nullptr || traceEntry(OSTREL_HERE, *this, "trigger", io->trigger, key) == 1;
}

bool OstrelClientPlugin::restart(bool* reboot) {
    if (io == nullptr)
        Die("No io set in restart");
    int flag = 0;
    const bool restarted = traceEntry(OSTREL_HERE, *this, "restart", io->restart, &flag) == 1;
    *reboot = flag == 1;
    return restarted;
}

bool OstrelClientPlugin::matchWatchedName(const char* key) {
    return matchNameInList(key, nbWatchedValues, watchedValues);
}

bool OstrelClientPlugin::matchTriggerName(const char* key) {
    traceSearch(key);
    return matchNameInList(key, nbTriggers, triggerList);
}

void OstrelClientPlugin::traceSearch(const char* key) const {
    if (nbTriggers != 0)
        OSTREL_LOG_AT(logPlace::searchTrigger, logLevel::debug,
                      "[Trigger] Plugin : %s searching key %s, nbWatchedValue:%d :: %s",
                      printable(moduleName), LogText(key).text(), static_cast<int>(nbTriggers),
                      printable(triggerList[0]));
}

bool matchNameInList(const char* key, unsigned int count, char** patterns) {
    const std::string_view name(key);
    for (unsigned int i = 0; i < count; ++i) {
        if (patterns[i] == nullptr)
            continue;
        if (ostrel::matchesPattern(patterns[i], name))
            return true;
    }
    return false;
}

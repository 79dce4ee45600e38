// Adapts dnsmasq, the appliance's DNS service, to the configuration database.
#include "ostrel/plugin.h"

#include <exception>

#include "dnsmasq/files.h"
#include "dnsmasq/paths.h"
#include "dnsmasq/service.h"
#include "dnsmasq/settings.h"

namespace dnsmasq {
namespace {

constexpr int errorLevel = 1;
constexpr int noticeLevel = 2;
constexpr int success = 1;
constexpr int failure = 0;

char pluginName[] = "dnsmasq";

char domainPattern[] = "lan.domain";
char serverPattern[] = "dns.server";
char hostPattern[] = "host";
char memberPattern[] = "host.*";
char* watchedPatterns[] = {domainPattern, serverPattern, hostPattern, memberPattern};

// Runs an entry's work; whatever it throws becomes a line in the log and a failure.
int run(const char* entry, void (*work)()) {
    try {
        work();
        return success;
    } catch (const std::exception& exception) {
        ostrelPrintLine(errorLevel, pluginName, __LINE__, entry, "error: %s", exception.what());
    } catch (...) {
        ostrelPrintLine(errorLevel, pluginName, __LINE__, entry, "error: unknown exception");
    }
    return failure;
}

void writeConfiguration() {
    std::string text = render(readSettings());
    if (text == readFile(configurationFile))
        return;
    markStale();
    replaceFile(configurationFile, text);
    ostrelPrintLine(noticeLevel, pluginName, __LINE__, "writeConf", "%s is written", configurationFile);
}

void bringUp() {
    if (isCurrent())
        return;
    restartService();
    ostrelPrintLine(noticeLevel, pluginName, __LINE__, "restart", "dnsmasq is started");
}

int writeConf() { return run("writeConf", writeConfiguration); }

int restart(int*) { return run("restart", bringUp); }

// The appliance goes on without DNS rather than without its configuration daemon, so a failing service is no
// failure.
int init(int, char** moduleName) {
    *moduleName = pluginName;
    writeConf();
    restart(nullptr);
    return success;
}

int getWatchedValues(unsigned int* count, char*** patterns) {
    *count = sizeof watchedPatterns / sizeof *watchedPatterns;
    *patterns = watchedPatterns;
    return success;
}

// Without die: dnsmasq goes on while the daemon is restarted.
OstrelIoFuncs_t entries = {.srcFileName = "dnsmasq/plugin.cpp",
                           .init = init,
                           .die = nullptr,
                           .writeConf = writeConf,
                           .restart = restart,
                           .getWatchedValues = getWatchedValues,
                           .getTriggerList = nullptr,
                           .trigger = nullptr,
                           .loadPriority = 50,
                           .restartPriority = 50};

}  // namespace
}  // namespace dnsmasq

OstrelIoFuncs_t* ostrelGetIoFuncs() { return &dnsmasq::entries; }

void ostrelClientEssentialFunc() {}

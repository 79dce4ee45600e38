// Adapts dnsmasq, the appliance's DNS service, to the configuration database.
#include <ostrel/plugin.hpp>

#include "dnsmasq/configuration.h"
#include "dnsmasq/paths.h"
#include "dnsmasq/service.h"
#include "dnsmasq/settings.h"

namespace dnsmasq {

// Without init: the appliance goes on without DNS rather than without its configuration daemon. Without die:
// dnsmasq goes on while the daemon is restarted.
struct Plugin {
    static constexpr char name[] = "dnsmasq";
    static constexpr const char* watched[] = {"lan.domain", "dns.server", "host", "host.*"};

    void writeConf() {
        std::string text = render(readSettings());
        if (text == ostrel::plugin::readFile(configurationFile))
            return;
        markStale();
        ostrel::plugin::replaceFile(configurationFile, text);
        ostrel::plugin::logNotice(std::string(configurationFile) + " is written");
    }

    void restart() {
        if (isCurrent())
            return;
        restartService();
        ostrel::plugin::logNotice("dnsmasq is started");
    }
};

}  // namespace dnsmasq

OSTREL_ESSENTIAL_PLUGIN(dnsmasq::Plugin)

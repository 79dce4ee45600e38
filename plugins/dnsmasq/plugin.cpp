// Adapts dnsmasq, the appliance's DNS service, to the configuration database.
#include <ostrel/plugin.hpp>

#include "dnsmasq/configuration.h"
#include "dnsmasq/paths.h"
#include "dnsmasq/service.h"
#include "dnsmasq/settings.h"

namespace dnsmasq {

// Without init: the appliance goes on without DNS rather than without its configuration daemon. Without die:
// dnsmasq goes on while the daemon is restarted.
class Plugin {
public:
    static constexpr char name[] = "dnsmasq";
    static constexpr const char* watched[] = {"lan.domain", "dns.server", "host", "host.*"};

    void writeConf() {
        isAccepted_ = false;
        const std::string text = render(readSettings());
        if (text != ostrel::plugin::readFile(configurationFile)) {
            checkConfiguration(text);
            replaceConfiguration(text);
            ostrel::plugin::logNotice(std::string(configurationFile) + " is written");
        }
        isAccepted_ = true;
    }

    void restart() {
        if (isAccepted_ ? isCurrent() : isRunning())
            return;
        restartService();
        ostrel::plugin::logNotice("dnsmasq is started");
    }

private:
    // By the last writeConf. A restart follows also one that failed: what runs is then left alone.
    bool isAccepted_ = false;
};

}  // namespace dnsmasq

OSTREL_ESSENTIAL_PLUGIN(dnsmasq::Plugin)

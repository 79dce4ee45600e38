// What the C++ layer promises beyond what the stock plug-ins use.
#include <ostrel/plugin.hpp>

namespace plugin = ostrel::plugin;

namespace {

struct Sdk {
    static constexpr char name[] = "sdk";
    static constexpr const char* watched[] = {"text", "count"};
    static constexpr const char* triggers[] = {"run.*", "write"};

    // Fails when there is no good text: the daemon starts all the same, and the service with the last one.
    bool writeConf() {
        const bool tries = plugin::readBool("writes").value_or(false);
        if (tries && (plugin::Change().setDword("count", 7).write() || plugin::makeInstance("t", "s", "own")))
            throw std::logic_error("wrote");
        if (plugin::readString("text") == "bad")
            return false;
        const bool changed = plugin::replaceFile("/run/link", plugin::readLine("text").value() + '\n');
        plugin::logNotice(changed ? "has changed" : "has not changed");
        return true;
    }

    // Each of these writes calls it again, until there is nothing left to write.
    void restart(bool& reboot) {
        plugin::replaceFile("/run/served", plugin::readFile("/run/link").value_or("none\n"));
        reboot = plugin::readBool("reboot").value_or(false);
        if (!plugin::Change().setDword("count", 7).setString("copy", "x", 2).writeIfDifferent() || reboot)
            throw std::runtime_error("not restarted");
    }

    void trigger(const char* key) {
        using std::chrono::milliseconds;
        if (std::string(key) == "write") {
            plugin::Change().setByte("result", plugin::writesAtOnce() ? 1 : 0).write();
            return;
        }
        // The grandchild would go on if only the child were killed.
        plugin::run({"/bin/sh", "-c", "(sleep 0.5; touch /run/survivor) & sleep 60"}, milliseconds(100));
    }
};

}  // namespace

OSTREL_PLUGIN(Sdk)

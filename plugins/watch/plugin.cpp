// Tells local readers the name of every key that changes.
#include <optional>
#include <ostrel/plugin.hpp>
#include <system_error>

#include "watch/doorman.h"
#include "watch/listener.h"
#include "watch/readers.h"

namespace watch {

// Nothing here waits for a reader.
class Plugin {
public:
    static constexpr char name[] = "watch";
    static constexpr const char* triggers[] = {"*"};

    // Who cannot be told of changes does not keep the daemon from making them.
    void init() {
        try {
            listener_.emplace();
            doorman_.emplace(*listener_, readers_);
        } catch (const std::system_error& error) {
            listener_.reset();
            ostrel::plugin::logError(std::string(error.what()) + "; no reader can come");
        }
    }

    void trigger(const char* key) {
        if (!doorman_)
            return;
        const std::unique_lock<std::mutex> lock = doorman_->stepAside();
        listener_->admitAll(readers_);
        readers_.tell(key);
    }

private:
    Readers readers_;
    std::optional<Listener> listener_;
    std::optional<Doorman> doorman_;  // the first to go
};

}  // namespace watch

OSTREL_PLUGIN(watch::Plugin)

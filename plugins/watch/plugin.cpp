// Tells local readers the name of every key that changes.
#include <ostrel/plugin.hpp>
#include <system_error>

#include "watch/listener.h"
#include "watch/readers.h"

namespace watch {

// There is no thread: readers are admitted when there is something to tell them, and nothing here waits.
struct Plugin {
    static constexpr char name[] = "watch";
    static constexpr const char* triggers[] = {"*"};

    // Who cannot be told of changes does not keep the daemon from making them.
    void init() {
        try {
            listener_.open();
        } catch (const std::system_error& error) {
            ostrel::plugin::logError(std::string(error.what()) + "; no reader can come");
        }
    }

    void trigger(const char* key) {
        listener_.admitTo(readers_);
        readers_.tell(key);
    }

private:
    Listener listener_;
    Readers readers_;
};

}  // namespace watch

OSTREL_PLUGIN(watch::Plugin)

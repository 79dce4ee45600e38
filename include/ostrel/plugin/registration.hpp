// From a class to the table of entries.
#ifndef OSTREL_PLUGIN_REGISTRATION_HPP
#define OSTREL_PLUGIN_REGISTRATION_HPP

#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ostrel/plugin/knownLines.hpp"
#include "ostrel/plugin/shape.hpp"

// Makes the class the plug-in of this shared object. Once, outside of any namespace. What the class has:
//
//   static constexpr char name[]         the module's name in the log; the only one that must be there
//   watched, triggers                    patterns: a static array or any range of texts, or a function that
//                                        returns one. watched needs writeConf() or restart(), triggers needs
//                                        trigger(), and the other way round
//   writeConf()                          rewrites the service's configuration
//   restart() or restart(bool& reboot)   restarts the service
//   init()                               brings the service to the state of the database. Without it, the
//                                        two above are called, restart also when writeConf failed: the
//                                        service comes up with its last good configuration. Their failure is
//                                        logged and no more: a failed init ends the daemon
//   trigger(const char* key)             reacts to one changed key
//   die()                                tidies up
//   static constexpr unsigned int loadPriority, restartPriority     50 without them
//
// All of them are public and none is overloaded; what cannot work is an error that names the mistake.
//
// The functions return nothing or whether they succeeded. What they throw is logged and counts as a failure;
// when all succeed again, the notice "follows the database again" ends the doctor's warning. The object is
// made when the daemon calls init, and destroyed after die; when the daemon ends in another way, it is not
// destroyed.
#define OSTREL_PLUGIN(Class)                                                      \
    OstrelIoFuncs_t* ostrelGetIoFuncs() {                                         \
        return ostrel::plugin::detail::Entries<Class>::table(OSTREL_PLUGIN_FILE); \
    }

// The same for a plug-in that is loaded in reduced mode, too.
#define OSTREL_ESSENTIAL_PLUGIN(Class) \
    OSTREL_PLUGIN(Class)               \
    void ostrelClientEssentialFunc() {}

#ifdef __FILE_NAME__
#define OSTREL_PLUGIN_FILE __FILE_NAME__
#else
#define OSTREL_PLUGIN_FILE __FILE__
#endif

#pragma GCC visibility push(hidden)
namespace ostrel::plugin {
namespace detail {

// Patterns in the shape that the daemon takes.
class Patterns {
public:
    template <typename Range>
    void assign(const Range& patterns) {
        texts_.assign(std::begin(patterns), std::end(patterns));
        pointers_.clear();
        for (std::string& text : texts_)
            pointers_.push_back(text.data());
    }
    int handOut(unsigned int* count, char*** patterns) {
        *count = static_cast<unsigned int>(pointers_.size());
        *patterns = pointers_.data();
        return 1;
    }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

// Runs the work of an entry: no exception leaves it.
template <typename Work>
int enter(Phase phase, const char* entry, Work work) noexcept {
    const PhaseScope scope(phase);
    try {
        if constexpr (std::is_void_v<decltype(work())>) {
            work();
            return 1;
        } else {
            return work() ? 1 : 0;
        }
    } catch (const std::exception& exception) {
        ostrelPrintLine(1, moduleName, 0, entry, "error: %s", exception.what());
    } catch (...) {
        ostrelPrintLine(1, moduleName, 0, entry, "error: unknown exception");
    }
    return 0;
}

template <typename Class>
class Entries {
    using Its = Shape<Class>;

public:
    static OstrelIoFuncs_t* table(const char* file) {
        static OstrelIoFuncs_t entries = {
            file,
            init,
            die,
            Its::hasWriteConf ? writeConf : nullptr,
            restart,
            getWatchedValues,
            Its::hasTrigger ? getTriggerList : nullptr,
            Its::hasTrigger ? trigger : nullptr,
            loadPriority(),
            restartPriority(),
        };
        return &entries;
    }

private:
    static int init(int, char** name) {
        // The daemon only reads it.
        *name = const_cast<char*>(static_cast<const char*>(Class::name));
        moduleName = *name;
        return enter(Phase::init, "init", [] {
            // A plug-in that is listed twice, through a link, is initialised twice.
            std::unique_ptr<Class>(std::exchange(object_, nullptr)).reset();
            object_ = std::make_unique<Class>().release();
            if constexpr (Its::hasInit)
                return object_->init();
            else
                comeUp();
        });
    }

    // What fails is reported and no more: the others of the appliance need their daemon, and this service its
    // last good configuration.
    static void comeUp() {
        int reboot = 0;
        if (writeConf() != 1)
            ostrelPrintLine(1, moduleName, 0, "init", "error: writeConf failed, %s",
                            knownLine::keepsOldConfiguration);
        if (restart(&reboot) != 1)
            ostrelPrintLine(1, moduleName, 0, "init", "error: restart failed, %s", knownLine::mayNotRun);
    }

    static int die() {
        return enter(Phase::die, "die", [] {
            const std::unique_ptr<Class> object(std::exchange(object_, nullptr));
            if constexpr (Its::hasDie)
                return object->die();
        });
    }

    static int writeConf() {
        isWritten_ = enter(Phase::writeConf, "writeConf", [] {
                         if constexpr (Its::hasWriteConf)
                             return object_->writeConf();
                     }) == 1;
        return isWritten_ ? 1 : 0;
    }

    // Who reads the log learns from it that what failed before is over.
    static int settled(const char* entry, bool& isDone, int result) {
        isDone = result == 1;
        const bool follows = isWritten_ && isRestarted_ && isTriggered_;
        if (follows && isBehind_)
            ostrelPrintLine(2, moduleName, 0, entry, "%s", knownLine::followsAgain);
        isBehind_ = !follows;
        return result;
    }

    static int restart([[maybe_unused]] int* reboot) {
        const int result = enter(Phase::restart, "restart", [&] {
            if constexpr (Its::takesReboot) {
                Reboot wanted(reboot);
                return object_->restart(wanted.wanted);
            } else if constexpr (Its::hasRestart) {
                return object_->restart();
            }
        });
        return settled("restart", isRestarted_, result);
    }

    static int trigger([[maybe_unused]] const char* key) {
        const int result = enter(Phase::trigger, "trigger", [&] {
            if constexpr (Its::hasTrigger)
                return object_->trigger(key);
        });
        return settled("trigger", isTriggered_, result);
    }

    static int getWatchedValues(unsigned int* count, char*** patterns) {
        return enter(Phase::init, "getWatchedValues", [&] {
            if constexpr (Its::givesWatched)
                watched_.assign(object_->watched());
            else if constexpr (Its::hasWatched)
                watched_.assign(object_->watched);
            watched_.handOut(count, patterns);
        });
    }

    static int getTriggerList(unsigned int* count, char*** patterns) {
        return enter(Phase::init, "getTriggerList", [&] {
            if constexpr (Its::givesTriggers)
                triggers_.assign(object_->triggers());
            else if constexpr (Its::hasTriggers)
                triggers_.assign(object_->triggers);
            triggers_.handOut(count, patterns);
        });
    }

    // A wanted reboot counts also when the restart fails.
    struct Reboot {
        explicit Reboot(int* answer) : answer_(answer) {}
        ~Reboot() { *answer_ = wanted ? 1 : 0; }
        Reboot(const Reboot&) = delete;
        Reboot& operator=(const Reboot&) = delete;

        bool wanted = false;

    private:
        int* answer_;
    };

    static constexpr unsigned int loadPriority() {
        if constexpr (Has<LoadPriorityOf, Class>::value)
            return Class::loadPriority;
        else
            return 50;
    }
    static constexpr unsigned int restartPriority() {
        if constexpr (Has<RestartPriorityOf, Class>::value)
            return Class::restartPriority;
        else
            return 50;
    }

    // Owned from init to die. Not destroyed at any other exit: one may come from inside of an entry.
    inline static Class* object_ = nullptr;
    // Whether the last call of each has succeeded; and whether one has failed since all had.
    inline static bool isWritten_ = true;
    inline static bool isRestarted_ = true;
    inline static bool isTriggered_ = true;
    inline static bool isBehind_ = false;
    // The daemon reads them until it unloads the plug-in, which is after die.
    inline static Patterns watched_;
    inline static Patterns triggers_;
};

}  // namespace detail
}  // namespace ostrel::plugin
#pragma GCC visibility pop

#endif

// What a plug-in's class has, and what is wrong with it: a mistake here is a text of the compiler's, where it
// would be a plug-in that is not called otherwise.
#ifndef OSTREL_PLUGIN_SHAPE_HPP
#define OSTREL_PLUGIN_SHAPE_HPP

#include <type_traits>
#include <utility>

#include "ostrel/plugin/phase.hpp"

#pragma GCC visibility push(hidden)
namespace ostrel::plugin::detail {

template <template <typename> class What, typename Class, typename = void>
struct Has : std::false_type {};
template <template <typename> class What, typename Class>
struct Has<What, Class, std::void_t<What<Class>>> : std::true_type {};

template <typename Class>
using NameOf = decltype(std::declval<Class&>().name);
template <typename Class>
using WatchedOf = decltype(std::declval<Class&>().watched);
template <typename Class>
using WatchedFunctionOf = decltype(std::declval<Class&>().watched());
template <typename Class>
using TriggersOf = decltype(std::declval<Class&>().triggers);
template <typename Class>
using TriggersFunctionOf = decltype(std::declval<Class&>().triggers());
template <typename Class>
using InitOf = decltype(std::declval<Class&>().init());
template <typename Class>
using DieOf = decltype(std::declval<Class&>().die());
template <typename Class>
using WriteConfOf = decltype(std::declval<Class&>().writeConf());
template <typename Class>
using RestartOf = decltype(std::declval<Class&>().restart());
template <typename Class>
using RebootOf = decltype(std::declval<Class&>().restart(std::declval<bool&>()));
// What takes this one cannot change the daemon's.
template <typename Class>
using RebootValueOf = decltype(std::declval<Class&>().restart(std::declval<const bool>()));
template <typename Class>
using TriggerOf = decltype(std::declval<Class&>().trigger(std::declval<const char*>()));
template <typename Class>
using LoadPriorityOf = decltype(Class::loadPriority);
template <typename Class>
using RestartPriorityOf = decltype(Class::restartPriority);

// For a name: Single_NAME, when it is public and stands for one thing only; isNamed_NAME, whatever its
// access: a second one makes it ambiguous. Of a final class that cannot be asked.
// NOLINTBEGIN(bugprone-macro-parentheses): a member's name has none.
#define OSTREL_PLUGIN_NAME(name)                                                          \
    template <typename Class>                                                             \
    using Single_##name = decltype(&Class::name);                                         \
    struct Second_##name {                                                                \
        int name;                                                                         \
    };                                                                                    \
    template <typename Class, bool>                                                       \
    struct Both_##name : Class, Second_##name {};                                         \
    template <typename Class>                                                             \
    struct Both_##name<Class, true> : Second_##name {};                                   \
    template <typename Class>                                                             \
    using Lone_##name = decltype(&Both_##name<Class, std::is_final<Class>::value>::name); \
    template <typename Class>                                                             \
    inline constexpr bool isSingle_##name = Has<Single_##name, Class>::value;             \
    template <typename Class>                                                             \
    inline constexpr bool isNamed_##name = isSingle_##name<Class> || !Has<Lone_##name, Class>::value;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
OSTREL_PLUGIN_NAME(name)
OSTREL_PLUGIN_NAME(watched)
OSTREL_PLUGIN_NAME(triggers)
OSTREL_PLUGIN_NAME(init)
OSTREL_PLUGIN_NAME(die)
OSTREL_PLUGIN_NAME(writeConf)
OSTREL_PLUGIN_NAME(restart)
OSTREL_PLUGIN_NAME(trigger)
OSTREL_PLUGIN_NAME(loadPriority)
OSTREL_PLUGIN_NAME(restartPriority)
#pragma GCC diagnostic pop
#undef OSTREL_PLUGIN_NAME
// NOLINTEND(bugprone-macro-parentheses)

// Looked for only where the right name is missing: a class may use others as it likes.
#define OSTREL_PLUGIN_MISTAKE(wrong) \
    template <typename Class>        \
    using Mistake_##wrong = decltype(&Class::wrong);
OSTREL_PLUGIN_MISTAKE(watch)
OSTREL_PLUGIN_MISTAKE(watches)
OSTREL_PLUGIN_MISTAKE(watchedKeys)
OSTREL_PLUGIN_MISTAKE(watchedValues)
OSTREL_PLUGIN_MISTAKE(triggerKeys)
OSTREL_PLUGIN_MISTAKE(triggerList)
OSTREL_PLUGIN_MISTAKE(writeconf)
OSTREL_PLUGIN_MISTAKE(writeConfig)
OSTREL_PLUGIN_MISTAKE(write_conf)
OSTREL_PLUGIN_MISTAKE(WriteConf)
OSTREL_PLUGIN_MISTAKE(reStart)
OSTREL_PLUGIN_MISTAKE(Restart)
OSTREL_PLUGIN_MISTAKE(onTrigger)
OSTREL_PLUGIN_MISTAKE(Trigger)
OSTREL_PLUGIN_MISTAKE(Init)
OSTREL_PLUGIN_MISTAKE(Die)
#undef OSTREL_PLUGIN_MISTAKE

template <typename Class>
struct Shape {
    static constexpr bool hasInit = Has<InitOf, Class>::value;
    static constexpr bool hasDie = Has<DieOf, Class>::value;
    static constexpr bool hasWriteConf = Has<WriteConfOf, Class>::value;
    static constexpr bool takesReboot = Has<RebootOf, Class>::value;
    static constexpr bool hasRestart = takesReboot || Has<RestartOf, Class>::value;
    static constexpr bool hasTrigger = Has<TriggerOf, Class>::value;
    static constexpr bool givesWatched = Has<WatchedFunctionOf, Class>::value;
    static constexpr bool hasWatched = givesWatched || Has<WatchedOf, Class>::value;
    static constexpr bool givesTriggers = Has<TriggersFunctionOf, Class>::value;
    static constexpr bool hasTriggers = givesTriggers || Has<TriggersOf, Class>::value;

#define OSTREL_PLUGIN_MISSPELT(wrong, right)                                     \
    static_assert(isNamed_##right<Class> || !Has<Mistake_##wrong, Class>::value, \
                  "\"" #wrong "\" is not looked for: is \"" #right "\" meant?");
    OSTREL_PLUGIN_MISSPELT(watch, watched)
    OSTREL_PLUGIN_MISSPELT(watches, watched)
    OSTREL_PLUGIN_MISSPELT(watchedKeys, watched)
    OSTREL_PLUGIN_MISSPELT(watchedValues, watched)
    OSTREL_PLUGIN_MISSPELT(triggerKeys, triggers)
    OSTREL_PLUGIN_MISSPELT(triggerList, triggers)
    OSTREL_PLUGIN_MISSPELT(writeconf, writeConf)
    OSTREL_PLUGIN_MISSPELT(writeConfig, writeConf)
    OSTREL_PLUGIN_MISSPELT(write_conf, writeConf)
    OSTREL_PLUGIN_MISSPELT(WriteConf, writeConf)
    OSTREL_PLUGIN_MISSPELT(reStart, restart)
    OSTREL_PLUGIN_MISSPELT(Restart, restart)
    OSTREL_PLUGIN_MISSPELT(onTrigger, trigger)
    OSTREL_PLUGIN_MISSPELT(Trigger, trigger)
    OSTREL_PLUGIN_MISSPELT(Init, init)
    OSTREL_PLUGIN_MISSPELT(Die, die)
#undef OSTREL_PLUGIN_MISSPELT

#define OSTREL_PLUGIN_REACHED(entry)                                  \
    static_assert(!isNamed_##entry<Class> || isSingle_##entry<Class>, \
                  #entry "() is private, overloaded or a template: it must be one public function");
    OSTREL_PLUGIN_REACHED(init)
    OSTREL_PLUGIN_REACHED(die)
    OSTREL_PLUGIN_REACHED(writeConf)
    OSTREL_PLUGIN_REACHED(restart)
    OSTREL_PLUGIN_REACHED(trigger)
#undef OSTREL_PLUGIN_REACHED

    static_assert(hasInit || !isSingle_init<Class>, "init() is a function without arguments");
    static_assert(hasDie || !isSingle_die<Class>, "die() is a function without arguments");
    static_assert(hasWriteConf || !isSingle_writeConf<Class>, "writeConf() is a function without arguments");
    static_assert(hasRestart || !isSingle_restart<Class>,
                  "restart() is a function without arguments, or takes bool& reboot");
    static_assert(!takesReboot || !Has<RebootValueOf, Class>::value || !isSingle_restart<Class>,
                  "restart(bool& reboot) takes a reference: a value cannot ask for the reboot");
    static_assert(hasTrigger || !isSingle_trigger<Class>,
                  "trigger() is a function that takes const char* key");

    static_assert(isNamed_name<Class>,
                  "static constexpr char name[] is missing: the module's name in the log");
    static_assert(Has<NameOf, Class>::value || !isNamed_name<Class>, "name must be public");
    static_assert(hasWatched || !isNamed_watched<Class>, "watched must be public: patterns or a function");
    static_assert(hasTriggers || !isNamed_triggers<Class>, "triggers must be public: patterns or a function");
    static_assert(Has<LoadPriorityOf, Class>::value || !isNamed_loadPriority<Class>,
                  "loadPriority must be public");
    static_assert(Has<RestartPriorityOf, Class>::value || !isNamed_restartPriority<Class>,
                  "restartPriority must be public");

    static_assert(hasTrigger || !hasTriggers, "triggers without trigger(): nothing is called for them");
    static_assert(hasTriggers || !hasTrigger, "trigger() without triggers: it is never called");
    static_assert(hasWriteConf || hasRestart || !hasWatched,
                  "watched without writeConf() or restart(): nothing is called for them");
    static_assert(hasWatched || !(hasWriteConf || hasRestart),
                  "writeConf() or restart() without watched: no change calls them; init() is for the start");
};

}  // namespace ostrel::plugin::detail
#pragma GCC visibility pop

#endif

// The plug-in interface for C++17: ostrel/plugin.h with values, exceptions and owners. Its rules hold here,
// too.
//
// A plug-in is a class and one line that registers it:
//
//     struct Clock {
//         static constexpr char name[] = "clock";
//         static constexpr const char* watched[] = {"time.zone"};
//         void writeConf() { changed_ |= ostrel::plugin::replaceFile("/vemra/var/clock.conf", ...); }
//         void restart() { ... }
//     };
//     OSTREL_PLUGIN(Clock)
//
// All of it is header only, and hidden in the plug-in that includes it: two plug-ins share nothing.
#ifndef OSTREL_PLUGIN_HPP
#define OSTREL_PLUGIN_HPP

#include "ostrel/plugin/change.hpp"
#include "ostrel/plugin/command.hpp"
#include "ostrel/plugin/file.hpp"
#include "ostrel/plugin/read.hpp"
#include "ostrel/plugin/registration.hpp"

#endif

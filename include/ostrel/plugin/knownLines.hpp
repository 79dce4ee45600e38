// Texts in the log that tools which read it look for. The C++ layer writes them; a plug-in has no use of
// them.
#ifndef OSTREL_PLUGIN_KNOWN_LINES_HPP
#define OSTREL_PLUGIN_KNOWN_LINES_HPP

namespace ostrel::plugin::knownLine {

constexpr char writeLeftOut[] = "a write in writeConf is left out";
constexpr char keepsOldConfiguration[] = "the service has its last good configuration";
constexpr char mayNotRun[] = "the service may not run";
constexpr char followsAgain[] = "follows the database again";

}  // namespace ostrel::plugin::knownLine

#endif

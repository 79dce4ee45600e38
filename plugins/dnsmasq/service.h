// The dnsmasq process.
//
// It is nobody's child and outlives the daemon, so all that is known of it stands in files: its own pid file,
// and a mark that says that it runs with the configuration file as that is now.
#pragma once

#include <string>

namespace dnsmasq {

// Throws std::runtime_error when dnsmasq does not accept the configuration; its own words about it are in the
// log, and the text stays in the candidate file. Takes at most about 3 s.
void checkConfiguration(const std::string& text);

// Keeps the one that was in use, to come back to.
void replaceConfiguration(const std::string& text);

bool isRunning();
// With the configuration file as it is now.
bool isCurrent();

// Stops the service if it runs, and starts it; if it does not come up, with the last good configuration,
// which is then in use again. Takes at most about 12 s. Throws std::runtime_error when it does not run
// afterwards, or not with the configuration that was in use before; dnsmasq's own words about it are in the
// log.
void restartService();

}  // namespace dnsmasq

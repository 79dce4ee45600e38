// The dnsmasq process.
//
// It is nobody's child and outlives the daemon, so all that is known of it stands in files: its own pid file,
// and a mark that says that it runs with the configuration file as that is now.
#pragma once

namespace dnsmasq {

// Before the configuration is replaced: a crash in between then restarts a service that is current, never the
// other way round.
void markStale();

bool isCurrent();

// Stops the service if it runs, and starts it. Takes at most about 5 s. Throws std::runtime_error when it
// does not run afterwards; dnsmasq's own words about it are in the log.
void restartService();

}  // namespace dnsmasq

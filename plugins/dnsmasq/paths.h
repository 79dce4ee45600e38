// The files of the service.
#pragma once

namespace dnsmasq {

constexpr char programFile[] = "/usr/sbin/dnsmasq";
constexpr char configurationFile[] = "/vemra/var/dnsmasq.conf";
// What stood in the configuration file before, until the service has come up with what stands there now.
constexpr char lastGoodFile[] = "/vemra/var/dnsmasq.conf.good";
// A new configuration until dnsmasq has accepted it, in a folder for nothing else.
constexpr char candidateFolder[] = "/run/ostrel-dnsmasq";
constexpr char candidateFile[] = "/run/ostrel-dnsmasq/candidate.conf";
// On a file system that a reboot empties, so what they tell is never older than the processes.
constexpr char pidFile[] = "/run/ostrel-dnsmasq.pid";
constexpr char currentFile[] = "/run/ostrel-dnsmasq.current";

}  // namespace dnsmasq

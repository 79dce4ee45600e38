// The files of the service.
#pragma once

namespace dnsmasq {

constexpr char programFile[] = "/usr/sbin/dnsmasq";
constexpr char configurationFile[] = "/vemra/var/dnsmasq.conf";
// On a file system that a reboot empties, so what they tell is never older than the processes.
constexpr char pidFile[] = "/run/ostrel-dnsmasq.pid";
constexpr char currentFile[] = "/run/ostrel-dnsmasq.current";

}  // namespace dnsmasq

// What doctor looks at. Each check adds its findings to the report.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

#include "ctl/doctorReport.h"
#include "ostrel/client.hpp"

struct DaemonFacts {
    bool reachable = false;  // it listens, though it may not answer
    pid_t process = 0;       // 0: not known
    std::optional<uid_t> user{};
};

// Socket, answer time, process.
DaemonFacts checkDaemon(DoctorReport& report, ostrel::Session& session);

// Whether the log is the one that the daemon writes, and what it tells about faults.
void checkLog(DoctorReport& report, const std::string& path, const DaemonFacts& daemon);

// Loads each plug-in in a process of its own. programs: the folder of ostrelPluginProbe.
void checkPlugins(DoctorReport& report, const std::filesystem::path& programs);

// Whether somebody besides root and the daemon's user can change what the daemon runs or takes for the
// firmware.
void checkRights(DoctorReport& report, std::optional<uid_t> daemonUser);

// programs: the folder of ostrelDbTool.
void checkDatabase(DoctorReport& report, const std::filesystem::path& programs);

// The file systems of the live file and of the log.
void checkSpace(DoctorReport& report, const std::string& logPath);

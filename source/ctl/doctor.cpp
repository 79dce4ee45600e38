#include "ctl/doctor.h"

#include <filesystem>

#include "ctl/doctorChecks.h"
#include "ctl/doctorReport.h"

Status runDoctor(ostrel::Session& session, const DoctorOptions& options) {
    const std::filesystem::path programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    DoctorReport report(options.json);
    const DaemonFacts daemon = checkDaemon(report, session);
    checkLog(report, options.logPath, daemon);
    checkPlugins(report, programs);
    checkRights(report, daemon.user);
    checkDatabase(report, programs);
    checkSpace(report, options.logPath);
    report.finish();
    if (!daemon.reachable)
        return Status::notRunning;
    return report.hasBad() ? Status::refused : Status::done;
}

#include <fstream>
#include <iterator>
#include <map>
#include <vector>

#include "ctl/doctorChecks.h"
#include "ctl/rights.h"
#include "exec/rules.h"
#include "text/fixedPaths.h"

namespace fs = std::filesystem;

namespace {

// What the daemon, or a runner of its own, takes for its maker's.
std::vector<fs::path> trustedFiles() {
    std::vector<fs::path> files = {pluginFolder, defaultsPath, templatesPath, exec::rulesPath};
    std::error_code error;
    for (fs::directory_iterator entry(pluginFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() == pluginSuffix)
            files.push_back(entry->path());
    }
    std::ifstream rules(exec::rulesPath);
    const std::string text{std::istreambuf_iterator<char>(rules), {}};
    for (const exec::Rule& rule : exec::parseRules(text, exec::rulesPath).rules)
        files.emplace_back(rule.command.front());
    return files;
}

}  // namespace

void checkRights(DoctorReport& report, std::optional<uid_t> daemonUser) {
    // By the place, as one folder may be above them all.
    std::map<fs::path, std::string> found;
    for (const fs::path& file : trustedFiles()) {
        if (std::optional<Weakness> weak = whatOthersCanChange(file, daemonUser))
            found.emplace(weak->place, weak->place.string() + ' ' + weak->reason +
                                           (weak->place == file || weak->place == file.parent_path()
                                                ? ""
                                                : ", and so " + file.string()));
    }
    for (const auto& [place, text] : found)
        report.warn("rights", text + ": whoever can change it becomes the daemon's user",
                    "chown root " + place.string() + "; chmod go-w " + place.string());
    if (found.empty())
        report.ok("rights", "nobody else can change plug-ins, firmware files and exec's commands");
}

// ostrelPluginBench: plays a scenario to one plug-in, with the server's host and store around it but without
// a device, and fails on what would hurt there.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "common/ostrelUtils.h"
#include "ostrel/version.h"
#include "pluginBench/scenario.h"
#include "pluginBench/watch.h"
#include "text/fixedPaths.h"

namespace {

constexpr int exitUsage = 2;
constexpr char usage[] =
    "usage: ostrelPluginBench [-v] PLUGIN SCENARIO\n"
    "  -v, --verbose  print the log also when all is well\n"
    "      --version  print the version\n"
    "Exit status: 0 all is well; 1 the plug-in failed; 2 wrong usage, or the scenario cannot be played.\n";

int fail(const std::string& reason) {
    std::fprintf(stderr, "ostrelPluginBench: %s\n", reason.c_str());
    return exitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    // The server's globals log their end at every exit.
    ostrelSetPrintLevel(0);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "-h") {
        std::fputs(usage, stdout);
        return 0;
    }
    if (first == "--version" && argc == 2) {
        std::puts("ostrelPluginBench " OSTREL_VERSION);
        return 0;
    }
    bool verbose = first == "--verbose" || first == "-v";
    if (argc != (verbose ? 4 : 3) || (!verbose && first.starts_with('-'))) {
        std::fputs(usage, stderr);
        return exitUsage;
    }
    const std::string plugin = argv[argc - 2];
    if (!plugin.ends_with(pluginSuffix))
        return fail(plugin + ": the daemon loads only files whose names end in .ostr");
    if (access(plugin.c_str(), R_OK) != 0)
        return fail(plugin + ": it cannot be read");
    try {
        return pluginBench::watch(pluginBench::readScenario(argv[argc - 1]), plugin, verbose);
    } catch (const std::exception& exception) {
        return fail(exception.what());
    }
}

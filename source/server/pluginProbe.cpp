// ostrelPluginProbe: opens one plug-in as the server does and prints what it finds, a "word: text" per line.
// No entry of the plug-in is called.
//
// A plug-in runs code as soon as it is loaded. When that crashes or never ends, so does the probe: the lines
// are written one by one, and the last that came tells how far it got.
#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "common/ostrelUtils.h"
#include "ostrel/plugin.h"
#include "ostrel/version.h"
#include "process/closers.h"
#include "server/pluginFile.h"
#include "server/pluginSymbols.h"

namespace {

constexpr int exitUsable = 0;
constexpr int exitUnusable = 1;
constexpr int exitUsage = 2;
constexpr char usage[] =
    "usage: ostrelPluginProbe PLUGIN | --version\n"
    "Exit status: 0 the server could use it; 1 it could not, or shares symbols with others; 2 wrong usage,\n"
    "or no such file.\n";

void print(std::FILE* output, const char* word, const std::string& text) {
    std::fprintf(output, "%s: %s\n", word, text.c_str());
}

// The standard output, as the probe's alone: what the plug-in prints goes to standard error.
process::File takeStandardOutput() {
    process::File output(fdopen(dup(STDOUT_FILENO), "w"));
    if (output) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        std::setvbuf(output.get(), nullptr, _IOLBF, 0);
    }
    return output;
}

// True when the server could use the table.
bool describe(std::FILE* output, const OstrelIoFuncs_t& table) {
    auto entry = [&](const char* name, bool present) {
        print(output, name, present ? "present" : "missing");
        return present;
    };
    const bool init = entry("init", table.init != nullptr);
    const bool restart = entry("restart", table.restart != nullptr);
    const bool getWatchedValues = entry("getWatchedValues", table.getWatchedValues != nullptr);
    entry("die", table.die != nullptr);
    entry("writeConf", table.writeConf != nullptr);
    entry("getTriggerList", table.getTriggerList != nullptr);
    entry("trigger", table.trigger != nullptr);
    print(output, "loadPriority", std::to_string(table.loadPriority));
    print(output, "restartPriority", std::to_string(table.restartPriority));
    return init && restart && getWatchedValues;
}

bool probeTable(std::FILE* output, OstrelIoFuncs_t* (*getIoFuncs)()) {
    std::string fault = "null";
    try {
        if (const OstrelIoFuncs_t* table = getIoFuncs()) {
            print(output, "table", "present");
            return describe(output, *table);
        }
    } catch (const std::exception& exception) {
        fault = std::string("throws ") + exception.what();
    } catch (...) {
        fault = "throws what is not a std::exception";
    }
    print(output, "table", fault);
    return false;
}

// True when no other plug-in can get into this one's way by its symbols. Last, as it may be long.
bool describeSymbols(std::FILE* output, const std::string& path) {
    const std::optional<ExtraSymbols> extra = readExtraSymbols(path);
    print(output, "symbols", extra ? "read" : "unreadable");
    if (extra && !extra->plain.empty())
        print(output, "exports", blankSeparated(extra->plain));
    if (extra && !extra->shared.empty())
        print(output, "shares", blankSeparated(extra->shared));
    return !extra || extra->shared.empty();
}

bool probe(std::FILE* output, const std::string& path) {
    const std::optional<std::string> fault = faultOfPluginFile(path.c_str());
    process::Library library(fault ? nullptr : dlopen(path.c_str(), RTLD_NOW));
    print(output, "loads", library ? "yes" : printable(fault ? fault->c_str() : dlerror()));
    if (!library)
        return false;
    bool essential = dlsym(library.get(), "ostrelClientEssentialFunc") != nullptr;
    print(output, "essential", essential ? "yes" : "no");
    auto getIoFuncs = reinterpret_cast<OstrelIoFuncs_t* (*)()>(dlsym(library.get(), "ostrelGetIoFuncs"));
    print(output, "ostrelGetIoFuncs", getIoFuncs != nullptr ? "present" : "missing");
    bool usable = getIoFuncs != nullptr && probeTable(output, getIoFuncs);
    library.reset();
    print(output, "unloads", "yes");
    return describeSymbols(output, path) && usable;
}

}  // namespace

int main(int argc, char** argv) {
    // The server's globals log their end at every exit.
    ostrelSetPrintLevel(0);
    if (argc == 2 && std::string_view(argv[1]) == "--version") {
        std::puts("ostrelPluginProbe " OSTREL_VERSION);
        return 0;
    }
    bool help = argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h");
    if (help || argc != 2 || *argv[1] == '-') {
        std::fputs(usage, help ? stdout : stderr);
        return help ? 0 : exitUsage;
    }
    if (access(argv[1], F_OK) != 0) {
        std::fprintf(stderr, "ostrelPluginProbe: %s: %s\n", argv[1], std::strerror(errno));
        return exitUsage;
    }
    // A crash is one of the answers: it is not to leave a core file.
    constexpr rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    process::File output = takeStandardOutput();
    if (!output) {
        std::perror("standard output");
        return exitUsage;
    }
    // The loader would look up a name without a slash in its own folders.
    return probe(output.get(), std::filesystem::absolute(argv[1])) ? exitUsable : exitUnusable;
}

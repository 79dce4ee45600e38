// Start-up: from the command line to the main loop.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

#include "common/cliArgs.h"
#include "common/ostrelUtils.h"
#include "server/connections.h"
#include "server/descriptors.h"
#include "server/globals.h"
#include "server/logFile.h"
#include "server/mainLoop.h"
#include "server/pluginLoading.h"
#include "server/serverModule.h"
#include "server/signals.h"
#include "server/storedOperations.h"
#include "text/fixedPaths.h"

namespace {

constexpr int defaultMask = 3;
constexpr int verboseMask = 7;

// Not constant, as logFileName is not.
std::array defaultLogFile = std::to_array(defaultLogPath);

struct Options {
    int help = 0;
    int debug = 0;
    int verbose = 0;
    int reduced = 0;
    int keyCreateAllowed = 0;
};

// False when there is nothing to run: the usage has been printed.
bool parseOptions(int argc, char** argv, Options& options) {
    TParser_Arg table[] = {
        {"-h", "--help", "this help message", "", &options.help, CLIARG_FLAG, 0, 0},
        {"-l", "--log", "log file", defaultLogPath, &logFileName, CLIARG_STRING, 0, 0},
        {"-d", "--debug", "run in debug mode", "", &options.debug, CLIARG_FLAG, 0, 0},
        {"-v", "--verbose", "verbose", "", &options.verbose, CLIARG_FLAG, 0, 0},
        {"-r", "--reduced", "reduced mode, only start essential plugins", "", &options.reduced, CLIARG_FLAG,
         0, 0},
        {nullptr, "--key-create-allowed", "non-existing keys can be created", "", &options.keyCreateAllowed,
         CLIARG_FLAG, 0, 0},
        {nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, 0},
    };
    if (CliArgs_Parse(table, argc - 1, argv + 1) == 1 && options.help == 0)
        return true;
    CliArgs_Usage(argv[0], table);
    return false;
}

// Detaches: the parent ends, the child goes on without a terminal, its output in the log file.
void Daemonize() {
    for (const int number : {SIGUSR1, SIGUSR2, SIGPIPE})
        std::signal(number, SIG_IGN);
    const pid_t child = fork();
    if (child < 0) {
        OSTREL_LOG(logLevel::error, "error: fork");
        std::exit(0);
    }
    if (child > 0)
        std::exit(0);
    setsid();
    closeInherited();
    const int null = open("/dev/null", O_RDWR);
    if (null < 0)
        std::exit(1);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(null, fd);
    if (null > STDERR_FILENO)
        close(null);
    if (logFileName == nullptr)
        logFileName = defaultLogFile.data();
    OpenLog(logFileName);
}

void openLog(const Options& options) {
    ostrelShowPrefix(1);
    ostrelSetPrintLevel(options.verbose != 0 ? verboseMask : defaultMask);
    installHangUpHandler();
    if (options.debug == 0) {
        Daemonize();
        return;
    }
    hideInherited();
    if (logFileName != nullptr)
        OpenLog(logFileName);
    installQuitHandlers();
}

void logStart() {
    // Fixed, as in the last line: what others look for in the log, not the version of the programs.
    OSTREL_LOG_AT(logPlace::mainProgram, logLevel::notice, "** Ostrel v0.1 starting...**");
    OSTREL_LOG_AT(logPlace::mainProgram, logLevel::notice, "default db:  %s", defaultsPath);
    OSTREL_LOG_AT(logPlace::mainProgram, logLevel::notice, "db:          %s", livePath);
    OSTREL_LOG_AT(logPlace::mainProgram, logLevel::notice, "db tmplt:    %s", templatesPath);
}

void openDatabase(const Options& options) {
    static ostrelDbCfg configuration{};
    configuration.keyCreateAllowed = options.keyCreateAllowed != 0;
    database = new ostrelDb(&configuration);
}

}  // namespace

int main(int argc, char** argv) {
    fillStandardDescriptors();
    Options options;
    if (!parseOptions(argc, argv, options))
        return 0;
    raiseDescriptorLimit();
    openLog(options);
    reserveLogDescriptor();
    logStart();
    openDatabase(options);
    startServing();
    state = phase::loading;
    loadPlugins(options.reduced);
    state = phase::idle;
    popBackStoredMessage();
    OSTREL_LOG_AT(logPlace::mainProgram, logLevel::debug, "[ostrel] Plugins loaded, entering main loop");
    mainLoop();
}
